#pragma once

// The plug-in's toolbar, as the host places it among its own bars: a band window of ours that
// holds the button bar, so the buttons' commands come to us and not to the host's window. Labels
// and icon size follow the host's toolbar settings, pictures and background the skin.

#include "markup/skin.h"
#include "platform/win/window.h"
#include "shell/settings.h"
#include "shell/win/skin_painter.h"

#include <commctrl.h>

#include <vector>

namespace corvid::shell {

class ToolbarBand : public win::WindowBase {
public:
    ToolbarBand() = default;
    ~ToolbarBand() override;

    // A band in `parent` whose buttons send WM_COMMAND with their command number to `target`.
    bool Create(HWND parent, HWND target);

    // Puts the buttons back (0 is a separator) and sizes the band to them.
    void Build(const std::vector<int>& order, const ToolbarSettings& settings,
               const SkinRecord& skin);
    const std::vector<int>& order() const { return order_; }
    void SetButtonState(int id, bool enabled, bool checked);
    HWND bar() const { return bar_; }

protected:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    void LoadImages(bool large, const SkinRecord& skin);

    HWND target_ = nullptr;
    HWND bar_ = nullptr;
    HIMAGELIST images_ = nullptr;
    std::vector<int> order_;
    std::vector<std::string> labels_; // kept alive while the bar points at them
    SkinRecord skin_ = DefaultSkin();
    SkinPainter painter_;
};

// The picture of a command in the toolbar strips, or -1.
int ToolbarImageOf(int commandId);

} // namespace corvid::shell
