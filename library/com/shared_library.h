#pragma once

// The one file index of a process, shared by the file manager and the engine (both live in
// CorvidEngine.dll, or both in corvid-engine.exe): the shared folders and single files kept per
// user, background hashing with its CPU share, and the hash cache that spares a restart from
// hashing an unchanged library again.

#include "library/file_index.h"
#include "library/library_settings.h"

#include <windows.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace corvid::library {

class SharedLibrary {
public:
    // The process's library, made on first use and kept while anyone holds it.
    static std::shared_ptr<SharedLibrary> Acquire();

    ~SharedLibrary();
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    FileIndex& index() { return index_; }

    // S_OK, S_FALSE when already shared, or why the folder cannot be shared (missing, not a
    // folder, not readable, a path with line breaks).
    HRESULT AddFolder(const std::wstring& folder);
    // S_FALSE when it was not shared.
    HRESULT RemoveFolder(const std::wstring& folder);
    std::vector<std::wstring> Folders() const;
    // Shares one file (a completed download) from now on.
    HRESULT ShareFile(const std::wstring& file);

    int CpuShare() const;
    void SetCpuShare(int percent);
    bool ShareDownloads() const;
    void SetShareDownloads(bool share);

private:
    SharedLibrary();
    void Save() const;
    void ApplyFolders();

    std::wstring settingsPath_;
    FileIndex index_;
    mutable std::mutex lock_;
    LibrarySettings settings_;
    BackgroundHasher hasher_;
};

} // namespace corvid::library
