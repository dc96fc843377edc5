#pragma once

// A stand-in for the Gnutella engine that counts every call and fires the events a test asks
// for: the engine component is a separate program, and the main view's connection logic must be
// checked against exact call counts.

#include "platform/win/connection_point.h"
#include "tests/wine/support/engine_fakes.h"

#include <string>
#include <vector>

namespace corvid::testing {

class FakeEngine final : public EngineStub<FakeEngine, IConnectionPointContainer>,
                         public win::ConnectionPoints {
public:
    FakeEngine() : ConnectionPoints(Identity(), {DIID__IGnutellaEngineEvents}) {}

    // The events a real engine sends when it has joined the network.
    bool announceOnConnect = false;

    int connects = 0;
    int disconnects = 0;
    int nodeCountCalls = 0;
    int uploadCalls = 0;
    int infoCalls = 0;
    long nodes = 0;
    HRESULT connectResult = S_OK;
    std::vector<std::wstring> searches; // "keywords|type|a,b,c,flag"
    win::ComPtr<FakeSearch> lastSearch;

    HRESULT STDMETHODCALLTYPE Connect() override {
        ++connects;
        if (SUCCEEDED(connectResult) && announceOnConnect) {
            Fire(DIID__IGnutellaEngineEvents, 1);
            win::Bstr text(L"Connected to 3 ultrapeers");
            Fire(DIID__IGnutellaEngineEvents, 3, {win::Arg(text.get()), win::Arg(0L)});
        }
        return connectResult;
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override {
        ++disconnects;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CreateSearch(BSTR keywords, BSTR type, LONG minSpeed, LONG minSize,
                                           LONG maxSize, LONG flags,
                                           IGnutellaSearch** search) override {
        searches.push_back(std::wstring(keywords ? keywords : L"") + L"|" + (type ? type : L"") +
                           L"|" + std::to_wstring(minSpeed) + L"," + std::to_wstring(minSize) +
                           L"," + std::to_wstring(maxSize) + L"," + std::to_wstring(flags));
        lastSearch = FakeSearch::Make();
        *search = lastSearch.get();
        lastSearch->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNodeCount(LONG* count) override {
        ++nodeCountCalls;
        *count = nodes;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetUploads(IUploadManager** uploads) override {
        ++uploadCalls;
        *uploads = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNetworkInfo(BSTR* text) override {
        ++infoCalls;
        *text = ::SysAllocString(
            L"<info><Mode>Leaf</Mode><Address>127.0.0.1:6346</Address>"
            L"<Firewalled>0</Firewalled><Connections>3</Connections><Ultrapeers>3</Ultrapeers>"
            L"<Leaves>0</Leaves><SharedFiles>42</SharedFiles><SharedKB>183500</SharedKB>"
            L"<Uploads>1</Uploads><Uptime>4500</Uptime><UserAgent>Corvid/0.1</UserAgent></info>");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetHostsInfo(BSTR* text) override {
        *text = ::SysAllocString(L"");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ConnectNode(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE DisconnectNode(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ReloadSettings() override { return S_OK; }

    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }
};

} // namespace corvid::testing
