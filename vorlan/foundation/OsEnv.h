// OsEnv.h: which kind of platform the library was built for.
#pragma once

/// The environment code, always 1 here. Code 2 stands for a platform whose vsnprintf reports an exactly full
/// buffer as a fit and whose traces may show function names; the places that differ ask for it.
inline int getOsEnv() {
    return 1;
}
