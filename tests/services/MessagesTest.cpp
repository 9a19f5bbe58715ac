#include "vorlan/services/Messages.h"

#include "vorlan/foundation/MessageServices.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <future>
#include <sstream>
#include <unistd.h>

namespace {

std::string s_taken; // by the handler: the kind and the text

VORLAN_PRINTF(2, 0) bool take(VorlanPosix::MessageKind kind, char const* fmt, va_list args) {
    char text[100];
    vsnprintf(text, sizeof text, fmt, args);
    s_taken = std::to_string(static_cast<int>(kind)) + ' ' + text;
    return kind != VorlanPosix::MessageKind::Debug;
}

// A pipe in the place of stderr, for a scope.
class Redirected {
public:
    explicit Redirected(int writerFlags) {
        EXPECT_EQ(pipe(m_ends), 0);
        fcntl(m_ends[1], F_SETFL, writerFlags);
        dup2(m_ends[1], STDERR_FILENO);
        close(m_ends[1]);
    }
    ~Redirected() {
        end();
        close(m_saved);
        close(m_ends[0]);
    }
    void end() const { dup2(m_saved, STDERR_FILENO); } // readers come to the end of the pipe

    std::string read() const { // once; empty at the end
        std::string text(65536, '\0');
        auto const size = ::read(m_ends[0], text.data(), text.size());
        return text.substr(0, size > 0 ? static_cast<std::size_t>(size) : 0);
    }

private:
    int m_ends[2] = {-1, -1}; // reader, writer
    int m_saved = dup(STDERR_FILENO);
};

std::string afterTime(std::string const& line) {
    return line.substr(sizeof "2026-03-01 12:00:00.250");
}

// Catches a second write for the head or the line feed, and the word or the flag of another kind.
TEST(Messages, EachIsOneWriteOfItsKindOrGoesToTheHandler) {
    struct {
        bool (*sink)(char const*, ...);
        std::string word;
        std::uint32_t idFlag;
    } const kinds[] = {
        {errorMsg, "error ", 1}, {warningMsg, "warning ", 1}, {infoMsg, "info ", 2}, {debugMsg, "debug ", 1}};
    Redirected const packets(O_DIRECT); // each read gives one write
    for (std::uint32_t const flags : {1U, 2U, 0xFFFFFFFFU, 0U}) {
        EXPECT_EQ(setLoggingFlags(flags), flags & 3);
        for (auto const& kind : kinds) {
            std::string const id = (flags & kind.idFlag) != 0 ? '[' + std::to_string(gettid()) + "] " : "";
            for (char const* fmt : {"%d of %s\n", "%d of %s"}) {
                EXPECT_TRUE(kind.sink(fmt, 5, "it"));
                EXPECT_EQ(afterTime(packets.read()), kind.word + id + "5 of it\n");
            }
            EXPECT_EQ(VorlanPosix::setMessageHandler(take), nullptr);
            EXPECT_EQ(kind.sink("%d of %s\n", 5, "it"), kind.sink != debugMsg);
            EXPECT_EQ(s_taken, std::to_string(&kind - kinds) + " 5 of it\n");
            EXPECT_EQ(VorlanPosix::setMessageHandler(nullptr), take);
        }
    }
}

TEST(Messages, ShowLocalTimeAndErrnoAndGiveFalseWhereNothingIsWritten) {
    setenv("TZ", "XYZ-5:30", 1); // NOLINT(concurrency-mt-unsafe): no other thread runs
    Redirected const packets(O_DIRECT);
    std::string const text(2000, 'x');
    char const* fmt = "\n%s: %m";
    errno = ENOENT;
    EXPECT_TRUE(errorMsg(fmt, text.c_str()));
    EXPECT_EQ(errno, ENOENT);
    std::string const line = packets.read();
    EXPECT_EQ(afterTime(line), "error \n" + text + ": No such file or directory\n");
    std::tm shown{};
    strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &shown);
    EXPECT_NEAR(static_cast<double>(std::mktime(&shown)), static_cast<double>(std::time(nullptr)), 5);
    close(STDERR_FILENO);
    EXPECT_FALSE(infoMsg("no stderr"));
}

// Line n of a sender: their numbers, and a letter as often as tries the border of the short lines or many
// pages.
std::string lineOf(int sender, int n) {
    auto const length = static_cast<std::size_t>(n < 100 ? 950 + n : n * 300);
    return "info " + std::to_string(sender) + ' ' + std::to_string(n) +
           std::string(length, static_cast<char>('a' + n % 26));
}

// A signal or a full pipe cuts a write short or refuses it; the rest must follow before another's line.
TEST(Messages, LinesOfThreadsNeverMix) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    for (int const writerFlags : {0, O_NONBLOCK}) {
        Redirected const pipe(writerFlags);
        auto reader = std::async(std::launch::async, [&pipe, interrupted = pthread_self()] {
            std::string all;
            for (std::string part; !(part = pipe.read()).empty(); all += part) {
                for (int i = 0; i < 20; ++i) { // more than one: only a write that has begun comes back short
                    pthread_kill(interrupted, SIGUSR1);
                }
            }
            return all;
        });
        auto const send = [](int sender) {
            for (int n = 0; n < 150; ++n) {
                EXPECT_TRUE(infoMsg("%s", lineOf(sender, n).c_str() + sizeof "info"));
            }
        };
        auto other = std::async(std::launch::async, send, 1);
        send(0);
        other.wait();
        pipe.end();
        std::istringstream all(reader.get());
        int next[2] = {0, 0};
        for (std::string line; std::getline(all, line);) {
            int const sender = afterTime(line).at(5) == '0' ? 0 : 1;
            ASSERT_EQ(afterTime(line), lineOf(sender, next[sender]++));
        }
        EXPECT_EQ(next[0] + next[1], 300);
    }
}

} // namespace
