// The four exports of an in-process COM server. Registration writes the class, both ProgIDs, the
// type library and the host's plug-in value; unregistration removes exactly those and leaves the
// keys they live under, which belong to Windows or to the host.

#include "corvid_h.h"
#include "platform/win/class_factory.h"
#include "platform/win/com_error.h"
#include "platform/win/handles.h"
#include "platform/win/module.h"
#include "platform/win/registration.h"
#include "server/p2p_view_object.h"

#include <string>

namespace corvid::server {

// Every class the server creates, and how.
const win::CreatableClass kClasses[] = {
    {&CLSID_P2PView, &P2PViewObject::Create},
};

namespace {

constexpr wchar_t kClassDescription[] = L"P2PView Class";
constexpr wchar_t kProgId[] = L"Corvid.P2PView.1";
constexpr wchar_t kVersionIndependentProgId[] = L"Corvid.P2PView";
constexpr wchar_t kPlugInsKey[] = L"Software\\Tarvo Explorer\\PlugIns";
constexpr wchar_t kPlugInName[] = L"Corvid";

const win::ClassRegistration kP2PView = {&CLSID_P2PView, kClassDescription, kProgId,
                                         kVersionIndependentProgId, &LIBID_CorvidLib};

HRESULT Unregister() {
    HRESULT result = S_OK;
    auto keep_first_failure = [&result](HRESULT hr) {
        if (FAILED(hr) && SUCCEEDED(result)) {
            result = hr;
        }
    };
    keep_first_failure(win::DeleteClassesValue(kPlugInsKey, win::GuidText(CLSID_P2PView).c_str()));
    win::UnregisterServerKey(kP2PView, L"InprocServer32", result);
    keep_first_failure(win::UnregisterTypeLibrary(LIBID_CorvidLib, 1, 0));
    return result;
}

HRESULT Register() {
    const std::wstring path = win::ModulePath();
    win::RegisterInprocClass(kP2PView, path);
    win::WriteClassesString(kPlugInsKey, win::GuidText(CLSID_P2PView).c_str(), kPlugInName);
    win::RegisterEmbeddedTypeLibrary(path);
    return S_OK;
}

} // namespace
} // namespace corvid::server

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
    return corvid::win::GetClassFactory(corvid::server::kClasses, clsid, iid, object);
}

STDAPI DllCanUnloadNow() {
    return corvid::win::ModuleLockCount() == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    HRESULT hr = corvid::win::ComBoundary(corvid::server::Register);
    if (FAILED(hr)) {
        // Half a registration is worse than none: take back whatever was written.
        corvid::server::Unregister();
    }
    return hr;
}

STDAPI DllUnregisterServer() {
    return corvid::win::ComBoundary(corvid::server::Unregister);
}
