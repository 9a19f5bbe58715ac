#include "vorlan/diagnostics/System.h"

#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/lifecycle/Subsystem.h"
#include "vorlan/text/FormatStr.h"

#include <atomic>
#include <cstdlib>
#include <ctime>

namespace {

std::atomic<bool> randomInitialized{false};

} // namespace

namespace System {

void msSleep(unsigned int milliseconds) {
    waitMsec(milliseconds);
}

char* copy(char const* text) {
    return FormatStr(128).cat(text).releaseString().forget();
}

int getRandom() {
    if (!randomInitialized.exchange(true)) {
        std::srand(static_cast<unsigned int>(std::time(nullptr)));
    }
    return std::rand(); // NOLINT(concurrency-mt-unsafe): the C library locks its sequence
}

void exit(int status) {
    Subsystem::Registry::shutdownSubsystems();
    std::exit(status); // NOLINT(concurrency-mt-unsafe): ending the process is what this is for
}

} // namespace System
