#pragma once

// What the transfer pages' Wine tests share: the sources the fixture script started, a file
// manager that records what it is asked to share, prompts that answer without a modal loop, and
// reading the pages back through their controls.

#include <windows.h>

#include "engine_h.h"
#include "platform/win/com_object.h"
#include "platform/win/connection_point.h"
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

// A search object as the engine hands one out: it records Start and Restart, and the test fires
// its result texts.
class FakeSearch
    : public corvid::win::ComObject<FakeSearch, IGnutellaSearch, IConnectionPointContainer>,
      public corvid::win::ConnectionPoints {
public:
    FakeSearch() : ConnectionPoints(Identity(), {DIID__IGnutellaSearchEvents}) {}
    ~FakeSearch() override { DisconnectAll(); }
    HRESULT STDMETHODCALLTYPE Start() override {
        ++starts;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Restart() override {
        ++starts;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Stop() override {
        stopped = true;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Id(long* id) override {
        *id = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }
    // One "searchresult" text, as OnSearchResult delivers it.
    void Answer(const std::string& text);
    int starts = 0;
    bool stopped = false;
};

// The engine as the transfer pages use it: the upload component and searches by SHA1.
class FakeEngine : public corvid::win::ComObject<FakeEngine, IGnutellaEngine> {
public:
    explicit FakeEngine(IUploadManager* uploads = nullptr) : uploads_(uploads) {}
    HRESULT STDMETHODCALLTYPE Connect() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Disconnect() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateSearch(BSTR keywords, BSTR, long, long, long, long,
                                           IGnutellaSearch** search) override;
    HRESULT STDMETHODCALLTYPE GetSearch(long, IGnutellaSearch**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetNodeCount(long*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BrowseHost(BSTR, IGnutellaSearch**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetUploads(IUploadManager** out) override {
        if (!uploads_)
            return E_NOTIMPL;
        uploads_->AddRef();
        *out = uploads_.get();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNetworkInfo(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHostsInfo(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectNode(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DisconnectNode(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReloadSettings() override { return E_NOTIMPL; }

    // The searches made, by their keywords.
    std::vector<std::pair<std::string, corvid::win::ComPtr<FakeSearch>>> searches;
    FakeSearch* SearchFor(const std::string& keywords) const;

private:
    corvid::win::ComPtr<IUploadManager> uploads_;
};

// A result text of one host offering one file.
std::string ResultFrom(int port, const std::string& name, int size, const std::string& sha1);

// Reading and driving a report list by its column titles.
int ColumnOf(HWND list, const std::string& title);
int RowCount(HWND list);
std::string Cell(HWND list, int row, const std::string& title);
void SelectRow(HWND list, int row, bool alone = true);
std::vector<std::string> TreeTexts(HWND tree);

} // namespace corvid::transfer::testing
