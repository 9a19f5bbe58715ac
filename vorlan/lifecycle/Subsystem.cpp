#include "vorlan/lifecycle/Subsystem.h"

#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/text/FormatStr.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace Subsystem {

namespace {

using Lock = VorlanPosix::ScopeLock<VorlanPosix::JMutex>;
using Participants = std::vector<BaseSignals*>;
using LogFn = void (*)(char const* format, va_list args);

constexpr std::uint32_t kPauseMs = 100; // before the first settle poll and between two
constexpr int kLastPoll = 30;           // counted from 0
constexpr int kSettledInARow = 3;       // polls that end the settle stage early

// Null until the registry's constructor has found VRSSRLOG set. Both words here are ready before any
// constructor runs and stay after every destructor.
std::atomic<LogFn> s_logFn{nullptr};

// Set with both locks of the registry held, read with either.
std::atomic<bool> s_registryGone{false};

VORLAN_PRINTF(1, 0) void stderrMsg(char const* format, va_list args) {
    std::fflush(stdout);
    std::vfprintf(stderr, format, args);
    std::fflush(stderr);
}

bool logging() {
    return s_logFn.load(std::memory_order_relaxed) != nullptr;
}

char const* outcome(bool ok) {
    return ok ? "finished" : "failed";
}

void implicitShutdown() {
    Registry::shutdownSubsystems();
}

// Calls implicitShutdown() at exit. An object and not atexit(): its destructor keeps its place among those of
// a shared library under the thread sanitizer too, and at dlclose().
struct ExitHandler {
    ~ExitHandler() { implicitShutdown(); }
};

// The order of a phase: the higher number first, and no phase reverses it.
template <unsigned int (BaseSignals::*priority)() const>
bool higher(BaseSignals const* a, BaseSignals const* b) {
    return (a->*priority)() > (b->*priority)();
}

constexpr auto cmpInitPriority = &higher<&BaseSignals::initPriority>;
constexpr auto cmpSignalShutdownPriority = &higher<&BaseSignals::signalShutdownPriority>;
constexpr auto cmpCheckFinishedPriority = &higher<&BaseSignals::checkFinishedPriority>;
constexpr auto cmpStopThreadsPriority = &higher<&BaseSignals::stopThreadsPriority>;
constexpr auto cmpReleaseMemPriority = &higher<&BaseSignals::releaseMemPriority>;

enum class AfterFailure { Leave, GoOn };

struct Phase {
    bool (*before)(BaseSignals const*, BaseSignals const*);
    bool (*call)(BaseSignals& signals, bool lastPoll);
    char const* opening; // progress line of the stage, or null
    char const* words;   // in the progress line of each participant
    char const* failure; // error line of a participant, with its id as the argument; or null
    AfterFailure afterFailure;
};

constexpr Phase kInit{
    cmpInitPriority,
    [](BaseSignals& s, bool) { return s.init(); },
    nullptr,
    "init",
    "Subsystem::Registry::initSubsystems(), subsystem failed %s\n",
    AfterFailure::Leave,
};
constexpr Phase kSignalShutdown{
    cmpSignalShutdownPriority,
    [](BaseSignals& s, bool) { return s.signalShutdown(); },
    "|-- Subsystem::Registry::shutdownSubsystems() signalling shutdown\n",
    "signal shutdown",
    "Subsystem::Registry::shutdownSubsystems(), signal failed (%s)\n",
    AfterFailure::Leave,
};
constexpr Phase kSettle{
    cmpCheckFinishedPriority,
    [](BaseSignals& s, bool lastPoll) { return s.checkFinished(lastPoll); },
    "|-- Subsystem::Registry::shutdownSubsystems() letting subsystems settle\n",
    "checking settled status",
    nullptr,
    AfterFailure::Leave,
};
constexpr Phase kStopThreads{
    cmpStopThreadsPriority,
    [](BaseSignals& s, bool) { return s.stopThreads(); },
    "|-- Subsystem::Registry::shutdownSubsystems() stopping threads\n",
    "stop threads",
    "Subsystem::Registry::shutdownSubsystems(), can't stop threads %s\n",
    AfterFailure::GoOn,
};
constexpr Phase kReleaseMemory{
    cmpReleaseMemPriority,
    [](BaseSignals& s, bool) { return s.releaseMemory(); },
    "|-- Subsystem::Registry::shutdownSubsystems() releasing memory\n",
    "release memory",
    "Subsystem::Registry::shutdownSubsystems(), can't release memory %s\n",
    AfterFailure::GoOn,
};

void open(Phase const& phase, Participants& list) {
    if (phase.opening != nullptr) {
        Registry::dbgMsg("%s", phase.opening);
    }
    std::stable_sort(list.begin(), list.end(), phase.before);
}

// One walk over the list. True if every participant that was called gave true.
bool walk(Phase const& phase, Participants const& list, bool lastPoll = false) {
    bool ok = true;
    for (BaseSignals* const signals : list) {
        if (logging()) {
            Registry::dbgMsg("|       %s -> %s\n", phase.words, signals->toIdString().get());
        }
        if (phase.call(*signals, lastPoll)) {
            continue;
        }
        ok = false;
        if (phase.failure != nullptr) {
            Registry::errMsg(phase.failure, signals->toIdString().get());
        }
        if (phase.afterFailure == AfterFailure::Leave) {
            break;
        }
    }
    return ok;
}

bool run(Phase const& phase, Participants& list) {
    open(phase, list);
    return walk(phase, list);
}

// The settle stage: its last poll decides.
bool settle(Participants& list) {
    open(kSettle, list);
    int settledInARow = 0;
    for (int poll = 0;; ++poll) {
        bool const last = poll == kLastPoll;
        if (last) {
            Registry::errMsg("Subsystem::Registry::shutdownSubsystems() about to bail out\n");
        }
        bool const settled = walk(kSettle, list, last);
        settledInARow = settled ? settledInARow + 1 : 0;
        if (last || settledInARow == kSettledInARow) {
            return settled;
        }
        waitMsec(kPauseMs);
    }
}

} // namespace

BaseSignals::BaseSignals(char const* name, unsigned int initPriority, unsigned int signalShutdownPriority,
                         unsigned int checkFinishedPriority, unsigned int stopThreadsPriority,
                         unsigned int releaseMemPriority)
    : m_name(name), m_initPriority(initPriority), m_signalShutdownPriority(signalShutdownPriority),
      m_checkFinishedPriority(checkFinishedPriority), m_stopThreadsPriority(stopThreadsPriority),
      m_releaseMemPriority(releaseMemPriority) {}

BaseSignals::~BaseSignals() = default;

bool BaseSignals::init() {
    return true;
}

bool BaseSignals::signalShutdown() {
    return true;
}

bool BaseSignals::checkFinished(bool /*last*/) {
    return true;
}

bool BaseSignals::stopThreads() {
    return true;
}

bool BaseSignals::releaseMemory() {
    return true;
}

AutoPtr<char> BaseSignals::toString() const {
    return FormatStr(128);
}

AutoPtr<char> BaseSignals::toIdString() const {
    return FormatStr(128);
}

AutoPtr<char> BaseSignals::describe(void const* owner, void const* const (&anchors)[5]) const {
    struct {
        char const* format;
        unsigned int priority;
    } const pieces[] = {
        {"{init=%p,p=%i}", m_initPriority},
        {"{signalShutdown=%p,p=%i}", m_signalShutdownPriority},
        {"{checkFinished=%p,p=%i}", m_checkFinishedPriority},
        {"{stopThreads=%p,p=%i}", m_stopThreadsPriority},
        {"{releaseMem=%p,p=%i}", m_releaseMemPriority},
    };
    FormatStr text("%s(%p)", m_name, owner);
    for (std::size_t i = 0; i < std::size(pieces); ++i) {
        if (anchors[i] != nullptr) {
            // The priority prints as a signed number, though it sorts as an unsigned one.
            text.format(pieces[i].format, anchors[i], static_cast<int>(pieces[i].priority));
        }
    }
    return text.releaseString();
}

Registry::Registry() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): as safe as the process is that changes its environment
    if (std::getenv("VRSSRLOG") != nullptr) {
        s_logFn.store(&stderrMsg, std::memory_order_relaxed);
    }
}

// Runs after the exit handler, which was installed later. A run on another thread ends first; whoever comes
// after that meets the flag, under locks that have no destructor.
Registry::~Registry() {
    Lock const lock(m_lock);
    Lock const queueLock(m_queueLock);
    s_registryGone.store(true, std::memory_order_relaxed);
}

Registry& Registry::getRef() {
    static Registry* r = SingletonHelper<Registry>::staticSingleton(r);
    return *r;
}

void Registry::registerSignalHandlers(BaseSignals& signals) {
    Registry& registry = getRef(); // first: a fresh registry decides about the output
    if (logging()) {
        dbgMsg("Registering subsystem: %s\n", signals.toString().get());
    }
    registry.queueSignalOp(QOp(&signals, QOpRegister));
}

void Registry::unregisterSignalHandlers(BaseSignals& signals) {
    Registry& registry = getRef();
    if (logging()) {
        dbgMsg("Unregistering subsystem: %s\n", signals.toString().get());
    }
    registry.queueSignalOp(QOp(&signals, QOpUnregister));
}

bool Registry::initSubsystems() {
    Registry& registry = getRef();
    Lock const lock(registry.m_lock);
    if (s_registryGone.load(std::memory_order_relaxed)) {
        return true;
    }
    dbgMsg("Subsystem::Registry::initSubsystems() started\n");
    bool const ok = registry.initLocked();
    dbgMsg("`-- Subsystem::Registry::initSubsystems() %s\n", outcome(ok));
    return ok;
}

bool Registry::shutdownSubsystems() {
    Registry& registry = getRef();
    Lock const lock(registry.m_lock);
    if (s_registryGone.load(std::memory_order_relaxed)) {
        return true;
    }
    dbgMsg("Subsystem::Registry::shutdownSubsystems() started\n");
    bool const ok = registry.shutdownLocked();
    dbgMsg("`-- Subsystem::Registry::shutdownSubsystems() %s\n", outcome(ok));
    return ok;
}

void Registry::errMsg(char const* format, ...) {
    va_list args;
    va_start(args, format);
    stderrMsg(format, args);
    va_end(args);
}

void Registry::dbgMsg(char const* format, ...) {
    if (LogFn const log = s_logFn.load(std::memory_order_relaxed)) {
        va_list args;
        va_start(args, format);
        log(format, args);
        va_end(args);
    }
}

void Registry::queueSignalOp(QOp op) {
    Lock const lock(m_queueLock);
    if (s_registryGone.load(std::memory_order_relaxed)) {
        return;
    }
    static ExitHandler const handlerOfFirstRequest;
    m_queue.push(op);
}

void Registry::processRegistryQ() {
    Lock const lock(m_queueLock);
    while (!m_queue.empty()) {
        QOp const op = m_queue.front();
        m_queue.pop();
        if (op.m_type == QOpRegister) {
            m_signals.push_back(op.m_target);
        } else {
            unregisterSignalsLocked(op.m_target);
        }
    }
}

void Registry::unregisterSignalsLocked(BaseSignals const* target) {
    auto const found = std::find(m_signals.begin(), m_signals.end(), target);
    if (found != m_signals.end()) {
        m_signals.erase(found);
    }
}

bool Registry::initLocked() {
    ++m_refCount;
    if (m_refCount != 1) {
        dbgMsg("|-- Ref count == %i, subsystems already initialized\n", m_refCount);
        return true;
    }
    if (m_initialized) {
        dbgMsg("|-- Subsystems already initialized\n");
        return true;
    }
    processRegistryQ();
    m_initialized = run(kInit, m_signals);
    return m_initialized;
}

bool Registry::shutdownLocked() {
    if (m_refCount != 0) {
        --m_refCount;
    }
    if (m_refCount != 0) {
        dbgMsg("|-- Ref count == %i, skipping shutdown\n", m_refCount);
        return true;
    }
    if (!m_initialized) {
        dbgMsg("|-- Subsystems not initialized\n");
        return true;
    }
    processRegistryQ();
    if (!run(kSignalShutdown, m_signals)) {
        return false;
    }
    waitMsec(kPauseMs);
    if (!settle(m_signals) || !run(kStopThreads, m_signals)) {
        return false;
    }
    bool const released = run(kReleaseMemory, m_signals);
    m_initialized = false;
    return released;
}

} // namespace Subsystem
