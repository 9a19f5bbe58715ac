// clampcat, run as a program. Where the text of the output counts, its clock stands still.

#include "tests/support/ChildProcess.h"
#include "tests/tools/LiveChild.h"
#include "tools/clampcat/LineReader.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <list>
#include <random>
#include <string>
#include <vector>

namespace {

using Clampcat::LineReader;
using testing::StartsWith;

std::string const kClampcat = CLAMPCAT;
std::string const kStandingStill = CLAMPCAT_OWN_CLOCK;

// "name first" to "name last", a line each.
std::string numbered(std::string const& name, int first, int last) {
    std::string lines;
    for (int i = first; i <= last; ++i) {
        lines += name + " " + std::to_string(i) + "\n";
    }
    return lines;
}

// What is seen of 16 lines or more of a fresh shape: the first 16.
std::string burst(std::string const& name, int first) {
    return numbered(name, first, first + 14) + "[drop...] " + numbered(name, first + 15, first + 15);
}

std::string summary(std::size_t in, std::size_t shown, std::size_t shapes) {
    return "clampcat: lines in: " + std::to_string(in) + ", lines shown: " + std::to_string(shown) +
           ", shapes: " + std::to_string(shapes) + "\n";
}

struct TemporaryFile {
    explicit TemporaryFile(std::string const& content) {
        int const fd = mkstemp(name.data());
        EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        close(fd);
    }
    ~TemporaryFile() { unlink(name.c_str()); }
    TemporaryFile(TemporaryFile const&) = delete;
    TemporaryFile& operator=(TemporaryFile const&) = delete;

    std::string name = testing::TempDir() + "clampcat-XXXXXX";
};

struct Row {
    char const* what;
    std::vector<std::string> words;
    std::string in;
    std::string out;
    std::string err;
    int exitCode = 0;
};

void runRows(std::vector<Row> const& rows) {
    for (Row const& row : rows) {
        std::vector<std::string> words{kStandingStill};
        words.insert(words.end(), row.words.begin(), row.words.end());
        ChildResult const result = runChild(words, {row.in, {}, {}});
        EXPECT_EQ(result.out, row.out) << row.what;
        EXPECT_EQ(result.err, row.err) << row.what;
        EXPECT_EQ(result.exitCode, row.exitCode) << row.what;
    }
}

TEST(Clampcat, CopiesThinsAndCounts) {
    std::string const odd("nul \0 and \xff\xfe, \r\n", 16);
    std::string const longer = std::string(300, 'z') + "\n";
    std::string longFlood;
    std::string longOut;
    for (int i = 1; i <= 18; ++i) {
        longFlood += longer;
        longOut += (i == 16 ? "[drop...] " : "") + (i <= 16 ? longer : "");
    }
    runRows({
        {"nothing", {}, "", "", summary(0, 0, 0)},
        {"empty lines are lines", {}, "\n\n", "\n\n", summary(2, 2, 1)},
        {"no last line feed", {}, "a\nb", "a\nb", summary(2, 2, 2)},
        {"any bytes", {}, odd, odd, summary(1, 1, 1)},
        {"no format", {}, "100% %s %n\n", "100% %s %n\n", summary(1, 1, 1)},
        {"sixteen", {}, numbered("t", 1, 16), burst("t", 1), summary(16, 16, 1)},
        {"twenty",
         {},
         numbered("t", 1, 20),
         burst("t", 1) + "[3 delayed 00:00:00] t 20\n",
         summary(20, 17, 1)},
        {"a held line without line feed",
         {},
         numbered("t", 1, 17) + "t 18",
         burst("t", 1) + "[1 delayed 00:00:00] t 18\n",
         summary(18, 17, 1)},
        {"a release behind a line without line feed",
         {},
         numbered("t", 1, 17) + "end",
         burst("t", 1) + "end\n[0 delayed 00:00:00] t 17\n",
         summary(18, 18, 2)},
        {"a held format",
         {},
         numbered("%s%n", 1, 17),
         burst("%s%n", 1) + "[0 delayed 00:00:00] %s%n 17\n",
         summary(17, 17, 1)},
        {"a held nul",
         {},
         numbered("t", 1, 16) + std::string("t 17\0x\nt 18\0\n", 13),
         burst("t", 1) + std::string("t 17\0x\nt 18\0\n", 13),
         summary(18, 18, 3)},
        {"a held long line is cut",
         {},
         longFlood,
         longOut + "[1 delayed 00:00:00] " + std::string(191, 'z') + "\n",
         summary(18, 17, 1)},
        {"releases come in the order last seen",
         {},
         numbered("t", 1, 17) + numbered("u", 1, 18) + "t 18\n",
         burst("t", 1) + burst("u", 1) + "[1 delayed 00:00:00] u 18\n[1 delayed 00:00:00] t 18\n",
         summary(36, 34, 2)},
        {"the oldest shape is flushed for a new one, and its site is as new",
         {"--shapes", "2"},
         numbered("t", 1, 18) + "u\nt 19\nv\nu\n" + numbered("t", 20, 36),
         burst("t", 1) + "u\nv\n[2 delayed 00:00:00] t 19\nu\n" + burst("t", 20) +
             "[0 delayed 00:00:00] t 36\n",
         summary(39, 37, 5)},
    });
}

TEST(Clampcat, FilesAndMistakes) {
    TemporaryFile const a("a\nno feed");
    TemporaryFile const b("b\n");
    std::string const dir = testing::TempDir();
    std::string const usage = "Usage: clampcat [OPTION]... [FILE]...\nTry 'clampcat --help' for more.\n";
    std::string const range = " is not a number from 1 to 1000000000\n";
    runRows({
        {"files and stdin", {a.name, "-", b.name}, "in\n", "a\nno feed\nin\nb\n", summary(4, 4, 4)},
        {"stdin twice", {"-", "-"}, "in\n", "in\n", summary(1, 1, 1)},
        {"what can't be read is named, and the rest copied",
         {"/nowhere/x", b.name, dir},
         "",
         "b\n",
         "clampcat: /nowhere/x: No such file or directory\nclampcat: " + dir + ": Is a directory\n" +
             summary(1, 1, 1),
         1},
        {"a name like an option",
         {"--", "-x"},
         "",
         "",
         "clampcat: -x: No such file or directory\n" + summary(0, 0, 0),
         1},
        {"unknown option", {"--loud"}, "x\n", "", "clampcat: unrecognized option '--loud'\n" + usage, 2},
        {"unknown letter", {"-q"}, "x\n", "", "clampcat: invalid option -- 'q'\n" + usage, 2},
        {"no number", {"--shapes"}, "", "", "clampcat: option '--shapes' requires an argument\n" + usage, 2},
        {"no shapes", {"--shapes=0"}, "", "", "clampcat: --shapes: '0'" + range + usage, 2},
        {"rest", {"--shapes=9x"}, "", "", "clampcat: --shapes: '9x'" + range + usage, 2},
        {"sign", {"-s-1"}, "", "", "clampcat: --shapes: '-1'" + range + usage, 2},
        {"too many",
         {"-s", "99999999999999999999"},
         "",
         "",
         "clampcat: --shapes: '99999999999999999999'" + range + usage,
         2},
    });
    ChildResult const help = runChild({kClampcat, "--help"});
    EXPECT_THAT(help.out, StartsWith("Usage: clampcat [OPTION]... [FILE]...\n"));
    EXPECT_EQ(help.err + std::to_string(help.exitCode), "0");
    ChildResult const version = runChild({kClampcat, "--version", "--nonsense"});
    EXPECT_THAT(version.out, testing::MatchesRegex("clampcat [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(version.err + std::to_string(version.exitCode), "0");
}

// The descriptors that a shell can hand over badly, and a reader that goes before the end.
TEST(Clampcat, BadDescriptors) {
    TemporaryFile const file("x\n");
    TemporaryFile const large(std::string(1'000'000, 'x')); // more than a pipe takes
    struct {
        std::string command;
        std::string err;
        int exitCode;
    } const rows[] = {
        {"exec \"$0\" <&-", "clampcat: -: Bad file descriptor\n" + summary(0, 0, 0), 1},
        {"exec \"$0\" \"$1\" >&-", "clampcat: standard output: Bad file descriptor\n", 1},
        {"exec \"$0\" \"$1\" > /dev/full", "clampcat: standard output: No space left on device\n", 1},
        // runChild() ignores SIGPIPE and hands that on, so that it is an error of write() that tells
        {"{ \"$0\" \"$2\"; echo ended with $? >&2; } | true", "ended with 1\n", 0},
        {"exec \"$0\" --help > /dev/full", "clampcat: standard output: No space left on device\n", 1},
        {"exec \"$0\" \"$1\" >> \"$1\"",
         "clampcat: " + file.name + ": input file is output file\n" + summary(0, 0, 0), 1},
    };
    for (auto const& row : rows) {
        ChildResult const result = runChild({"/bin/sh", "-c", row.command, kClampcat, file.name, large.name});
        EXPECT_EQ(result.out, "") << row.command;
        EXPECT_EQ(result.err, row.err) << row.command;
        EXPECT_EQ(result.exitCode, row.exitCode) << row.command;
    }
}

// A line far longer than the reader's block passes whole, or is held and cut like any other; so is one that
// ends with the block.
TEST(Clampcat, LongLines) {
    std::minstd_rand random(1);
    std::string noise(100'000, '\0');
    std::generate(noise.begin(), noise.end(), [&random] { return static_cast<char>(random() % 246 + 11); });
    std::string big;
    while (big.size() < 10'000'000) {
        big += noise;
    }
    std::string const block = std::string(LineReader::kBlock - 1, 'y') + "\n";
    std::string blocks = block;
    blocks.append(block, 1).append(block).append("x").append(block);
    ChildResult result = runChild({kStandingStill}, {"first\n" + big + "\n" + blocks + big, {}, {}});
    EXPECT_TRUE(result.out == "first\n" + big + "\n" + blocks + big);
    EXPECT_EQ(result.err, summary(7, 7, 5));

    std::string const flood = numbered(std::string(300'000, 'k'), 1, 20);
    result = runChild({kStandingStill}, {flood + "last\n", {}, {}});
    EXPECT_TRUE(result.out == burst(std::string(300'000, 'k'), 1) + "last\n[3 delayed 00:00:00] " +
                                  std::string(191, 'k') + "\n");
    EXPECT_EQ(result.err, summary(21, 18, 2));
}

std::vector<std::string> randomLines(std::size_t count, unsigned int seed) {
    constexpr unsigned int shapes = 60;
    std::minstd_rand random(seed);
    std::vector<std::string> lines;
    while (lines.size() < count) {
        auto const shape = random() % shapes % (random() % shapes + 1); // some far more often
        lines.push_back(std::string(shape + 1, 'k') + " " + std::to_string(random() % 1000) + "\n");
    }
    return lines;
}

std::string joined(std::vector<std::string> const& lines) {
    std::string all;
    for (std::string const& line : lines) {
        all += line;
    }
    return all;
}

// What clampcat must print while time stands still: sixteen lines of a shape, then the newest at its end.
class Model {
public:
    explicit Model(std::size_t limit) : m_limit(limit) {}

    void take(std::string const& line) {
        std::string const shape = line.substr(0, line.find(' '));
        auto const found =
            std::find_if(m_sites.begin(), m_sites.end(), [&](Site const& s) { return s.shape == shape; });
        Site site{shape, 0, ""};
        if (found != m_sites.end()) {
            site = *found;
            m_sites.erase(found);
        } else if (m_sites.size() == m_limit) {
            release(m_sites.front());
            m_sites.pop_front();
        }
        ++site.count;
        site.last = line;
        if (site.count <= 16) {
            out += (site.count == 16 ? "[drop...] " : "") + line;
        }
        m_sites.push_back(site);
    }

    void end() {
        for (Site const& site : m_sites) {
            release(site);
        }
    }

    std::string out;

private:
    struct Site {
        std::string shape;
        int count;
        std::string last;
    };

    void release(Site const& site) {
        if (site.count > 16) {
            out += "[" + std::to_string(site.count - 17) + " delayed 00:00:00] " + site.last;
        }
    }

    std::size_t m_limit;
    std::list<Site> m_sites; // last seen last
};

TEST(Clampcat, RandomStreamMatchesModel) {
    for (std::size_t const limit : {1U, 7U, 30U, 1000U}) {
        std::vector<std::string> const lines = randomLines(20'000, 1);
        Model model(limit);
        for (std::string const& line : lines) {
            model.take(line);
        }
        model.end();
        ChildResult const result =
            runChild({kStandingStill, "-s", std::to_string(limit)}, {joined(lines), {}, {}});
        EXPECT_TRUE(result.out == model.out) << limit;
    }
}

// The lines that an output stands for: those shown and those that their prefixes count.
std::size_t linesBehind(std::string const& out) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < out.size(); at = out.find('\n', at) + 1) {
        int delayed = 0;
        if (std::sscanf(out.c_str() + at, "[%d delayed", &delayed) == 1) {
            EXPECT_GE(delayed, 0);
        }
        count += static_cast<std::size_t>(delayed) + 1;
    }
    return count;
}

// Ten thousand times as fast, an hour passes in a third of a second: grants, resets, the flusher and
// evictions all come across the stream, and still every line is shown or counted.
TEST(Clampcat, NothingIsLostWhileTimePasses) {
    constexpr unsigned int kRounds = 60;
    constexpr unsigned int kLines = 500;
    for (char const* limit : {"25", "1000"}) {
        LiveChild child({"/usr/bin/env", "CLOCK_SPEED=10000", kStandingStill, "-s", limit});
        std::string out;
        for (unsigned int round = 1; round <= kRounds; ++round) {
            // The marker's shape is a new one, so that it always comes out, and with it all before it.
            std::string const marker = "marker " + std::string(round, 'm') + "\n";
            child.write(joined(randomLines(kLines - 1, round)) + marker);
            out += child.readTo(marker);
        }
        out += child.finish();
        std::size_t const end = out.find("clampcat: lines in: " + std::to_string(kRounds * kLines) + ",");
        ASSERT_NE(end, std::string::npos) << out;
        EXPECT_EQ(linesBehind(out.substr(0, end)), kRounds * kLines) << limit;
        EXPECT_EQ(child.wait(), 0);
    }
}

TEST(Clampcat, LiveLinesAppearAtOnce) {
    LiveChild child({kClampcat});
    for (std::string const line : {"one\n", "two\n", "three\n"}) {
        child.write(line);
        EXPECT_EQ(child.readTo("\n"), line);
    }
    EXPECT_EQ(child.finish(), summary(3, 3, 3));
    EXPECT_EQ(child.wait(), 0);
}

TEST(Clampcat, FlusherReleasesWhileTheInputIsQuiet) {
    LiveChild child({"/usr/bin/env", "CLOCK_SPEED=5000", kStandingStill});
    child.write(numbered("t", 1, 1000));
    std::string out;
    while (linesBehind(out) < 1000) { // the input is still open
        out += child.readTo("\n");
    }
    EXPECT_EQ(linesBehind(out), 1000U);
}

TEST(Clampcat, SignalsFlushAndEnd) {
    for (int const signal : {SIGHUP, SIGINT, SIGTERM}) {
        LiveChild child({kStandingStill});
        child.write(numbered("t", 1, 20) + "seen\nnot whole");
        EXPECT_EQ(child.readTo("seen\n"), burst("t", 1) + "seen\n");
        child.kill(signal);
        EXPECT_EQ(child.finish(), "not whole\n[3 delayed 00:00:00] t 20\n" + summary(22, 19, 3));
        EXPECT_EQ(child.wait(), -signal);
    }
}

TEST(Clampcat, IgnoredSignalStaysIgnored) {
    LiveChild child({"/bin/sh", "-c", "trap '' INT; exec \"$0\"", kClampcat});
    child.write("a\n");
    child.readTo("a\n");
    child.kill(SIGINT);
    child.write("b\n");
    EXPECT_EQ(child.finish(), "b\n" + summary(2, 2, 2));
}

} // namespace
