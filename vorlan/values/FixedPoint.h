// FixedPoint.h: a signed value with a fixed number of fraction bits.
#pragma once

#include "vorlan/foundation/Compiler.h"
#include "vorlan/text/AutoPtr.h"

#include <cstdint>
#include <limits>
#include <type_traits>

namespace FixedPointText {

/// The text of `raw` / 2^fractionBits, as FixedPoint::toString() gives it.
VORLAN_API AutoPtr<char> make(std::int64_t raw, unsigned int fractionBits, unsigned int digits);

} // namespace FixedPointText

/// A value as a count of 2^-FractionBits, in 64 bits: FixedPoint<16u> holds 1.5 as the raw word 98304.
///
/// It converts and compares; arithmetic is left to the integers and doubles that it converts to. What doesn't
/// fit becomes the nearest value that does.
/// Threading: a plain value.
template <unsigned int FractionBits>
class FixedPoint {
    // toString() multiplies the fraction by 100000 in 64 bits.
    static_assert(FractionBits <= 46, "FixedPoint has up to 46 fraction bits");

public:
    constexpr FixedPoint() = default;

    /// A whole number; the nearest that fits if it doesn't.
    template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer>>>
    constexpr FixedPoint(Integer value);

    /// Rounds to the nearest value, a half away from zero; not-a-number gives 0.
    explicit constexpr FixedPoint(double value);

    /// The value raw / 2^FractionBits.
    static constexpr FixedPoint fromRaw(long long raw);

    /// The whole part, rounded toward minus infinity: -2 for -1.5.
    constexpr long long int64Value() const { return m_raw >> FractionBits; }

    /// The mask of the raw word's fraction bits. They count upward from int64Value(), below zero too.
    constexpr long long fractionMask() const { return (1LL << FractionBits) - 1; }

    /// The value, rounded to what the type can hold.
    constexpr double doubleValue() const;
    constexpr float floatValue() const { return static_cast<float>(doubleValue()); }

    /// The value in decimal with up to 5 digits behind the point, cut off and not rounded: "-1.50". With 0
    /// digits a whole number has no point; every other digit count of 0 or above 5 means 5.
    AutoPtr<char> toString(unsigned int digits) const {
        return FixedPointText::make(m_raw, FractionBits, digits);
    }

    /// In the order of the values.
    friend constexpr bool operator==(FixedPoint left, FixedPoint right) { return left.m_raw == right.m_raw; }
    friend constexpr bool operator!=(FixedPoint left, FixedPoint right) { return left.m_raw != right.m_raw; }
    friend constexpr bool operator<(FixedPoint left, FixedPoint right) { return left.m_raw < right.m_raw; }
    friend constexpr bool operator<=(FixedPoint left, FixedPoint right) { return left.m_raw <= right.m_raw; }
    friend constexpr bool operator>(FixedPoint left, FixedPoint right) { return left.m_raw > right.m_raw; }
    friend constexpr bool operator>=(FixedPoint left, FixedPoint right) { return left.m_raw >= right.m_raw; }

private:
    static constexpr long long kOne = 1LL << FractionBits;
    static constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
    static constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();

    std::int64_t m_raw = 0; // the value times 2^FractionBits
};

template <unsigned int FractionBits>
template <class Integer, class>
constexpr FixedPoint<FractionBits>::FixedPoint(Integer value) {
    if (value > 0 &&
        static_cast<unsigned long long>(value) > static_cast<unsigned long long>(kLargest / kOne)) {
        m_raw = kLargest;
    } else if (static_cast<long long>(value) < kSmallest / kOne) {
        m_raw = kSmallest;
    } else {
        m_raw = static_cast<long long>(value) * kOne;
    }
}

template <unsigned int FractionBits>
constexpr FixedPoint<FractionBits>::FixedPoint(double value) {
    double const scaled = value * static_cast<double>(kOne);
    double const limit = -static_cast<double>(kSmallest); // 2^63, the first that doesn't fit
    if (scaled >= limit) {
        m_raw = kLargest;
    } else if (scaled < -limit) {
        m_raw = kSmallest;
    } else if (scaled >= -limit) { // not-a-number passes none of the three
        m_raw = static_cast<std::int64_t>(scaled);
        double const rest = scaled - static_cast<double>(m_raw);
        if (rest >= 0.5) {
            ++m_raw;
        } else if (rest <= -0.5) {
            --m_raw;
        }
    }
}

template <unsigned int FractionBits>
constexpr FixedPoint<FractionBits> FixedPoint<FractionBits>::fromRaw(long long raw) {
    FixedPoint result;
    result.m_raw = raw;
    return result;
}

template <unsigned int FractionBits>
constexpr double FixedPoint<FractionBits>::doubleValue() const {
    double const fraction = static_cast<double>(m_raw & fractionMask());
    return fraction / static_cast<double>(kOne) + static_cast<double>(int64Value());
}
