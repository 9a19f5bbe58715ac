// RecordingSinks.h: message sinks that keep what they are given.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Replaces the nine message functions of the program that links it. Safe from any thread.
namespace RecordingSinks {

/// One message: the name of the sink that got it and its formatted text.
struct Message {
    std::string sink;
    std::string text;
};

/// Gives the messages since the last call, oldest first, and forgets them.
std::vector<Message> take();

/// The same as lines "sink: text", for comparing whole logs.
std::vector<std::string> takeLines();

/// What every sink gives back from now on; true at the start.
void setResult(bool result);

/// While set, messages are taken and forgotten, without a format and without an allocation.
void setDiscard(bool discard);

/// Called with each message inside the sink, after it was recorded; empty for none.
void setObserver(std::function<void(Message const&)> observer);

/// The flags that setLoggingFlags() got last; it takes the lowest two.
std::uint32_t lastFlags();

/// Forgets the messages, the observer and the settings.
void reset();

} // namespace RecordingSinks
