#pragma once

// Stand-ins for the engine's search object and the file manager, for driving a result window
// without an engine: the search object fires whatever texts a test hands it.

#include <windows.h>

#include "engine_h.h"
#include "platform/win/com_object.h"
#include "platform/win/connection_point.h"
#include "platform/win/text.h"
#include "search/win/search_window.h"

#include <map>
#include <string>
#include <vector>

namespace corvid::testing {

class FakeSearch : public win::ComObject<FakeSearch, IGnutellaSearch, IConnectionPointContainer>,
                   public win::ConnectionPoints {
public:
    FakeSearch() : ConnectionPoints(Identity(), {DIID__IGnutellaSearchEvents}) {}

    // One OnSearchResult event, as the engine fires it.
    void Deliver(const std::string& text) {
        win::Bstr bstr(win::ToWide(text).c_str());
        Fire(DIID__IGnutellaSearchEvents, 1, {win::Arg(bstr.get())});
    }
    size_t Listeners() const { return SinkCount(DIID__IGnutellaSearchEvents); }

    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }
    HRESULT STDMETHODCALLTYPE Start() override {
        ++starts;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Restart() override {
        ++restarts;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Stop() override {
        ++stops;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Id(long* id) override {
        *id = 7;
        return S_OK;
    }

    int starts = 0;
    int restarts = 0;
    int stops = 0;
};

// An engine that only searches and browses: both hand out a FakeSearch and remember what they
// were asked.
class FakeEngine : public win::ComObject<FakeEngine, IGnutellaEngine> {
public:
    HRESULT STDMETHODCALLTYPE Connect() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Disconnect() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE CreateSearch(BSTR keywords, BSTR type, long, long, long, long,
                                           IGnutellaSearch** search) override {
        searched.push_back(win::BstrToAnsi(keywords) + "/" + win::BstrToAnsi(type));
        lastSearch = FakeSearch::Make();
        lastSearch->AddRef();
        *search = lastSearch.get();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSearch(long, IGnutellaSearch** search) override {
        *search = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE GetNodeCount(long* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BrowseHost(BSTR address, IGnutellaSearch** browse) override {
        browsed.push_back(win::BstrToAnsi(address));
        lastBrowse = FakeSearch::Make();
        lastBrowse->AddRef();
        *browse = lastBrowse.get();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetUploads(IUploadManager** uploads) override {
        *uploads = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetNetworkInfo(BSTR* text) override {
        *text = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetHostsInfo(BSTR* text) override {
        *text = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ConnectNode(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE DisconnectNode(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ReloadSettings() override { return S_OK; }

    std::vector<std::string> searched;
    win::ComPtr<FakeSearch> lastSearch;
    std::vector<std::string> browsed;
    win::ComPtr<FakeSearch> lastBrowse;
};

class FakeFileManager : public win::ComObject<FakeFileManager, IFileManager> {
public:
    HRESULT STDMETHODCALLTYPE AddSharedFolder(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE RemoveSharedFolder(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetSharedFolders(BSTR* folders) override {
        *folders = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSharedFileCount(long* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindBySha1(BSTR sha1, BSTR* path) override {
        asked.push_back(win::BstrToAnsi(sha1));
        auto found = onDisk.find(asked.back());
        *path =
            found == onDisk.end() ? nullptr : ::SysAllocString(win::ToWide(found->second).c_str());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ShareDownload(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetLibraryText(BSTR* text) override {
        *text = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_HashingCpuShare(long* percent) override {
        *percent = 50;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_HashingCpuShare(long) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE get_ShareCompletedDownloads(VARIANT_BOOL* share) override {
        *share = VARIANT_FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_ShareCompletedDownloads(VARIANT_BOOL) override { return S_OK; }

    std::map<std::string, std::string> onDisk;
    std::vector<std::string> asked;
};

// The window's dialogs, recorded instead of shown.
struct DialogLog {
    std::vector<std::string> alreadyOnDisk;
    std::vector<std::pair<std::string, int>> properties; // group SHA1, source index
};

class RecordingDialogs : public search::ResultDialogs {
public:
    explicit RecordingDialogs(DialogLog& log) : log_(log) {}
    void AlreadyOnDisk(HWND, const std::string& path) override {
        log_.alreadyOnDisk.push_back(path);
    }
    void Properties(HWND, const ResultGroup& group, int sourceIndex) override {
        log_.properties.emplace_back(group.sha1, sourceIndex);
    }

private:
    DialogLog& log_;
};

} // namespace corvid::testing
