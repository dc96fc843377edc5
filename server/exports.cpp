// The four exports of an in-process COM server. Registration writes the class, both ProgIDs, the
// type library and the host's plug-in value; unregistration removes exactly those and leaves the
// keys they live under, which belong to Windows or to the host.

#include "corvid_h.h"
#include "platform/win/class_factory.h"
#include "platform/win/com_error.h"
#include "platform/win/handles.h"
#include "platform/win/module.h"
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

std::wstring GuidText(const GUID& guid) {
    wchar_t text[40] = {};
    ::StringFromGUID2(guid, text, static_cast<int>(std::size(text)));
    return text;
}

// Sets one string value (null name: the key's default value), creating the key as needed.
void WriteString(const std::wstring& key, const wchar_t* name, const std::wstring& value) {
    win::RegKey handle;
    LONG status = ::RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                    nullptr, handle.put(), nullptr);
    if (status == ERROR_SUCCESS) {
        status = ::RegSetValueExW(handle.get(), name, 0, REG_SZ,
                                  reinterpret_cast<const BYTE*>(value.c_str()),
                                  static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    }
    win::ThrowIfFailed(HRESULT_FROM_WIN32(status), IID_NULL);
}

void CreateKey(const std::wstring& key) {
    win::RegKey handle;
    LONG status = ::RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                    nullptr, handle.put(), nullptr);
    win::ThrowIfFailed(HRESULT_FROM_WIN32(status), IID_NULL);
}

// A key that is already gone counts as removed.
HRESULT DeleteTree(const std::wstring& key) {
    LONG status = ::RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
    if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND) {
        status = ::RegDeleteKeyW(HKEY_CLASSES_ROOT, key.c_str());
    }
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND ? S_OK
                                                                     : HRESULT_FROM_WIN32(status);
}

HRESULT DeletePlugInValue(const std::wstring& clsid) {
    win::RegKey plugIns;
    LONG status = ::RegOpenKeyExW(HKEY_CLASSES_ROOT, kPlugInsKey, 0, KEY_SET_VALUE, plugIns.put());
    if (status == ERROR_SUCCESS) {
        status = ::RegDeleteValueW(plugIns.get(), clsid.c_str());
    }
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND ? S_OK
                                                                     : HRESULT_FROM_WIN32(status);
}

HRESULT Unregister() {
    const std::wstring clsid = GuidText(CLSID_P2PView);
    HRESULT result = S_OK;
    auto keep_first_failure = [&result](HRESULT hr) {
        if (FAILED(hr) && SUCCEEDED(result)) {
            result = hr;
        }
    };
    keep_first_failure(DeletePlugInValue(clsid));
    keep_first_failure(DeleteTree(kVersionIndependentProgId));
    keep_first_failure(DeleteTree(kProgId));
    keep_first_failure(DeleteTree(L"CLSID\\" + clsid));
    win::RegKey typeLibrary;
    if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, (L"TypeLib\\" + GuidText(LIBID_CorvidLib)).c_str(), 0,
                        KEY_READ, typeLibrary.put()) == ERROR_SUCCESS) {
        typeLibrary.reset();
        keep_first_failure(::UnRegisterTypeLib(LIBID_CorvidLib, 1, 0, LOCALE_NEUTRAL,
                                               sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32));
    }
    return result;
}

HRESULT Register() {
    const std::wstring path = win::ModulePath();
    const std::wstring clsid = GuidText(CLSID_P2PView);
    const std::wstring classKey = L"CLSID\\" + clsid;

    WriteString(classKey, nullptr, kClassDescription);
    WriteString(classKey + L"\\InprocServer32", nullptr, path);
    WriteString(classKey + L"\\InprocServer32", L"ThreadingModel", L"Apartment");
    WriteString(classKey + L"\\ProgID", nullptr, kProgId);
    WriteString(classKey + L"\\VersionIndependentProgID", nullptr, kVersionIndependentProgId);
    CreateKey(classKey + L"\\Programmable");
    WriteString(classKey + L"\\TypeLib", nullptr, GuidText(LIBID_CorvidLib));

    WriteString(kProgId, nullptr, kClassDescription);
    WriteString(std::wstring(kProgId) + L"\\CLSID", nullptr, clsid);
    WriteString(kVersionIndependentProgId, nullptr, kClassDescription);
    WriteString(std::wstring(kVersionIndependentProgId) + L"\\CLSID", nullptr, clsid);
    WriteString(std::wstring(kVersionIndependentProgId) + L"\\CurVer", nullptr, kProgId);

    WriteString(kPlugInsKey, clsid.c_str(), kPlugInName);

    win::ComPtr<ITypeLib> library;
    win::ThrowIfFailed(::LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.put()), IID_ITypeLib);
    std::wstring mutablePath = path; // RegisterTypeLib takes a non-const path it never writes
    win::ThrowIfFailed(::RegisterTypeLib(library.get(), mutablePath.data(), nullptr), IID_ITypeLib);
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
