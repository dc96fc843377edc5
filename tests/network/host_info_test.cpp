#include "network/host_info.h"

#include <gtest/gtest.h>

#include <string>

namespace corvid::network {
namespace {

std::string Host(const std::string& id, const std::string& node, const std::string& handshake = "0",
                 const std::string& update = "0") {
    std::string text = "<Host>";
    if (!id.empty()) {
        text += "<ID>" + id + "</ID>";
    }
    text += "<Node>" + node + "</Node><UserAgent>Corvid/0.1</UserAgent><HandshakeTime>" +
            handshake + "</HandshakeTime><Type>Ultrapeer</Type><In>12/3</In><Out>4/5</Out>" +
            "<UpdateTime>" + update + "</UpdateTime><Ver>0.6</Ver></Host>";
    return text;
}

std::string Info(const std::string& hosts) {
    return "<HostInfo>" + hosts + "</HostInfo>";
}

TEST(HostInfoText, ReadsEveryFieldInOrderAndSkipsHostsWithoutId) {
    const auto rows =
        ReadHostInfo(Info(Host("7", "10.0.0.1:6346", "1000", "-2") + Host("", "10.0.0.2:6346") +
                          "<Host><ID></ID></Host>" + Host("9", "10.0.0.3:6347")));
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].id, "7");
    EXPECT_EQ(rows[0].node, "10.0.0.1:6346");
    EXPECT_EQ(rows[0].userAgent, "Corvid/0.1");
    EXPECT_EQ(rows[0].handshakeTick, 1000u);
    EXPECT_EQ(rows[0].type, "Ultrapeer");
    EXPECT_EQ(rows[0].in, "12/3");
    EXPECT_EQ(rows[0].out, "4/5");
    EXPECT_EQ(rows[0].updateTick, 0xFFFFFFFEu);
    EXPECT_EQ(rows[0].version, "0.6");
    EXPECT_EQ(rows[1].id, "9");
}

TEST(HostInfoText, MissingElementsGiveEmptyCellsAndZeroTimes) {
    const auto rows = ReadHostInfo("<Host><ID>3</ID><UpdateTime>5000</UpdateTime><Node>n:1</Node>"
                                   "<HandshakeTime>soon</HandshakeTime><Ver>x</Ver></Host>"
                                   "<Host><ID>4</ID>");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].node, "n:1");
    EXPECT_EQ(rows[0].userAgent, "");
    EXPECT_EQ(rows[0].handshakeTick, 0u);
    // Looked for in order: an <UpdateTime> before <Node> is never reached.
    EXPECT_EQ(rows[0].updateTick, 0u);
    EXPECT_EQ(rows[0].version, "x");
    EXPECT_EQ(HostCellText(rows[0], kHostColumnTime, 7000), "7 s");
    EXPECT_EQ(HostCellText(rows[0], kHostColumnUpdateTime, 7999), "7 s");
    EXPECT_EQ(HostCellText(rows[0], kHostColumnStatus, 7000), "");
}

TEST(HostInfoText, TimesAreSecondsSinceTheTick) {
    EXPECT_EQ(ConnectedForText(105000, 100000), "5 s");
    // Across the counter's wrap.
    EXPECT_EQ(ConnectedForText(2000, 0xFFFFFC18u), "3 s");
    // The update time is signed and rounds toward zero.
    EXPECT_EQ(UpdatedAgoText(100000, 101500), "-1 s");
    EXPECT_EQ(UpdatedAgoText(101999, 100000), "1 s");
}

TEST(HostsTable, SelectionGoesToTheFirstRowWithTheRememberedText) {
    HostsTable table;
    table.Rebuild(Info(Host("1", "a:1") + Host("2", "b:2") + Host("3", "b:2")), 0);
    EXPECT_EQ(table.FindByFirstColumn("b:2"), 1u);
    EXPECT_EQ(table.FindByFirstColumn("c:3"), std::nullopt);
    EXPECT_EQ(table.FindByFirstColumn(""), std::nullopt);

    // The node moved to the end and a new one came in front of it.
    table.Rebuild(Info(Host("4", "d:4") + Host("1", "a:1") + Host("3", "b:2")), 0);
    EXPECT_EQ(table.FindByFirstColumn("b:2"), 2u);
    EXPECT_EQ(table.Cell(2, 1), "3");
}

TEST(HostsTable, CellsFollowTheColumnOrder) {
    HostsTable table({kHostColumnTime, kHostColumnHost, kHostColumnStatus});
    table.Rebuild(Info(Host("1", "a:1", "5000")), 10000);
    ASSERT_EQ(table.RowCount(), 1u);
    EXPECT_EQ(table.Cell(0, 0), "5 s");
    EXPECT_EQ(table.Cell(0, 1), "a:1");
    EXPECT_EQ(table.Cell(0, 2), "");
    EXPECT_EQ(table.Cell(0, 3), "");
    EXPECT_EQ(table.Cell(1, 0), "");
}

TEST(BrowseAddress, OnlyHostAndPortBecomeAnAddress) {
    EXPECT_EQ(BrowseAddress("127.0.0.1:6346"), "http://127.0.0.1:6346");
    EXPECT_EQ(BrowseAddress(""), std::nullopt);
    EXPECT_EQ(BrowseAddress("127.0.0.1"), std::nullopt);
    EXPECT_EQ(BrowseAddress(":6346"), std::nullopt);
    EXPECT_EQ(BrowseAddress("1.2.3.4:0"), std::nullopt);
    EXPECT_EQ(BrowseAddress("1.2.3.4:70000"), std::nullopt);
    EXPECT_EQ(BrowseAddress("1.2.3.4:63a"), std::nullopt);
    EXPECT_EQ(BrowseAddress("evil/x:80"), std::nullopt);
    EXPECT_EQ(BrowseAddress("a b:80"), std::nullopt);
}

TEST(HostProperties, ListsTheFieldsUnderTheirTitles) {
    HostRow row;
    row.id = "12";
    row.node = "1.2.3.4:6346";
    row.handshakeTick = 1000;
    const std::string text = HostPropertiesText(row, 4000, [](std::uint32_t id) {
        return id == kHostColumnHost ? std::string("Host") : std::to_string(id);
    });
    EXPECT_EQ(text.rfind("Host: 1.2.3.4:6346\r\n33019: 12\r\n", 0), 0u);
    EXPECT_NE(text.find("32944: 3 s"), std::string::npos);
    EXPECT_EQ(text.find("33024"), std::string::npos);
}

} // namespace
} // namespace corvid::network
