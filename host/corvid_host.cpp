// The standalone host: plays the browser's part so the plug-in runs without it. It creates the
// plug-in by its ProgID in a window of its own with menus, a toolbar, a search bar and a tab.
//
//   corvid-host [--search KEYWORDS] [--type TYPE] [--ready-file PATH] [--quit-file PATH]
//               [--menu-report PATH]
//   corvid-host search KEYWORDS [TYPE]      (the same as --search KEYWORDS --type TYPE)

#include "corvid_h.h"
#include "host/host_window.h"
#include "host_h.h"
#include "platform/win/handles.h"
#include "platform/win/text.h"

#include <commctrl.h>

#include <cstdio>
#include <string>

namespace {

using corvid::win::ComPtr;

std::wstring ProgramFolder() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder(path, length < MAX_PATH ? length : 0);
    const std::size_t cut = folder.find_last_of(L"\\/");
    return cut == std::wstring::npos ? L"." : folder.substr(0, cut);
}

// A host run straight from its folder registers the plug-in that sits beside it.
bool RegisterPlugInBesideUs(const std::wstring& folder) {
    corvid::win::Module module(::LoadLibraryW((folder + L"\\Corvid.dll").c_str()));
    if (!module) {
        return false;
    }
    auto registerServer =
        corvid::win::ProcAddress<HRESULT(STDAPICALLTYPE*)()>(module.get(), "DllRegisterServer");
    return registerServer && SUCCEEDED(registerServer());
}

bool ParseOptions(int argc, wchar_t** argv, corvid::host::HostOptions& options) {
    int i = 1;
    if (argc >= 3 && std::wstring(argv[1]) == L"search") {
        options.search = true;
        options.searchKeywords = argv[2];
        if (argc >= 4) {
            options.searchType = argv[3];
        }
        return argc <= 4;
    }
    for (; i < argc; ++i) {
        const std::wstring option = argv[i];
        const bool hasValue = i + 1 < argc;
        if (option == L"--search" && hasValue) {
            options.search = true;
            options.searchKeywords = argv[++i];
        } else if (option == L"--type" && hasValue) {
            options.searchType = argv[++i];
        } else if (option == L"--ready-file" && hasValue) {
            options.readyFile = argv[++i];
        } else if (option == L"--quit-file" && hasValue) {
            options.quitFile = argv[++i];
        } else if (option == L"--menu-report" && hasValue) {
            options.menuReport = argv[++i];
        } else {
            return false;
        }
    }
    return true;
}

void Fail(const char* what, HRESULT hr) {
    char text[256];
    std::snprintf(text, sizeof text, "%s (0x%08lX)", what, static_cast<unsigned long>(hr));
    std::fprintf(stderr, "corvid-host: %s\n", text);
    ::MessageBoxA(nullptr, text, "Tarvo Explorer", MB_OK | MB_ICONERROR);
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    corvid::host::HostOptions options;
    if (!ParseOptions(argc, argv, options)) {
        std::fprintf(stderr, "usage: corvid-host [--search KEYWORDS] [--type TYPE] "
                             "[--ready-file PATH] [--quit-file PATH] [--menu-report PATH]\n"
                             "       corvid-host search KEYWORDS [TYPE]\n");
        return 2;
    }
    corvid::win::ComApartment apartment;
    if (FAILED(apartment.result())) {
        Fail("COM could not start", apartment.result());
        return 1;
    }
    INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_WIN95_CLASSES | ICC_TAB_CLASSES |
                                                          ICC_BAR_CLASSES | ICC_LISTVIEW_CLASSES};
    ::InitCommonControlsEx(&controls);

    const std::wstring folder = ProgramFolder();
    CLSID clsid = {};
    HRESULT hr = ::CLSIDFromProgID(L"Corvid.P2PView", &clsid);
    if (FAILED(hr) && RegisterPlugInBesideUs(folder)) {
        hr = ::CLSIDFromProgID(L"Corvid.P2PView", &clsid);
    }
    if (FAILED(hr)) {
        Fail("The Corvid plug-in is not installed", hr);
        return 1;
    }
    ComPtr<ITarvoPlugIn> plugIn;
    hr = ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_ITarvoPlugIn,
                            plugIn.put_void());
    if (FAILED(hr)) {
        Fail("The Corvid plug-in could not be created", hr);
        return 1;
    }
    int result = 0;
    {
        corvid::host::HostWindow window(folder, options);
        if (!window.Open(plugIn.get())) {
            Fail("The Corvid plug-in could not open its view", E_FAIL);
            return 1;
        }
        plugIn.reset();
        MSG message;
        while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
            if (window.PreTranslate(message)) {
                continue;
            }
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
        result = static_cast<int>(message.wParam);
    }
    return result;
}
