#include "tests/support/ChildProcess.h"

#include <gmock/gmock.h>

#include <string>

// The messages of one site that is flooded with twenty of them, as a regular expression.
static std::string flood(std::string const& head, std::string const& subject, std::string const& problem) {
    std::string text;
    for (int i = 1; i <= 15; ++i) {
        text.append(head).append(subject).append(std::to_string(i)).append(problem).append("\n");
    }
    text += head + "\\[drop\\.\\.\\.] " + subject + "16" + problem + "\n";
    return text + head + "\\[3 delayed 00:00:00] " + subject + "20" + problem + "\n";
}

// An example that no longer does what it shows would mislead everybody who begins with it.
TEST(Examples, PrintWhatTheyShow) {
    // glog writes the letter of the severity, and then the time, the thread and the place, which change.
    [[maybe_unused]] std::string const place = "[^]]* glog_sink.cpp:[0-9]+] ";
    struct {
        char const* program;
        std::string out;
        std::string err{};
    } const rows[] = {
        {"own_messages",
         "<info> twenty times the same warning\n" + flood("<warning> ", "request ", " took too long")},
        {"syslog", "", "pumps: twenty times the same error\n" + flood("pumps: ", "pump ", ": no answer")},
#ifdef HAVE_SPDLOG
        {"spdlog_sink", "pumps info: twenty times the same \\{error}\n" +
                            flood("pumps error: ", "pump ", ": no answer") +
                            "pumps warning: that was too much\npumps debug: going home\n"},
#endif
#ifdef HAVE_GLOG
        {"glog_sink", "",
         "I" + place + "twenty times the same error\n" + flood("E" + place, "pump ", ": no answer") + "W" +
             place + "that was too much\nI" + place + "going home\n"},
#endif
    };
    for (auto const& row : rows) {
        ChildResult const result = runChild({std::string(EXAMPLES) + row.program});
        EXPECT_EQ(result.exitCode, 0) << row.program;
        EXPECT_THAT(result.out, testing::MatchesRegex(row.out)) << row.program;
        EXPECT_THAT(result.err, testing::MatchesRegex(row.err)) << row.program;
    }
}
