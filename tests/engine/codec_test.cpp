// Descriptor payloads, GGEP and framing as bytes on the wire.
#include <gtest/gtest.h>

#include "engine/core/descriptor.h"
#include "engine/core/ggep.h"
#include "engine/core/zstream.h"

namespace corvid::gnutella {
namespace {

Bytes Hex(std::string_view hex) {
    Bytes out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        if (hex[i] == ' ') {
            --i;
            continue;
        }
        out.push_back(
            static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
    }
    return out;
}

constexpr char kSha1[] = "AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHH";

TEST(Ggep, LengthsUseSixBitGroupsMostSignificantFirst) {
    for (std::size_t n : {0u, 63u, 64u, 4095u, 4096u, 70000u}) {
        GgepBlock block;
        block.extensions.push_back({"X", Bytes(n, 0x55), false, false});
        auto encoded = EncodeGgep(block);
        ASSERT_TRUE(encoded);
        auto parsed = ParseGgep(*encoded);
        ASSERT_TRUE(parsed) << n;
        EXPECT_EQ(parsed->extensions[0].data.size(), n);
    }
    GgepBlock block;
    block.extensions.push_back({"AB", Bytes(64, 1), false, false});
    auto encoded = *EncodeGgep(block);
    EXPECT_EQ(encoded[0], 0xC3);
    EXPECT_EQ(encoded[1], 0x82); // last, id length 2
    EXPECT_EQ(encoded[4], 0x81);
    EXPECT_EQ(encoded[5], 0x40);
}

TEST(Ggep, CobsAndDeflateRoundTripAndRemoveNulBytes) {
    GgepBlock block;
    Bytes data(300, 0);
    for (std::size_t i = 0; i < data.size(); i += 7)
        data[i] = static_cast<std::uint8_t>(i);
    block.extensions.push_back({"DU", {1, 2, 3}, false, false});
    block.extensions.push_back({"ALT", data, true, true});
    block.extensions.push_back({"LF", {0, 0, 0, 0, 1}, false, true});
    auto encoded = EncodeGgep(block);
    ASSERT_TRUE(encoded);
    std::size_t used = 0;
    auto parsed = ParseGgep(*encoded, &used);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(used, encoded->size());
    ASSERT_EQ(parsed->extensions.size(), 3u);
    EXPECT_EQ(parsed->Find("ALT")->data, data);
    EXPECT_EQ(parsed->Find("LF")->data, (Bytes{0, 0, 0, 0, 1}));
    EXPECT_EQ(parsed->Find("DU")->data, (Bytes{1, 2, 3}));

    for (const Bytes& sample :
         {Bytes{}, Bytes{0}, Bytes(254, 9), Bytes(255, 9), Bytes{1, 0, 0, 2}}) {
        auto cobs = CobsEncode(sample);
        EXPECT_EQ(std::count(cobs.begin(), cobs.end(), 0), 0);
        EXPECT_EQ(CobsDecode(cobs), sample);
    }
}

TEST(Ggep, LyingOrBrokenBlocksAreRefused) {
    EXPECT_FALSE(ParseGgep(Hex("C3 82 41 42 45 01")));       // says 5 bytes, holds 1
    EXPECT_FALSE(ParseGgep(Hex("C3 02 41 42 40")));          // never marks a last extension
    EXPECT_FALSE(ParseGgep(Hex("C3 92 41 42 40")));          // reserved bit set
    EXPECT_FALSE(ParseGgep(Hex("C3 80 40")));                // empty id
    EXPECT_FALSE(ParseGgep(Hex("C3 82 41 42 81 81 81 40"))); // four length groups
    EXPECT_FALSE(ParseGgep(Hex("C3 A2 41 42 43 78 9C 63"))); // truncated deflate
    EXPECT_FALSE(ParseGgep(Hex("C3 C2 41 42 42 05 01")));    // COBS code runs past the data
    EXPECT_FALSE(ParseGgep(Hex("C3")));
    // A deflate bomb inflates past what any extension may hold.
    GgepBlock bomb;
    bomb.extensions.push_back({"X", Bytes(kGgepMaxInflated + 1, 0), true, false});
    EXPECT_FALSE(ParseGgep(*EncodeGgep(bomb)));
}

TEST(Descriptors, HeaderAndSmallPayloadsRoundTrip) {
    std::mt19937_64 rng(1);
    Guid guid = Guid::Random(rng);
    EXPECT_EQ(guid.bytes[8], 0xFF);
    EXPECT_EQ(guid.bytes[15], 0x00);
    auto bytes = SerializeMessage(MakeMessage(guid, PayloadType::Ping, 7, {}));
    ASSERT_EQ(bytes.size(), kHeaderSize);
    auto header = ParseHeader(bytes);
    EXPECT_EQ(header->guid, guid);
    EXPECT_EQ(header->ttl, 7);
    EXPECT_EQ(header->payload_length, 0u);

    Pong pong{6346, 0xD0113204, 12, 3400, {}};
    pong.ggep.emplace();
    pong.ggep->extensions.push_back({"DU", {0x10}, false, false});
    auto pong_bytes = SerializePong(pong);
    EXPECT_EQ(Bytes(pong_bytes.begin() + 2, pong_bytes.begin() + 6),
              (Bytes{0xD0, 0x11, 0x32, 0x04}));
    auto parsed_pong = ParsePong(pong_bytes);
    ASSERT_TRUE(parsed_pong);
    EXPECT_EQ(parsed_pong->endpoint().ToString(), "208.17.50.4:6346");
    EXPECT_EQ(parsed_pong->kilobytes, 3400u);
    EXPECT_TRUE(parsed_pong->ggep->Find("DU"));
    EXPECT_FALSE(ParsePong(Bytes(13, 0)));

    auto bye = ParseBye(SerializeBye({400, "Too big"}));
    EXPECT_EQ(bye->code, 400);
    EXPECT_EQ(bye->reason, "Too big");

    Push push{guid, 77, 0x7F000001, 6348};
    auto push_bytes = SerializePush(push);
    EXPECT_EQ(push_bytes.size(), 26u);
    auto parsed_push = ParsePush(push_bytes);
    EXPECT_EQ(parsed_push->servent, guid);
    EXPECT_EQ(parsed_push->file_index, 77u);
    EXPECT_EQ(parsed_push->port, 6348);
    EXPECT_FALSE(ParsePush(Bytes(25, 0)));
}

TEST(Descriptors, QueryCarriesFlagsBigEndianUrnsAndGgep) {
    Query q;
    q.flags = kQueryFlagsPresent | kQueryGgepH;
    q.text = "alpha beta";
    q.sha1s = {kSha1};
    q.ggep.emplace();
    q.ggep->extensions.push_back({"H", {1, 2}, false, false});
    auto bytes = SerializeQuery(q);
    EXPECT_EQ(bytes[0], 0x88);
    EXPECT_EQ(bytes[1], 0x00);
    auto parsed = ParseQuery(bytes);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->flags, q.flags);
    EXPECT_EQ(parsed->text, "alpha beta");
    EXPECT_EQ(parsed->sha1s, std::vector<std::string>{kSha1});
    EXPECT_TRUE(parsed->ggep->Find("H"));

    // A lower-case URN from another servent reads the same; junk extensions are ignored.
    std::string raw = std::string("\x80\x00", 2) + "\\" + std::string(1, '\0') +
                      "urn:sha1:aaaabbbbccccddddeeeeffffgggghhhh\x1cjunk\x1curn:sha1:short";
    auto urn_only = ParseQuery(AsBytes(raw));
    ASSERT_TRUE(urn_only);
    EXPECT_EQ(urn_only->sha1s, std::vector<std::string>{kSha1});
    EXPECT_FALSE(ParseQuery(AsBytes(std::string("\x80\x00no nul", 8))));
}

QueryHit SampleHit() {
    QueryHit hit;
    hit.port = 6346;
    hit.ip = 0x7F000001;
    hit.speed = 1000;
    hit.results.push_back({1, 1000, "alpha beta.mp3", kSha1, "", {}});
    hit.results.push_back({2, 5'000'000'000ull, "big film.avi", "", "", {}});
    hit.vendor = "CRVD";
    hit.flags.busy = true;
    hit.ggep.emplace();
    hit.ggep->extensions.push_back({"BH", {}, false, false});
    hit.servent.bytes.fill(0x42);
    return hit;
}

TEST(Descriptors, QueryHitRoundTripsResultsTrailerAndServentGuid) {
    auto hit = SampleHit();
    auto bytes = SerializeQueryHit(hit);
    EXPECT_EQ(Bytes(bytes.end() - 16, bytes.end()), Bytes(16, 0x42));
    auto parsed = ParseQueryHit(bytes);
    ASSERT_TRUE(parsed);
    ASSERT_EQ(parsed->results.size(), 2u);
    EXPECT_EQ(parsed->results[0].name, "alpha beta.mp3");
    EXPECT_EQ(parsed->results[0].sha1, kSha1);
    EXPECT_EQ(parsed->results[1].size, 5'000'000'000ull); // via GGEP LF
    EXPECT_EQ(parsed->vendor, "CRVD");
    EXPECT_TRUE(parsed->flags.busy);
    EXPECT_FALSE(parsed->flags.firewalled);
    EXPECT_TRUE(parsed->flags.ggep);
    EXPECT_TRUE(parsed->ggep && parsed->ggep->Find("BH"));
    EXPECT_EQ(parsed->servent, hit.servent);
    EXPECT_EQ(QueryHitServent(bytes), hit.servent);
}

TEST(Descriptors, QueryHitTrailersOfOtherShapesStillRead) {
    auto base = SampleHit();
    base.results.resize(1);
    base.ggep.reset();
    Bytes body = SerializeQueryHit(base);
    // Cut our trailer off: results end right after the last NUL of the only result.
    std::size_t results_end = body.size() - 16 - (4 + 1 + 4);
    Bytes prefix(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(results_end));
    Bytes guid(16, 0x42);

    // No trailer at all.
    Bytes none = prefix;
    PutBytes(none, guid);
    auto a = ParseQueryHit(none);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->vendor, "");
    EXPECT_EQ(a->results.size(), 1u);

    // Open data of size 2: push needed.
    Bytes two = prefix;
    PutText(two, "ABCD");
    PutBytes(two, Bytes{2, 0x01, 0x01});
    PutBytes(two, guid);
    auto b = ParseQueryHit(two);
    ASSERT_TRUE(b);
    EXPECT_EQ(b->vendor, "ABCD");
    EXPECT_TRUE(b->flags.firewalled);

    // Size 4 with GGEP in the private area and an XML block after it.
    std::string xml = "<audios/>";
    Bytes four = prefix;
    PutText(four, "WXYZ");
    PutBytes(four, Bytes{4, 0x3C, 0x21});
    PutU16Le(four, static_cast<std::uint16_t>(xml.size()));
    PutBytes(four, Bytes{0xC3, 0x82, 'B', 'H', 0x40});
    PutText(four, xml);
    PutBytes(four, guid);
    auto c = ParseQueryHit(four);
    ASSERT_TRUE(c);
    EXPECT_TRUE(c->ggep && c->ggep->Find("BH"));
    EXPECT_EQ(c->servent.bytes[0], 0x42);

    // A trailer whose open-data size lies is ignored, not fatal.
    Bytes lying = prefix;
    PutText(lying, "ABCD");
    PutBytes(lying, Bytes{200, 1, 1});
    PutBytes(lying, guid);
    EXPECT_TRUE(ParseQueryHit(lying));
    // A result count larger than the results is fatal.
    Bytes short_results = none;
    short_results[0] = 3;
    EXPECT_FALSE(ParseQueryHit(short_results));
}

TEST(Descriptors, OpenDataBytesMeanTheSameToBothReaders) {
    for (int bits = 0; bits < 32; ++bits) {
        HitFlags f{bool(bits & 1), bool(bits & 2), bool(bits & 4), bool(bits & 8), bool(bits & 16)};
        auto [a, b] = WriteOpenData(f);
        for (auto read : {ReadOpenDataByEnablers(a, b), ReadOpenDataByConjunction(a, b)}) {
            EXPECT_EQ(read.firewalled, f.firewalled) << bits;
            EXPECT_EQ(read.busy, f.busy) << bits;
            EXPECT_EQ(read.has_uploaded, f.has_uploaded) << bits;
            EXPECT_EQ(read.speed_measured, f.speed_measured) << bits;
            EXPECT_EQ(read.ggep, f.ggep) << bits;
        }
        EXPECT_TRUE(b & 0x01);
    }
}

TEST(Framing, MessagesSurviveEveryReadBoundary) {
    std::mt19937_64 rng(2);
    Bytes stream;
    std::vector<Message> sent;
    for (int i = 0; i < 5; ++i) {
        Bytes payload(static_cast<std::size_t>(i * 37), static_cast<std::uint8_t>(i));
        sent.push_back(MakeMessage(Guid::Random(rng), PayloadType::Query, 3, payload));
        PutBytes(stream, SerializeMessage(sent.back()));
    }
    for (std::size_t step = 1; step <= stream.size(); step += (step < 30 ? 1 : 41)) {
        DescriptorFramer framer;
        std::vector<Message> got;
        for (std::size_t i = 0; i < stream.size(); i += step) {
            auto piece = ByteView(stream).subspan(i, std::min(step, stream.size() - i));
            ASSERT_EQ(framer.Feed(piece, [&](Message&& m) { got.push_back(std::move(m)); }),
                      DescriptorFramer::Status::Ok);
        }
        ASSERT_EQ(got.size(), sent.size()) << step;
        for (std::size_t k = 0; k < got.size(); ++k) {
            EXPECT_EQ(got[k].header.guid, sent[k].header.guid);
            EXPECT_EQ(got[k].payload, sent[k].payload);
        }
        EXPECT_EQ(framer.buffered(), 0u);
    }
}

TEST(Framing, OversizedPayloadStopsTheStreamBeforeBuffering) {
    Header h;
    h.type = 0x80;
    h.payload_length = 70000;
    Bytes bytes = SerializeMessage(h, {});
    bytes[19] = 0x70;
    bytes[20] = 0x11;
    bytes[21] = 0x01; // 70000 little-endian
    DescriptorFramer framer;
    int delivered = 0;
    EXPECT_EQ(framer.Feed(bytes, [&](Message&&) { ++delivered; }),
              DescriptorFramer::Status::PayloadTooLarge);
    EXPECT_EQ(delivered, 0);
    EXPECT_LT(framer.buffered(), kHeaderSize);
}

TEST(Zlib, LinkStreamsFlushEveryWriteAndRejectGarbage) {
    Deflater deflater;
    Inflater inflater;
    Bytes out;
    for (std::string_view text : {"first message", "second"}) {
        Bytes wire;
        ASSERT_TRUE(deflater.Compress(AsBytes(text), wire));
        out.clear();
        ASSERT_TRUE(inflater.Decompress(wire, [&](ByteView piece) {
            PutBytes(out, piece);
            return true;
        }));
        EXPECT_EQ(AsText(out), text); // all of it, without waiting for more
    }
    Inflater broken;
    EXPECT_FALSE(broken.Decompress(Hex("78 9C FF FF FF FF"), [](ByteView) { return true; }));
    EXPECT_FALSE(ZlibDecompress(ZlibCompress(Bytes(1000, 1)), 999));
    EXPECT_EQ(ZlibDecompress(ZlibCompress(Bytes(1000, 1)), 1000)->size(), 1000u);
}

TEST(Endpoints, ParseTheFormsPeersWrite) {
    EXPECT_EQ(ParseEndpoint("1.2.3.4")->ToString(), "1.2.3.4:6346");
    EXPECT_EQ(ParseEndpoint(" 10.0.0.1:80 ")->ToString(), "10.0.0.1:80");
    for (auto bad : {"1.2.3", "1.2.3.4:", "1.2.3.4:0", "1.2.3.4:70000", "256.1.1.1", "a.b.c.d",
                     "1.2.3.4:80x", "0001.2.3.4"})
        EXPECT_FALSE(ParseEndpoint(bad)) << bad;
    EXPECT_FALSE(ParseEndpoint("192.168.1.1")->IsRoutable());
    EXPECT_TRUE(ParseEndpoint("208.17.50.4")->IsRoutable());
}

} // namespace
} // namespace corvid::gnutella
