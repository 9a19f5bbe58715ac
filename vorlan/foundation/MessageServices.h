/* MessageServices.h: the sinks that take the library's messages, and the flags of their format. C and C++.
 *
 * A host may bring its own by defining these nine functions. A sink may be called from any thread and while
 * the lock of the clamp system is held: it must not use a MsgClamp, and while it works every other clamped
 * message of the process waits.
 */
#pragma once

#include "vorlan/foundation/Compiler.h"

#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Each takes a printf format with its arguments and gives false if the message could not be delivered. */
VORLAN_API bool errorMsg(char const* fmt, ...) VORLAN_PRINTF(1, 2);
VORLAN_API bool infoMsg(char const* fmt, ...) VORLAN_PRINTF(1, 2);
VORLAN_API bool warningMsg(char const* fmt, ...) VORLAN_PRINTF(1, 2);
VORLAN_API bool debugMsg(char const* fmt, ...) VORLAN_PRINTF(1, 2);

/* The same with the arguments as a list, which is used up. */
VORLAN_API bool errorMsgVar(char const* fmt, va_list args) VORLAN_PRINTF(1, 0);
VORLAN_API bool infoMsgVar(char const* fmt, va_list args) VORLAN_PRINTF(1, 0);
VORLAN_API bool warningMsgVar(char const* fmt, va_list args) VORLAN_PRINTF(1, 0);
VORLAN_API bool debugMsgVar(char const* fmt, va_list args) VORLAN_PRINTF(1, 0);

/* Bit 0: the thread's id in error, warning and debug messages; bit 1: in info messages. Gives the flags that
 * it took; bits that it does not know are left out. */
VORLAN_API uint32_t setLoggingFlags(uint32_t flags);

#ifdef __cplusplus
}
#endif
