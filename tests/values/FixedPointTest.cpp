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
static_assert(!(Fixed(3) < 3 || Fixed(1) <= -2 || Fixed(-2) > 1 || Fixed(-2) >= 1 || Fixed(3) != 3));

// What doesn't fit becomes the nearest value that does.
static_assert(holds(3, 196'608) && holds((1LL << 47) - 1, LLONG_MAX - 65'535) && holds(1LL << 47, LLONG_MAX));
static_assert(holds(ULLONG_MAX, LLONG_MAX) && holds(-(1LL << 47), LLONG_MIN) && holds(LLONG_MIN, LLONG_MIN));
static_assert(holds(Fixed(0.49 / 65'536), 0) && holds(Fixed(0.5 / 65'536), 1) &&
              holds(Fixed(-0.5 / 65'536), -1));
static_assert(holds(Fixed(1e30), LLONG_MAX) && holds(Fixed(-1e30), LLONG_MIN));

std::string textOf(long long raw, unsigned int digits) {
    return Fixed::fromRaw(raw).toString(digits).get();
}

// A wrong sign, whole part or digit of any fraction; a value that its double doesn't give back.
TEST(FixedPoint, EveryFractionWordOfBothSignsConvertsExactly) {
    for (long long fraction = 0; fraction < 65'536; ++fraction) {
        // 65536ths as whole 10^-16ths: a 1, and behind it all digits of the fraction.
        std::string const decimals = std::to_string(10'000'000'000'000'000 + fraction * 152'587'890'625);
        long long const whole = fraction % 3 == 0 ? 0 : fraction * 2'147;
        for (int const sign : {1, -1}) {
            long long const raw = sign * (whole * 65'536 + fraction);
            std::string const text = (raw < 0 ? "-" : "") + std::to_string(whole) + '.' + decimals.substr(1);
            Fixed const value = Fixed::fromRaw(raw);
            auto const digits = static_cast<unsigned int>(sign > 0 ? 5 : 1 + fraction % 5);
            ASSERT_EQ(textOf(raw, digits), text.substr(0, text.find('.') + 1 + digits)) << raw;
            double const exact = static_cast<double>(raw) / 65'536;
            ASSERT_EQ(value.doubleValue(), exact);
            ASSERT_EQ(value.floatValue(), static_cast<float>(exact));
            ASSERT_TRUE(Fixed(exact) == value) << raw;
            ASSERT_EQ(value.int64Value(), sign < 0 && fraction != 0 ? -whole - 1 : sign * whole) << raw;
        }
    }
    EXPECT_TRUE(holds(Fixed(std::numeric_limits<double>::quiet_NaN()), 0));
}

TEST(FixedPoint, TextTakesFiveDigitsWhereTheCountDoesNotFit) {
    EXPECT_EQ(textOf(196'608, 0), "3");
    EXPECT_EQ(textOf(-131'072, 0), "-2");
    EXPECT_EQ(textOf(98'304, 0), "1.50000");
    EXPECT_EQ(textOf(-98'304, 6), "-1.50000");
    EXPECT_EQ(textOf(LLONG_MIN, 0), "-140737488355328");
    EXPECT_EQ(textOf(LLONG_MAX, 1), "140737488355327.9");
}

} // namespace
