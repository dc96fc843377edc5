#pragma once

// An engine that answers the hosts view and the options page from what the test sets, and
// records what they asked of it.

#include "platform/win/text.h"
#include "tests/wine/support/engine_fakes.h"

#include <string>
#include <vector>

namespace corvid::testing {

class FakeEngine final : public EngineStub<FakeEngine> {
public:
    std::string hostsInfo;
    std::vector<std::string> connected;
    std::vector<std::string> disconnected;
    int reloads = 0;

    HRESULT STDMETHODCALLTYPE Connect() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Disconnect() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetNodeCount(long* count) override {
        *count = 0;
        return S_OK;
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
