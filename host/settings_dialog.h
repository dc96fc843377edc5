#pragma once

// The host's settings dialog for the values the plug-in reads: tabs, toolbar, the plug-in's own
// "P2P View" section, skin and language. Saved per user; the caller fires the change event.

#include <windows.h>

#include <string>
#include <vector>

namespace corvid::host {

struct SettingsOutcome {
    bool saved = false;
    bool skinChanged = false;
    bool languageChanged = false;
    std::wstring skin;
    std::wstring language;
};

SettingsOutcome RunSettingsDialog(HWND owner, const std::wstring& hostFolder);

// The folders below <host>\<kind> ("skin", "language"), sorted.
std::vector<std::wstring> SubFolders(const std::wstring& hostFolder, const wchar_t* kind);

} // namespace corvid::host
