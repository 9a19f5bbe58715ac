#include "vorlan/values/FixedPoint.h"

#include <algorithm>
#include <climits>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <string>
#include <type_traits>

namespace {

using Fixed = FixedPoint<16u>;

static_assert(sizeof(Fixed) == 8 && std::is_trivially_copyable_v<Fixed>);
static_assert(Fixed(3) == Fixed::fromRaw(196'608) && Fixed(-2) < -1 && Fixed(1.5) > 1);
static_assert(Fixed::fromRaw(-98'304).doubleValue() == -1.5 &&
              Fixed::fromRaw(-16'384).doubleValue() == -0.25);
static_assert(Fixed(0.5).floatValue() == 0.5F && Fixed(-1.5).int64Value() == -2);
static_assert(Fixed().fractionMask() == 65'535 && FixedPoint<0u>(7).fractionMask() == 0);
static_assert(!std::is_convertible_v<double, Fixed>, "a double may lose digits, and so must be spelled out");

std::string textOf(Fixed value, unsigned int digits) {
    return value.toString(digits).get();
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
                ASSERT_EQ(textOf(value, digits), expectedText(whole, fraction, digits, raw < 0)) << raw;
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
        {98'304, 2, "1.50"},
        {98'304, 9, "1.50000"},
        {1, 0, "0.00001"},
        {1, 1, "0.0"},
        {65'535, 5, "0.99998"},
        {65'535, 1, "0.9"},
        {-98'304, 2, "-1.50"},
        {-16'384, 0, "-0.25000"},
        {-65'535, 4, "-0.9999"},
        {LLONG_MIN, 0, "-140737488355328"},
        {LLONG_MIN + 1, 5, "-140737488355327.99998"},
        {LLONG_MAX, 1, "140737488355327.9"},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(textOf(Fixed::fromRaw(row.raw), row.digits), row.text) << row.raw;
    }
}

TEST(FixedPoint, TheNearestValueStandsForOneThatDoesNotFit) {
    double const half = 0.5 / 65'536;
    double const infinity = std::numeric_limits<double>::infinity();
    struct Row {
        Fixed value;
        long long raw;
    };
    Row const rows[] = {
        {Fixed(half), 1},
        {Fixed(-half), -1},
        {Fixed(half * 0.999), 0},
        {Fixed(0.1), 6'554},
        {Fixed(1e30), LLONG_MAX},
        {Fixed(-infinity), LLONG_MIN},
        {Fixed(std::numeric_limits<double>::quiet_NaN()), 0},
        {Fixed(-140'737'488'355'328.0), LLONG_MIN},
        {Fixed((1LL << 47) - 1), ((1LL << 47) - 1) * 65'536},
        {Fixed(1LL << 47), LLONG_MAX},
        {Fixed(ULLONG_MAX), LLONG_MAX},
        {Fixed(-(1LL << 47)), LLONG_MIN},
        {Fixed(LLONG_MIN), LLONG_MIN},
    };
    for (Row const& row : rows) {
        EXPECT_TRUE(row.value == Fixed::fromRaw(row.raw)) << textOf(row.value, 5) << " for " << row.raw;
    }
}

TEST(FixedPoint, ComparesByValue) {
    long long const raws[] = {LLONG_MIN, -98'304, -1, 0, 1, 65'536, LLONG_MAX};
    for (long long const left : raws) {
        for (long long const right : raws) {
            Fixed const a = Fixed::fromRaw(left);
            Fixed const b = Fixed::fromRaw(right);
            bool const given[] = {a == b, a != b, a<b, a <= b, a> b, a >= b};
            bool const wanted[] = {left == right, left != right, left<right, left <= right, left> right,
                                   left >= right};
            EXPECT_TRUE(std::equal(std::begin(given), std::end(given), wanted)) << left << " and " << right;
        }
    }
}

} // namespace
