#pragma once

#include <windows.h>
#include <unknwn.h>

namespace corvid::server {

// Finds the factory of one of the server's creatable classes (DllGetClassObject's work).
HRESULT GetClassFactory(REFCLSID clsid, REFIID iid, void** object);

} // namespace corvid::server
