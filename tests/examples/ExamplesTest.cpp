#include "tests/support/ChildProcess.h"

#include <gmock/gmock.h>

#include <sstream>
#include <string>

namespace {

// The messages of one site that is flooded with twenty of them.
std::string flood(std::string const& head, std::string const& subject, std::string const& problem) {
    std::string text;
    auto const line = [&](std::string const& prefix, int number) {
        text.append(head).append(prefix).append(subject).append(std::to_string(number)).append(problem) +=
            '\n';
    };
    for (int i = 1; i < 16; ++i) {
        line("", i);
    }
    line("[drop...] ", 16);
    line("[3 delayed 00:00:00] ", 20);
    return text;
}

// glog writes the letter of the severity, and then the time, the thread and the place, which change.
std::string withoutPlaces(std::string const& text) {
    std::istringstream lines(text);
    std::string all;
    for (std::string line; std::getline(lines, line);) {
        std::size_t const place = line.find("glog_sink.cpp:");
        if (place != std::string::npos) {
            line.erase(1, line.find(']', place));
        }
        all += line + "\n";
    }
    return all;
}

struct Row {
    char const* program;
    std::string out;
    std::string err;
};

// An example that no longer does what it shows would mislead everybody who begins with it.
TEST(Examples, PrintWhatTheyShow) {
    Row const rows[] = {
        {"own_messages",
         "<info> twenty times the same warning\n" + flood("<warning> ", "request ", " took too long"), ""},
        {"syslog", "", "pumps: twenty times the same error\n" + flood("pumps: ", "pump ", ": no answer")},
#ifdef HAVE_SPDLOG
        {"spdlog_sink",
         "pumps info: twenty times the same {error}\n" + flood("pumps error: ", "pump ", ": no answer") +
             "pumps warning: that was too much\npumps debug: going home\n",
         ""},
#endif
#ifdef HAVE_GLOG
        {"glog_sink", "",
         "I twenty times the same error\n" + flood("E ", "pump ", ": no answer") +
             "W that was too much\nI going home\n"},
#endif
    };
    for (Row const& row : rows) {
        ChildResult const result = runChild({std::string(EXAMPLES) + row.program});
        EXPECT_EQ(result.exitCode, 0) << row.program;
        EXPECT_EQ(result.out, row.out) << row.program;
        EXPECT_EQ(withoutPlaces(result.err), row.err) << row.program;
    }
}

} // namespace
