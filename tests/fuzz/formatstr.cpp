// A builder goes through any operations beside a std::string.

#include "vorlan/text/FormatStr.h"
#include "tests/fuzz/Check.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <string>

namespace {

std::string printed(char const* text, int number) {
    return std::string(text) + "|" + std::to_string(number) + "%";
}

void step(FuzzedDataProvider& in, FormatStr& builder, std::string& model) {
    int const operation = in.ConsumeIntegralInRange(0, 6);
    auto const number = in.ConsumeIntegral<std::uint16_t>();
    std::string const piece = in.ConsumeRandomLengthString(300);
    char const* const text = piece.c_str(); // up to its first 0
    switch (operation) {
    case 0:
        builder += text;
        model += text;
        break;
    case 1:
        builder += static_cast<unsigned char>('a' + number % 26);
        model += static_cast<char>('a' + number % 26);
        break;
    case 2:
        builder.format("%s|%d%%", text, number);
        model += printed(text, number);
        break;
    case 3:
        builder.resetString();
        model.clear();
        break;
    case 4:
        builder.allocBuf(number);
        FUZZ_CHECK(builder.getSpace() > number || builder.fastGetUsedBytes() == 0);
        break;
    case 5:
        builder += FormatStr(builder); // doubles the text
        model += model;
        break;
    default:
        FUZZ_CHECK(builder.releaseString().get() == model);
        model.clear();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    FormatStr builder(in.ConsumeIntegralInRange(0U, 300U));
    std::string model;
    while (in.remaining_bytes() > 0 && model.size() < 100'000) {
        step(in, builder, model);
        FUZZ_CHECK(builder.get() == model);
        FUZZ_CHECK(builder.size() == model.size() && builder.empty() == model.empty());
    }
    return 0;
}
