#include "library/win/library_panel.h"

#include "engine_h.h"
#include "library/library_view.h"
#include "markup/language_table.h"
#include "platform/win/com_error.h"
#include "platform/win/com_object.h"
#include "platform/win/handles.h"
#include "platform/win/list_view.h"
#include "platform/win/module.h"
#include "platform/win/text.h"
#include "platform/win/window.h"

#include <commctrl.h>
#include <ocidl.h>
#include <shlobj.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <vector>

namespace corvid::library {

namespace {

constexpr UINT kMsgLibraryChanged = WM_APP + 11;
constexpr UINT_PTR kRefreshTimer = 1;
constexpr std::uint32_t kLibraryTitle = 36120; // "Library", the main view's tab title
constexpr std::uint32_t kFoldersLabel = 37401;
constexpr std::uint32_t kAddFolderText = 37402;
constexpr std::uint32_t kRemoveFolderText = 37403;
constexpr std::uint32_t kShareDownloadsText = 37404;
constexpr std::uint32_t kCpuShareLabel = 37405;
constexpr std::uint32_t kSharedLabel = 37406;
constexpr std::uint32_t kDownloadedLabel = 37407;
constexpr std::uint32_t kHashedText = 37408;
constexpr std::uint32_t kHashingText = 37409;
constexpr std::uint32_t kPickFolderPrompt = 37410;
constexpr std::uint32_t kUnavailableText = 37411;
constexpr std::uint32_t kCpuShareText = 37413;
constexpr std::uint32_t kWaitingText = 37416;

// Columns by the string id of their titles: Name, Size, SHA1, Progress, Folder.
constexpr std::array<std::uint32_t, 5> kColumns = {33006, 33007, 33015, 33023, 37412};
constexpr std::array<int, 5> kColumnWidths = {150, 80, 265, 85, 155};
constexpr int kProgressColumn = 3;

std::string Text(const LanguageTable& language, std::uint32_t id) {
    std::string text;
    language.LoadText(id, text);
    return text;
}

// "Hashing %d%%" and the like: one number into a translated format, never trusting the format
// to hold only that one conversion.
std::string FormatNumber(const std::string& format, int value) {
    std::string text;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && i + 1 < format.size()) {
            ++i;
            if (format[i] == 'd') {
                text += std::to_string(value);
            } else {
                text += format[i];
            }
        } else {
            text += format[i];
        }
    }
    return text;
}

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of("\\/");
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// The file manager's change event, handed to the panel's window as a posted message: the file
// manager may fire from a thread of its own.
class LibrarySink final : public win::ComObject<LibrarySink, IDispatch> {
public:
    explicit LibrarySink(HWND target) : target_(target) {}

    void* QueryMore(REFIID iid) {
        return IsEqualIID(iid, DIID__IFileManagerEvents) ? static_cast<IDispatch*>(this) : nullptr;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        if (!count) {
            return E_POINTER;
        }
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
        if (info) {
            *info = nullptr;
        }
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*,
                                     EXCEPINFO*, UINT*) override {
        if (id == 1) {
            ::PostMessageA(target_, kMsgLibraryChanged, 0, 0);
        }
        return S_OK;
    }

private:
    HWND target_;
};

class LibraryPanel : public shell::Panel, private win::WindowBase {
public:
    LibraryPanel(shell::PanelSite& site, FolderPicker pickFolder)
        : site_(site), pickFolder_(std::move(pickFolder)) {}

    ~LibraryPanel() override { Unadvise(); }

    bool Create(HWND parent) override {
        RECT rect = {0, 0, 0, 0};
        if (!WindowBase::Create("CorvidLibraryView", "", WS_CHILD | WS_CLIPCHILDREN, 0, parent,
                                rect)) {
            return false;
        }
        font_ = static_cast<HFONT>(::GetStockObject(DEFAULT_GUI_FONT));
        Child(WC_STATICA, kLibraryFoldersLabel, 0, 0);
        Child(WC_LISTBOXA, kLibraryFolders,
              LBS_NOTIFY | LBS_NOINTEGRALHEIGHT | WS_VSCROLL | WS_HSCROLL | WS_TABSTOP,
              WS_EX_CLIENTEDGE);
        Child(WC_BUTTONA, kLibraryAddFolder, BS_PUSHBUTTON | WS_TABSTOP, 0);
        Child(WC_BUTTONA, kLibraryRemoveFolder, BS_PUSHBUTTON | WS_TABSTOP, 0);
        Child(WC_BUTTONA, kLibraryShareDownloads, BS_AUTOCHECKBOX | WS_TABSTOP, 0);
        Child(WC_STATICA, kLibraryCpuShareLabel, 0, 0);
        HWND cpu =
            Child(TRACKBAR_CLASSA, kLibraryCpuShare, TBS_HORZ | TBS_AUTOTICKS | WS_TABSTOP, 0);
        ::SendMessageA(cpu, TBM_SETRANGE, FALSE, MAKELPARAM(1, 100));
        ::SendMessageA(cpu, TBM_SETTICFREQ, 10, 0);
        ::SendMessageA(cpu, TBM_SETPAGESIZE, 0, 10);
        Child(WC_STATICA, kLibraryCpuShareText, 0, 0);
        Child(WC_STATICA, kLibrarySharedLabel, 0, 0);
        Child(WC_STATICA, kLibraryDownloadedLabel, 0, 0);
        for (int id : {kLibrarySharedFiles, kLibraryDownloadedFiles}) {
            HWND list =
                Child(WC_LISTVIEWA, id, LVS_REPORT | LVS_OWNERDATA | LVS_SHOWSELALWAYS | WS_TABSTOP,
                      WS_EX_CLIENTEDGE);
            ListView_SetExtendedListViewStyle(list, LVS_EX_FULLROWSELECT | LVS_EX_HEADERDRAGDROP |
                                                        LVS_EX_INFOTIP);
            for (std::size_t i = 0; i < kColumns.size(); ++i) {
                win::AddListColumn(list, static_cast<int>(i), kColumnWidths[i],
                                   i == 1 ? LVCFMT_RIGHT : LVCFMT_LEFT);
            }
        }
        Child(WC_STATICA, kLibraryUnavailable, SS_CENTER, 0);
        ApplyLanguage();
        Connect();
        return true;
    }

    HWND Window() const override { return hwnd(); }
    std::string Title() const override { return Text(site_.Language(), kLibraryTitle); }
    int SharedFileCount() const override { return sharedCount_; }

    void OnShow(bool shown) override {
        shown_ = shown;
        if (shown && !fileManager_) {
            Connect();
        } else if (shown && stale_) {
            Guarded([this] { PacedRefresh(); });
        }
    }

    void ApplyLanguage() override {
        const LanguageTable& language = site_.Language();
        SetText(kLibraryFoldersLabel, Text(language, kFoldersLabel));
        SetText(kLibraryAddFolder, Text(language, kAddFolderText));
        SetText(kLibraryRemoveFolder, Text(language, kRemoveFolderText));
        SetText(kLibraryShareDownloads, Text(language, kShareDownloadsText));
        SetText(kLibraryCpuShareLabel, Text(language, kCpuShareLabel));
        SetText(kLibrarySharedLabel, Text(language, kSharedLabel));
        SetText(kLibraryDownloadedLabel, Text(language, kDownloadedLabel));
        SetText(kLibraryUnavailable, Text(language, kUnavailableText));
        for (int id : {kLibrarySharedFiles, kLibraryDownloadedFiles}) {
            for (std::size_t i = 0; i < kColumns.size(); ++i) {
                std::string title = Text(language, kColumns[i]);
                LVCOLUMNA column = {};
                column.mask = LVCF_TEXT;
                column.pszText = title.data();
                ::SendDlgItemMessageA(hwnd(), id, LVM_SETCOLUMNA, i,
                                      reinterpret_cast<LPARAM>(&column));
            }
        }
        ShowCpuShare(CpuSharePosition());
    }

private:
    HWND Child(const char* className, int id, DWORD style, DWORD exStyle) {
        HWND child = ::CreateWindowExA(exStyle, className, "", WS_CHILD | style, 0, 0, 0, 0, hwnd(),
                                       reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                       win::ModuleHandle(), nullptr);
        ::SendMessageA(child, WM_SETFONT, reinterpret_cast<WPARAM>(font_), FALSE);
        return child;
    }
    HWND Item(int id) const { return ::GetDlgItem(hwnd(), id); }
    void SetText(int id, const std::string& text) { ::SetWindowTextA(Item(id), text.c_str()); }

    // Takes the file manager from the site, listens to its changes and shows what it holds; when
    // there is none, the panel says so and shows nothing else.
    void Connect() {
        if (IFileManager* manager = site_.FileManager()) {
            fileManager_ = win::ComPtr<IFileManager>(manager);
            Advise();
            VARIANT_BOOL share = VARIANT_FALSE;
            if (SUCCEEDED(fileManager_->get_ShareCompletedDownloads(&share))) {
                ::CheckDlgButton(hwnd(), kLibraryShareDownloads,
                                 share ? BST_CHECKED : BST_UNCHECKED);
            }
            long percent = 0;
            if (SUCCEEDED(fileManager_->get_HashingCpuShare(&percent))) {
                ::SendMessageA(Item(kLibraryCpuShare), TBM_SETPOS, TRUE, percent);
                ShowCpuShare(CpuSharePosition());
            }
            Guarded([this] { PacedRefresh(); });
        }
        ShowControls();
    }

    void ShowControls() {
        const bool available = fileManager_.get() != nullptr;
        for (int id = kLibraryFolders; id <= kLibraryDownloadedLabel; ++id) {
            if (id != kLibraryUnavailable) {
                ::ShowWindow(Item(id), available ? SW_SHOWNA : SW_HIDE);
            }
        }
        ::ShowWindow(Item(kLibraryUnavailable), available ? SW_HIDE : SW_SHOWNA);
        UpdateButtons();
    }

    void Advise() {
        win::ComPtr<IConnectionPointContainer> container;
        if (FAILED(fileManager_.As(IID_IConnectionPointContainer, container)) ||
            FAILED(container->FindConnectionPoint(DIID__IFileManagerEvents, point_.put()))) {
            return;
        }
        auto sink = LibrarySink::Make(hwnd());
        if (FAILED(point_->Advise(sink->Identity(), &cookie_))) {
            point_.reset();
            cookie_ = 0;
        }
    }

    void Unadvise() {
        if (point_ && cookie_) {
            point_->Unadvise(cookie_);
        }
        point_.reset();
        cookie_ = 0;
    }

    template <typename Body> static void Guarded(Body&& body) {
        try {
            body();
        } catch (const win::ComError&) {
            ::MessageBeep(MB_ICONWARNING);
        }
    }

    // A hidden panel keeps only the status bar's count current and reads the list once shown; a
    // shown one reads it as often as what that costs allows.
    void LibraryChanged() {
        if (!shown_) {
            stale_ = true;
            RefreshCount();
            return;
        }
        const auto wait = pacer_.Wait(RefreshPacer::Clock::now());
        if (wait == RefreshPacer::Clock::duration::zero()) {
            PacedRefresh();
        } else if (!refreshWaiting_) {
            const auto delay = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
            refreshWaiting_ =
                ::SetTimer(hwnd(), kRefreshTimer, static_cast<UINT>(delay), nullptr) != 0;
        }
    }

    void PacedRefresh() {
        const auto started = RefreshPacer::Clock::now();
        Refresh();
        pacer_.Ran(started, RefreshPacer::Clock::now());
        stale_ = false;
    }

    void RefreshCount() {
        if (!fileManager_) {
            return;
        }
        long count = 0;
        win::ThrowIfFailed(fileManager_->GetSharedFileCount(&count), IID_IFileManager);
        sharedCount_ = static_cast<int>(count);
        site_.SetStatusCounter(shell::kPaneShared, sharedCount_);
    }

    void Refresh() {
        if (!fileManager_) {
            return;
        }
        win::Bstr folders;
        win::ThrowIfFailed(fileManager_->GetSharedFolders(folders.put()), IID_IFileManager);
        ShowFolders(ReadFolderList(win::BstrToAnsi(folders.get())));

        win::Bstr library;
        win::ThrowIfFailed(fileManager_->GetLibraryText(library.put()), IID_IFileManager);
        shared_.clear();
        downloaded_.clear();
        for (LibraryRow& row : ReadLibraryText(win::BstrToAnsi(library.get()))) {
            (row.download ? downloaded_ : shared_).push_back(std::move(row));
        }
        ListView_SetItemCountEx(Item(kLibrarySharedFiles), static_cast<int>(shared_.size()),
                                LVSICF_NOSCROLL | LVSICF_NOINVALIDATEALL);
        ListView_SetItemCountEx(Item(kLibraryDownloadedFiles), static_cast<int>(downloaded_.size()),
                                LVSICF_NOSCROLL | LVSICF_NOINVALIDATEALL);
        ::InvalidateRect(Item(kLibrarySharedFiles), nullptr, FALSE);
        ::InvalidateRect(Item(kLibraryDownloadedFiles), nullptr, FALSE);
        RefreshCount();
    }

    // The folder list, keeping the selected folder selected by its text.
    void ShowFolders(const std::vector<std::string>& folders) {
        const HWND list = Item(kLibraryFolders);
        const std::string selected = SelectedFolder();
        ::SendMessageA(list, WM_SETREDRAW, FALSE, 0);
        ::SendMessageA(list, LB_RESETCONTENT, 0, 0);
        // Long paths scroll sideways rather than lose their ends.
        int widest = 0;
        if (HDC dc = ::GetDC(list)) {
            HGDIOBJ old = ::SelectObject(dc, font_);
            for (const std::string& folder : folders) {
                SIZE size = {};
                ::GetTextExtentPoint32A(dc, folder.c_str(), static_cast<int>(folder.size()), &size);
                widest = std::max(widest, static_cast<int>(size.cx) + 8);
            }
            ::SelectObject(dc, old);
            ::ReleaseDC(list, dc);
        }
        ::SendMessageA(list, LB_SETHORIZONTALEXTENT, widest, 0);
        for (const std::string& folder : folders) {
            const LRESULT index =
                ::SendMessageA(list, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(folder.c_str()));
            if (folder == selected) {
                ::SendMessageA(list, LB_SETCURSEL, index, 0);
            }
        }
        ::SendMessageA(list, WM_SETREDRAW, TRUE, 0);
        ::InvalidateRect(list, nullptr, TRUE);
        UpdateButtons();
    }

    std::string SelectedFolder() const {
        const HWND list = Item(kLibraryFolders);
        const LRESULT index = ::SendMessageA(list, LB_GETCURSEL, 0, 0);
        if (index == LB_ERR) {
            return {};
        }
        const LRESULT length = ::SendMessageA(list, LB_GETTEXTLEN, index, 0);
        if (length == LB_ERR) {
            return {};
        }
        std::string text(static_cast<std::size_t>(length) + 1, '\0');
        ::SendMessageA(list, LB_GETTEXT, index, reinterpret_cast<LPARAM>(text.data()));
        text.resize(static_cast<std::size_t>(length));
        return text;
    }

    void UpdateButtons() {
        ::EnableWindow(Item(kLibraryRemoveFolder), fileManager_ && !SelectedFolder().empty());
    }

    int CpuSharePosition() const {
        return static_cast<int>(::SendMessageA(Item(kLibraryCpuShare), TBM_GETPOS, 0, 0));
    }
    void ShowCpuShare(int percent) {
        SetText(kLibraryCpuShareText, FormatNumber(Text(site_.Language(), kCpuShareText), percent));
    }

    std::string CellText(const LibraryRow& row, int column) const {
        switch (column) {
        case 0:
            return row.name;
        case 1:
            return SizeText(row.size);
        case 2:
            return row.sha1;
        case kProgressColumn:
            if (!row.sha1.empty()) {
                return Text(site_.Language(), kHashedText);
            }
            return row.progress == 0
                       ? Text(site_.Language(), kWaitingText)
                       : FormatNumber(Text(site_.Language(), kHashingText), row.progress);
        case 4:
            return FolderOf(row.path);
        }
        return {};
    }

    void OnCommand(int id, int code) {
        switch (id) {
        case kLibraryAddFolder:
            if (fileManager_) {
                if (std::optional<std::string> folder =
                        pickFolder_(hwnd(), Text(site_.Language(), kPickFolderPrompt))) {
                    win::Bstr path(win::ToWide(*folder).c_str());
                    win::ThrowIfFailed(fileManager_->AddSharedFolder(path.get()), IID_IFileManager);
                    PacedRefresh();
                }
            }
            break;
        case kLibraryRemoveFolder:
            // The file manager stops serving the folder's files at once; nothing is asked.
            if (fileManager_) {
                const std::string folder = SelectedFolder();
                if (!folder.empty()) {
                    win::Bstr path(win::ToWide(folder).c_str());
                    win::ThrowIfFailed(fileManager_->RemoveSharedFolder(path.get()),
                                       IID_IFileManager);
                    PacedRefresh();
                }
            }
            break;
        case kLibraryShareDownloads:
            if (fileManager_ && code == BN_CLICKED) {
                const bool share =
                    ::IsDlgButtonChecked(hwnd(), kLibraryShareDownloads) == BST_CHECKED;
                win::ThrowIfFailed(
                    fileManager_->put_ShareCompletedDownloads(share ? VARIANT_TRUE : VARIANT_FALSE),
                    IID_IFileManager);
            }
            break;
        case kLibraryFolders:
            if (code == LBN_SELCHANGE) {
                UpdateButtons();
            }
            break;
        }
    }

    void OnCpuShareMoved(int request) {
        const int percent = CpuSharePosition();
        ShowCpuShare(percent);
        // Told once the thumb comes to rest, not at every pixel of a drag.
        if (fileManager_ && request != TB_THUMBTRACK) {
            win::ThrowIfFailed(fileManager_->put_HashingCpuShare(percent), IID_IFileManager);
        }
    }

    LRESULT OnNotify(const NMHDR& header) {
        if (header.code == LVN_GETDISPINFOA &&
            (header.idFrom == kLibrarySharedFiles || header.idFrom == kLibraryDownloadedFiles)) {
            auto& item =
                const_cast<NMLVDISPINFOA&>(reinterpret_cast<const NMLVDISPINFOA&>(header)).item;
            const auto& rows = header.idFrom == kLibrarySharedFiles ? shared_ : downloaded_;
            if ((item.mask & LVIF_TEXT) && item.pszText && item.cchTextMax > 0 && item.iItem >= 0 &&
                static_cast<std::size_t>(item.iItem) < rows.size()) {
                lstrcpynA(item.pszText, CellText(rows[item.iItem], item.iSubItem).c_str(),
                          item.cchTextMax);
            }
        }
        return 0;
    }

    void Layout(int width, int height) {
        const int margin = 8;
        const int line = 18;
        const int left = 220;
        const int rightX = margin + left + margin;
        const int rightWidth = std::max(width - rightX - margin, 50);
        auto place = [&](int id, int x, int y, int w, int h) {
            ::MoveWindow(Item(id), x, y, w, h, TRUE);
        };
        int y = margin;
        place(kLibraryFoldersLabel, margin, y, left, line);
        y += line + 2;
        const int buttonHeight = 24;
        const int trackHeight = 30;
        // Below the folder list: the buttons, the check box, the CPU share's label, bar and text.
        const int optionsHeight = 6 + buttonHeight + 10 + (line + 4) + line + trackHeight + line;
        const int listHeight = std::max(height - y - optionsHeight - margin, 40);
        place(kLibraryFolders, margin, y, left, listHeight);
        y += listHeight + 6;
        place(kLibraryAddFolder, margin, y, (left - 6) / 2, buttonHeight);
        place(kLibraryRemoveFolder, margin + (left + 6) / 2, y, (left - 6) / 2, buttonHeight);
        y += buttonHeight + 10;
        place(kLibraryShareDownloads, margin, y, left, line);
        y += line + 4;
        place(kLibraryCpuShareLabel, margin, y, left, line);
        y += line;
        place(kLibraryCpuShare, margin, y, left, trackHeight);
        y += trackHeight;
        place(kLibraryCpuShareText, margin, y, left, line);

        const int half = std::max((height - 2 * margin - 2 * (line + 2) - 8) / 2, 40);
        y = margin;
        place(kLibrarySharedLabel, rightX, y, rightWidth, line);
        y += line + 2;
        place(kLibrarySharedFiles, rightX, y, rightWidth, half);
        y += half + 8;
        place(kLibraryDownloadedLabel, rightX, y, rightWidth, line);
        y += line + 2;
        place(kLibraryDownloadedFiles, rightX, y, rightWidth, std::max(height - y - margin, 40));

        place(kLibraryUnavailable, margin * 4, height / 3, std::max(width - margin * 8, 50),
              line * 4);
    }

    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        switch (message) {
        case WM_SIZE:
            Layout(LOWORD(lParam), HIWORD(lParam));
            return 0;
        case kMsgLibraryChanged: {
            // Hashing sends changes in bursts: one refresh answers every change queued so far.
            MSG queued;
            while (::PeekMessageA(&queued, hwnd(), kMsgLibraryChanged, kMsgLibraryChanged,
                                  PM_REMOVE)) {
            }
            Guarded([this] { LibraryChanged(); });
            return 0;
        }
        case WM_TIMER:
            if (wParam == kRefreshTimer) {
                ::KillTimer(hwnd(), kRefreshTimer);
                refreshWaiting_ = false;
                Guarded([this] { LibraryChanged(); });
                return 0;
            }
            break;
        case WM_COMMAND:
            Guarded([&] { OnCommand(LOWORD(wParam), HIWORD(wParam)); });
            return 0;
        case WM_HSCROLL:
            if (reinterpret_cast<HWND>(lParam) == Item(kLibraryCpuShare)) {
                Guarded([&] { OnCpuShareMoved(LOWORD(wParam)); });
            }
            return 0;
        case WM_NOTIFY:
            return OnNotify(*reinterpret_cast<const NMHDR*>(lParam));
        case WM_DESTROY:
            Unadvise();
            break;
        }
        return Default(message, wParam, lParam);
    }

    shell::PanelSite& site_;
    FolderPicker pickFolder_;
    HFONT font_ = nullptr;
    win::ComPtr<IFileManager> fileManager_;
    win::ComPtr<IConnectionPoint> point_;
    DWORD cookie_ = 0;
    std::vector<LibraryRow> shared_;
    std::vector<LibraryRow> downloaded_;
    int sharedCount_ = -1;
    bool shown_ = false;
    bool stale_ = false; // changed while hidden
    RefreshPacer pacer_;
    bool refreshWaiting_ = false;
};

} // namespace

std::optional<std::string> PickFolder(HWND owner, const std::string& prompt) {
    BROWSEINFOA info = {};
    info.hwndOwner = owner;
    info.lpszTitle = prompt.c_str();
    info.ulFlags = BIF_RETURNONLYFSDIRS | BIF_NEWDIALOGSTYLE;
    PIDLIST_ABSOLUTE chosen = ::SHBrowseForFolderA(&info);
    if (!chosen) {
        return std::nullopt;
    }
    char path[MAX_PATH] = {};
    const bool named = ::SHGetPathFromIDListA(chosen, path);
    ::CoTaskMemFree(chosen);
    if (!named || !*path) {
        return std::nullopt;
    }
    return std::string(path);
}

std::unique_ptr<shell::Panel> MakeLibraryPanel(shell::PanelSite& site) {
    return MakeLibraryPanel(site, PickFolder);
}

std::unique_ptr<shell::Panel> MakeLibraryPanel(shell::PanelSite& site, FolderPicker pickFolder) {
    return std::make_unique<LibraryPanel>(site, std::move(pickFolder));
}

} // namespace corvid::library
