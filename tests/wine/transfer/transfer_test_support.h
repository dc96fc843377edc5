#pragma once

// What the transfer pages' Wine tests share: the sources the fixture script started, a file
// manager that records what it is asked to share, prompts that answer without a modal loop, and
// reading the pages back through their controls.

#include <windows.h>

#include "engine_h.h"
#include "platform/win/com_object.h"
#include "search/result_records.h"
#include "transfer/download_ports.h"

#include <mutex>
#include <string>
#include <vector>

namespace corvid::transfer::testing {

// The fixture's INI file (CORVID_TRANSFER_FIXTURE names its folder, as a Unix path).
class Fixture {
public:
    Fixture();
    bool Ready() const { return !folder_.empty(); }
    int Port(const char* name) const;
    std::string Sha1(const std::string& file) const;
    int Size(const std::string& file) const;
    // The original of a shared file, and nginx's access log ("port status bytes "range" args").
    std::string SharedFile(const std::string& file) const;
    std::vector<std::string> AccessLog() const;

private:
    std::string folder_;
    std::string ini_;
};

ResultGroup GroupOf(const Fixture& fixture, const std::string& file,
                    std::initializer_list<const char*> ports);

// A fresh, empty folder under the prefix's temporary folder.
std::string FreshFolder(const char* stem);
std::string ReadWholeFile(const std::string& path);
bool FileExists(const std::string& path);

class RecordingPrompts : public UserPrompts {
public:
    bool AskYesNo(const std::string& text, const std::string& caption) override {
        questions.push_back(caption + "|" + text);
        return answerYes;
    }
    void ShowFileExists(const std::string& text) override { fileExists.push_back(text); }
    bool answerYes = true;
    std::vector<std::string> questions;
    std::vector<std::string> fileExists;
};

class FakeFileManager : public corvid::win::ComObject<FakeFileManager, IFileManager> {
public:
    HRESULT STDMETHODCALLTYPE AddSharedFolder(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RemoveSharedFolder(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSharedFolders(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSharedFileCount(long*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindBySha1(BSTR, BSTR* path) override {
        *path = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ShareDownload(BSTR path) override;
    HRESULT STDMETHODCALLTYPE GetLibraryText(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_HashingCpuShare(long*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_HashingCpuShare(long) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_ShareCompletedDownloads(VARIANT_BOOL* share) override {
        *share = VARIANT_TRUE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_ShareCompletedDownloads(VARIANT_BOOL) override {
        return E_NOTIMPL;
    }
    std::vector<std::string> shared;
};

// Reading and driving a report list by its column titles.
int ColumnOf(HWND list, const std::string& title);
int RowCount(HWND list);
std::string Cell(HWND list, int row, const std::string& title);
void SelectRow(HWND list, int row, bool alone = true);
std::vector<std::string> TreeTexts(HWND tree);

} // namespace corvid::transfer::testing
