#include "host/settings_dialog.h"

#include "host/host_objects.h"
#include "host/host_resources.h"

#include <algorithm>

namespace corvid::host {

namespace {

constexpr wchar_t kSection[] = L"P2P View";

struct Choice {
    const wchar_t* text;
    DWORD value;
};

const Choice kPositions[] = {{L"Above the panels", 0}, {L"Below the panels", 1}};
const Choice kLeftActions[] = {{L"Selects the tab at once", 0},
                               {L"Selects the tab when released", 1}};
const Choice kMiddleActions[] = {
    {L"Does nothing", 0}, {L"Closes the tab", 1}, {L"Selects the tab", 2}};
const Choice kLabelModes[] = {{L"Below the icons", 0}, {L"Beside the icons", 1}, {L"None", 2}};

constexpr wchar_t kBuiltInSkin[] = L"(Built-in)";
constexpr wchar_t kBuiltInLanguage[] = L"English (built-in)";

struct DialogState {
    std::wstring hostFolder;
    SettingsOutcome outcome;
};

template <std::size_t N>
void FillChoices(HWND dialog, int id, const Choice (&choices)[N], const wchar_t* name,
                 DWORD fallback) {
    DWORD value = fallback;
    ReadHostDword(name, value);
    HWND combo = ::GetDlgItem(dialog, id);
    int selected = 0;
    for (std::size_t i = 0; i < N; ++i) {
        ::SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(choices[i].text));
        if (choices[i].value == value) {
            selected = static_cast<int>(i);
        }
    }
    ::SendMessageW(combo, CB_SETCURSEL, selected, 0);
}

template <std::size_t N>
void SaveChoice(HWND dialog, int id, const Choice (&choices)[N], const wchar_t* name) {
    const auto index = static_cast<int>(::SendDlgItemMessageW(dialog, id, CB_GETCURSEL, 0, 0));
    if (index >= 0 && index < static_cast<int>(N)) {
        WriteHostDword(name, choices[index].value);
    }
}

void FillFolders(HWND dialog, int id, const std::vector<std::wstring>& folders,
                 const wchar_t* builtIn, const std::wstring& current) {
    HWND combo = ::GetDlgItem(dialog, id);
    ::SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(builtIn));
    int selected = 0;
    for (std::size_t i = 0; i < folders.size(); ++i) {
        ::SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(folders[i].c_str()));
        if (::lstrcmpiW(folders[i].c_str(), current.c_str()) == 0) {
            selected = static_cast<int>(i + 1);
        }
    }
    ::SendMessageW(combo, CB_SETCURSEL, selected, 0);
}

std::wstring ChosenFolder(HWND dialog, int id) {
    const auto index = static_cast<int>(::SendDlgItemMessageW(dialog, id, CB_GETCURSEL, 0, 0));
    if (index <= 0) {
        return {};
    }
    wchar_t text[260] = {};
    if (::SendDlgItemMessageW(dialog, id, CB_GETLBTEXTLEN, index, 0) >= 260) {
        return {};
    }
    ::SendDlgItemMessageW(dialog, id, CB_GETLBTEXT, index, reinterpret_cast<LPARAM>(text));
    return text;
}

void SetCheck(HWND dialog, int id, bool on) {
    ::CheckDlgButton(dialog, id, on ? BST_CHECKED : BST_UNCHECKED);
}

bool Checked(HWND dialog, int id) {
    return ::IsDlgButtonChecked(dialog, id) == BST_CHECKED;
}

void Load(HWND dialog, DialogState& state) {
    FillChoices(dialog, IDC_TAB_POSITION, kPositions, L"Tab Pos", 0);
    FillChoices(dialog, IDC_TAB_LEFT_ACTION, kLeftActions, L"Tab LButtonAction", 0);
    FillChoices(dialog, IDC_TAB_MIDDLE_ACTION, kMiddleActions, L"Tab MButtonAction", 1);
    FillChoices(dialog, IDC_TOOLBAR_LABELS, kLabelModes, L"Toolbar LabelMode", 0);
    DWORD value = 1;
    SetCheck(dialog, IDC_TAB_VISIBLE, !ReadHostDword(L"Tab Visible", value) || value == 1);
    value = 0;
    SetCheck(dialog, IDC_TAB_PUSHLIKE, ReadHostDword(L"Tab PushLike", value) && value == 1);
    value = 0;
    SetCheck(dialog, IDC_TOOLBAR_LARGE, ReadHostDword(L"Toolbar IconSize", value) && value == 1);
    value = 0;
    SetCheck(dialog, IDC_SHOW_DOWNLOADED,
             ReadHostDword(L"Search ShowDownloaded", value) && value != 0);
    value = 0;
    SetCheck(dialog, IDC_AUTO_ONLINE,
             ReadSectionDword(kSection, L"AutoOnline", value) && value != 0);
    FillFolders(dialog, IDC_SKIN, SubFolders(state.hostFolder, L"skin"), kBuiltInSkin,
                ReadHostString(L"Skin"));
    FillFolders(dialog, IDC_LANGUAGE, SubFolders(state.hostFolder, L"language"), kBuiltInLanguage,
                ReadHostString(L"Language"));
}

void Save(HWND dialog, DialogState& state) {
    SaveChoice(dialog, IDC_TAB_POSITION, kPositions, L"Tab Pos");
    SaveChoice(dialog, IDC_TAB_LEFT_ACTION, kLeftActions, L"Tab LButtonAction");
    SaveChoice(dialog, IDC_TAB_MIDDLE_ACTION, kMiddleActions, L"Tab MButtonAction");
    SaveChoice(dialog, IDC_TOOLBAR_LABELS, kLabelModes, L"Toolbar LabelMode");
    WriteHostDword(L"Tab Visible", Checked(dialog, IDC_TAB_VISIBLE) ? 1 : 0);
    WriteHostDword(L"Tab PushLike", Checked(dialog, IDC_TAB_PUSHLIKE) ? 1 : 0);
    WriteHostDword(L"Toolbar IconSize", Checked(dialog, IDC_TOOLBAR_LARGE) ? 1 : 0);
    WriteHostDword(L"Search ShowDownloaded", Checked(dialog, IDC_SHOW_DOWNLOADED) ? 1 : 0);
    WriteSectionDword(kSection, L"AutoOnline", Checked(dialog, IDC_AUTO_ONLINE) ? 1 : 0);
    SettingsOutcome& outcome = state.outcome;
    outcome.saved = true;
    outcome.skin = ChosenFolder(dialog, IDC_SKIN);
    outcome.language = ChosenFolder(dialog, IDC_LANGUAGE);
    outcome.skinChanged = outcome.skin != ReadHostString(L"Skin");
    outcome.languageChanged = outcome.language != ReadHostString(L"Language");
    WriteHostString(L"Skin", outcome.skin);
    WriteHostString(L"Language", outcome.language);
}

INT_PTR CALLBACK Procedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        ::SetWindowLongPtrW(dialog, DWLP_USER, lParam);
        Load(dialog, *reinterpret_cast<DialogState*>(lParam));
        return TRUE;
    }
    auto* state = reinterpret_cast<DialogState*>(::GetWindowLongPtrW(dialog, DWLP_USER));
    if (message == WM_COMMAND && state) {
        if (LOWORD(wParam) == IDOK) {
            Save(dialog, *state);
            ::EndDialog(dialog, IDOK);
            return TRUE;
        }
        if (LOWORD(wParam) == IDCANCEL) {
            ::EndDialog(dialog, IDCANCEL);
            return TRUE;
        }
    }
    return FALSE;
}

} // namespace

std::vector<std::wstring> SubFolders(const std::wstring& hostFolder, const wchar_t* kind) {
    std::vector<std::wstring> folders;
    const std::wstring pattern = hostFolder + L"\\" + kind + L"\\*";
    WIN32_FIND_DATAW found = {};
    HANDLE search = ::FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return folders;
    }
    do {
        const std::wstring name = found.cFileName;
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && name != L"." && name != L"..") {
            folders.push_back(name);
        }
    } while (::FindNextFileW(search, &found));
    ::FindClose(search);
    std::sort(folders.begin(), folders.end());
    return folders;
}

SettingsOutcome RunSettingsDialog(HWND owner, const std::wstring& hostFolder) {
    DialogState state;
    state.hostFolder = hostFolder;
    ::DialogBoxParamW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDD_HOST_SETTINGS), owner,
                      &Procedure, reinterpret_cast<LPARAM>(&state));
    return state.outcome;
}

} // namespace corvid::host
