// Shape.h: what two lines have in common when only their numbers differ.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Clampcat {

/// Writes the shape of a line to `shape`, which has room for line.size() bytes, and gives its length.
///
/// A word is a run of ASCII letters and digits. In a shape one '#' stands for
///   - a word that is a hexadecimal number: "0x" and hexadecimal digits, or hexadecimal digits of which at
///     least one is decimal ("3f2a9c", but neither "dead" nor "face");
///   - each word of a chain of five or more, all of an even number of hexadecimal digits and joined by one
///     and the same '-' or ':': a MAC address or a UUID is a number even where a part has letters alone;
///   - each run of decimal digits in any other word ("eth12" and "eth3" give "eth#").
/// Everything else stays, byte for byte.
std::size_t makeShape(std::string_view line, char* shape);

/// Stands for a shape in a table. Two shapes among a billion share one with a chance of about 10^-21, and
/// nobody can look for such a pair beforehand: each process seeds the calculation with a secret of its own.
struct Fingerprint {
    std::uint64_t high = 0;
    std::uint64_t low = 0;

    friend bool operator==(Fingerprint a, Fingerprint b) { return a.high == b.high && a.low == b.low; }
};

Fingerprint fingerprint(std::string_view shape);

} // namespace Clampcat
