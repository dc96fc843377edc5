#pragma once

#include "corvid_h.h"
#include "platform/win/handles.h"
#include "server/module.h"

namespace corvid::server {

// The plug-in object the host creates in a tab. IDispatch is served from the type library
// embedded in the DLL, so scripts on the plug-in's home page can call SearchOnP2P.
class P2PViewObject final : public IP2PView, public IProvideClassInfo {
public:
    static HRESULT Create(REFIID iid, void** object);

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // IDispatch
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) override;
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID iid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                                     UINT* argumentError) override;

    // IP2PView
    HRESULT STDMETHODCALLTYPE SearchOnP2P(BSTR keywords, BSTR type) override;

    // IProvideClassInfo
    HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** info) override;

private:
    P2PViewObject() = default;
    ~P2PViewObject() = default;

    // Loads the type information of one interface or class from the module's own type library.
    HRESULT TypeInfoOf(const GUID& guid, win::ComPtr<ITypeInfo>& cache, ITypeInfo** info);

    ModuleLock moduleLock_;
    LONG references_ = 1;
    win::ComPtr<ITypeInfo> interfaceInfo_;
    win::ComPtr<ITypeInfo> classInfo_;
};

} // namespace corvid::server
