#include "engine/sharing/library_share_index.h"

#include <algorithm>

namespace corvid::gnutella {
namespace {

SharedFile ToShared(const library::SharedFile& file) {
    return SharedFile{file.index, file.size, file.name, file.sha1};
}

} // namespace

std::vector<SharedFile> LibraryShareIndex::Match(const std::vector<std::string>& keywords,
                                                 const std::vector<std::string>& sha1s,
                                                 std::size_t max_results) const {
    std::vector<SharedFile> matches;
    for (const auto& sha1 : sha1s) {
        if (matches.size() == max_results) {
            return matches;
        }
        if (auto file = files_.FindBySha1(sha1)) {
            const bool known =
                std::any_of(matches.begin(), matches.end(),
                            [&](const SharedFile& m) { return m.index == file->index; });
            if (!known) {
                matches.push_back(ToShared(*file));
            }
        }
    }
    if (keywords.empty() || matches.size() == max_results) {
        return matches;
    }
    std::string query;
    for (const auto& word : keywords) {
        query += (query.empty() ? "" : " ") + word;
    }
    for (const auto& file : files_.Match(query, max_results - matches.size())) {
        const bool known = std::any_of(matches.begin(), matches.end(),
                                       [&](const SharedFile& m) { return m.index == file.index; });
        if (!known) {
            matches.push_back(ToShared(file));
        }
    }
    return matches;
}

std::vector<SharedFile> LibraryShareIndex::All() const {
    std::vector<SharedFile> all;
    for (const auto& file : files_.Files()) {
        all.push_back(ToShared(file));
    }
    return all;
}

} // namespace corvid::gnutella
