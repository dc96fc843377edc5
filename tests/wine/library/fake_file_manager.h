#pragma once

// A file manager whose folders and files the test sets; it fires OnLibraryChanged when asked to.

#include "engine_h.h"
#include "platform/win/com_object.h"
#include "platform/win/connection_point.h"
#include "platform/win/text.h"

#include <algorithm>
#include <string>
#include <vector>

namespace corvid::testing {

class FakeFileManager final
    : public win::ComObject<FakeFileManager, IFileManager, IConnectionPointContainer>,
      public win::ConnectionPoints {
public:
    FakeFileManager() : ConnectionPoints(Identity(), {DIID__IFileManagerEvents}) {}
    ~FakeFileManager() override { DisconnectAll(); }

    struct File {
        std::string name;
        std::string path;
        unsigned long long size = 0;
        std::string sha1;
        int progress = 0;
        bool download = false;
    };
    std::vector<std::string> folders;
    std::vector<File> files;
    std::vector<std::string> added;
    std::vector<std::string> removed;
    long cpuShare = 25;
    bool shareDownloads = true;
    int textReads = 0;

    void Changed() { Fire(DIID__IFileManagerEvents, 1); }

    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }

    HRESULT STDMETHODCALLTYPE AddSharedFolder(BSTR path) override {
        added.push_back(win::BstrToAnsi(path));
        folders.push_back(added.back());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE RemoveSharedFolder(BSTR path) override {
        removed.push_back(win::BstrToAnsi(path));
        folders.erase(std::remove(folders.begin(), folders.end(), removed.back()), folders.end());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSharedFolders(BSTR* text) override {
        std::string all;
        for (const auto& folder : folders) {
            all += folder + "\r\n";
        }
        *text = ::SysAllocString(win::ToWide(all).c_str());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSharedFileCount(long* count) override {
        *count = static_cast<long>(std::count_if(files.begin(), files.end(),
                                                 [](const File& f) { return !f.sha1.empty(); }));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindBySha1(BSTR, BSTR* path) override {
        *path = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ShareDownload(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetLibraryText(BSTR* text) override {
        ++textReads;
        std::string all = "<library>";
        for (const File& f : files) {
            all += "<file><name>" + f.name + "</name><path>" + f.path + "</path><size>" +
                   std::to_string(f.size) + "</size><sha1>" + f.sha1 + "</sha1><progress>" +
                   std::to_string(f.progress) + "</progress><download>" + (f.download ? "1" : "0") +
                   "</download></file>";
        }
        all += "</library>";
        *text = ::SysAllocString(win::ToWide(all).c_str());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_HashingCpuShare(long* percent) override {
        *percent = cpuShare;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_HashingCpuShare(long percent) override {
        cpuShare = percent;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_ShareCompletedDownloads(VARIANT_BOOL* share) override {
        *share = shareDownloads ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_ShareCompletedDownloads(VARIANT_BOOL share) override {
        shareDownloads = share != VARIANT_FALSE;
        return S_OK;
    }
};

} // namespace corvid::testing
