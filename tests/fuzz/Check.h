// Check.h: how a fuzz target tells that a rule is broken.
#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process, so that the fuzzer keeps the input that led here.
#define FUZZ_CHECK(rule)                                                                                     \
    do {                                                                                                     \
        if (!(rule)) {                                                                                       \
            std::fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #rule);                          \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)
