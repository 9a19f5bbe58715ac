#include "vorlan/text/AutoPtr.h"

#include <cstddef>
#include <cstring>

namespace {

std::size_t lengthOf(char const* text) {
    return text == nullptr ? 0 : std::strlen(text);
}

AutoPtr<char> join(char const* left, char const* right) {
    std::size_t const leftLength = lengthOf(left);
    std::size_t const rightLength = lengthOf(right);
    char* const block = new char[leftLength + rightLength + 1];
    if (left != nullptr) {
        std::memcpy(block, left, leftLength);
    }
    if (right != nullptr) {
        std::memcpy(block + leftLength, right, rightLength);
    }
    block[leftLength + rightLength] = '\0';
    return AutoPtr<char>(block);
}

} // namespace

AutoPtr<char> operator+(AutoPtr<char> const& left, AutoPtr<char> const& right) {
    return join(left.get(), right.get());
}

AutoPtr<char> operator+(AutoPtr<char> const& left, char const* right) {
    return join(left.get(), right);
}

AutoPtr<char> operator+(char const* left, AutoPtr<char> const& right) {
    return join(left, right.get());
}

AutoPtr<char>& operator+=(AutoPtr<char>& left, AutoPtr<char> const& right) {
    return left = left + right;
}

AutoPtr<char>& operator+=(AutoPtr<char>& left, char const* right) {
    return left = left + right;
}
