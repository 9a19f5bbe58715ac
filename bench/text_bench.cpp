// Building the text that describes a lifecycle participant in seven pieces, its name, its owner and five
// phases: FormatStr against std::string with snprintf.

#include "vorlan/text/FormatStr.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <string>

namespace {

struct Phase {
    char const* fmt;
    int anchor; // only its address counts
    int priority;
};

// The formats stand in a table, where the compiler can't work on them ahead of the run.
struct Participant {
    char const* name = "msg clamp";
    std::array<Phase, 5> phases{{{"{init=%p,p=%i}", 0, 100},
                                 {"{signalShutdown=%p,p=%i}", 0, 100},
                                 {"{checkFinished=%p,p=%i}", 0, 100},
                                 {"{stopThreads=%p,p=%i}", 0, 100},
                                 {"{releaseMem=%p,p=%i}", 0, 100}}};
};

AutoPtr<char> describeWithFormatStr(Participant const& p) {
    FormatStr text(128);
    text.cat(p.name).format("(%p)", static_cast<void const*>(&p));
    for (Phase const& phase : p.phases) {
        text.format(phase.fmt, static_cast<void const*>(&phase.anchor), phase.priority);
    }
    return text.releaseString();
}

// The quickest way with std::string: one buffer that is known to hold each piece.
std::string describeWithString(Participant const& p) {
    std::array<char, 128> piece; // NOLINT(*-member-init): snprintf writes what is read
    std::string text(p.name);
    auto const append = [&](int length) { text.append(piece.data(), static_cast<std::size_t>(length)); };
    append(std::snprintf(piece.data(), piece.size(), "(%p)", static_cast<void const*>(&p)));
    for (Phase const& phase : p.phases) {
        append(std::snprintf(piece.data(), piece.size(), phase.fmt, static_cast<void const*>(&phase.anchor),
                             phase.priority));
    }
    return text;
}

void formatStr(benchmark::State& state) {
    Participant participant;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(participant);
        benchmark::DoNotOptimize(describeWithFormatStr(participant).get());
    }
}
BENCHMARK(formatStr);

void string(benchmark::State& state) {
    Participant participant;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(participant);
        benchmark::DoNotOptimize(describeWithString(participant).c_str());
    }
}
BENCHMARK(string);

} // namespace
