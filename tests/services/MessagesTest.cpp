#include "vorlan/services/Messages.h"

#include "vorlan/foundation/MessageServices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <fcntl.h>
#include <map>
#include <new>
#include <optional>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using testing::EndsWith;
using testing::StartsWith;
using VorlanPosix::MessageKind;

namespace {

std::atomic<bool> s_noMemory{false};
std::vector<std::string> s_syslog; // "priority text"

} // namespace

// The sinks ask for memory by this operator alone, and the C library's syslog is not to be troubled.

void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
    return s_noMemory ? nullptr : std::malloc(size);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
void* operator new[](std::size_t size) {
    return std::malloc(size);
}

extern "C" void syslog(int priority, char const* fmt, ...) {
    std::array<char, 100000> text{};
    va_list args;
    va_start(args, fmt);
    vsnprintf(text.data(), text.size(), fmt, args);
    va_end(args);
    s_syslog.push_back(std::to_string(priority) + ' ' + text.data());
}

namespace {

// Puts another file in the place of stderr for a scope.
class StderrTo {
public:
    explicit StderrTo(int fd) : m_saved(dup(STDERR_FILENO)) { dup2(fd, STDERR_FILENO); }
    ~StderrTo() {
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
    }
    StderrTo(StderrTo const&) = delete;
    StderrTo& operator=(StderrTo const&) = delete;

private:
    int m_saved;
};

// A stderr that keeps each write apart.
class Packets {
public:
    Packets() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, m_ends.data()), 0);
        m_stderr.emplace(m_ends[1]);
    }
    ~Packets() {
        m_stderr.reset();
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Packets(Packets const&) = delete;
    Packets& operator=(Packets const&) = delete;

    std::vector<std::string> take() {
        std::vector<std::string> all;
        std::vector<char> buffer(200'000);
        for (ssize_t n = 0; (n = read(m_ends[0], buffer.data(), buffer.size())) > 0;) {
            all.emplace_back(buffer.data(), static_cast<std::size_t>(n));
        }
        return all;
    }

    // The one packet that there must be.
    std::string one() {
        std::vector<std::string> const all = take();
        EXPECT_EQ(all.size(), 1u);
        return all.empty() ? "" : all[0];
    }

private:
    std::array<int, 2> m_ends{};
    std::optional<StderrTo> m_stderr;
};

// A pipe of one page as stderr, so that long lines need many turns of writer and reader.
struct SmallPipe {
    explicit SmallPipe(bool blocking) {
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        fcntl(ends[1], F_SETPIPE_SZ, 4096);
        if (!blocking) {
            fcntl(ends[1], F_SETFL, O_NONBLOCK);
        }
    }
    ~SmallPipe() {
        close(ends[0]);
        closeWriter();
    }
    SmallPipe(SmallPipe const&) = delete;
    SmallPipe& operator=(SmallPipe const&) = delete;

    void closeWriter() {
        if (ends[1] >= 0) {
            close(ends[1]);
            ends[1] = -1;
        }
    }

    // Everything up to the end; `afterEach` runs after each read.
    template <class F>
    std::string readAll(F afterEach) const {
        std::string all;
        std::array<char, 4096> buffer{};
        ssize_t n = 0;
        while ((n = read(ends[0], buffer.data(), buffer.size())) > 0 || (n < 0 && errno == EINTR)) {
            all.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
            afterEach();
        }
        return all;
    }

    std::array<int, 2> ends{};
};

constexpr std::size_t kHead = sizeof "2026-03-01 12:00:00.250 " - 1;

std::string afterTime(std::string const& line) {
    std::string shape = line.substr(0, kHead);
    for (char& c : shape) {
        c = c >= '0' && c <= '9' ? '0' : c;
    }
    EXPECT_EQ(shape, "0000-00-00 00:00:00.000 ");
    return line.substr(shape.size());
}

std::string threadTag() {
    return '[' + std::to_string(gettid()) + "] ";
}

// A format that the compiler's own check does not see.
char const* unchecked(char const* fmt) {
    return fmt;
}

class Messages : public testing::Test {
protected:
    // A zone that differs from GMT, and that has no hour twice.
    static void SetUpTestSuite() {
        setenv("TZ", "XYZ-5:30", 1); // NOLINT(concurrency-mt-unsafe): no other thread runs yet
    }

    void TearDown() override {
        setLoggingFlags(0);
        VorlanPosix::setMessageHandler(nullptr);
    }
};

// Catches an error at the border of the short lines, and a second write for the head or the line feed.
TEST_F(Messages, EachIsOneLineInOneWriteWhateverItsLength) {
    Packets packets;
    std::vector<std::size_t> lengths = {0, 1, 79, 4095, 4096, 100'000};
    for (std::size_t length = 960; length <= 1030; ++length) {
        lengths.push_back(length);
    }
    for (std::size_t const length : lengths) {
        for (char const* end : {"", "\n"}) {
            std::string const text(length, 'x');
            EXPECT_TRUE(infoMsg("%s%s", text.c_str(), end));
            ASSERT_EQ(afterTime(packets.one()), "info " + text + "\n") << length << end;
        }
    }
    EXPECT_TRUE(infoMsg("two\nlines\n\n"));
    EXPECT_EQ(afterTime(packets.one()), "info two\nlines\n\n");
    EXPECT_TRUE(infoMsg("a%cb", 0));
    EXPECT_EQ(afterTime(packets.one()), std::string("info a\0b\n", 9));
}

VORLAN_PRINTF(2, 3) bool sendVar(bool (*sink)(char const*, va_list), char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    bool const sent = sink(fmt, args);
    va_end(args);
    return sent;
}

TEST_F(Messages, KindsAndFlagsShowInTheLine) {
    struct {
        bool (*sink)(char const*, ...);
        bool (*var)(char const*, va_list);
        std::string word;
        std::uint32_t idFlag;
    } const kinds[] = {
        {errorMsg, errorMsgVar, "error ", 1},
        {warningMsg, warningMsgVar, "warning ", 1},
        {infoMsg, infoMsgVar, "info ", 2},
        {debugMsg, debugMsgVar, "debug ", 1},
    };
    Packets packets;
    for (std::uint32_t const flags : {0u, 1u, 2u, 3u, 0xFFFFFFFFu, 4u}) {
        EXPECT_EQ(setLoggingFlags(flags), flags & 3);
        for (auto const& kind : kinds) {
            std::string const line =
                kind.word + ((flags & kind.idFlag) != 0 ? threadTag() : "") + "[drop...] 5 of it\n";
            EXPECT_TRUE(kind.sink("[drop...] %d of %s\n", 5, "it"));
            EXPECT_EQ(afterTime(packets.one()), line) << flags;
            EXPECT_TRUE(sendVar(kind.var, "[drop...] %d of %s", 5, "it"));
            EXPECT_EQ(afterTime(packets.one()), line) << flags;
        }
    }
}

TEST_F(Messages, TheTimeIsNowInLocalTime) {
    Packets packets;
    timespec before{};
    clock_gettime(CLOCK_REALTIME, &before);
    infoMsg("now");
    timespec after{};
    clock_gettime(CLOCK_REALTIME, &after);

    std::string const line = packets.one();
    std::tm broken{};
    broken.tm_isdst = -1;
    char const* const rest = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &broken);
    ASSERT_NE(rest, nullptr) << line;
    long long const shownMs = std::mktime(&broken) * 1000LL + std::stoi(rest + 1);
    EXPECT_LE(before.tv_sec * 1000LL + before.tv_nsec / 1'000'000, shownMs) << line;
    EXPECT_GE(after.tv_sec * 1000LL + after.tv_nsec / 1'000'000, shownMs) << line;
}

TEST_F(Messages, ErrnoIsShownAndLeftAlone) {
    std::string const longText(3000, 'x');
    Packets packets;
    for (std::string const& text : {std::string("short"), longText}) {
        errno = ENOENT;
        EXPECT_TRUE(errorMsg(unchecked("%s: %m"), text.c_str()));
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(afterTime(packets.one()), "error " + text + ": No such file or directory\n");
    }
}

TEST_F(Messages, FormatThatIsRefusedIsShownRaw) {
    wchar_t const noCharacter[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    std::string const padding(2000, 'x');
    struct {
        std::string format;
        std::string shown;
    } const rows[] = {
        {"bad: %ls\n", "bad: %ls\n"},
        {"bad: %ls, without an end", "bad: %ls, without an end\n"},
        {padding + "%ls", padding + "%ls\n"},
    };
    Packets packets;
    for (auto const& row : rows) {
        EXPECT_TRUE(debugMsg(unchecked(row.format.c_str()), noCharacter));
        EXPECT_EQ(afterTime(packets.one()),
                  "debug (a message that can't be printed; its format follows) " + row.shown);
    }
    EXPECT_TRUE(debugMsg(unchecked(nullptr), 0));
    EXPECT_EQ(afterTime(packets.one()), "debug (a message without a format)\n");
}

TEST_F(Messages, WithoutMemoryALongOneIsShownCut) {
    Packets packets;
    std::string const text(5000, 'x');
    s_noMemory = true;
    EXPECT_TRUE(errorMsg("%s\n", text.c_str()));
    s_noMemory = false;
    std::string const line = packets.one();
    EXPECT_THAT(afterTime(line), StartsWith("error xxxxxxxx"));
    EXPECT_THAT(line, EndsWith("xx ... (cut: no memory)\n"));
    EXPECT_EQ(line.size(), 1024u);
}

// Line n of sender s: "s n " and a letter many times, up to five pages.
std::string senderText(int sender, int number, std::size_t longest) {
    return std::to_string(sender) + ' ' + std::to_string(number) + ' ' +
           std::string((static_cast<std::size_t>(number) * 997) % longest,
                       static_cast<char>('a' + (sender + number) % 26));
}

void expectAllLinesWhole(std::string const& all, int senders, int each, std::size_t longest) {
    std::map<std::string, int> seen;
    std::istringstream lines(all);
    for (std::string line; std::getline(lines, line);) {
        ++seen[afterTime(line)];
    }
    std::map<std::string, int> sent;
    for (int s = 0; s < senders; ++s) {
        for (int n = 0; n < each; ++n) {
            sent["info " + senderText(s, n, longest)] = 1;
        }
    }
    EXPECT_EQ(seen.size(), sent.size());
    EXPECT_TRUE(seen == sent) << "lost or mixed lines";
}

// Long lines come back short from a full pipe, or with EAGAIN; the rest must follow before another's line.
TEST_F(Messages, LinesOfThreadsNeverMix) {
    constexpr int kSenders = 4;
    constexpr int kEach = 60;
    constexpr std::size_t kLongest = 20'000;
    for (bool const blocking : {true, false}) {
        SCOPED_TRACE(blocking);
        SmallPipe pipe(blocking);
        std::string all;
        std::thread reader([&] { all = pipe.readAll([] {}); });
        {
            StderrTo const redirected(pipe.ends[1]);
            std::vector<std::thread> senders;
            senders.reserve(kSenders);
            for (int s = 0; s < kSenders; ++s) {
                senders.emplace_back([s] {
                    for (int n = 0; n < kEach; ++n) {
                        EXPECT_TRUE(infoMsg("%s", senderText(s, n, kLongest).c_str()));
                    }
                });
            }
            for (std::thread& sender : senders) {
                sender.join();
            }
        }
        pipe.closeWriter();
        reader.join();
        expectAllLinesWhole(all, kSenders, kEach, kLongest);
    }
}

TEST_F(Messages, LinesOfProcessesNeverMix) {
    constexpr int kSenders = 3;
    constexpr int kEach = 200;
    constexpr std::size_t kLongest = 4000; // what a pipe takes whole, or not at all
    SmallPipe pipe(true);
    std::vector<pid_t> children;
    for (int s = 0; s < kSenders; ++s) {
        children.push_back(fork());
        if (children.back() == 0) {
            StderrTo const redirected(pipe.ends[1]);
            bool good = true;
            for (int n = 0; n < kEach; ++n) {
                good = infoMsg("%s", senderText(s, n, kLongest).c_str()) && good;
            }
            _exit(good ? 0 : 1);
        }
    }
    pipe.closeWriter();
    std::string const all = pipe.readAll([] {});
    for (pid_t const child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    expectAllLinesWhole(all, kSenders, kEach, kLongest);
}

void sendFromHandler(int) {
    infoMsg("from a signal handler");
}

// A signal between any two pages of a line: the write comes back short or with EINTR, and a handler that
// sends a message itself must neither wait for its own thread nor lose a byte of either.
TEST_F(Messages, InterruptedWriteOfOneMegabyteIsFinished) {
    for (auto* const handler : {+[](int) {}, &sendFromHandler}) {
        struct sigaction action {};
        action.sa_handler = handler;
        struct sigaction found {};
        sigaction(SIGUSR1, &action, &found);
        SmallPipe pipe(true);
        std::string const text(1'000'000, 'x');
        std::atomic<bool> sent{false};
        std::atomic<bool> done{false};
        StderrTo const redirected(pipe.ends[1]);
        std::thread sender([&] {
            sent = errorMsg("%s", text.c_str());
            done = true;
            close(STDERR_FILENO);
            pipe.closeWriter();
            while (done) {
                std::this_thread::yield(); // stays alive for the signals
            }
        });
        int reads = 0;
        std::string const all = pipe.readAll([&] {
            if (++reads % 16 == 0 && !done) {
                pthread_kill(sender.native_handle(), SIGUSR1);
            }
        });
        done = false;
        sender.join();
        sigaction(SIGUSR1, &found, nullptr);
        EXPECT_TRUE(sent);
        EXPECT_EQ(std::count(all.begin(), all.end(), 'x'), 1'000'000);
        EXPECT_EQ(all.back(), '\n');
    }
}

// The child has a copy of the moment in which another thread was writing, and not that thread.
TEST_F(Messages, ForkedChildDoesNotWaitForAWriterOfItsParent) {
    SmallPipe pipe(true);
    Packets packets;
    std::string const text(100'000, 'x');
    std::optional<StderrTo> redirected(pipe.ends[1]);
    std::thread sender([&] { infoMsg("%s", text.c_str()); });
    pollfd written{pipe.ends[0], POLLIN, 0};
    ASSERT_EQ(poll(&written, 1, -1), 1); // now it is in the middle of its line
    pid_t const child = fork();
    if (child == 0) {
        alarm(20);
        SmallPipe other(true);
        StderrTo const toOther(other.ends[1]);
        _exit(infoMsg("from the child") ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    redirected.reset();
    std::thread reader([&] { pipe.readAll([] {}); });
    sender.join();
    pipe.closeWriter();
    reader.join();
}

TEST_F(Messages, WhatCannotBeWrittenGivesFalse) {
    std::signal(SIGPIPE, SIG_IGN);
    {
        SmallPipe pipe(true);
        close(std::exchange(pipe.ends[0], -1));
        StderrTo const redirected(pipe.ends[1]);
        errno = ENOENT;
        EXPECT_FALSE(errorMsg("nobody reads"));
        EXPECT_EQ(errno, ENOENT);
    }
    {
        int const full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        StderrTo const redirected(full);
        EXPECT_FALSE(infoMsg("no space"));
        close(STDERR_FILENO);
        EXPECT_FALSE(warningMsg("no stderr"));
        close(full);
    }
}

std::vector<std::string> s_handled;
bool s_result = true;

VORLAN_PRINTF(2, 0) bool recordingHandler(MessageKind kind, char const* fmt, va_list args) {
    std::array<char, 200> text{};
    vsnprintf(text.data(), text.size(), fmt, args);
    s_handled.push_back(std::to_string(static_cast<int>(kind)) + ' ' + text.data());
    errno = EIO;
    return s_result;
}

TEST_F(Messages, HandlerTakesAllUntilNullBringsBackStderr) {
    Packets packets;
    s_handled.clear();
    EXPECT_EQ(VorlanPosix::setMessageHandler(recordingHandler), nullptr);
    for (bool const result : {true, false}) {
        s_result = result;
        errno = ENOENT;
        EXPECT_EQ(errorMsg(unchecked("%s: %m\n"), "e"), result);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(sendVar(warningMsgVar, "w"), result);
        EXPECT_EQ(infoMsg("i"), result);
        EXPECT_EQ(debugMsg("d"), result);
        EXPECT_THAT(s_handled, testing::ElementsAre("0 e: No such file or directory\n", "1 w", "2 i", "3 d"));
        s_handled.clear();
    }
    EXPECT_EQ(packets.take().size(), 0u);
    EXPECT_EQ(VorlanPosix::setMessageHandler(nullptr), recordingHandler);
    EXPECT_TRUE(infoMsg("back"));
    EXPECT_EQ(afterTime(packets.one()), "info back\n");
}

TEST_F(Messages, SyslogGetsItsPriorityAndTheText) {
    VorlanPosix::setMessageHandler(VorlanPosix::syslogHandler);
    s_syslog.clear();
    std::string const longText(5000, 'x');
    errno = ENOENT;
    errorMsg(unchecked("100%% %s %m\n"), "of");
    setLoggingFlags(2);
    warningMsg("w");
    infoMsg("%s", longText.c_str());
    debugMsg("d");
    auto const row = [](int priority, std::string const& text) {
        return std::to_string(priority) + ' ' + text;
    };
    EXPECT_THAT(s_syslog, testing::ElementsAre(row(LOG_ERR, "100% of No such file or directory\n"),
                                               row(LOG_WARNING, "w"), row(LOG_INFO, threadTag() + longText),
                                               row(LOG_DEBUG, "d")));
}

} // namespace
