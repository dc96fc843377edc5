#include "tools/corvid_node/arguments.h"

#include <gtest/gtest.h>

namespace corvid::node_tool {
namespace {

std::optional<Arguments> Parse(std::vector<std::string> args, std::string* error = nullptr) {
    std::string ignored;
    return ParseArguments(args, error ? error : &ignored);
}

TEST(NodeArguments, AServentListensWhereItIsToldOrOnAFreePort) {
    const auto fixed = Parse({"--listen", "127.0.0.1:6346", "--ultrapeer"});
    ASSERT_TRUE(fixed);
    EXPECT_EQ(fixed->listen.port, 6346);
    EXPECT_EQ(fixed->mode, gnutella::NodeMode::UltraPeer);
    for (const char* free : {"127.0.0.1", "127.0.0.1:0"}) {
        const auto parsed = Parse({"--listen", free, "--port-file", "p", "--status-file", "s"});
        ASSERT_TRUE(parsed) << free;
        EXPECT_EQ(parsed->listen.port, 0) << free;
        EXPECT_EQ(parsed->listen.ip, 0x7F000001u) << free;
        EXPECT_EQ(parsed->port_file, "p");
        EXPECT_EQ(parsed->status_file, "s");
    }
    std::string error;
    EXPECT_FALSE(Parse({"--leaf"}, &error));
    EXPECT_NE(error.find("--listen"), std::string::npos) << error;
    EXPECT_FALSE(Parse({"--listen", "localhost:1"}));
    EXPECT_FALSE(Parse({"--listen", "127.0.0.1:70000"}));
}

TEST(NodeArguments, SearchEndsAtEnoughResultsOrItsTimeOut) {
    const auto parsed =
        Parse({"search", "--connect", "127.0.0.1:1", "--enough", "4", "--timeout", "9", "a", "b"});
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->enough_results, 4);
    EXPECT_EQ(parsed->TimeoutOr(5), 9);
    EXPECT_EQ(parsed->keywords, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(Parse({"search", "--connect", "127.0.0.1:1", "x"})->TimeoutOr(5), 5);
    for (const char* bad : {"0", "-1", "4x", ""})
        EXPECT_FALSE(Parse({"search", "--connect", "127.0.0.1:1", "--enough", bad, "x"})) << bad;
}

TEST(NodeArguments, GetTakesALinkOrAHashWithItsSources) {
    const auto bySha1 =
        Parse({"get", "3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJ", "--source", "127.0.0.1:10", "--source",
               "127.0.0.1:11", "--out", "dir", "--search-network", "127.0.0.1:12"});
    ASSERT_TRUE(bySha1);
    EXPECT_TRUE(bySha1->get);
    EXPECT_EQ(bySha1->get_target, "3I42H3S6NNFQ2MSVX7XZKYAYSCX5QBYJ");
    ASSERT_EQ(bySha1->sources.size(), 2u);
    EXPECT_EQ(bySha1->sources[1].port, 11);
    EXPECT_EQ(bySha1->out_dir, "dir");
    ASSERT_TRUE(bySha1->search_network);
    EXPECT_EQ(bySha1->search_network->port, 12);
    EXPECT_FALSE(bySha1->timeout_seconds) << "get waits as long as the download goes on";

    std::string error;
    EXPECT_FALSE(Parse({"get"}, &error));
    EXPECT_NE(error.find("magnet link or a SHA1"), std::string::npos) << error;
    EXPECT_FALSE(Parse({"get", "--out", "x"}));
    EXPECT_FALSE(Parse({"get", "X", "--source", "example.org:80"}, &error));
    EXPECT_NE(error.find("--source"), std::string::npos) << error;
    EXPECT_FALSE(Parse({"--listen", "127.0.0.1:1", "--source", "127.0.0.1:2"}, &error));
    EXPECT_NE(error.find("belong to get"), std::string::npos) << error;
    EXPECT_FALSE(Parse({"get", "X", "stray"}));
}

} // namespace
} // namespace corvid::node_tool
