#pragma once

// What a result list shows of its store: the groups in sort order, the ones the refine box and
// the "Search ShowDownloaded" setting let through, and, under each expanded group, one row per
// source. The list view is owner-data, so every row it draws is found here by its position.

#include "search/result_cells.h"
#include "search/result_records.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace corvid {

// A group's own row (source -1) or the row of one of its sources.
struct ResultRow {
    ResultGroup* group = nullptr;
    int source = -1;
    bool operator==(const ResultRow&) const = default;
};

// The group state that marks a file handed to the download list.
inline constexpr int kGroupHandedToDownloads = 2;

// Three-way comparison of two groups by one column: the value the cell of the group's row shows,
// numbers as numbers. A column that shows "multiple(N)" on a group of several hosts sorts those
// groups after every single-host group, by N. "Rank" compares the number of sources: a file more
// hosts offer ranks higher. Text compares without regard to ASCII case; hosts that are dotted
// IPv4 addresses compare as addresses.
int CompareGroups(const ResultGroup& a, const ResultGroup& b, std::uint32_t column);

// Stable sort by one column: groups that compare equal keep their order, in either direction.
void SortGroups(std::vector<ResultGroup*>& groups, std::uint32_t column, bool ascending);

// Whether every blank-separated word of `words` occurs in `name`, ASCII case ignored. No words
// match every name.
bool NameMatchesWords(std::string_view name, std::string_view words);

class ResultRows {
public:
    // Groups the store has not shown yet; they go at the end until the next Sort.
    void Add(std::span<ResultGroup* const> groups);
    // Forgets every group (the store is being cleared); sort order and filter stay.
    void Clear();

    // The sort column and direction (a new list sorts by Rank, descending).
    std::uint32_t SortColumn() const { return sortColumn_; }
    bool Ascending() const { return ascending_; }
    void SetSort(std::uint32_t column, bool ascending);
    // A click on a column's header: the sort column again reverses the direction; another column
    // becomes the sort column, ascending. Sorts at once.
    void ClickColumn(std::uint32_t column);
    // Sorts every group again by the sort column and rebuilds the rows.
    void Sort();

    // The refine box's words; only groups whose name holds every word are shown.
    void SetFilter(std::string_view words);
    const std::string& Filter() const { return filter_; }
    // Whether groups handed to the downloads stay in the list.
    void SetShowDownloaded(bool show);
    bool ShowDownloaded() const { return showDownloaded_; }
    // Rebuilds the rows after groups changed: new sources, a changed state.
    void Rebuild();

    std::size_t RowCount() const { return rows_.size(); }
    // The row at a position; a position outside the list gives an empty row (null group).
    ResultRow Row(std::size_t position) const;
    // The position of a row, or -1 when it is not shown.
    int PositionOf(const ResultRow& row) const;
    // Shown groups, and the source rows of the expanded ones among them.
    std::size_t GroupCount() const { return rows_.size() - expandedRows_; }
    std::size_t ExpandedRows() const { return expandedRows_; }
    // Every group of the store, in sort order, shown or not.
    const std::vector<ResultGroup*>& Groups() const { return groups_; }

    // Type-ahead in the list: the first row from `start` on, wrapping round, whose name begins
    // with `prefix` (ASCII case ignored); -1 when none does.
    int FindByName(std::string_view prefix, std::size_t start) const;

    // A group row can open when its group has two or more sources.
    bool CanExpand(std::size_t position) const;
    bool IsExpanded(const ResultGroup* group) const { return expanded_.contains(group); }
    // Opens the group of a group row; false when the row cannot open or is open already.
    bool Expand(std::size_t position);
    // Closes the group of any row of an expanded group. Returns the position of the group's own
    // row afterwards (where the selection goes when it was on one of the source rows), or -1 when
    // nothing closed.
    int Collapse(std::size_t position);
    // The plus/minus box: opens a closed group, closes an open one. False when nothing changed.
    bool Toggle(std::size_t position);

private:
    bool Shows(const ResultGroup& group) const;

    std::vector<ResultGroup*> groups_;
    std::unordered_set<const ResultGroup*> expanded_;
    std::vector<ResultRow> rows_;
    std::size_t expandedRows_ = 0;
    std::uint32_t sortColumn_ = kColumnRank;
    bool ascending_ = false;
    std::string filter_;
    bool showDownloaded_ = false;
};

} // namespace corvid
