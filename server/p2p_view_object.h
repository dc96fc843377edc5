#pragma once

#include "corvid_h.h"
#include "platform/win/com_object.h"

namespace corvid::server {

// The plug-in object the host creates in a tab. IDispatch is served from the type library
// embedded in the DLL, so scripts on the plug-in's home page can call SearchOnP2P.
class P2PViewObject final : public win::ComObject<P2PViewObject, IP2PView, IProvideClassInfo> {
public:
    static HRESULT Create(REFIID iid, void** object) { return CreateObject(iid, object); }
    static const CLSID& ClassId() { return CLSID_P2PView; }

    // IP2PView
    HRESULT STDMETHODCALLTYPE SearchOnP2P(BSTR keywords, BSTR type) override;
};

} // namespace corvid::server
