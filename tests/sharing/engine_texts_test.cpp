#include "engine/sharing/engine_text_sources.h"
#include "engine/sharing/engine_texts.h"

#include <gtest/gtest.h>

namespace corvid::gnutella {
namespace {

std::size_t Count(std::string_view text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos;
         at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST(EngineTexts, SearchResultKeepsTheElementOrderTheScannerNeeds) {
    ResultHost host{"holiday", "All", "00FF", "127.0.0.1", 6346, 350, "CRVD", false};
    const ResultFile files[] = {{3, "Holiday Video.avi", 1234, "", "AAAABBBB"},
                                {7, "b.mp3", 5, "128kbps", ""}};
    EXPECT_EQ(SearchResultText(host, files),
              "<searchresult version=\"1.0\"><keyword>holiday</keyword><type>All</type>"
              "<nodeid>00FF</nodeid><ip>127.0.0.1</ip><port>6346</port><speed>350</speed>"
              "<vendorCode>CRVD</vendorCode><opendata size=\"2\">1c</opendata><ResultSet>"
              "<FileInfo id=\"3\"><name>Holiday Video.avi</name><size>1234</size><info></info>"
              "<sha1>AAAABBBB</sha1></FileInfo>"
              "<FileInfo id=\"7\"><name>b.mp3</name><size>5</size><info>128kbps</info>"
              "<sha1></sha1></FileInfo></ResultSet></searchresult>");
    host.firewalled = true;
    EXPECT_NE(SearchResultText(host, {}).find("<opendata size=\"2\">1d</opendata>"),
              std::string::npos);
}

TEST(EngineTexts, NoPeerStringCanOpenOrCloseAnElement) {
    const std::string evil = "x</name><sha1>EVIL</sha1></FileInfo><FileInfo id=\"9\"><name>y\"'&";
    ResultHost host{"k", "BrowseHost", evil, "127.0.0.1", 1, 1, evil, false};
    const ResultFile files[] = {{1, evil, 1, evil, "S"}};
    const std::string text = SearchResultText(host, files);
    EXPECT_EQ(Count(text, "<FileInfo"), 1u);
    EXPECT_EQ(Count(text, "<name>"), 1u);
    EXPECT_EQ(Count(text, "<sha1>"), 1u);
    EXPECT_EQ(Count(text, "<"), Count(text, ">")) << "every bracket is markup of our own";
    EXPECT_NE(text.find("<name>x_/name__sha1_EVIL"), std::string::npos);

    const HostRecord hosts[] = {{evil, evil, evil, 0, evil, evil, evil, 0, evil}};
    const std::string hostText = HostInfoText(hosts);
    EXPECT_EQ(Count(hostText, "<Host>"), 1u);
    EXPECT_EQ(Count(hostText, "<ID>"), 1u);
    EXPECT_EQ(Count(hostText, "<"), 2 + 2 + 9 * 2u);

    UploadInfo upload;
    upload.description = upload.fileName = upload.ip = evil;
    const UploadInfo uploads[] = {upload};
    const std::string uploadText = UploadInfoText(uploads);
    EXPECT_EQ(Count(uploadText, "<UploadInfo"), 1u);
    EXPECT_EQ(Count(uploadText, "<"), 2 + 2 + 7 * 2u);
}

TEST(EngineTexts, CleaningKeepsUtf8AndDropsControlsAndBrokenBytes) {
    EXPECT_EQ(CleanText("Caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x8e\xb5"),
              "Caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x8e\xb5");
    EXPECT_EQ(CleanText(std::string_view("a\0b\r\nc\x7f", 7)), "a b  c ");
    EXPECT_EQ(CleanText("\xff\xc3(\xe2\x82\xed\xa0\x80\xc0\xaf"), "?"
                                                                  "?(???????");
    EXPECT_EQ(CleanText("\xe2\x82"), "??") << "a sequence cut short at the end";
    EXPECT_EQ(CleanText("a&b<c>d\"e'f"), "a&b_c_d\"e'f") << "the reader knows no entities";
}

TEST(EngineTexts, LinkLinesNameTheNodeAndKeepThePeersWordsShortAndClean) {
    PeerInfo peer;
    peer.remote = Endpoint{0x0A000002, 51234};
    peer.kind = PeerKind::Leaf;
    EXPECT_EQ(LinkOpenedText(peer), "Connected to 10.0.0.2:51234 (Leaf)");
    peer.listen = Endpoint{0x0A000002, 6346};
    peer.kind = PeerKind::Ultrapeer;
    peer.user_agent = "Agent/1.0\r\nX-Evil: yes";
    EXPECT_EQ(LinkOpenedText(peer),
              "Connected to 10.0.0.2:6346 (Ultrapeer, Agent/1.0  X-Evil: yes)");
    EXPECT_EQ(LinkClosedText(peer, "Query flood"), "Link to 10.0.0.2:6346 closed: Query flood");
    EXPECT_EQ(LinkClosedText(peer, ""), "Link to 10.0.0.2:6346 closed");
    const std::string longBye = "Bye 200 " + std::string(500, 'x') + "<b>";
    const std::string closed = LinkClosedText(peer, longBye);
    EXPECT_LT(closed.size(), 160u);
    EXPECT_EQ(closed.find('<'), std::string::npos);
}

TEST(EngineTexts, HostTicksAndUploadSizesFitTheReadersSignedFields) {
    const HostRecord hosts[] = {
        {"1", "127.0.0.1:6346", "Agent", 0xFFFFFFF0u, "Ultrapeer", "10", "20", 5000, "0.6"}};
    const std::string text = HostInfoText(hosts);
    EXPECT_NE(text.find("<HandshakeTime>-16</HandshakeTime>"), std::string::npos);
    EXPECT_NE(text.find("<UpdateTime>5000</UpdateTime>"), std::string::npos);

    UploadInfo upload;
    upload.fileSize = 5'000'000'000u;
    const UploadInfo uploads[] = {upload};
    EXPECT_NE(UploadInfoText(uploads).find("<FileSize>2147483647</FileSize>"), std::string::npos);
}

TEST(EngineTexts, NetworkSummaryIsOneInfoElement) {
    NetworkSummary summary;
    summary.mode = "Leaf";
    summary.ultrapeers = 3;
    summary.sharedFiles = 12;
    const std::string text = NetworkInfoText(summary);
    EXPECT_EQ(text.rfind("<info>", 0), 0u);
    EXPECT_TRUE(text.ends_with("</info>"));
    EXPECT_NE(text.find("<Mode>Leaf</Mode>"), std::string::npos);
    EXPECT_NE(text.find("<Connections>3</Connections>"), std::string::npos);
    EXPECT_NE(text.find("<SharedFiles>12</SharedFiles>"), std::string::npos);
}

} // namespace
} // namespace corvid::gnutella

namespace corvid::gnutella {
namespace {

TEST(EngineTexts, AHitFromTheRealNetworkKeepsItsHashPushFlagAndLargeSize) {
    // A firewalled host's hit naming its file by GGEP "H" and "LF" only, as deployed servents do.
    Bytes sha1(20);
    for (std::size_t i = 0; i < sha1.size(); ++i) {
        sha1[i] = static_cast<std::uint8_t>(i * 13);
    }
    Bytes h{0x01};
    h.insert(h.end(), sha1.begin(), sha1.end());
    const std::uint64_t large = 5ull << 30;
    Bytes lf;
    for (std::uint64_t v = large; v != 0; v >>= 8) {
        lf.push_back(static_cast<std::uint8_t>(v));
    }
    GgepBlock block;
    block.extensions = {{"H", h, false, true}, {"LF", lf, false, true}};
    QueryHit written;
    written.port = 6346;
    written.ip = 0x0A000001;
    written.vendor = "ABCD";
    written.flags.firewalled = true;
    written.results.push_back({7, 0xFFFFFFFFu, "film.mkv", "", "", {}});
    Bytes payload = SerializeQueryHit(written);
    // Put the block where the text URN would go: right after the name's NUL.
    const auto name_end = std::find(payload.begin() + 19, payload.end(), std::uint8_t{0});
    const Bytes encoded = *EncodeGgep(block);
    payload.insert(name_end + 1, encoded.begin(), encoded.end());

    const auto hit = ParseQueryHit(payload);
    ASSERT_TRUE(hit);
    const auto files = ResultFilesOf(*hit);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].sha1, Base32Encode(sha1));
    EXPECT_EQ(files[0].size, large) << "the engine keeps the whole size";
    const std::string text = SearchResultText(ResultHostOf(*hit, "film", "All"), files);
    // The plug-in's field holds 31 bits: it shows the largest size it can, never a wrapped one.
    EXPECT_NE(text.find("<size>2147483647</size>"), std::string::npos) << text;
    EXPECT_NE(text.find("<sha1>" + Base32Encode(sha1) + "</sha1>"), std::string::npos);
    EXPECT_NE(text.find("<opendata size=\"2\">1d</opendata>"), std::string::npos);
}

} // namespace
} // namespace corvid::gnutella
