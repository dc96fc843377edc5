#include "search/win/search_window.h"

#include "engine_h.h"
#include "markup/language_table.h"
#include "platform/win/clipboard.h"
#include "platform/win/com_object.h"
#include "platform/win/list_view.h"
#include "platform/win/module.h"
#include "platform/win/text.h"
#include "search/browse_history.h"
#include "search/result_cells.h"
#include "search/win/search_dialogs.h"
#include "search/win/search_resources.h"
#include "transfer/download_page.h"

#include <commctrl.h>
#include <windowsx.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <span>
#include <utility>

namespace corvid::search {

// The search object's events, handed to the window that listens. The window detaches it when it
// goes, so a late event finds nobody.
class SearchEventSink : public win::ComObject<SearchEventSink, IDispatch> {
public:
    explicit SearchEventSink(ResultWindow* window) : window_(window) {}
    void Detach() { window_ = nullptr; }

    void* QueryMore(REFIID iid) {
        return IsEqualIID(iid, DIID__IGnutellaSearchEvents) ? static_cast<IDispatch*>(this)
                                                            : nullptr;
    }

    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                     EXCEPINFO*, UINT*) override {
        return win::ComBoundary([&]() -> HRESULT {
            if (id != 1) {
                return DISP_E_MEMBERNOTFOUND;
            }
            if (!params || params->cArgs < 1 || !params->rgvarg) {
                return DISP_E_BADPARAMCOUNT;
            }
            // The text is the only argument (the last in DISPPARAMS order is the first declared).
            VARIANT& argument = params->rgvarg[params->cArgs - 1];
            win::Variant converted;
            BSTR text = nullptr;
            if (argument.vt == VT_BSTR) {
                text = argument.bstrVal;
            } else if (argument.vt == (VT_BSTR | VT_BYREF) && argument.pbstrVal) {
                text = *argument.pbstrVal;
            } else if (SUCCEEDED(::VariantChangeType(converted.put(), &argument, 0, VT_BSTR))) {
                text = converted.get()->bstrVal;
            } else {
                return DISP_E_TYPEMISMATCH;
            }
            if (window_) {
                window_->OnResultText(win::BstrToAnsi(text));
            }
            return S_OK;
        });
    }

private:
    ResultWindow* window_;
};

namespace {

constexpr UINT kMsgCloseSelf = WM_APP + 1;
constexpr int kFilterLabelId = 100;
constexpr int kFilterId = 101;
constexpr int kListId = 102;
constexpr std::uint32_t kTextRefine = 34040;
constexpr int kArrowAscending = 2;
constexpr int kArrowDescending = 3;
constexpr int kBoxPlus = 0;
constexpr int kBoxMinus = 1;
constexpr COLORREF kMagenta = RGB(255, 0, 255);
constexpr COLORREF kSourceRowText = RGB(64, 72, 112);
constexpr COLORREF kHandedOverText = RGB(0, 112, 40);

struct ColumnLook {
    std::uint32_t id;
    int width;
    bool right;
};
constexpr ColumnLook kColumnLooks[] = {
    {kColumnName, 260, false}, {kColumnSize, 80, true},      {kColumnHost, 104, false},
    {kColumnPort, 76, true},   {kColumnFileIndex, 76, true}, {kColumnRank, 56, false},
    {kColumnType, 70, false},  {kColumnVersion, 76, false},  {kColumnSpeed, 76, true},
    {kColumnSha1, 250, false}, {kColumnBrowse, 76, false},   {kColumnUptime, 76, false},
    {kColumnGuid, 48, false},  {kColumnNodeId, 130, false},  {kColumnInformation, 160, false},
};
static_assert(std::size(kColumnLooks) == kResultColumns.size());

std::uint32_t ColumnAt(int subItem) {
    return subItem >= 0 && static_cast<std::size_t>(subItem) < kResultColumns.size()
               ? kResultColumns[static_cast<std::size_t>(subItem)]
               : 0;
}

class ModalResultDialogs : public ResultDialogs {
public:
    explicit ModalResultDialogs(const LanguageTable& language) : language_(language) {}
    void AlreadyOnDisk(HWND owner, const std::string& path) override {
        FileExistsDialog(language_, path).ShowModal(owner);
    }
    void Properties(HWND owner, const ResultGroup& group, int sourceIndex) override {
        PropertiesDialog(language_, group, sourceIndex).ShowModal(owner);
    }

private:
    const LanguageTable& language_;
};

// One blank 16x16 image: group rows keep its room in the Name column for the plus/minus box,
// source rows are indented by one more.
HIMAGELIST MakeBlankIcons() {
    HIMAGELIST icons = ::ImageList_Create(16, 16, ILC_COLOR24 | ILC_MASK, 1, 0);
    HDC screen = ::GetDC(nullptr);
    HBITMAP blank = ::CreateCompatibleBitmap(screen, 16, 16);
    HDC memory = ::CreateCompatibleDC(screen);
    HGDIOBJ old = ::SelectObject(memory, blank);
    HBRUSH magenta = ::CreateSolidBrush(kMagenta);
    RECT all = {0, 0, 16, 16};
    ::FillRect(memory, &all, magenta);
    ::DeleteObject(magenta);
    ::SelectObject(memory, old);
    ::DeleteDC(memory);
    ::ReleaseDC(nullptr, screen);
    ::ImageList_AddMasked(icons, blank, kMagenta);
    ::DeleteObject(blank);
    return icons;
}

} // namespace

std::unique_ptr<ResultDialogs> MakeModalResultDialogs(const LanguageTable& language) {
    return std::make_unique<ModalResultDialogs>(language);
}

ResultWindow::ResultWindow(shell::PanelSite& site, IGnutellaSearch* search, std::string keywords,
                           std::string type, Kind kind, std::unique_ptr<ResultDialogs> dialogs)
    : site_(site), search_(search), keywords_(std::move(keywords)), type_(std::move(type)),
      kind_(kind), dialogs_(dialogs ? std::move(dialogs) : MakeModalResultDialogs(site.Language())),
      model_(MediaClassNames([&site](std::uint32_t id) -> std::string_view {
          // The names are copied by MediaClassNames before this text goes away.
          static thread_local std::string text;
          text.clear();
          site.Language().LoadText(id, text);
          return text;
      })) {
    // Listening starts now, before anyone starts the search, so no answer is missed.
    if (search_) {
        win::ComPtr<IConnectionPointContainer> container;
        if (SUCCEEDED(search_.As(IID_IConnectionPointContainer, container)) &&
            SUCCEEDED(container->FindConnectionPoint(DIID__IGnutellaSearchEvents, point_.put()))) {
            sink_ = SearchEventSink::Make(this);
            if (FAILED(point_->Advise(sink_->Identity(), &cookie_))) {
                point_.reset();
            }
        }
    }
}

ResultWindow::~ResultWindow() {
    if (sink_) {
        sink_->Detach();
    }
    if (point_) {
        point_->Unadvise(cookie_);
    }
    if (search_) {
        // Nobody is left to show what the search would still find.
        search_->Stop();
    }
    if (list_) {
        ::RemoveWindowSubclass(list_, &ListProcedure, 0);
        ::RemoveWindowSubclass(ListView_GetHeader(list_), &HeaderProcedure, 0);
    }
    if (hwnd()) {
        ::KillTimer(hwnd(), kRefreshTimer);
        // Gone while the members its messages use are still here.
        ::DestroyWindow(hwnd());
    }
    if (arrows_) {
        ::ImageList_Destroy(arrows_);
    }
    if (smallIcons_) {
        ::ImageList_Destroy(smallIcons_);
    }
}

bool ResultWindow::Create(HWND parent) {
    INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_LISTVIEW_CLASSES};
    ::InitCommonControlsEx(&controls);
    const RECT start = {0, 0, 640, 480};
    if (!WindowBase::Create("CorvidResultWindow", "", WS_CHILD | WS_CLIPCHILDREN, 0, parent,
                            start)) {
        return false;
    }
    HINSTANCE instance = win::ModuleHandle();
    filterLabel_ =
        ::CreateWindowExA(0, "STATIC", "", WS_CHILD | WS_VISIBLE | SS_RIGHT, 0, 0, 0, 0, hwnd(),
                          reinterpret_cast<HMENU>(kFilterLabelId), instance, nullptr);
    filter_ = ::CreateWindowExA(WS_EX_CLIENTEDGE, "EDIT", "",
                                WS_CHILD | WS_VISIBLE | WS_TABSTOP | ES_AUTOHSCROLL, 0, 0, 0, 0,
                                hwnd(), reinterpret_cast<HMENU>(kFilterId), instance, nullptr);
    list_ = ::CreateWindowExA(
        WS_EX_CLIENTEDGE, WC_LISTVIEWA, "",
        WS_CHILD | WS_VISIBLE | WS_TABSTOP | LVS_REPORT | LVS_OWNERDATA | LVS_SHOWSELALWAYS, 0, 0,
        0, 0, hwnd(), reinterpret_cast<HMENU>(kListId), instance, nullptr);
    if (!filterLabel_ || !filter_ || !list_) {
        return false;
    }
    HFONT font = static_cast<HFONT>(::GetStockObject(DEFAULT_GUI_FONT));
    for (HWND child : {filterLabel_, filter_}) {
        ::SendMessageA(child, WM_SETFONT, reinterpret_cast<WPARAM>(font), FALSE);
    }
    ::SendMessageA(list_, LVM_SETEXTENDEDLISTVIEWSTYLE, 0,
                   LVS_EX_FULLROWSELECT | LVS_EX_HEADERDRAGDROP | LVS_EX_INFOTIP |
                       LVS_EX_DOUBLEBUFFER);
    arrows_ = ::ImageList_LoadImageA(instance, MAKEINTRESOURCEA(IDB_HEADER_ARROWS), 16, 0, kMagenta,
                                     IMAGE_BITMAP, LR_CREATEDIBSECTION);
    smallIcons_ = MakeBlankIcons();
    ListView_SetImageList(list_, smallIcons_, LVSIL_SMALL);
    AddColumns();
    SetColumnTitles();
    ::SetWindowSubclass(list_, &ListProcedure, 0, reinterpret_cast<DWORD_PTR>(this));
    ::SetWindowSubclass(ListView_GetHeader(list_), &HeaderProcedure, 0,
                        reinterpret_cast<DWORD_PTR>(this));
    model_.Rows().SetShowDownloaded(site_.ShowDownloaded());
    ::SetTimer(hwnd(), kRefreshTimer, kRefreshPeriodMs, nullptr);
    Layout();
    return true;
}

std::string ResultWindow::Title() const {
    return SearchWindowTitle(keywords_, model_.Store().Count());
}

void ResultWindow::OnShow(bool shown) {
    if (shown && hwnd()) {
        site_.SetStatusCounter(shell::kPaneResults, model_.Store().Count());
    }
}

bool ResultWindow::OnEditCommand(const std::string& name) {
    if (!hwnd()) {
        return false;
    }
    if (::GetFocus() == filter_) {
        if (name == "p2p_cut") {
            ::SendMessageA(filter_, WM_CUT, 0, 0);
        } else if (name == "p2p_copy") {
            ::SendMessageA(filter_, WM_COPY, 0, 0);
        } else if (name == "p2p_paste") {
            ::SendMessageA(filter_, WM_PASTE, 0, 0);
        } else if (name == "p2p_selectall") {
            ::SendMessageA(filter_, EM_SETSEL, 0, -1);
        } else {
            return false;
        }
        return true;
    }
    if (name == "p2p_selectall") {
        LVITEMA all = {};
        all.stateMask = LVIS_SELECTED;
        all.state = LVIS_SELECTED;
        ::SendMessageA(list_, LVM_SETITEMSTATE, static_cast<WPARAM>(-1),
                       reinterpret_cast<LPARAM>(&all));
        return true;
    }
    if (name == "p2p_copy") {
        win::CopyTextToClipboard(hwnd(), RowsAsText(model_.Rows(), SelectedPositions()));
        return true;
    }
    return false;
}

void ResultWindow::OnSettingsChanged() {
    const bool show = site_.ShowDownloaded();
    if (show == model_.Rows().ShowDownloaded()) {
        return;
    }
    const Selection before = SaveSelection();
    model_.Rows().SetShowDownloaded(show);
    ShowRows(before);
}

void ResultWindow::ApplyLanguage() {
    SetColumnTitles();
}

void ResultWindow::AddColumns() {
    for (std::size_t i = 0; i < std::size(kColumnLooks); ++i) {
        win::AddListColumn(list_, static_cast<int>(i), kColumnLooks[i].width,
                           kColumnLooks[i].right ? LVCFMT_RIGHT : LVCFMT_LEFT);
    }
}

void ResultWindow::SetColumnTitles() {
    if (!list_) {
        return;
    }
    const LanguageTable& language = site_.Language();
    for (std::size_t i = 0; i < kResultColumns.size(); ++i) {
        std::string title;
        language.LoadText(kResultColumns[i], title);
        LVCOLUMNA column = {};
        column.mask = LVCF_TEXT;
        column.pszText = title.data();
        ::SendMessageA(list_, LVM_SETCOLUMNA, i, reinterpret_cast<LPARAM>(&column));
    }
    std::string refine;
    language.LoadText(kTextRefine, refine);
    ::SetWindowTextA(filterLabel_, refine.c_str());
}

void ResultWindow::Layout() {
    RECT client;
    ::GetClientRect(hwnd(), &client);
    const int width = client.right - client.left;
    constexpr int kBar = 28;
    ::MoveWindow(filterLabel_, 4, 7, 52, 16, TRUE);
    ::MoveWindow(filter_, 60, 4, std::max(80, std::min(320, width - 64)), 21, TRUE);
    ::MoveWindow(list_, 0, kBar, width, std::max(0, static_cast<int>(client.bottom) - kBar), TRUE);
}

void ResultWindow::OnResultText(const std::string& text) {
    try {
        model_.OnResultText(text, this, this);
    } catch (const win::ComError&) {
        // The search could not be told to stop at the limit; the store drops what comes anyway.
        ::MessageBeep(MB_ICONERROR);
    }
}

void ResultWindow::Refresh() {
    if (!model_.ResultsChanged() || !::IsWindowVisible(hwnd())) {
        return;
    }
    const Selection before = SaveSelection();
    if (model_.Refresh(true)) {
        ShowRows(before);
    }
}

ResultWindow::Selection ResultWindow::SaveSelection() const {
    Selection selection;
    for (int position : SelectedPositions()) {
        selection.selected.push_back(model_.Rows().Row(static_cast<std::size_t>(position)));
    }
    const int focused = FocusedPosition();
    if (focused >= 0) {
        selection.focused = model_.Rows().Row(static_cast<std::size_t>(focused));
    }
    return selection;
}

void ResultWindow::ShowRows(const Selection& before, ResultRow fallbackFocus) {
    const ResultRows& rows = model_.Rows();
    ::SendMessageA(list_, LVM_SETITEMCOUNT, rows.RowCount(), LVSICF_NOSCROLL);
    LVITEMA clear = {};
    clear.stateMask = LVIS_SELECTED | LVIS_FOCUSED;
    ::SendMessageA(list_, LVM_SETITEMSTATE, static_cast<WPARAM>(-1),
                   reinterpret_cast<LPARAM>(&clear));
    // The same results stay selected wherever the rows moved; one pass over the rows, so that a
    // selection of every row costs no more than the sort.
    std::set<std::pair<const ResultGroup*, int>> selected;
    for (const ResultRow& row : before.selected) {
        selected.emplace(row.group, row.source);
    }
    int focus = -1;
    int fallback = -1;
    for (std::size_t i = 0; i < rows.RowCount(); ++i) {
        const ResultRow row = rows.Row(i);
        if (!selected.empty() && selected.contains({row.group, row.source})) {
            ListView_SetItemState(list_, static_cast<int>(i), LVIS_SELECTED, LVIS_SELECTED);
        }
        if (before.focused.group && row == before.focused) {
            focus = static_cast<int>(i);
        }
        if (fallbackFocus.group && row == fallbackFocus) {
            fallback = static_cast<int>(i);
        }
    }
    if (focus < 0 && fallback >= 0) {
        focus = fallback;
        ListView_SetItemState(list_, focus, LVIS_SELECTED, LVIS_SELECTED);
    }
    if (focus >= 0) {
        ListView_SetItemState(list_, focus, LVIS_FOCUSED, LVIS_FOCUSED);
    }
    ::InvalidateRect(list_, nullptr, FALSE);
    ::InvalidateRect(ListView_GetHeader(list_), nullptr, FALSE);
    site_.SetStatusCounter(shell::kPaneResults, model_.Store().Count());
    if (model_.Store().Count() != shownCount_) {
        shownCount_ = model_.Store().Count();
        site_.RetitleTab(this);
    }
}

std::vector<int> ResultWindow::SelectedPositions() const {
    std::vector<int> positions;
    int at = -1;
    while ((at = static_cast<int>(::SendMessageA(list_, LVM_GETNEXTITEM, static_cast<WPARAM>(at),
                                                 LVNI_SELECTED))) >= 0) {
        positions.push_back(at);
    }
    return positions;
}

int ResultWindow::FocusedPosition() const {
    return static_cast<int>(
        ::SendMessageA(list_, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_FOCUSED));
}

bool ResultWindow::OnListKey(UINT key, bool alt) {
    if (key == VK_RETURN) {
        if (alt) {
            ShowProperties();
        }
        return true;
    }
    const int position = FocusedPosition();
    if (position < 0) {
        return false;
    }
    ResultRows& rows = model_.Rows();
    const ResultRow row = rows.Row(static_cast<std::size_t>(position));
    if (key == VK_RIGHT || key == VK_ADD) {
        if (!rows.CanExpand(static_cast<std::size_t>(position)) || rows.IsExpanded(row.group)) {
            return false;
        }
        const Selection before = SaveSelection();
        rows.Expand(static_cast<std::size_t>(position));
        ShowRows(before);
        return true;
    }
    if (key == VK_LEFT || key == VK_SUBTRACT) {
        if (!row.group || !rows.IsExpanded(row.group)) {
            return false;
        }
        const Selection before = SaveSelection();
        rows.Collapse(static_cast<std::size_t>(position));
        // A selection on one of the group's source rows moves to the group's own row.
        ShowRows(before, {row.group, -1});
        return true;
    }
    return false;
}

bool ResultWindow::IsOnBox(int position, POINT client) const {
    if (!model_.Rows().CanExpand(static_cast<std::size_t>(position))) {
        return false;
    }
    RECT icon = {};
    icon.left = LVIR_ICON;
    if (!::SendMessageA(list_, LVM_GETITEMRECT, static_cast<WPARAM>(position),
                        reinterpret_cast<LPARAM>(&icon))) {
        return false;
    }
    return ::PtInRect(&icon, client) != FALSE;
}

void ResultWindow::Toggle(int position) {
    const Selection before = SaveSelection();
    const ResultRow row = model_.Rows().Row(static_cast<std::size_t>(position));
    if (model_.Rows().Toggle(static_cast<std::size_t>(position))) {
        ShowRows(before, {row.group, -1});
    }
}

void ResultWindow::ShowContextMenu(POINT screen) {
    if (screen.x == -1 && screen.y == -1) {
        RECT row = {};
        row.left = LVIR_BOUNDS;
        const int focused = FocusedPosition();
        if (focused < 0 || !::SendMessageA(list_, LVM_GETITEMRECT, static_cast<WPARAM>(focused),
                                           reinterpret_cast<LPARAM>(&row))) {
            ::GetClientRect(list_, &row);
        }
        screen = {row.left + 16, row.bottom};
        ::ClientToScreen(list_, &screen);
    }
    HMENU menu = ::LoadMenuA(win::ModuleHandle(), MAKEINTRESOURCEA(IDR_RESULT_MENU));
    if (!menu) {
        return;
    }
    const int command = static_cast<int>(
        ::TrackPopupMenu(::GetSubMenu(menu, 0), TPM_RETURNCMD | TPM_RIGHTBUTTON | TPM_NONOTIFY,
                         screen.x, screen.y, 0, hwnd(), nullptr));
    ::DestroyMenu(menu);
    if (command != 0) {
        ::SendMessageA(hwnd(), WM_COMMAND, MAKEWPARAM(command, 0), 0);
    }
}

bool ResultWindow::ShowTabMenu(POINT screen) {
    HMENU menu = ::LoadMenuA(win::ModuleHandle(), MAKEINTRESOURCEA(IDR_SEARCH_TAB_MENU));
    if (!menu) {
        return false;
    }
    const int command = static_cast<int>(
        ::TrackPopupMenu(::GetSubMenu(menu, 0), TPM_RETURNCMD | TPM_RIGHTBUTTON | TPM_NONOTIFY,
                         screen.x, screen.y, 0, hwnd(), nullptr));
    ::DestroyMenu(menu);
    if (command != 0) {
        ::SendMessageA(hwnd(), WM_COMMAND, MAKEWPARAM(command, 0), 0);
    }
    return true;
}

void ResultWindow::OnCommand(int id) {
    try {
        switch (id) {
        case ID_RESULT_DOWNLOAD:
            Download();
            break;
        case ID_RESULT_BROWSE_HOST:
            BrowseHost();
            break;
        case ID_RESULT_PROPERTIES:
            ShowProperties();
            break;
        case ID_RESULT_RESTART:
        case ID_SEARCH_RESTART:
        case ID_SEARCH_AGAIN:
            model_.Restart(this);
            break;
        case ID_RESULT_STOP:
        case ID_SEARCH_STOP:
        case ID_SEARCH_PAUSE:
            model_.Stop(this);
            break;
        case ID_RESULT_CLEAR:
        case ID_SEARCH_CLEAR:
            model_.Clear();
            ShowRows({});
            break;
        case ID_SEARCH_CLOSE:
            // Closing deletes this object: done once this message has returned.
            ::PostMessageA(hwnd(), kMsgCloseSelf, 0, 0);
            break;
        default:
            break;
        }
    } catch (const win::ComError&) {
        // The engine's search object refused; the command ends here.
        ::MessageBeep(MB_ICONERROR);
    }
}

void ResultWindow::Download() {
    const std::vector<int> positions = SelectedPositions();
    if (positions.empty()) {
        return;
    }
    const Selection before = SaveSelection();
    if (model_.Download(positions, *this) > 0) {
        ShowRows(before);
    }
}

void ResultWindow::BrowseHost() {
    const std::optional<std::string> address = model_.BrowseAddress(SelectedPositions());
    if (address) {
        ::SendMessageA(site_.MainWindow(), shell::kMsgBrowseHost, 0,
                       reinterpret_cast<LPARAM>(address->c_str()));
    }
}

void ResultWindow::ShowProperties() {
    const std::optional<ResultRow> row = model_.PropertiesRow(SelectedPositions());
    if (row) {
        dialogs_->Properties(hwnd(), *row->group, row->source);
    }
}

std::string ResultWindow::PathOnDisk(const std::string& sha1) {
    IFileManager* files = site_.FileManager();
    if (!files || sha1.empty()) {
        return {};
    }
    win::Bstr key(win::ToWide(sha1).c_str());
    win::Bstr path;
    if (FAILED(files->FindBySha1(key.get(), path.put()))) {
        return {};
    }
    return win::BstrToAnsi(path.get());
}

void ResultWindow::ShowAlreadyOnDisk(const std::string& path) {
    dialogs_->AlreadyOnDisk(hwnd(), path);
}

bool ResultWindow::StartDownload(const ResultGroup& group) {
    transfer::DownloadPage* page = site_.Downloads();
    return page && page->StartDownload(group, false);
}

bool ResultWindow::AnyDownloads() {
    transfer::DownloadPage* page = site_.Downloads();
    return page && !page->Items().empty();
}

void ResultWindow::OfferHit(const std::string& sha1, const ResultSource& source) {
    if (transfer::DownloadPage* page = site_.Downloads()) {
        page->OfferSearchHit(sha1, source);
    }
}

void ResultWindow::Stop() {
    if (!search_) {
        return;
    }
    const HRESULT hr = search_->Stop();
    if (FAILED(hr) && hr != E_NOINTERFACE) {
        throw win::ComError(hr, IID_IGnutellaSearch);
    }
}

void ResultWindow::Restart() {
    if (!search_) {
        return;
    }
    const HRESULT hr = search_->Restart();
    if (FAILED(hr) && hr != E_NOINTERFACE) {
        throw win::ComError(hr, IID_IGnutellaSearch);
    }
}

void ResultWindow::FillCell(NMLVDISPINFOA* info) {
    LVITEMA& item = info->item;
    const ResultRow row = model_.Rows().Row(static_cast<std::size_t>(item.iItem));
    if (!row.group) {
        return;
    }
    if ((item.mask & LVIF_TEXT) && item.pszText && item.cchTextMax > 0) {
        CopyCellText(*row.group, row.source, ColumnAt(item.iSubItem),
                     std::span<char>(item.pszText, static_cast<std::size_t>(item.cchTextMax)));
    }
    if (item.mask & LVIF_IMAGE) {
        item.iImage = 0;
    }
    if (item.mask & LVIF_INDENT) {
        item.iIndent = row.source >= 0 ? 1 : 0;
    }
}

LRESULT ResultWindow::OnCustomDraw(NMLVCUSTOMDRAW* draw) {
    switch (draw->nmcd.dwDrawStage) {
    case CDDS_PREPAINT:
        return CDRF_NOTIFYITEMDRAW;
    case CDDS_ITEMPREPAINT: {
        const ResultRow row = model_.Rows().Row(draw->nmcd.dwItemSpec);
        if (row.group && row.group->state == kGroupHandedToDownloads) {
            draw->clrText = kHandedOverText;
        } else if (row.source >= 0) {
            draw->clrText = kSourceRowText;
        }
        return CDRF_NOTIFYPOSTPAINT;
    }
    case CDDS_ITEMPOSTPAINT: {
        const auto position = static_cast<int>(draw->nmcd.dwItemSpec);
        if (!model_.Rows().CanExpand(static_cast<std::size_t>(position))) {
            return CDRF_DODEFAULT;
        }
        RECT icon = {};
        icon.left = LVIR_ICON;
        if (::SendMessageA(list_, LVM_GETITEMRECT, static_cast<WPARAM>(position),
                           reinterpret_cast<LPARAM>(&icon))) {
            const ResultRow row = model_.Rows().Row(static_cast<std::size_t>(position));
            const int image = model_.Rows().IsExpanded(row.group) ? kBoxMinus : kBoxPlus;
            ::ImageList_Draw(arrows_, image, draw->nmcd.hdc,
                             icon.left + (icon.right - icon.left - 16) / 2,
                             icon.top + (icon.bottom - icon.top - 16) / 2, ILD_TRANSPARENT);
        }
        return CDRF_DODEFAULT;
    }
    default:
        return CDRF_DODEFAULT;
    }
}

void ResultWindow::DrawHeaderArrow(HWND header, HDC dc) {
    const std::uint32_t column = model_.Rows().SortColumn();
    const auto found = std::find(kResultColumns.begin(), kResultColumns.end(), column);
    if (found == kResultColumns.end() || !arrows_) {
        return;
    }
    const int index = static_cast<int>(found - kResultColumns.begin());
    RECT rect;
    if (!Header_GetItemRect(header, index, &rect)) {
        return;
    }
    HDITEMA item = {};
    item.mask = HDI_FORMAT;
    ::SendMessageA(header, HDM_GETITEMA, static_cast<WPARAM>(index),
                   reinterpret_cast<LPARAM>(&item));
    const bool rightAligned = (item.fmt & HDF_JUSTIFYMASK) == HDF_RIGHT;
    const int x = rightAligned ? rect.left + 3 : rect.right - 20;
    const int y = rect.top + (rect.bottom - rect.top - 16) / 2;
    ::ImageList_Draw(arrows_, model_.Rows().Ascending() ? kArrowAscending : kArrowDescending, dc, x,
                     y, ILD_TRANSPARENT);
}

LRESULT ResultWindow::OnNotify(NMHDR* header) {
    if (header->hwndFrom != list_) {
        return 0;
    }
    switch (header->code) {
    case LVN_GETDISPINFOA:
        FillCell(reinterpret_cast<NMLVDISPINFOA*>(header));
        return 0;
    case LVN_GETINFOTIPA: {
        auto* tip = reinterpret_cast<NMLVGETINFOTIPA*>(header);
        const ResultRow row = model_.Rows().Row(static_cast<std::size_t>(tip->iItem));
        if (row.group && tip->pszText && tip->cchTextMax > 0) {
            const std::string text = CellText(*row.group, row.source, kColumnName);
            lstrcpynA(tip->pszText, text.c_str(), tip->cchTextMax);
        }
        return 0;
    }
    case LVN_ODFINDITEMA:
    case LVN_ODFINDITEMW: {
        // Some list views send the wide form whatever their parent speaks.
        const auto* find = reinterpret_cast<NMLVFINDITEMA*>(header);
        if (!(find->lvfi.flags & (LVFI_STRING | LVFI_PARTIAL)) || !find->lvfi.psz) {
            return -1;
        }
        const std::string prefix =
            header->code == LVN_ODFINDITEMW
                ? win::ToAnsi(reinterpret_cast<const NMLVFINDITEMW*>(header)->lvfi.psz,
                              ::lstrlenW(reinterpret_cast<const NMLVFINDITEMW*>(header)->lvfi.psz))
                : std::string(find->lvfi.psz);
        return model_.Rows().FindByName(prefix.c_str(),
                                        static_cast<std::size_t>(std::max(0, find->iStart)));
    }
    case LVN_COLUMNCLICK: {
        const auto* click = reinterpret_cast<NMLISTVIEW*>(header);
        const std::uint32_t column = ColumnAt(click->iSubItem);
        if (column != 0) {
            const Selection before = SaveSelection();
            model_.Rows().ClickColumn(column);
            ShowRows(before);
        }
        return 0;
    }
    case NM_CLICK: {
        const auto* click = reinterpret_cast<NMITEMACTIVATE*>(header);
        if (click->iItem >= 0 && IsOnBox(click->iItem, click->ptAction)) {
            Toggle(click->iItem);
        }
        return 0;
    }
    case NM_DBLCLK: {
        const auto* click = reinterpret_cast<NMITEMACTIVATE*>(header);
        if (click->iItem < 0) {
            return 0;
        }
        if (IsOnBox(click->iItem, click->ptAction)) {
            Toggle(click->iItem);
        } else {
            Download();
        }
        return 0;
    }
    case NM_CUSTOMDRAW:
        return OnCustomDraw(reinterpret_cast<NMLVCUSTOMDRAW*>(header));
    default:
        return 0;
    }
}

LRESULT ResultWindow::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_SIZE:
        Layout();
        return 0;
    case WM_TIMER:
        if (wParam == kRefreshTimer) {
            Refresh();
            return 0;
        }
        break;
    case WM_NOTIFY:
        return OnNotify(reinterpret_cast<NMHDR*>(lParam));
    case WM_COMMAND:
        if (lParam != 0) {
            if (reinterpret_cast<HWND>(lParam) == filter_ && HIWORD(wParam) == EN_CHANGE) {
                char words[512] = {};
                ::GetWindowTextA(filter_, words, sizeof words);
                const Selection before = SaveSelection();
                model_.Rows().SetFilter(words);
                ShowRows(before);
            }
            return 0;
        }
        OnCommand(LOWORD(wParam));
        return 0;
    case WM_CONTEXTMENU:
        if (reinterpret_cast<HWND>(wParam) == list_) {
            ShowContextMenu({GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)});
            return 0;
        }
        break;
    case WM_SETFOCUS:
        ::SetFocus(list_);
        return 0;
    case kMsgCloseSelf:
        site_.CloseTab(this);
        return 0;
    default:
        break;
    }
    return Default(message, wParam, lParam);
}

LRESULT CALLBACK ResultWindow::ListProcedure(HWND list, UINT message, WPARAM wParam, LPARAM lParam,
                                             UINT_PTR, DWORD_PTR self) {
    auto* window = reinterpret_cast<ResultWindow*>(self);
    switch (message) {
    case WM_KEYDOWN:
        if (window->OnListKey(static_cast<UINT>(wParam), false)) {
            return 0;
        }
        break;
    case WM_SYSKEYDOWN:
        if (wParam == VK_RETURN) {
            window->OnListKey(VK_RETURN, true);
            return 0;
        }
        break;
    case WM_SYSCHAR:
    case WM_CHAR:
        // Alt+Enter and Enter are handled as keys; their characters would only beep.
        if (wParam == '\r') {
            return 0;
        }
        break;
    default:
        break;
    }
    return ::DefSubclassProc(list, message, wParam, lParam);
}

LRESULT CALLBACK ResultWindow::HeaderProcedure(HWND header, UINT message, WPARAM wParam,
                                               LPARAM lParam, UINT_PTR, DWORD_PTR self) {
    const LRESULT result = ::DefSubclassProc(header, message, wParam, lParam);
    if (message == WM_PAINT) {
        HDC dc = ::GetDC(header);
        reinterpret_cast<ResultWindow*>(self)->DrawHeaderArrow(header, dc);
        ::ReleaseDC(header, dc);
    }
    return result;
}

std::unique_ptr<shell::Panel> MakeSearchWindow(shell::PanelSite& site, IGnutellaSearch* search,
                                               const std::string& keywords,
                                               const std::string& type) {
    return std::make_unique<ResultWindow>(site, search, keywords, type.empty() ? "All" : type);
}

std::unique_ptr<shell::Panel> MakeBrowseHostTab(shell::PanelSite& site,
                                                const std::string& address) {
    const std::string target = BrowseTarget(address);
    IGnutellaEngine* engine = site.Engine();
    if (target.empty() || !engine) {
        return nullptr;
    }
    win::Bstr text(win::ToWide(target).c_str());
    win::ComPtr<IGnutellaSearch> browse;
    if (FAILED(engine->BrowseHost(text.get(), browse.put())) || !browse) {
        return nullptr;
    }
    auto tab = std::make_unique<ResultWindow>(site, browse.get(), address, "BrowseHost",
                                              ResultWindow::Kind::BrowseHost);
    if (FAILED(browse->Start())) {
        return nullptr;
    }
    return tab;
}

} // namespace corvid::search
