#include "network/network_options.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace corvid::network {
namespace {

struct FakeProfile : ProfilePort {
    std::optional<std::string> Read(const char* section, const char* key) const override {
        auto found = keys.find(std::string(section) + "/" + key);
        return found == keys.end() ? std::nullopt : std::optional(found->second);
    }
    void Write(const char* section, const char* key, const std::string& value) override {
        keys[std::string(section) + "/" + key] = value;
    }
    std::map<std::string, std::string> keys;
};

struct FakeSettings : SettingsPort {
    std::optional<int> Read(const char* name) const override {
        auto found = values.find(name);
        return found == values.end() ? std::nullopt : std::optional(found->second);
    }
    void Write(const char* name, int value) override { values[name] = value; }
    std::map<std::string, int> values;
};

NetworkPageInput InputOf(const NetworkPageValues& values) {
    NetworkPageInput input;
    input.autoOnline = values.autoOnline;
    input.autoResume = values.autoResume;
    input.behindFirewall = values.behindFirewall;
    input.nodeMode = values.nodeMode;
    for (int i = 0; i < kNumberFieldCount; ++i) {
        input.numbers[i] = std::to_string(values.numbers[i]);
    }
    return input;
}

TEST(NetworkPage, ANewInstallationShowsTheDefaults) {
    FakeProfile profile;
    FakeSettings settings;
    const NetworkPageValues values = LoadNetworkPage(profile, settings);
    EXPECT_TRUE(values.autoOnline);
    EXPECT_TRUE(values.autoResume);
    EXPECT_TRUE(values.behindFirewall);
    EXPECT_EQ(values.nodeMode, 0);
    EXPECT_EQ(values.numbers, (std::array<std::uint32_t, 6>{6346, 6347, 3, 6, 2, 100}));
}

TEST(NetworkPage, TheUploadPortShownIsAlwaysThePortPlusOne) {
    FakeProfile profile;
    FakeSettings settings;
    NetworkPageInput input = InputOf(LoadNetworkPage(profile, settings));
    input.numbers[kFieldUploadPort] = "7000";
    ASSERT_EQ(ApplyNetworkPage(input, profile, settings), std::nullopt);
    EXPECT_EQ(profile.keys["NetWork/UploadPort"], "7000");
    EXPECT_EQ(LoadNetworkPage(profile, settings).numbers[kFieldUploadPort], 6347u);
}

TEST(NetworkPage, StoredValuesAreShownByTheirRules) {
    FakeProfile profile;
    FakeSettings settings;
    profile.keys["NetWork/BehindFirewall"] = "5";
    profile.keys["NetWork/NodeMode"] = "2";
    profile.keys["NetWork/PeerMaxCount"] = "-1";
    profile.keys["NetWork/LeafPeerMaxCount"] = "40 leaves";
    settings.values["AutoOnline"] = 0;
    NetworkPageValues values = LoadNetworkPage(profile, settings);
    EXPECT_FALSE(values.behindFirewall);
    EXPECT_FALSE(values.autoOnline);
    EXPECT_EQ(values.nodeMode, 2);
    EXPECT_EQ(values.numbers[kFieldPeerMax], 4294967295u);
    EXPECT_EQ(values.numbers[kFieldLeafPeerMax], 40u);

    profile.keys["NetWork/BehindFirewall"] = "0";
    profile.keys["NetWork/NodeMode"] = "9";
    values = LoadNetworkPage(profile, settings);
    EXPECT_FALSE(values.behindFirewall);
    EXPECT_EQ(values.nodeMode, 0);
}

TEST(NetworkPage, ApplyWritesEveryKeyAndTheSettings) {
    FakeProfile profile;
    FakeSettings settings;
    NetworkPageValues values;
    values.autoOnline = false;
    values.autoResume = false;
    values.behindFirewall = false;
    values.nodeMode = 3;
    values.numbers = {6000, 6001, 4, 8, 3, 250};
    ASSERT_EQ(ApplyNetworkPage(InputOf(values), profile, settings), std::nullopt);
    EXPECT_EQ(settings.values["AutoOnline"], 0);
    EXPECT_EQ(settings.values["AutoResume"], 0);
    EXPECT_EQ(profile.keys["NetWork/Port"], "6000");
    EXPECT_EQ(profile.keys["NetWork/NodeMode"], "3");
    EXPECT_EQ(profile.keys["NetWork/BehindFirewall"], "0");
    EXPECT_EQ(profile.keys["NetWork/UltraPeerMinCount"], "3");
    values.numbers[kFieldUploadPort] = 6001;
    EXPECT_EQ(LoadNetworkPage(profile, settings), values);
}

TEST(NetworkPage, AFieldWithoutANumberStopsTheApplyAtThatField) {
    FakeProfile profile;
    FakeSettings settings;
    NetworkPageInput input = InputOf(LoadNetworkPage(profile, settings));
    input.numbers[kFieldUltraPeerMax] = "6x";
    input.numbers[kFieldLeafPeerMax] = "";
    EXPECT_EQ(ApplyNetworkPage(input, profile, settings), kFieldUltraPeerMax);
    EXPECT_TRUE(profile.keys.empty());
    EXPECT_TRUE(settings.values.empty());
}

TEST(NetworkPage, NumberFieldsAreUnsignedDecimals) {
    EXPECT_EQ(ReadUnsignedField(" 42 "), 42u);
    EXPECT_EQ(ReadUnsignedField("4294967295"), 4294967295u);
    EXPECT_EQ(ReadUnsignedField("4294967296"), std::nullopt);
    EXPECT_EQ(ReadUnsignedField("-1"), std::nullopt);
    EXPECT_EQ(ReadUnsignedField("6,346"), std::nullopt);
    EXPECT_EQ(ReadUnsignedField(""), std::nullopt);
}

} // namespace
} // namespace corvid::network
