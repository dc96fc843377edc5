#include "transfer/win/transfer_settings.h"

#include "platform/win/handles.h"
#include "transfer/safe_file_name.h"

#include <shlobj.h>

namespace corvid::transfer::win {
namespace {

constexpr std::uint32_t kTextFolderMissing = 33130;
constexpr std::uint32_t kTextFolderNotWritable = 33131;

std::string ShellFolder(int csidl) {
    char path[MAX_PATH] = {};
    if (FAILED(::SHGetFolderPathA(nullptr, csidl | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT,
                                  path)))
        return {};
    return path;
}

bool IsFolder(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

} // namespace

std::optional<std::uint32_t> ReadDword(const char* key, const char* value) {
    DWORD data = 0;
    DWORD size = sizeof data;
    if (::RegGetValueA(HKEY_CURRENT_USER, key, value, RRF_RT_REG_DWORD, nullptr, &data, &size) !=
        ERROR_SUCCESS)
        return std::nullopt;
    return data;
}

bool WriteDword(const char* key, const char* value, std::uint32_t data) {
    corvid::win::RegKey handle;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, key, 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                          handle.put(), nullptr) != ERROR_SUCCESS)
        return false;
    const DWORD dword = data;
    return ::RegSetValueExA(handle.get(), value, 0, REG_DWORD,
                            reinterpret_cast<const BYTE*>(&dword), sizeof dword) == ERROR_SUCCESS;
}

std::optional<std::string> ReadText(const char* key, const char* value) {
    char data[MAX_PATH * 2] = {};
    DWORD size = sizeof data;
    if (::RegGetValueA(HKEY_CURRENT_USER, key, value, RRF_RT_REG_SZ, nullptr, data, &size) !=
        ERROR_SUCCESS)
        return std::nullopt;
    return std::string(data);
}

bool WriteText(const char* key, const char* value, const std::string& data) {
    corvid::win::RegKey handle;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, key, 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                          handle.put(), nullptr) != ERROR_SUCCESS)
        return false;
    return ::RegSetValueExA(handle.get(), value, 0, REG_SZ,
                            reinterpret_cast<const BYTE*>(data.c_str()),
                            static_cast<DWORD>(data.size() + 1)) == ERROR_SUCCESS;
}

bool AutoResume() {
    return ReadDword(kP2PViewKey, kAutoResumeValue).value_or(1) != 0;
}

std::string BaseFolder() {
    return JoinFolder(ShellFolder(CSIDL_PERSONAL), "Corvid");
}

// A stored folder that is not a full path (a hand-edited value) would move with the browser's
// current folder; the default serves better.
std::string DownloadFolder() {
    const auto stored = ReadText(kP2PViewKey, kDownloadFolderValue);
    return stored && IsFullFolderPath(*stored) ? *stored : DefaultDownloadFolder(BaseFolder());
}

std::string TempFolder() {
    const auto stored = ReadText(kP2PViewKey, kTempFolderValue);
    return stored && IsFullFolderPath(*stored) ? *stored : DefaultTempFolder(BaseFolder());
}

std::string DownloadListFile() {
    return JoinFolder(JoinFolder(ShellFolder(CSIDL_APPDATA), "Corvid"), "Downloads.xml");
}

std::uint32_t FolderProblem(const std::string& folder) {
    if (folder.empty() || !IsFolder(folder))
        return kTextFolderMissing;
    // Writing is the only sure test: attributes and access lists both miss cases (read-only
    // media, shares, Wine's mapping of Unix rights).
    char probe[MAX_PATH] = {};
    if (::GetTempFileNameA(folder.c_str(), "crv", 0, probe) == 0)
        return kTextFolderNotWritable;
    ::DeleteFileA(probe);
    return 0;
}

bool EnsureFolder(const std::string& folder) {
    if (folder.empty())
        return false;
    if (IsFolder(folder))
        return true;
    const auto cut = folder.find_last_of("\\/");
    if (cut != std::string::npos && cut > 2)
        EnsureFolder(folder.substr(0, cut));
    return ::CreateDirectoryA(folder.c_str(), nullptr) || IsFolder(folder);
}

} // namespace corvid::transfer::win
