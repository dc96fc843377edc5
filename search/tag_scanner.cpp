#include "search/tag_scanner.h"
#include "platform/ascii.h"

#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace corvid {
namespace {

bool IsAsciiLetter(unsigned char c) {
    return (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
}

// Compares the rest of a candidate match; letters fold by setting bit 5, which only ever maps
// an ASCII letter onto its other case.
bool MatchesAt(const char* at, std::string_view pattern) {
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const auto p = static_cast<unsigned char>(pattern[i]);
        const auto c = static_cast<unsigned char>(at[i]);
        if (IsAsciiLetter(p) ? (c | 0x20) != (p | 0x20) : c != p) {
            return false;
        }
    }
    return true;
}

// Sixteen bytes in the compiler's generic vector type, so targets without SIMD get plain code.
using Lanes = unsigned char __attribute__((vector_size(16)));
using LaneFlags = signed char __attribute__((vector_size(16)));

// One bit per lane of a comparison result (lanes are all ones or all zeros), lane 0 lowest.
unsigned LaneMask(LaneFlags flags) {
#if defined(__SSE2__)
    return static_cast<unsigned>(_mm_movemask_epi8(reinterpret_cast<__m128i>(flags)));
#else
    unsigned mask = 0;
    for (int lane = 0; lane < 16; ++lane) {
        mask |= flags[lane] != 0 ? 1u << lane : 0u;
    }
    return mask;
#endif
}

// Finds the n-th occurrence of pattern; kNotFound when there are fewer than n.
std::size_t FindNth(std::string_view text, std::string_view pattern, int n) {
    std::size_t from = 0;
    std::size_t found = kNotFound;
    for (int i = 0; i < (n < 1 ? 1 : n); ++i) {
        const std::size_t at = FindText(text.substr(from), pattern);
        if (at == kNotFound) {
            return kNotFound;
        }
        found = from + at;
        from = found + 1;
    }
    return found;
}

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Skips leading blanks and a sign, as the C library's conversions do.
std::string_view SkipBlanksAndSign(std::string_view text, bool& negative) {
    std::size_t i = 0;
    while (i < text.size() && IsBlank(text[i])) {
        ++i;
    }
    negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    return text.substr(i);
}

} // namespace

std::size_t FindText(std::string_view text, std::string_view pattern) {
    const std::size_t length = pattern.size();
    if (length == 0) {
        return 0;
    }
    if (length > text.size()) {
        return kNotFound;
    }
    const char* const begin = text.data();
    const std::size_t lastStart = text.size() - length;
    const auto first = static_cast<unsigned char>(pattern.front());
    const auto last = static_cast<unsigned char>(pattern.back());
    const unsigned char firstFold = IsAsciiLetter(first) ? 0x20 : 0;
    const unsigned char lastFold = IsAsciiLetter(last) ? 0x20 : 0;
    const unsigned char firstWanted = first | firstFold;
    const unsigned char lastWanted = last | lastFold;

    // Sixteen start positions at a time: a lane is a candidate when both the pattern's first
    // and last characters fit there, and every candidate is then compared in full.
    const Lanes firstFoldAll = Lanes{} + firstFold;
    const Lanes firstWantedAll = Lanes{} + firstWanted;
    const Lanes lastFoldAll = Lanes{} + lastFold;
    const Lanes lastWantedAll = Lanes{} + lastWanted;
    std::size_t at = 0;
    for (; at + sizeof(Lanes) <= lastStart + 1; at += sizeof(Lanes)) {
        Lanes starts;
        Lanes ends;
        std::memcpy(&starts, begin + at, sizeof starts);
        std::memcpy(&ends, begin + at + length - 1, sizeof ends);
        unsigned candidates = LaneMask(((starts | firstFoldAll) == firstWantedAll) &
                                       ((ends | lastFoldAll) == lastWantedAll));
        while (candidates != 0) {
            const std::size_t lane = static_cast<std::size_t>(std::countr_zero(candidates));
            if (MatchesAt(begin + at + lane, pattern)) {
                return at + lane;
            }
            candidates &= candidates - 1;
        }
    }
    for (; at <= lastStart; ++at) {
        if ((static_cast<unsigned char>(begin[at]) | firstFold) == firstWanted &&
            MatchesAt(begin + at, pattern)) {
            return at;
        }
    }
    return kNotFound;
}

std::size_t ReadElement(std::string_view text, std::string_view tag, std::string_view& out, int n) {
    std::string_view openTag;
    return ReadElement(text, tag, out, openTag, n);
}

std::size_t ReadElement(std::string_view text, std::string_view tag, std::string_view& out,
                        std::string_view& openTag, int n) {
    out = {};
    openTag = {};
    if (tag.size() < 2 || tag[0] != '<') {
        return 0;
    }
    // The tag starts with '<', so its '>' is never at 0 and 0 means not found.
    std::string_view open;
    const std::size_t close = ReadOpenTag(text, tag, open, n);
    if (close == 0) {
        return 0;
    }
    // The closing tag is the tag with '/' behind its '<': "</name" or "</name>". Patterns are
    // short, so it is formed on the stack; a tag too long for the buffer cannot be closed.
    char closingTag[128];
    if (tag.size() + 1 > sizeof closingTag) {
        return 0;
    }
    closingTag[0] = '<';
    closingTag[1] = '/';
    std::memcpy(closingTag + 2, tag.data() + 1, tag.size() - 1);
    const std::string_view closing(closingTag, tag.size() + 1);
    const std::size_t bodyStart = close + 1;
    const std::size_t end = FindText(text.substr(bodyStart), closing);
    if (end == kNotFound) {
        return 0;
    }
    out = text.substr(bodyStart, end);
    openTag = open;
    return bodyStart + end + closing.size();
}

std::size_t ReadOpenTag(std::string_view text, std::string_view tag, std::string_view& out, int n) {
    out = {};
    const std::size_t start = FindNth(text, tag, n);
    if (start == kNotFound) {
        return 0;
    }
    const std::size_t close = text.find('>', start);
    if (close == std::string_view::npos) {
        return 0;
    }
    out = text.substr(start, close - start + 1);
    return close;
}

bool ReadAttribute(std::string_view text, std::string_view name, std::string_view& out) {
    out = {};
    const std::size_t at = FindText(text, name);
    if (at == kNotFound) {
        return false;
    }
    const std::size_t equals = text.find('=', at + name.size());
    if (equals == std::string_view::npos) {
        return false;
    }
    const std::size_t open = text.find('"', equals + 1);
    if (open == std::string_view::npos) {
        return false;
    }
    const std::size_t close = text.find('"', open + 1);
    if (close == std::string_view::npos) {
        return false;
    }
    out = text.substr(open + 1, close - open - 1);
    return true;
}

int ParseDecimal(std::string_view text) {
    bool negative = false;
    const std::string_view digits = SkipBlanksAndSign(text, negative);
    // The magnitude is held just above the largest one that matters, so any number of digits
    // saturates instead of overflowing.
    constexpr unsigned long long kCap = 1ull << 31;
    unsigned long long magnitude = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') {
            break;
        }
        magnitude = magnitude * 10 + static_cast<unsigned>(c - '0');
        if (magnitude > kCap) {
            magnitude = kCap + 1;
        }
    }
    if (negative) {
        return magnitude >= kCap ? INT_MIN : -static_cast<int>(magnitude);
    }
    return magnitude > INT_MAX ? INT_MAX : static_cast<int>(magnitude);
}

unsigned ParseHex(std::string_view text) {
    bool negative = false;
    std::string_view digits = SkipBlanksAndSign(text, negative);
    if (digits.size() >= 3 && digits[0] == '0' && (digits[1] | 0x20) == 'x' &&
        HexDigit(digits[2]) >= 0) {
        digits.remove_prefix(2);
    }
    unsigned value = 0;
    for (const char c : digits) {
        const int digit = HexDigit(c);
        if (digit < 0) {
            break;
        }
        value = (value << 4) | static_cast<unsigned>(digit);
    }
    return negative ? 0u - value : value;
}

} // namespace corvid
