#pragma once

// Registry work of a COM server's (un)registration under HKEY_CLASSES_ROOT: one set of helpers
// for every binary we register (the plug-in, the engine's DLL and its local server). Writers
// throw ComError; removers treat what is already gone as removed.

#include <windows.h>

#include <string>

namespace corvid::win {

std::wstring GuidText(const GUID& guid);

// Sets one string value (null name: the key's default value), creating the key as needed.
void WriteClassesString(const std::wstring& key, const wchar_t* name, const std::wstring& value);
void CreateClassesKey(const std::wstring& key);
bool ClassesKeyExists(const std::wstring& key);
HRESULT DeleteClassesTree(const std::wstring& key);
HRESULT DeleteClassesValue(const std::wstring& key, const wchar_t* name);

// The type library embedded in the binary at path, registered for marshaling and IDispatch.
void RegisterEmbeddedTypeLibrary(const std::wstring& path);
HRESULT UnregisterTypeLibrary(const GUID& libid, WORD major, WORD minor);

// A creatable class with its two ProgIDs ("Vendor.Class.1" and "Vendor.Class"), its type
// library and the key of its server ("InprocServer32" with the DLL's path and the apartment model,
// or "LocalServer32" with the program's quoted path).
struct ClassRegistration {
    const CLSID* clsid;
    const wchar_t* description;
    const wchar_t* progId;
    const wchar_t* versionIndependentProgId;
    const GUID* libid;
};
void RegisterInprocClass(const ClassRegistration& entry, const std::wstring& dllPath);
void RegisterLocalServerClass(const ClassRegistration& entry, const std::wstring& exePath);
// Removes one server key; once the class has no server left, the class and its ProgIDs go too.
// True when the class is gone altogether.
bool UnregisterServerKey(const ClassRegistration& entry, const wchar_t* serverKey, HRESULT& result);

} // namespace corvid::win
