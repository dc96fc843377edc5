#include "shell/win/status_bar.h"

#include "markup/language_table.h"
#include "platform/win/module.h"
#include "resources/shell_resources.h"
#include "shell/win/skin_painter.h"

#include <algorithm>

namespace corvid::shell {

StatusBar::~StatusBar() {
    if (hwnd_) {
        ::DestroyWindow(hwnd_);
    }
    for (HICON icon : icons_) {
        if (icon) {
            ::DestroyIcon(icon);
        }
    }
    if (images_) {
        ::ImageList_Destroy(images_);
    }
}

bool StatusBar::Create(HWND parent) {
    hwnd_ =
        ::CreateWindowExA(0, STATUSCLASSNAMEA, "",
                          WS_CHILD | WS_VISIBLE | SBARS_TOOLTIPS | CCS_NOPARENTALIGN | CCS_NORESIZE,
                          0, 0, 100, 22, parent, nullptr, win::ModuleHandle(), nullptr);
    if (!hwnd_) {
        return false;
    }
    ::SendMessageA(hwnd_, WM_SETFONT, reinterpret_cast<WPARAM>(UiFont()), FALSE);
    for (std::size_t i = 0; i < kStatusPaneCount; ++i) {
        widths_[i] = kStatusPanes[i].width;
    }
    ApplyWidths();
    images_ = ::ImageList_LoadImageA(win::ModuleHandle(), MAKEINTRESOURCEA(IDB_STATUS_ICONS), 16, 0,
                                     RGB(255, 0, 255), IMAGE_BITMAP, LR_CREATEDIBSECTION);
    for (const StatusPaneSpec& pane : kStatusPanes) {
        SetPaneIcon(pane.id, pane.icon);
    }
    ApplyLanguage();
    return true;
}

void StatusBar::ApplyWidths() {
    // The status text takes what the counters leave; the parts are given by their right edges.
    RECT client = {};
    ::GetClientRect(hwnd_, &client);
    int fixed = 0;
    for (std::size_t i = 1; i < kStatusPaneCount; ++i) {
        fixed += widths_[i];
    }
    // Room for the size grip the host frame draws in the corner.
    const int grip = ::GetSystemMetrics(SM_CXVSCROLL);
    int edges[kStatusPaneCount] = {};
    int right = std::max<int>(client.right - grip - fixed, 120);
    edges[0] = right;
    for (std::size_t i = 1; i < kStatusPaneCount; ++i) {
        right += widths_[i];
        edges[i] = right;
    }
    edges[kStatusPaneCount - 1] = -1;
    ::SendMessageA(hwnd_, SB_SETPARTS, kStatusPaneCount, reinterpret_cast<LPARAM>(edges));
    for (std::size_t i = 0; i < kStatusPaneCount; ++i) {
        Show(i);
    }
}

void StatusBar::Show(std::size_t index) {
    ::SendMessageA(hwnd_, SB_SETTEXTA, index, reinterpret_cast<LPARAM>(texts_.Text(index).c_str()));
}

void StatusBar::SetText(const std::string& text) {
    if (hwnd_ && texts_.SetText(text)) {
        Show(0);
    }
}

void StatusBar::SetCounter(int paneId, int count) {
    if (hwnd_ && texts_.SetCounter(paneId, count, Language())) {
        Show(static_cast<std::size_t>(StatusPaneIndex(paneId)));
    }
}

void StatusBar::SetPaneWidth(int paneId, int width) {
    const int index = StatusPaneIndex(paneId);
    if (index > 0 && hwnd_) {
        widths_[index] = width;
        ApplyWidths();
    }
}

void StatusBar::SetPaneIcon(int paneId, int icon) {
    const int index = StatusPaneIndex(paneId);
    if (index < 0 || !hwnd_ || !images_) {
        return;
    }
    HICON made = ::ImageList_GetIcon(images_, icon, ILD_TRANSPARENT);
    ::SendMessageA(hwnd_, SB_SETICON, index, reinterpret_cast<LPARAM>(made));
    if (icons_[index]) {
        ::DestroyIcon(icons_[index]);
    }
    icons_[index] = made;
}

void StatusBar::ApplyLanguage() {
    if (!hwnd_) {
        return;
    }
    for (std::size_t i = 0; i < kStatusPaneCount; ++i) {
        if (kStatusPanes[i].tipId != 0) {
            std::string tip;
            Language().LoadText(kStatusPanes[i].tipId, tip);
            ::SendMessageA(hwnd_, SB_SETTIPTEXTA, i, reinterpret_cast<LPARAM>(tip.c_str()));
        }
    }
    texts_.Reformat(Language());
    for (std::size_t i = 1; i < kStatusPaneCount; ++i) {
        Show(i);
    }
}

void StatusBar::SetSkin(const SkinRecord& skin) {
    if (hwnd_) {
        ::SendMessageA(hwnd_, SB_SETBKCOLOR, 0,
                       skin.statusbar.backColor == kNoColour
                           ? static_cast<LPARAM>(CLR_DEFAULT)
                           : static_cast<LPARAM>(SkinToColorRef(skin.statusbar.backColor, 0)));
        ::InvalidateRect(hwnd_, nullptr, TRUE);
    }
}

int StatusBar::Layout() {
    RECT parent = {};
    ::GetClientRect(::GetParent(hwnd_), &parent);
    RECT own = {};
    ::GetWindowRect(hwnd_, &own);
    HDC dc = ::GetDC(hwnd_);
    HGDIOBJ old = ::SelectObject(dc, UiFont());
    TEXTMETRICA metrics = {};
    ::GetTextMetricsA(dc, &metrics);
    ::SelectObject(dc, old);
    ::ReleaseDC(hwnd_, dc);
    const int height = std::max<int>(metrics.tmHeight + 8, 22);
    ::MoveWindow(hwnd_, 0, parent.bottom - height, parent.right, height, TRUE);
    ApplyWidths();
    return height;
}

} // namespace corvid::shell
