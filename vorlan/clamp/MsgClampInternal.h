// MsgClampInternal.h: the one object behind all clamp sites of a process.
#pragma once

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/clamp/ThreadMethod.h"
#include "vorlan/foundation/Atomics.h"
#include "vorlan/foundation/Compiler.h"
#include "vorlan/foundation/DebugServices.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/SingletonHelper.h"
#include "vorlan/foundation/ThreadAnnotations.h"
#include "vorlan/lifecycle/Bridge.h"
#include "vorlan/lifecycle/Subsystem.h"

#include <cstdarg>
#include <list>
#include <string>

/// The clamp manager: the lock of all sites, their list, and the thread that releases what went quiet.
///
/// Made on first use, by the first site of the process as a rule, and alive to the end of the process: it has
/// no destructor at exit, so that sites may come and go before main and after it. Users of MsgClamp have no
/// need to call it. It takes part in the process's shutdown as the subsystem "MsgClampInternal", priority 50,
/// and acts on changes of the debug variable msgClampDbg.
///
/// Threading: one lock guards the list and every field of every site, and is held across every sink call. No
/// operation that takes it calls another that does.
/// The flusher thread "msg clamp" starts when the first site of the process closes. It looks for a stop
/// request every 50 ms and visits the sites every 30 s, so that a held message comes out 120 s to 150 s after
/// its site went quiet, if no message of the site comes first.
class VORLAN_API MsgClampInternal : public MsgClampEnum, public SingletonHelper<MsgClampInternal> {
public:
    /// The operations of the tables: one that serves a site's message here, and the sinks with their two ways
    /// to take arguments.
    using IntFmt = bool (MsgClampInternal::*)(MsgClamp&, char const* fmt, va_list args);
    using ExtFmt = bool (*)(char const* fmt, ...);
    using ExtVarFmt = bool (*)(char const* fmt, va_list args);

    /// The one manager of the process, made on first use and never destroyed.
    static MsgClampInternal& getRef();

    MsgClampInternal(MsgClampInternal const&) = delete;
    MsgClampInternal& operator=(MsgClampInternal const&) = delete;

    /// The lock of the list and of every site.
    VorlanPosix::JMutex& getLock() VORLAN_RETURN_CAPABILITY(msgClampLock) { return m_lock; }

    /// Enters a site at the front of the list, and takes one off; taking off what is not there does nothing.
    void add(MsgClamp& site) VORLAN_EXCLUDES(msgClampLock);
    void remove(MsgClamp& site) VORLAN_EXCLUDES(msgClampLock);

    /// The number of sites goes up and down by one; both give the new number. Nothing hangs on reaching 0.
    int preserve() { return ++m_refs; }
    int release() { return --m_refs; }

    /// The operation that serves a message of the type: hold it, or send it.
    IntFmt getIntFmt(MsgType type, bool held) const;

    /// The sinks of the type.
    ExtFmt getExtFmt(MsgType type) const;
    ExtVarFmt getExtVarFmt(MsgType type) const;

    /// The entries of the table behind getIntFmt(): each holds, or sends, as a message of its type.
    bool holdError(MsgClamp& site, char const* fmt, va_list args) VORLAN_PRINTF(3, 0);
    bool holdDebug(MsgClamp& site, char const* fmt, va_list args) VORLAN_PRINTF(3, 0);
    bool holdInfo(MsgClamp& site, char const* fmt, va_list args) VORLAN_PRINTF(3, 0);
    bool holdWarning(MsgClamp& site, char const* fmt, va_list args) VORLAN_PRINTF(3, 0);
    bool sendError(MsgClamp& site, char const* fmt, va_list args) VORLAN_PRINTF(3, 0);
    bool sendDebug(MsgClamp& site, char const* fmt, va_list args) VORLAN_PRINTF(3, 0);
    bool sendInfo(MsgClamp& site, char const* fmt, va_list args) VORLAN_PRINTF(3, 0);
    bool sendWarning(MsgClamp& site, char const* fmt, va_list args) VORLAN_PRINTF(3, 0);

    /// Sends through the site, with its waiting prefix; gives what the sink gave.
    bool send(MsgClamp& site, MsgType type, char const* fmt, va_list args) VORLAN_PRINTF(4, 0)
        VORLAN_EXCLUDES(msgClampLock);

    /// Hands a message to the sink of its type; gives what the sink gave.
    bool sendLocked(MsgType type, char const* fmt, va_list args) VORLAN_PRINTF(3, 0)
        VORLAN_REQUIRES(msgClampLock);

    /// Hands finished text to the sink of its type, as the argument of "%s".
    bool flushLocked(MsgType type, std::string const& text) VORLAN_REQUIRES(msgClampLock);

    /// Flushes every site, newest first, in one section of the lock. Without `force` only what went quiet.
    void flush(bool force) VORLAN_EXCLUDES(msgClampLock);

    /// Starts the flusher unless it runs.
    void startThreadLocked() VORLAN_REQUIRES(msgClampLock);

    /// The two phases of the process's shutdown in which the clamp system takes part; both always succeed.
    /// The first ends the flusher, the second empties the list. Neither flushes: what a site holds stays
    /// unsaid unless flushAll() was called before. Sites go on working, and one that closes later starts the
    /// flusher again.
    bool stopThreadsCb();
    bool releaseMemCb() VORLAN_EXCLUDES(msgClampLock);

    /// Acts on the bits of msgClampDbg, in this order: bit 2 flushes every site; bit 1 sends a numbered error
    /// through a site of its own, bit 0 one through the C entry points. Always true. A bit stays set, and
    /// acts again at the next change. Bit 3 acts in MsgClamp::clamped() and not here.
    bool debugCb(DebugRecord const& record) VORLAN_EXCLUDES(msgClampLock);

    /// Ends the flusher and, if no site is registered, the manager itself. That is for a process which has
    /// released its memory and will neither use nor destroy a site again, not even one at file scope: there
    /// is no second manager. The library never calls it.
    void shutdown();

private:
    friend class SingletonHelper<MsgClampInternal>;

    MsgClampInternal();
    ~MsgClampInternal();

    void clampLoop() VORLAN_EXCLUDES(msgClampLock);

    VorlanPosix::JMutex m_lock;
    AtomicCounter m_refs;
    ThreadMethod<MsgClampInternal> m_flusher;
    std::list<MsgClamp*> m_clamps VORLAN_GUARDED_BY(msgClampLock); // not owned
    BridgeAnchor<MsgClampInternal, DebugRecord const&, bool> m_debugHook;
    Subsystem::Signals<MsgClampInternal> m_signals;
};
