// The shape of any line: no digit is left, nothing but words is touched, and it fits the line's own length.

#include "tools/clampcat/Shape.h"
#include "tests/fuzz/Check.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace {

// What lies between the words; the signs that stand for numbers left out.
std::string between(std::string_view text) {
    std::string all;
    std::copy_if(text.begin(), text.end(), std::back_inserter(all),
                 [](char c) { return c != '#' && std::isalnum(static_cast<unsigned char>(c)) == 0; });
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const line(reinterpret_cast<char const*>(data), size);
    char* const block = new char[size]; // of just this size, so that one byte too many is seen
    std::string const shape(block, Clampcat::makeShape(line, block));
    delete[] block;
    FUZZ_CHECK(std::none_of(shape.begin(), shape.end(), [](char c) { return c >= '0' && c <= '9'; }));
    FUZZ_CHECK(between(line) == between(shape));
    return 0;
}
