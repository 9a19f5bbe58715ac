// Output.h: where lines and the library's messages come out.
#pragma once

#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ThreadAnnotations.h"
#include "vorlan/services/Messages.h"

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

namespace Clampcat {

/// Writes lines to a file descriptor and counts them.
///
/// Two kinds of line come in: those that pass, from the thread that reads, byte for byte; and held ones that
/// the library releases, from that thread or from the flusher. Each starts on a line of its own: where the
/// one before lacks its line feed, one is put in between.
/// Between collect() and flush() lines are gathered; at other times, while the reading thread waits for
/// input, each is written at once.
/// A descriptor that takes no more ends the process at once, whichever thread meets it: with a message and
/// exit code 1, or without a word where the reader of a pipe has gone.
/// Threading: safe from any thread; passed(), goesOn() and endLine() belong to the one that reads. The lock
/// is taken inside that of the clamp system, never the reverse.
class Output {
public:
    explicit Output(int fd) : m_fd(fd) {}
    Output(Output const&) = delete;
    Output& operator=(Output const&) = delete;

    /// Makes this the place for all messages of the library, to the end of the process. Infos are lines;
    /// messages of any other kind go to stderr.
    void receiveMessages();

    /// The format that sends a line, its length and its bytes, through a MsgClamp.
    static constexpr char kLineFormat[] = "%.*s";

    /// A line that passes, with the library's prefix, if any. One without a line feed stays open: released
    /// lines wait until its line feed comes or endLine() says that none will.
    void passed(std::string_view prefix, std::string_view line) VORLAN_EXCLUDES(m_mutex);

    /// More of the last line, never empty. Goes nowhere if no line is open: that one was held.
    void goesOn(std::string_view bytes) VORLAN_EXCLUDES(m_mutex);
    void endLine() VORLAN_EXCLUDES(m_mutex);

    /// A held line with its prefix.
    void released(std::string_view line) VORLAN_EXCLUDES(m_mutex);

    void collect() VORLAN_EXCLUDES(m_mutex);
    void flush() VORLAN_EXCLUDES(m_mutex);

    /// The lines so far, passed and released.
    std::uint64_t lines() const VORLAN_EXCLUDES(m_mutex);

private:
    static bool takeMessage(VorlanPosix::MessageKind kind, char const* fmt, va_list args);
    void addMissingFeedLocked() VORLAN_REQUIRES(m_mutex);
    void closeLineLocked() VORLAN_REQUIRES(m_mutex);
    void writeIfDueLocked() VORLAN_REQUIRES(m_mutex);
    void writeLocked() VORLAN_REQUIRES(m_mutex);

    int const m_fd;
    mutable VorlanPosix::JMutex m_mutex;
    std::string m_buffer VORLAN_GUARDED_BY(m_mutex);
    std::string m_waiting VORLAN_GUARDED_BY(m_mutex); // lines released while a line was open
    std::uint64_t m_lines VORLAN_GUARDED_BY(m_mutex) = 0;
    bool m_collecting VORLAN_GUARDED_BY(m_mutex) = false;
    bool m_open VORLAN_GUARDED_BY(m_mutex) = false;      // more of the last line may come
    bool m_needsFeed VORLAN_GUARDED_BY(m_mutex) = false; // the last byte is no line feed
};

} // namespace Clampcat
