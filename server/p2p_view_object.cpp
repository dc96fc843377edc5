#include "server/p2p_view_object.h"

#include <new>

namespace corvid::server {

HRESULT P2PViewObject::Create(REFIID iid, void** object) {
    auto* view = new (std::nothrow) P2PViewObject;
    if (!view) {
        return E_OUTOFMEMORY;
    }
    HRESULT hr = view->QueryInterface(iid, object);
    view->Release();
    return hr;
}

HRESULT P2PViewObject::QueryInterface(REFIID iid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) ||
        IsEqualIID(iid, IID_IP2PView)) {
        *object = static_cast<IP2PView*>(this);
    } else if (IsEqualIID(iid, IID_IProvideClassInfo)) {
        *object = static_cast<IProvideClassInfo*>(this);
    } else {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG P2PViewObject::AddRef() {
    return ::InterlockedIncrement(&references_);
}

ULONG P2PViewObject::Release() {
    ULONG left = ::InterlockedDecrement(&references_);
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT P2PViewObject::TypeInfoOf(const GUID& guid, win::ComPtr<ITypeInfo>& cache,
                                  ITypeInfo** info) {
    if (!info) {
        return E_POINTER;
    }
    *info = nullptr;
    if (!cache) {
        win::ComPtr<ITypeLib> library;
        HRESULT hr = ::LoadTypeLibEx(ModulePath().c_str(), REGKIND_NONE, library.put());
        if (FAILED(hr)) {
            return hr;
        }
        hr = library->GetTypeInfoOfGuid(guid, cache.put());
        if (FAILED(hr)) {
            return hr;
        }
    }
    *info = cache.get();
    (*info)->AddRef();
    return S_OK;
}

HRESULT P2PViewObject::GetTypeInfoCount(UINT* count) {
    if (!count) {
        return E_POINTER;
    }
    *count = 1;
    return S_OK;
}

HRESULT P2PViewObject::GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
    if (info) {
        *info = nullptr;
    }
    if (index != 0) {
        return DISP_E_BADINDEX;
    }
    return TypeInfoOf(IID_IP2PView, interfaceInfo_, info);
}

HRESULT P2PViewObject::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
    if (!IsEqualIID(iid, IID_NULL)) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    win::ComPtr<ITypeInfo> info;
    HRESULT hr = TypeInfoOf(IID_IP2PView, interfaceInfo_, info.put());
    return SUCCEEDED(hr) ? ::DispGetIDsOfNames(info.get(), names, count, ids) : hr;
}

HRESULT P2PViewObject::Invoke(DISPID id, REFIID iid, LCID, WORD flags, DISPPARAMS* params,
                              VARIANT* result, EXCEPINFO* exception, UINT* argumentError) {
    if (!IsEqualIID(iid, IID_NULL)) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    win::ComPtr<ITypeInfo> info;
    HRESULT hr = TypeInfoOf(IID_IP2PView, interfaceInfo_, info.put());
    if (FAILED(hr)) {
        return hr;
    }
    return ::DispInvoke(static_cast<IP2PView*>(this), info.get(), id, flags, params, result,
                        exception, argumentError);
}

HRESULT P2PViewObject::SearchOnP2P(BSTR, BSTR) {
    // The page's script does not care what became of its search, so this always succeeds. The
    // search itself is the main view's to run; until a main view stands in the tab there is
    // nowhere to run it.
    return S_OK;
}

HRESULT P2PViewObject::GetClassInfo(ITypeInfo** info) {
    return TypeInfoOf(CLSID_P2PView, classInfo_, info);
}

} // namespace corvid::server
