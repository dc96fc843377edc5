#include "transfer/win/upload_panel.h"

#include "markup/language_table.h"
#include "platform/win/com_error.h"
#include "platform/win/list_view.h"
#include "platform/win/module.h"
#include "platform/win/text.h"
#include "transfer/win/transfer_settings.h"

#include "engine_h.h"

#include <algorithm>

namespace corvid::transfer::win {
namespace {

constexpr std::uint32_t kTitleId = 34010;
constexpr std::uint32_t kTextUploadingCount = 32956;
enum ChildId : int { kToolbarId = 1, kListId, kCounterId };

constexpr BarButton kButtons[] = {
    {kUploadStop, 0, 33121},
    {kUploadStopAll, 1, 33126},
    {kUploadLimitSpeed, 2, 33127, true},
    {kUploadViewHostInfo, 3, 33128},
};

// Columns by UploadColumn, titled with the download list's own captions.
constexpr std::pair<std::uint32_t, int> kColumns[] = {
    {33006, 260}, {33008, 160}, {33023, 80}, {33014, 100}, {33007, 110}};

} // namespace

UploadPanel::UploadPanel(shell::PanelSite& site) : site_(site) {}

UploadPanel::~UploadPanel() {
    if (hwnd())
        ::DestroyWindow(hwnd());
}

std::string UploadPanel::Text(std::uint32_t id) const {
    std::string text;
    site_.Language().LoadText(id, text);
    return text;
}

std::string UploadPanel::Title() const {
    const auto title = Text(kTitleId);
    return title.empty() ? "Upload" : title;
}

bool UploadPanel::Create(HWND parent) {
    INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES};
    ::InitCommonControlsEx(&controls);
    RECT rect = {0, 0, 800, 600};
    if (!WindowBase::Create("CorvidUploadPanel", "Upload", WS_CHILD | WS_CLIPCHILDREN, 0, parent,
                            rect))
        return false;
    CreateControls();
    Layout();
    if (IGnutellaEngine* engine = site_.Engine()) {
        corvid::win::ComPtr<IUploadManager> uploads;
        engine->GetUploads(uploads.put());
        OnUploads(uploads.get());
    }
    ShowCount(0);
    return true;
}

void UploadPanel::CreateControls() {
    const HINSTANCE instance = corvid::win::ModuleHandle();
    NONCLIENTMETRICSA metrics = {};
    metrics.cbSize = sizeof metrics;
    ::SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0);
    font_.reset(::CreateFontIndirectA(&metrics.lfMessageFont));

    bar_.Create(hwnd(), "UploadToolbar", kToolbarId, kCounterId, font_.get(), kButtons,
                [this](std::uint32_t id) { return Text(id); });
    const bool limiting = UploadLimitOn(ReadDword(kHttpServerKey, kMaxUploadSpeedValue));
    ::SendMessageA(bar_.toolbar(), TB_CHECKBUTTON, kUploadLimitSpeed, MAKELONG(limiting, 0));

    list_ =
        ::CreateWindowExA(WS_EX_CLIENTEDGE, WC_LISTVIEWA, "UploadList",
                          WS_CHILD | WS_VISIBLE | LVS_REPORT | LVS_OWNERDATA | LVS_SHOWSELALWAYS, 0,
                          0, 0, 0, hwnd(), reinterpret_cast<HMENU>(kListId), instance, nullptr);
    ::SendMessageA(list_, LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
    ::SendMessageA(list_, WM_SETFONT, reinterpret_cast<WPARAM>(font_.get()), TRUE);
    for (int i = 0; i < kUploadColumnCount; ++i) {
        corvid::win::AddListColumn(list_, i, kColumns[i].second,
                                   i >= kUploadProgress ? LVCFMT_RIGHT : LVCFMT_LEFT,
                                   Text(kColumns[i].first).c_str());
    }
}

void UploadPanel::Layout() {
    if (!hwnd() || !bar_.toolbar())
        return;
    RECT client;
    ::GetClientRect(hwnd(), &client);
    const int barHeight = bar_.LayOut(client.right);
    ::MoveWindow(list_, 0, barHeight, client.right, std::max<int>(0, client.bottom - barHeight),
                 TRUE);
}

LRESULT UploadPanel::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_SIZE:
        Layout();
        return 0;
    case WM_COMMAND:
        // A failing engine call ends the command; nothing of it reaches the window's caller.
        try {
            OnCommand(LOWORD(wParam));
        } catch (const corvid::win::ComError&) {
        }
        return 0;
    case WM_NOTIFY: {
        auto& header = *reinterpret_cast<NMHDR*>(lParam);
        if (header.hwndFrom == list_ && header.code == LVN_GETDISPINFOA) {
            auto& item = reinterpret_cast<NMLVDISPINFOA&>(header).item;
            if ((item.mask & LVIF_TEXT) && item.iItem >= 0 &&
                static_cast<std::size_t>(item.iItem) < uploads_.size()) {
                cellText_ = UploadCellText(uploads_[item.iItem], item.iSubItem);
                item.pszText = const_cast<char*>(cellText_.c_str());
            }
        }
        return 0;
    }
    default:
        return Default(message, wParam, lParam);
    }
}

void UploadPanel::OnShow(bool shown) {
    if (shown)
        Refresh();
}

void UploadPanel::OnEngine(IGnutellaEngine* engine) {
    // The main view hands the upload component over at every connect (OnUploads); the panel asks
    // the engine itself only when it is made after a connect (Create).
    if (!engine) {
        OnUploads(nullptr);
    }
}

void UploadPanel::OnUploads(IUploadManager* uploads) {
    manager_ = corvid::win::ComPtr<IUploadManager>(uploads);
    if (!manager_) {
        uploads_.clear();
        if (list_)
            ::SendMessageA(list_, LVM_SETITEMCOUNT, 0, 0);
        ShowCount(0);
    }
}

void UploadPanel::OnTick() {
    Refresh();
}

void UploadPanel::ApplyLanguage() {
    bar_.Relabel(kButtons, [this](std::uint32_t id) { return Text(id); });
    for (int i = 0; i < kUploadColumnCount; ++i) {
        const auto title = Text(kColumns[i].first);
        LVCOLUMNA column = {};
        column.mask = LVCF_TEXT;
        column.pszText = const_cast<char*>(title.c_str());
        ::SendMessageA(list_, LVM_SETCOLUMNA, i, reinterpret_cast<LPARAM>(&column));
    }
    Refresh();
}

void UploadPanel::Refresh() {
    if (!manager_ || !list_)
        return;
    if (!::IsWindowVisible(list_)) {
        long count = 0;
        if (SUCCEEDED(manager_->GetUploadCount(&count)))
            ShowCount(static_cast<int>(count));
        return;
    }
    corvid::win::Bstr text;
    if (FAILED(manager_->GetUploadsText(text.put())))
        return;
    uploads_ = ParseUploads(corvid::win::BstrToAnsi(text.get()));
    ::SendMessageA(list_, LVM_SETITEMCOUNT, uploads_.size(),
                   LVSICF_NOSCROLL | LVSICF_NOINVALIDATEALL);
    ::InvalidateRect(list_, nullptr, FALSE);
    ShowCount(static_cast<int>(::SendMessageA(list_, LVM_GETITEMCOUNT, 0, 0)));
}

void UploadPanel::ShowCount(int count) {
    site_.SetStatusCounter(shell::kPaneUploading, count);
    if (bar_.counter()) {
        const auto text = Text(kTextUploadingCount) + ": " + std::to_string(count);
        ::SetWindowTextA(bar_.counter(), text.c_str());
    }
}

void UploadPanel::OnCommand(int id) {
    switch (id) {
    case kUploadStop: {
        std::vector<int> rows;
        for (int row = -1; (row = static_cast<int>(::SendMessageA(
                                list_, LVM_GETNEXTITEM, row, MAKELPARAM(LVNI_SELECTED, 0)))) >= 0;)
            rows.push_back(row);
        StopRows(rows);
        break;
    }
    case kUploadStopAll: {
        std::vector<int> rows(uploads_.size());
        for (std::size_t i = 0; i < rows.size(); ++i)
            rows[i] = static_cast<int>(i);
        StopRows(rows);
        break;
    }
    case kUploadLimitSpeed:
        ToggleLimit();
        break;
    case kUploadViewHostInfo:
        // Accepted, and nothing more in this version.
        break;
    default:
        break;
    }
}

void UploadPanel::StopRows(const std::vector<int>& rows) {
    if (!manager_)
        return;
    for (int row : rows) {
        if (row < 0 || static_cast<std::size_t>(row) >= uploads_.size())
            break;
        corvid::win::ThrowIfFailed(manager_->StopUpload(uploads_[row].id), IID_IGnutellaEngine);
    }
}

void UploadPanel::ToggleLimit() {
    const auto change = ToggleUploadLimit(ReadDword(kHttpServerKey, kMaxUploadSpeedValue),
                                          ReadDword(kP2PViewKey, kUploadLimitValue));
    ::SendMessageA(bar_.toolbar(), TB_CHECKBUTTON, kUploadLimitSpeed, MAKELONG(change.checked, 0));
    WriteDword(kHttpServerKey, kMaxUploadSpeedValue, change.newLimit);
}

std::unique_ptr<shell::Panel> MakeUploadPanel(shell::PanelSite& site) {
    return std::make_unique<UploadPanel>(site);
}

} // namespace corvid::transfer::win
