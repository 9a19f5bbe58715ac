#include "vorlan/values/FixedPoint.h"

#include "vorlan/text/FormatStr.h"

AutoPtr<char> FixedPointText::make(std::int64_t raw, unsigned int fractionBits, unsigned int digits) {
    constexpr unsigned int kMostDigits = 5;

    // The magnitude is unsigned: that of the smallest raw word fits no signed one.
    auto const word = static_cast<unsigned long long>(raw);
    unsigned long long const magnitude = raw < 0 ? 0 - word : word;
    unsigned long long const whole = magnitude >> fractionBits;
    unsigned long long fraction = magnitude & ((1ULL << fractionBits) - 1);
    char const* const sign = raw < 0 ? "-" : "";

    FormatStr text(128);
    if (fraction == 0 && digits == 0) {
        text.format("%s%llu", sign, whole);
        return text;
    }
    unsigned int const shown = digits == 0 || digits > kMostDigits ? kMostDigits : digits;
    for (unsigned int digit = 0; digit < shown; ++digit) {
        fraction *= 10;
    }
    text.format("%s%llu.%.*llu", sign, whole, static_cast<int>(shown), fraction >> fractionBits);
    return text;
}
