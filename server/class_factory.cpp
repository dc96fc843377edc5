#include "server/class_factory.h"

#include "corvid_h.h"
#include "server/module.h"
#include "server/p2p_view_object.h"

#include <iterator>
#include <new>

namespace corvid::server {
namespace {

using CreateFunction = HRESULT (*)(REFIID iid, void** object);

struct CreatableClass {
    const CLSID* clsid;
    CreateFunction create;
};

// Every class the server creates, and how.
const CreatableClass kClasses[] = {
    {&CLSID_P2PView, &P2PViewObject::Create},
};

class ClassFactory final : public IClassFactory {
public:
    explicit ClassFactory(CreateFunction create) : create_(create) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        *object = nullptr;
        if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IClassFactory)) {
            return E_NOINTERFACE;
        }
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ::InterlockedIncrement(&references_); }
    ULONG STDMETHODCALLTYPE Release() override {
        ULONG left = ::InterlockedDecrement(&references_);
        if (left == 0) {
            delete this;
        }
        return left;
    }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        *object = nullptr;
        if (outer) {
            return CLASS_E_NOAGGREGATION;
        }
        return create_(iid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        lock ? LockModule() : UnlockModule();
        return S_OK;
    }

private:
    ~ClassFactory() = default;

    ModuleLock moduleLock_;
    LONG references_ = 1;
    CreateFunction create_;
};

} // namespace

HRESULT GetClassFactory(REFCLSID clsid, REFIID iid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    for (const auto& entry : kClasses) {
        if (IsEqualCLSID(clsid, *entry.clsid)) {
            auto* factory = new (std::nothrow) ClassFactory(entry.create);
            if (!factory) {
                return E_OUTOFMEMORY;
            }
            HRESULT hr = factory->QueryInterface(iid, object);
            factory->Release();
            return hr;
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

} // namespace corvid::server
