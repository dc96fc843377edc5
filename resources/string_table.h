#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace corvid {

struct BuiltinString {
    std::uint32_t id;
    std::string_view text;
};

// Every built-in text in ascending id order: the same texts the Windows module carries as its
// string table, so the portable code and the tests see exactly what LoadString returns.
std::span<const BuiltinString> BuiltinStrings();

// The built-in text of one id, or an empty view when the table has no such id.
std::string_view BuiltinText(std::uint32_t id);

} // namespace corvid
