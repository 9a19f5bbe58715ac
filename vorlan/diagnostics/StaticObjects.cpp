// The library's objects at file scope, all in one file, so that they are built in one order whatever the
// order of linking, and the return-code entry points, which use the first two.
//
// Building rcTraceLevelClamp makes the clamp manager, unless a site of another file came first. The manager
// sets its hook on msgClampDbg and registers with the lifecycle registry, which installs the registry's exit
// handler. So at exit, in reverse: logMessageDbg, loggingFlags and rcTraceLevelClamp are destroyed, then the
// subsystems are stopped, then the registry ends. What has no destructor stays as it is to the end of the
// process: rcTraceLevel, msgClampDbg, localClock and the manager.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/diagnostics/DebugActions.h"
#include "vorlan/diagnostics/ReturnCodes.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/OsEnv.h"
#include "vorlan/values/Clock.h"

#include <atomic>
#include <cstring>

namespace {

// Ready before any constructor runs and after any destructor has.
std::atomic<bool> traceClampAlive{false};

class TraceClamp : public MsgClamp {
public:
    TraceClamp() { traceClampAlive.store(true, std::memory_order_relaxed); }
    ~TraceClamp() { traceClampAlive.store(false, std::memory_order_relaxed); }
};

constexpr unsigned int kDisableBit = 30;
constexpr unsigned int kNoLinesBit = 1;

DebuggerOn rcTraceLevel("returnCodeTraceLevel", 0xFFFFFFFF, "disable", kDisableBit, "no lines", kNoLinesBit,
                        static_cast<char const*>(nullptr));
TraceClamp rcTraceLevelClamp;
LoggingFlags loggingFlags;

} // namespace

DebuggerOn msgClampDbg("msgClampDbg", 4, "c test (reactive)", "c++ test (reactive)", "flush now (reactive)",
                       "unclamp all");
Clock localClock(false);

namespace {

LogMessageDbg logMessageDbg;

constexpr int kOsWithFunctionNames = 2;

struct Place {
    Place(char const* callerFunction, char const* callerFile) : function(callerFunction), file(callerFile) {
        if (getOsEnv() != kOsWithFunctionNames) {
            function = "function";
            file = lastComponent(callerFile);
        }
    }

    // A backslash separates only where no slash does.
    static char const* lastComponent(char const* path) {
        char const* separator = std::strrchr(path, '/');
        if (separator == nullptr) {
            separator = std::strrchr(path, '\\');
        }
        return separator == nullptr ? path : separator + 1;
    }

    char const* function;
    char const* file;
};

VORLAN_PRINTF(1, 2) void trace(char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    if (traceClampAlive.load(std::memory_order_relaxed)) {
        rcTraceLevelClamp.debugVar(fmt, args);
    } else {
        debugMsgVar(fmt, args);
    }
    va_end(args);
}

struct Formats {
    char const* withLine;
    char const* withoutLine;
};

// The two returns that have no code to show.
void traceReturn(Formats const& formats, char const* function, char const* file, unsigned int line) {
    if (rcTraceLevel.on(kDisableBit)) {
        return;
    }
    Place const place(function, file);
    if (rcTraceLevel.on(kNoLinesBit)) {
        trace(formats.withoutLine, place.function, place.file);
    } else {
        trace(formats.withLine, place.function, place.file, line);
    }
}

} // namespace

extern "C" void logNull(char const* function, char const* file, unsigned int line) {
    traceReturn({"%s returned NULL at %s(%u)\n", "%s returned NULL at %s\n"}, function, file, line);
}

extern "C" void logFalse(char const* function, char const* file, unsigned int line) {
    traceReturn({"%s returned false at %s(%u)\n", "%s returned false at %s\n"}, function, file, line);
}

extern "C" void logError(int code, char const* function, char const* file, unsigned int line) {
    if (rcTraceLevel.on(kDisableBit)) {
        return;
    }
    Place const place(function, file);
    if (rcTraceLevel.on(kNoLinesBit)) {
        trace("%s returned %d at %s\n", place.function, code, place.file);
    } else {
        trace("%s returned %d at %s(%u)\n", place.function, code, place.file, line);
    }
}

extern "C" unsigned int setDbgLogLevel(unsigned int value) {
    unsigned int const before = rcTraceLevel.get();
    rcTraceLevel.setValue(value);
    return before;
}
