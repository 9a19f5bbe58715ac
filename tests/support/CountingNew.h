// CountingNew.h: counts what the calling thread allocates.
#pragma once

#include <cstddef>

/// Replaces the global operator new of the program that links it, in its single and its array form.
namespace CountingNew {

/// Allocations of the calling thread so far.
int count();

/// The size in bytes of the calling thread's last allocation.
std::size_t lastSize();

} // namespace CountingNew
