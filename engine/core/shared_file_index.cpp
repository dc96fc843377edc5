#include "engine/core/shared_file_index.h"

#include <charconv>

#include "engine/core/wire.h"

namespace corvid::gnutella {

std::uint32_t InMemoryFileIndex::Add(std::string name, std::uint64_t size, std::string sha1) {
    std::lock_guard lock(mutex_);
    if (!IsSha1Base32(sha1))
        sha1.clear();
    for (auto& c : sha1)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    SharedFile file{next_index_++, size, std::move(name), std::move(sha1)};
    lower_names_.push_back(ToLowerAscii(file.name));
    files_.push_back(std::move(file));
    ++revision_;
    return files_.back().index;
}

void InMemoryFileIndex::Clear() {
    std::lock_guard lock(mutex_);
    files_.clear();
    lower_names_.clear();
    ++revision_;
}

std::vector<SharedFile> InMemoryFileIndex::Match(const std::vector<std::string>& keywords,
                                                 const std::vector<std::string>& sha1s,
                                                 std::size_t max_results) const {
    std::lock_guard lock(mutex_);
    std::vector<SharedFile> out;
    for (std::size_t i = 0; i < files_.size() && out.size() < max_results; ++i) {
        bool match = false;
        for (const auto& sha1 : sha1s)
            if (!files_[i].sha1.empty() && EqualsIgnoreCase(files_[i].sha1, sha1))
                match = true;
        if (!match && !keywords.empty()) {
            match = true;
            for (const auto& word : keywords)
                if (lower_names_[i].find(word) == std::string::npos)
                    match = false;
        }
        if (match)
            out.push_back(files_[i]);
    }
    return out;
}

std::vector<SharedFile> InMemoryFileIndex::All() const {
    std::lock_guard lock(mutex_);
    return files_;
}

std::uint64_t InMemoryFileIndex::Revision() const {
    std::lock_guard lock(mutex_);
    return revision_;
}

std::size_t LoadShareList(std::string_view text, InMemoryFileIndex& index) {
    std::size_t added = 0;
    while (!text.empty()) {
        auto nl = text.find('\n');
        auto line = text.substr(0, nl);
        text = nl == std::string_view::npos ? std::string_view{} : text.substr(nl + 1);
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        auto tab1 = line.find('\t');
        if (tab1 == std::string_view::npos)
            continue;
        auto tab2 = line.find('\t', tab1 + 1);
        if (tab2 == std::string_view::npos)
            continue;
        std::uint64_t size = 0;
        auto size_text = line.substr(0, tab1);
        auto [end, ec] =
            std::from_chars(size_text.data(), size_text.data() + size_text.size(), size);
        if (ec != std::errc() || end != size_text.data() + size_text.size())
            continue;
        auto name = line.substr(tab2 + 1);
        if (name.empty() || name.find('\0') != std::string_view::npos)
            continue;
        index.Add(std::string(name), size, std::string(line.substr(tab1 + 1, tab2 - tab1 - 1)));
        ++added;
    }
    return added;
}

} // namespace corvid::gnutella
