#include "library/com/shared_library.h"

#include "platform/win/user_folders.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace corvid::library {
namespace fs = std::filesystem;
namespace {

std::string Utf8(const std::wstring& path) {
    const std::u8string text = fs::path(path).u8string();
    return std::string(text.begin(), text.end());
}

std::wstring Wide(const std::string& utf8) {
    return fs::path(std::u8string(utf8.begin(), utf8.end())).wstring();
}

std::wstring InDataFolder(const wchar_t* name) {
    const std::wstring folder = win::CorvidConfigFolder();
    return folder.empty() ? std::wstring() : folder + L"\\" + name;
}

// Folders compare as Windows compares them: without regard to case or a trailing backslash.
std::wstring FolderKey(std::wstring folder) {
    while (folder.size() > 3 && (folder.back() == L'\\' || folder.back() == L'/')) {
        folder.pop_back();
    }
    ::CharLowerBuffW(folder.data(), static_cast<DWORD>(folder.size()));
    return folder;
}

std::mutex g_lock;
std::weak_ptr<SharedLibrary> g_library;

} // namespace

std::shared_ptr<SharedLibrary> SharedLibrary::Acquire() {
    std::lock_guard<std::mutex> guard(g_lock);
    std::shared_ptr<SharedLibrary> library = g_library.lock();
    if (!library) {
        library.reset(new SharedLibrary());
        g_library = library;
    }
    return library;
}

SharedLibrary::SharedLibrary()
    : settingsPath_(InDataFolder(L"Library.txt")), index_(InDataFolder(L"HashCache.txt")),
      hasher_(index_, 50) {
    if (!settingsPath_.empty()) {
        std::ifstream in(fs::path(settingsPath_), std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        settings_ = ParseLibrarySettings(text.str());
    }
    hasher_.SetCpuShare(settings_.cpuPercent);
    ApplyFolders();
    for (const auto& file : settings_.files) {
        index_.AddFile(Wide(file));
    }
}

SharedLibrary::~SharedLibrary() {
    index_.SaveCache();
}

void SharedLibrary::ApplyFolders() {
    std::vector<fs::path> folders;
    for (const auto& folder : settings_.folders) {
        folders.emplace_back(Wide(folder));
    }
    index_.SetSharedFolders(std::move(folders));
}

void SharedLibrary::Save() const {
    if (settingsPath_.empty()) {
        return;
    }
    std::ofstream out(fs::path(settingsPath_), std::ios::binary | std::ios::trunc);
    out << SerializeLibrarySettings(settings_);
}

HRESULT SharedLibrary::AddFolder(const std::wstring& folder) {
    if (folder.empty() || folder.find_first_of(L"\r\n") != std::wstring::npos ||
        folder.size() >= 32767) {
        return E_INVALIDARG;
    }
    const DWORD attributes = ::GetFileAttributesW(folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return HRESULT_FROM_WIN32(::GetLastError());
    }
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        return HRESULT_FROM_WIN32(ERROR_DIRECTORY);
    }
    WIN32_FIND_DATAW found = {};
    HANDLE search = ::FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_FILE_NOT_FOUND) {
            return HRESULT_FROM_WIN32(error);
        }
    } else {
        ::FindClose(search);
    }
    std::error_code ignored;
    const std::wstring absolute = fs::absolute(fs::path(folder), ignored).wstring();
    std::lock_guard<std::mutex> guard(lock_);
    for (const auto& shared : settings_.folders) {
        if (FolderKey(Wide(shared)) == FolderKey(absolute)) {
            return S_FALSE;
        }
    }
    settings_.folders.push_back(Utf8(absolute));
    Save();
    ApplyFolders();
    return S_OK;
}

HRESULT SharedLibrary::RemoveFolder(const std::wstring& folder) {
    std::error_code ignored;
    const std::wstring key = FolderKey(fs::absolute(fs::path(folder), ignored).wstring());
    std::lock_guard<std::mutex> guard(lock_);
    const auto before = settings_.folders.size();
    std::erase_if(settings_.folders,
                  [&](const std::string& shared) { return FolderKey(Wide(shared)) == key; });
    if (settings_.folders.size() == before) {
        return S_FALSE;
    }
    Save();
    ApplyFolders();
    return S_OK;
}

std::vector<std::wstring> SharedLibrary::Folders() const {
    std::lock_guard<std::mutex> guard(lock_);
    std::vector<std::wstring> folders;
    for (const auto& folder : settings_.folders) {
        folders.push_back(Wide(folder));
    }
    return folders;
}

HRESULT SharedLibrary::ShareFile(const std::wstring& file) {
    if (file.empty() || file.find_first_of(L"\r\n") != std::wstring::npos) {
        return E_INVALIDARG;
    }
    const DWORD attributes = ::GetFileAttributesW(file.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return HRESULT_FROM_WIN32(::GetLastError());
    }
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        return E_INVALIDARG;
    }
    if (!index_.AddFile(fs::path(file))) {
        return E_ACCESSDENIED;
    }
    std::error_code ignored;
    const std::string utf8 = Utf8(fs::weakly_canonical(fs::path(file), ignored).wstring());
    std::lock_guard<std::mutex> guard(lock_);
    if (std::find(settings_.files.begin(), settings_.files.end(), utf8) == settings_.files.end()) {
        settings_.files.push_back(utf8);
        Save();
    }
    return S_OK;
}

int SharedLibrary::CpuShare() const {
    std::lock_guard<std::mutex> guard(lock_);
    return settings_.cpuPercent;
}

void SharedLibrary::SetCpuShare(int percent) {
    std::lock_guard<std::mutex> guard(lock_);
    settings_.cpuPercent = std::clamp(percent, 1, 100);
    hasher_.SetCpuShare(settings_.cpuPercent);
    Save();
}

bool SharedLibrary::ShareDownloads() const {
    std::lock_guard<std::mutex> guard(lock_);
    return settings_.shareDownloads;
}

void SharedLibrary::SetShareDownloads(bool share) {
    std::lock_guard<std::mutex> guard(lock_);
    settings_.shareDownloads = share;
    Save();
}

} // namespace corvid::library
