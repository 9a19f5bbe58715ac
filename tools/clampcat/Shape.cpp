#include "tools/clampcat/Shape.h"

#include <array>
#include <cstring>
#include <random>

namespace Clampcat {

namespace {

// What a byte can be part of. A word's bits, or-ed, say what kinds of character it has.
constexpr unsigned char kDigit = 1;  // 0 to 9
constexpr unsigned char kHex = 2;    // a to f, A to F
constexpr unsigned char kLetter = 4; // any other ASCII letter

constexpr std::array<unsigned char, 256> makeKinds() {
    std::array<unsigned char, 256> kinds{};
    for (unsigned int c = '0'; c <= '9'; ++c) {
        kinds[c] = kDigit;
    }
    for (unsigned int c = 'a'; c <= 'z'; ++c) {
        kinds[c] = kinds[c - 'a' + 'A'] = c <= 'f' ? kHex : kLetter;
    }
    return kinds;
}

constexpr std::array<unsigned char, 256> kKinds = makeKinds();

constexpr unsigned int kShortestChain = 5; // words; a UUID has five, a MAC address six

unsigned char kindOf(char c) {
    return kKinds[static_cast<unsigned char>(c)];
}

// The end of the word that starts at `at`; `kinds` gets the kinds of its characters.
char const* wordEnd(char const* at, char const* end, unsigned int& kinds) {
    kinds = 0;
    for (; at != end && kindOf(*at) != 0; ++at) {
        kinds |= kindOf(*at);
    }
    return at;
}

// The end of the chain of hexadecimal words that starts at `at`, with its length in `words`.
char const* chainEnd(char const* at, char const* end, unsigned int& words) {
    char const* last = at;
    char separator = 0;
    for (words = 0;;) {
        unsigned int kinds = 0;
        char const* const next = wordEnd(at, end, kinds);
        if (next == at || (next - at) % 2 != 0 || (kinds & kLetter) != 0) {
            return last;
        }
        ++words;
        last = next;
        if (next == end || (*next != '-' && *next != ':') || (separator != 0 && *next != separator)) {
            return last;
        }
        separator = *next;
        at = next + 1;
    }
}

char* replaceDigits(char const* at, char const* end, char* shape) {
    for (bool inNumber = false; at != end; ++at) {
        bool const digit = kindOf(*at) == kDigit;
        if (!digit) {
            *shape++ = *at;
        } else if (!inNumber) {
            *shape++ = '#';
        }
        inNumber = digit;
    }
    return shape;
}

bool isPrefixedHex(char const* at, char const* end) {
    if (end - at < 3 || at[0] != '0' || (at[1] | 0x20) != 'x') {
        return false;
    }
    unsigned int kinds = 0;
    wordEnd(at + 2, end, kinds);
    return (kinds & kLetter) == 0;
}

char* replaceWord(char const* at, char const* end, unsigned int kinds, char* shape) {
    if ((kinds & kDigit) == 0) {
        std::memcpy(shape, at, static_cast<std::size_t>(end - at));
        return shape + (end - at);
    }
    if ((kinds & kLetter) == 0 || isPrefixedHex(at, end)) {
        *shape = '#';
        return shape + 1;
    }
    return replaceDigits(at, end, shape);
}

bool canStartChain(char const* at, char const* next, char const* end, unsigned int kinds) {
    return (kinds & kLetter) == 0 && next != end && (*next == '-' || *next == ':') && (next - at) % 2 == 0;
}

} // namespace

std::size_t makeShape(std::string_view line, char* shape) {
    char* const start = shape;
    char const* at = line.data();
    char const* const end = at + line.size();
    char const* chainLookedAt = at; // up to here no chain starts
    while (at != end) {
        if (kindOf(*at) == 0) {
            *shape++ = *at++;
            continue;
        }
        unsigned int kinds = 0;
        char const* const next = wordEnd(at, end, kinds);
        unsigned int words = 0;
        if (at >= chainLookedAt && canStartChain(at, next, end, kinds)) {
            chainLookedAt = chainEnd(at, end, words);
        }
        if (words < kShortestChain) {
            shape = replaceWord(at, next, kinds, shape);
            at = next;
            continue;
        }
        char const separator = *next;
        for (*shape++ = '#'; words > 1; --words) {
            *shape++ = separator;
            *shape++ = '#';
        }
        at = chainLookedAt;
    }
    return static_cast<std::size_t>(shape - start);
}

namespace {

__extension__ using Wide = unsigned __int128;

// The product of two words, its upper half folded onto its lower: every bit of either reaches all others.
std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    Wide const product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product >> 64) ^ static_cast<std::uint64_t>(product);
}

struct Secret {
    Secret() {
        std::random_device device;
        for (std::uint64_t& word : words) {
            word = (std::uint64_t{device()} << 32 | device()) | 1;
        }
    }
    std::array<std::uint64_t, 4> words{};
};

} // namespace

Fingerprint fingerprint(std::string_view shape) {
    static Secret const secret;
    auto const& s = secret.words;
    std::uint64_t a = s[0] ^ shape.size();
    std::uint64_t b = s[1] ^ shape.size();
    for (;;) {
        std::uint64_t block[2] = {0, 0};
        std::size_t const n = shape.size() < sizeof block ? shape.size() : sizeof block;
        std::memcpy(block, shape.data(), n);
        a = mix(a ^ block[0], s[2] ^ block[1]);
        b = mix(b ^ block[1], s[3] + block[0]);
        if (shape.size() <= sizeof block) {
            return {mix(a, s[1]), mix(b, s[0])};
        }
        shape.remove_prefix(n);
    }
}

} // namespace Clampcat
