#include "vorlan/values/FixedPoint.h"

#include <climits>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <type_traits>

namespace {

using Fixed = FixedPoint<16u>;

constexpr bool holds(Fixed value, long long raw) {
    return value == Fixed::fromRaw(raw);
}

static_assert(sizeof(Fixed) == 8 && std::is_trivially_copyable_v<Fixed>);
static_assert(!std::is_convertible_v<double, Fixed>, "a double may lose digits, and so must be spelled out");
static_assert(Fixed().fractionMask() == 65'535 && FixedPoint<0u>(7).fractionMask() == 0);

static_assert(Fixed(-1.5) < -1 && Fixed(-2) <= -2 && Fixed(1.5) > 1 && Fixed(3) >= 3 && Fixed(0.5) != 0);
static_assert(!(Fixed(3) < 3) && !(Fixed(1) <= -2) && !(Fixed(-2) > 1) && !(Fixed(-2) >= 1) &&
              !(Fixed(3) != 3));

// What doesn't fit becomes the nearest value that does.
static_assert(holds(3, 196'608) && holds((1LL << 47) - 1, LLONG_MAX - 65'535) && holds(1LL << 47, LLONG_MAX));
static_assert(holds(ULLONG_MAX, LLONG_MAX) && holds(-(1LL << 47), LLONG_MIN) && holds(LLONG_MIN, LLONG_MIN));
static_assert(holds(Fixed(0.1), 6'554) && holds(Fixed(0.5 / 65'536), 1) && holds(Fixed(-0.5 / 65'536), -1));
static_assert(holds(Fixed(0.49 / 65'536), 0) && holds(Fixed(1e30), LLONG_MAX) &&
              holds(Fixed(-1e30), LLONG_MIN));

TEST(FixedPoint, NotANumberGivesZero) {
    EXPECT_TRUE(holds(Fixed(std::numeric_limits<double>::quiet_NaN()), 0));
}

// Digits by long division, one at a time.
std::string expectedText(long long whole, unsigned int fraction, unsigned int digits, bool negative) {
    std::string text = (negative ? "-" : "") + std::to_string(whole);
    if (fraction == 0 && digits == 0) {
        return text;
    }
    text += '.';
    for (unsigned int digit = 0; digit < (digits == 0 || digits > 5 ? 5 : digits); ++digit) {
        fraction *= 10;
        text += static_cast<char>('0' + fraction / 65'536);
        fraction %= 65'536;
    }
    return text;
}

// A wrong sign, whole part or digit of any fraction; a value that its double doesn't give back.
TEST(FixedPoint, EveryFractionWordOfBothSignsConvertsExactly) {
    for (unsigned int fraction = 0; fraction < 65'536; ++fraction) {
        long long const whole = fraction % 3 == 0 ? 0 : fraction * 2'147LL;
        for (bool const negative : {false, true}) {
            long long const magnitude = whole * 65'536 + fraction;
            long long const raw = negative ? -magnitude : magnitude;
            Fixed const value = Fixed::fromRaw(raw);
            for (unsigned int const digits : {5U, fraction % 7}) {
                ASSERT_EQ(value.toString(digits).get(), expectedText(whole, fraction, digits, raw < 0))
                    << raw;
            }
            double const exact = static_cast<double>(raw) / 65'536;
            ASSERT_EQ(value.doubleValue(), exact);
            ASSERT_EQ(value.floatValue(), static_cast<float>(exact));
            ASSERT_TRUE(Fixed(exact) == value) << raw;
            ASSERT_EQ(value.int64Value(), negative && fraction != 0 ? -whole - 1 : negative ? -whole : whole);
        }
    }
}

TEST(FixedPoint, TextCutsOffAndTakesFiveDigitsWhereTheCountDoesNotFit) {
    struct Row {
        long long raw;
        unsigned int digits;
        char const* text;
    };
    Row const rows[] = {
        {196'608, 0, "3"},
        {196'608, 3, "3.000"},
        {-131'072, 0, "-2"},
        {-131'072, 2, "-2.00"},
        {98'304, 0, "1.50000"},
        {98'304, 9, "1.50000"},
        {98'304, 2, "1.50"},
        {-98'304, 2, "-1.50"},
        {1, 0, "0.00001"},
        {1, 1, "0.0"},
        {65'535, 5, "0.99998"},
        {65'535, 1, "0.9"},
        {LLONG_MIN, 0, "-140737488355328"},
        {LLONG_MAX, 1, "140737488355327.9"},
    };
    for (Row const& row : rows) {
        EXPECT_STREQ(Fixed::fromRaw(row.raw).toString(row.digits).get(), row.text) << row.raw;
    }
}

} // namespace
