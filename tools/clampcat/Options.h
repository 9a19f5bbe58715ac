// Options.h: the words after `clampcat`.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Clampcat {

struct Options {
    std::size_t shapes = 10'000;
    std::vector<std::string> files; ///< "-" is the standard input; never empty
    std::optional<int> exitCode;    ///< all was said already, end with this one
};

/// Reads the words of a command line, argv[0] left out of account. Prints the help or the version, and for a
/// mistake what is wrong with the usage.
Options readOptions(int argc, char* argv[]);

} // namespace Clampcat
