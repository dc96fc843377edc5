#include "resources/string_table.h"

#include <algorithm>

namespace corvid {
namespace {

constexpr BuiltinString kStrings[] = {
#define CORVID_STRING(id, text) {id, text},
#include "resources/strings.inc"
#undef CORVID_STRING
};

constexpr bool IdsAscending() {
    for (std::size_t i = 1; i < std::size(kStrings); ++i) {
        if (kStrings[i - 1].id >= kStrings[i].id) {
            return false;
        }
    }
    return true;
}
static_assert(IdsAscending(), "strings.inc must list each id once, in ascending order");

} // namespace

std::span<const BuiltinString> BuiltinStrings() {
    return kStrings;
}

std::string_view BuiltinText(std::uint32_t id) {
    auto it =
        std::lower_bound(std::begin(kStrings), std::end(kStrings), id,
                         [](const BuiltinString& s, std::uint32_t key) { return s.id < key; });
    return it != std::end(kStrings) && it->id == id ? it->text : std::string_view{};
}

} // namespace corvid
