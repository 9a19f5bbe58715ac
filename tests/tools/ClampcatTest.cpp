// clampcat, run as a program whose clock stands still.

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <list>
#include <random>
#include <string>

namespace {

// "name first" to "name last", a line each.
std::string numbered(std::string const& name, int first, int last) {
    std::string lines;
    for (int i = first; i <= last; ++i) {
        lines += name + " " + std::to_string(i) + "\n";
    }
    return lines;
}

// What is seen of 16 lines or more of a fresh shape: the first 16.
std::string burst(std::string const& name) {
    return numbered(name, 1, 15) + "[drop...] " + numbered(name, 16, 16);
}

std::string summary(std::size_t in, std::size_t shown, std::size_t shapes) {
    return "clampcat: lines in: " + std::to_string(in) + ", lines shown: " + std::to_string(shown) +
           ", shapes: " + std::to_string(shapes) + "\n";
}

// Beside clampcat there are two files, one that is larger than a pipe, and a pipe into clampcat and out of
// it.
std::string const kSetup = R"sh(
    cd "$(mktemp -d)" || exit 9; trap 'rm -r "$PWD"' EXIT
    ln -s "$0" clampcat; PATH=$PWD:$PATH
    printf 'a\nno feed' > a; echo b > b; printf '%100000s' x > large; mkfifo in out
    open() { exec 3> in 4< out; }
    show() { until [ "$line" = "$1" ]; do read -r line <&4 || break; echo "$line"; done; }
)sh";

// Ends clampcat with a signal after it has shown its first lines, and gives both its outputs and its end. The
// shell itself may have a word to say of that too.
std::string signalled(std::string const& signal) {
    return "env --default-signal clampcat < in > out 2>&1 & open; exec 2> a; cat >&3; show seen; kill -" +
           signal + " $!; cat <&4; wait $!; echo $?";
}

// Line feeds that are missing, mistakes on the command line, descriptors that a shell hands over badly, and
// what is seen while the input is still open.
TEST(Clampcat, InTheShell) {
    std::string const usage = "Usage: clampcat [OPTION]... [FILE]...\nTry 'clampcat --help' for more.\n";
    std::string const range = " is not a number from 1 to 1000000000\n";
    std::string const t20 = numbered("t", 1, 20);
    std::string const held = "[3 delayed 00:00:00] t 20\n";
    std::string const begun = t20 + "seen\nnot whole";
    std::string const seen = burst("t") + "seen\nnot whole\n" + held + summary(22, 19, 3);
    struct {
        std::string command;
        std::string in;
        std::string out;
        std::string err;
        int exitCode = 0;
    } const rows[] = {
        {"clampcat", "\n\na\nb", "\n\na\nb", summary(4, 4, 3)},
        {"clampcat", t20 + "end", burst("t") + "end\n" + held, summary(21, 18, 2)},
        {"head -c -1 | clampcat", t20, burst("t") + held, summary(20, 17, 1)},
        {"clampcat a - b", "in\n", "a\nno feed\nin\nb\n", summary(4, 4, 4)},
        {"clampcat x b .", "", "b\n",
         "clampcat: x: No such file or directory\nclampcat: .: Is a directory\n" + summary(1, 1, 1), 1},
        {"clampcat --loud", "x\n", "", "clampcat: unrecognized option '--loud'\n" + usage, 2},
        {"clampcat -s 0", "", "", "clampcat: --shapes: '0'" + range + usage, 2},
        {"clampcat --shapes=9x", "", "", "clampcat: --shapes: '9x'" + range + usage, 2},
        {"clampcat --help | head -n 1", "", "Usage: clampcat [OPTION]... [FILE]...\n", ""},
        {"clampcat --version --nonsense | grep -cx 'clampcat [0-9.]*'", "", "1\n", ""},
        {"clampcat <&-", "", "", "clampcat: -: Bad file descriptor\n" + summary(0, 0, 0), 1},
        {"clampcat a >&-", "", "", "clampcat: standard output: Bad file descriptor\n", 1},
        {"clampcat a > /dev/full", "", "", "clampcat: standard output: No space left on device\n", 1},
        {"clampcat b >> b", "", "", "clampcat: b: input file is output file\n" + summary(0, 0, 0), 1},
        {"{ trap '' PIPE; clampcat large; echo $? >&2; } | true", "", "", "1\n"},
        {signalled("HUP"), begun, seen + "129\n", ""},
        {signalled("INT"), begun, seen + "130\n", ""},
        {signalled("TERM"), begun, seen + "143\n", ""},
        {"clampcat < in > out & open; cat >&3; show a; kill -INT $!; cat b >&3; show b; exec 3>&-; wait $!",
         "a\n", "a\nb\n", summary(2, 2, 2)}, // INT is ignored in the background
        {"CLOCK_RUNS= clampcat < in > out 2> a & open; cat >&3; sed '/t 20$/q' <&4 | grep -o 't 20$'", t20,
         "t 20\n", ""},
        {"VRSSRLOG= clampcat b 2>&1 | grep -oE '^(b|Reg.*Internal|.*in: 1|.*stop threads.*Internal)'", "",
         "Registering subsystem: MsgClampInternal\nb\nclampcat: lines in: 1\n"
         "|       stop threads -> MsgClampInternal\n",
         ""},
    };
    for (auto const& row : rows) {
        ChildResult const result =
            runChild({"timeout", "60", "sh", "-c", kSetup + row.command, CLAMPCAT_OWN_CLOCK},
                     {row.in, {}, {"VRSSRLOG"}});
        EXPECT_EQ(result.out, row.out) << row.command;
        EXPECT_EQ(result.err, row.err) << row.command;
        EXPECT_EQ(result.exitCode, row.exitCode) << row.command;
    }
}

// A line far longer than the reader's block passes whole, or is held and cut like any other; so is one that
// ends with the block.
TEST(Clampcat, LongLines) {
    std::minstd_rand random(1);
    std::string big;
    big.resize(10'000'000);
    std::generate(big.begin(), big.end(), [&random] { return static_cast<char>(random() % 246 + 11); });
    std::string const block = std::string(256 * 1024 - 1, 'y') + "\n";
    std::string const passing = big + "\n" + block + block + "x" + block;
    std::string const name(300'000, 'k');
    ChildResult const result =
        runChild({CLAMPCAT_OWN_CLOCK}, {passing + numbered(name, 1, 20) + big, {}, {}});
    EXPECT_TRUE(result.out ==
                passing + burst(name) + big + "\n[3 delayed 00:00:00] " + name.substr(0, 191) + "\n");
    EXPECT_EQ(result.err, summary(25, 22, 4));
}

// A stream of random lines and what clampcat must print of it while time stands still: sixteen lines of a
// shape, then the newest when the shape gives way to another or at the end.
struct Model {
    struct Site {
        std::size_t shape;
        int count;
        std::string last;
    };

    explicit Model(std::size_t maxShapes) : limit(maxShapes) {
        // Whatever bytes a line may have; some shapes come far more often than others.
        std::string const tails[] = {"", " %s%n 100%", std::string(" \0nul", 5), "\xff\xc3",
                                     std::string(200, '.')};
        std::minstd_rand random(1);
        for (int i = 0; i < kLines; ++i) {
            std::size_t const shape = random() % 60 % (random() % 60 + 1);
            std::string const number = std::to_string(random() % 1000);
            take(shape, std::string(shape, 'k') + " " + number + tails[shape % std::size(tails)] + "\n");
        }
        while (!sites.empty()) {
            releaseOldest();
        }
    }

    void take(std::size_t shape, std::string const& line) {
        in += line;
        auto found =
            std::find_if(sites.begin(), sites.end(), [&](Site& site) { return site.shape == shape; });
        if (found == sites.end()) {
            ++shapes;
            if (sites.size() == limit) {
                releaseOldest();
            }
            found = sites.insert(sites.end(), {shape, 0, ""});
        }
        sites.splice(sites.end(), sites, found);
        found->last = line;
        if (++found->count <= 16) {
            ++shown;
            out += (found->count == 16 ? "[drop...] " : "") + line;
        }
    }

    // A held line is shown up to its 191st byte or its first NUL.
    void releaseOldest() {
        Site const& site = sites.front();
        if (site.count > 16) {
            ++shown;
            std::string text = site.last.substr(0, 191);
            text.resize(std::min(text.size(), text.find('\0')));
            out += "[" + std::to_string(site.count - 17) + " delayed 00:00:00] " + text;
            out += text.back() == '\n' ? "" : "\n";
        }
        sites.pop_front();
    }

    static constexpr int kLines = 20'000;
    std::size_t const limit;
    std::list<Site> sites; // last seen last
    std::string in;
    std::string out;
    std::size_t shown = 0;
    std::size_t shapes = 0;
};

// The lines that an output stands for: those shown and those that their prefixes count.
int linesBehind(std::string const& out) {
    int count = 0;
    for (std::size_t at = 0; at < out.size(); at = out.find('\n', at) + 1) {
        int delayed = 0;
        std::sscanf(out.c_str() + at, "[%d delayed", &delayed);
        count += delayed + 1;
    }
    return count;
}

// While time stands still every byte is known. While hours pass, grants, resets, the flusher and evictions
// all come across the stream, and still every line is shown or counted.
TEST(Clampcat, RandomStream) {
    for (std::size_t const limit : {1U, 7U, 30U, 1000U}) {
        Model const model(limit);
        std::vector<std::string> const words{CLAMPCAT_OWN_CLOCK, "-s", std::to_string(limit)};
        ChildResult const still = runChild(words, {model.in, {}, {}});
        EXPECT_TRUE(still.out == model.out) << limit;
        EXPECT_EQ(still.err, summary(Model::kLines, model.shown, model.shapes)) << limit;
        ChildResult const moving = runChild(words, {model.in, {{"CLOCK_RUNS", ""}}, {}});
        EXPECT_EQ(linesBehind(moving.out), Model::kLines) << limit;
    }
}

} // namespace
