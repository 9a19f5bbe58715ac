/* MsgClampC.h: the clamp's decision and prefix for code that sends its messages itself. C and C++.
 *
 * The caller keeps a cell for the site, null at first, one for each place that can repeat itself:
 *
 *     static MsgClamp* site;
 *     if (!clampedMsg(&site)) {
 *         errorMsg("%sdisk %s is full\n", droppedMsg(&site), name);
 *     }
 *
 * Nothing is held on this way: the log shows how many messages were refused and for how long, but not the
 * newest of them.
 */
#pragma once

#include "vorlan/foundation/Compiler.h"

#include <stdbool.h>

#ifdef __cplusplus
class MsgClamp;
extern "C" {
#else
typedef struct MsgClamp MsgClamp;
#endif

/* Decides on one message: true means refuse. The first call on a cell makes its site, which lives to the end
 * of the process; that first call must not happen on two threads at once. A null cell never refuses. */
VORLAN_API bool clampedMsg(MsgClamp** site);

/* Takes the prefix that waits for the site's next message; the empty string if none does, null for a null or
 * still empty cell. The text is the calling thread's own and stays whole until its next call that finds one.
 */
VORLAN_API char const* droppedMsg(MsgClamp** site);

#ifdef __cplusplus
}
#endif
