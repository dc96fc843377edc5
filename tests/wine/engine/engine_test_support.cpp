#include "tests/wine/engine/engine_test_support.h"

#include "platform/win/text.h"
#include "platform/win/user_folders.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace corvid::testing {

LoopbackNetwork LoadNetwork() {
    LoopbackNetwork network;
    char path[1024] = {};
    DWORD length = ::GetEnvironmentVariableA("CORVID_TEST_NETWORK", path, sizeof path);
    if (length == 0 || length >= sizeof path) {
        return network;
    }
    // A Unix path of the fixture's: Wine shows the root file system as drive Z.
    std::string file = path[0] == '/' ? std::string("Z:") + path : std::string(path);
    std::ifstream in(file);
    std::string line;
    std::map<std::string, std::string> values;
    while (std::getline(in, line)) {
        auto equals = line.find('=');
        if (equals == std::string::npos || line[0] == '#') {
            continue;
        }
        std::string value = line.substr(equals + 1);
        if (value.size() >= 2 && value.front() == '\'' && value.back() == '\'') {
            value = value.substr(1, value.size() - 2);
        }
        values[line.substr(0, equals)] = value;
    }
    auto split = [](const std::string& list) {
        std::vector<std::string> items;
        std::stringstream stream(list);
        std::string item;
        while (std::getline(stream, item, ',')) {
            items.push_back(item);
        }
        return items;
    };
    network.ultrapeers = split(values["ULTRAPEERS"]);
    network.leaves = split(values["LEAVES"]);
    network.bigFileName = values["BIG_FILE_NAME"];
    network.bigFileSha1 = values["BIG_FILE_SHA1"];
    network.folder = file.substr(0, file.find_last_of("/\\"));
    network.loaded = !network.ultrapeers.empty() && !network.leaves.empty();
    return network;
}

std::wstring BesideThisProgram(const wchar_t* name) {
    wchar_t path[MAX_PATH] = {};
    DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring result(path, length);
    return result.substr(0, result.find_last_of(L"\\/") + 1) + name;
}

DWORD RunProgram(std::wstring commandLine) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process)) {
        return ::GetLastError() | 0x80000000u;
    }
    win::KernelHandle processHandle(process.hProcess);
    win::KernelHandle threadHandle(process.hThread);
    ::WaitForSingleObject(process.hProcess, 60000);
    DWORD code = 0xFFFFFFFFu;
    ::GetExitCodeProcess(process.hProcess, &code);
    return code;
}

namespace {

DWORD Regsvr32(bool unregister) {
    return RunProgram(std::wstring(L"regsvr32.exe /s ") + (unregister ? L"/u " : L"") + L"\"" +
                      BesideThisProgram(L"CorvidEngine.dll") + L"\"");
}

DWORD LocalServer(const wchar_t* command) {
    return RunProgram(L"\"" + BesideThisProgram(L"corvid-engine.exe") + L"\" " + command);
}

} // namespace

bool RegisterOnly(Server server) {
    UnregisterBoth();
    return server == Server::InProcess ? Regsvr32(false) == 0 : LocalServer(L"/RegServer") == 0;
}

void UnregisterBoth() {
    Regsvr32(true);
    LocalServer(L"/UnregServer");
}

HRESULT CreateLikeThePlugIn(REFCLSID clsid, REFIID iid, void** object) {
    *object = nullptr;
    win::ComPtr<IUnknown> unknown;
    HRESULT hr = ::CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IUnknown, unknown.put_void());
    if (SUCCEEDED(hr)) {
        hr = ::OleRun(unknown.get());
    }
    if (SUCCEEDED(hr)) {
        hr = unknown->QueryInterface(iid, object);
    }
    return hr;
}

void WriteNetWorkIni(const std::string& text) {
    std::ofstream out(std::filesystem::path(win::NetWorkIniPath()),
                      std::ios::binary | std::ios::trunc);
    out << text;
}

HRESULT EventSink::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*,
                          UINT*) {
    RecordedEvent event{id, {}, {}, ::GetCurrentThreadId()};
    // Arguments arrive last first.
    for (UINT i = params ? params->cArgs : 0; i-- > 0;) {
        const VARIANT& argument = params->rgvarg[i];
        if (argument.vt == VT_BSTR) {
            event.texts.emplace_back(argument.bstrVal ? argument.bstrVal : L"");
        } else if (argument.vt == VT_I4) {
            event.numbers.push_back(argument.lVal);
        } else if (argument.vt == VT_UNKNOWN || argument.vt == VT_DISPATCH) {
            event.numbers.push_back(argument.punkVal ? 1 : 0);
        }
    }
    events.push_back(std::move(event));
    return S_OK;
}

size_t EventSink::Count(DISPID id) const {
    size_t count = 0;
    for (const auto& event : events) {
        count += event.id == id ? 1 : 0;
    }
    return count;
}

DWORD Advise(IUnknown* source, const IID& events, IUnknown* sink) {
    win::ComPtr<IConnectionPointContainer> container;
    win::ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    if (FAILED(source->QueryInterface(IID_IConnectionPointContainer, container.put_void())) ||
        FAILED(container->FindConnectionPoint(events, point.put())) ||
        FAILED(point->Advise(sink, &cookie))) {
        return 0;
    }
    return cookie;
}

void Unadvise(IUnknown* source, const IID& events, DWORD cookie) {
    win::ComPtr<IConnectionPointContainer> container;
    win::ComPtr<IConnectionPoint> point;
    if (SUCCEEDED(source->QueryInterface(IID_IConnectionPointContainer, container.put_void())) &&
        SUCCEEDED(container->FindConnectionPoint(events, point.put()))) {
        point->Unadvise(cookie);
    }
}

std::vector<std::string> Elements(const std::string& text, const std::string& tag) {
    std::vector<std::string> found;
    const std::string open = "<" + tag + ">";
    const std::string close = "</" + tag + ">";
    size_t at = 0;
    while ((at = text.find(open, at)) != std::string::npos) {
        size_t end = text.find(close, at);
        if (end == std::string::npos) {
            break;
        }
        found.push_back(text.substr(at + open.size(), end - at - open.size()));
        at = end + close.size();
    }
    return found;
}

std::string Narrow(BSTR text) {
    return win::BstrToAnsi(text);
}

} // namespace corvid::testing
