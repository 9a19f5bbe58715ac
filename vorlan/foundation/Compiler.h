// Compiler.h: the two marks that every public declaration may need: exported, and checked like printf.
#pragma once

/// Makes one symbol visible in the shared library, which hides all others.
#define VORLAN_API __attribute__((visibility("default")))

/// Lets the compiler check a printf-style format against its arguments. Positions count from 1, the object
/// of a member function is position 1; `firstArg` is 0 where the arguments come as a va_list.
#define VORLAN_PRINTF(fmtArg, firstArg) __attribute__((format(printf, fmtArg, firstArg)))
