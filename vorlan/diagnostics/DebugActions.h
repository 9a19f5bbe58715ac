// DebugActions.h: debug variables that do something when they are changed.
#pragma once

#include "vorlan/foundation/Compiler.h"
#include "vorlan/foundation/DebugServices.h"
#include "vorlan/lifecycle/Bridge.h"

/// The variable "loggingFlags": hands its value to setLoggingFlags(). A value that the message service does
/// not take as it is, is told in one debug message. Threading: the change runs on the thread that makes it.
class VORLAN_API LoggingFlags : public DebuggerOn {
public:
    LoggingFlags();

    /// Called through the hook; always true. A record of another variable is ignored.
    bool debugCb(DebugRecord const& record);

private:
    BridgeAnchor<LoggingFlags, DebugRecord const&, bool> m_debugHook;
};

/// The variable "LogMessage": each bit that is set sends one sample message straight to a sink, so that an
/// operator sees where messages of every kind and length end up. Then the variable clears itself.
/// Threading: the change runs on the thread that makes it.
class VORLAN_API LogMessageDbg : public DebuggerOn {
public:
    LogMessageDbg();

    /// Called through the hook; always true. A record of another variable is ignored.
    bool debugCb(DebugRecord const& record);

private:
    BridgeAnchor<LogMessageDbg, DebugRecord const&, bool> m_debugHook;
};
