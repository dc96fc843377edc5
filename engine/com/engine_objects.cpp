#include "engine/com/engine_objects.h"

#include <cctype>

namespace corvid::engine {
namespace {

// Longer than any query a peer would pass on; a longer text is a mistake, not a search.
constexpr std::size_t kMaxKeywords = 512;
constexpr std::size_t kMaxType = 32;
constexpr std::string_view kSha1Urn = "urn:sha1:";

// Operations that need the network while the engine is offline.
const HRESULT kNotConnected = HRESULT_FROM_WIN32(ERROR_NOT_CONNECTED);

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           gnutella::EqualsIgnoreCase(text.substr(0, prefix.size()), prefix);
}

// Base32 as Gnutella writes SHA1s: 32 letters A-Z and digits 2-7 (either case).
std::optional<std::string> Sha1Base32(std::string_view text) {
    if (text.size() != 32) {
        return std::nullopt;
    }
    std::string upper;
    for (char c : text) {
        const char u = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        if (!((u >= 'A' && u <= 'Z') || (u >= '2' && u <= '7'))) {
            return std::nullopt;
        }
        upper += u;
    }
    return upper;
}

HRESULT ReturnText(const std::string& text, BSTR* out) {
    *out = Utf8ToBstr(text);
    return *out ? S_OK : E_OUTOFMEMORY;
}

} // namespace

EngineObject::EngineObject()
    : ConnectionPoints(Identity(), {DIID__IGnutellaEngineEvents}), core_(EngineCore::Make()) {
    core_->Attach(this);
}

EngineObject::~EngineObject() {
    core_->Detach();
    core_->Disconnect();
    DisconnectAll();
}

void EngineObject::FireConnected() {
    win::ComPtr<EngineObject> alive(this);
    Fire(DIID__IGnutellaEngineEvents, 1);
}

void EngineObject::FireDisconnected() {
    win::ComPtr<EngineObject> alive(this);
    Fire(DIID__IGnutellaEngineEvents, 2);
}

void EngineObject::FireStatus(const std::string& text, int code) {
    win::ComPtr<EngineObject> alive(this);
    win::Bstr message(Utf8ToBstr(text));
    Fire(DIID__IGnutellaEngineEvents, 3, {win::Arg(message.get()), win::Arg(long{code})});
}

HRESULT EngineObject::Connect() {
    return win::ComBoundary([&] { return core_->Connect(); });
}

HRESULT EngineObject::Disconnect() {
    return win::ComBoundary([&] {
        if (!core_->Disconnect()) {
            return S_FALSE;
        }
        // Said before returning: once Disconnect is back, the engine says nothing more.
        FireDisconnected();
        return S_OK;
    });
}

HRESULT EngineObject::NewSearch(SearchRequest request, IGnutellaSearch** search) {
    auto object = SearchObject::Make(core_, std::move(request));
    win::ComPtr<EngineObject> alive(this);
    Fire(DIID__IGnutellaEngineEvents, 4, {win::Arg(static_cast<IUnknown*>(object->Identity()))});
    *search = object.detach();
    return S_OK;
}

// The three numbers (least speed, least and most size) and the flag are the plug-in's fixed 0, 0,
// 0 and 1: peers filter nothing by them today, so they are accepted and not used.
HRESULT EngineObject::CreateSearch(BSTR keywords, BSTR mediaType, long, long, long, long,
                                   IGnutellaSearch** search) {
    return win::ComBoundary([&] {
        if (!search) {
            return E_POINTER;
        }
        *search = nullptr;
        if (!keywords || ::SysStringLen(keywords) == 0 || ::SysStringLen(keywords) > kMaxKeywords ||
            (mediaType && ::SysStringLen(mediaType) > kMaxType)) {
            return E_INVALIDARG;
        }
        SearchRequest request;
        const std::string text = BstrToUtf8(keywords);
        request.type = BstrToUtf8(mediaType);
        if (request.type.empty()) {
            request.type = "All";
        }
        if (StartsWithIgnoringCase(text, kSha1Urn)) {
            auto sha1 = Sha1Base32(text.substr(kSha1Urn.size()));
            if (!sha1) {
                return E_INVALIDARG;
            }
            request.sha1s.push_back(*sha1);
        } else {
            if (gnutella::TrimSpaces(text).empty()) {
                return E_INVALIDARG;
            }
            request.keywords = text;
        }
        return NewSearch(std::move(request), search);
    });
}

HRESULT EngineObject::GetSearch(long searchId, IGnutellaSearch** search) {
    return win::ComBoundary([&] {
        if (!search) {
            return E_POINTER;
        }
        *search = nullptr;
        SearchObject* found = core_->FindSearch(static_cast<std::uint32_t>(searchId));
        if (!found) {
            return E_INVALIDARG;
        }
        return found->QueryInterface(IID_IGnutellaSearch, reinterpret_cast<void**>(search));
    });
}

HRESULT EngineObject::GetNodeCount(long* count) {
    if (!count) {
        return E_POINTER;
    }
    *count = core_->service().NodeCount();
    return S_OK;
}

HRESULT EngineObject::BrowseHost(BSTR address, IGnutellaSearch** browse) {
    return win::ComBoundary([&] {
        if (!browse) {
            return E_POINTER;
        }
        *browse = nullptr;
        if (!address || ::SysStringLen(address) > 256) {
            return E_INVALIDARG;
        }
        auto host = ParseUserAddress(BstrToUtf8(address));
        if (!host) {
            return E_INVALIDARG;
        }
        SearchRequest request;
        request.type = "BrowseHost";
        request.browse = *host;
        return NewSearch(std::move(request), browse);
    });
}

HRESULT EngineObject::GetUploads(IUploadManager** uploads) {
    return win::ComBoundary([&] {
        if (!uploads) {
            return E_POINTER;
        }
        *uploads = UploadManagerObject::Make(core_).detach();
        return S_OK;
    });
}

HRESULT EngineObject::GetNetworkInfo(BSTR* text) {
    return win::ComBoundary([&] {
        if (!text) {
            return E_POINTER;
        }
        *text = nullptr;
        return ReturnText(core_->service().InfoText(), text);
    });
}

HRESULT EngineObject::GetHostsInfo(BSTR* text) {
    return win::ComBoundary([&] {
        if (!text) {
            return E_POINTER;
        }
        *text = nullptr;
        return ReturnText(core_->service().HostsText(), text);
    });
}

HRESULT EngineObject::ConnectNode(BSTR address) {
    return win::ComBoundary([&] {
        if (!address || ::SysStringLen(address) > 256) {
            return E_INVALIDARG;
        }
        // The user's own choice is dialled even on a private or loopback address: the filter
        // of private addresses is for hosts learnt from peers.
        auto host = ParseUserAddress(BstrToUtf8(address));
        if (!host) {
            return E_INVALIDARG;
        }
        return core_->service().ConnectNode(*host) ? S_OK : kNotConnected;
    });
}

HRESULT EngineObject::DisconnectNode(BSTR nodeId) {
    return win::ComBoundary([&] {
        const std::string text(gnutella::TrimSpaces(BstrToUtf8(nodeId)));
        if (text.empty() || text.size() > 10 ||
            text.find_first_not_of("0123456789") != std::string::npos) {
            return E_INVALIDARG;
        }
        const unsigned long long id = std::stoull(text);
        if (!core_->service().running()) {
            return kNotConnected;
        }
        return core_->service().DisconnectNode(static_cast<gnutella::PeerId>(id)) ? S_OK
                                                                                  : E_INVALIDARG;
    });
}

HRESULT EngineObject::ReloadSettings() {
    return win::ComBoundary([&] { return core_->ReloadSettings(); });
}

SearchObject::SearchObject(std::shared_ptr<EngineCore> core, SearchRequest request)
    : ConnectionPoints(Identity(), {DIID__IGnutellaSearchEvents}), core_(std::move(core)),
      request_(std::move(request)), id_(core_->AddSearch(this)) {}

SearchObject::~SearchObject() {
    core_->RemoveSearch(id_);
    core_->service().StopSearch(id_);
    DisconnectAll();
}

void SearchObject::Deliver(const std::string& text) {
    if (!delivering_) {
        return;
    }
    win::ComPtr<SearchObject> alive(this);
    win::Bstr result(Utf8ToBstr(text));
    Fire(DIID__IGnutellaSearchEvents, 1, {win::Arg(result.get())});
}

HRESULT SearchObject::Start() {
    return win::ComBoundary([&] {
        EngineService& service = core_->service();
        const bool sent = request_.browse ? service.Browse(id_, *request_.browse)
                                          : service.StartSearch(id_, request_.keywords,
                                                                request_.type, request_.sha1s);
        if (!sent) {
            return kNotConnected;
        }
        delivering_ = true;
        return S_OK;
    });
}

HRESULT SearchObject::Restart() {
    return Start();
}

HRESULT SearchObject::Stop() {
    delivering_ = false;
    core_->service().StopSearch(id_);
    return S_OK;
}

HRESULT SearchObject::get_Id(long* id) {
    if (!id) {
        return E_POINTER;
    }
    *id = static_cast<long>(id_);
    return S_OK;
}

HRESULT UploadManagerObject::GetUploadsText(BSTR* text) {
    return win::ComBoundary([&] {
        if (!text) {
            return E_POINTER;
        }
        *text = nullptr;
        return ReturnText(core_->service().UploadsText(), text);
    });
}

HRESULT UploadManagerObject::GetUploadCount(long* count) {
    if (!count) {
        return E_POINTER;
    }
    *count = static_cast<long>(core_->service().uploads().Count());
    return S_OK;
}

HRESULT UploadManagerObject::StopUpload(long id) {
    return win::ComBoundary([&] {
        return core_->service().uploads().Stop(static_cast<std::int32_t>(id)) ? S_OK : E_INVALIDARG;
    });
}

} // namespace corvid::engine
