#include "transfer/win/source_search.h"

#include "platform/win/com_object.h"
#include "platform/win/text.h"
#include "search/search_result_reader.h"

#include "engine_h.h"

#include <ocidl.h>

#include <algorithm>
#include <cctype>

namespace corvid::transfer::win {
namespace {

bool SameText(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::toupper(static_cast<unsigned char>(x)) ==
                      std::toupper(static_cast<unsigned char>(y));
           });
}

// The search's event sink: _IGnutellaSearchEvents through IDispatch, DISPID 1 with the text.
class SearchSink : public corvid::win::ComObject<SearchSink, IDispatch> {
public:
    SearchSink(std::string sha1, const SourceSearches::HitHandler& onHit)
        : sha1_(std::move(sha1)), onHit_(onHit) {}

    void* QueryMore(REFIID iid) {
        return IsEqualIID(iid, DIID__IGnutellaSearchEvents) ? static_cast<IDispatch*>(this)
                                                            : nullptr;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        if (!count)
            return E_POINTER;
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                     EXCEPINFO*, UINT*) override {
        return corvid::win::ComBoundary([&] {
            if (id != 1 || !params || params->cArgs != 1 || params->rgvarg[0].vt != VT_BSTR)
                return S_OK;
            const auto text = corvid::win::BstrToAnsi(params->rgvarg[0].bstrVal);
            ReadResultFiles(text, [&](ParsedResult& result) {
                if (SameText(result.sha1, sha1_))
                    onHit_(sha1_, result.source);
            });
            return S_OK;
        });
    }

private:
    std::string sha1_;
    // The searches' owner outlives every sink it advised: it unadvises them before it goes.
    const SourceSearches::HitHandler& onHit_;
};

} // namespace

SourceSearches::SourceSearches(HitHandler onHit) : onHit_(std::move(onHit)) {}

SourceSearches::~SourceSearches() {
    StopAllBut([](const std::string&) { return false; });
}

void SourceSearches::Stop(Running& running) {
    if (running.point && running.cookie)
        running.point->Unadvise(running.cookie);
    if (running.search)
        running.search->Stop();
}

bool SourceSearches::Ask(IGnutellaEngine* engine, const std::string& sha1) {
    if (const auto found = running_.find(sha1); found != running_.end())
        return SUCCEEDED(found->second.search->Restart());
    if (!engine)
        return false;
    Running running;
    corvid::win::Bstr keywords(corvid::win::ToWide("urn:sha1:" + sha1).c_str());
    corvid::win::Bstr type(L"");
    if (FAILED(
            engine->CreateSearch(keywords.get(), type.get(), 0, 0, 0, 1, running.search.put())) ||
        !running.search)
        return false;
    corvid::win::ComPtr<IConnectionPointContainer> container;
    if (SUCCEEDED(running.search.As(IID_IConnectionPointContainer, container)) &&
        SUCCEEDED(
            container->FindConnectionPoint(DIID__IGnutellaSearchEvents, running.point.put()))) {
        const auto sink = SearchSink::Make(sha1, onHit_);
        if (FAILED(running.point->Advise(sink.get(), &running.cookie)))
            running.cookie = 0;
    }
    if (FAILED(running.search->Start())) {
        Stop(running);
        return false;
    }
    running_.emplace(sha1, std::move(running));
    return true;
}

void SourceSearches::StopAllBut(const std::function<bool(const std::string&)>& keep) {
    for (auto it = running_.begin(); it != running_.end();) {
        if (keep(it->first)) {
            ++it;
            continue;
        }
        Stop(it->second);
        it = running_.erase(it);
    }
}

} // namespace corvid::transfer::win
