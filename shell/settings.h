#pragma once

// The host's settings as the shell applies them: read once when the main view is made and again
// whenever the host says its settings changed. The rules compare with different values on
// purpose ("Tab Pos" with 0, the others with 1), and an absent value keeps what is there.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvid::shell {

inline constexpr char kSettingsSection[] = "P2P View";

// Reads values from the host; nothing when the call fails or the host says the value is absent.
class HostSettingsSource {
public:
    virtual ~HostSettingsSource() = default;
    // One of the host's own values (settings slot 13).
    virtual std::optional<int> HostValue(const char* name) = 0;
    // A value of a named section (settings slot 7).
    virtual std::optional<int> SectionValue(const char* section, const char* name) = 0;
};

struct TabSettings {
    bool firstPosition = true; // the strip stands above the panels
    bool pushLike = false;
    bool visible = true;
    int leftButtonAction = kSelectOnPress;
    int middleButtonAction = kCloseOnMiddle;

    // The host's codes for the click actions.
    static constexpr int kSelectOnPress = 0;   // left button: select at once
    static constexpr int kSelectOnRelease = 1; // left button: select when released (drag first)
    static constexpr int kMiddleNothing = 0;
    static constexpr int kCloseOnMiddle = 1; // middle button closes a tab that can be closed
    static constexpr int kSelectOnMiddle = 2;
};

struct ToolbarSettings {
    int labelMode = kLabelsBelow;
    bool large = false;

    // The host's codes for "Toolbar LabelMode".
    static constexpr int kLabelsBelow = 0;
    static constexpr int kLabelsRight = 1;
    static constexpr int kNoLabels = 2;
};

struct ShellSettings {
    TabSettings tabs;
    ToolbarSettings toolbar;
    bool showDownloaded = false;
};

// What a reload changed, so the faces redo only that.
struct SettingsChange {
    bool position = false;
    bool pushLike = false;
    bool visible = false;
    bool rebuildToolbar = false;
    bool operator==(const SettingsChange&) const = default;
};

// At creation: the tab values in order ("Tab Pos", "Tab PushLike", "Tab Visible",
// "Tab LButtonAction", "Tab MButtonAction"), then "Search ShowDownloaded". An absent "Tab Pos"
// counts as 0 and an absent "Tab PushLike" as not push-like; the others keep their values.
void LoadAtCreation(HostSettingsSource& source, ShellSettings& settings);

// The toolbar's values, read when the toolbar is built; absent values leave them.
void LoadToolbarSettings(HostSettingsSource& source, ToolbarSettings& toolbar);

// On the host's change event. The tab values only when the tab strip exists, the toolbar values
// only when the toolbar exists; every absent value leaves its setting as it is.
SettingsChange Reload(HostSettingsSource& source, ShellSettings& settings, bool tabStripExists,
                      bool toolbarExists);

// "AutoOnline" of section "P2P View": present and non-zero.
bool AutoOnline(HostSettingsSource& source);

// One value of the toolbar order's registry key, as enumerated.
struct ToolbarValue {
    std::string name;
    bool isDword = false;
    std::uint32_t data = 0;
};
inline constexpr std::size_t kToolbarValueNameLimit = 20;

// The button list from the key's values in enumeration order: the data of every REG_DWORD value,
// other types and over-long names skipped. An empty key gives an empty list.
std::vector<int> ToolbarOrderFromValues(const std::vector<ToolbarValue>& values);
// The values that save `order`: "Button1", "Button2", ... in toolbar order.
std::vector<ToolbarValue> ToolbarValuesFromOrder(const std::vector<int>& order);

} // namespace corvid::shell
