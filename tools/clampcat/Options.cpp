#include "tools/clampcat/Options.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <getopt.h>

namespace Clampcat {

namespace {

constexpr std::size_t kMostShapes = 1'000'000'000;

constexpr char kUsage[] = "Usage: clampcat [OPTION]... [FILE]...\n";

constexpr char kHelp[] =
    "Thins a stream of repeating lines: copies FILEs, or the standard input where none or '-' is\n"
    "named, and lets pass of each kind of line a burst and then a few at growing intervals.\n"
    "Lines are of one kind if they differ only in their numbers.\n"
    "\n"
    "  -s, --shapes=N   remember the N kinds of line seen last (default 10000)\n"
    "  -h, --help       print this and exit\n"
    "  -V, --version    print the version and exit\n"
    "\n"
    "In the output \"[drop...] \" marks the last line before others are held back, and\n"
    "\"[N delayed hh:mm:ss] \" a line held back with N others of its kind over that time.\n"
    "A summary comes last, on the standard error.\n"
    "\n"
    "Example: some-daemon 2>&1 | clampcat\n";

int print(char const* text, char const* more) {
    bool const printed = std::printf("%s%s", text, more) >= 0 && std::fflush(stdout) == 0;
    if (!printed) {
        std::perror("clampcat: standard output");
    }
    return printed ? 0 : 1;
}

int complain() {
    std::fprintf(stderr, "%sTry 'clampcat --help' for more.\n", kUsage);
    return 2;
}

bool readShapes(char const* text, std::size_t& shapes) {
    char const* const end = text + std::strlen(text);
    auto const [rest, error] = std::from_chars(text, end, shapes);
    if (error == std::errc{} && rest == end && shapes >= 1 && shapes <= kMostShapes) {
        return true;
    }
    std::fprintf(stderr, "clampcat: --shapes: '%s' is not a number from 1 to %zu\n", text, kMostShapes);
    return false;
}

} // namespace

Options readOptions(int argc, char* argv[]) {
    static constexpr option kOptions[] = {{"shapes", required_argument, nullptr, 's'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {"version", no_argument, nullptr, 'V'},
                                          {nullptr, 0, nullptr, 0}};
    static char name[] = "clampcat"; // what getopt_long() begins its messages with
    argv[0] = name;
    Options options;
    int letter = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread yet
    while (!options.exitCode && (letter = getopt_long(argc, argv, "s:hV", kOptions, nullptr)) != -1) {
        if (letter == 'h') {
            options.exitCode = print(kUsage, kHelp);
        } else if (letter == 'V') {
            options.exitCode = print("clampcat " CLAMPCAT_VERSION "\n", "");
        } else if (letter != 's' || !readShapes(optarg, options.shapes)) {
            options.exitCode = complain();
        }
    }
    options.files.assign(argv + optind, argv + argc);
    if (options.files.empty()) {
        options.files.emplace_back("-");
    }
    return options;
}

} // namespace Clampcat
