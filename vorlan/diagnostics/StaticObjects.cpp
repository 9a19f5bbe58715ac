// The library's objects at file scope, all in one file, so that they are built in this order whatever the
// order of linking.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/values/Clock.h"

DebuggerOn msgClampDbg("msgClampDbg", 4, "c test (reactive)", "c++ test (reactive)", "flush now (reactive)",
                       "unclamp all");

Clock localClock(false);
