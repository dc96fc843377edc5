#pragma once

#include "corvid_h.h"
#include "host_h.h"
#include "platform/win/com_object.h"

#include <memory>

namespace corvid::shell {
class MainView;
class UserPrompt;
} // namespace corvid::shell

namespace corvid::server {

// The plug-in object the host creates in a tab. IDispatch is served from the type library
// embedded in the DLL, so scripts on the plug-in's home page can call SearchOnP2P; the host
// drives the main view through ITarvoPlugIn.
class P2PViewObject final
    : public win::ComObject<P2PViewObject, IP2PView, ITarvoPlugIn, IProvideClassInfo> {
public:
    P2PViewObject();
    ~P2PViewObject() override;

    static HRESULT Create(REFIID iid, void** object) { return CreateObject(iid, object); }
    static const CLSID& ClassId() { return CLSID_P2PView; }

    // IP2PView
    HRESULT STDMETHODCALLTYPE SearchOnP2P(BSTR keywords, BSTR type) override;

    // ITarvoPlugIn
    HRESULT STDMETHODCALLTYPE Attach(IUnknown* host, HWND tab) override;
    HRESULT STDMETHODCALLTYPE Detach() override;
    HRESULT STDMETHODCALLTYPE SetRect(LONG left, LONG top, LONG right, LONG bottom) override;
    HRESULT STDMETHODCALLTYPE Focus() override;
    HRESULT STDMETHODCALLTYPE GetMenu(BSTR menuId, BSTR* text) override;
    HRESULT STDMETHODCALLTYPE Execute(BSTR command, LONG* handled) override;
    HRESULT STDMETHODCALLTYPE GetToolbar(HWND parent, HWND* toolbar) override;
    HRESULT STDMETHODCALLTYPE ApplySkin(BSTR name, LONG relayout) override;
    HRESULT STDMETHODCALLTYPE SetLanguage(BSTR name, LONG refresh) override;

private:
    std::unique_ptr<shell::UserPrompt> prompt_;
    std::unique_ptr<shell::MainView> view_;
};

} // namespace corvid::server
