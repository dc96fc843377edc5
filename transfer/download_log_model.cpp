#include "transfer/download_log_model.h"

#include <cstdio>
#include <utility>
#include <vector>

namespace corvid::transfer {
namespace {

int IconOfKind(std::int32_t kind) {
    return kind >= 0 && kind <= 4 ? kind : 0;
}

std::string SourceText(std::size_t place) {
    return "Source " + std::to_string(place);
}

} // namespace

std::string CtimeText(std::time_t time) {
    std::tm parts{};
#ifdef _WIN32
    if (localtime_s(&parts, &time) != 0)
        return {};
#else
    if (!localtime_r(&time, &parts))
        return {};
#endif
    // The layout ctime uses: "Www Mmm dd hh:mm:ss yyyy".
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[64];
    std::snprintf(text, sizeof text, "%.3s %.3s%3d %.2d:%.2d:%.2d %d", kDays[parts.tm_wday % 7],
                  kMonths[parts.tm_mon % 12], parts.tm_mday, parts.tm_hour, parts.tm_min,
                  parts.tm_sec, 1900 + parts.tm_year);
    return text;
}

namespace {

// The item's sources and their statuses, read under its lock. The controls are filled after the
// lock is let go: they call back into the pane synchronously (a selected node fills the log list),
// and the engine's threads must not wait on window work to report the next event.
std::vector<std::pair<std::shared_ptr<DownloadSource>, int>> SourcesOf(const DownloadItem& item) {
    std::vector<std::pair<std::shared_ptr<DownloadSource>, int>> sources;
    sources.reserve(item.sources.size());
    for (const auto& source : item.sources)
        sources.emplace_back(source, source->status);
    return sources;
}

} // namespace

void DownloadLogModel::ShowItem(const std::shared_ptr<DownloadItem>& item) {
    if (item == item_)
        return;
    nodes_.clear();
    view_.DeleteAllNodes();
    item_ = item;
    if (!item)
        return;
    std::vector<std::pair<std::shared_ptr<DownloadSource>, int>> sources;
    {
        std::lock_guard guard(item->lock);
        // A completed download shows an empty tree.
        if (item->state == kItemCompleted)
            return;
        sources = SourcesOf(*item);
    }
    const auto root = view_.InsertNode(0, "Grap/Log", kRootIcon);
    std::size_t place = 0;
    for (const auto& [source, status] : sources) {
        ++place;
        if (const auto node = view_.InsertNode(root, SourceText(place), status))
            nodes_[source] = node;
    }
    view_.ExpandAndSelect(root);
}

void DownloadLogModel::AddNewSources(const std::shared_ptr<DownloadItem>& item) {
    if (!view_.TreeExists() || !item || item != item_)
        return;
    const auto root = view_.Root();
    std::vector<std::pair<std::shared_ptr<DownloadSource>, int>> sources;
    {
        std::lock_guard guard(item->lock);
        sources = SourcesOf(*item);
    }
    std::size_t place = 0;
    for (const auto& [source, status] : sources) {
        ++place;
        if (nodes_.count(source))
            continue;
        if (const auto node = view_.InsertNode(root, SourceText(place), status))
            nodes_[source] = node;
    }
}

bool DownloadLogModel::ShowLog(const std::shared_ptr<SourceLog>& log) {
    if (!view_.ListExists())
        return false;
    if (log == log_)
        return true;
    view_.DeleteAllRows();
    log_ = log;
    linesShown_ = 0;
    rowsShown_ = 0;
    if (log_)
        AppendLinesFrom(0);
    return true;
}

void DownloadLogModel::AppendLog() {
    if (!view_.ListExists() || !log_)
        return;
    AppendLinesFrom(linesShown_);
}

void DownloadLogModel::AppendLinesFrom(std::size_t first) {
    // Copied first: filling rows is slow, and the log's writer holds the item's lock.
    auto copy = log_->LinesFrom(first);
    // The list holds no more than the log keeps: when the new lines would take it past that, it
    // starts again with the newest half, so that refilling comes once per half a log of lines,
    // not at every line.
    if (rowsShown_ + copy.lines.size() > SourceLog::kKeptLines) {
        view_.DeleteAllRows();
        rowsShown_ = 0;
        copy = log_->LinesFrom(copy.first + copy.lines.size() - SourceLog::kKeptLines / 2);
    }
    linesShown_ = copy.first + copy.lines.size();
    rowsShown_ += copy.lines.size();
    if (copy.lines.empty())
        return;
    view_.BeginRows();
    for (const auto& line : copy.lines)
        view_.AppendRow(CtimeText(line.time), line.text, IconOfKind(line.kind), line.kind);
    view_.ScrollToLastRow();
}

std::shared_ptr<DownloadSource> DownloadLogModel::SourceOf(LogPaneView::Node node) const {
    for (const auto& [source, shown] : nodes_)
        if (shown == node)
            return source;
    return nullptr;
}

LogPaneView::Node DownloadLogModel::NodeOf(const std::shared_ptr<DownloadSource>& source) const {
    const auto found = nodes_.find(source);
    return found == nodes_.end() ? 0 : found->second;
}

bool DownloadLogModel::ForgetItem(const std::shared_ptr<DownloadItem>& item) {
    if (!item || item != item_)
        return false;
    ShowItem(nullptr);
    return true;
}

} // namespace corvid::transfer
