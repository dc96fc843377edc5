#pragma once

// What the status bar shows: the status text and five counters, each pane found by its id (the
// string id of its format), with its width, icon and tooltip. The window only copies these out.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvid {
class LanguageTable;
}

namespace corvid::shell {

struct StatusPaneSpec {
    int id;              // 0 for the status text, else the format's string id
    int width;           // pixels; -1 for the rest of the bar
    int icon;            // index in the status bar's image strip
    std::uint32_t tipId; // string id of the tooltip, 0 for none
};

inline constexpr std::size_t kStatusPaneCount = 6;
inline constexpr std::array<StatusPaneSpec, kStatusPaneCount> kStatusPanes = {{
    {0, -1, 1, 0},
    {33002, 70, 0, 32961},
    {33001, 60, 2, 32954},
    {33005, 70, 5, 32953},
    {33003, 60, 3, 32955},
    {33004, 60, 4, 32956},
}};

// The pane's place from the left, or -1 for an id that is not one of the six.
int StatusPaneIndex(int paneId);

// The format's first "%d" replaced by the count, the rest (trailing blanks included) as it
// stands. A format without "%d" (a careless translation) is shown with the count after it;
// nothing in it is ever read as a printf directive.
std::string FormatCounter(std::string_view format, int count);

class StatusTexts {
public:
    // Pane 0's text. True when it changed.
    bool SetText(std::string text);
    // A counter pane's text from its format; false (nothing changed) for an unknown or text pane.
    bool SetCounter(int paneId, int count, const LanguageTable& language);
    // The counters again from their formats: after a language change.
    void Reformat(const LanguageTable& language);

    const std::string& Text(std::size_t index) const { return texts_[index]; }
    int Count(std::size_t index) const { return counts_[index]; }

private:
    std::array<std::string, kStatusPaneCount> texts_;
    std::array<int, kStatusPaneCount> counts_ = {};
    std::array<bool, kStatusPaneCount> set_ = {};
};

} // namespace corvid::shell
