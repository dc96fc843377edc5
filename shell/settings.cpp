#include "shell/settings.h"

namespace corvid::shell {

namespace {

constexpr char kTabPos[] = "Tab Pos";
constexpr char kTabPushLike[] = "Tab PushLike";
constexpr char kTabVisible[] = "Tab Visible";
constexpr char kTabLeftAction[] = "Tab LButtonAction";
constexpr char kTabMiddleAction[] = "Tab MButtonAction";
constexpr char kLabelMode[] = "Toolbar LabelMode";
constexpr char kIconSize[] = "Toolbar IconSize";
constexpr char kShowDownloaded[] = "Search ShowDownloaded";
constexpr char kAutoOnline[] = "AutoOnline";

// Sets flag from an equality rule; true when it changed.
bool ApplyFlag(std::optional<int> value, int equalTo, bool& flag) {
    if (!value) {
        return false;
    }
    const bool now = *value == equalTo;
    const bool changed = now != flag;
    flag = now;
    return changed;
}

} // namespace

void LoadAtCreation(HostSettingsSource& source, ShellSettings& settings) {
    TabSettings& tabs = settings.tabs;
    tabs.firstPosition = source.HostValue(kTabPos).value_or(0) == 0;
    tabs.pushLike = source.HostValue(kTabPushLike).value_or(0) == 1;
    ApplyFlag(source.HostValue(kTabVisible), 1, tabs.visible);
    tabs.leftButtonAction = source.HostValue(kTabLeftAction).value_or(tabs.leftButtonAction);
    tabs.middleButtonAction = source.HostValue(kTabMiddleAction).value_or(tabs.middleButtonAction);
    if (auto shown = source.HostValue(kShowDownloaded)) {
        settings.showDownloaded = *shown != 0;
    }
}

void LoadToolbarSettings(HostSettingsSource& source, ToolbarSettings& toolbar) {
    toolbar.labelMode = source.HostValue(kLabelMode).value_or(toolbar.labelMode);
    ApplyFlag(source.HostValue(kIconSize), 1, toolbar.large);
}

SettingsChange Reload(HostSettingsSource& source, ShellSettings& settings, bool tabStripExists,
                      bool toolbarExists) {
    SettingsChange change;
    TabSettings& tabs = settings.tabs;
    if (tabStripExists) {
        if (auto pos = source.HostValue(kTabPos)) {
            const bool first = *pos == 0;
            change.position = first != tabs.firstPosition;
            tabs.firstPosition = first;
        }
        change.pushLike = ApplyFlag(source.HostValue(kTabPushLike), 1, tabs.pushLike);
        change.visible = ApplyFlag(source.HostValue(kTabVisible), 1, tabs.visible);
        tabs.leftButtonAction = source.HostValue(kTabLeftAction).value_or(tabs.leftButtonAction);
        tabs.middleButtonAction =
            source.HostValue(kTabMiddleAction).value_or(tabs.middleButtonAction);
    }
    ToolbarSettings& toolbar = settings.toolbar;
    if (toolbarExists) {
        if (auto mode = source.HostValue(kLabelMode); mode && *mode != toolbar.labelMode) {
            toolbar.labelMode = *mode;
            change.rebuildToolbar = true;
        }
    }
    if (ApplyFlag(source.HostValue(kIconSize), 1, toolbar.large)) {
        change.rebuildToolbar = true;
    }
    if (auto shown = source.HostValue(kShowDownloaded)) {
        settings.showDownloaded = *shown != 0;
    }
    return change;
}

bool AutoOnline(HostSettingsSource& source) {
    return source.SectionValue(kSettingsSection, kAutoOnline).value_or(0) != 0;
}

std::vector<int> ToolbarOrderFromValues(const std::vector<ToolbarValue>& values) {
    std::vector<int> order;
    for (const ToolbarValue& value : values) {
        if (value.isDword && value.name.size() < kToolbarValueNameLimit) {
            order.push_back(static_cast<int>(value.data));
        }
    }
    return order;
}

std::vector<ToolbarValue> ToolbarValuesFromOrder(const std::vector<int>& order) {
    std::vector<ToolbarValue> values;
    int place = 0;
    for (int id : order) {
        values.push_back(
            {"Button" + std::to_string(++place), true, static_cast<std::uint32_t>(id)});
    }
    return values;
}

} // namespace corvid::shell
