// The text commands of the debug variables: any line is answered, and a wrong one changes nothing.

#include "tests/fuzz/Check.h"
#include "vorlan/foundation/DebugServices.h"
#include "vorlan/services/DebugVariables.h"
#include "vorlan/services/Messages.h"

#include <cstdint>
#include <string>
#include <vector>

namespace {

DebuggerOn s_counted("counted", 3, "one", "two", "with blanks in it");
DebuggerOn s_paired("paired", 0xFFFFFFFF, "high", 31U, "low", 0U, nullptr);

std::vector<unsigned int> values() {
    std::vector<unsigned int> all;
    for (auto const& variable : VorlanPosix::DebugVariables::list()) {
        all.push_back(variable.value);
    }
    return all;
}

bool dropMessage(VorlanPosix::MessageKind /*kind*/, char const* /*fmt*/, va_list /*args*/) {
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    VorlanPosix::setMessageHandler(dropMessage); // the library's own variables send some
    std::vector<unsigned int> const before = values();
    std::string const answer =
        VorlanPosix::DebugVariables::command(std::string(reinterpret_cast<char const*>(data), size));
    FUZZ_CHECK(!answer.empty() && answer.back() == '\n');
    FUZZ_CHECK(answer.rfind("error: ", 0) != 0 || values() == before);
    FUZZ_CHECK(VorlanPosix::DebugVariables::command("set counted 6").rfind("error: ", 0) != 0);
    FUZZ_CHECK(s_counted.get() == 6);
    return 0;
}
