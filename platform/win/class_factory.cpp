#include "platform/win/class_factory.h"

#include "platform/win/com_object.h"

namespace corvid::win {
namespace {

class ClassFactory final : public ComObject<ClassFactory, IClassFactory> {
public:
    explicit ClassFactory(CreateFunction create) : create_(create) {}
    ClassFactory(CreateFunction create, WithoutModuleLock unlocked)
        : ComObject(unlocked), create_(create) {}

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
    CreateFunction create_;
};

} // namespace

HRESULT MakeClassFactory(CreateFunction create, REFIID iid, void** object) {
    return ClassFactory::CreateObject(iid, object, create);
}

HRESULT MakeLocalServerClassFactory(CreateFunction create, REFIID iid, void** object) {
    return ClassFactory::CreateObject(iid, object, create, WithoutModuleLock{});
}

HRESULT GetClassFactory(std::span<const CreatableClass> classes, REFCLSID clsid, REFIID iid,
                        void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    for (const auto& entry : classes) {
        if (IsEqualCLSID(clsid, *entry.clsid)) {
            return MakeClassFactory(entry.create, iid, object);
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

} // namespace corvid::win
