// own_messages: a program that brings the messages service itself. It defines the nine functions below, and
// the library's own are not used: no handler to set, nothing to tell the library.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/foundation/MessageServices.h"

#include <cstdio>

// Every message comes here. It may come from any thread, and while it works every other clamped message of
// the process waits: be quick, and never use a MsgClamp in here. False tells that the message could not be
// delivered.
static bool deliver(char const* kind, char const* fmt, va_list args) {
    char text[512];
    std::vsnprintf(text, sizeof text, fmt, args);
    return std::printf("<%s> %s\n", kind, text) >= 0;
}

bool errorMsgVar(char const* fmt, va_list args) {
    return deliver("error", fmt, args);
}
bool warningMsgVar(char const* fmt, va_list args) {
    return deliver("warning", fmt, args);
}
bool infoMsgVar(char const* fmt, va_list args) {
    return deliver("info", fmt, args);
}
bool debugMsgVar(char const* fmt, va_list args) {
    return deliver("debug", fmt, args);
}

bool errorMsg(char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    bool const delivered = deliver("error", fmt, args);
    va_end(args);
    return delivered;
}
bool warningMsg(char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    bool const delivered = deliver("warning", fmt, args);
    va_end(args);
    return delivered;
}
bool infoMsg(char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    bool const delivered = deliver("info", fmt, args);
    va_end(args);
    return delivered;
}
bool debugMsg(char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    bool const delivered = deliver("debug", fmt, args);
    va_end(args);
    return delivered;
}

// This service shows no thread ids, and says so: it takes none of the flags.
uint32_t setLoggingFlags(uint32_t /*flags*/) {
    return 0;
}

int main() {
    static MsgClamp clamp;
    infoMsg("twenty times the same warning");
    for (int request = 1; request <= 20; ++request) {
        clamp.warning("request %d took too long", request);
    }
    MsgClamp::flushAll();
}
