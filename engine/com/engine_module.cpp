#include "engine/com/engine_module.h"

#include "engine/com/engine_objects.h"
#include "library/com/file_manager_object.h"
#include "platform/win/module.h"
#include "platform/win/registration.h"

namespace corvid::engine {
namespace {

const win::CreatableClass kClasses[] = {
    {&CLSID_GnutellaEngine, &EngineObject::Create},
    {&CLSID_FileManager, &library::FileManagerObject::Create},
};

const win::ClassRegistration kRegistrations[] = {
    {&CLSID_GnutellaEngine, L"GnutellaEngine Class", L"Corvid.GnutellaEngine.1",
     L"Corvid.GnutellaEngine", &LIBID_CorvidEngineLib},
    {&CLSID_FileManager, L"TFMan FileManager Class", L"Corvid.TFMan.1", L"Corvid.TFMan",
     &LIBID_CorvidEngineLib},
};

} // namespace

std::span<const win::CreatableClass> EngineClasses() {
    return kClasses;
}

HRESULT RegisterEngineServer(ServerKind kind) {
    HRESULT hr = win::ComBoundary([kind] {
        const std::wstring path = win::ModulePath();
        for (const auto& entry : kRegistrations) {
            if (kind == ServerKind::InProcess) {
                win::RegisterInprocClass(entry, path);
            } else {
                win::RegisterLocalServerClass(entry, path);
            }
        }
        win::RegisterEmbeddedTypeLibrary(path);
        return S_OK;
    });
    if (FAILED(hr)) {
        // Half a registration is worse than none.
        UnregisterEngineServer(kind);
    }
    return hr;
}

HRESULT UnregisterEngineServer(ServerKind kind) {
    return win::ComBoundary([kind] {
        HRESULT result = S_OK;
        const wchar_t* serverKey =
            kind == ServerKind::InProcess ? L"InprocServer32" : L"LocalServer32";
        bool gone = true;
        for (const auto& entry : kRegistrations) {
            gone = win::UnregisterServerKey(entry, serverKey, result) && gone;
        }
        if (gone) {
            HRESULT hr = win::UnregisterTypeLibrary(LIBID_CorvidEngineLib, 1, 0);
            if (FAILED(hr) && SUCCEEDED(result)) {
                result = hr;
            }
        }
        return result;
    });
}

} // namespace corvid::engine
