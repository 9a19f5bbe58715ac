#include "vorlan/clamp/MsgClamp.h"

#include "vorlan/clamp/MsgClampInternal.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/values/Clock.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

using Lock = VorlanPosix::ScopeLock<VorlanPosix::JMutex>;

constexpr std::uint64_t kQuietMs = 120'000; // a site silent for longer starts afresh
constexpr std::uint32_t kFreshBudget = 16;
constexpr unsigned int kUnclampAllBit = 3;

// When a closed site opens again. The last row moves the burst back by an hour, so that a flood without a
// pause earns two messages each further hour, for ever.
struct GrantPoint {
    std::uint32_t burstMs; // the length of the burst that earns the grant
    std::uint32_t budget;
    std::uint32_t newBurstMs;
};
constexpr GrantPoint kGrantPoints[] = {
    {1'000, 8, 1'000},
    {60'000, 4, 60'000},
    {3'600'000, 2, 3'600'000},
    {7'200'000, 2, 3'600'000},
};

// The text block: a prefix, a zero, the held text, a zero, and room to spare.
constexpr std::size_t kPrefixSize = 64;
constexpr std::size_t kHeldOffset = kPrefixSize + 1;
constexpr std::size_t kHeldSize = 192;
constexpr std::size_t kBlockSize = 386;
static_assert(kHeldOffset + kHeldSize < kBlockSize);

std::uint64_t nowMs() {
    return static_cast<std::uint64_t>(localClock.check(Clock::milliseconds));
}

} // namespace

static_assert(sizeof(void*) != 8 || sizeof(MsgClamp) == 48, "a site is 48 bytes on a 64-bit machine");

MsgClamp::MsgClamp() {
    MsgClampInternal::getRef().add(*this);
}

MsgClamp::~MsgClamp() {
    MsgClampInternal::getRef().remove(*this);
    delete[] m_textBlock;
}

// A va_list can't be handed on without a function that starts it, so that each of these needs its own.
#define VORLAN_CLAMPED_MESSAGE(name, type)                                                                   \
    bool MsgClamp::name(char const* fmt, ...) {                                                              \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        bool const result = clampVar(type, fmt, args);                                                       \
        va_end(args);                                                                                        \
        return result;                                                                                       \
    }

VORLAN_CLAMPED_MESSAGE(error, Error)
VORLAN_CLAMPED_MESSAGE(warning, Warning)
VORLAN_CLAMPED_MESSAGE(info, Info)
VORLAN_CLAMPED_MESSAGE(debug, Debug)
VORLAN_CLAMPED_MESSAGE(errorBlock, Error)
VORLAN_CLAMPED_MESSAGE(warningBlock, Warning)
VORLAN_CLAMPED_MESSAGE(infoBlock, Info)
VORLAN_CLAMPED_MESSAGE(debugBlock, Debug)

#undef VORLAN_CLAMPED_MESSAGE

bool MsgClamp::errorVar(char const* fmt, va_list args) {
    return clampVar(Error, fmt, args);
}

bool MsgClamp::infoVar(char const* fmt, va_list args) {
    return clampVar(Info, fmt, args);
}

bool MsgClamp::debugVar(char const* fmt, va_list args) {
    return clampVar(Debug, fmt, args);
}

bool MsgClamp::debugIf(bool direct, char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    bool const result = direct ? debugMsgVar(fmt, args) : debugVar(fmt, args);
    va_end(args);
    return result;
}

void MsgClamp::flush() const {
    Lock const lock(MsgClampInternal::getRef().getLock());
    flushLocked(true);
}

void MsgClamp::flushAll() {
    MsgClampInternal::getRef().flush(true);
}

bool MsgClamp::clamped() const {
    return refuses(MsgClampInternal::getRef());
}

// The decision of clamped(), for callers that have the manager at hand.
inline bool MsgClamp::refuses(MsgClampInternal& manager) const {
    if (msgClampDbg.on(kUnclampAllBit)) {
        return false;
    }
    Lock const lock(manager.getLock());
    std::uint64_t const now = nowMs();
    std::uint64_t const gap = now - m_lastTime;
    // While budget remains nothing is recorded: quiet is counted from the reset or the grant, and the time
    // spent on sending the burst counts toward the next grant.
    if (m_budget == 0 || gap > kQuietMs || m_lastTime == 0) {
        refillLocked(now, gap);
    }
    if (m_budget == 0) {
        ++m_dropCount;
        return true;
    }
    if (--m_budget == 0) {
        manager.startThreadLocked();
        setDropLocked(false);
    }
    return false;
}

bool MsgClamp::clampVar(MsgType type, char const* fmt, va_list args) {
    MsgClampInternal& manager = MsgClampInternal::getRef();
    return (manager.*manager.getIntFmt(type, refuses(manager)))(*this, fmt, args);
}

// Records the moment, and raises the budget of a site that starts afresh or has reached a grant point.
void MsgClamp::refillLocked(std::uint64_t now, std::uint64_t gap) const {
    if (gap > kQuietMs || m_lastTime == 0) {
        if (m_lastTime != 0 && m_dropCount != 0) {
            flushLocked(true);
        }
        m_budget = kFreshBudget;
        m_burstTime = 0;
        gap = 0;
    } else if (grantLocked(gap)) {
        // The burst stands at the grant point already, so that the time in the prefix is that point's and
        // what has gone by since the last message.
        flushLocked(true);
        gap = 0;
    }
    m_lastTime = now;
    m_burstTime += static_cast<std::uint32_t>(gap);
}

bool MsgClamp::grantLocked(std::uint64_t gap) const {
    for (GrantPoint const& point : kGrantPoints) {
        if (m_burstTime < point.burstMs) {
            // The points ascend: a burst that has not got this far has not got to a later one.
            if (m_burstTime + gap < point.burstMs) {
                return false;
            }
            m_budget = point.budget;
            m_burstTime = point.newBurstMs;
            return true;
        }
    }
    return false;
}

bool MsgClamp::flushLocked(bool force) const {
    if (m_dropCount == 0) {
        return false;
    }
    std::uint64_t const gap = nowMs() - m_lastTime;
    if (!force && (gap <= kQuietMs || m_lastTime == 0)) {
        return false;
    }
    MsgType const type = m_heldType;
    if (type == None) {
        // Nothing to show: the prefix waits for the next message.
        setDropLocked(true);
    } else {
        --m_dropCount; // the held message is about to be shown
        setDropLocked(true);
        std::string text = resetDrop();
        text += resetHold();
        MsgClampInternal::getRef().flushLocked(type, text);
    }
    if (force) {
        m_lastTime = 0;
    }
    return true;
}

bool MsgClamp::hold(MsgType type, char const* fmt, va_list args) {
    Lock const lock(MsgClampInternal::getRef().getLock());
    needBlockLocked();
    m_heldText = m_textBlock + kHeldOffset;
    vsnprintf(m_heldText, kHeldSize, fmt, args);
    m_heldText[kHeldSize] = '\0';
    m_heldType = type;
    return true;
}

bool MsgClamp::sendLocked(MsgType type, char const* fmt, va_list args) {
    flushLocked(false);
    MsgClampInternal& manager = MsgClampInternal::getRef();
    char const* const prefix = resetDrop();
    if (*prefix == '\0') {
        return manager.sendLocked(type, fmt, args);
    }
    // No prefix holds a percent sign, so that it can go in front of the format.
    std::string const format = std::string(prefix) + fmt;
    return manager.sendLocked(type, format.c_str(), args);
}

char const* MsgClamp::setDropLocked(bool delayed) const {
    needBlockLocked();
    m_dropPrefix = m_textBlock;
    if (delayed) {
        std::uint64_t const totalMs = nowMs() + m_burstTime - m_lastTime;
        std::snprintf(m_dropPrefix, kPrefixSize, "[%d delayed %02d:%02d:%02d] ",
                      static_cast<int>(m_dropCount), static_cast<int>(totalMs / 3'600'000),
                      static_cast<int>(totalMs / 60'000 % 60), static_cast<int>(totalMs / 1'000 % 60));
    } else {
        std::strncpy(m_dropPrefix, "[drop...] ", kPrefixSize);
    }
    m_textBlock[kPrefixSize] = '\0';
    m_dropCount = 0;
    return m_dropPrefix;
}

char const* MsgClamp::resetDrop() const {
    char const* const prefix = m_dropPrefix;
    m_dropPrefix = nullptr;
    return prefix == nullptr ? "" : prefix;
}

char const* MsgClamp::resetHold() const {
    char const* const text = m_heldText;
    m_heldText = nullptr;
    m_heldType = None;
    return text == nullptr ? "" : text;
}

void MsgClamp::needBlockLocked() const {
    if (m_textBlock == nullptr) {
        m_textBlock = new char[kBlockSize];
    }
}
