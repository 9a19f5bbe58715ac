/* ReturnCodes.h: a trace of calls that failed, from anywhere in the process. C and C++.
 *
 * Each failed return becomes one debug message, "function returned NULL at file.c(12)". All of them share one
 * clamp, so that a storm of failed returns is thinned like a single place that repeats itself. The debug
 * variable "returnCodeTraceLevel" switches the trace off (bit 30, "disable") or leaves the line numbers out
 * (bit 1, "no lines").
 *
 * All may be called from any thread at any time, in constructors and destructors of static objects too;
 * outside the life of the library's own objects the messages go to the debug sink unclamped.
 */
#pragma once

#include "vorlan/foundation/Compiler.h"

#ifdef __cplusplus
extern "C" {
#endif

/* `file` is cut to what stands behind its last separator. `function` is not shown on this platform and may be
 * null. */
VORLAN_API void logNull(char const* function, char const* file, unsigned int line);
VORLAN_API void logFalse(char const* function, char const* file, unsigned int line);
VORLAN_API void logError(int code, char const* function, char const* file, unsigned int line);

/* Sets the whole debug variable and gives its value before. No hook runs. */
VORLAN_API unsigned int setDbgLogLevel(unsigned int value);

#ifdef __cplusplus
}
#endif
