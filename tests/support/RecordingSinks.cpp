#include "tests/support/RecordingSinks.h"

#include "vorlan/foundation/MessageServices.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>

namespace {

using Observer = std::function<void(RecordingSinks::Message const&)>;

struct State {
    std::mutex mutex;
    std::vector<RecordingSinks::Message> messages;
    Observer observer;
    std::atomic<bool> discard{false};
    std::atomic<bool> result{true};
    std::atomic<std::uint32_t> lastFlags{0};
};

// Never destroyed: exit handlers of the program under test may still send.
State& state() {
    static State* s = new State;
    return *s;
}

VORLAN_PRINTF(2, 0) bool record(char const* sink, char const* fmt, va_list args) {
    State& s = state();
    if (s.discard) {
        return true;
    }
    std::array<char, 4096> text{}; // no test sends more
    std::vsnprintf(text.data(), text.size(), fmt, args);
    RecordingSinks::Message const message{sink, text.data()};
    std::unique_lock lock(s.mutex);
    s.messages.push_back(message);
    Observer const observer = s.observer;
    lock.unlock();
    if (observer) {
        observer(message);
    }
    return s.result;
}

} // namespace

std::vector<RecordingSinks::Message> RecordingSinks::take() {
    std::lock_guard const lock(state().mutex);
    return std::exchange(state().messages, {});
}

std::vector<std::string> RecordingSinks::takeLines() {
    std::vector<std::string> lines;
    for (Message const& m : take()) {
        lines.push_back(m.sink + ": " + m.text);
    }
    return lines;
}

void RecordingSinks::setResult(bool result) {
    state().result = result;
}

void RecordingSinks::setDiscard(bool discard) {
    state().discard = discard;
}

void RecordingSinks::setObserver(Observer observer) {
    std::lock_guard const lock(state().mutex);
    state().observer = std::move(observer);
}

std::uint32_t RecordingSinks::lastFlags() {
    return state().lastFlags;
}

void RecordingSinks::reset() {
    setObserver({});
    setResult(true);
    take();
}

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
    state().lastFlags = flags;
    return flags & 3;
}
