// System.h: helpers for the process as a whole.
#pragma once

#include "vorlan/foundation/Compiler.h"

namespace System {

/// Blocks the calling thread for the given number of milliseconds.
VORLAN_API void msSleep(unsigned int milliseconds);

/// A copy of the text in a new block, which the caller frees with delete[]. Never null: a null text gives an
/// empty one.
VORLAN_API char* copy(char const* text);

/// A pseudo-random number from the C library's shared sequence, seeded with the time at first use: good for
/// spreading work, not for secrets.
VORLAN_API int getRandom();

/// Stops the subsystems of the process, whatever comes of it, and ends the process with the status; exit
/// handlers and static destructors run as usual. Not from a phase of a subsystem.
[[noreturn]] VORLAN_API void exit(int status);

} // namespace System
