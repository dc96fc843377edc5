#include "shell/win/tab_strip.h"

#include <windowsx.h>

#include <algorithm>

namespace corvid::shell {

namespace {

constexpr int kTabPadding = 14; // blank beside the title, each side
constexpr int kCloseBox = 16;   // the close glyph of a closable tab
constexpr int kButtonGap = 4;   // between push buttons
constexpr int kStripMargin = 4; // before the first tab
constexpr int kRaise = 3;       // how much taller the selected tab is

} // namespace

bool TabStrip::Create(HWND parent) {
    RECT rect = {0, 0, 100, 28};
    return WindowBase::Create("CorvidTabStrip", "", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0,
                              parent, rect, nullptr, CS_DBLCLKS | CS_HREDRAW | CS_VREDRAW,
                              nullptr) != nullptr;
}

int TabStrip::IndexOf(Panel* panel) const {
    for (std::size_t i = 0; i < tabs_.size(); ++i) {
        if (tabs_[i].panel == panel) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void TabStrip::Add(Panel* panel, std::string title, bool closable) {
    tabs_.push_back({panel, std::move(title), closable});
    Measure();
}

void TabStrip::Remove(Panel* panel) {
    const int index = IndexOf(panel);
    if (index < 0) {
        return;
    }
    tabs_.erase(tabs_.begin() + index);
    if (selected_ == panel) {
        selected_ = nullptr;
    }
    pressed_ = -1;
    Measure();
}

void TabStrip::Select(Panel* panel) {
    if (IndexOf(panel) >= 0 && selected_ != panel) {
        selected_ = panel;
        if (hwnd()) {
            ::InvalidateRect(hwnd(), nullptr, TRUE);
        }
    }
}

void TabStrip::SetTitle(Panel* panel, std::string title) {
    const int index = IndexOf(panel);
    if (index >= 0 && tabs_[index].title != title) {
        tabs_[index].title = std::move(title);
        Measure();
    }
}

void TabStrip::Apply(const TabSettings& settings) {
    settings_ = settings;
    if (hwnd()) {
        ::InvalidateRect(hwnd(), nullptr, TRUE);
    }
}

void TabStrip::SetSkin(const SkinRecord& skin) {
    skin_ = skin;
    painter_.Forget();
    Measure();
}

int TabStrip::PreferredHeight() const {
    HDC dc = ::GetDC(hwnd());
    HGDIOBJ old = ::SelectObject(dc, UiBoldFont());
    TEXTMETRICA metrics = {};
    ::GetTextMetricsA(dc, &metrics);
    ::SelectObject(dc, old);
    ::ReleaseDC(hwnd(), dc);
    return metrics.tmHeight + 14 + kRaise;
}

void TabStrip::Measure() {
    if (!hwnd()) {
        return;
    }
    HDC dc = ::GetDC(hwnd());
    HGDIOBJ old = ::SelectObject(dc, UiBoldFont());
    for (Tab& tab : tabs_) {
        SIZE size = {};
        ::GetTextExtentPoint32A(dc, tab.title.c_str(), static_cast<int>(tab.title.size()), &size);
        tab.width = size.cx + 2 * kTabPadding + (tab.closable ? kCloseBox : 0);
    }
    ::SelectObject(dc, old);
    ::ReleaseDC(hwnd(), dc);
    ::InvalidateRect(hwnd(), nullptr, TRUE);
}

RECT TabStrip::TabRect(std::size_t index) const {
    RECT client = {};
    ::GetClientRect(hwnd(), &client);
    int x = kStripMargin;
    for (std::size_t i = 0; i < index && i < tabs_.size(); ++i) {
        x += tabs_[i].width + (settings_.pushLike ? kButtonGap : 0);
    }
    RECT rect = {x, client.top + 2, x + (index < tabs_.size() ? tabs_[index].width : 0),
                 client.bottom - 2};
    if (!settings_.pushLike) {
        // Tabs touch the panels: the edge next to them is the strip's edge toward the panels.
        const bool selected = index < tabs_.size() && tabs_[index].panel == selected_;
        if (settings_.firstPosition) {
            rect.top = client.top + (selected ? 1 : 1 + kRaise);
            rect.bottom = client.bottom;
        } else {
            rect.top = client.top;
            rect.bottom = client.bottom - (selected ? 1 : 1 + kRaise);
        }
    }
    return rect;
}

int TabStrip::HitTest(POINT point) const {
    for (std::size_t i = 0; i < tabs_.size(); ++i) {
        RECT rect = TabRect(i);
        if (point.x >= rect.left && point.x < rect.right) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

bool TabStrip::InCloseBox(std::size_t index, POINT point) const {
    if (!tabs_[index].closable) {
        return false;
    }
    RECT rect = TabRect(index);
    return point.x >= rect.right - kCloseBox - 4 && point.x < rect.right - 2;
}

void TabStrip::Choose(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= tabs_.size()) {
        return;
    }
    Panel* panel = tabs_[index].panel;
    if (panel != selected_) {
        Select(panel);
        owner_.OnTabSelected(panel);
    }
}

void TabStrip::Paint(HDC dc) {
    RECT client = {};
    ::GetClientRect(hwnd(), &client);
    painter_.PaintBand(dc, client, skin_.tabbar, COLOR_BTNFACE);
    // A line where the panels begin, unless the tabs are free-standing buttons.
    if (!settings_.pushLike) {
        RECT line = client;
        if (settings_.firstPosition) {
            line.top = line.bottom - 1;
        } else {
            line.bottom = line.top + 1;
        }
        HBRUSH brush = ::CreateSolidBrush(::GetSysColor(COLOR_BTNSHADOW));
        ::FillRect(dc, &line, brush);
        ::DeleteObject(brush);
    }
    ::SetBkMode(dc, TRANSPARENT);
    for (std::size_t i = 0; i < tabs_.size(); ++i) {
        const bool selected = tabs_[i].panel == selected_;
        const SkinButtonState& state = selected ? skin_.tabActive : skin_.tabNormal;
        RECT rect = TabRect(i);
        RECT inner = painter_.PaintButton(dc, rect, state, selected ? COLOR_WINDOW : COLOR_BTNFACE);
        if (!settings_.pushLike && selected) {
            // The selected tab opens into its panel: no border on that side.
            HBRUSH brush = ::CreateSolidBrush(SkinToColorRef(state.backColor, COLOR_WINDOW));
            RECT gap = {inner.left, settings_.firstPosition ? inner.bottom : rect.top, inner.right,
                        settings_.firstPosition ? rect.bottom : inner.top};
            ::FillRect(dc, &gap, brush);
            ::DeleteObject(brush);
        }
        ::SelectObject(dc, selected ? UiBoldFont() : UiFont());
        ::SetTextColor(dc, painter_.TextColour(state, COLOR_BTNTEXT));
        RECT text = inner;
        text.left += kTabPadding - 1;
        text.right -= tabs_[i].closable ? kCloseBox : kTabPadding - 1;
        ::DrawTextA(dc, tabs_[i].title.c_str(), static_cast<int>(tabs_[i].title.size()), &text,
                    DT_SINGLELINE | DT_VCENTER | DT_LEFT | DT_END_ELLIPSIS | DT_NOPREFIX);
        if (tabs_[i].closable) {
            RECT box = {inner.right - kCloseBox - 2, inner.top, inner.right - 2, inner.bottom};
            ::DrawTextA(dc, "x", 1, &box, DT_SINGLELINE | DT_VCENTER | DT_CENTER);
        }
    }
}

LRESULT TabStrip::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_ERASEBKGND:
        return 1;
    case WM_PAINT: {
        PAINTSTRUCT paint;
        HDC dc = ::BeginPaint(hwnd(), &paint);
        // Painted off screen and copied, so the strip never flickers while a tab is dragged.
        RECT client = {};
        ::GetClientRect(hwnd(), &client);
        HDC memory = ::CreateCompatibleDC(dc);
        HBITMAP bitmap = ::CreateCompatibleBitmap(dc, std::max<int>(client.right, 1),
                                                  std::max<int>(client.bottom, 1));
        HGDIOBJ oldBitmap = ::SelectObject(memory, bitmap);
        HGDIOBJ oldFont = ::SelectObject(memory, UiFont());
        Paint(memory);
        ::BitBlt(dc, 0, 0, client.right, client.bottom, memory, 0, 0, SRCCOPY);
        ::SelectObject(memory, oldFont);
        ::SelectObject(memory, oldBitmap);
        ::DeleteObject(bitmap);
        ::DeleteDC(memory);
        ::EndPaint(hwnd(), &paint);
        return 0;
    }
    case WM_LBUTTONDOWN: {
        POINT point = {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
        const int index = HitTest(point);
        if (index < 0) {
            return 0;
        }
        if (InCloseBox(index, point)) {
            owner_.OnTabCloseRequested(tabs_[index].panel);
            return 0;
        }
        pressed_ = index;
        ::SetCapture(hwnd());
        if (settings_.leftButtonAction != TabSettings::kSelectOnRelease) {
            Choose(index);
        }
        return 0;
    }
    case WM_MOUSEMOVE:
        if (pressed_ >= 0 && (wParam & MK_LBUTTON)) {
            POINT point = {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
            const int over = HitTest(point);
            if (over >= 0 && over != pressed_) {
                // Dragged over a neighbour: the dragged tab takes its place.
                Tab moving = tabs_[pressed_];
                tabs_.erase(tabs_.begin() + pressed_);
                tabs_.insert(tabs_.begin() + over, moving);
                pressed_ = over;
                ::InvalidateRect(hwnd(), nullptr, TRUE);
            }
        }
        return 0;
    case WM_LBUTTONUP: {
        const int pressed = pressed_;
        pressed_ = -1;
        if (::GetCapture() == hwnd()) {
            ::ReleaseCapture();
        }
        POINT point = {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
        if (pressed >= 0 && settings_.leftButtonAction == TabSettings::kSelectOnRelease &&
            HitTest(point) == pressed) {
            Choose(pressed);
        }
        return 0;
    }
    case WM_CAPTURECHANGED:
        pressed_ = -1;
        return 0;
    case WM_RBUTTONUP: {
        POINT point = {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
        const int index = HitTest(point);
        if (index < 0) {
            return 0;
        }
        ::ClientToScreen(hwnd(), &point);
        owner_.OnTabMenuRequested(tabs_[index].panel, point);
        return 0;
    }
    case WM_MBUTTONUP: {
        POINT point = {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)};
        const int index = HitTest(point);
        if (index < 0) {
            return 0;
        }
        if (settings_.middleButtonAction == TabSettings::kCloseOnMiddle) {
            if (tabs_[index].closable) {
                owner_.OnTabCloseRequested(tabs_[index].panel);
            }
        } else if (settings_.middleButtonAction == TabSettings::kSelectOnMiddle) {
            Choose(index);
        }
        return 0;
    }
    default:
        return Default(message, wParam, lParam);
    }
}

} // namespace corvid::shell
