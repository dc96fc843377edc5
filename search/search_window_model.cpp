#include "search/search_window_model.h"

#include "search/search_result_reader.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace corvid {
namespace {

// The property names that have no column of their own.
constexpr std::uint32_t kPropertyPush = 34041;

} // namespace

SearchWindowModel::SearchWindowModel(MediaClassNames classNames)
    : store_(kDefaultResultLimit, std::move(classNames)) {}

int SearchWindowModel::OnResultText(std::string_view text, SearchControl* search,
                                    ResultHandOver* handOver) {
    const int added = ReadSearchResult(store_, text).value();
    if (handOver && handOver->AnyDownloads()) {
        ReadResultFiles(text, [&](ParsedResult& result) {
            if (!result.sha1.empty()) {
                handOver->OfferHit(result.sha1, result.source);
            }
        });
    }
    if (added > 0) {
        resultsChanged_ = true;
        if (store_.Count() >= store_.Limit() && !stoppedAtLimit_) {
            stoppedAtLimit_ = true;
            if (search) {
                search->Stop();
            }
        }
    }
    return added;
}

bool SearchWindowModel::Refresh(bool visible) {
    if (!resultsChanged_ || !visible) {
        return false;
    }
    const std::vector<ResultGroup*> fresh = store_.TakeNewGroups();
    rows_.Add(fresh);
    // The list is kept sorted: new files and new hosts of known files may both move rows.
    rows_.Sort();
    resultsChanged_ = false;
    return true;
}

void SearchWindowModel::Restart(SearchControl* search) {
    if (store_.Count() >= store_.Limit()) {
        store_.SetLimit(store_.Limit() + kResultLimitStep);
    }
    stoppedAtLimit_ = false;
    if (search) {
        search->Restart();
    }
}

void SearchWindowModel::Stop(SearchControl* search) {
    if (search) {
        search->Stop();
    }
}

void SearchWindowModel::Clear() {
    rows_.Clear();
    store_.Clear();
    resultsChanged_ = false;
    stoppedAtLimit_ = false;
}

int SearchWindowModel::Download(std::span<const int> selectedPositions, ResultHandOver& handOver) {
    std::vector<int> positions(selectedPositions.begin(), selectedPositions.end());
    std::sort(positions.begin(), positions.end());
    // Collected first: handing a group over may hide it, which moves the rows after it.
    std::vector<ResultGroup*> groups;
    std::unordered_set<const ResultGroup*> seen;
    for (int position : positions) {
        const ResultRow row =
            position >= 0 ? rows_.Row(static_cast<std::size_t>(position)) : ResultRow{};
        if (row.group && seen.insert(row.group).second) {
            groups.push_back(row.group);
        }
    }
    int handed = 0;
    for (ResultGroup* group : groups) {
        const std::string path = handOver.PathOnDisk(group->sha1);
        if (!path.empty()) {
            handOver.ShowAlreadyOnDisk(path);
            continue;
        }
        if (handOver.StartDownload(*group)) {
            group->state = kGroupHandedToDownloads;
            ++handed;
        }
    }
    if (handed > 0) {
        rows_.Rebuild();
    }
    return handed;
}

std::optional<std::string>
SearchWindowModel::BrowseAddress(std::span<const int> selectedPositions) const {
    const std::optional<ResultRow> row = PropertiesRow(selectedPositions);
    if (!row) {
        return std::nullopt;
    }
    const ResultSource& source = row->group->sources[row->source < 0 ? 0 : row->source];
    return "http://" + source.host + ":" + std::to_string(source.port);
}

std::optional<ResultRow>
SearchWindowModel::PropertiesRow(std::span<const int> selectedPositions) const {
    if (selectedPositions.empty() || selectedPositions.front() < 0) {
        return std::nullopt;
    }
    const ResultRow row = rows_.Row(static_cast<std::size_t>(selectedPositions.front()));
    if (!row.group || row.group->sources.empty()) {
        return std::nullopt;
    }
    return row;
}

std::vector<PropertyField> SourceProperties(const ResultGroup& group, int sourceIndex) {
    if (group.sources.empty() || sourceIndex >= static_cast<int>(group.sources.size())) {
        return {};
    }
    const int index = sourceIndex < 0 ? 0 : sourceIndex;
    const ResultSource& source = group.sources[static_cast<std::size_t>(index)];
    std::vector<PropertyField> fields;
    // A source row's own values, never "multiple(N)": the dialog is about one host's offer.
    for (std::uint32_t column :
         {kColumnName, kColumnSize, kColumnType, kColumnSha1, kColumnHost, kColumnPort,
          kColumnFileIndex, kColumnSpeed, kColumnVersion, kColumnBrowse, kColumnUptime, kColumnGuid,
          kColumnNodeId, kColumnInformation}) {
        fields.push_back({column, CellText(group, index, column)});
    }
    fields.push_back({kPropertyPush, source.push != 0 ? "Yes" : "No"});
    return fields;
}

std::string RowsAsText(const ResultRows& rows, std::span<const int> positions) {
    std::vector<int> sorted(positions.begin(), positions.end());
    std::sort(sorted.begin(), sorted.end());
    std::string text;
    for (int position : sorted) {
        const ResultRow row =
            position >= 0 ? rows.Row(static_cast<std::size_t>(position)) : ResultRow{};
        if (!row.group) {
            continue;
        }
        for (std::size_t i = 0; i < kResultColumns.size(); ++i) {
            if (i > 0) {
                text += '\t';
            }
            text += CellText(*row.group, row.source, kResultColumns[i]);
        }
        text += "\r\n";
    }
    return text;
}

std::string SearchWindowTitle(std::string_view keywords, int count) {
    return std::string(keywords) + " (" + std::to_string(count) + ")";
}

} // namespace corvid
