// Subsystem.h: starts and stops the parts of a process in order.
//
// A part of the process, a subsystem, describes itself with a Subsystem::Signals and registers it:
//
//     class Cache {
//     public:
//         Cache() { Subsystem::Registry::registerSignalHandlers(m_signals); }
//     private:
//         bool stop();
//         bool clear();
//         Subsystem::Signals<Cache> m_signals{"Cache", *this, nullptr, nullptr, nullptr, &Cache::stop,
//                                             &Cache::clear, 50};
//     };
//
// From then on it is stopped in its turn, by Registry::shutdownSubsystems() or at the exit of the process.
#pragma once

#include "vorlan/foundation/Compiler.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/SingletonHelper.h"
#include "vorlan/foundation/ThreadAnnotations.h"
#include "vorlan/lifecycle/Bridge.h"
#include "vorlan/text/AutoPtr.h"

#include <cstdint>
#include <memory>
#include <queue>
#include <type_traits>
#include <vector>

namespace Subsystem {

/// What the registry knows of a participant: a name, a priority for each phase, and the five phases.
///
/// In every phase a higher priority comes earlier. The phases here do nothing and succeed; a subclass
/// overrides those that it cares about, and registers and unregisters itself.
///
/// The phases run on the thread that calls initSubsystems() or shutdownSubsystems(), under the registry's
/// main lock. So they may register and unregister participants, but must not call those two, System::exit()
/// or exit() (the mutex ends the process with a line that says so), nor wait for a thread that does.
/// Threading: nothing changes after construction, so that all but the phases is safe from any thread.
class VORLAN_API BaseSignals {
public:
    /// `name` is not copied and must outlive the object.
    BaseSignals(char const* name, unsigned int initPriority, unsigned int signalShutdownPriority,
                unsigned int checkFinishedPriority, unsigned int stopThreadsPriority,
                unsigned int releaseMemPriority);
    BaseSignals(BaseSignals const&) = delete;
    BaseSignals& operator=(BaseSignals const&) = delete;

    /// Does not unregister: by now a subclass's phases and texts are gone. The subclass does it.
    virtual ~BaseSignals();

    /// Bring the subsystem up. False ends the start.
    virtual bool init();

    /// Shutdown has begun: take no new work. False ends the shutdown before it stops anything.
    virtual bool signalShutdown();

    /// Has the subsystem settled? Asked again and again; true means settled. `last` is true in the last poll.
    virtual bool checkFinished(bool last);

    /// Stop the threads. After a false all others are still stopped, but nobody releases memory.
    virtual bool stopThreads();

    /// Give the memory back. A false makes the shutdown fail and stops nothing.
    virtual bool releaseMemory();

    /// The long text of a registration line, and the short one of a line of a run. Empty here, never null.
    virtual AutoPtr<char> toString() const;
    virtual AutoPtr<char> toIdString() const;

    /// As given at construction.
    char const* name() const { return m_name; }
    unsigned int initPriority() const { return m_initPriority; }
    unsigned int signalShutdownPriority() const { return m_signalShutdownPriority; }
    unsigned int checkFinishedPriority() const { return m_checkFinishedPriority; }
    unsigned int stopThreadsPriority() const { return m_stopThreadsPriority; }
    unsigned int releaseMemPriority() const { return m_releaseMemPriority; }

protected:
    /// "name(owner)", and "{phase=anchor,p=priority}" for each anchor that is not null, in phase order.
    AutoPtr<char> describe(void const* owner, void const* const (&anchors)[5]) const;

private:
    char const* m_name;
    unsigned int m_initPriority;
    unsigned int m_signalShutdownPriority;
    unsigned int m_checkFinishedPriority;
    unsigned int m_stopThreadsPriority;
    unsigned int m_releaseMemPriority;
};

/// The list of a process's participants, and the two operations that take them through their phases.
///
/// Nobody touches the list directly. To register or unregister only queues a request, and a run applies the
/// queue at its start; what is queued later waits for the next run. So participants may come and go from any
/// thread and from inside a phase, and a run's list never changes under it.
///
/// initSubsystems() counts its calls. The process counts as up from the beginning: init phases run only in a
/// start that follows a complete shutdown.
///
/// 1. The call that brings the count from 0 to 1 goes on, if the process does not count as up.
/// 2. The queue is applied.
/// 3. init() of each participant, up to the first that fails. If none did, the process counts as up.
///
/// shutdownSubsystems() counts back.
///
/// 1. The call that leaves a count of 0 goes on, if the process counts as up. (A count of 0 stays 0: a
/// process
///    that never called initSubsystems() is shut down like any other.)
/// 2. The queue is applied.
/// 3. signalShutdown() of each participant, up to the first that fails; a failure ends the run. Then 100 ms.
/// 4. checkFinished() of each participant, up to the first that has not settled, in polls 100 ms apart. The
///    stage ends well after three settled polls in a row, or with a settled poll 30, which is the last; that
///    one is announced on stderr and passes true. A stage that does not end well ends the run.
/// 5. stopThreads() of every participant. A failure ends the run after the last of them.
/// 6. releaseMemory() of every participant. From here on the process counts as down, failure or not.
///
/// Each phase sorts the list by its own priority, stably, from the order that the phase before it left. The
/// waits take 300 ms if all settle at once and 3100 ms at most; the phases take what they take.
///
/// The first request queued in a process also installs an exit handler, one more shutdownSubsystems():
/// whoever reaches exit() or the end of main is stopped in order. After that the registry is gone: a late
/// request, as from a participant destroyed later still, is dropped, and a run does nothing and gives true.
///
/// Errors go to stderr. With the environment variable VRSSRLOG set, to whatever value, so does the progress
/// of each run; the variable is read once, at first use.
///
/// Threading: any thread may call anything here; runs exclude each other. A participant must not be destroyed
/// while a run has it in its list: its owner sees to that.
class VORLAN_API Registry : public SingletonHelper<Registry> {
public:
    /// The one registry of the process, made on first use.
    static Registry& getRef();

    /// Asks for a participant to be added at the end of the list. It is not owned, and is called twice in
    /// each phase if it was added twice. It must be fully constructed.
    static void registerSignalHandlers(BaseSignals& signals);

    /// Asks for a participant to be removed: its first entry in the list, if there is one. The object may be
    /// destroyed before the request is applied.
    static void unregisterSignalHandlers(BaseSignals& signals);

    /// Starts the participants, as told above. False if an init() failed: those before it stay started.
    static bool initSubsystems();

    /// Stops the participants, as told above. False if a phase failed or they did not settle.
    static bool shutdownSubsystems();

    /// Writes to stderr, in printf's way.
    static void errMsg(char const* format, ...) VORLAN_PRINTF(1, 2);

    /// The same if VRSSRLOG is set; otherwise nothing.
    static void dbgMsg(char const* format, ...) VORLAN_PRINTF(1, 2);

private:
    friend class SingletonHelper<Registry>;

    enum QOpType : std::uint32_t { QOpRegister = 0, QOpUnregister = 1 };

    struct QOp {
        QOp(BaseSignals* target, QOpType type) : m_target(target), m_type(type) {}

        BaseSignals* m_target; // an address to compare, never followed: the object may be gone
        QOpType m_type;
    };

    Registry();
    ~Registry();

    void queueSignalOp(QOp op) VORLAN_EXCLUDES(m_queueLock);
    void processRegistryQ() VORLAN_REQUIRES(m_lock) VORLAN_EXCLUDES(m_queueLock);
    void unregisterSignalsLocked(BaseSignals const* target) VORLAN_REQUIRES(m_lock, m_queueLock);
    bool initLocked() VORLAN_REQUIRES(m_lock) VORLAN_EXCLUDES(m_queueLock);
    bool shutdownLocked() VORLAN_REQUIRES(m_lock) VORLAN_EXCLUDES(m_queueLock);

    std::vector<BaseSignals*> m_signals VORLAN_GUARDED_BY(m_lock);

    // Held for a whole run, across every phase and every wait.
    VorlanPosix::JMutex m_lock VORLAN_ACQUIRED_BEFORE(m_queueLock);

    std::int32_t m_refCount VORLAN_GUARDED_BY(m_lock) = 0; // starts not yet matched by a shutdown
    bool m_initialized VORLAN_GUARDED_BY(m_lock) = true;   // the process counts as up
    std::queue<QOp> m_queue VORLAN_GUARDED_BY(m_queueLock);

    // Never held while a phase runs, so that a phase may register.
    VorlanPosix::JMutex m_queueLock;
};

/// The ready-made participant: takes the phases to member functions of an owner object.
///
/// It does not register itself: its owner calls Registry::registerSignalHandlers() once both stand. It does
/// unregister itself when it is destroyed. The owner is not owned here and must outlive it.
template <class T>
class Signals : public BaseSignals {
public:
    /// A phase of the owner; true means success, and for the second that it has settled.
    using Callback = bool (T::*)();
    using CheckCallback = bool (T::*)(bool);

    /// The name, the owner, its functions in phase order (null for none, which counts as success), and one
    /// priority for all phases.
    Signals(char const* name, T& owner, Callback onInit, Callback onSignalShutdown,
            CheckCallback onCheckFinished, Callback onStopThreads, Callback onReleaseMem,
            unsigned int priority);
    ~Signals() override;

    bool init() override { return signal(m_initCb.get()); }
    bool signalShutdown() override { return signal(m_signalShutdownCb.get()); }
    bool checkFinished(bool last) override { return signal(m_checkFinishedCb.get(), last); }
    bool stopThreads() override { return signal(m_stopThreadsCb.get()); }
    bool releaseMemory() override { return signal(m_releaseMemCb.get()); }

    /// The id, and the anchor's address and the priority of each phase that has a function.
    AutoPtr<char> toString() const override;

    /// The name with the owner's address.
    AutoPtr<char> toIdString() const override { return describe(m_owner, {}); }

private:
    using VoidAnchor = BridgeAnchorVoid<T, bool>;
    using BoolAnchor = BridgeAnchor<T, bool, bool>;

    void initCbs(T& owner, Callback onInit, Callback onSignalShutdown, CheckCallback onCheckFinished,
                 Callback onStopThreads, Callback onReleaseMem);

    static bool signal(VoidAnchor* anchor) { return anchor == nullptr || anchor->callCb(); }
    static bool signal(BoolAnchor* anchor, bool last) { return anchor == nullptr || anchor->callCb(last); }

    T* m_owner; // only for the texts; the anchors have their own
    std::unique_ptr<VoidAnchor> m_initCb;
    std::unique_ptr<VoidAnchor> m_signalShutdownCb;
    std::unique_ptr<BoolAnchor> m_checkFinishedCb;
    std::unique_ptr<VoidAnchor> m_stopThreadsCb;
    std::unique_ptr<VoidAnchor> m_releaseMemCb;
};

template <class T>
Signals<T>::Signals(char const* name, T& owner, Callback onInit, Callback onSignalShutdown,
                    CheckCallback onCheckFinished, Callback onStopThreads, Callback onReleaseMem,
                    unsigned int priority)
    : BaseSignals(name, priority, priority, priority, priority, priority), m_owner(&owner) {
    initCbs(owner, onInit, onSignalShutdown, onCheckFinished, onStopThreads, onReleaseMem);
}

template <class T>
Signals<T>::~Signals() {
    // First of all: this may print toString(), which needs the anchors.
    Registry::unregisterSignalHandlers(*this);
}

template <class T>
void Signals<T>::initCbs(T& owner, Callback onInit, Callback onSignalShutdown, CheckCallback onCheckFinished,
                         Callback onStopThreads, Callback onReleaseMem) {
    auto const bind = [&owner](auto& anchor, auto method) {
        if (method != nullptr) {
            anchor = std::make_unique<std::remove_reference_t<decltype(*anchor)>>(owner, method);
        }
    };
    bind(m_initCb, onInit);
    bind(m_signalShutdownCb, onSignalShutdown);
    bind(m_checkFinishedCb, onCheckFinished);
    bind(m_stopThreadsCb, onStopThreads);
    bind(m_releaseMemCb, onReleaseMem);
}

template <class T>
AutoPtr<char> Signals<T>::toString() const {
    return describe(m_owner, {m_initCb.get(), m_signalShutdownCb.get(), m_checkFinishedCb.get(),
                              m_stopThreadsCb.get(), m_releaseMemCb.get()});
}

} // namespace Subsystem
