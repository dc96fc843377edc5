#include "shell/win/basic_panels.h"

#include "markup/language_table.h"
#include "platform/win/clipboard.h"
#include "platform/win/list_view.h"
#include "platform/win/module.h"
#include "platform/win/window.h"
#include "shell/network_info.h"
#include "shell/win/skin_painter.h"

#include <commctrl.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace corvid::shell {

namespace {

std::string Text(const PanelSite& site, std::uint32_t id) {
    std::string text;
    site.Language().LoadText(id, text);
    return text;
}

// A panel's own window: a plain child that fills the panel area and lays out what it holds.
class PanelWindow : public win::WindowBase, public Panel {
public:
    PanelWindow(PanelSite& site, std::uint32_t titleId) : site_(site), titleId_(titleId) {}

    bool Create(HWND parent) override {
        RECT rect = {0, 0, 100, 100};
        if (!WindowBase::Create("CorvidPanel", "", WS_CHILD | WS_CLIPCHILDREN, WS_EX_CONTROLPARENT,
                                parent, rect, nullptr, CS_HREDRAW | CS_VREDRAW,
                                reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1))) {
            return false;
        }
        CreateContent();
        return true;
    }
    HWND Window() const override { return hwnd(); }
    std::string Title() const override { return Text(site_, titleId_); }

protected:
    virtual void CreateContent() = 0;
    virtual void Layout(int width, int height) = 0;

    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_SIZE) {
            Layout(LOWORD(lParam), HIWORD(lParam));
            return 0;
        }
        if (message == WM_CTLCOLORSTATIC) {
            ::SetBkColor(reinterpret_cast<HDC>(wParam), ::GetSysColor(COLOR_WINDOW));
            ::SetTextColor(reinterpret_cast<HDC>(wParam), ::GetSysColor(COLOR_WINDOWTEXT));
            return reinterpret_cast<LRESULT>(::GetSysColorBrush(COLOR_WINDOW));
        }
        return Default(message, wParam, lParam);
    }

    HWND Child(const char* className, DWORD style, DWORD exStyle = 0) {
        HWND child = ::CreateWindowExA(exStyle, className, "", WS_CHILD | WS_VISIBLE | style, 0, 0,
                                       10, 10, hwnd(), nullptr, win::ModuleHandle(), nullptr);
        ::SendMessageA(child, WM_SETFONT, reinterpret_cast<WPARAM>(UiFont()), FALSE);
        return child;
    }

    HWND MakeList(std::initializer_list<std::pair<std::uint32_t, int>> columns) {
        HWND list = Child(WC_LISTVIEWA, LVS_REPORT | LVS_NOSORTHEADER | LVS_SHOWSELALWAYS);
        ListView_SetExtendedListViewStyle(list, LVS_EX_FULLROWSELECT | LVS_EX_DOUBLEBUFFER);
        int index = 0;
        for (auto [titleId, width] : columns) {
            win::AddListColumn(list, index++, width, LVCFMT_LEFT, Text(site_, titleId).c_str());
        }
        return list;
    }

    static void SetCell(HWND list, int row, int column, const std::string& text) {
        LVITEMA item = {};
        item.iSubItem = column;
        item.pszText = const_cast<char*>(text.c_str());
        ::SendMessageA(list, LVM_SETITEMTEXTA, row, reinterpret_cast<LPARAM>(&item));
    }
    static void InsertRow(HWND list, int row, const std::string& first) {
        LVITEMA item = {};
        item.mask = LVIF_TEXT;
        item.iItem = row;
        item.pszText = const_cast<char*>(first.c_str());
        ::SendMessageA(list, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&item));
    }

    PanelSite& site_;
    std::uint32_t titleId_;
};

class PlaceholderPanel final : public PanelWindow {
public:
    PlaceholderPanel(PanelSite& site, std::uint32_t titleId, std::uint32_t textId,
                     std::uint32_t noteId)
        : PanelWindow(site, titleId), textId_(textId), noteId_(noteId) {}

    void ApplyLanguage() override {
        ::SetWindowTextA(heading_, Title().c_str());
        ::SetWindowTextA(text_, Text(site_, textId_).c_str());
        ::SetWindowTextA(note_, Text(site_, noteId_).c_str());
    }

protected:
    void CreateContent() override {
        heading_ = Child("STATIC", SS_LEFT | SS_NOPREFIX);
        ::SendMessageA(heading_, WM_SETFONT, reinterpret_cast<WPARAM>(UiBoldFont()), FALSE);
        text_ = Child("STATIC", SS_LEFT | SS_NOPREFIX);
        note_ = Child("STATIC", SS_LEFT | SS_NOPREFIX);
        ApplyLanguage();
    }
    void Layout(int width, int) override {
        const int textWidth = std::min(width - 48, 560);
        ::MoveWindow(heading_, 24, 24, textWidth, 20, TRUE);
        ::MoveWindow(text_, 24, 52, textWidth, 32, TRUE);
        ::MoveWindow(note_, 24, 88, textWidth, 40, TRUE);
    }

private:
    std::uint32_t textId_;
    std::uint32_t noteId_;
    HWND heading_ = nullptr;
    HWND text_ = nullptr;
    HWND note_ = nullptr;
};

class InfoPanel final : public PanelWindow {
public:
    explicit InfoPanel(PanelSite& site) : PanelWindow(site, 36123) {}

    void OnNetworkInfo(const std::string& text) override {
        last_ = text;
        Show();
    }
    void OnEngine(IGnutellaEngine* engine) override {
        if (!engine) {
            last_.clear();
        }
        Show();
    }
    void ApplyLanguage() override { Show(); }

protected:
    void CreateContent() override {
        note_ = Child("STATIC", SS_LEFT | SS_NOPREFIX);
        list_ = MakeList({{36150, 180}, {33020, 320}});
        Show();
    }
    void Layout(int width, int height) override {
        ::MoveWindow(note_, 12, 10, width - 24, 20, TRUE);
        ::MoveWindow(list_, 0, 36, width, std::max(height - 36, 0), TRUE);
    }

private:
    void Show() {
        if (!list_) {
            return;
        }
        const std::vector<InfoLine> lines = ReadNetworkInfo(last_, site_.Language());
        ::SetWindowTextA(note_,
                         site_.Online() ? Text(site_, 36173).c_str() : Text(site_, 36161).c_str());
        ::SendMessageA(list_, WM_SETREDRAW, FALSE, 0);
        const int rows = static_cast<int>(::SendMessageA(list_, LVM_GETITEMCOUNT, 0, 0));
        for (int row = rows; row > static_cast<int>(lines.size()); --row) {
            ::SendMessageA(list_, LVM_DELETEITEM, row - 1, 0);
        }
        for (std::size_t i = 0; i < lines.size(); ++i) {
            const int row = static_cast<int>(i);
            if (row >= rows) {
                InsertRow(list_, row, lines[i].label);
            } else {
                SetCell(list_, row, 0, lines[i].label);
            }
            SetCell(list_, row, 1, lines[i].value);
        }
        ::SendMessageA(list_, WM_SETREDRAW, TRUE, 0);
    }

    HWND note_ = nullptr;
    HWND list_ = nullptr;
    std::string last_;
};

class ConsolePanel final : public PanelWindow {
public:
    explicit ConsolePanel(PanelSite& site) : PanelWindow(site, 36127) {}

    void OnStatusMessage(const std::string& text) override {
        if (!list_ || text.empty()) {
            return;
        }
        char stamp[32] = "";
        const std::time_t now = std::time(nullptr);
        if (const std::tm* local = std::localtime(&now)) {
            std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", local);
        }
        // The oldest lines go once the console holds its fill.
        int rows = static_cast<int>(::SendMessageA(list_, LVM_GETITEMCOUNT, 0, 0));
        if (rows >= kMaxLines) {
            ::SendMessageA(list_, LVM_DELETEITEM, 0, 0);
            --rows;
        }
        InsertRow(list_, rows, stamp);
        SetCell(list_, rows, 1, text);
        ::SendMessageA(list_, LVM_ENSUREVISIBLE, rows, FALSE);
    }
    bool OnEditCommand(const std::string& name) override {
        if (name == "p2p_selectall") {
            LVITEMA item = {};
            item.stateMask = LVIS_SELECTED;
            item.state = LVIS_SELECTED;
            ::SendMessageA(list_, LVM_SETITEMSTATE, static_cast<WPARAM>(-1),
                           reinterpret_cast<LPARAM>(&item));
            return true;
        }
        if (name == "p2p_copy") {
            CopySelection();
            return true;
        }
        return false;
    }
    HWND list() const { return list_; }

protected:
    void CreateContent() override { list_ = MakeList({{32944, 150}, {36165, 600}}); }
    void Layout(int width, int height) override {
        ::MoveWindow(list_, 0, 0, width, height, TRUE);
        // The message column takes the rest of the width, so no empty header stands beside it.
        ::SendMessageA(list_, LVM_SETCOLUMNWIDTH, 1, LVSCW_AUTOSIZE_USEHEADER);
    }

private:
    static constexpr int kMaxLines = 2000;

    void CopySelection() {
        std::string text;
        int row = -1;
        while ((row = static_cast<int>(
                    ::SendMessageA(list_, LVM_GETNEXTITEM, row, LVNI_SELECTED))) >= 0) {
            char cell[1024];
            for (int column = 0; column < 2; ++column) {
                LVITEMA item = {};
                item.iSubItem = column;
                item.pszText = cell;
                item.cchTextMax = sizeof cell;
                ::SendMessageA(list_, LVM_GETITEMTEXTA, row, reinterpret_cast<LPARAM>(&item));
                text += cell;
                text += column == 0 ? "\t" : "\r\n";
            }
        }
        win::CopyTextToClipboard(hwnd(), text);
    }

    HWND list_ = nullptr;
};

} // namespace

std::unique_ptr<Panel> MakeInfoPanel(PanelSite& site) {
    return std::make_unique<InfoPanel>(site);
}

std::unique_ptr<Panel> MakeConsolePanel(PanelSite& site) {
    return std::make_unique<ConsolePanel>(site);
}

std::unique_ptr<Panel> MakePlaceholderPanel(PanelSite& site, std::uint32_t titleId,
                                            std::uint32_t textId, std::uint32_t noteId) {
    return std::make_unique<PlaceholderPanel>(site, titleId, textId, noteId);
}

} // namespace corvid::shell
