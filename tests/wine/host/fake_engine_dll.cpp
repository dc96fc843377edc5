// An in-process stand-in for the engine component, registered by the host test under the
// engine's class id: it joins no network, but answers and fires events as the engine does.

#include "platform/win/class_factory.h"
#include "platform/win/module.h"
#include "tests/wine/shell/fake_engine.h"

namespace {

HRESULT CreateEngine(REFIID iid, void** object) {
    return corvid::win::ComBoundary([&] {
        auto engine = corvid::testing::FakeEngine::Make();
        engine->announceOnConnect = true;
        engine->nodes = 3;
        return engine->QueryInterface(iid, object);
    });
}

const corvid::win::CreatableClass kClasses[] = {{&CLSID_GnutellaEngine, &CreateEngine}};

} // namespace

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
    return corvid::win::GetClassFactory(kClasses, clsid, iid, object);
}

STDAPI DllCanUnloadNow() {
    return corvid::win::ModuleLockCount() == 0 ? S_OK : S_FALSE;
}
