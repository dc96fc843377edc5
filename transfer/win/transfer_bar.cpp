#include "transfer/win/transfer_bar.h"

#include "platform/win/module.h"

#include <algorithm>

namespace corvid::transfer::win {

namespace {
// Room for the longest counter text ("Downloading items count: 9999") in the message font.
constexpr int kCounterWidth = 240;
} // namespace

TransferBar::~TransferBar() {
    if (images_)
        ImageList_Destroy(images_);
}

void TransferBar::Create(HWND parent, const char* name, int toolbarId, int counterId, HGDIOBJ font,
                         std::span<const BarButton> buttons, const BarLabel& label) {
    const HINSTANCE instance = corvid::win::ModuleHandle();
    toolbar_ = ::CreateWindowExA(0, TOOLBARCLASSNAMEA, name,
                                 WS_CHILD | WS_VISIBLE | TBSTYLE_FLAT | TBSTYLE_LIST |
                                     TBSTYLE_TOOLTIPS | CCS_NODIVIDER | CCS_NORESIZE,
                                 0, 0, 0, 0, parent, reinterpret_cast<HMENU>(toolbarId), instance,
                                 nullptr);
    ::SendMessageA(toolbar_, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    ::SendMessageA(toolbar_, TB_SETEXTENDEDSTYLE, 0, TBSTYLE_EX_MIXEDBUTTONS);
    images_ = ImageList_LoadImageA(instance, name, 16, 0, RGB(255, 0, 255), IMAGE_BITMAP,
                                   LR_CREATEDIBSECTION);
    ::SendMessageA(toolbar_, TB_SETIMAGELIST, 0, reinterpret_cast<LPARAM>(images_));
    for (const auto& button : buttons) {
        const auto text = label(button.text);
        TBBUTTON added = {};
        added.iBitmap = button.image;
        added.idCommand = button.command;
        added.fsState = TBSTATE_ENABLED;
        added.fsStyle = static_cast<BYTE>(BTNS_AUTOSIZE | BTNS_SHOWTEXT |
                                          (button.check ? BTNS_CHECK : BTNS_BUTTON));
        added.iString = reinterpret_cast<INT_PTR>(text.c_str());
        ::SendMessageA(toolbar_, TB_ADDBUTTONSA, 1, reinterpret_cast<LPARAM>(&added));
        if (button.separatorAfter) {
            TBBUTTON separator = {};
            separator.fsStyle = BTNS_SEP;
            ::SendMessageA(toolbar_, TB_ADDBUTTONSA, 1, reinterpret_cast<LPARAM>(&separator));
        }
    }
    counter_ =
        ::CreateWindowExA(0, "STATIC", "", WS_CHILD | WS_VISIBLE | SS_RIGHT | SS_CENTERIMAGE, 0, 0,
                          0, 0, parent, reinterpret_cast<HMENU>(counterId), instance, nullptr);
    ::SendMessageA(counter_, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
}

void TransferBar::Relabel(std::span<const BarButton> buttons, const BarLabel& label) {
    for (const auto& button : buttons) {
        const auto text = label(button.text);
        TBBUTTONINFOA info = {};
        info.cbSize = sizeof info;
        info.dwMask = TBIF_TEXT;
        info.pszText = const_cast<char*>(text.c_str());
        ::SendMessageA(toolbar_, TB_SETBUTTONINFOA, button.command,
                       reinterpret_cast<LPARAM>(&info));
    }
}

int TransferBar::LayOut(int width) {
    const DWORD size = static_cast<DWORD>(::SendMessageA(toolbar_, TB_GETBUTTONSIZE, 0, 0));
    const int height = HIWORD(size) + 6;
    const int counterLeft = std::max(0, width - kCounterWidth);
    ::MoveWindow(toolbar_, 0, 2, counterLeft, height - 2, TRUE);
    ::MoveWindow(counter_, counterLeft, 0, kCounterWidth - 8, height, TRUE);
    return height;
}

} // namespace corvid::transfer::win
