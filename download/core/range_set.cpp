#include "download/core/range_set.h"

#include <algorithm>

namespace corvid::download {
namespace {

constexpr std::string_view kMagic = "corvid-range-map 1";
constexpr std::size_t kMaxSpans = 1 << 20;

} // namespace

void RangeSet::add(ByteSpan span) {
    if (span.begin >= span.end) {
        return;
    }
    auto it = spans_.upper_bound(span.begin);
    if (it != spans_.begin()) {
        auto previous = std::prev(it);
        if (previous->second >= span.begin) {
            it = previous;
        }
    }
    while (it != spans_.end() && it->first <= span.end) {
        span.begin = std::min(span.begin, it->first);
        span.end = std::max(span.end, it->second);
        total_ -= it->second - it->first;
        it = spans_.erase(it);
    }
    spans_.emplace(span.begin, span.end);
    total_ += span.size();
}

bool RangeSet::covers(ByteSpan span) const {
    if (span.begin >= span.end) {
        return true;
    }
    auto it = spans_.upper_bound(span.begin);
    if (it == spans_.begin()) {
        return false;
    }
    --it;
    return it->first <= span.begin && it->second >= span.end;
}

bool RangeSet::intersects(ByteSpan span) const {
    if (span.begin >= span.end) {
        return false;
    }
    auto it = spans_.lower_bound(span.end);
    if (it == spans_.begin()) {
        return false;
    }
    --it;
    return it->second > span.begin;
}

std::optional<ByteSpan> RangeSet::firstGap(std::uint64_t from, std::uint64_t limit) const {
    auto it = spans_.upper_bound(from);
    if (it != spans_.begin()) {
        auto previous = std::prev(it);
        if (previous->second > from) {
            from = previous->second;
        }
    }
    if (from >= limit) {
        return std::nullopt;
    }
    const std::uint64_t end = it == spans_.end() ? limit : std::min(limit, it->first);
    return ByteSpan{from, end};
}

std::vector<ByteSpan> RangeSet::spans() const {
    std::vector<ByteSpan> result;
    result.reserve(spans_.size());
    for (const auto& [begin, end] : spans_) {
        result.push_back({begin, end});
    }
    return result;
}

void RangeSet::clear() {
    spans_.clear();
    total_ = 0;
}

std::string FormatRangeMap(const RangeMapRecord& record) {
    std::string text(kMagic);
    text += "\nlength " + std::to_string(record.length) + "\nsha1 ";
    text += record.sha1 ? library::ToBase32(*record.sha1) : std::string("-");
    text += "\nspans " + std::to_string(record.done.size()) + "\n";
    for (const ByteSpan& span : record.done) {
        text += std::to_string(span.begin) + " " + std::to_string(span.end) + "\n";
    }
    return text;
}

std::optional<RangeMapRecord> ParseRangeMap(std::string_view text) {
    auto nextLine = [&text]() -> std::optional<std::string_view> {
        if (text.empty()) {
            return std::nullopt;
        }
        const std::size_t newline = text.find('\n');
        if (newline == std::string_view::npos) {
            return std::nullopt; // every line ends in a newline; a cut-off file is refused
        }
        const std::string_view line = text.substr(0, newline);
        text.remove_prefix(newline + 1);
        return line;
    };
    auto field = [&](std::string_view name) -> std::optional<std::string_view> {
        const auto line = nextLine();
        if (!line || line->size() <= name.size() + 1 || line->substr(0, name.size()) != name ||
            (*line)[name.size()] != ' ') {
            return std::nullopt;
        }
        return line->substr(name.size() + 1);
    };
    auto number = [](std::string_view digits) -> std::optional<std::uint64_t> {
        if (digits.empty() || digits.size() > 19) {
            return std::nullopt;
        }
        std::uint64_t value = 0;
        for (char c : digits) {
            if (c < '0' || c > '9') {
                return std::nullopt;
            }
            value = value * 10 + static_cast<std::uint64_t>(c - '0');
        }
        return value;
    };

    if (nextLine() != kMagic) {
        return std::nullopt;
    }
    RangeMapRecord record;
    const auto length = field("length");
    const auto sha1 = field("sha1");
    const auto count = field("spans");
    if (!length || !sha1 || !count) {
        return std::nullopt;
    }
    const auto lengthValue = number(*length);
    const auto countValue = number(*count);
    if (!lengthValue || !countValue || *countValue > kMaxSpans) {
        return std::nullopt;
    }
    record.length = *lengthValue;
    if (*sha1 != "-") {
        record.sha1 = Base32DecodeSha1(*sha1);
        if (!record.sha1) {
            return std::nullopt;
        }
    }
    std::uint64_t previousEnd = 0;
    for (std::uint64_t i = 0; i < *countValue; ++i) {
        const auto line = nextLine();
        if (!line) {
            return std::nullopt;
        }
        const std::size_t space = line->find(' ');
        if (space == std::string_view::npos) {
            return std::nullopt;
        }
        const auto begin = number(line->substr(0, space));
        const auto end = number(line->substr(space + 1));
        if (!begin || !end || *begin >= *end || *end > record.length ||
            (i > 0 && *begin <= previousEnd)) {
            return std::nullopt;
        }
        record.done.push_back({*begin, *end});
        previousEnd = *end;
    }
    if (!text.empty()) {
        return std::nullopt;
    }
    return record;
}

} // namespace corvid::download
