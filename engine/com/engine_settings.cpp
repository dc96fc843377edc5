#include "engine/com/engine_settings.h"

#include "platform/win/module.h"
#include "platform/win/text.h"
#include "platform/win/user_folders.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace corvid::engine {
namespace {

constexpr std::streamsize kMaxIniBytes = 64 * 1024;

std::string ReadSmallFile(const std::wstring& path) {
    std::ifstream in(std::filesystem::path(path), std::ios::binary);
    std::string text(static_cast<std::size_t>(kMaxIniBytes), '\0');
    in.read(text.data(), kMaxIniBytes);
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

std::string Environment(const char* name) {
    char value[4096] = {};
    DWORD length = ::GetEnvironmentVariableA(name, value, sizeof value);
    return length > 0 && length < sizeof value ? std::string(value, length) : std::string();
}

} // namespace

EngineOptions ReadEngineOptions() {
    EngineOptions options;
    const std::wstring iniPath = win::NetWorkIniPath();
    const EngineIni ini = ParseEngineIni(iniPath.empty() ? std::string() : ReadSmallFile(iniPath));
    options.network = ini.network;
    options.behind_firewall = ini.behind_firewall;
    options.upload_port = ini.upload_port;
    options.bootstrap = ini.hosts;
    // A network the user named on private addresses is a private network: its peers' pongs name
    // private addresses too, and those are the only hosts worth keeping.
    for (const auto& host : options.bootstrap) {
        options.allow_private_addresses = options.allow_private_addresses || !host.IsRoutable();
    }
    const std::wstring config = win::CorvidConfigFolder();
    if (!config.empty()) {
        options.host_cache_file =
            win::ToAnsi(config.c_str(), static_cast<int>(config.size())) + "\\HostCache.txt";
    }
    // The cache list an installation ships beside this binary (the DLL or the local server).
    const std::filesystem::path shipped = std::filesystem::path(win::ModulePath()).parent_path();
    if (!shipped.empty()) {
        const std::wstring list = (shipped / L"caches.txt").wstring();
        options.shipped_cache_list = win::ToAnsi(list.c_str(), static_cast<int>(list.size()));
    }
    const std::string bootstrap = Environment("CORVID_ENGINE_BOOTSTRAP");
    ApplyBootstrapVariable(options, bootstrap);
    options.tick = [] { return static_cast<std::uint32_t>(::GetTickCount()); };
    options.upload_limit = ReadUploadLimit;
    return options;
}

std::uint64_t ReadUploadLimit() {
    DWORD value = 0;
    DWORD size = sizeof value;
    if (::RegGetValueW(HKEY_CURRENT_USER, L"Software\\Tarvo Explorer\\HttpServer",
                       L"maxULSpeedLimit", RRF_RT_REG_DWORD, nullptr, &value,
                       &size) != ERROR_SUCCESS) {
        return 0;
    }
    return value;
}

} // namespace corvid::engine
