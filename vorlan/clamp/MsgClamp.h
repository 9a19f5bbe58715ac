// MsgClamp.h: lets a burst of messages from one place through, then thins it out and says so in the log.
#pragma once

#include "vorlan/foundation/Compiler.h"
#include "vorlan/foundation/DebugServices.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ThreadAnnotations.h"

#include <cstdarg>
#include <cstdint>

class MsgClampInternal;

/// The debug variable of the clamp system, "msgClampDbg". While bit 3 ("unclamp all") is set every message of
/// the process passes; the other bits act when the variable is changed (MsgClampInternal::debugCb).
extern VORLAN_API DebuggerOn msgClampDbg;

/// Names the one lock of the clamp system for the compiler's analysis; MsgClampInternal::getLock() gives the
/// real one. It is never defined.
extern VorlanPosix::JMutex msgClampLock;

/// The kinds of message, by the numbers that every table of the clamp system is indexed with.
class MsgClampEnum {
public:
    /// The kind of one message.
    enum MsgType : std::uint32_t {
        None = 0, ///< nothing is held
        Error = 1,
        Debug = 2, ///< also serves any number that is not listed here
        Info = 3,
        Warning = 4,
    };
};

/// A message limiter for one place in the code that can repeat itself, or for several that share it.
///
///     static MsgClamp clamp;
///     clamp.warning("disk %s is %d%% full\n", name, percent);
///
/// A fresh site lets 16 messages pass. The 16th carries "[drop...] ": from here on messages are refused, and
/// only the newest of them is kept. The site opens again when the burst, silence not counted as its end, has
/// lasted 1 s (8 messages), 1 min (4), 1 h (2) and each further hour (2), and starts afresh after more than
/// 2 min without a message. When it opens, or when a thread in the background finds it quiet, the kept
/// message comes out behind "[N delayed hh:mm:ss] ": N other messages were refused, over that time.
///
/// The message methods decide, format, and hold or send in one call; all are safe from any thread. Each gives
/// true for a message that was held, and otherwise what its sink gave. A held text is cut at 191 characters,
/// a sent one is not. Code that sends its messages itself asks through MsgClampC.h instead.
///
/// Sinks run under the lock that all sites share: a sink must not use a MsgClamp, and a slow sink holds up
/// every site of the process.
///
/// A site must outlive every call on it; what it still holds at its end is lost. Sites at file scope work
/// whatever the order of static construction and destruction.
/// Cost: an open site takes one clock read and two short lock sections a message and allocates nothing; a
/// refused message takes one vsnprintf more.
class VORLAN_API MsgClamp : public MsgClampEnum {
public:
    MsgClamp();
    ~MsgClamp();
    MsgClamp(MsgClamp const&) = delete;
    MsgClamp& operator=(MsgClamp const&) = delete;

    /// One message in printf's way: decides, formats, and holds or sends it. True for a message that was
    /// held, else what its sink gave.
    bool error(char const* fmt, ...) VORLAN_PRINTF(2, 3) VORLAN_EXCLUDES(msgClampLock);
    bool warning(char const* fmt, ...) VORLAN_PRINTF(2, 3) VORLAN_EXCLUDES(msgClampLock);
    bool info(char const* fmt, ...) VORLAN_PRINTF(2, 3) VORLAN_EXCLUDES(msgClampLock);
    bool debug(char const* fmt, ...) VORLAN_PRINTF(2, 3) VORLAN_EXCLUDES(msgClampLock);

    /// The same as the four above, under the names that code with message blocks uses.
    bool errorBlock(char const* fmt, ...) VORLAN_PRINTF(2, 3) VORLAN_EXCLUDES(msgClampLock);
    bool warningBlock(char const* fmt, ...) VORLAN_PRINTF(2, 3) VORLAN_EXCLUDES(msgClampLock);
    bool infoBlock(char const* fmt, ...) VORLAN_PRINTF(2, 3) VORLAN_EXCLUDES(msgClampLock);
    bool debugBlock(char const* fmt, ...) VORLAN_PRINTF(2, 3) VORLAN_EXCLUDES(msgClampLock);

    /// The argument list is used up.
    bool errorVar(char const* fmt, va_list args) VORLAN_PRINTF(2, 0) VORLAN_EXCLUDES(msgClampLock);
    bool infoVar(char const* fmt, va_list args) VORLAN_PRINTF(2, 0) VORLAN_EXCLUDES(msgClampLock);
    bool debugVar(char const* fmt, va_list args) VORLAN_PRINTF(2, 0) VORLAN_EXCLUDES(msgClampLock);

    /// With `direct` straight to the debug sink, past the clamp and without touching it; else like debug().
    bool debugIf(bool direct, char const* fmt, ...) VORLAN_PRINTF(3, 4) VORLAN_EXCLUDES(msgClampLock);

    /// Releases what the site holds and counts, if anything; the next message then finds a fresh site. A site
    /// that refused nothing is left as it is, its budget too.
    void flush() const VORLAN_EXCLUDES(msgClampLock);

    /// flush() for every site of the process.
    static void flushAll() VORLAN_EXCLUDES(msgClampLock);

    /// Decides on one message: true means refuse. The step that the message methods begin with, for code that
    /// sends by itself.
    bool clamped() const VORLAN_EXCLUDES(msgClampLock);

    // What the manager and the C entry points work with.

    /// Formats a refused message into the site's block, in place of the one before. Always true.
    bool hold(MsgType type, char const* fmt, va_list args) VORLAN_PRINTF(3, 0) VORLAN_EXCLUDES(msgClampLock);

    /// Sends a message with the waiting prefix in front. Gives what the sink gave.
    bool sendLocked(MsgType type, char const* fmt, va_list args) VORLAN_PRINTF(3, 0)
        VORLAN_REQUIRES(msgClampLock);

    /// True if sendLocked() would only hand on: no prefix waits and nothing may have to be released before.
    bool plainLocked() const VORLAN_REQUIRES(msgClampLock) {
        return m_dropCount == 0 && m_dropPrefix == nullptr;
    }

    /// Releases the held message, or leaves a prefix waiting if none is held. Without `force` only when the
    /// site has been quiet for more than 2 min. True if it built a prefix.
    bool flushLocked(bool force) const VORLAN_REQUIRES(msgClampLock);

    /// Builds the prefix that waits for the next message: count and time with `delayed`, else "[drop...] ".
    char const* setDropLocked(bool delayed) const VORLAN_REQUIRES(msgClampLock);

    /// Each takes its text and gives it, or the empty string; the text stays in the block until the next one.
    char const* resetDrop() const VORLAN_REQUIRES(msgClampLock);
    char const* resetHold() const VORLAN_REQUIRES(msgClampLock);

private:
    bool clampVar(MsgType type, char const* fmt, va_list args) VORLAN_PRINTF(3, 0)
        VORLAN_EXCLUDES(msgClampLock);
    bool refuses(MsgClampInternal& manager) const VORLAN_EXCLUDES(msgClampLock);
    void refillLocked(std::uint64_t now, std::uint64_t gap) const VORLAN_REQUIRES(msgClampLock);
    bool grantLocked(std::uint64_t gap) const VORLAN_REQUIRES(msgClampLock);
    void needBlockLocked() const VORLAN_REQUIRES(msgClampLock);

    // Whenever m_budget is above 0, m_dropCount is 0: whatever raises the budget flushes what was counted.
    mutable std::uint64_t
        m_lastTime VORLAN_GUARDED_BY(msgClampLock) = 0; // ms; 0: nothing recorded, start afresh
    mutable std::uint32_t m_burstTime VORLAN_GUARDED_BY(msgClampLock) = 0; // ms, length of the burst so far
    mutable std::uint32_t m_budget VORLAN_GUARDED_BY(msgClampLock) = 0;    // messages that may still pass
    mutable std::uint32_t m_dropCount VORLAN_GUARDED_BY(msgClampLock) = 0; // refused since the last prefix
    mutable MsgType m_heldType VORLAN_GUARDED_BY(msgClampLock) = None;
    mutable char* m_textBlock = nullptr; // owned; prefix, then held text; null until the site first closes
    mutable char* m_heldText VORLAN_GUARDED_BY(msgClampLock) = nullptr;   // into m_textBlock, or null
    mutable char* m_dropPrefix VORLAN_GUARDED_BY(msgClampLock) = nullptr; // into m_textBlock, or null
};
