#include "tests/wine/network/loopback_support.h"

#include "network/win/config_paths.h"
#include "tests/wine/support/wine_test_support.h"

#include <fstream>
#include <map>
#include <sstream>

namespace corvid::testing {

namespace {

std::string WindowsPath(const std::string& unixPath) {
    std::string path = unixPath.starts_with("/") ? "Z:" + unixPath : unixPath;
    for (char& c : path) {
        c = c == '/' ? '\\' : c;
    }
    return path;
}

std::wstring BesideThisProgram(const wchar_t* name) {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring program(path, length);
    return program.substr(0, program.find_last_of(L"\\/") + 1) + name;
}

bool FileExists(const std::string& path) {
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

} // namespace

LoopbackNetwork LoadLoopbackNetwork() {
    LoopbackNetwork network;
    char folder[1024] = {};
    const DWORD length = ::GetEnvironmentVariableA("CORVID_TEST_LOOPBACK", folder, sizeof folder);
    if (length == 0 || length >= sizeof folder) {
        return network;
    }
    const std::string base = WindowsPath(folder);
    std::ifstream in(base + "\\network\\network.env");
    std::string line;
    while (std::getline(in, line)) {
        if (!line.starts_with("ULTRAPEERS=")) {
            continue;
        }
        std::string list = line.substr(11);
        if (list.size() >= 2 && list.front() == '\'' && list.back() == '\'') {
            list = list.substr(1, list.size() - 2);
        }
        std::stringstream items(list);
        std::string item;
        while (std::getline(items, item, ',')) {
            network.ultrapeers.push_back(item);
        }
    }
    network.requests = base + "\\requests";
    network.loaded = !network.ultrapeers.empty();
    return network;
}

bool RegisterEngineServer() {
    std::wstring command = L"regsvr32.exe /s \"" + BesideThisProgram(L"CorvidEngine.dll") + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process)) {
        return false;
    }
    win::KernelHandle processHandle(process.hProcess);
    win::KernelHandle threadHandle(process.hThread);
    ::WaitForSingleObject(process.hProcess, 60000);
    DWORD code = 1;
    ::GetExitCodeProcess(process.hProcess, &code);
    return code == 0;
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

win::ComPtr<IGnutellaEngine> StartLoopbackEngine(const LoopbackNetwork& network) {
    std::string bootstrap;
    for (const std::string& host : network.ultrapeers) {
        bootstrap += (bootstrap.empty() ? "" : ",") + host;
    }
    const std::string ini = network::NetworkIniPath();
    ::WritePrivateProfileStringA("NetWork", "NodeMode", "2", ini.c_str());
    ::WritePrivateProfileStringA("NetWork", "Hosts", bootstrap.c_str(), ini.c_str());
    win::ComPtr<IGnutellaEngine> engine;
    if (!RegisterEngineServer() ||
        FAILED(CreateLikeThePlugIn(CLSID_GnutellaEngine, IID_IGnutellaEngine, engine.put_void())) ||
        FAILED(engine->Connect())) {
        return nullptr;
    }
    return engine;
}

std::vector<std::string> PeerSearch(const LoopbackNetwork& network, const std::string& keywords) {
    static int serial = 0;
    const std::string name = network.requests + "\\search-" +
                             std::to_string(::GetCurrentProcessId()) + "-" +
                             std::to_string(++serial);
    {
        std::ofstream request(name + ".part-req", std::ios::binary);
        request << keywords << "\n";
    }
    // Renamed when whole, so the peer never reads half a request.
    ::MoveFileA((name + ".part-req").c_str(), (name + ".req").c_str());
    std::vector<std::string> names;
    if (!PumpUntil([&] { return FileExists(name + ".out"); }, 60000)) {
        return names;
    }
    std::ifstream hits(name + ".out");
    std::string line;
    while (std::getline(hits, line)) {
        // "hit\tip\tport\tindex\tsize\tname\tsha1[\tpush]"
        std::vector<std::string> fields;
        std::stringstream cells(line);
        std::string cell;
        while (std::getline(cells, cell, '\t')) {
            fields.push_back(cell);
        }
        if (fields.size() >= 6 && fields[0] == "hit") {
            names.push_back(fields[5]);
        }
    }
    ::DeleteFileA((name + ".out").c_str());
    return names;
}

} // namespace corvid::testing
