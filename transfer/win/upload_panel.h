#pragma once

// The upload page: the toolbar "UploadToolbar" (Stop, Stop All, Limit Speed, View Host Info) over
// an owner-data list of what the engine is sending, rebuilt from the engine's upload text once a
// second while the list is visible.

#include <windows.h>

#include <commctrl.h>

#include "platform/win/handles.h"
#include "platform/win/window.h"
#include "shell/win/panel.h"
#include "transfer/upload_list.h"
#include "transfer/win/transfer_bar.h"

#include <memory>
#include <vector>

struct IUploadManager;

namespace corvid::transfer::win {

enum UploadCommand : int {
    kUploadStop = 34006,
    kUploadStopAll = 34021,
    kUploadLimitSpeed = 34022,
    kUploadViewHostInfo = 34023,
};

class UploadPanel : public shell::Panel, private corvid::win::WindowBase {
public:
    explicit UploadPanel(shell::PanelSite& site);
    ~UploadPanel() override;

    bool Create(HWND parent) override;
    HWND Window() const override { return hwnd(); }
    std::string Title() const override;
    void OnShow(bool shown) override;
    // The engine, or its upload component alone (the main view hands that over at each connect).
    void OnEngine(IGnutellaEngine* engine) override;
    void OnUploads(IUploadManager* uploads) override;
    void OnTick() override;
    void ApplyLanguage() override;

    HWND List() const { return list_; }
    HWND Toolbar() const { return bar_.toolbar(); }
    HWND Counter() const { return bar_.counter(); }
    const std::vector<UploadInfo>& Uploads() const { return uploads_; }

private:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;
    void CreateControls();
    void Layout();
    void OnCommand(int id);
    void Refresh();
    void ShowCount(int count);
    void StopRows(const std::vector<int>& rows);
    void ToggleLimit();
    std::string Text(std::uint32_t id) const;

    shell::PanelSite& site_;
    corvid::win::ComPtr<IUploadManager> manager_;
    std::vector<UploadInfo> uploads_;
    TransferBar bar_;
    HWND list_ = nullptr;
    corvid::win::GdiObject font_;
    // The text of the cell the list asked for last: it must outlive the notification.
    std::string cellText_;
};

std::unique_ptr<shell::Panel> MakeUploadPanel(shell::PanelSite& site);

} // namespace corvid::transfer::win
