#pragma once

// What the transfer pages' Wine tests share: the sources the fixture script started, a file
// manager that records what it is asked to share, prompts that answer without a modal loop, and
// reading the pages back through their controls.

#include <windows.h>

#include "platform/win/handles.h"
#include "search/result_records.h"
#include "shell/win/panel.h"
#include "tests/wine/support/engine_fakes.h"
#include "tests/wine/support/wine_test_support.h"
#include "transfer/download_ports.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace corvid::transfer::testing {

// The folder a fixture script named in the environment variable (a Unix path), as this program
// sees it; empty when the variable is not set.
std::string FixtureFolderFrom(const char* variable);

// An object of a COM server DLL, made through the DLL's own class factory as COM would make it;
// empty when the DLL has no such class.
template <typename Interface>
corvid::win::ComPtr<Interface> CreateFromDll(HMODULE dll, REFCLSID clsid, REFIID iid) {
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto get = corvid::win::ProcAddress<GetClassObject>(dll, "DllGetClassObject");
    corvid::win::ComPtr<IClassFactory> factory;
    corvid::win::ComPtr<Interface> object;
    if (get && SUCCEEDED(get(clsid, IID_IClassFactory, factory.put_void())))
        factory->CreateInstance(nullptr, iid, object.put_void());
    return object;
}

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

// The Download/Upload options page alone in a modeless sheet owned by the site's main window, as
// the options command shows it; `sheet` is null when it could not be made. The caller destroys
// the sheet.
struct OptionsSheet {
    HWND sheet = nullptr;
    HWND page = nullptr;
};
OptionsSheet OpenDownloadUploadPage(shell::PanelSite& site,
                                    std::function<void(const std::string&)> report);

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
    void ShowFileExists(const std::string& message, const std::string& detail) override {
        fileExists.push_back(message + detail);
    }
    bool answerYes = true;
    std::vector<std::string> questions;
    std::vector<std::string> fileExists;
};

class FakeFileManager : public corvid::testing::FileManagerStub<FakeFileManager> {
public:
    HRESULT STDMETHODCALLTYPE FindBySha1(BSTR, BSTR* path) override {
        *path = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ShareDownload(BSTR path) override;
    HRESULT STDMETHODCALLTYPE get_ShareCompletedDownloads(VARIANT_BOOL* share) override {
        *share = VARIANT_TRUE;
        return S_OK;
    }
    std::vector<std::string> shared;
};

using corvid::testing::FakeSearch;

// The engine as the transfer pages use it: the upload component and searches by SHA1.
class FakeEngine : public corvid::testing::EngineStub<FakeEngine> {
public:
    explicit FakeEngine(IUploadManager* uploads = nullptr) : uploads_(uploads) {}
    HRESULT STDMETHODCALLTYPE CreateSearch(BSTR keywords, BSTR, long, long, long, long,
                                           IGnutellaSearch** search) override;
    HRESULT STDMETHODCALLTYPE GetUploads(IUploadManager** out) override {
        *out = nullptr;
        if (!uploads_)
            return E_NOTIMPL;
        uploads_->AddRef();
        *out = uploads_.get();
        return S_OK;
    }

    // The searches made, by their keywords.
    std::vector<std::pair<std::string, corvid::win::ComPtr<FakeSearch>>> searches;
    FakeSearch* SearchFor(const std::string& keywords) const;

private:
    corvid::win::ComPtr<IUploadManager> uploads_;
};

// A result text of one host offering one file.
std::string ResultFrom(int port, const std::string& name, int size, const std::string& sha1);

// Reading and driving a report list by its column titles.
using corvid::testing::ColumnOf;
using corvid::testing::RowCount;
std::string Cell(HWND list, int row, const std::string& title);
void SelectRow(HWND list, int row, bool alone = true);
std::vector<std::string> TreeTexts(HWND tree);

} // namespace corvid::transfer::testing
