#include "shell/win/toolbar_band.h"

#include "markup/language_table.h"
#include "platform/win/module.h"
#include "resources/shell_resources.h"
#include "shell/commands.h"

#include <commctrl.h>

#include <algorithm>

namespace corvid::shell {

namespace {

constexpr int kImageCommands[] = {34001, 34002, 34003, 34008, 34009, 34010,
                                  34011, 34012, 34013, 34014, 34016};

} // namespace

int ToolbarImageOf(int commandId) {
    for (int i = 0; i < static_cast<int>(std::size(kImageCommands)); ++i) {
        if (kImageCommands[i] == commandId) {
            return i;
        }
    }
    return -1;
}

ToolbarBand::~ToolbarBand() {
    if (images_) {
        ::ImageList_Destroy(images_);
    }
}

bool ToolbarBand::Create(HWND parent, HWND target) {
    target_ = target;
    RECT rect = {0, 0, 400, 30};
    if (!WindowBase::Create("CorvidToolbarBand", "", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0,
                            parent, rect, nullptr, CS_HREDRAW | CS_VREDRAW, nullptr)) {
        return false;
    }
    return true;
}

void ToolbarBand::LoadImages(bool large, const SkinRecord& skin) {
    if (images_) {
        ::ImageList_Destroy(images_);
        images_ = nullptr;
    }
    const int size = large ? 24 : 16;
    // A skin's own strip first; the built-in one when it has none or it cannot be read.
    const std::string& skinStrip = large ? skin.toolbarLarge : skin.toolbarSmall;
    if (!skinStrip.empty()) {
        images_ = ::ImageList_LoadImageA(nullptr, skinStrip.c_str(), size, 0, RGB(255, 0, 255),
                                         IMAGE_BITMAP, LR_LOADFROMFILE | LR_CREATEDIBSECTION);
    }
    if (!images_) {
        images_ = ::ImageList_LoadImageA(
            win::ModuleHandle(), MAKEINTRESOURCEA(large ? IDB_TOOLBAR_LARGE : IDB_TOOLBAR_SMALL),
            size, 0, RGB(255, 0, 255), IMAGE_BITMAP, LR_CREATEDIBSECTION);
    }
}

void ToolbarBand::Build(const std::vector<int>& order, const ToolbarSettings& settings,
                        const SkinRecord& skin) {
    if (!hwnd()) {
        return;
    }
    skin_ = skin;
    painter_.Forget();
    order_ = order;
    if (bar_) {
        ::DestroyWindow(bar_);
    }
    DWORD style = WS_CHILD | WS_VISIBLE | TBSTYLE_FLAT | TBSTYLE_TOOLTIPS | TBSTYLE_TRANSPARENT |
                  CCS_NODIVIDER | CCS_NORESIZE | CCS_NOPARENTALIGN;
    if (settings.labelMode == ToolbarSettings::kLabelsRight) {
        style |= TBSTYLE_LIST;
    }
    bar_ = ::CreateWindowExA(0, TOOLBARCLASSNAMEA, "", style, 0, 0, 100, 30, hwnd(), nullptr,
                             win::ModuleHandle(), nullptr);
    if (!bar_) {
        return;
    }
    ::SendMessageA(bar_, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    ::SendMessageA(bar_, WM_SETFONT, reinterpret_cast<WPARAM>(UiFont()), FALSE);
    LoadImages(settings.large, skin);
    ::SendMessageA(bar_, TB_SETIMAGELIST, 0, reinterpret_cast<LPARAM>(images_));

    labels_.clear();
    labels_.reserve(order.size());
    std::vector<TBBUTTON> buttons;
    for (int id : order) {
        TBBUTTON button = {};
        const CommandInfo* command = id != 0 ? FindCommand(id) : nullptr;
        if (!command || command->buttonId == 0) {
            // Separators, and numbers from the registry that name no button, take a gap.
            button.fsStyle = BTNS_SEP;
            button.iBitmap = 6;
            buttons.push_back(button);
            labels_.emplace_back();
            continue;
        }
        std::string label;
        Language().LoadText(command->buttonId, label);
        labels_.push_back(label + '\0');
        button.iBitmap = ToolbarImageOf(id);
        button.idCommand = id;
        button.fsState = TBSTATE_ENABLED;
        button.fsStyle = BTNS_BUTTON | BTNS_AUTOSIZE;
        button.iString = reinterpret_cast<INT_PTR>(labels_.back().c_str());
        buttons.push_back(button);
    }
    if (!buttons.empty()) {
        ::SendMessageA(bar_, TB_ADDBUTTONSA, buttons.size(),
                       reinterpret_cast<LPARAM>(buttons.data()));
    }
    if (settings.labelMode == ToolbarSettings::kNoLabels) {
        // No rows of text: the labels live on as the buttons' tooltips.
        ::SendMessageA(bar_, TB_SETMAXTEXTROWS, 0, 0);
    }
    ::SendMessageA(bar_, TB_AUTOSIZE, 0, 0);
    SIZE ideal = {};
    ::SendMessageA(bar_, TB_GETMAXSIZE, 0, reinterpret_cast<LPARAM>(&ideal));
    DWORD buttonSize = static_cast<DWORD>(::SendMessageA(bar_, TB_GETBUTTONSIZE, 0, 0));
    const int height = std::max<int>(HIWORD(buttonSize), ideal.cy) + 4;
    const int width = std::max<int>(ideal.cx, 40) + 8;
    ::MoveWindow(bar_, 4, 2, width - 4, height - 4, TRUE);
    ::SetWindowPos(hwnd(), nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER);
    ::InvalidateRect(hwnd(), nullptr, TRUE);
}

void ToolbarBand::SetButtonState(int id, bool enabled, bool checked) {
    if (!bar_ || ::SendMessageA(bar_, TB_COMMANDTOINDEX, id, 0) < 0) {
        return;
    }
    ::SendMessageA(bar_, TB_ENABLEBUTTON, id, MAKELPARAM(enabled ? TRUE : FALSE, 0));
    ::SendMessageA(bar_, TB_CHECKBUTTON, id, MAKELPARAM(checked ? TRUE : FALSE, 0));
}

LRESULT ToolbarBand::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_COMMAND:
        if (target_ && reinterpret_cast<HWND>(lParam) == bar_) {
            ::SendMessageA(target_, WM_COMMAND, MAKEWPARAM(LOWORD(wParam), 0), 0);
        }
        return 0;
    case WM_ERASEBKGND: {
        // Also asked by the transparent button bar, with its origin moved, for what shows through.
        RECT client = {};
        ::GetClientRect(hwnd(), &client);
        painter_.PaintBand(reinterpret_cast<HDC>(wParam), client, skin_.rebar, COLOR_BTNFACE);
        return 1;
    }
    default:
        return Default(message, wParam, lParam);
    }
}

} // namespace corvid::shell
