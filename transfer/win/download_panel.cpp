#include "transfer/win/download_panel.h"

#include "markup/language_table.h"
#include "platform/win/list_view.h"
#include "platform/win/module.h"
#include "platform/win/text.h"
#include "search/result_cells.h"
#include "search/win/search_resources.h"
#include "theater/media_player.h"
#include "theater/win/theater_panel.h"
#include "transfer/download_list_file.h"
#include "transfer/engine_events.h"
#include "transfer/magnet_download.h"
#include "transfer/safe_file_name.h"
#include "transfer/win/transfer_resources.h"
#include "transfer/win/transfer_settings.h"

#include "engine_h.h"

#include <commctrl.h>
#include <process.h>
#include <shellapi.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace corvid::transfer::win {
namespace {

using corvid::win::Bstr;
using corvid::win::ToWide;

constexpr UINT kTitleId = 34009;
constexpr std::uint32_t kTextDownloadingCount = 32955;
constexpr std::uint32_t kTextLibraryMissing = 33129;
constexpr std::uint32_t kTextBadMagnet = 33133;
constexpr std::uint32_t kTextFileExists = 32958;

// The live panels, for StartMagnet (user-interface thread only).
std::vector<DownloadPanel*>& LivePanels() {
    static std::vector<DownloadPanel*> panels;
    return panels;
}

enum ChildId : int { kToolbarId = 1, kListId, kTreeId, kLogId, kCounterId };

constexpr BarButton kButtons[] = {
    {kDownloadDelete, 0, 33120},
    {kDownloadStop, 1, 33121},
    {kDownloadRestart, 2, 33122, false, true},
    {kDownloadClearStopped, 3, 33123},
    {kDownloadClearCompleted, 4, 33124, false, true},
    {kDownloadRun, 5, 33125},
};

// What the user reads first stands first; the other columns follow in identifier order.
constexpr std::uint32_t kColumnOrder[] = {
    kColumnName,   kColumnSize,        kColumnProgress, kColumnSpeed,     kColumnStatus,
    kColumnHost,   kColumnPort,        kColumnSha1,     kColumnFileIndex, kColumnRank,
    kColumnType,   kColumnVersion,     kColumnBrowse,   kColumnUptime,    kColumnGuid,
    kColumnNodeId, kColumnInformation,
};

constexpr char kWidestSize[] = "9,999,999,999";
constexpr int kCellMargins = 16;

int ColumnWidth(std::uint32_t column) {
    switch (column) {
    case kColumnName:
        return 230;
    case kColumnStatus:
        return 150;
    case kColumnSha1:
        return 260;
    case kColumnHost:
        return 110;
    case kColumnPort:
        return 50;
    default:
        return 75;
    }
}

// Dialog 339, modal to the page, and yes/no boxes with a question icon.
class WindowPrompts : public UserPrompts {
public:
    explicit WindowPrompts(shell::PanelSite& site) : site_(site) {}
    bool AskYesNo(const std::string& text, const std::string& caption) override {
        return ::MessageBoxA(site_.MainWindow(), text.c_str(), caption.c_str(),
                             MB_YESNO | MB_ICONQUESTION) == IDYES;
    }
    void ShowFileExists(const std::string& message, const std::string& detail) override {
        const std::pair<const std::string*, const std::string*> texts{&message, &detail};
        ::DialogBoxParamA(corvid::win::ModuleHandle(), MAKEINTRESOURCEA(IDD_FILE_EXISTS),
                          site_.MainWindow(), &FileExistsProcedure,
                          reinterpret_cast<LPARAM>(&texts));
    }

private:
    // The one file-exists dialog, shared with the result windows: its message over the name.
    static INT_PTR CALLBACK FileExistsProcedure(HWND dialog, UINT message, WPARAM wParam,
                                                LPARAM lParam) {
        if (message == WM_INITDIALOG) {
            const auto* texts =
                reinterpret_cast<const std::pair<const std::string*, const std::string*>*>(lParam);
            ::SetDlgItemTextA(dialog, IDC_FILE_EXISTS_TEXT, texts->first->c_str());
            ::SetDlgItemTextA(dialog, IDC_FILE_EXISTS_PATH, texts->second->c_str());
            return TRUE;
        }
        if (message == WM_COMMAND && (LOWORD(wParam) == IDOK || LOWORD(wParam) == IDCANCEL)) {
            ::EndDialog(dialog, LOWORD(wParam));
            return TRUE;
        }
        return FALSE;
    }
    shell::PanelSite& site_;
};

// The worker thread: the model's loop with COM of its own.
unsigned __stdcall WorkerMain(void* page) {
    corvid::win::ComApartment apartment(COINIT_MULTITHREADED);
    static_cast<DownloadPage*>(page)->RunWorker();
    return 0;
}

// The queue's wake-up is the kernel event "CmdQueueEvent". The name is one per session, so a
// second page (another tab, another host) that finds it taken uses an event of its own rather than
// share wake-ups with a stranger.
class KernelWakeSignal : public WakeSignal {
public:
    KernelWakeSignal() {
        event_.reset(::CreateEventA(nullptr, FALSE, FALSE, "CmdQueueEvent"));
        if (event_ && ::GetLastError() == ERROR_ALREADY_EXISTS)
            event_.reset(::CreateEventA(nullptr, FALSE, FALSE, nullptr));
    }
    void Signal() override { ::SetEvent(event_.get()); }
    void Wait() override { ::WaitForSingleObject(event_.get(), INFINITE); }

private:
    corvid::win::KernelHandle event_;
};

std::string FileNameOf(const std::string& path) {
    const auto cut = path.find_last_of("\\/");
    return cut == std::string::npos ? path : path.substr(cut + 1);
}

bool WriteFileReplacing(const std::string& path, const std::string& text) {
    const auto temporary = path + ".new";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << text;
        if (!out.flush())
            return false;
    }
    return ::MoveFileExA(temporary.c_str(), path.c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

} // namespace

DownloadPanelOptions DefaultDownloadPanelOptions() {
    DownloadPanelOptions options;
    options.downloadFolder = DownloadFolder();
    options.tempFolder = TempFolder();
    options.listFile = DownloadListFile();
    options.autoResume = AutoResume();
    return options;
}

void ApplyDownloadFolderToOpenPages() {
    const std::string folder = DownloadFolder();
    for (auto* panel : LivePanels())
        panel->UseDownloadFolder(folder);
}

DownloadPanel::DownloadPanel(shell::PanelSite& site, DownloadPanelOptions options)
    : site_(site), options_(std::move(options)) {
    if (!options_.prompts) {
        ownPrompts_ = std::make_unique<WindowPrompts>(site_);
        options_.prompts = ownPrompts_.get();
    }
    EnsureFolder(options_.downloadFolder);
    // Download.dll keeps partial files in the folder this variable names (the process's C
    // library environment, which the library shares).
    if (!options_.tempFolder.empty() && EnsureFolder(options_.tempFolder))
        _putenv_s("CORVID_DOWNLOAD_TEMP", options_.tempFolder.c_str());
    else
        _putenv_s("CORVID_DOWNLOAD_TEMP", "");
    engine_ = std::make_unique<DownloadDllEngine>(options_.libraryPath);
    const LanguageTable& language = site_.Language();
    DownloadPorts ports{*engine_,
                        *this,
                        *this,
                        *options_.prompts,
                        *this,
                        *this,
                        *this,
                        [&language](std::uint32_t id) {
                            std::string text;
                            language.LoadText(id, text);
                            return text;
                        }};
    page_ = std::make_unique<DownloadPage>(std::move(ports), options_.downloadFolder,
                                           std::make_unique<KernelWakeSignal>());
    worker_.reset(reinterpret_cast<HANDLE>(
        ::_beginthreadex(nullptr, 0, &WorkerMain, page_.get(), 0, nullptr)));
    secondsToRequery_ = options_.requerySeconds;
    LivePanels().push_back(this);
}

void DownloadPanel::UseDownloadFolder(const std::string& folder) {
    EnsureFolder(folder);
    options_.downloadFolder = folder;
    page_->SetDownloadFolder(folder);
}

DownloadPanel::~DownloadPanel() {
    std::erase(LivePanels(), this);
    searches_.StopAllBut([](const std::string&) { return false; });
    page_->BeginClosing();
    if (worker_)
        ::WaitForSingleObject(worker_.get(), INFINITE);
    page_->CloseEngineObjects();
    SaveList();
    if (hwnd())
        ::DestroyWindow(hwnd());
    if (logImages_)
        ImageList_Destroy(logImages_);
    if (sourceImages_)
        ImageList_Destroy(sourceImages_);
}

std::string DownloadPanel::Text(std::uint32_t id) const {
    std::string text;
    site_.Language().LoadText(id, text);
    return text;
}

std::string DownloadPanel::Title() const {
    std::string title = Text(kTitleId);
    return title.empty() ? "Download" : title;
}

void DownloadPanel::Post(std::function<void()> work) {
    dispatcher_.poster().Post(std::move(work));
}

// ---------------------------------------------------------------------------------------------
// Window

bool DownloadPanel::Create(HWND parent) {
    INITCOMMONCONTROLSEX controls = {sizeof controls,
                                     ICC_LISTVIEW_CLASSES | ICC_TREEVIEW_CLASSES | ICC_BAR_CLASSES};
    ::InitCommonControlsEx(&controls);
    RECT rect = {0, 0, 800, 600};
    if (!WindowBase::Create("CorvidDownloadPanel", "Download", WS_CHILD | WS_CLIPCHILDREN, 0,
                            parent, rect))
        return false;
    CreateControls();
    Layout();
    ReadLibraryState();
    if (!engine_->Loaded())
        site_.SetStatusText(Text(kTextLibraryMissing));
    Restore();
    OnRefresh();
    return true;
}

void DownloadPanel::CreateControls() {
    const HINSTANCE instance = corvid::win::ModuleHandle();
    NONCLIENTMETRICSA metrics = {};
    metrics.cbSize = sizeof metrics;
    ::SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0);
    font_.reset(::CreateFontIndirectA(&metrics.lfMessageFont));
    const auto setFont = [this](HWND control) {
        ::SendMessageA(control, WM_SETFONT, reinterpret_cast<WPARAM>(font_.get()), TRUE);
    };

    bar_.Create(hwnd(), "DownloadToolbar", kToolbarId, kCounterId, font_.get(), kButtons,
                [this](std::uint32_t id) { return Text(id); });

    list_ = ::CreateWindowExA(WS_EX_CLIENTEDGE, WC_LISTVIEWA, "DownloadList",
                              WS_CHILD | WS_VISIBLE | LVS_REPORT | LVS_SHOWSELALWAYS, 0, 0, 0, 0,
                              hwnd(), reinterpret_cast<HMENU>(kListId), instance, nullptr);
    ::SendMessageA(list_, LVM_SETEXTENDEDLISTVIEWSTYLE, 0,
                   LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES | LVS_EX_HEADERDRAGDROP);
    setFont(list_);
    columns_.assign(std::begin(kColumnOrder), std::end(kColumnOrder));
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        int width = ColumnWidth(columns_[i]);
        if (columns_[i] == kColumnSize) {
            // Wide enough for sizes up to ten digits in the list's own font, with the cell's
            // margins on both sides.
            const int digits = static_cast<int>(::SendMessageA(
                list_, LVM_GETSTRINGWIDTHA, 0, reinterpret_cast<LPARAM>(kWidestSize)));
            width = std::max(width, digits + kCellMargins);
        }
        const bool number = columns_[i] == kColumnSize || columns_[i] == kColumnSpeed ||
                            columns_[i] == kColumnProgress;
        corvid::win::AddListColumn(list_, static_cast<int>(i), width,
                                   number ? LVCFMT_RIGHT : LVCFMT_LEFT, Text(columns_[i]).c_str());
    }

    logImages_ = ImageList_LoadImageA(instance, MAKEINTRESOURCEA(IDB_TRANSFER_LOG_ICONS), 16, 0,
                                      RGB(255, 0, 255), IMAGE_BITMAP, LR_CREATEDIBSECTION);
    sourceImages_ = ImageList_LoadImageA(instance, "SourceIcons", 16, 0, RGB(255, 0, 255),
                                         IMAGE_BITMAP, LR_CREATEDIBSECTION);
    tree_ = ::CreateWindowExA(
        WS_EX_CLIENTEDGE, WC_TREEVIEWA, "",
        WS_CHILD | WS_VISIBLE | TVS_HASLINES | TVS_HASBUTTONS | TVS_LINESATROOT | TVS_SHOWSELALWAYS,
        0, 0, 0, 0, hwnd(), reinterpret_cast<HMENU>(kTreeId), instance, nullptr);
    ::SendMessageA(tree_, TVM_SETIMAGELIST, TVSIL_NORMAL, reinterpret_cast<LPARAM>(sourceImages_));
    setFont(tree_);

    log_ = ::CreateWindowExA(
        WS_EX_CLIENTEDGE, WC_LISTVIEWA, "",
        WS_CHILD | WS_VISIBLE | LVS_REPORT | LVS_SHOWSELALWAYS | LVS_SHAREIMAGELISTS, 0, 0, 0, 0,
        hwnd(), reinterpret_cast<HMENU>(kLogId), instance, nullptr);
    ::SendMessageA(log_, LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_FULLROWSELECT | LVS_EX_INFOTIP);
    ::SendMessageA(log_, LVM_SETIMAGELIST, LVSIL_SMALL, reinterpret_cast<LPARAM>(logImages_));
    setFont(log_);
    // "Time" holds ctime's whole text, which needs more than 100 pixels in the message font.
    const std::pair<std::uint32_t, int> logColumns[] = {{32944, 190}, {33020, 550}};
    for (int i = 0; i < 2; ++i) {
        corvid::win::AddListColumn(log_, i, logColumns[i].second, LVCFMT_LEFT,
                                   Text(logColumns[i].first).c_str());
    }
}

void DownloadPanel::Layout() {
    if (!hwnd() || !bar_.toolbar())
        return;
    RECT client;
    ::GetClientRect(hwnd(), &client);
    const int width = client.right;
    const int height = client.bottom;
    const int barHeight = bar_.LayOut(width);
    const int rest = std::max(0, height - barHeight);
    const int listHeight = rest * 11 / 20;
    const int paneTop = barHeight + listHeight + 4;
    const int paneHeight = std::max(0, height - paneTop);
    const int treeWidth = std::min(220, width / 4);
    ::MoveWindow(list_, 0, barHeight, width, listHeight, TRUE);
    ::MoveWindow(tree_, 0, paneTop, treeWidth, paneHeight, TRUE);
    ::MoveWindow(log_, treeWidth + 4, paneTop, std::max(0, width - treeWidth - 4), paneHeight,
                 TRUE);
}

LRESULT DownloadPanel::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_SIZE:
        Layout();
        return 0;
    case WM_COMMAND:
        OnCommand(LOWORD(wParam));
        return 0;
    case WM_NOTIFY:
        return OnNotify(*reinterpret_cast<const NMHDR*>(lParam));
    case shell::kMsgDownloadRefresh:
        OnRefresh();
        return 0;
    default:
        return Default(message, wParam, lParam);
    }
}

void DownloadPanel::OnShow(bool shown) {
    if (shown)
        OnRefresh();
}

void DownloadPanel::ApplyLanguage() {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const auto title = Text(columns_[i]);
        LVCOLUMNA column = {};
        column.mask = LVCF_TEXT;
        column.pszText = const_cast<char*>(title.c_str());
        ::SendMessageA(list_, LVM_SETCOLUMNA, i, reinterpret_cast<LPARAM>(&column));
    }
    bar_.Relabel(kButtons, [this](std::uint32_t id) { return Text(id); });
    OnRefresh();
}

std::vector<std::shared_ptr<DownloadItem>> DownloadPanel::Selected() const {
    std::vector<std::shared_ptr<DownloadItem>> selected;
    int row = -1;
    while ((row = static_cast<int>(
                ::SendMessageA(list_, LVM_GETNEXTITEM, row, MAKELPARAM(LVNI_SELECTED, 0)))) >= 0) {
        LVITEMA item = {};
        item.mask = LVIF_PARAM;
        item.iItem = row;
        ::SendMessageA(list_, LVM_GETITEMA, 0, reinterpret_cast<LPARAM>(&item));
        const auto found = rows_.find(reinterpret_cast<const DownloadItem*>(item.lParam));
        if (found != rows_.end())
            selected.push_back(found->second);
    }
    return selected;
}

void DownloadPanel::OnCommand(int id) {
    switch (id) {
    case kDownloadDelete:
        page_->RequestDelete(Selected());
        break;
    case kDownloadStop:
        for (const auto& item : Selected())
            page_->RequestStop(item);
        break;
    case kDownloadRestart:
        for (const auto& item : Selected())
            page_->RequestRestart(item);
        break;
    case kDownloadClearStopped:
        page_->ClearStopped();
        break;
    case kDownloadClearCompleted:
        page_->ClearCompleted();
        break;
    case kDownloadRun:
        page_->Run(Selected());
        break;
    default:
        return;
    }
    SaveList();
}

LRESULT DownloadPanel::OnNotify(const NMHDR& header) {
    if (header.hwndFrom == list_) {
        if (header.code == LVN_ITEMCHANGED) {
            const auto& change = reinterpret_cast<const NMLISTVIEW&>(header);
            if ((change.uChanged & LVIF_STATE) &&
                ((change.uNewState ^ change.uOldState) & LVIS_SELECTED)) {
                ShowSelected();
                UpdateToolbar();
            }
        } else if (header.code == NM_DBLCLK) {
            if (reinterpret_cast<const NMITEMACTIVATE&>(header).iItem >= 0)
                OnCommand(kDownloadRun);
        } else if (header.code == LVN_KEYDOWN &&
                   reinterpret_cast<const NMLVKEYDOWN&>(header).wVKey == VK_DELETE) {
            OnCommand(kDownloadDelete);
        }
    } else if (header.hwndFrom == tree_ && header.code == TVN_SELCHANGEDA) {
        ShowLogOfNode(reinterpret_cast<const NMTREEVIEWA&>(header).itemNew.hItem);
    }
    return 0;
}

void DownloadPanel::ShowSelected() {
    const auto selected = Selected();
    const auto item = selected.empty() ? nullptr : selected.front();
    if (item == logModel_.ShownItem())
        return;
    page_->SetShownItem(item);
    logModel_.ShowItem(item);
    if (!::SendMessageA(tree_, TVM_GETNEXTITEM, TVGN_ROOT, 0))
        logModel_.ShowLog(nullptr);
}

void DownloadPanel::ShowLogOfNode(HTREEITEM node) {
    auto source = logModel_.SourceOf(reinterpret_cast<Node>(node));
    // The root stands for the item: it shows its first source's log.
    const auto& item = logModel_.ShownItem();
    if (!source && node && item) {
        std::lock_guard guard(item->lock);
        if (!item->sources.empty())
            source = item->sources.front();
    }
    logModel_.ShowLog(source ? source->log : nullptr);
}

void DownloadPanel::OnRefresh() {
    int downloading = 0;
    for (const auto& item : page_->Items()) {
        std::lock_guard guard(item->lock);
        if (item->state == kItemCreated || item->state == kItemDownloading)
            ++downloading;
    }
    site_.SetStatusCounter(shell::kPaneDownloading, downloading);
    if (bar_.counter()) {
        const auto text = Text(kTextDownloadingCount) + ": " + std::to_string(downloading);
        ::SetWindowTextA(bar_.counter(), text.c_str());
    }
    UpdateToolbar();
    if (const auto& shown = logModel_.ShownItem()) {
        logModel_.AddNewSources(shown);
        logModel_.AppendLog();
    }
    ReadLibraryState();
    SaveList();
}

void DownloadPanel::UpdateToolbar() {
    if (!bar_.toolbar())
        return;
    const bool selection = ::SendMessageA(list_, LVM_GETSELECTEDCOUNT, 0, 0) > 0;
    const bool rows = ::SendMessageA(list_, LVM_GETITEMCOUNT, 0, 0) > 0;
    for (int command : {kDownloadDelete, kDownloadStop, kDownloadRestart, kDownloadRun})
        ::SendMessageA(bar_.toolbar(), TB_ENABLEBUTTON, command, MAKELONG(selection, 0));
    for (int command : {kDownloadClearStopped, kDownloadClearCompleted})
        ::SendMessageA(bar_.toolbar(), TB_ENABLEBUTTON, command, MAKELONG(rows, 0));
}

void DownloadPanel::SaveList() {
    if (options_.listFile.empty() || !page_)
        return;
    const auto snapshot = page_->Snapshot();
    auto text = WriteDownloadList(snapshot);
    if (text == lastSaved_)
        return;
    const auto cut = options_.listFile.find_last_of("\\/");
    if (cut != std::string::npos)
        EnsureFolder(options_.listFile.substr(0, cut));
    if (WriteFileReplacing(options_.listFile, text))
        lastSaved_ = std::move(text);
}

void DownloadPanel::Restore() {
    if (options_.listFile.empty())
        return;
    std::ifstream in(options_.listFile, std::ios::binary);
    if (!in)
        return;
    std::ostringstream text;
    text << in.rdbuf();
    lastSaved_ = text.str();
    for (const auto& saved : ReadDownloadList(lastSaved_))
        page_->Restore(saved, options_.autoResume);
}

void DownloadPanel::OnEngine(IGnutellaEngine* engine) {
    if (!engine) {
        searches_.StopAllBut([](const std::string&) { return false; });
        return;
    }
    // Links that wait for their first source are asked for as soon as there is a network.
    for (const auto& [sha1, link] : waitingMagnets_)
        searches_.Ask(engine, sha1);
}

void DownloadPanel::OnTick() {
    ReadLibraryState();
    if (--secondsToRequery_ > 0)
        return;
    secondsToRequery_ = options_.requerySeconds;
    AskForSources();
}

void DownloadPanel::AskForSources() {
    // A round asks again for what still needs sources and lets the other searches go, but not
    // those of links still waiting for their first source.
    searches_.StopAllBut(
        [this](const std::string& sha1) { return waitingMagnets_.count(sha1) != 0; });
    for (const auto& sha1 : page_->Sha1sNeedingSources())
        searches_.Ask(site_.Engine(), sha1);
    for (const auto& [sha1, link] : waitingMagnets_)
        searches_.Ask(site_.Engine(), sha1);
}

void DownloadPanel::OnSourceFound(const std::string& sha1, const ResultSource& hit) {
    if (const auto waiting = waitingMagnets_.find(sha1); waiting != waitingMagnets_.end()) {
        ResultGroup group;
        group.sha1 = sha1;
        group.sources.push_back(MagnetSource(waiting->second, hit));
        if (!SourceUrlOf(hit, sha1))
            return;
        waitingMagnets_.erase(waiting);
        page_->StartDownload(group, false);
        SaveList();
        return;
    }
    if (!page_->OfferSearchHit(sha1, hit))
        page_->OfferFoundSource(sha1, hit);
}

bool DownloadPanel::StartMagnet(const MagnetLink& link) {
    const auto group = MagnetGroup(link);
    bool started = true;
    if (group.sources.empty()) {
        // The page's own check, for a link that names no source of its own.
        if (page_->FindBySha1(link.sha1)) {
            options_.prompts->ShowFileExists(Text(kTextFileExists), MagnetFileName(link));
            return false;
        }
        waitingMagnets_[link.sha1] = link;
    } else {
        started = page_->StartDownload(group, true);
        SaveList();
    }
    if (started)
        searches_.Ask(site_.Engine(), link.sha1);
    return started;
}

DownloadPanel* DownloadPanel::FromPage(const DownloadPage* page) {
    for (auto* panel : LivePanels())
        if (panel->Page() == page)
            return panel;
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// The list's rows, posted from the worker and the library's threads

int DownloadPanel::RowOf(const DownloadItem* item) const {
    LVFINDINFOA find = {};
    find.flags = LVFI_PARAM;
    find.lParam = reinterpret_cast<LPARAM>(item);
    return static_cast<int>(::SendMessageA(list_, LVM_FINDITEMA, static_cast<WPARAM>(-1),
                                           reinterpret_cast<LPARAM>(&find)));
}

void DownloadPanel::SetCells(int row, const RowCells& cells) {
    for (const auto& cell : cells) {
        const auto column = std::find(columns_.begin(), columns_.end(), cell.column);
        if (column == columns_.end())
            continue;
        LVITEMA item = {};
        item.iSubItem = static_cast<int>(column - columns_.begin());
        item.pszText = const_cast<char*>(cell.text.c_str());
        ::SendMessageA(list_, LVM_SETITEMTEXTA, row, reinterpret_cast<LPARAM>(&item));
    }
}

void DownloadPanel::AddRow(const std::shared_ptr<DownloadItem>& item, const RowCells& cells) {
    Post([this, item, cells] {
        if (!list_ || rows_.count(item.get()))
            return;
        rows_[item.get()] = item;
        LVITEMA row = {};
        row.mask = LVIF_PARAM | LVIF_TEXT;
        row.iItem = static_cast<int>(::SendMessageA(list_, LVM_GETITEMCOUNT, 0, 0));
        row.lParam = reinterpret_cast<LPARAM>(item.get());
        row.pszText = const_cast<char*>("");
        const int index = static_cast<int>(
            ::SendMessageA(list_, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&row)));
        if (index >= 0)
            SetCells(index, cells);
        UpdateToolbar();
    });
}

void DownloadPanel::UpdateRow(const DownloadItem& item, const RowCells& cells) {
    const DownloadItem* key = &item;
    Post([this, key, cells] {
        if (!list_ || !rows_.count(key))
            return;
        const int row = RowOf(key);
        if (row >= 0)
            SetCells(row, cells);
    });
}

void DownloadPanel::RemoveRow(const DownloadItem& item) {
    const DownloadItem* key = &item;
    Post([this, key] {
        const auto found = rows_.find(key);
        if (found == rows_.end())
            return;
        const int row = RowOf(key);
        if (row >= 0)
            ::SendMessageA(list_, LVM_DELETEITEM, row, 0);
        rows_.erase(found);
        UpdateToolbar();
    });
}

void DownloadPanel::PostRefresh() {
    if (HWND window = hwnd())
        ::PostMessageA(window, shell::kMsgDownloadRefresh, 0, 0);
}

// ---------------------------------------------------------------------------------------------
// The source pane, posted from the worker and the library's threads

void DownloadPanel::Clear() {
    Post([this] {
        // The page forgot its shown item; the pane follows unless the user chose another since.
        if (page_->ShownItem() != logModel_.ShownItem()) {
            logModel_.ShowItem(nullptr);
            logModel_.ShowLog(nullptr);
        }
    });
}

void DownloadPanel::UpdateSource(const std::shared_ptr<DownloadSource>& source) {
    Post([this, source] {
        const auto node = logModel_.NodeOf(source);
        const auto& item = logModel_.ShownItem();
        if (!node || !item)
            return;
        int status;
        {
            std::lock_guard guard(item->lock);
            status = source->status;
        }
        TVITEMA change = {};
        change.mask = TVIF_IMAGE | TVIF_SELECTEDIMAGE;
        change.hItem = reinterpret_cast<HTREEITEM>(node);
        change.iImage = change.iSelectedImage = status;
        ::SendMessageA(tree_, TVM_SETITEMA, 0, reinterpret_cast<LPARAM>(&change));
    });
}

void DownloadPanel::RefreshDetail(const std::shared_ptr<DownloadItem>& item) {
    Post([this, item] {
        if (item != logModel_.ShownItem())
            return;
        logModel_.AddNewSources(item);
        logModel_.AppendLog();
    });
}

bool DownloadPanel::ForgetItem(const std::shared_ptr<DownloadItem>& item) {
    Post([this, item] { logModel_.ForgetItem(item); });
    return true;
}

void DownloadPanel::RebuildSources(const std::shared_ptr<DownloadItem>& item) {
    Post([this, item] { logModel_.AddNewSources(item); });
}

void DownloadPanel::AppendLogLines(const std::shared_ptr<DownloadItem>& item) {
    Post([this, item] {
        if (item == logModel_.ShownItem())
            logModel_.AppendLog();
    });
}

// The pane has no detailed display, so the page never asks it for byte counts.
void DownloadPanel::ShowReceived(const std::shared_ptr<DownloadItem>&, std::int64_t) {}

// ---------------------------------------------------------------------------------------------
// The log pane's controls (user-interface thread)

bool DownloadPanel::TreeExists() {
    return tree_ && ::IsWindow(tree_);
}

void DownloadPanel::DeleteAllNodes() {
    ::SendMessageA(tree_, TVM_DELETEITEM, 0, reinterpret_cast<LPARAM>(TVI_ROOT));
}

LogPaneView::Node DownloadPanel::InsertNode(Node parent, const std::string& text, int icon) {
    TVINSERTSTRUCTA insert = {};
    insert.hParent = parent ? reinterpret_cast<HTREEITEM>(parent) : TVI_ROOT;
    insert.hInsertAfter = TVI_LAST;
    insert.item.mask = TVIF_TEXT | TVIF_IMAGE | TVIF_SELECTEDIMAGE;
    insert.item.pszText = const_cast<char*>(text.c_str());
    insert.item.iImage = insert.item.iSelectedImage = icon;
    return static_cast<Node>(
        ::SendMessageA(tree_, TVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&insert)));
}

LogPaneView::Node DownloadPanel::Root() {
    return static_cast<Node>(::SendMessageA(tree_, TVM_GETNEXTITEM, TVGN_ROOT, 0));
}

void DownloadPanel::ExpandAndSelect(Node node) {
    ::SendMessageA(tree_, TVM_EXPAND, TVE_EXPAND, static_cast<LPARAM>(node));
    ::SendMessageA(tree_, TVM_SELECTITEM, TVGN_CARET, static_cast<LPARAM>(node));
}

bool DownloadPanel::ListExists() {
    return log_ && ::IsWindow(log_);
}

void DownloadPanel::DeleteAllRows() {
    ::SendMessageA(log_, LVM_DELETEALLITEMS, 0, 0);
}

void DownloadPanel::AppendRow(const std::string& time, const std::string& information, int icon,
                              std::int32_t parameter) {
    LVITEMA row = {};
    row.mask = LVIF_TEXT | LVIF_IMAGE | LVIF_PARAM;
    row.iItem = static_cast<int>(::SendMessageA(log_, LVM_GETITEMCOUNT, 0, 0));
    row.pszText = const_cast<char*>(time.c_str());
    row.iImage = icon;
    row.lParam = parameter;
    const int index =
        static_cast<int>(::SendMessageA(log_, LVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&row)));
    if (index < 0)
        return;
    LVITEMA cell = {};
    cell.iSubItem = 1;
    cell.pszText = const_cast<char*>(information.c_str());
    ::SendMessageA(log_, LVM_SETITEMTEXTA, index, reinterpret_cast<LPARAM>(&cell));
}

void DownloadPanel::BeginRows() {
    // Row by row, the list would update its scroll bar and repaint for every line.
    ::SendMessageA(log_, WM_SETREDRAW, FALSE, 0);
}

void DownloadPanel::ScrollToLastRow() {
    ::SendMessageA(log_, WM_SETREDRAW, TRUE, 0);
    const auto count = ::SendMessageA(log_, LVM_GETITEMCOUNT, 0, 0);
    if (count > 0)
        ::SendMessageA(log_, LVM_ENSUREVISIBLE, count - 1, FALSE);
    ::InvalidateRect(log_, nullptr, FALSE);
}

// ---------------------------------------------------------------------------------------------
// The file manager, files and the shell

void DownloadPanel::ReadLibraryState() {
    IFileManager* files = site_.FileManager();
    libraryPresent_ = files != nullptr;
    VARIANT_BOOL shares = VARIANT_FALSE;
    librarySharesDownloads_ =
        files && SUCCEEDED(files->get_ShareCompletedDownloads(&shares)) && shares != VARIANT_FALSE;
}

bool DownloadPanel::IsFileOnDisk(const std::string& sha1) {
    IFileManager* files = site_.FileManager();
    Bstr path;
    Bstr key(ToWide(sha1).c_str());
    return files && SUCCEEDED(files->FindBySha1(key.get(), path.put())) && path.length() > 0;
}

// Download.dll moves a finished file to its place itself: the place the page chose is where it is.
std::string DownloadPanel::CompletedFilePath(const std::string& localPath) {
    return localPath;
}

void DownloadPanel::ShareFile(const std::string& path) {
    Post([this, path] {
        if (IFileManager* files = site_.FileManager()) {
            Bstr text(ToWide(path).c_str());
            files->ShareDownload(text.get());
        }
    });
}

bool DownloadPanel::Exists(const std::string& path) {
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void DownloadPanel::Remove(const std::string& path) {
    // The partial file and its range map: at the file's place, or in the temporary folder.
    ::DeleteFileA(path.c_str());
    ::DeleteFileA((path + ".ranges").c_str());
    if (!options_.tempFolder.empty()) {
        const auto partial = JoinFolder(options_.tempFolder, FileNameOf(path) + ".part");
        ::DeleteFileA(partial.c_str());
        ::DeleteFileA((partial + ".ranges").c_str());
    }
}

bool DownloadPanel::PlayInTheater(const std::string& path) {
    if (!options_.playInTheater || !options_.playInTheater(path))
        return false;
    site_.ShowPanel(shell::kCmdTheater);
    return true;
}

void DownloadPanel::Open(const std::string& path) {
    if (options_.openFile) {
        options_.openFile(path);
        return;
    }
    ::ShellExecuteA(site_.MainWindow(), "open", path.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
}

std::time_t DownloadPanel::Now() {
    return std::time(nullptr);
}

std::unique_ptr<shell::Panel> MakeDownloadPanel(shell::PanelSite& site) {
    auto options = DefaultDownloadPanelOptions();
    // A file the theater takes plays there, in front; the main view (the site) outlives us.
    options.playInTheater = [&site](const std::string& path) {
        if (!theater::PlayInTheater(path))
            return false;
        site.ShowPanel(shell::kCmdTheater);
        return true;
    };
    return std::make_unique<DownloadPanel>(site, std::move(options));
}

bool IsMagnetLink(const std::string& keywords) {
    const auto first = keywords.find_first_not_of(" \t");
    if (first == std::string::npos || keywords.size() - first < 7)
        return false;
    std::string scheme = keywords.substr(first, 7);
    for (auto& c : scheme)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return scheme == "magnet:";
}

bool StartMagnet(shell::PanelSite& site, const std::string& link, std::string* error) {
    const auto trimmed = link.substr(std::min(link.size(), link.find_first_not_of(" \t")));
    std::string reason;
    const auto parsed = ParseMagnetLink(trimmed, &reason);
    std::string text;
    site.Language().LoadText(kTextBadMagnet, text);
    if (!parsed) {
        if (error)
            *error = text + "\n" + reason;
        return false;
    }
    DownloadPanel* panel = DownloadPanel::FromPage(site.Downloads());
    if (!panel) {
        if (error)
            site.Language().LoadText(kTextLibraryMissing, *error);
        return false;
    }
    site.ShowPanel(shell::kCmdDownload);
    return panel->StartMagnet(*parsed);
}

bool StartMagnet(shell::PanelSite& site, const std::string& link) {
    std::string error;
    if (StartMagnet(site, link, &error))
        return true;
    if (!error.empty())
        ::MessageBoxA(site.MainWindow(), error.c_str(), "Tarvo Explorer", MB_OK | MB_ICONWARNING);
    return false;
}

} // namespace corvid::transfer::win
