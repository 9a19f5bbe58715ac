#include "tests/support/RecordingSinks.h"

#include "vorlan/foundation/MessageServices.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>

namespace {

struct State {
    std::mutex mutex;
    std::vector<RecordingSinks::Message> messages;
    std::function<void(RecordingSinks::Message const&)> observer;
    std::atomic<bool> discard{false};
    bool result = true;
    std::uint32_t knownFlags = 3;
    std::uint32_t lastFlags = 0;
};

// Never destroyed: exit handlers of the program under test may still send.
State& state() {
    static State* s = new State;
    return *s;
}

VORLAN_PRINTF(2, 0) bool record(char const* sink, char const* fmt, va_list args) {
    if (state().discard) {
        return true;
    }
    va_list again;
    va_copy(again, args);
    std::string text(static_cast<std::size_t>(vsnprintf(nullptr, 0, fmt, again)), '\0');
    va_end(again);
    vsnprintf(text.data(), text.size() + 1, fmt, args);

    State& s = state();
    RecordingSinks::Message const message{sink, text, fmt};
    std::function<void(RecordingSinks::Message const&)> observer;
    bool result = false;
    {
        std::lock_guard lock(s.mutex);
        s.messages.push_back(message);
        observer = s.observer;
        result = s.result;
    }
    if (observer) {
        observer(message);
    }
    return result;
}

} // namespace

namespace RecordingSinks {

std::vector<Message> take() {
    std::lock_guard lock(state().mutex);
    return std::exchange(state().messages, {});
}

std::vector<std::string> takeLines() {
    std::vector<std::string> lines;
    for (Message const& m : take()) {
        lines.push_back(m.sink + ": " + m.text);
    }
    return lines;
}

void setResult(bool result) {
    std::lock_guard lock(state().mutex);
    state().result = result;
}

void setDiscard(bool discard) {
    state().discard = discard;
}

void setObserver(std::function<void(Message const&)> observer) {
    std::lock_guard lock(state().mutex);
    state().observer = std::move(observer);
}

void setKnownFlags(std::uint32_t mask) {
    std::lock_guard lock(state().mutex);
    state().knownFlags = mask;
}

std::uint32_t lastFlags() {
    std::lock_guard lock(state().mutex);
    return state().lastFlags;
}

void reset() {
    setObserver({});
    setResult(true);
    setKnownFlags(3);
    take();
}

} // namespace RecordingSinks

#define VORLAN_RECORDING_SINK(name)                                                                          \
    extern "C" bool name(char const* fmt, ...) {                                                             \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        bool const result = record(#name, fmt, args);                                                        \
        va_end(args);                                                                                        \
        return result;                                                                                       \
    }                                                                                                        \
    extern "C" bool name##Var(char const* fmt, va_list args) {                                               \
        return record(#name "Var", fmt, args);                                                               \
    }

VORLAN_RECORDING_SINK(errorMsg)
VORLAN_RECORDING_SINK(infoMsg)
VORLAN_RECORDING_SINK(warningMsg)
VORLAN_RECORDING_SINK(debugMsg)

extern "C" std::uint32_t setLoggingFlags(std::uint32_t flags) {
    std::lock_guard lock(state().mutex);
    state().lastFlags = flags;
    return flags & state().knownFlags;
}
