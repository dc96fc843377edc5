#pragma once

// The flat scanner every engine text is read with (search results, host lists, upload lists).
// It builds no tree: it looks for tag names in a fixed order, each search starting where the
// previous one ended. Tag and attribute names match whatever their case; only double quotes
// delimit attribute values. The text is the view handed in: nothing is read outside it, and a
// NUL inside it is an ordinary byte (callers that start from C text cut the view at the NUL).

#include <cstddef>
#include <string_view>

namespace corvid {

inline constexpr std::size_t kNotFound = std::string_view::npos;

// Position of the first occurrence of pattern in text, ASCII letters compared without regard to
// case and every other byte exactly; kNotFound when it does not occur. An empty pattern is found
// at 0.
std::size_t FindText(std::string_view text, std::string_view pattern);

// tag is "<name" (without its closing bracket) or "<name>" (with it). Finds the n-th occurrence
// of tag, the next '>' from there, and then the closing tag ("</name" or "</name>") after that
// '>'. out is the text between the '>' and the closing tag, a view into text. Returns the
// distance from the start of text to the end of the closing tag, so the caller can go on behind
// it; 0 (out empty) when the tag, the '>' or the closing tag is missing.
std::size_t ReadElement(std::string_view text, std::string_view tag, std::string_view& out,
                        int n = 1);

// The same, also setting openTag to what ReadOpenTag(text, tag, openTag, n) would give, so the
// reader of an element and its attributes scans the tag once. openTag is empty when 0 is
// returned.
std::size_t ReadElement(std::string_view text, std::string_view tag, std::string_view& out,
                        std::string_view& openTag, int n = 1);

// Finds the n-th occurrence of tag and sets out to it up to and including the next '>'. Returns
// the distance from the start of text to that '>', or 0 (out empty) when either is missing.
std::size_t ReadOpenTag(std::string_view text, std::string_view tag, std::string_view& out,
                        int n = 1);

// Finds name, then the next '=', then a '"' and the next '"' after it; out is what lies between
// the two quotes. Returns false (out empty) when any of them is missing.
bool ReadAttribute(std::string_view text, std::string_view name, std::string_view& out);

// Numbers as the engine's texts hold them. ParseDecimal reads like atoi: leading blanks, a sign,
// the leading decimal digits (0 when there are none), saturating at the 32-bit limits.
// ParseHex reads like sscanf "%x": leading blanks, a sign, an optional "0x", the leading hex
// digits; 0 when there are none. Digits beyond 32 bits keep the low 32 bits.
int ParseDecimal(std::string_view text);
unsigned ParseHex(std::string_view text);

} // namespace corvid
