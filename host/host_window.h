#pragma once

// The host's top-level window: its menu bar with the plug-in's contribution merged in, the
// plug-in's toolbar, a search bar that calls SearchOnP2P through IDispatch as the plug-in's home
// page does, and one tab holding the plug-in.

#include "host/host_objects.h"
#include "host/menu_model.h"
#include "host_h.h"
#include "platform/win/window.h"

#include <map>
#include <memory>
#include <string>

namespace corvid::host {

inline constexpr char kFrameClass[] = "TarvoExplorerFrame";

struct HostOptions {
    std::wstring searchKeywords; // typed into the search bar and searched once shown
    std::wstring searchType = L"All";
    bool search = false;
    std::wstring readyFile; // written once the window is up and idle
    std::wstring quitFile;  // the host closes itself once this file exists
    // Rewritten with the menu bar as it stands (read back from the real menus) whenever the
    // menus or a command's state change: one line per entry, "label|id|flags", indented by
    // tabs for submenus, "-" for a separator; flags hold "g" for greyed and "c" for checked.
    std::wstring menuReport;
};

class TabPage;

class HostWindow final : public win::WindowBase, public HostFrame {
public:
    HostWindow(std::wstring hostFolder, HostOptions options);
    ~HostWindow() override;

    // Makes the window and attaches the plug-in; false when the window cannot be made.
    bool Open(ITarvoPlugIn* plugIn);
    // Keyboard handling of the bars before a message is dispatched: Enter in the search box
    // searches, Tab moves between the controls. True when the message was used.
    bool PreTranslate(MSG& message);

    // HostFrame
    HWND FrameWindow() const override { return hwnd(); }
    void LayOut() override;
    void ReloadMenus() override;
    void SetTabTitle(const std::wstring& title) override;
    void ShowPlugInTab() override {}
    void CommandStateChanged(const std::string& name, int state) override;

protected:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;
    void OnWindowGone() override;

private:
    HMENU BuildMenu(const MenuEntry& menu, bool bar);
    void ApplyState(const std::string& name, int state);
    void FillDynamic(HMENU popup);
    void ReportMenus();
    void OnCommand(int id);
    void Search();
    void OpenSettings();
    void Close();

    std::wstring hostFolder_;
    HostOptions options_;
    win::ComPtr<HostObject> host_;
    win::ComPtr<ITarvoPlugIn> plugIn_;
    std::unique_ptr<TabPage> page_;
    HWND toolbar_ = nullptr;
    HWND searchLabel_ = nullptr;
    HWND searchEdit_ = nullptr;
    HWND searchType_ = nullptr;
    HWND searchButton_ = nullptr;
    HWND tabs_ = nullptr;
    HFONT font_ = nullptr;

    MenuEntry bar_;
    HMENU menu_ = nullptr;
    std::map<int, std::string> names_; // menu command id -> command name
    std::map<std::string, int> ids_;
    std::map<HMENU, std::string> dynamicPopups_; // popup -> the dynamic list's id
    int nextPlugInId_ = 0;
    bool lockedToolbars_ = false;
};

} // namespace corvid::host
