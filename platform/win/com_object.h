#pragma once

// The one way this code base writes a COM class. A class derives from
// ComObject<Self, Interface...>, implements its interfaces' own methods, and gets:
//   - the reference count and a module lock for its lifetime;
//   - QueryInterface from the list of interfaces (IUnknown is the first; IDispatch the first
//     interface derived from IDispatch; more identities through an optional
//     `void* QueryMore(REFIID)` of the class, e.g. an event dispinterface's IID);
//   - IDispatch served from the type library embedded in this binary, for dual interfaces;
//   - IProvideClassInfo, when listed, from `static const CLSID& ClassId()` of the class.
// Objects are made with Make(), which hands out the first reference in a ComPtr.

#include "platform/win/com_error.h"
#include "platform/win/handles.h"
#include "platform/win/module.h"

#include <ocidl.h>
#include <oleauto.h>
#include <windows.h>

#include <new>
#include <optional>
#include <type_traits>
#include <utility>

namespace corvid::win {

// The type information of one interface or class of the type libraries embedded in this binary
// (resource ids 1, 2, ...), loaded once per GUID and kept for the process's life.
HRESULT EmbeddedTypeInfo(const GUID& guid, ITypeInfo** info);

namespace detail {

template <typename I> inline void* Match(REFIID iid, I* self) {
    return IsEqualIID(iid, __uuidof(I)) ? static_cast<void*>(self) : nullptr;
}

template <typename First, typename... Rest> struct FirstDispatch {
    using type = std::conditional_t<std::is_base_of_v<IDispatch, First>, First,
                                    typename FirstDispatch<Rest...>::type>;
};
template <typename Last> struct FirstDispatch<Last> {
    using type = std::conditional_t<std::is_base_of_v<IDispatch, Last>, Last, void>;
};

} // namespace detail

// For the few objects that must not keep their binary alive: a local server's registered class
// factories, which live exactly as long as the server's own registration.
struct WithoutModuleLock {};

template <typename Derived, typename First, typename... Rest>
class ComObject : public First, public Rest... {
public:
    using DispatchInterface = typename detail::FirstDispatch<First, Rest...>::type;

    // A new object holding its first reference. Throws std::bad_alloc.
    template <typename... Args> static ComPtr<Derived> Make(Args&&... args) {
        return ComPtr<Derived>::Attach(new Derived(std::forward<Args>(args)...));
    }

    // The class factory's creation: a new object asked for one interface.
    template <typename... Args>
    static HRESULT CreateObject(REFIID iid, void** object, Args&&... args) {
        return ComBoundary([&] {
            if (!object) {
                return E_POINTER;
            }
            *object = nullptr;
            return Make(std::forward<Args>(args)...)->QueryInterface(iid, object);
        });
    }

    IUnknown* Identity() { return static_cast<First*>(this); }

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        *object = nullptr;
        void* found = nullptr;
        if (IsEqualIID(iid, IID_IUnknown)) {
            found = Identity();
        } else if constexpr (!std::is_void_v<DispatchInterface>) {
            if (IsEqualIID(iid, IID_IDispatch)) {
                found = static_cast<DispatchInterface*>(this);
            }
        }
        if (!found) {
            found = detail::Match<First>(iid, this);
        }
        ((found = found ? found : detail::Match<Rest>(iid, this)), ...);
        if (!found) {
            found = static_cast<Derived*>(this)->QueryMore(iid);
        }
        if (!found) {
            return E_NOINTERFACE;
        }
        AddRef();
        *object = found;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ::InterlockedIncrement(&references_); }
    ULONG STDMETHODCALLTYPE Release() override {
        ULONG left = ::InterlockedDecrement(&references_);
        if (left == 0) {
            delete static_cast<Derived*>(this);
        }
        return left;
    }

    // IDispatch, for the first dual interface, from the embedded type library.
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) {
        if (!count) {
            return E_POINTER;
        }
        *count = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
        if (!info) {
            return E_POINTER;
        }
        *info = nullptr;
        return index == 0 ? EmbeddedTypeInfo(__uuidof(DispatchInterface), info) : DISP_E_BADINDEX;
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID,
                                            DISPID* ids) {
        if (!IsEqualIID(iid, IID_NULL)) {
            return DISP_E_UNKNOWNINTERFACE;
        }
        ComPtr<ITypeInfo> info;
        HRESULT hr = EmbeddedTypeInfo(__uuidof(DispatchInterface), info.put());
        return SUCCEEDED(hr) ? info->GetIDsOfNames(names, count, ids) : hr;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID iid, LCID, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO* exception, UINT* argumentError) {
        if (!IsEqualIID(iid, IID_NULL)) {
            return DISP_E_UNKNOWNINTERFACE;
        }
        ComPtr<ITypeInfo> info;
        HRESULT hr = EmbeddedTypeInfo(__uuidof(DispatchInterface), info.put());
        if (FAILED(hr)) {
            return hr;
        }
        return info->Invoke(static_cast<DispatchInterface*>(this), id, flags, params, result,
                            exception, argumentError);
    }

    // IProvideClassInfo, when the class lists it.
    HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** info) {
        if (!info) {
            return E_POINTER;
        }
        *info = nullptr;
        return EmbeddedTypeInfo(Derived::ClassId(), info);
    }

    // No further identities unless the class says so.
    void* QueryMore(REFIID) { return nullptr; }

protected:
    ComObject() = default;
    explicit ComObject(WithoutModuleLock) : moduleLock_(std::nullopt) {}
    virtual ~ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

private:
    std::optional<ModuleLock> moduleLock_{std::in_place};
    LONG references_ = 1;
};

} // namespace corvid::win
