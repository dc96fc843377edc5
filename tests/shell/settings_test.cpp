#include "shell/settings.h"

#include <gtest/gtest.h>

#include <map>

namespace corvid::shell {
namespace {

class FakeSettings : public HostSettingsSource {
public:
    std::optional<int> HostValue(const char* name) override {
        asked.push_back(name);
        auto it = host.find(name);
        return it == host.end() ? std::nullopt : std::optional<int>(it->second);
    }
    std::optional<int> SectionValue(const char* section, const char* name) override {
        asked.push_back(std::string(section) + "/" + name);
        auto it = sections.find(std::string(section) + "/" + name);
        return it == sections.end() ? std::nullopt : std::optional<int>(it->second);
    }
    std::map<std::string, int> host;
    std::map<std::string, int> sections;
    std::vector<std::string> asked;
};

TEST(SettingsLoad, ReadsTheTabValuesInOrderWithTheirDefaults) {
    FakeSettings source;
    ShellSettings settings;
    settings.tabs.visible = false;
    settings.tabs.firstPosition = false;
    settings.tabs.pushLike = true;
    LoadAtCreation(source, settings);
    EXPECT_EQ(source.asked, (std::vector<std::string>{"Tab Pos", "Tab PushLike", "Tab Visible",
                                                      "Tab LButtonAction", "Tab MButtonAction",
                                                      "Search ShowDownloaded"}));
    EXPECT_TRUE(settings.tabs.firstPosition); // absent reads as 0
    EXPECT_FALSE(settings.tabs.pushLike);     // absent clears
    EXPECT_FALSE(settings.tabs.visible);      // absent keeps
    EXPECT_FALSE(settings.showDownloaded);
}

TEST(SettingsLoad, ComparesTabPosWithZeroButTheOtherFlagsWithOne) {
    FakeSettings source;
    source.host = {{"Tab Pos", 2},           {"Tab PushLike", 2},
                   {"Tab Visible", 2},       {"Tab LButtonAction", 1},
                   {"Tab MButtonAction", 7}, {"Search ShowDownloaded", 5}};
    ShellSettings settings;
    LoadAtCreation(source, settings);
    EXPECT_FALSE(settings.tabs.firstPosition); // 2 is the second position
    EXPECT_FALSE(settings.tabs.pushLike);
    EXPECT_FALSE(settings.tabs.visible); // 2 hides the strip
    EXPECT_EQ(settings.tabs.leftButtonAction, 1);
    EXPECT_EQ(settings.tabs.middleButtonAction, 7);
    EXPECT_TRUE(settings.showDownloaded);

    source.host = {
        {"Tab Pos", 0}, {"Tab PushLike", 1}, {"Tab Visible", 1}, {"Toolbar IconSize", 2}};
    LoadAtCreation(source, settings);
    EXPECT_TRUE(settings.tabs.firstPosition);
    EXPECT_TRUE(settings.tabs.pushLike);
    EXPECT_TRUE(settings.tabs.visible);
    EXPECT_EQ(settings.tabs.leftButtonAction, 1); // absent keeps
    EXPECT_TRUE(settings.showDownloaded);         // absent keeps
}

TEST(SettingsReload, ARepeatedChangeEventChangesNothing) {
    FakeSettings source;
    source.host = {{"Tab Pos", 1},           {"Tab PushLike", 1},     {"Tab Visible", 1},
                   {"Toolbar LabelMode", 2}, {"Toolbar IconSize", 1}, {"Tab LButtonAction", 1}};
    ShellSettings settings;
    LoadAtCreation(source, settings);
    LoadToolbarSettings(source, settings.toolbar);
    const SettingsChange first = Reload(source, settings, true, true);
    EXPECT_EQ(first, SettingsChange{});
    EXPECT_EQ(Reload(source, settings, true, true), SettingsChange{});
}

TEST(SettingsReload, ReportsEachChangedFlagAndRebuildsTheToolbarOnlyForItsValues) {
    FakeSettings source;
    ShellSettings settings;
    LoadAtCreation(source, settings);
    source.host = {{"Tab Pos", 3}, {"Tab Visible", 0}};
    SettingsChange change = Reload(source, settings, true, true);
    EXPECT_TRUE(change.position);
    EXPECT_FALSE(change.pushLike);
    EXPECT_TRUE(change.visible);
    EXPECT_FALSE(change.rebuildToolbar);
    EXPECT_FALSE(settings.tabs.firstPosition);

    // Absent values keep the state during a reload (no default of 0 for "Tab Pos" here).
    source.host = {{"Toolbar LabelMode", 1}};
    change = Reload(source, settings, true, true);
    EXPECT_FALSE(change.position);
    EXPECT_FALSE(settings.tabs.firstPosition);
    EXPECT_TRUE(change.rebuildToolbar);
    EXPECT_EQ(settings.toolbar.labelMode, 1);

    source.host = {{"Toolbar IconSize", 1}};
    EXPECT_TRUE(Reload(source, settings, true, true).rebuildToolbar);
    EXPECT_TRUE(settings.toolbar.large);
}

TEST(SettingsReload, LeavesTabsAloneWithoutAStripAndLabelModeWithoutAToolbar) {
    FakeSettings source;
    ShellSettings settings;
    source.host = {{"Tab Pos", 1}, {"Tab Visible", 0}, {"Toolbar LabelMode", 2}};
    SettingsChange change = Reload(source, settings, false, false);
    EXPECT_EQ(change, SettingsChange{});
    EXPECT_TRUE(settings.tabs.firstPosition);
    EXPECT_TRUE(settings.tabs.visible);
    EXPECT_EQ(settings.toolbar.labelMode, ToolbarSettings::kLabelsBelow);
}

TEST(SettingsAutoOnline, ReadsTheSectionValueAndConnectsOnlyWhenNonZero) {
    FakeSettings source;
    EXPECT_FALSE(AutoOnline(source));
    EXPECT_EQ(source.asked, std::vector<std::string>{"P2P View/AutoOnline"});
    source.sections["P2P View/AutoOnline"] = 0;
    EXPECT_FALSE(AutoOnline(source));
    source.sections["P2P View/AutoOnline"] = -1;
    EXPECT_TRUE(AutoOnline(source));
    source.host["AutoOnline"] = 1; // the host's own value of that name is not the one read
    source.sections.clear();
    EXPECT_FALSE(AutoOnline(source));
}

TEST(ToolbarOrder, KeepsEnumerationOrderAndSkipsOtherTypesAndLongNames) {
    EXPECT_TRUE(ToolbarOrderFromValues({}).empty());
    std::vector<ToolbarValue> values = {{"Button2", true, 34009},
                                        {"Button1", true, 34001},
                                        {"Label", false, 0},
                                        {std::string(20, 'B'), true, 34010},
                                        {std::string(19, 'B'), true, 34011}};
    EXPECT_EQ(ToolbarOrderFromValues(values), (std::vector<int>{34009, 34001, 34011}));
}

TEST(ToolbarOrder, SavesButtonsNumberedFromOneAndReadsThemBack) {
    const std::vector<int> order = {34008, 0, 34013};
    const std::vector<ToolbarValue> values = ToolbarValuesFromOrder(order);
    ASSERT_EQ(values.size(), 3u);
    EXPECT_EQ(values[0].name, "Button1");
    EXPECT_EQ(values[2].name, "Button3");
    EXPECT_EQ(ToolbarOrderFromValues(values), order);
    EXPECT_TRUE(ToolbarValuesFromOrder({}).empty());
}

} // namespace
} // namespace corvid::shell
