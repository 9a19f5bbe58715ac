// The store here comes before the variable is built, which is in the next source to be linked.

#include "vorlan/foundation/DebugServices.h"

extern DebuggerOn farVariable;
[[maybe_unused]] static bool const s_early = (farVariable.setValue(0x51), true);
