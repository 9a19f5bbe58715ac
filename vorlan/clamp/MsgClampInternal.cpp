#include "vorlan/clamp/MsgClampInternal.h"

#include "vorlan/clamp/MsgClampC.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/values/Clock.h"

#include <algorithm>
#include <cerrno>

namespace {

using Lock = VorlanPosix::ScopeLock<VorlanPosix::JMutex>;

constexpr unsigned int kFlusherPriority = 160;
constexpr unsigned int kFlusherStack = 16384; // bytes
constexpr long long kFlushPeriodMs = 30'000;
constexpr unsigned int kStopPollMs = 50;
constexpr unsigned int kShutdownPriority = 50;

// Bits of msgClampDbg that act when the variable is changed.
constexpr unsigned int kCTestBit = 0;
constexpr unsigned int kCxxTestBit = 1;
constexpr unsigned int kFlushNowBit = 2;

struct TypeOperations {
    MsgClampInternal::IntFmt send;
    MsgClampInternal::IntFmt hold;
    MsgClampInternal::ExtFmt sink;
    MsgClampInternal::ExtVarFmt sinkVar;
};

using M = MsgClampInternal;

constexpr TypeOperations kDebugOperations = {&M::sendDebug, &M::holdDebug, debugMsg, debugMsgVar};

// By MsgType.
constexpr TypeOperations kOperations[] = {
    kDebugOperations,
    {&M::sendError, &M::holdError, errorMsg, errorMsgVar},
    kDebugOperations,
    {&M::sendInfo, &M::holdInfo, infoMsg, infoMsgVar},
    {&M::sendWarning, &M::holdWarning, warningMsg, warningMsgVar},
};

TypeOperations const& operationsOf(MsgClampEnum::MsgType type) {
    return kOperations[type <= MsgClampEnum::Warning ? type : MsgClampEnum::Debug];
}

} // namespace

MsgClampInternal& MsgClampInternal::getRef() {
    static MsgClampInternal* mci = newSingleton(mci);
    return *mci;
}

// The hook and the registration come when every member stands: either may lead to a call at once.
MsgClampInternal::MsgClampInternal()
    : m_refs(0), m_flusher(*this, &MsgClampInternal::clampLoop, "msg clamp", kFlusherPriority, kFlusherStack),
      m_debugHook(*this, &MsgClampInternal::debugCb),
      m_signals("MsgClampInternal", *this, nullptr, nullptr, nullptr, &MsgClampInternal::stopThreadsCb,
                &MsgClampInternal::releaseMemCb, kShutdownPriority) {
    msgClampDbg.set(&m_debugHook);
    Subsystem::Registry::registerSignalHandlers(m_signals);
}

// Counts itself in, so that shutdown() does not come back here.
MsgClampInternal::~MsgClampInternal() {
    ++m_refs;
    shutdown();
}

void MsgClampInternal::add(MsgClamp& site) {
    Lock const lock(getLock());
    preserve();
    m_clamps.push_front(&site);
}

void MsgClampInternal::remove(MsgClamp& site) {
    Lock const lock(getLock());
    auto const found = std::find(m_clamps.begin(), m_clamps.end(), &site);
    if (found != m_clamps.end()) {
        m_clamps.erase(found);
        release();
    }
}

MsgClampInternal::IntFmt MsgClampInternal::getIntFmt(MsgType type, bool held) const {
    TypeOperations const& operations = operationsOf(type);
    return held ? operations.hold : operations.send;
}

MsgClampInternal::ExtFmt MsgClampInternal::getExtFmt(MsgType type) const {
    return operationsOf(type).sink;
}

MsgClampInternal::ExtVarFmt MsgClampInternal::getExtVarFmt(MsgType type) const {
    return operationsOf(type).sinkVar;
}

bool MsgClampInternal::holdError(MsgClamp& site, char const* fmt, va_list args) {
    return site.hold(Error, fmt, args);
}

bool MsgClampInternal::holdDebug(MsgClamp& site, char const* fmt, va_list args) {
    return site.hold(Debug, fmt, args);
}

bool MsgClampInternal::holdInfo(MsgClamp& site, char const* fmt, va_list args) {
    return site.hold(Info, fmt, args);
}

bool MsgClampInternal::holdWarning(MsgClamp& site, char const* fmt, va_list args) {
    return site.hold(Warning, fmt, args);
}

bool MsgClampInternal::sendError(MsgClamp& site, char const* fmt, va_list args) {
    return send(site, Error, fmt, args);
}

bool MsgClampInternal::sendDebug(MsgClamp& site, char const* fmt, va_list args) {
    return send(site, Debug, fmt, args);
}

bool MsgClampInternal::sendInfo(MsgClamp& site, char const* fmt, va_list args) {
    return send(site, Info, fmt, args);
}

bool MsgClampInternal::sendWarning(MsgClamp& site, char const* fmt, va_list args) {
    return send(site, Warning, fmt, args);
}

bool MsgClampInternal::send(MsgClamp& site, MsgType type, char const* fmt, va_list args) {
    Lock const lock(getLock());
    return site.plainLocked() ? sendLocked(type, fmt, args) : site.sendLocked(type, fmt, args);
}

bool MsgClampInternal::sendLocked(MsgType type, char const* fmt, va_list args) {
    return getExtVarFmt(type)(fmt, args);
}

bool MsgClampInternal::flushLocked(MsgType type, std::string const& text) {
    return getExtFmt(type)("%s", text.c_str());
}

void MsgClampInternal::flush(bool force) {
    Lock const lock(getLock());
    for (MsgClamp* site : m_clamps) {
        site->flushLocked(force);
    }
}

void MsgClampInternal::startThreadLocked() {
    if (!m_flusher.running()) {
        int const callers = errno; // the message that closes the site may print it with "%m"
        m_flusher.start();
        errno = callers;
    }
}

// Takes no lock: the thread that it waits for may need one.
bool MsgClampInternal::stopThreadsCb() {
    m_flusher.stop(true);
    return true;
}

bool MsgClampInternal::releaseMemCb() {
    Lock const lock(getLock());
    while (!m_clamps.empty()) {
        m_clamps.pop_front();
        release();
    }
    return true;
}

bool MsgClampInternal::debugCb(DebugRecord const& record) {
    DebuggerOn const& variable = *record.getVariable();
    if (variable.on(kFlushNowBit)) {
        flush(true);
    }
    if (variable.on(kCxxTestBit)) {
        static MsgClamp cxxTest;
        static int cxxTestCount = 0;
        ++cxxTestCount; // refused or not: the numbers in the log jump over what was refused
        cxxTest.error("MsgClamp c++ test #%d\n", cxxTestCount);
    }
    if (variable.on(kCTestBit)) {
        static MsgClamp* ccTest = nullptr;
        static int ccTestCount = 0;
        if (!clampedMsg(&ccTest)) {
            ++ccTestCount; // only what passes: the numbers run on
            errorMsg("%sMsgClamp c test #%d\n", droppedMsg(&ccTest), ccTestCount);
        }
    }
    return true;
}

void MsgClampInternal::shutdown() {
    m_flusher.stop(true);
    if (m_refs == 0) {
        delete this;
    }
}

void MsgClampInternal::clampLoop() {
    Clock sinceFlush(true);
    while (!m_flusher.stopRequested()) {
        if (sinceFlush.check(Clock::milliseconds) < kFlushPeriodMs) {
            waitMsec(kStopPollMs);
        } else {
            sinceFlush.start(); // before the flush, so that its own time counts toward the next period
            flush(false);
        }
    }
}
