#include "vorlan/diagnostics/RefCount.h"

#include "vorlan/foundation/MessageServices.h"

#include <atomic>

namespace {

char const* wordFor(RefCount::Where where) {
    switch (where) {
    case RefCount::Dtor:
        return "dtor";
    case RefCount::Release:
        return "release";
    }
    return "<unknown>";
}

} // namespace

void RefCount::notifyBadCount(Where where, int count) {
    // 10 down to 0 pass. Nothing is ordered by it, and a lost step costs one report.
    static std::atomic<int> reports{10};
    int const left = reports.load(std::memory_order_relaxed);
    if (left < 0) {
        return;
    }
    reports.store(left - 1, std::memory_order_relaxed);
    errorMsg("RefCount::%s: %d\n", wordFor(where), count);
}
