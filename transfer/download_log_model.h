#pragma once

// The detail pane beside the download list: a tree with the shown item's sources under one root,
// each with its status as its icon, and a list with the log lines of one source.

#include "transfer/download_item.h"

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>

namespace corvid::transfer {

// The pane's two controls. Node 0 means "no node" (an insert that failed).
class LogPaneView {
public:
    using Node = std::uintptr_t;
    virtual ~LogPaneView() = default;

    virtual bool TreeExists() = 0;
    virtual void DeleteAllNodes() = 0;
    // Inserted after the last node of its level; icon stands for the normal and selected image.
    virtual Node InsertNode(Node parent, const std::string& text, int icon) = 0;
    virtual Node Root() = 0;
    virtual void ExpandAndSelect(Node node) = 0;

    virtual bool ListExists() = 0;
    virtual void DeleteAllRows() = 0;
    // A batch of AppendRow calls follows, ended by ScrollToLastRow: the list may hold off redrawing
    // until then (a log can bring hundreds of lines at once).
    virtual void BeginRows() {}
    // A row at the end: the "Time" and "Information" cells, its icon and its stored parameter.
    virtual void AppendRow(const std::string& time, const std::string& information, int icon,
                           std::int32_t parameter) = 0;
    virtual void ScrollToLastRow() = 0;
};

// The C library's ctime text of a time, without the line end (a list cell shows one line).
std::string CtimeText(std::time_t time);

inline constexpr int kRootIcon = 7;

class DownloadLogModel {
public:
    explicit DownloadLogModel(LogPaneView& view) : view_(view) {}

    void ShowItem(const std::shared_ptr<DownloadItem>& item);
    void AddNewSources(const std::shared_ptr<DownloadItem>& item);
    // False when the list does not exist.
    bool ShowLog(const std::shared_ptr<SourceLog>& log);
    void AppendLog();

    const std::shared_ptr<DownloadItem>& ShownItem() const { return item_; }
    // The source a node stands for, or none.
    std::shared_ptr<DownloadSource> SourceOf(LogPaneView::Node node) const;
    // The node of a source shown in the tree, or 0.
    LogPaneView::Node NodeOf(const std::shared_ptr<DownloadSource>& source) const;
    // Forgets the item when it is the one shown (the tree is emptied); true when it was.
    bool ForgetItem(const std::shared_ptr<DownloadItem>& item);

private:
    void AppendLinesFrom(std::size_t first);

    LogPaneView& view_;
    std::shared_ptr<DownloadItem> item_;
    std::map<std::shared_ptr<DownloadSource>, LogPaneView::Node> nodes_;
    std::shared_ptr<SourceLog> log_;
    // Lines of log_ already in the list. An empty log keeps its place too, so that lines written
    // after it was shown still arrive.
    std::size_t linesShown_ = 0;
    // Rows in the list now.
    std::size_t rowsShown_ = 0;
};

} // namespace corvid::transfer
