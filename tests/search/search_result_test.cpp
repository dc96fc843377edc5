#include "search/result_cells.h"
#include "search/search_result_reader.h"
#include "tests/search/result_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace corvid {
namespace {

using testing::FileEntry;
using testing::HostEntry;
using testing::ResultText;

int Read(ResultStore& store, const std::string& text) {
    const ReadCount read = ReadSearchResult(store, text);
    EXPECT_TRUE(read.ok());
    return read.value();
}

std::vector<ParsedResult> ReadAll(std::string_view text) {
    std::vector<ParsedResult> files;
    ReadResultFiles(text, [&](ParsedResult& result) { files.push_back(std::move(result)); });
    return files;
}

TEST(SearchResultTest, ReadsEveryFieldOfHostAndFile) {
    HostEntry host;
    host.ip = "192.168.1.20";
    host.port = "6348";
    host.speed = "1200";
    host.vendorCode = "RAZA";
    host.nodeId = "CAFEBABE";
    host.keyword = "night train";
    const auto files = ReadAll(ResultText(
        host, {{"song.mp3", "4500000", "SHA1AAAA", "17", "128kbps"}, {"b.zip", "12", "", "3"}}));
    ASSERT_EQ(files.size(), 2u);
    const ResultSource& s = files[0].source;
    EXPECT_EQ(s.name, "song.mp3");
    EXPECT_EQ(s.host, "192.168.1.20");
    EXPECT_EQ(s.port, 6348);
    EXPECT_EQ(s.fileIndex, 17);
    EXPECT_EQ(s.size, 4500000);
    EXPECT_EQ(s.speed, 1200);
    EXPECT_EQ(s.type, "All");
    EXPECT_EQ(s.vendorCode, "RAZA");
    EXPECT_EQ(s.nodeId, "CAFEBABE");
    EXPECT_EQ(s.info, "128kbps");
    EXPECT_TRUE(s.uptime.empty());
    EXPECT_TRUE(s.guid.empty());
    EXPECT_EQ(files[0].sha1, "SHA1AAAA");
    EXPECT_EQ(files[0].keyword, "night train");
    // Host fields are copied into every file's record.
    EXPECT_EQ(files[1].source.host, "192.168.1.20");
    EXPECT_EQ(files[1].source.fileIndex, 3);
    EXPECT_EQ(files[1].keyword, "night train");
}

TEST(SearchResultTest, OpenDataBitZeroMeansPushOnly) {
    HostEntry host;
    host.openData = "1c";
    auto files = ReadAll(ResultText(host, {{"a.avi"}}));
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].source.browsable, 1);
    EXPECT_EQ(files[0].source.push, 0);

    host.openData = "1d";
    files = ReadAll(ResultText(host, {{"a.avi"}}));
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].source.browsable, 0);
    EXPECT_EQ(files[0].source.push, 1);

    // opendata is looked for from the start of the whole text, even before searchresult.
    files = ReadAll("<opendata>1</opendata>" + ResultText(HostEntry{}, {{"a.avi"}}));
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].source.push, 1);
}

TEST(SearchResultTest, TagsInAnyCaseAndFieldsInTheirOrder) {
    const std::string text =
        "<SEARCHRESULT><KEYWORD>k</KEYWORD><Type>All</Type><NodeID>n</NodeID><IP>1.2.3.4</IP>"
        "<PORT>99</PORT><SPEED>5</SPEED><VENDORCODE>V</VENDORCODE><RESULTSET>"
        "<FILEINFO ID=\"4\"><NAME>x.rar</NAME><SIZE>77</SIZE><SHA1>S</SHA1></FILEINFO>"
        "</RESULTSET></SEARCHRESULT>";
    const auto files = ReadAll(text);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].source.host, "1.2.3.4");
    EXPECT_EQ(files[0].source.port, 99);
    EXPECT_EQ(files[0].source.fileIndex, 4);
    EXPECT_EQ(files[0].source.size, 77);
    EXPECT_EQ(files[0].sha1, "S");

    // An element ahead of its predecessor is not found; a missing one shifts nothing else.
    const std::string swapped =
        "<searchresult><type>All</type><keyword>k</keyword><ip>1.2.3.4</ip><ResultSet>"
        "<FileInfo id='9'><size>5</size><name>late.mp3</name></FileInfo></ResultSet>"
        "</searchresult>";
    const auto late = ReadAll(swapped);
    ASSERT_EQ(late.size(), 1u);
    EXPECT_EQ(late[0].keyword, "k");
    EXPECT_TRUE(late[0].source.type.empty());
    EXPECT_TRUE(late[0].source.nodeId.empty());
    EXPECT_EQ(late[0].source.host, "1.2.3.4"); // found behind keyword, past the missing ones
    EXPECT_EQ(late[0].source.name, "late.mp3");
    EXPECT_EQ(late[0].source.size, 0);
    EXPECT_EQ(late[0].source.fileIndex, 0); // single quotes are not an attribute value
}

TEST(SearchResultTest, AllSearchGroupsBySha1AndNamesTheClass) {
    ResultStore store;
    HostEntry first;
    HostEntry second;
    second.ip = "10.0.0.2";
    second.port = "6999";
    EXPECT_EQ(Read(store, ResultText(first, {{"movie.AVI", "5", "S1"}, {"a.bin", "1", "S2"}})), 2);
    EXPECT_EQ(Read(store, ResultText(second, {{"other name.avi", "5", "S1"}})), 0);
    // The same host again, on another port, adds nothing.
    first.port = "1";
    EXPECT_EQ(Read(store, ResultText(first, {{"movie.avi", "5", "S1"}})), 0);

    ASSERT_EQ(store.Count(), 2);
    const ResultGroup* movie = store.Find("S1");
    ASSERT_NE(movie, nullptr);
    ASSERT_EQ(movie->sources.size(), 2u);
    EXPECT_EQ(movie->sources[0].host, "10.0.0.1");
    EXPECT_EQ(movie->sources[1].host, "10.0.0.2");
    EXPECT_EQ(movie->sources[0].type, "Video");
    EXPECT_EQ(store.Find("S2")->sources[0].type, "Others");
    EXPECT_EQ(movie->state, 0);
    EXPECT_EQ(movie->row, -1);

    const auto queued = store.TakeNewGroups();
    ASSERT_EQ(queued.size(), 2u);
    EXPECT_EQ(queued[0], movie);
    EXPECT_TRUE(store.TakeNewGroups().empty());
}

TEST(SearchResultTest, FilesWithoutSha1AreNeverMerged) {
    ResultStore store;
    EXPECT_EQ(Read(store, ResultText(HostEntry{}, {{"same.mp3"}, {"same.mp3"}})), 2);
    HostEntry other;
    other.ip = "10.9.9.9";
    EXPECT_EQ(Read(store, ResultText(other, {{"same.mp3"}})), 1);
    EXPECT_EQ(store.Count(), 3);
    EXPECT_EQ(store.Groups().size(), 3u);
    EXPECT_EQ(store.Find(""), nullptr);
}

TEST(SearchResultTest, TypedSearchKeepsOnlyItsClass) {
    ResultStore store;
    HostEntry audio;
    audio.type = "audio";
    EXPECT_EQ(Read(store, ResultText(audio, {{"a.mp3", "1", "A"},
                                             {"clip.mp4", "1", "B"},
                                             {"v.avi", "1", "C"},
                                             {"noextension", "1", "D"}})),
              2);
    EXPECT_NE(store.Find("A"), nullptr);
    EXPECT_NE(store.Find("B"), nullptr); // .mp4 is an audio extension here
    EXPECT_EQ(store.Find("C"), nullptr);
    // A typed search keeps the type the search sent.
    EXPECT_EQ(store.Find("A")->sources[0].type, "audio");

    HostEntry document;
    document.type = "Document";
    EXPECT_EQ(
        Read(store,
             ResultText(document, {{"a.doc", "1", "E"}, {"b.txt", "1", "F"}, {"c.pdf", "1", "G"}})),
        0);

    HostEntry browse;
    browse.type = "BrowseHost";
    EXPECT_EQ(Read(store, ResultText(browse, {{"a.doc", "1", "H"}})), 1);
    EXPECT_EQ(store.Find("H")->sources[0].type, "BrowseHost");

    // No type at all fails the class test.
    HostEntry untyped;
    untyped.type = "";
    EXPECT_EQ(Read(store, ResultText(untyped, {{"a.doc", "1", "I"}})), 0);
}

TEST(SearchResultTest, ClassNamesComeFromTheTextSourceGiven) {
    ResultStore store(kDefaultResultLimit,
                      MediaClassNames([](std::uint32_t id) -> std::string_view {
                          return id == 32939 ? "Document" : "?";
                      }));
    HostEntry document;
    document.type = "Document";
    EXPECT_EQ(Read(store, ResultText(document, {{"a.doc", "1", "E"}})), 1);
}

TEST(SearchResultTest, LimitDropsNewFilesAndFurtherSourcesButStillCounts) {
    ResultStore store(2);
    EXPECT_EQ(Read(store, ResultText(HostEntry{}, {{"1.mp3", "1", "A"}, {"2.mp3", "1", "B"}})), 2);
    HostEntry other;
    other.ip = "10.0.0.7";
    EXPECT_EQ(Read(store, ResultText(other, {{"3.mp3", "1", "C"}, {"1.mp3", "1", "A"}})), 2);
    EXPECT_EQ(store.Count(), 2);
    EXPECT_EQ(store.Find("C"), nullptr);
    EXPECT_EQ(store.Find("A")->sources.size(), 1u);

    // Raising the limit lets the search run on.
    store.SetLimit(3);
    EXPECT_EQ(Read(store, ResultText(other, {{"3.mp3", "1", "C"}})), 1);
    EXPECT_EQ(store.Count(), 3);

    store.Clear();
    EXPECT_EQ(store.Count(), 0);
    EXPECT_TRUE(store.Groups().empty());
    EXPECT_TRUE(store.TakeNewGroups().empty());
    EXPECT_EQ(store.Find("A"), nullptr);
    EXPECT_EQ(store.Limit(), 3);
}

TEST(SearchResultTest, DownloadReadingHandsOverEveryFileUnfiltered) {
    HostEntry document;
    document.type = "Document";
    const std::string text =
        ResultText(document, {{"a.doc", "1", "S"}, {"a.doc", "1", "S"}, {"b.exe", "2", ""}});
    std::vector<std::string> names;
    const ReadCount handed =
        ReadResultFiles(text, [&](ParsedResult& r) { names.push_back(r.source.name); });
    ASSERT_TRUE(handed.ok());
    EXPECT_EQ(handed.value(), 3);
    EXPECT_EQ(names, (std::vector<std::string>{"a.doc", "a.doc", "b.exe"}));
}

TEST(SearchResultTest, MissingPartsGiveEmptyFieldsAndNoFiles) {
    EXPECT_TRUE(ReadAll("").empty());
    EXPECT_TRUE(ReadAll("not xml at all").empty());
    EXPECT_TRUE(ReadAll("<searchresult><type>All</type></searchresult>").empty());
    EXPECT_TRUE(ReadAll("<searchresult><ResultSet></ResultSet></searchresult>").empty());
    // Without searchresult every host field is empty, so nothing passes the class test.
    const auto bare =
        ReadAll("<ResultSet><FileInfo id=\"1\"><name>a.mp3</name></FileInfo></ResultSet>");
    EXPECT_TRUE(bare.empty());
    ResultStore store;
    EXPECT_EQ(Read(store, "<type>All</type><ResultSet><FileInfo><name>a.mp3</name></FileInfo>"
                          "</ResultSet>"),
              0);
}

TEST(SearchResultTest, HostileTextsAreReadSafely) {
    const std::string prefix = "<searchresult><type>All</type><ResultSet>";
    std::vector<std::string> texts = {
        prefix + "<FileInfo",
        prefix + "<FileInfo id=\"1\"",
        prefix + "<FileInfo id=\"1\"><name>a",
        prefix + "<FileInfo id=\"99999999999999999999\"><size>-99999999999999</size></FileInfo>",
        "<searchresult",
        "<searchresult>",
        "</searchresult><searchresult>",
        "<",
        ">",
        "\"",
        "<opendata",
        "<opendata>",
        "<opendata size=\"",
        std::string(1000, '<'),
        std::string(1000, '>'),
    };
    std::string many;
    for (int i = 0; i < 200000; ++i) {
        many += "<FileInfo";
    }
    texts.push_back(prefix + many);
    std::string closed;
    for (int i = 0; i < 20000; ++i) {
        closed += "<FileInfo></FileInfo>";
    }
    texts.push_back(prefix + closed + "</ResultSet></searchresult>");

    for (const std::string& text : texts) {
        // Copied into a buffer of exactly its size, so AddressSanitizer sees any read past it.
        const std::vector<char> exact(text.begin(), text.end());
        ResultStore store(100);
        const ReadCount read =
            ReadSearchResult(store, std::string_view(exact.data(), exact.size()));
        ASSERT_TRUE(read.ok());
        EXPECT_LE(store.Count(), 100);
    }

    // A hundred megabytes of open FileInfo tags: read once through, nothing kept.
    std::string flood = prefix;
    flood.reserve(100u << 20);
    while (flood.size() < (100u << 20)) {
        flood += "<FileInfo";
    }
    flood += "</ResultSet></searchresult>";
    ResultStore flooded;
    ASSERT_TRUE(ReadSearchResult(flooded, flood).ok());
    EXPECT_EQ(flooded.Count(), 0);

    // Numbers far beyond 32 bits saturate; a huge sha1 is just a long key.
    const std::string bigSha1(10 * 1024, 'Q');
    const auto files =
        ReadAll(ResultText(HostEntry{}, {{"a.mp3", "9999999999", bigSha1, "-99999999999"}}));
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].source.size, 2147483647);
    EXPECT_EQ(files[0].source.fileIndex, -2147483647 - 1);
    EXPECT_EQ(files[0].sha1, bigSha1);
}

TEST(SearchResultTest, TextEndsAtItsFirstNul) {
    std::string text = ResultText(HostEntry{}, {{"a.mp3", "1", "A"}, {"b\x01.mp3", "1", "B"}});
    EXPECT_EQ(ReadAll(text).size(), 2u);
    // Cut inside the second file, the result set is never closed.
    text[text.find('\x01')] = '\0';
    EXPECT_TRUE(ReadAll(text).empty());
}

TEST(SearchResultTest, TextTooLongForAStringIsAnInvalidArgument) {
    // The length is checked before a byte is read, so a view that only claims it is enough.
    const char byte = '<';
    const std::string_view huge(&byte, kMaxResultTextLength + 1);
    ResultStore store;
    const ReadCount read = ReadSearchResult(store, huge);
    ASSERT_FALSE(read.ok());
    EXPECT_EQ(read.error(), ReadError::StringLengthOutOfRange);
    EXPECT_EQ(store.Count(), 0);
}

} // namespace
} // namespace corvid
