// What clampcat is made of, in this process. Time stands still.

#include "tools/clampcat/Output.h"
#include "tools/clampcat/Shape.h"
#include "tools/clampcat/ShapeTable.h"

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using Clampcat::fingerprint;

// Too wide a rule would let unlike lines share one clamp, too narrow a one would let a flood pass.
TEST(Shape, NumbersBecomeOneSign) {
    struct {
        std::string line;
        std::string shape;
    } const rows[] = {
        {"Nov 22 20:31:53 host sshd[4711]: port 22", "Nov # #:#:# host sshd[#]: port #"},
        {"-1.5e3 +10% v1.2.3-rc4 x86_64 12th", "-#.# +#% v#.#.#-rc# x#_# #th"},
        {std::string("a\0001\0 \xc3 \xff", 8), std::string("a\0#\0 \xc3 \xff", 8)},
        // hexadecimal
        {"at 0x7ffe12ab, 0XFF, 0xdead 0x 0xg 0x1g 00x1", "at #, #, # #x #xg #x#g #x#"},
        {"commit 3f2a9cd face DEAD 1a2 f00bar", "commit # face DEAD # f#bar"},
        // chains: a part without a digit is a number there, and nowhere else
        {"550e8400-dead-beef-cafe-446655440000.", "#-#-#-#-#."},
        {"aa:bb:cc:dd 12:bb:cc:dd a:b:c:d:e:f", "aa:bb:cc:dd #:bb:cc:dd a:b:c:d:e:f"},
        {"aa:bb:cc:dd:ee-ff-00 aa:bb:cc:dd:gg:ee:ff", "#:#:#:#:#-ff-# aa:bb:cc:dd:gg:ee:ff"},
        {"2026-11-22T20:31:53.123Z aa:bb:cc:dd:ee:", "#-#-#T#:#:#.#Z #:#:#:#:#:"},
    };
    for (auto const& row : rows) {
        std::string shape(row.line.size(), '\0');
        shape.resize(Clampcat::makeShape(row.line, shape.data()));
        EXPECT_EQ(shape, row.shape) << row.line;
    }
}

// Shapes that differ in one byte, their length or trailing zeros alone must not fall together.
TEST(Shape, FingerprintSeesEveryByteAndTheLength) {
    std::set<std::pair<std::uint64_t, std::uint64_t>> seen;
    for (std::size_t length = 0; length <= 33; ++length) {
        for (std::size_t changed = 0; changed <= length; ++changed) {
            std::string shape(length + 1, '\0');
            shape[changed] = 'x';
            shape.resize(length); // the last one is all zeros
            auto const [high, low] = fingerprint(shape);
            EXPECT_TRUE(seen.emplace(high, low).second) << length << ' ' << changed;
        }
    }
}

struct OutputTest : testing::Test {
    ~OutputTest() override { close(fd); }

    std::string written() const {
        std::string bytes(1000, '\0');
        bytes.resize(static_cast<std::size_t>(pread(fd, bytes.data(), bytes.size(), 0)));
        return bytes;
    }

    int const fd = memfd_create("output", 0);
    Clampcat::Output output{fd};
};

// The flusher may release a line at any moment, in the middle of a long one that comes in parts too.
TEST_F(OutputTest, ReleasedLinesNeverBreakAnOpenLine) {
    output.passed("[drop...] ", "long, ");
    output.released("[0 delayed 00:00:00] a");
    output.goesOn("longer, ");
    output.released("[0 delayed 00:00:00] b\n");
    output.goesOn("longest\n");
    output.goesOn("not this: no line is open");
    EXPECT_EQ(written(), "[drop...] long, longer, longest\n[0 delayed 00:00:00] a\n[0 delayed 00:00:00] b\n");
}

// A count beyond 2^31 would print as a negative number.
TEST_F(OutputTest, SiteIsFlushedBeforeItsCountOverflows) {
    output.receiveMessages();
    Clampcat::ShapeTable table(10, 20);
    for (int i = 1; i <= 39; ++i) {
        table.siteOf(fingerprint("x")).info(Clampcat::Output::kLineFormat, 2, i <= 20 ? "a\n" : "b\n");
    }
    table.flush();
    VorlanPosix::setMessageHandler(nullptr);
    EXPECT_THAT(written(), testing::HasSubstr("\n[drop...] a\n[3 delayed 00:00:00] a\nb\n"));
    EXPECT_THAT(written(), testing::EndsWith("\n[drop...] b\n[2 delayed 00:00:00] b\n"));
}

} // namespace
