// LineReader.h: cuts what comes from a file descriptor into lines, in memory of a fixed size.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace Clampcat {

/// A line with its line feed, or a part of one that is longer than the reader's block.
struct Line {
    std::string_view bytes; ///< in the reader's block, until its next fill()
    bool starts = true;     ///< false: the line of the part before goes on
};

/// Reads a file in blocks and gives its lines one by one.
///
/// A line of any length takes no more memory than one block: what does not fit comes in parts. The last line
/// of a file may lack its line feed.
class LineReader {
public:
    static constexpr std::size_t kBlock = 256 * 1024; // bytes

    explicit LineReader(int fd) : m_fd(fd), m_block(kBlock) {}

    enum class Result { Data, End, Interrupted, Failed };

    /// Reads once; next() must have given false before. End and Failed, where errno tells why, are final.
    /// Interrupted: a signal came, or a non-blocking descriptor had nothing.
    Result fill();

    /// No more will be read: next() gives what is left. End and Failed do the same.
    void finish() { m_atEnd = true; }

    /// Gives the next whole line, part of a long one, or at the end whatever is left.
    bool next(Line& line);

private:
    int m_fd;
    std::vector<char> m_block;
    std::size_t m_begin = 0; // what was read and not given yet
    std::size_t m_end = 0;
    std::size_t m_searched = 0; // no line feed before this one
    bool m_atEnd = false;
    bool m_inLine = false; // part of the line that m_begin stands in was given
};

} // namespace Clampcat
