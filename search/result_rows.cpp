#include "search/result_rows.h"

#include <algorithm>

namespace corvid {
namespace {

// Above every 32-bit value a cell can show: "multiple(N)" groups sort after single-host ones.
constexpr std::int64_t kMultipleTier = std::int64_t{1} << 40;

unsigned char Fold(char c) {
    const auto u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? static_cast<unsigned char>(u + ('a' - 'A')) : u;
}

int CompareText(std::string_view a, std::string_view b) {
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        const unsigned char x = Fold(a[i]);
        const unsigned char y = Fold(b[i]);
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

// A dotted IPv4 text as its 32-bit value, or -1 for anything else (names, junk from a peer).
std::int64_t AddressValue(std::string_view host) {
    std::int64_t value = 0;
    int parts = 0;
    std::size_t at = 0;
    while (parts < 4) {
        std::size_t digits = 0;
        int octet = 0;
        while (at < host.size() && host[at] >= '0' && host[at] <= '9' && digits < 3) {
            octet = octet * 10 + (host[at] - '0');
            ++at;
            ++digits;
        }
        if (digits == 0 || octet > 255) {
            return -1;
        }
        value = value * 256 + octet;
        ++parts;
        if (parts < 4) {
            if (at >= host.size() || host[at] != '.') {
                return -1;
            }
            ++at;
        }
    }
    return at == host.size() ? value : -1;
}

// What one group's row is compared by in one column: a number first, then a text.
struct SortKey {
    std::int64_t number = 0;
    std::string_view text;
};

SortKey KeyOf(const ResultGroup& group, std::uint32_t column) {
    if (group.sources.empty()) {
        return {};
    }
    const auto sources = static_cast<std::int64_t>(group.sources.size());
    if (column == kColumnRank) {
        return {sources, {}};
    }
    if (sources >= 2 && ShowsMultiple(column)) {
        return {kMultipleTier + sources, {}};
    }
    const ResultSource& first = group.sources.front();
    switch (column) {
    case kColumnName:
        return {0, first.name};
    case kColumnSize:
        return {first.size, {}};
    case kColumnHost:
        return {AddressValue(first.host), first.host};
    case kColumnPort:
        return {first.port, {}};
    case kColumnFileIndex:
        return {first.fileIndex, {}};
    case kColumnType:
        return {0, first.type};
    case kColumnVersion:
        return {0, first.vendorCode};
    case kColumnSpeed:
        return {first.speed, {}};
    case kColumnSha1:
        return {0, group.sha1};
    case kColumnBrowse:
        return {first.browsable != 0 ? 1 : 0, {}};
    case kColumnUptime:
        return {0, first.uptime};
    case kColumnGuid:
        return {0, first.guid};
    case kColumnNodeId:
        return {0, first.nodeId};
    case kColumnInformation:
        return {0, first.info};
    default:
        return {};
    }
}

int CompareKeys(const SortKey& a, const SortKey& b) {
    if (a.number != b.number) {
        return a.number < b.number ? -1 : 1;
    }
    return CompareText(a.text, b.text);
}

} // namespace

int CompareGroups(const ResultGroup& a, const ResultGroup& b, std::uint32_t column) {
    return CompareKeys(KeyOf(a, column), KeyOf(b, column));
}

void SortGroups(std::vector<ResultGroup*>& groups, std::uint32_t column, bool ascending) {
    // The keys are taken once, side by side, rather than in every comparison: the sort then reads
    // one array instead of chasing each group's sources.
    struct Keyed {
        SortKey key;
        ResultGroup* group;
    };
    std::vector<Keyed> keyed;
    keyed.reserve(groups.size());
    for (ResultGroup* group : groups) {
        keyed.push_back({KeyOf(*group, column), group});
    }
    if (ascending) {
        std::stable_sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) {
            return CompareKeys(a.key, b.key) < 0;
        });
    } else {
        std::stable_sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) {
            return CompareKeys(a.key, b.key) > 0;
        });
    }
    for (std::size_t i = 0; i < keyed.size(); ++i) {
        groups[i] = keyed[i].group;
    }
}

bool NameMatchesWords(std::string_view name, std::string_view words) {
    std::size_t at = 0;
    while (at < words.size()) {
        while (at < words.size() && (words[at] == ' ' || words[at] == '\t')) {
            ++at;
        }
        std::size_t end = at;
        while (end < words.size() && words[end] != ' ' && words[end] != '\t') {
            ++end;
        }
        const std::string_view word = words.substr(at, end - at);
        if (!word.empty()) {
            const auto found = std::search(name.begin(), name.end(), word.begin(), word.end(),
                                           [](char x, char y) { return Fold(x) == Fold(y); });
            if (found == name.end()) {
                return false;
            }
        }
        at = end;
    }
    return true;
}

void ResultRows::Add(std::span<ResultGroup* const> groups) {
    groups_.insert(groups_.end(), groups.begin(), groups.end());
    Rebuild();
}

void ResultRows::Clear() {
    groups_.clear();
    expanded_.clear();
    rows_.clear();
    expandedRows_ = 0;
}

void ResultRows::SetSort(std::uint32_t column, bool ascending) {
    sortColumn_ = column;
    ascending_ = ascending;
}

void ResultRows::ClickColumn(std::uint32_t column) {
    if (column == sortColumn_) {
        ascending_ = !ascending_;
    } else {
        sortColumn_ = column;
        ascending_ = true;
    }
    Sort();
}

void ResultRows::Sort() {
    SortGroups(groups_, sortColumn_, ascending_);
    Rebuild();
}

void ResultRows::SetFilter(std::string_view words) {
    filter_.assign(words);
    Rebuild();
}

void ResultRows::SetShowDownloaded(bool show) {
    showDownloaded_ = show;
    Rebuild();
}

bool ResultRows::Shows(const ResultGroup& group) const {
    if (!showDownloaded_ && group.state == kGroupHandedToDownloads) {
        return false;
    }
    if (filter_.empty()) {
        return true;
    }
    return !group.sources.empty() && NameMatchesWords(group.sources.front().name, filter_);
}

void ResultRows::Rebuild() {
    rows_.clear();
    expandedRows_ = 0;
    for (ResultGroup* group : groups_) {
        if (!Shows(*group)) {
            continue;
        }
        rows_.push_back({group, -1});
        if (group->sources.size() >= 2 && expanded_.contains(group)) {
            for (std::size_t s = 0; s < group->sources.size(); ++s) {
                rows_.push_back({group, static_cast<int>(s)});
            }
            expandedRows_ += group->sources.size();
        }
    }
}

ResultRow ResultRows::Row(std::size_t position) const {
    return position < rows_.size() ? rows_[position] : ResultRow{};
}

int ResultRows::PositionOf(const ResultRow& row) const {
    const auto found = std::find(rows_.begin(), rows_.end(), row);
    return found == rows_.end() ? -1 : static_cast<int>(found - rows_.begin());
}

int ResultRows::FindByName(std::string_view prefix, std::size_t start) const {
    if (rows_.empty()) {
        return -1;
    }
    for (std::size_t n = 0; n < rows_.size(); ++n) {
        const std::size_t at = (start + n) % rows_.size();
        const ResultRow& row = rows_[at];
        const std::size_t index = row.source < 0 ? 0 : static_cast<std::size_t>(row.source);
        if (index >= row.group->sources.size()) {
            continue;
        }
        const std::string_view name = row.group->sources[index].name;
        if (name.size() >= prefix.size() &&
            CompareText(name.substr(0, prefix.size()), prefix) == 0) {
            return static_cast<int>(at);
        }
    }
    return -1;
}

bool ResultRows::CanExpand(std::size_t position) const {
    const ResultRow row = Row(position);
    return row.group && row.source == -1 && row.group->sources.size() >= 2;
}

bool ResultRows::Expand(std::size_t position) {
    if (!CanExpand(position) || expanded_.contains(rows_[position].group)) {
        return false;
    }
    ResultGroup* group = rows_[position].group;
    expanded_.insert(group);
    std::vector<ResultRow> sourceRows;
    sourceRows.reserve(group->sources.size());
    for (std::size_t s = 0; s < group->sources.size(); ++s) {
        sourceRows.push_back({group, static_cast<int>(s)});
    }
    rows_.insert(rows_.begin() + static_cast<std::ptrdiff_t>(position) + 1, sourceRows.begin(),
                 sourceRows.end());
    expandedRows_ += sourceRows.size();
    return true;
}

int ResultRows::Collapse(std::size_t position) {
    const ResultRow row = Row(position);
    if (!row.group || !expanded_.contains(row.group)) {
        return -1;
    }
    const std::size_t groupRow = position - static_cast<std::size_t>(row.source + 1);
    std::size_t end = groupRow + 1;
    while (end < rows_.size() && rows_[end].group == row.group && rows_[end].source >= 0) {
        ++end;
    }
    expanded_.erase(row.group);
    expandedRows_ -= end - groupRow - 1;
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(groupRow) + 1,
                rows_.begin() + static_cast<std::ptrdiff_t>(end));
    return static_cast<int>(groupRow);
}

bool ResultRows::Toggle(std::size_t position) {
    const ResultRow row = Row(position);
    if (row.group && row.source == -1 && expanded_.contains(row.group)) {
        return Collapse(position) >= 0;
    }
    return Expand(position);
}

} // namespace corvid
