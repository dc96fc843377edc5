#pragma once

// The parts every Wine test's stand-in engine shares: a search object that records what it is
// told and fires the texts a test hands it, and the engine and file-manager interfaces answering
// E_NOTIMPL, so that each test's fake writes only the operations its test asks about.

#include <windows.h>

#include "engine_h.h"
#include "platform/win/com_object.h"
#include "platform/win/connection_point.h"
#include "platform/win/text.h"

#include <string>

namespace corvid::testing {

class FakeSearch : public win::ComObject<FakeSearch, IGnutellaSearch, IConnectionPointContainer>,
                   public win::ConnectionPoints {
public:
    FakeSearch() : ConnectionPoints(Identity(), {DIID__IGnutellaSearchEvents}) {}
    ~FakeSearch() override { DisconnectAll(); }

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

template <typename Self, typename... More>
class EngineStub : public win::ComObject<Self, IGnutellaEngine, More...> {
public:
    HRESULT STDMETHODCALLTYPE Connect() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Disconnect() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateSearch(BSTR, BSTR, long, long, long, long,
                                           IGnutellaSearch** search) override {
        *search = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetSearch(long, IGnutellaSearch** search) override {
        *search = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetNodeCount(long* count) override {
        *count = 0;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE BrowseHost(BSTR, IGnutellaSearch** browse) override {
        *browse = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetUploads(IUploadManager** uploads) override {
        *uploads = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetNetworkInfo(BSTR* text) override {
        *text = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetHostsInfo(BSTR* text) override {
        *text = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ConnectNode(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DisconnectNode(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReloadSettings() override { return E_NOTIMPL; }
};

template <typename Self> class FileManagerStub : public win::ComObject<Self, IFileManager> {
public:
    HRESULT STDMETHODCALLTYPE AddSharedFolder(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RemoveSharedFolder(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSharedFolders(BSTR* folders) override {
        *folders = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetSharedFileCount(long* count) override {
        *count = 0;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE FindBySha1(BSTR, BSTR* path) override {
        *path = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ShareDownload(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetLibraryText(BSTR* text) override {
        *text = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_HashingCpuShare(long* percent) override {
        *percent = 0;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE put_HashingCpuShare(long) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_ShareCompletedDownloads(VARIANT_BOOL* share) override {
        *share = VARIANT_FALSE;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE put_ShareCompletedDownloads(VARIANT_BOOL) override {
        return E_NOTIMPL;
    }
};

} // namespace corvid::testing
