#include "network/win/config_paths.h"

#include <windows.h>

#include "platform/win/text.h"
#include "platform/win/user_folders.h"

namespace corvid::network {

std::string NetworkIniPath() {
    char buffer[MAX_PATH] = {};
    const DWORD length = ::GetEnvironmentVariableA("CORVID_CONFIG_BASE", buffer, sizeof buffer);
    if (length > 0 && length < sizeof buffer) {
        return std::string(buffer) + "\\Config\\NetWork.ini";
    }
    const std::wstring path = win::NetWorkIniPath();
    return win::ToAnsi(path.c_str(), static_cast<int>(path.size()));
}

} // namespace corvid::network
