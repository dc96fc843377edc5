#include "platform/win/registration.h"

#include "platform/win/com_error.h"
#include "platform/win/handles.h"

#include <oleauto.h>

namespace corvid::win {

std::wstring GuidText(const GUID& guid) {
    wchar_t text[40] = {};
    ::StringFromGUID2(guid, text, static_cast<int>(std::size(text)));
    return text;
}

void WriteClassesString(const std::wstring& key, const wchar_t* name, const std::wstring& value) {
    RegKey handle;
    LONG status = ::RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                    nullptr, handle.put(), nullptr);
    if (status == ERROR_SUCCESS) {
        status = ::RegSetValueExW(handle.get(), name, 0, REG_SZ,
                                  reinterpret_cast<const BYTE*>(value.c_str()),
                                  static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    }
    ThrowIfFailed(HRESULT_FROM_WIN32(status), IID_NULL);
}

void CreateClassesKey(const std::wstring& key) {
    RegKey handle;
    LONG status = ::RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                    nullptr, handle.put(), nullptr);
    ThrowIfFailed(HRESULT_FROM_WIN32(status), IID_NULL);
}

bool ClassesKeyExists(const std::wstring& key) {
    RegKey handle;
    return ::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, handle.put()) ==
           ERROR_SUCCESS;
}

HRESULT DeleteClassesTree(const std::wstring& key) {
    LONG status = ::RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
    if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND) {
        status = ::RegDeleteKeyW(HKEY_CLASSES_ROOT, key.c_str());
    }
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND ? S_OK
                                                                     : HRESULT_FROM_WIN32(status);
}

HRESULT DeleteClassesValue(const std::wstring& key, const wchar_t* name) {
    RegKey handle;
    LONG status = ::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_SET_VALUE, handle.put());
    if (status == ERROR_SUCCESS) {
        status = ::RegDeleteValueW(handle.get(), name);
    }
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND ? S_OK
                                                                     : HRESULT_FROM_WIN32(status);
}

void RegisterEmbeddedTypeLibrary(const std::wstring& path) {
    ComPtr<ITypeLib> library;
    ThrowIfFailed(::LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.put()), IID_ITypeLib);
    std::wstring mutablePath = path; // RegisterTypeLib takes a non-const path it never writes
    ThrowIfFailed(::RegisterTypeLib(library.get(), mutablePath.data(), nullptr), IID_ITypeLib);
}

HRESULT UnregisterTypeLibrary(const GUID& libid, WORD major, WORD minor) {
    if (!ClassesKeyExists(L"TypeLib\\" + GuidText(libid))) {
        return S_OK;
    }
    return ::UnRegisterTypeLib(libid, major, minor, LOCALE_NEUTRAL,
                               sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32);
}

namespace {

void RegisterClass(const ClassRegistration& entry) {
    const std::wstring clsid = GuidText(*entry.clsid);
    const std::wstring classKey = L"CLSID\\" + clsid;
    WriteClassesString(classKey, nullptr, entry.description);
    WriteClassesString(classKey + L"\\ProgID", nullptr, entry.progId);
    WriteClassesString(classKey + L"\\VersionIndependentProgID", nullptr,
                       entry.versionIndependentProgId);
    CreateClassesKey(classKey + L"\\Programmable");
    WriteClassesString(classKey + L"\\TypeLib", nullptr, GuidText(*entry.libid));

    WriteClassesString(entry.progId, nullptr, entry.description);
    WriteClassesString(std::wstring(entry.progId) + L"\\CLSID", nullptr, clsid);
    WriteClassesString(entry.versionIndependentProgId, nullptr, entry.description);
    WriteClassesString(std::wstring(entry.versionIndependentProgId) + L"\\CLSID", nullptr, clsid);
    WriteClassesString(std::wstring(entry.versionIndependentProgId) + L"\\CurVer", nullptr,
                       entry.progId);
}

} // namespace

void RegisterInprocClass(const ClassRegistration& entry, const std::wstring& dllPath) {
    RegisterClass(entry);
    const std::wstring server = L"CLSID\\" + GuidText(*entry.clsid) + L"\\InprocServer32";
    WriteClassesString(server, nullptr, dllPath);
    WriteClassesString(server, L"ThreadingModel", L"Apartment");
}

void RegisterLocalServerClass(const ClassRegistration& entry, const std::wstring& exePath) {
    RegisterClass(entry);
    WriteClassesString(L"CLSID\\" + GuidText(*entry.clsid) + L"\\LocalServer32", nullptr,
                       L"\"" + exePath + L"\"");
}

bool UnregisterServerKey(const ClassRegistration& entry, const wchar_t* serverKey,
                         HRESULT& result) {
    auto keep_first_failure = [&result](HRESULT hr) {
        if (FAILED(hr) && SUCCEEDED(result)) {
            result = hr;
        }
    };
    const std::wstring classKey = L"CLSID\\" + GuidText(*entry.clsid);
    keep_first_failure(DeleteClassesTree(classKey + L"\\" + serverKey));
    if (ClassesKeyExists(classKey + L"\\InprocServer32") ||
        ClassesKeyExists(classKey + L"\\LocalServer32")) {
        return false;
    }
    keep_first_failure(DeleteClassesTree(entry.versionIndependentProgId));
    keep_first_failure(DeleteClassesTree(entry.progId));
    keep_first_failure(DeleteClassesTree(classKey));
    return true;
}

} // namespace corvid::win
