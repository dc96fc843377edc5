#include "network/win/config_paths.h"

#include <shlobj.h>
#include <windows.h>

namespace corvid::network {

std::string ConfigBaseFolder() {
    char buffer[MAX_PATH] = {};
    const DWORD length = ::GetEnvironmentVariableA("CORVID_CONFIG_BASE", buffer, sizeof buffer);
    if (length > 0 && length < sizeof buffer) {
        return buffer;
    }
    if (FAILED(::SHGetFolderPathA(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, buffer))) {
        return {};
    }
    return std::string(buffer) + "\\Corvid";
}

std::string NetworkIniPath() {
    return ConfigBaseFolder() + "\\Config\\NetWork.ini";
}

} // namespace corvid::network
