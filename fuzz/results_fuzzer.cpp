// Engine result texts come from remote peers: read them into a small store, then render every
// cell of every row the list could show.

#include "search/result_cells.h"
#include "search/search_result_reader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    corvid::ResultStore store(64);
    const corvid::ReadCount accepted = corvid::ReadSearchResult(store, text);
    // A second reading of the same text only adds sources the first one did not have.
    const corvid::ReadCount again = corvid::ReadSearchResult(store, text);
    if (!accepted || !again || store.Count() > 64 ||
        store.Groups().size() != static_cast<std::size_t>(store.Count())) {
        std::abort();
    }

    int handed = 0;
    const corvid::ReadCount files =
        corvid::ReadResultFiles(text, [&](corvid::ParsedResult&) { ++handed; });
    if (!files || files.value() != handed || accepted.value() > handed) {
        std::abort();
    }

    std::array<char, 32> cell{};
    for (const auto& group : store.Groups()) {
        for (int row = -1; row < static_cast<int>(group->sources.size()); ++row) {
            for (const std::uint32_t column : corvid::kResultColumns) {
                corvid::CopyCellText(*group, row, column, cell);
            }
        }
    }
    store.TakeNewGroups();
    return 0;
}
