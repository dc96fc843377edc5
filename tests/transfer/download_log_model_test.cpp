#include "transfer/download_log_model.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <mutex>

namespace corvid::transfer {
namespace {

// A tree and a list in memory.
class FakeLogView : public LogPaneView {
public:
    struct TreeNode {
        Node parent;
        std::string text;
        int icon;
    };
    struct Row {
        std::string time, information;
        int icon;
        std::int32_t parameter;
    };

    bool TreeExists() override { return treeExists; }
    void DeleteAllNodes() override { nodes.clear(); }
    Node InsertNode(Node parent, const std::string& text, int icon) override {
        if (duringFill)
            duringFill();
        if (failInserts)
            return 0;
        nodes[++lastNode] = {parent, text, icon};
        return lastNode;
    }
    Node Root() override {
        for (const auto& [node, shown] : nodes)
            if (shown.parent == 0)
                return node;
        return 0;
    }
    void ExpandAndSelect(Node node) override { selected = node; }
    bool ListExists() override { return listExists; }
    void DeleteAllRows() override { rows.clear(); }
    void AppendRow(const std::string& time, const std::string& information, int icon,
                   std::int32_t parameter) override {
        if (duringFill)
            duringFill();
        rows.push_back({time, information, icon, parameter});
    }
    void ScrollToLastRow() override { ++scrolls; }

    std::vector<std::pair<std::string, int>> Children() const {
        std::vector<std::pair<std::string, int>> children;
        for (const auto& [node, shown] : nodes)
            if (shown.parent != 0)
                children.push_back({shown.text, shown.icon});
        return children;
    }

    bool treeExists = true;
    bool listExists = true;
    bool failInserts = false;
    Node lastNode = 0;
    Node selected = 0;
    std::map<Node, TreeNode> nodes;
    std::vector<Row> rows;
    int scrolls = 0;
    // Runs inside every node or row insert: the window work the controls do.
    std::function<void()> duringFill;
};

// Whether another thread can take the item's lock now (it never waits for it).
bool AnotherThreadCanLock(DownloadItem& item) {
    return std::async(std::launch::async,
                      [&] {
                          if (!item.lock.try_lock())
                              return false;
                          item.lock.unlock();
                          return true;
                      })
        .get();
}

std::shared_ptr<DownloadSource> Source(std::int32_t status) {
    auto source = std::make_shared<DownloadSource>();
    source->status = status;
    return source;
}

std::shared_ptr<DownloadItem> Item(std::vector<std::shared_ptr<DownloadSource>> sources) {
    auto item = std::make_shared<DownloadItem>();
    item->state = kItemDownloading;
    item->sources = std::move(sources);
    return item;
}

class LogModelTest : public ::testing::Test {
protected:
    FakeLogView view;
    DownloadLogModel model{view};
};

TEST_F(LogModelTest, AnItemShowsARootAndOneNodePerSource) {
    auto item = Item({Source(kSourceReceiving), Source(kSourceFailed)});
    model.ShowItem(item);
    ASSERT_EQ(view.nodes.size(), 3u);
    const auto root = view.Root();
    EXPECT_EQ(view.nodes[root].text, "Grap/Log");
    EXPECT_EQ(view.nodes[root].icon, 7);
    EXPECT_EQ(view.selected, root);
    EXPECT_EQ(view.Children(),
              (std::vector<std::pair<std::string, int>>{{"Source 1", 2}, {"Source 2", 3}}));
    EXPECT_EQ(model.SourceOf(root + 2), item->sources[1]);

    // The same item again is left alone.
    view.nodes[root].text = "untouched";
    model.ShowItem(item);
    EXPECT_EQ(view.nodes[root].text, "untouched");
}

TEST_F(LogModelTest, ACompletedItemOrNoneEmptiesTheTree) {
    model.ShowItem(Item({Source(0)}));
    auto done = Item({Source(0)});
    done->state = kItemCompleted;
    model.ShowItem(done);
    EXPECT_TRUE(view.nodes.empty());
    model.ShowItem(Item({Source(0)}));
    model.ShowItem(nullptr);
    EXPECT_TRUE(view.nodes.empty());
}

TEST_F(LogModelTest, NewSourcesGetTheNextNumbersAndOldNodesStay) {
    auto item = Item({Source(kSourceIdle)});
    model.ShowItem(item);
    item->sources[0]->status = kSourceFailed;
    item->sources.push_back(Source(kSourceConnecting));
    model.AddNewSources(item);
    model.AddNewSources(item);
    EXPECT_EQ(view.Children(),
              (std::vector<std::pair<std::string, int>>{{"Source 1", 0}, {"Source 2", 1}}));
    // Another item or a missing tree adds nothing.
    auto other = Item({Source(0)});
    model.AddNewSources(other);
    view.treeExists = false;
    item->sources.push_back(Source(0));
    model.AddNewSources(item);
    EXPECT_EQ(view.nodes.size(), 3u);
}

TEST_F(LogModelTest, AFailedInsertIsTriedAgainLater) {
    auto item = Item({Source(0)});
    view.failInserts = true;
    model.ShowItem(item);
    view.failInserts = false;
    view.nodes[view.lastNode = 1] = {0, "Grap/Log", 7};
    model.AddNewSources(item);
    EXPECT_EQ(view.Children().size(), 1u);
}

TEST_F(LogModelTest, ALogFillsTheListAndGrowsByAppending) {
    auto log = std::make_shared<SourceLog>();
    log->Append(1'000'000'000, kLogStatus, "Connecting... [a]");
    log->Append(1'000'000'001, kLogRequestLine, "GET / HTTP/1.1");
    log->Append(1'000'000'002, 9, "odd kind");
    EXPECT_TRUE(model.ShowLog(log));
    ASSERT_EQ(view.rows.size(), 3u);
    EXPECT_EQ(view.rows[0].information, "Connecting... [a]");
    EXPECT_EQ(view.rows[1].icon, 1);
    EXPECT_EQ(view.rows[1].parameter, 1);
    EXPECT_EQ(view.rows[2].icon, 0);
    EXPECT_EQ(view.rows[2].parameter, 9);
    const std::time_t when = 1'000'000'000;
    std::string expected = std::ctime(&when);
    expected.pop_back();
    EXPECT_EQ(view.rows[0].time, expected);

    model.AppendLog();
    EXPECT_EQ(view.rows.size(), 3u);
    log->Append(1'000'000'003, kLogError, "Time out");
    model.AppendLog();
    ASSERT_EQ(view.rows.size(), 4u);
    EXPECT_EQ(view.rows[3].icon, 2);

    // Showing the same log again keeps the rows; another log replaces them.
    model.ShowLog(log);
    EXPECT_EQ(view.rows.size(), 4u);
    model.ShowLog(std::make_shared<SourceLog>());
    EXPECT_TRUE(view.rows.empty());
    model.ShowLog(nullptr);
    model.AppendLog();
    EXPECT_TRUE(view.rows.empty());
}

// A source retried for days: the log and the list keep the newest lines and both stay bounded.
TEST_F(LogModelTest, ALongLogKeepsItsNewestLinesInTheLogAndInTheList) {
    const std::size_t kept = SourceLog::kKeptLines;
    auto log = std::make_shared<SourceLog>();
    auto write = [&](std::size_t from, std::size_t to) {
        for (std::size_t i = from; i < to; ++i)
            log->Append(0, kLogStatus, "line " + std::to_string(i));
    };
    write(0, kept - 10);
    model.ShowLog(log);
    EXPECT_EQ(view.rows.size(), kept - 10);

    write(kept - 10, kept + 500);
    EXPECT_EQ(log->Size(), kept + 500);
    const LogLines all = log->LinesFrom(0);
    EXPECT_EQ(all.first, 500u);
    ASSERT_EQ(all.lines.size(), kept);
    EXPECT_EQ(all.lines.front().text, "line 500");
    const LogLines tail = log->LinesFrom(kept + 490);
    EXPECT_EQ(tail.first, kept + 490);
    ASSERT_EQ(tail.lines.size(), 10u);
    EXPECT_EQ(tail.lines.front().text, "line " + std::to_string(kept + 490));
    EXPECT_TRUE(log->LinesFrom(kept + 500).lines.empty());

    // Appending past the bound starts the list again with the newest half of the log, and later
    // lines are appended to it: in order, no gaps.
    model.AppendLog();
    ASSERT_EQ(view.rows.size(), kept / 2);
    EXPECT_EQ(view.rows.front().information, "line " + std::to_string(kept + 500 - kept / 2));
    EXPECT_EQ(view.rows.back().information, "line " + std::to_string(kept + 499));
    write(kept + 500, kept + 503);
    model.AppendLog();
    ASSERT_EQ(view.rows.size(), kept / 2 + 3);
    EXPECT_EQ(view.rows.back().information, "line " + std::to_string(kept + 502));
    for (std::size_t i = 1; i < view.rows.size(); ++i)
        ASSERT_EQ(std::stoul(view.rows[i].information.substr(5)),
                  std::stoul(view.rows[i - 1].information.substr(5)) + 1);
}

TEST_F(LogModelTest, AnEmptyLogStillReceivesLaterLines) {
    auto log = std::make_shared<SourceLog>();
    model.ShowLog(log);
    EXPECT_TRUE(view.rows.empty());
    log->Append(0, kLogStatus, "Connection OK");
    model.AppendLog();
    EXPECT_EQ(view.rows.size(), 1u);
}

// The engine's threads report events under the item's lock; filling the controls is slow (and a
// selected node fills the log list right away), so the pane fills them with the item unlocked.
TEST_F(LogModelTest, FillingTheControlsLeavesTheItemUnlocked) {
    auto first = Source(kSourceConnecting);
    const auto item = Item({first});
    first->log->Append(1, kLogStatus, "one");
    int fills = 0;
    int unlocked = 0;
    view.duringFill = [&] {
        ++fills;
        unlocked += AnotherThreadCanLock(*item) ? 1 : 0;
    };
    model.ShowItem(item);
    ASSERT_TRUE(model.ShowLog(first->log));
    {
        std::lock_guard guard(item->lock);
        item->sources.push_back(Source(kSourceIdle));
    }
    model.AddNewSources(item);
    EXPECT_EQ(fills, 4); // the root, two sources and the one row
    EXPECT_EQ(unlocked, fills);
}

TEST_F(LogModelTest, NoListNoRows) {
    view.listExists = false;
    auto log = std::make_shared<SourceLog>();
    log->Append(0, 0, "x");
    EXPECT_FALSE(model.ShowLog(log));
    model.AppendLog();
    EXPECT_TRUE(view.rows.empty());
}

} // namespace
} // namespace corvid::transfer
