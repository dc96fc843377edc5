#pragma once

// The status bar under the panels: the status text and five counters with their icons from a
// magenta-keyed strip, tooltips and formats from the language table, background from the skin.

#include "markup/skin.h"
#include "shell/status_texts.h"

#include <windows.h>

#include <commctrl.h>

#include <array>
#include <string>

namespace corvid::shell {

class StatusBar {
public:
    StatusBar() = default;
    StatusBar(const StatusBar&) = delete;
    StatusBar& operator=(const StatusBar&) = delete;
    ~StatusBar();

    bool Create(HWND parent);
    HWND hwnd() const { return hwnd_; }

    void SetText(const std::string& text);
    // Unknown pane ids do nothing.
    void SetCounter(int paneId, int count);
    void SetPaneWidth(int paneId, int width);
    void SetPaneIcon(int paneId, int icon);

    // Tooltips and counter formats again, from the current language.
    void ApplyLanguage();
    void SetSkin(const SkinRecord& skin);
    // Sizes itself along the parent's bottom edge; returns its height.
    int Layout();

    const StatusTexts& texts() const { return texts_; }

private:
    void ApplyWidths();
    void Show(std::size_t index);

    HWND hwnd_ = nullptr;
    StatusTexts texts_;
    std::array<int, kStatusPaneCount> widths_ = {};
    std::array<HICON, kStatusPaneCount> icons_ = {};
    HIMAGELIST images_ = nullptr;
};

} // namespace corvid::shell
