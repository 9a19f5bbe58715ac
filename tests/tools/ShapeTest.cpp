#include "tools/clampcat/Shape.h"

#include "tests/support/RecordingSinks.h"
#include "tests/support/VirtualTime.h"
#include "tools/clampcat/ShapeTable.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using Clampcat::fingerprint;
using testing::ElementsAre;

std::string shapeOf(std::string const& line) {
    std::string shape(line.size(), '\0');
    shape.resize(Clampcat::makeShape(line, shape.data()));
    return shape;
}

struct ShapeRow {
    char const* line;
    char const* shape;
};

// Too wide a rule would let unlike lines share one clamp, too narrow a one would let a flood pass.
TEST(Shape, NumbersBecomeOneSign) {
    ShapeRow const rows[] = {
        {"", ""},
        {"plain text, no number", "plain text, no number"},
        {"7", "#"},
        {"Nov 22 20:31:53 host sshd[4711]: port 22", "Nov # #:#:# host sshd[#]: port #"},
        {"-1.5e3 +10%", "-#.# +#%"},
        {"eth12 is up, v1.2.3-rc4", "eth# is up, v#.#.#-rc#"},
        {"x86_64 12th 3rd", "x#_# #th #rd"},
        // hexadecimal
        {"at 0x7ffe12ab, 0XFF, 0xdead", "at #, #, #"},
        {"0x 0xg 0x1g 00x1", "#x #xg #x#g #x#"},
        {"commit 3f2a9cd face dead 1a2", "commit # face dead #"},
        {"DEADBEEF 0DEAD dead_1beef", "DEADBEEF # dead_#"},
        {"f00bar f00ba", "f#bar #"},
        // chains: a part without a digit is a number there, and nowhere else
        {"from aa:bb:cc:dd:ee:ff via", "from #:#:#:#:#:# via"},
        {"550e8400-dead-beef-cafe-446655440000.", "#-#-#-#-#."},
        {"aa:bb:cc:dd 12:bb:cc:dd", "aa:bb:cc:dd #:bb:cc:dd"},
        {"aa:bb:cc:dd:ee-ff-00", "#:#:#:#:#-ff-#"},
        {"a:b:c:d:e:f", "a:b:c:d:e:f"},
        {"aa:bb:cc:dd:gg:ee:ff", "aa:bb:cc:dd:gg:ee:ff"},
        {"aa:bb:cc:dd:ee:", "#:#:#:#:#:"},
        {"2026-11-22T20:31:53.123Z", "#-#-#T#:#:#.#Z"},
        // no ASCII: never part of a word
        {"\xc3\xa9"
         "12\xff"
         "3",
         "\xc3\xa9#\xff#"},
    };
    for (ShapeRow const& row : rows) {
        EXPECT_EQ(shapeOf(row.line), row.shape) << row.line;
    }
    EXPECT_EQ(shapeOf(std::string("a\0001\0", 4)), std::string("a\0#\0", 4));
}

// Shapes that differ in their last byte, their length or trailing zeros alone must not fall together.
TEST(Shape, FingerprintSeesEveryByteAndTheLength) {
    std::vector<std::string> shapes;
    for (std::size_t length : {0U, 1U, 7U, 8U, 15U, 16U, 17U, 31U, 32U, 33U, 100U}) {
        shapes.emplace_back(length, '\0');
        for (std::size_t changed = 0; changed < length; ++changed) {
            shapes.emplace_back(length, '\0');
            shapes.back()[changed] = 'x';
        }
    }
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        for (std::size_t k = 0; k <= i; ++k) {
            EXPECT_EQ(fingerprint(shapes[i]) == fingerprint(shapes[k]), i == k) << i << ' ' << k;
        }
    }
}

// A count beyond 2^31 would print as a negative number.
TEST(ShapeTable, FlushesASiteBeforeItsCountOverflows) {
    VirtualTime::reset();
    RecordingSinks::reset();
    {
        Clampcat::ShapeTable table(10, 20);
        for (int i = 1; i <= 39; ++i) {
            table.siteOf(fingerprint("x")).info("%d", i);
        }
        table.flush();
    }
    std::vector<std::string> lines = RecordingSinks::takeLines();
    ASSERT_EQ(lines.size(), 16U + 1 + 16 + 1);
    EXPECT_THAT(
        std::vector(lines.begin() + 15, lines.begin() + 18),
        ElementsAre("infoMsgVar: [drop...] 16", "infoMsg: [3 delayed 00:00:00] 20", "infoMsgVar: 21"));
    EXPECT_EQ(lines.back(), "infoMsg: [2 delayed 00:00:00] 39");
}

} // namespace
