#pragma once

// The engine's COM face: the engine itself (with its events), the search objects it makes for
// searches and browses, and its upload component.

#include "engine/com/engine_core.h"
#include "engine_h.h"
#include "platform/win/com_object.h"
#include "platform/win/connection_point.h"

#include <optional>

namespace corvid::engine {

// What a search object asks for: keywords (or one SHA1), or one host's files.
struct SearchRequest {
    std::string keywords;
    std::string type;
    std::vector<std::string> sha1s;
    std::optional<gnutella::Endpoint> browse;
};

class EngineObject final : public win::ComObject<EngineObject, IGnutellaEngine,
                                                 IConnectionPointContainer, IProvideClassInfo>,
                           public win::ConnectionPoints {
public:
    static HRESULT Create(REFIID iid, void** object) { return CreateObject(iid, object); }
    static const CLSID& ClassId() { return CLSID_GnutellaEngine; }

    EngineObject();
    ~EngineObject() override;

    void FireConnected();
    void FireDisconnected();
    void FireStatus(const std::string& text, int code);

    // IConnectionPointContainer
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }

    // IGnutellaEngine
    HRESULT STDMETHODCALLTYPE Connect() override;
    HRESULT STDMETHODCALLTYPE Disconnect() override;
    HRESULT STDMETHODCALLTYPE CreateSearch(BSTR keywords, BSTR mediaType, long minSpeed,
                                           long minSize, long maxSize, long flags,
                                           IGnutellaSearch** search) override;
    HRESULT STDMETHODCALLTYPE GetSearch(long searchId, IGnutellaSearch** search) override;
    HRESULT STDMETHODCALLTYPE GetNodeCount(long* count) override;
    HRESULT STDMETHODCALLTYPE BrowseHost(BSTR address, IGnutellaSearch** browse) override;
    HRESULT STDMETHODCALLTYPE GetUploads(IUploadManager** uploads) override;
    HRESULT STDMETHODCALLTYPE GetNetworkInfo(BSTR* text) override;
    HRESULT STDMETHODCALLTYPE GetHostsInfo(BSTR* text) override;
    HRESULT STDMETHODCALLTYPE ConnectNode(BSTR address) override;
    HRESULT STDMETHODCALLTYPE DisconnectNode(BSTR nodeId) override;
    HRESULT STDMETHODCALLTYPE ReloadSettings() override;

private:
    HRESULT NewSearch(SearchRequest request, IGnutellaSearch** search);

    std::shared_ptr<EngineCore> core_;
};

// One search or browse. Its answers reach the window that owns it as OnSearchResult events, one
// "searchresult" text per answering host, on the thread that created the engine.
class SearchObject final
    : public win::ComObject<SearchObject, IGnutellaSearch, IConnectionPointContainer>,
      public win::ConnectionPoints {
public:
    SearchObject(std::shared_ptr<EngineCore> core, SearchRequest request);
    ~SearchObject() override;

    void Deliver(const std::string& text);

    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }

    // IGnutellaSearch
    HRESULT STDMETHODCALLTYPE Start() override;
    HRESULT STDMETHODCALLTYPE Restart() override;
    HRESULT STDMETHODCALLTYPE Stop() override;
    HRESULT STDMETHODCALLTYPE get_Id(long* id) override;

private:
    std::shared_ptr<EngineCore> core_;
    SearchRequest request_;
    std::uint32_t id_;
    bool delivering_ = false;
};

class UploadManagerObject final : public win::ComObject<UploadManagerObject, IUploadManager> {
public:
    explicit UploadManagerObject(std::shared_ptr<EngineCore> core) : core_(std::move(core)) {}

    // IUploadManager
    HRESULT STDMETHODCALLTYPE GetUploadsText(BSTR* text) override;
    HRESULT STDMETHODCALLTYPE GetUploadCount(long* count) override;
    HRESULT STDMETHODCALLTYPE StopUpload(long id) override;

private:
    std::shared_ptr<EngineCore> core_;
};

} // namespace corvid::engine
