#include "engine/sharing/browse_host.h"
#include "engine/sharing/upload_server.h"

#include <gtest/gtest.h>

#include <set>

namespace corvid::gnutella {
namespace {

std::vector<library::SharedFile> ManyFiles(std::size_t count) {
    std::vector<library::SharedFile> files;
    for (std::size_t i = 0; i < count; ++i) {
        library::SharedFile file;
        file.index = static_cast<std::uint32_t>(i + 1);
        file.name = "file number " + std::to_string(i) + std::string(i % 7 * 40, 'x') + ".mp3";
        file.size = i * 1000;
        file.sha1 = i % 3 ? "" : "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X";
        files.push_back(file);
    }
    return files;
}

BrowseIdentity Identity() {
    BrowseIdentity who;
    who.self = {0x7F000001, 6346};
    who.servent.bytes[0] = 0xAB;
    who.speedKbps = 100;
    return who;
}

std::set<std::uint32_t> Indexes(const std::vector<QueryHit>& hits) {
    std::set<std::uint32_t> indexes;
    for (const auto& hit : hits) {
        for (const auto& result : hit.results) {
            indexes.insert(result.index);
        }
    }
    return indexes;
}

Bytes ToBytes(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

TEST(BrowseHost, TheHitStreamListsEveryFileInMessagesOfTheUsualSize) {
    const auto files = ManyFiles(450);
    const Bytes stream = BrowseHitStream(files, Identity());
    DescriptorFramer framer;
    std::vector<QueryHit> hits;
    std::set<Guid> guids;
    ASSERT_EQ(framer.Feed(stream,
                          [&](Message&& message) {
                              EXPECT_EQ(message.type(), PayloadType::QueryHit);
                              EXPECT_LT(message.payload.size(), 65536u);
                              guids.insert(message.header.guid);
                              auto hit = ParseQueryHit(message.payload);
                              ASSERT_TRUE(hit.has_value());
                              EXPECT_LE(hit->results.size(), 100u);
                              EXPECT_EQ(hit->servent, Identity().servent);
                              EXPECT_EQ(hit->port, 6346);
                              hits.push_back(std::move(*hit));
                          }),
              DescriptorFramer::Status::Ok);
    EXPECT_EQ(Indexes(hits).size(), files.size());
    EXPECT_EQ(guids.size(), hits.size()) << "each message has a GUID of its own";
    EXPECT_EQ(hits.at(0).results.at(0).name, files[0].name);
    EXPECT_EQ(hits.at(0).results.at(0).sha1, files[0].sha1);
    EXPECT_TRUE(BrowseHitStream({}, Identity()).empty());
}

TEST(BrowseHost, TheReaderTakesPlainAndDeflatedAnswersInAnyPieces) {
    const auto files = ManyFiles(120);
    const Bytes stream = BrowseHitStream(files, Identity());
    const std::string plainHead =
        "HTTP/1.1 200 OK\r\nContent-Type: application/x-gnutella-packets\r\n\r\n";
    const std::string deflatedHead =
        "HTTP/1.1 200 OK\r\ncontent-type: APPLICATION/X-GNUTELLA-PACKETS"
        "\r\nContent-Encoding: deflate\r\n\r\n";
    const std::string body(stream.begin(), stream.end());
    for (const std::string& answer : {plainHead + body, deflatedHead + Deflate(body)}) {
        for (std::size_t piece :
             {std::size_t{1}, std::size_t{7}, std::size_t{4096}, answer.size()}) {
            BrowseReader reader;
            const Bytes bytes = ToBytes(answer);
            for (std::size_t at = 0; at < bytes.size(); at += piece) {
                ASSERT_TRUE(
                    reader.Feed(ByteView(bytes).subspan(at, std::min(piece, bytes.size() - at))))
                    << reader.error();
            }
            EXPECT_EQ(reader.status(), 200);
            EXPECT_EQ(Indexes(reader.hits()).size(), files.size()) << piece;
        }
    }
}

// Cuts a body into chunks of the given sizes in turn, with an extension on one of them and a
// trailer at the end, as an HTTP/1.1 server may.
std::string Chunked(const std::string& body, std::initializer_list<std::size_t> sizes) {
    std::string out;
    std::size_t at = 0;
    for (std::size_t turn = 0; at < body.size(); ++turn) {
        const std::size_t size = std::min(body.size() - at, *(sizes.begin() + turn % sizes.size()));
        char line[32];
        std::snprintf(line, sizeof line, turn == 1 ? "%zX;name=value\r\n" : "%zx\r\n", size);
        out += line;
        out += body.substr(at, size);
        out += "\r\n";
        at += size;
    }
    return out + "0\r\nX-Trailer: yes\r\n\r\n";
}

TEST(BrowseHost, AChunkedDeflatedAnswerReadsWholeWhereverTheReadsAreCut) {
    const auto files = ManyFiles(40);
    const Bytes stream = BrowseHitStream(files, Identity());
    const std::string answer =
        "HTTP/1.1 200 OK\r\nContent-Type: application/x-gnutella-packets\r\n"
        "Content-Encoding: deflate\r\nTransfer-Encoding: chunked\r\n\r\n" +
        Chunked(Deflate(std::string(stream.begin(), stream.end())), {1, 300, 17, 4096});
    const Bytes bytes = ToBytes(answer);
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
        BrowseReader reader;
        ASSERT_TRUE(reader.Feed(ByteView(bytes).first(cut))) << cut << " " << reader.error();
        // Cut short, the answer is not whole, whatever arrived.
        if (cut < bytes.size()) {
            EXPECT_FALSE(reader.Complete()) << cut;
        }
        ASSERT_TRUE(reader.Feed(ByteView(bytes).subspan(cut))) << cut << " " << reader.error();
        ASSERT_EQ(reader.state(), BrowseReader::State::Done) << cut;
        ASSERT_EQ(Indexes(reader.hits()).size(), files.size()) << cut;
    }

    // Plain inside the chunks too, and whatever follows the last chunk is not part of it.
    const std::string plain = "HTTP/1.1 200 OK\r\nContent-Type: application/x-gnutella-packets\r\n"
                              "transfer-encoding: CHUNKED\r\n\r\n" +
                              Chunked(std::string(stream.begin(), stream.end()), {999}) +
                              "HTTP/1.1 200 OK";
    BrowseReader reader;
    ASSERT_TRUE(reader.Feed(ToBytes(plain))) << reader.error();
    EXPECT_EQ(reader.state(), BrowseReader::State::Done);
    EXPECT_EQ(Indexes(reader.hits()).size(), files.size());
}

TEST(BrowseHost, MalformedChunksEndTheReadingWithAClearError) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/x-gnutella-packets\r\n"
                             "Transfer-Encoding: chunked\r\n\r\n";
    const std::string broken[] = {
        head + "zz\r\n",                         // not a size
        head + "\r\n",                           // no size at all
        head + "3\r\nabcdef\r\n",                // longer than its size
        head + "1000000000000000\r\n",           // beyond any sane size
        head + "3\rabc",                         // a CR alone
        head + "5;" + std::string(2000, 'e'),    // an endless extension
        head + "0\r\n" + std::string(9000, 't'), // an endless trailer
    };
    for (const std::string& answer : broken) {
        BrowseReader reader;
        EXPECT_FALSE(reader.Feed(ToBytes(answer))) << answer.substr(head.size(), 20);
        EXPECT_NE(reader.error().find("chunk"), std::string::npos) << reader.error();
    }
    BrowseReader gzip;
    EXPECT_FALSE(gzip.Feed(ToBytes("HTTP/1.1 200 OK\r\nContent-Type: application/x-gnutella-packets"
                                   "\r\nTransfer-Encoding: gzip, chunked\r\n\r\n")));
    // A chunked answer whose last chunk ends in the middle of a message is not whole.
    const Bytes stream = BrowseHitStream(ManyFiles(3), Identity());
    BrowseReader cut;
    EXPECT_FALSE(
        cut.Feed(ToBytes(head + Chunked(std::string(stream.begin(), stream.end() - 5), {100}))));
}

TEST(BrowseHost, TheReaderRefusesWhatIsNotAHitStream) {
    const std::string refusals[] = {
        "HTTP/1.1 406 Not Acceptable\r\nContent-Length: 0\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n<html>",
        "GNUTELLA/0.6 200 OK\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Type: application/x-gnutella-packets\r\n"
        "Content-Encoding: deflate\r\n\r\nthis is not zlib",
        std::string(9000, 'H'),
    };
    for (const std::string& answer : refusals) {
        BrowseReader reader;
        EXPECT_FALSE(reader.Feed(ToBytes(answer))) << answer.substr(0, 40);
        EXPECT_EQ(reader.state(), BrowseReader::State::Failed);
        EXPECT_FALSE(reader.error().empty());
        EXPECT_FALSE(reader.Feed(ToBytes("more"))) << "a failed reading stays failed";
    }

    // A message that claims more than the protocol allows ends the reading.
    Bytes huge = ToBytes("HTTP/1.1 200 OK\r\nContent-Type: application/x-gnutella-packets\r\n\r\n");
    // A header whose payload length (little-endian, the last four bytes) claims 70000 bytes.
    Bytes header(kHeaderSize, 0x11);
    const std::uint32_t length = 70000;
    header[16] = 0x81;
    header[17] = 1;
    header[18] = 0;
    for (int i = 0; i < 4; ++i) {
        header[19 + i] = static_cast<std::uint8_t>(length >> (8 * i));
    }
    huge.insert(huge.end(), header.begin(), header.end());
    BrowseReader reader;
    EXPECT_FALSE(reader.Feed(huge));
}

} // namespace
} // namespace corvid::gnutella
