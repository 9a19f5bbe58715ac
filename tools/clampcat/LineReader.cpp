#include "tools/clampcat/LineReader.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Clampcat {

LineReader::Result LineReader::fill() {
    std::memmove(m_block.data(), m_block.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    m_searched = m_end;
    ssize_t const n = read(m_fd, m_block.data() + m_end, m_block.size() - m_end);
    if (n > 0) {
        m_end += static_cast<std::size_t>(n);
        return Result::Data;
    }
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
        return Result::Interrupted;
    }
    finish();
    return n == 0 ? Result::End : Result::Failed;
}

bool LineReader::next(Line& line) {
    char const* const begin = m_block.data() + m_begin;
    void const* const feed = std::memchr(m_block.data() + m_searched, '\n', m_end - m_searched);
    std::size_t size = m_end - m_begin;
    if (feed != nullptr) {
        size = static_cast<std::size_t>(static_cast<char const*>(feed) - begin) + 1;
    } else if (size == 0 || (size < m_block.size() && !m_atEnd)) {
        return false;
    }
    line = {{begin, size}, !m_inLine};
    m_inLine = feed == nullptr && !m_atEnd;
    m_begin += size;
    m_searched = m_begin;
    return true;
}

} // namespace Clampcat
