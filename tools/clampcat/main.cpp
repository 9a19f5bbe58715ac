// clampcat: thins a stream of repeating lines with one MsgClamp for each kind of line.

#include "tools/clampcat/LineReader.h"
#include "tools/clampcat/Options.h"
#include "tools/clampcat/Output.h"
#include "tools/clampcat/Shape.h"
#include "tools/clampcat/ShapeTable.h"
#include "tools/clampcat/StopSignals.h"

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Clampcat {

namespace {

// All is written. An orderly exit would have the library's threads settle, for 300 ms and for nothing, but
// with VRSSRLOG set somebody wants to see just that.
[[noreturn]] void endNow(int exitCode) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread of this program changes the environment or exits
    if (std::getenv("VRSSRLOG") != nullptr) {
        std::exit(exitCode); // NOLINT(concurrency-mt-unsafe): as above
    }
    _exit(exitCode);
}

// What is wrong with copying from `fd`, or 0.
int unusable(int fd) {
    struct stat in {};
    struct stat out {};
    if (fd < 0 || fstat(fd, &in) != 0) {
        return errno;
    }
    bool const same = fstat(STDOUT_FILENO, &out) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino;
    return same && S_ISREG(in.st_mode) ? EEXIST : 0;
}

class Program {
public:
    explicit Program(Options const& options) : m_options(options), m_sites(options.shapes) {}

    /// Copies all files and ends the process.
    [[noreturn]] void run();

private:
    void copyFile(std::string const& name);
    int copyFrom(int fd);
    void takeLines(LineReader& reader);
    void send(std::string_view line);
    void complain(std::string const& name, int error);

    Options const& m_options;
    Output m_output{STDOUT_FILENO};
    StopSignals m_signals;
    ShapeTable m_sites;
    std::vector<char> m_shape = std::vector<char>(LineReader::kBlock); // room for the shape of any line
    std::uint64_t m_lines = 0;
    int m_exitCode = 0;
};

void Program::run() {
    m_output.receiveMessages();
    for (std::string const& name : m_options.files) {
        if (StopSignals::caught() == 0) {
            copyFile(name);
        }
    }
    m_sites.flush();
    m_output.flush();
    dprintf(STDERR_FILENO, "clampcat: lines in: %" PRIu64 ", lines shown: %" PRIu64 ", shapes: %" PRIu64 "\n",
            m_lines, m_output.lines(), m_sites.shapes());
    if (StopSignals::caught() != 0) {
        StopSignals::endBy(StopSignals::caught());
    }
    endNow(m_exitCode);
}

void Program::copyFile(std::string const& name) {
    bool const isStdin = name == "-";
    int const fd = isStdin ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    int error = unusable(fd);
    if (error == 0) {
        error = copyFrom(fd);
    }
    if (error != 0 && StopSignals::caught() == 0) {
        complain(name, error);
    }
    if (fd >= 0 && !isStdin) {
        close(fd);
    }
}

// Sends all lines on their way. Gives the error that the file was read up to, or 0.
int Program::copyFrom(int fd) {
    LineReader reader(fd);
    auto result = LineReader::Result::Data;
    int error = 0;
    while (result == LineReader::Result::Data || result == LineReader::Result::Interrupted) {
        m_output.flush(); // a line that passed is seen before the wait for more
        m_signals.waitForInput(fd);
        if (StopSignals::caught() != 0) {
            reader.finish();
            result = LineReader::Result::End;
        } else {
            result = reader.fill();
            error = result == LineReader::Result::Failed ? errno : 0;
        }
        takeLines(reader);
    }
    m_output.endLine();
    return error;
}

void Program::takeLines(LineReader& reader) {
    m_output.collect();
    for (Line line; reader.next(line);) {
        if (line.starts) {
            ++m_lines;
            send(line.bytes);
        } else {
            m_output.goesOn(line.bytes);
        }
    }
}

// The line feed is part of the message, but not of the shape: a last line may lack it.
void Program::send(std::string_view line) {
    std::string_view const text = line.substr(0, line.size() - (line.back() == '\n' ? 1 : 0));
    std::size_t const size = makeShape(text, m_shape.data());
    MsgClamp& site = m_sites.siteOf(fingerprint({m_shape.data(), size}));
    site.info(Output::kLineFormat, static_cast<int>(line.size()), line.data());
}

void Program::complain(std::string const& name, int error) {
    std::string const reason =
        error == EEXIST ? "input file is output file" : std::generic_category().message(error);
    dprintf(STDERR_FILENO, "clampcat: %s: %s\n", name.c_str(), reason.c_str());
    m_exitCode = 1;
}

// A file opened later must not get the number of a standard descriptor that was closed: its bytes would be
// read as input or be written over. The one put there instead fails on use, as a closed one does.
void fillClosedDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) < 0) {
            open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY); // takes the lowest free number
        }
    }
}

} // namespace

} // namespace Clampcat

int main(int argc, char* argv[]) {
    try {
        Clampcat::fillClosedDescriptors();
        Clampcat::Options const options = Clampcat::readOptions(argc, argv);
        if (options.exitCode) {
            Clampcat::endNow(*options.exitCode);
        }
        Clampcat::Program(options).run();
    } catch (std::exception const& failure) {
        dprintf(STDERR_FILENO, "clampcat: %s\n", failure.what());
        return 1;
    }
}
