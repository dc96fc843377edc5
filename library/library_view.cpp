#include "library/library_view.h"

#include "search/tag_scanner.h"

#include <algorithm>
#include <charconv>

namespace corvid::library {

std::vector<LibraryRow> ReadLibraryText(std::string_view text) {
    std::vector<LibraryRow> rows;
    std::string_view file;
    while (std::size_t end = ReadElement(text, "<file>", file)) {
        text.remove_prefix(end);
        std::string_view rest = file;
        std::string_view value;
        auto next = [&](std::string_view tag) {
            value = {};
            if (std::size_t used = ReadElement(rest, tag, value)) {
                rest.remove_prefix(used);
            }
        };
        LibraryRow row;
        next("<name>");
        row.name = value;
        if (row.name.empty()) {
            continue;
        }
        next("<path>");
        row.path = value;
        next("<size>");
        std::uint64_t size = 0;
        auto [sizeEnd, sizeError] =
            std::from_chars(value.data(), value.data() + value.size(), size);
        row.size = sizeError == std::errc() ? size : 0;
        (void)sizeEnd;
        next("<sha1>");
        row.sha1 = value;
        next("<progress>");
        row.progress = std::clamp(ParseDecimal(value), 0, 100);
        next("<download>");
        row.download = ParseDecimal(value) != 0;
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<std::string> ReadFolderList(std::string_view text) {
    std::vector<std::string> folders;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
            line.remove_suffix(1);
        }
        if (!line.empty()) {
            folders.emplace_back(line);
        }
    }
    return folders;
}

std::string SizeText(std::uint64_t bytes) {
    std::string digits = std::to_string(bytes);
    std::string text;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) {
            text += ',';
        }
        text += digits[i];
    }
    return text;
}

RefreshPacer::Clock::duration RefreshPacer::Wait(Clock::time_point now) const {
    if (!next_ || now >= *next_) {
        return Clock::duration::zero();
    }
    return *next_ - now;
}

void RefreshPacer::Ran(Clock::time_point started, Clock::time_point ended) {
    next_ = ended + std::max(ended - started, Clock::duration::zero()) * 9;
}

} // namespace corvid::library
