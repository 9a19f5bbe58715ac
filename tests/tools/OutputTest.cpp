#include "tools/clampcat/Output.h"

#include <gtest/gtest.h>

#include <array>
#include <sys/mman.h>
#include <unistd.h>

// The flusher may release a line at any moment, in the middle of a long one that comes in parts too.
TEST(Output, ReleasedLinesNeverBreakAnOpenLine) {
    int const fd = memfd_create("output", 0);
    Clampcat::Output output(fd);
    output.passed("[drop...] ", "long, ");
    output.released("[0 delayed 00:00:00] a");
    output.goesOn("longer, ");
    output.released("[0 delayed 00:00:00] b\n");
    output.goesOn("longest\n");
    output.goesOn("not this: no line is open");
    output.released("[0 delayed 00:00:00] c");
    output.passed("", "last");
    output.endLine();
    output.released("[0 delayed 00:00:00] d");
    std::array<char, 1000> bytes{};
    auto const size = static_cast<std::size_t>(pread(fd, bytes.data(), bytes.size(), 0));
    EXPECT_EQ(std::string(bytes.data(), size),
              "[drop...] long, longer, longest\n[0 delayed 00:00:00] a\n[0 delayed 00:00:00] b\n"
              "[0 delayed 00:00:00] c\nlast\n[0 delayed 00:00:00] d\n");
    EXPECT_EQ(output.lines(), 6U);
    close(fd);
}
