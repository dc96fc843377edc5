#pragma once

// Small byte-level helpers shared by every reader of text from peers and from disk.

#include <string_view>

namespace corvid {

// The value of one hexadecimal digit in either case, or -1.
inline int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const int folded = c | 0x20;
    return folded >= 'a' && folded <= 'f' ? folded - 'a' + 10 : -1;
}

// The text without the blanks and tabs around it, as HTTP and handshake headers are read.
inline std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace corvid
