#include "network/win/settings_files.h"

#include <windows.h>

#include "platform/win/handles.h"

namespace corvid::network {

namespace {

constexpr char kSettingsKey[] = "Software\\Tarvo Explorer\\P2P View";

// Creates every folder above the file that does not exist yet.
void CreateFolderOf(const std::string& path) {
    for (std::size_t slash = path.find('\\', 3); slash != std::string::npos;
         slash = path.find('\\', slash + 1)) {
        ::CreateDirectoryA(path.substr(0, slash).c_str(), nullptr);
    }
}

} // namespace

std::optional<std::string> ProfileFile::Read(const char* section, const char* key) const {
    // A default no value can have tells a missing key from an empty one.
    static constexpr char kMissing[] = "\x01";
    char buffer[256] = {};
    ::GetPrivateProfileStringA(section, key, kMissing, buffer, sizeof buffer, path_.c_str());
    if (std::string(buffer) == kMissing) {
        return std::nullopt;
    }
    return std::string(buffer);
}

void ProfileFile::Write(const char* section, const char* key, const std::string& value) {
    CreateFolderOf(path_);
    ::WritePrivateProfileStringA(section, key, value.c_str(), path_.c_str());
}

std::optional<int> RegistrySettings::Read(const char* name) const {
    DWORD value = 0;
    DWORD size = sizeof value;
    if (::RegGetValueA(HKEY_CURRENT_USER, kSettingsKey, name, RRF_RT_REG_DWORD, nullptr, &value,
                       &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return static_cast<int>(value);
}

void RegistrySettings::Write(const char* name, int value) {
    win::RegKey key;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, kSettingsKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                          key.put(), nullptr) != ERROR_SUCCESS) {
        return;
    }
    const DWORD data = static_cast<DWORD>(value);
    ::RegSetValueExA(key.get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data),
                     sizeof data);
}

} // namespace corvid::network
