#include "platform/win/user_folders.h"

#include <shlobj.h>
#include <windows.h>

namespace corvid::win {

std::wstring CorvidDataFolder() {
    wchar_t path[MAX_PATH] = {};
    if (FAILED(::SHGetFolderPathW(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr,
                                  SHGFP_TYPE_CURRENT, path))) {
        return {};
    }
    std::wstring folder = std::wstring(path) + L"\\Corvid";
    ::CreateDirectoryW(folder.c_str(), nullptr);
    return folder;
}

std::wstring CorvidConfigFolder() {
    std::wstring base = CorvidDataFolder();
    if (base.empty()) {
        return {};
    }
    std::wstring folder = base + L"\\Config";
    ::CreateDirectoryW(folder.c_str(), nullptr);
    return folder;
}

std::wstring NetWorkIniPath() {
    std::wstring config = CorvidConfigFolder();
    return config.empty() ? std::wstring() : config + L"\\NetWork.ini";
}

} // namespace corvid::win
