#include "search/search_result_reader.h"
#include "tests/search/result_text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace corvid {
namespace {

using testing::FileEntry;
using testing::HostEntry;
using testing::ResultText;

// The engine's notifications append to the queue while the view drains it: every group must
// come out exactly once, in order of arrival.
TEST(ResultStoreConcurrencyTest, ReaderAndDrainingViewShareTheQueue) {
    constexpr int kTexts = 400;
    constexpr int kFilesPerText = 10;
    std::vector<std::string> texts;
    for (int t = 0; t < kTexts; ++t) {
        HostEntry host;
        host.ip = "10.0." + std::to_string(t / 250) + "." + std::to_string(t % 250);
        std::vector<FileEntry> files;
        for (int f = 0; f < kFilesPerText; ++f) {
            // Every other text offers the files of the one before it again: further sources.
            const int file = (t - t % 2) * kFilesPerText + f;
            files.push_back({"f" + std::to_string(file) + ".mp3", "1", "S" + std::to_string(file)});
        }
        texts.push_back(ResultText(host, files));
    }

    ResultStore store;
    std::atomic<bool> readerDone{false};
    std::vector<std::string> drained;
    std::thread view([&] {
        for (;;) {
            const bool last = readerDone.load();
            // A group's key is fixed before it is queued; the view reads nothing else here.
            for (const ResultGroup* group : store.TakeNewGroups()) {
                drained.push_back(group->sha1);
            }
            if (last) {
                break;
            }
            std::this_thread::yield();
        }
    });
    int accepted = 0;
    for (const std::string& text : texts) {
        accepted += ReadSearchResult(store, text).value();
    }
    readerDone.store(true);
    view.join();

    EXPECT_EQ(accepted, kTexts / 2 * kFilesPerText);
    EXPECT_EQ(store.Count(), accepted);
    ASSERT_EQ(drained.size(), static_cast<std::size_t>(accepted));
    EXPECT_EQ(std::set<std::string>(drained.begin(), drained.end()).size(), drained.size());
    for (std::size_t i = 0; i < store.Groups().size(); ++i) {
        EXPECT_EQ(drained[i], store.Groups()[i]->sha1);
        EXPECT_EQ(store.Groups()[i]->sources.size(), 2u);
    }
}

} // namespace
} // namespace corvid
