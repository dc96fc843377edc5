#include "search/win/search_panel.h"

#include "engine_h.h"
#include "markup/language_table.h"
#include "platform/win/module.h"
#include "platform/win/text.h"
#include "platform/win/window.h"
#include "search/win/search_dialogs.h"
#include "search/win/search_window.h"

#include <commctrl.h>

#include <algorithm>
#include <string>

namespace corvid::search {
namespace {

constexpr std::uint32_t kTextTitle = 36121;     // "Search"
constexpr std::uint32_t kTextSearchFor = 34042; // "Search for:"
constexpr std::uint32_t kTextSearchButton = 34043;
constexpr std::uint32_t kTextType = 34044; // "Type:"
constexpr std::uint32_t kTextHint = 34045;
constexpr std::uint32_t kTextBrowseHost = 36103; // "&Browse Host..."
constexpr int kWordsId = 201;
constexpr int kTypeId = 202;
constexpr int kSearchId = 203;
constexpr int kBrowseId = 204;
constexpr char kBrowsePrefix[] = "browse:";

// The media types the engine knows, as the search page sends them.
constexpr const char* kTypes[] = {"All", "Audio", "Video", "Image", "Document", "Application"};

std::string Trimmed(std::string text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

class SearchPanel final : public shell::Panel, private win::WindowBase {
public:
    explicit SearchPanel(shell::PanelSite& site) : site_(site) {}

    bool Create(HWND parent) override {
        const RECT start = {0, 0, 640, 480};
        if (!WindowBase::Create("CorvidSearchPanel", "", WS_CHILD | WS_CLIPCHILDREN, 0, parent,
                                start)) {
            return false;
        }
        searchFor_ = Child("STATIC", "", SS_LEFT, 0);
        words_ = Child("EDIT", "", WS_TABSTOP | ES_AUTOHSCROLL, kWordsId, WS_EX_CLIENTEDGE);
        typeLabel_ = Child("STATIC", "", SS_LEFT, 0);
        type_ = Child("COMBOBOX", "", WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWNLIST, kTypeId);
        search_ = Child("BUTTON", "", WS_TABSTOP | BS_DEFPUSHBUTTON, kSearchId);
        browse_ = Child("BUTTON", "", WS_TABSTOP | BS_PUSHBUTTON, kBrowseId);
        hint_ = Child("STATIC", "", SS_LEFT | SS_NOPREFIX, 0);
        ::SetWindowSubclass(words_, &WordsProcedure, 0, 0);
        for (const char* type : kTypes) {
            ::SendMessageA(type_, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(type));
        }
        ::SendMessageA(type_, CB_SETCURSEL, 0, 0);
        ApplyLanguage();
        Layout();
        return true;
    }
    HWND Window() const override { return hwnd(); }
    std::string Title() const override { return Text(kTextTitle); }

    void ApplyLanguage() override {
        if (!hwnd()) {
            return;
        }
        ::SetWindowTextA(searchFor_, Text(kTextSearchFor).c_str());
        ::SetWindowTextA(typeLabel_, Text(kTextType).c_str());
        ::SetWindowTextA(search_, Text(kTextSearchButton).c_str());
        ::SetWindowTextA(browse_, Text(kTextBrowseHost).c_str());
        ::SetWindowTextA(hint_, Text(kTextHint).c_str());
    }

    bool OpenSearch(IGnutellaSearch* search, const std::string& keywords,
                    const std::string& type) override {
        return search && site_.OpenTab(MakeSearchWindow(site_, search, keywords, type), true);
    }

    bool OnPanelCommand(const std::string& name) override {
        if (name == "p2p_browse_host") {
            std::string url;
            if (AskBrowseHost(site_.MainWindow(), site_.Language(), url)) {
                ::SendMessageA(site_.MainWindow(), shell::kMsgBrowseHost, 0,
                               reinterpret_cast<LPARAM>(url.c_str()));
            }
            return true;
        }
        if (name.rfind(kBrowsePrefix, 0) == 0) {
            OpenBrowse(name.substr(sizeof kBrowsePrefix - 1));
            return true;
        }
        return false;
    }

    bool OnEditCommand(const std::string& name) override {
        HWND focus = ::GetFocus();
        if (focus != words_) {
            return false;
        }
        if (name == "p2p_cut") {
            ::SendMessageA(words_, WM_CUT, 0, 0);
        } else if (name == "p2p_copy") {
            ::SendMessageA(words_, WM_COPY, 0, 0);
        } else if (name == "p2p_paste") {
            ::SendMessageA(words_, WM_PASTE, 0, 0);
        } else if (name == "p2p_selectall") {
            ::SendMessageA(words_, EM_SETSEL, 0, -1);
        } else {
            return false;
        }
        return true;
    }

private:
    std::string Text(std::uint32_t id) const {
        std::string text;
        site_.Language().LoadText(id, text);
        return text;
    }

    HWND Child(const char* className, const char* text, DWORD style, int id, DWORD exStyle = 0) {
        HWND child =
            ::CreateWindowExA(exStyle, className, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 0, 0,
                              hwnd(), reinterpret_cast<HMENU>(id), win::ModuleHandle(), nullptr);
        ::SendMessageA(child, WM_SETFONT,
                       reinterpret_cast<WPARAM>(::GetStockObject(DEFAULT_GUI_FONT)), FALSE);
        return child;
    }

    void Layout() {
        RECT client;
        ::GetClientRect(hwnd(), &client);
        const int width = client.right - client.left;
        const int wordsWidth = std::max(160, std::min(360, width - 420));
        ::MoveWindow(searchFor_, 24, 27, 70, 16, TRUE);
        ::MoveWindow(words_, 96, 24, wordsWidth, 22, TRUE);
        int x = 96 + wordsWidth + 12;
        ::MoveWindow(typeLabel_, x, 27, 36, 16, TRUE);
        ::MoveWindow(type_, x + 38, 24, 110, 200, TRUE);
        x += 38 + 110 + 12;
        ::MoveWindow(search_, x, 23, 80, 24, TRUE);
        ::MoveWindow(browse_, 96, 60, 120, 24, TRUE);
        ::MoveWindow(hint_, 24, 104, std::max(200, std::min(560, width - 48)), 60, TRUE);
    }

    void StartSearch() {
        char words[512] = {};
        ::GetWindowTextA(words_, words, sizeof words);
        const std::string keywords = Trimmed(words);
        char type[32] = {};
        ::GetWindowTextA(type_, type, sizeof type);
        if (keywords.empty() || !site_.EnsureOnline() || !site_.Engine()) {
            ::MessageBeep(MB_OK);
            return;
        }
        win::Bstr keywordText(win::ToWide(keywords).c_str());
        win::Bstr typeText(win::ToWide(*type ? type : "All").c_str());
        win::ComPtr<IGnutellaSearch> search;
        if (FAILED(site_.Engine()->CreateSearch(keywordText.get(), typeText.get(), 0, 0, 0, 1,
                                                search.put())) ||
            !search || !OpenSearch(search.get(), keywords, *type ? type : "All") ||
            FAILED(search->Start())) {
            ::MessageBeep(MB_ICONERROR);
        }
    }

    void OpenBrowse(const std::string& url) {
        if (!site_.Engine() && !site_.EnsureOnline()) {
            return;
        }
        std::unique_ptr<shell::Panel> tab = MakeBrowseHostTab(site_, url);
        if (!tab || !site_.OpenTab(std::move(tab), true)) {
            ::MessageBeep(MB_ICONERROR);
        }
    }

    // Enter in the words box starts the search, as the default button would in a dialog.
    static LRESULT CALLBACK WordsProcedure(HWND words, UINT message, WPARAM wParam, LPARAM lParam,
                                           UINT_PTR, DWORD_PTR) {
        if (message == WM_KEYDOWN && wParam == VK_RETURN) {
            ::PostMessageA(::GetParent(words), WM_COMMAND, MAKEWPARAM(kSearchId, BN_CLICKED),
                           reinterpret_cast<LPARAM>(::GetDlgItem(::GetParent(words), kSearchId)));
            return 0;
        }
        if (message == WM_CHAR && wParam == '\r') {
            return 0;
        }
        if (message == WM_NCDESTROY) {
            ::RemoveWindowSubclass(words, &WordsProcedure, 0);
        }
        return ::DefSubclassProc(words, message, wParam, lParam);
    }

    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        switch (message) {
        case WM_SIZE:
            Layout();
            return 0;
        case WM_COMMAND:
            if (LOWORD(wParam) == kSearchId && HIWORD(wParam) == BN_CLICKED) {
                StartSearch();
                return 0;
            }
            if (LOWORD(wParam) == kBrowseId && HIWORD(wParam) == BN_CLICKED) {
                OnPanelCommand("p2p_browse_host");
                return 0;
            }
            break;
        case WM_SETFOCUS:
            ::SetFocus(words_);
            return 0;
        default:
            break;
        }
        return Default(message, wParam, lParam);
    }

    shell::PanelSite& site_;
    HWND searchFor_ = nullptr;
    HWND words_ = nullptr;
    HWND typeLabel_ = nullptr;
    HWND type_ = nullptr;
    HWND search_ = nullptr;
    HWND browse_ = nullptr;
    HWND hint_ = nullptr;
};

} // namespace

std::unique_ptr<shell::Panel> MakeSearchPanel(shell::PanelSite& site) {
    return std::make_unique<SearchPanel>(site);
}

} // namespace corvid::search
