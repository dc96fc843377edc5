#include "tests/wine/support/fake_panel_site.h"

#include <algorithm>

namespace corvid::testing {

FakePanelSite::FakePanelSite(const char* title) : skin_(DefaultSkin()) {
    RECT rect = {20, 20, 1020, 720};
    Create("CorvidFakePanelSite", title, WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN | WS_VISIBLE, 0,
           nullptr, rect);
}

FakePanelSite::~FakePanelSite() {
    // Tabs go before the window they live in.
    tabs.clear();
}

bool FakePanelSite::Adopt(shell::Panel& panel) {
    if (!panel.Create(hwnd())) {
        return false;
    }
    RECT client;
    ::GetClientRect(hwnd(), &client);
    ::MoveWindow(panel.Window(), 0, 0, client.right, client.bottom, TRUE);
    ::ShowWindow(panel.Window(), SW_SHOW);
    panel.OnShow(true);
    return true;
}

bool FakePanelSite::HostValue(const char* name, int& value) const {
    auto found = hostValues.find(name);
    if (found == hostValues.end()) {
        return false;
    }
    value = found->second;
    return true;
}

shell::Panel* FakePanelSite::OpenTab(std::unique_ptr<shell::Panel> panel, bool select) {
    if (!panel || !panel->Create(hwnd())) {
        return nullptr;
    }
    if (select) {
        for (auto& other : tabs) {
            ::ShowWindow(other->Window(), SW_HIDE);
        }
        RECT client;
        ::GetClientRect(hwnd(), &client);
        ::MoveWindow(panel->Window(), 0, 0, client.right, client.bottom, TRUE);
        ::ShowWindow(panel->Window(), SW_SHOW);
        panel->OnShow(true);
    }
    tabs.push_back(std::move(panel));
    return tabs.back().get();
}

void FakePanelSite::CloseTab(shell::Panel* panel) {
    tabs.erase(std::remove_if(tabs.begin(), tabs.end(),
                              [panel](const auto& tab) { return tab.get() == panel; }),
               tabs.end());
}

LRESULT FakePanelSite::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == shell::kMsgBrowseHost) {
        mainMessages.emplace_back(message, lParam ? reinterpret_cast<const char*>(lParam) : "");
        return 0;
    }
    return Default(message, wParam, lParam);
}

} // namespace corvid::testing
