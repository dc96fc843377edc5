#include "search/search_window_model.h"
#include "tests/search/result_text.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace corvid {
namespace {

using testing::FileEntry;
using testing::HostEntry;
using testing::ResultText;

struct RecordingSearch : SearchControl {
    void Stop() override { ++stops; }
    void Restart() override { ++restarts; }
    int stops = 0;
    int restarts = 0;
};

struct RecordingHandOver : ResultHandOver {
    std::string PathOnDisk(const std::string& sha1) override {
        auto found = onDisk.find(sha1);
        return found == onDisk.end() ? "" : found->second;
    }
    void ShowAlreadyOnDisk(const std::string& path) override { shownOnDisk.push_back(path); }
    bool StartDownload(const ResultGroup& group) override {
        started.push_back(group.sha1);
        return true;
    }
    bool AnyDownloads() override { return !started.empty(); }
    void OfferHit(const std::string& sha1, const ResultSource& source) override {
        offers.push_back(sha1 + "@" + source.host);
    }
    std::map<std::string, std::string> onDisk;
    std::vector<std::string> shownOnDisk;
    std::vector<std::string> started;
    std::vector<std::string> offers;
};

std::string Text(const std::string& ip, std::vector<FileEntry> files) {
    HostEntry host;
    host.ip = ip;
    return ResultText(host, files);
}

std::string ManyFiles(int first, int count) {
    std::vector<FileEntry> files;
    for (int i = first; i < first + count; ++i) {
        files.emplace_back("file" + std::to_string(i) + ".mp3", "1000", "SHA" + std::to_string(i));
    }
    return Text("10.0.0.1", files);
}

TEST(SearchWindowModelTest, ResultsWaitForAVisibleRefresh) {
    SearchWindowModel model;
    RecordingSearch search;
    EXPECT_EQ(model.OnResultText(ManyFiles(0, 3), &search, nullptr), 3);
    EXPECT_TRUE(model.ResultsChanged());
    EXPECT_EQ(model.Rows().RowCount(), 0u);
    EXPECT_FALSE(model.Refresh(false));
    EXPECT_EQ(model.Rows().RowCount(), 0u);
    EXPECT_TRUE(model.Refresh(true));
    EXPECT_EQ(model.Rows().RowCount(), 3u);
    EXPECT_FALSE(model.Refresh(true)); // nothing new
    // A further host of a known file changes nothing that counts.
    EXPECT_EQ(
        model.OnResultText(Text("10.0.0.2", {{"file1.mp3", "1000", "SHA1"}}), &search, nullptr), 0);
    EXPECT_FALSE(model.ResultsChanged());
}

TEST(SearchWindowModelTest, TheLimitStopsTheSearchAndRestartRaisesIt) {
    SearchWindowModel model;
    RecordingSearch search;
    for (int i = 0; i < kDefaultResultLimit; i += 500) {
        model.OnResultText(ManyFiles(i, 500), &search, nullptr);
    }
    EXPECT_EQ(model.Store().Count(), 10000);
    EXPECT_EQ(search.stops, 1);
    // Results beyond the limit are dropped, and the search is not told again.
    model.OnResultText(ManyFiles(20000, 5), &search, nullptr);
    EXPECT_EQ(model.Store().Count(), 10000);
    EXPECT_EQ(search.stops, 1);

    model.Restart(&search);
    EXPECT_EQ(model.Store().Limit(), 20000);
    EXPECT_EQ(search.restarts, 1);
    EXPECT_EQ(model.OnResultText(ManyFiles(30000, 5), &search, nullptr), 5);
    EXPECT_EQ(model.Store().Count(), 10005);

    model.Restart(&search); // below the limit now
    EXPECT_EQ(model.Store().Limit(), 20000);
    model.Restart(nullptr); // no search object: nothing to tell
    EXPECT_EQ(search.restarts, 2);
}

TEST(SearchWindowModelTest, DownloadHandsEachGroupOnceAndSkipsFilesOnDisk) {
    SearchWindowModel model;
    model.OnResultText(Text("10.0.0.1", {{"a.mp3", "5", "SA"}, {"b.mp3", "6", "SB"}}), nullptr,
                       nullptr);
    model.OnResultText(Text("10.0.0.2", {{"a.mp3", "5", "SA"}}), nullptr, nullptr);
    model.Refresh(true);
    model.Rows().SetSort(kColumnName, true);
    model.Rows().Sort();
    ASSERT_TRUE(model.Rows().Expand(0));
    RecordingHandOver handOver;
    handOver.onDisk["SB"] = "C:\\Library\\b.mp3";
    // The group row and both its source rows are selected, and b's row.
    const std::vector<int> selected = {3, 0, 1, 2};
    EXPECT_EQ(model.Download(selected, handOver), 1);
    EXPECT_EQ(handOver.started, std::vector<std::string>{"SA"});
    EXPECT_EQ(handOver.shownOnDisk, std::vector<std::string>{"C:\\Library\\b.mp3"});
    EXPECT_EQ(model.Store().Find("SA")->state, kGroupHandedToDownloads);
    EXPECT_EQ(model.Store().Find("SB")->state, 0);
    // Handed-over files leave the list unless "Search ShowDownloaded" is set.
    EXPECT_EQ(model.Rows().RowCount(), 1u);
    model.Rows().SetShowDownloaded(true);
    EXPECT_EQ(model.Rows().RowCount(), 4u);
    EXPECT_EQ(model.Download(std::vector<int>{}, handOver), 0);
}

TEST(SearchWindowModelTest, NewHostsAreOfferedOnceSomethingDownloads) {
    SearchWindowModel model;
    RecordingHandOver handOver;
    model.OnResultText(Text("10.0.0.1", {{"a.mp3", "5", "SA"}, {"x", "1", ""}}), nullptr,
                       &handOver);
    EXPECT_TRUE(handOver.offers.empty());
    handOver.started.push_back("SA");
    model.OnResultText(Text("10.0.0.2", {{"a.mp3", "5", "SA"}, {"x", "1", ""}}), nullptr,
                       &handOver);
    EXPECT_EQ(handOver.offers, std::vector<std::string>{"SA@10.0.0.2"});
}

TEST(SearchWindowModelTest, BrowseAndPropertiesTakeTheFirstSelectedRow) {
    SearchWindowModel model;
    HostEntry one;
    one.ip = "10.0.0.1";
    one.port = "6346";
    HostEntry two;
    two.ip = "10.0.0.2";
    two.port = "7001";
    two.openData = "1d";
    model.OnResultText(ResultText(one, {{"a.mp3", "1234567", "SA", "3", "live"}}), nullptr,
                       nullptr);
    model.OnResultText(ResultText(two, {{"a.mp3", "1234567", "SA", "8", "live"}}), nullptr,
                       nullptr);
    model.Refresh(true);
    model.Rows().Expand(0);
    EXPECT_EQ(model.BrowseAddress(std::vector<int>{0}), "http://10.0.0.1:6346");
    EXPECT_EQ(model.BrowseAddress(std::vector<int>{2, 0}), "http://10.0.0.2:7001");
    EXPECT_FALSE(model.BrowseAddress(std::vector<int>{}));
    EXPECT_FALSE(model.PropertiesRow(std::vector<int>{7}));

    const auto row = model.PropertiesRow(std::vector<int>{2});
    ASSERT_TRUE(row);
    std::map<std::uint32_t, std::string> fields;
    for (const PropertyField& field : SourceProperties(*row->group, row->source)) {
        fields[field.nameId] = field.value;
    }
    EXPECT_EQ(fields[kColumnHost], "10.0.0.2"); // the source's own, never "multiple(2)"
    EXPECT_EQ(fields[kColumnSize], "1,234,567");
    EXPECT_EQ(fields[kColumnFileIndex], "8");
    EXPECT_EQ(fields[kColumnBrowse], "No");
    EXPECT_EQ(fields[34041], "Yes");
    EXPECT_EQ(fields[kColumnSha1], "SA");
}

TEST(SearchWindowModelTest, CopiedRowsAreTabSeparatedLinesInListOrder) {
    SearchWindowModel model;
    model.OnResultText(Text("10.0.0.1", {{"a.mp3", "1234", "SA", "3"}, {"b.zip", "5", "SB", "4"}}),
                       nullptr, nullptr);
    model.Refresh(true);
    model.Rows().SetSort(kColumnName, true);
    model.Rows().Sort();
    EXPECT_EQ(RowsAsText(model.Rows(), std::vector<int>{1, 0, 9}),
              "a.mp3\t1,234\t10.0.0.1\t6346\t3\t \tAudio\tCRVD\t350\tSA\tYes\t\t\t"
              "0123456789ABCDEF\t\r\n"
              "b.zip\t5\t10.0.0.1\t6346\t4\t \tPackage\tCRVD\t350\tSB\tYes\t\t\t"
              "0123456789ABCDEF\t\r\n");
    EXPECT_EQ(RowsAsText(model.Rows(), std::vector<int>{}), "");
}

TEST(SearchWindowModelTest, ClearEmptiesListAndStoreButKeepsTheLimit) {
    SearchWindowModel model;
    RecordingSearch search;
    model.OnResultText(ManyFiles(0, 10), &search, nullptr);
    model.Refresh(true);
    model.Store().SetLimit(20000);
    model.Clear();
    EXPECT_EQ(model.Rows().RowCount(), 0u);
    EXPECT_EQ(model.Store().Count(), 0);
    EXPECT_EQ(model.Store().Limit(), 20000);
    EXPECT_FALSE(model.Refresh(true));
    model.OnResultText(ManyFiles(0, 10), &search, nullptr);
    model.Refresh(true);
    EXPECT_EQ(model.Rows().RowCount(), 10u);
    EXPECT_EQ(SearchWindowTitle("night train", 10), "night train (10)");
}

} // namespace
} // namespace corvid
