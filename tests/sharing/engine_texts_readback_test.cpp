// The engine's texts read back by the plug-in's own tag scanner and result reader: whatever the
// engine writes must come back as the same records, peer-supplied oddities included.
#include "engine/sharing/engine_texts.h"
#include "plugin_readers.h"
#include "search/result_store.h"
#include "search/search_result_reader.h"
#include "search/tag_scanner.h"

#include <gtest/gtest.h>

namespace corvid::gnutella {
namespace {

TEST(EngineTextsReadBack, SearchResultsComeBackAsTheSameRecords) {
    const ResultHost host{"holiday trip", "All", "0123456789ABCDEF0123456789ABCDEF",
                          "127.0.0.1",    6347,  350,
                          "CRVD",         false};
    const ResultFile files[] = {
        {3, "Holiday Video.avi", 1234567, "", "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X"},
        {7, "Caf\xc3\xa9 & \"Friends\".mp3", 5, "128kbps", "3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJ"},
        {9, "no hash.txt", 0, "", ""},
    };
    std::vector<ParsedResult> read;
    const ReadCount count =
        ReadResultFiles(SearchResultText(host, files),
                        [&](ParsedResult& result) { read.push_back(std::move(result)); });
    ASSERT_TRUE(count.ok());
    ASSERT_EQ(count.value(), 3);
    for (std::size_t i = 0; i < read.size(); ++i) {
        const ResultSource& source = read[i].source;
        EXPECT_EQ(source.name, files[i].name);
        EXPECT_EQ(source.fileIndex, static_cast<std::int32_t>(files[i].index));
        EXPECT_EQ(source.size, static_cast<std::int32_t>(files[i].size));
        EXPECT_EQ(source.info, files[i].info);
        EXPECT_EQ(read[i].sha1, files[i].sha1);
        EXPECT_EQ(read[i].keyword, host.keyword);
        EXPECT_EQ(source.host, host.ip);
        EXPECT_EQ(source.port, host.port);
        EXPECT_EQ(source.speed, 350);
        EXPECT_EQ(source.vendorCode, host.vendorCode);
        EXPECT_EQ(source.nodeId, host.nodeId);
        EXPECT_EQ(source.browsable, 1);
        EXPECT_EQ(source.push, 0);
    }
}

TEST(EngineTextsReadBack, RelayUrlsOfFirewalledHostsComeBackAndKeepThemApart) {
    // Two firewalled hosts behind different routers, both on the same private address.
    const std::string sha1 = "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";
    const ResultHost host{"tune", "All", "AB", "192.168.0.2", 6346, 0, "CRVD", true};
    const std::string relay = "http://127.0.0.1:4000/push/";
    const ResultFile first[] = {
        {1, "tune.mp3", 9, "", sha1, relay + "aa/1/-/uri-res/N2R?urn:sha1:" + sha1}};
    const ResultFile second[] = {
        {2, "tune.mp3", 9, "", sha1, relay + "bb/2/-/uri-res/N2R?urn:sha1:" + sha1}};
    ResultStore store;
    ASSERT_EQ(ReadSearchResult(store, SearchResultText(host, first)).value(), 1);
    ASSERT_EQ(ReadSearchResult(store, SearchResultText(host, second)).value(), 0);
    // The first host answering again adds nothing.
    ASSERT_EQ(ReadSearchResult(store, SearchResultText(host, first)).value(), 0);
    ASSERT_EQ(store.Groups().size(), 1u);
    const auto& sources = store.Groups().front()->sources;
    ASSERT_EQ(sources.size(), 2u);
    EXPECT_EQ(sources[0].sourceUrl, first[0].source);
    EXPECT_EQ(sources[1].sourceUrl, second[0].source);
    EXPECT_EQ(sources[1].fileIndex, 2);
    EXPECT_EQ(sources[1].push, 1);

    // A host reached directly carries no relay URL, and its text has no element for one.
    const ResultHost direct{"tune", "All", "AB", "10.1.2.3", 6346, 0, "CRVD", false};
    const ResultFile plain[] = {{3, "tune.mp3", 9, "", sha1}};
    const std::string text = SearchResultText(direct, plain);
    EXPECT_EQ(text.find("<source"), std::string::npos) << text;
    ReadResultFiles(text,
                    [](ParsedResult& result) { EXPECT_TRUE(result.source.sourceUrl.empty()); });
}

TEST(EngineTextsReadBack, BrowseAnswersFromFirewalledHostsKeepEveryFileAndNeedAPush) {
    const ResultHost host{"", "BrowseHost", "AB", "127.0.0.1", 6346, 0, "CRVD", true};
    const ResultFile files[] = {{1, "a.doc", 1, "", "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"},
                                {2, "b.xyz", 2, "", "BBBBBBBBBBBBBBBBBBBBBBBBBBBBBBBB"}};
    ResultStore store;
    ASSERT_EQ(ReadSearchResult(store, SearchResultText(host, files)).value(), 2);
    ASSERT_EQ(store.Groups().size(), 2u);
    for (const auto& group : store.Groups()) {
        EXPECT_EQ(group->sources.at(0).browsable, 0);
        EXPECT_EQ(group->sources.at(0).push, 1);
        EXPECT_EQ(group->sources.at(0).type, "BrowseHost");
    }
}

TEST(EngineTextsReadBack, APeerCannotAddFilesOrChangeFieldsThroughItsStrings) {
    const std::string evil = "x</name><sha1>EVIL</sha1></FileInfo><FileInfo id=\"9\"><name>y";
    const ResultHost host{"k", "BrowseHost", evil, "127.0.0.1", 1, 1, evil, false};
    const ResultFile files[] = {{1, evil, 1, evil, "S"}};
    std::vector<ParsedResult> read;
    ReadResultFiles(SearchResultText(host, files),
                    [&](ParsedResult& result) { read.push_back(result); });
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].sha1, "S");
    EXPECT_EQ(read[0].source.fileIndex, 1);
    EXPECT_EQ(read[0].source.name, CleanText(evil));
}

TEST(EngineTextsReadBack, HostInfoComesBackFieldByField) {
    const HostRecord records[] = {
        {"1", "127.0.0.1:6346", "Corvid/0.1", 0xFFFFF000u, "Ultrapeer", "1024", "2048", 5000,
         "0.6"},
        {"2", "127.0.0.2:6347", "Other <Host>", 10, "Leaf", "0", "0", 20, ""},
    };
    const auto hosts = testing::ReadHosts(HostInfoText(records));
    ASSERT_EQ(hosts.size(), 2u);
    EXPECT_EQ(hosts[0].id, "1");
    EXPECT_EQ(hosts[0].node, "127.0.0.1:6346");
    EXPECT_EQ(hosts[0].agent, "Corvid/0.1");
    EXPECT_EQ(static_cast<std::uint32_t>(ParseDecimal(hosts[0].handshake)), 0xFFFFF000u)
        << "a wrapped tick reads back as the same 32 bits";
    EXPECT_EQ(hosts[0].type, "Ultrapeer");
    EXPECT_EQ(hosts[0].in, "1024");
    EXPECT_EQ(hosts[0].out, "2048");
    EXPECT_EQ(ParseDecimal(hosts[0].update), 5000);
    EXPECT_EQ(hosts[0].version, "0.6");
    EXPECT_EQ(hosts[1].agent, "Other _Host_");
    EXPECT_EQ(hosts[1].type, "Leaf");
}

TEST(EngineTextsReadBack, UploadInfoComesBackFieldByField) {
    UploadInfo upload;
    upload.id = 42;
    upload.progress = 37;
    upload.speed = 30720;
    upload.description = "Agent/2.0";
    upload.fileName = "Song One.mp3";
    upload.fileSize = 4000000;
    upload.ip = "127.0.0.3";
    upload.port = 51234;
    const UploadInfo uploads[] = {upload, UploadInfo{}};
    const std::string written = UploadInfoText(uploads);
    std::string_view text = written;

    const auto read = testing::ReadUploads(text);
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read[0].id, 42);
    EXPECT_EQ(read[0].progress, 37);
    EXPECT_EQ(read[0].speed, 30720);
    EXPECT_EQ(read[0].description, "Agent/2.0");
    EXPECT_EQ(read[0].fileName, "Song One.mp3");
    EXPECT_EQ(read[0].fileSize, 4000000u);
    EXPECT_EQ(read[0].ip, "127.0.0.3");
    EXPECT_EQ(read[0].port, 51234);
    EXPECT_EQ(read[1].id, 0);
    EXPECT_EQ(read[1].fileName, "");
}

} // namespace
} // namespace corvid::gnutella
