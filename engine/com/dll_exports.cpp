// CorvidEngine.dll: the engine and the file manager in the caller's process.

#include "engine/com/engine_module.h"
#include "platform/win/module.h"

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
    return corvid::win::GetClassFactory(corvid::engine::EngineClasses(), clsid, iid, object);
}

STDAPI DllCanUnloadNow() {
    return corvid::win::ModuleLockCount() == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    return corvid::engine::RegisterEngineServer(corvid::engine::ServerKind::InProcess);
}

STDAPI DllUnregisterServer() {
    return corvid::engine::UnregisterEngineServer(corvid::engine::ServerKind::InProcess);
}
