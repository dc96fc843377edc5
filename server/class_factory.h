#pragma once

#include <unknwn.h>
#include <windows.h>

namespace corvid::server {

// Finds the factory of one of the server's creatable classes (DllGetClassObject's work).
HRESULT GetClassFactory(REFCLSID clsid, REFIID iid, void** object);

} // namespace corvid::server
