#pragma once

// An engine that answers the hosts view and the options page from what the test sets, and
// records what they asked of it.

#include "engine_h.h"
#include "platform/win/com_object.h"
#include "platform/win/text.h"

#include <string>
#include <vector>

namespace corvid::testing {

class FakeEngine final : public win::ComObject<FakeEngine, IGnutellaEngine> {
public:
    std::string hostsInfo;
    std::vector<std::string> connected;
    std::vector<std::string> disconnected;
    int reloads = 0;

    HRESULT STDMETHODCALLTYPE Connect() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Disconnect() override { return S_OK; }
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
        return S_OK;
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
        *text = ::SysAllocString(win::ToWide(hostsInfo).c_str());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ConnectNode(BSTR address) override {
        connected.push_back(win::BstrToAnsi(address));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE DisconnectNode(BSTR nodeId) override {
        disconnected.push_back(win::BstrToAnsi(nodeId));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReloadSettings() override {
        ++reloads;
        return S_OK;
    }
};

} // namespace corvid::testing
