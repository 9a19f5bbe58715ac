// Runs the commands of transcript.txt and compares all that they write, and how they end, with what stands
// there.

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace {

std::string run(std::string const& command) {
    ChildResult const r =
        runChild({"sh", "-c", "cd " PROGRAMS " && exec env " + command + " 2>&1"}, {"", {}, {"VRSSRLOG"}});
    std::string out = "$ " + command + "\n" + maskAddresses(r.out);
    for (std::size_t at = out.find(" warning "); at != std::string::npos; at = out.find(" warning ")) {
        out.erase(at - 23, 24); // date and time
    }
    return out +
           (r.signal != 0 ? "signal " + std::to_string(r.signal) : "exit " + std::to_string(r.exitCode)) +
           "\n";
}

TEST(Transcript, IsTrue) {
    std::ifstream file(TRANSCRIPT);
    std::string shown;
    std::string real;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("$ ", 0) == 0) {
            real += run(line.substr(2));
        }
        if (line.rfind('#', 0) != 0) {
            shown += line + "\n";
        }
    }
    EXPECT_FALSE(real.empty());
    EXPECT_EQ(real, shown);
}

} // namespace
