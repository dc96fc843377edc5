#include "host/host_objects.h"

#include "platform/win/handles.h"
#include "platform/win/text.h"

#include <vector>

namespace corvid::host {

namespace {

// A section name becomes one key below the store; one that could climb out of it is refused.
bool SectionKey(BSTR section, std::wstring& key) {
    const std::wstring name = section ? std::wstring(section, ::SysStringLen(section)) : L"";
    if (name.empty() || name.find(L'\\') != std::wstring::npos ||
        name.find(L'/') != std::wstring::npos || name.size() > 200) {
        return false;
    }
    key = std::wstring(kStoreKey) + L"\\" + name;
    return true;
}

std::wstring Text(BSTR text) {
    return text ? std::wstring(text, ::SysStringLen(text)) : std::wstring();
}

// One value as a VARIANT: DWORDs as VT_I4, strings as VT_BSTR; other types count as absent.
HRESULT ReadValue(const std::wstring& key, BSTR name, VARIANT* value, LONG* present) {
    if (!value || !present) {
        return E_POINTER;
    }
    ::VariantInit(value);
    *present = 0;
    win::RegKey handle;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_READ, handle.put()) !=
        ERROR_SUCCESS) {
        return S_OK;
    }
    const std::wstring valueName = Text(name);
    DWORD type = 0;
    DWORD size = 0;
    if (::RegQueryValueExW(handle.get(), valueName.c_str(), nullptr, &type, nullptr, &size) !=
        ERROR_SUCCESS) {
        return S_OK;
    }
    if (type == REG_DWORD && size == sizeof(DWORD)) {
        DWORD data = 0;
        if (::RegQueryValueExW(handle.get(), valueName.c_str(), nullptr, nullptr,
                               reinterpret_cast<BYTE*>(&data), &size) == ERROR_SUCCESS) {
            value->vt = VT_I4;
            value->lVal = static_cast<LONG>(data);
            *present = 1;
        }
    } else if (type == REG_SZ && size < 64 * 1024) {
        std::vector<wchar_t> data(size / sizeof(wchar_t) + 1, L'\0');
        if (::RegQueryValueExW(handle.get(), valueName.c_str(), nullptr, nullptr,
                               reinterpret_cast<BYTE*>(data.data()), &size) == ERROR_SUCCESS) {
            value->vt = VT_BSTR;
            value->bstrVal = ::SysAllocString(data.data());
            *present = value->bstrVal ? 1 : 0;
        }
    }
    return S_OK;
}

HRESULT WriteValue(const std::wstring& key, BSTR name, const VARIANT& value) {
    win::RegKey handle;
    LONG status = ::RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                    nullptr, handle.put(), nullptr);
    if (status != ERROR_SUCCESS) {
        return HRESULT_FROM_WIN32(status);
    }
    const std::wstring valueName = Text(name);
    if (value.vt == VT_BSTR) {
        const std::wstring text = Text(value.bstrVal);
        status = ::RegSetValueExW(handle.get(), valueName.c_str(), 0, REG_SZ,
                                  reinterpret_cast<const BYTE*>(text.c_str()),
                                  static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    } else {
        VARIANT number;
        ::VariantInit(&number);
        HRESULT hr = ::VariantChangeType(&number, const_cast<VARIANT*>(&value), 0, VT_I4);
        if (FAILED(hr)) {
            return hr;
        }
        const DWORD data = static_cast<DWORD>(number.lVal);
        status = ::RegSetValueExW(handle.get(), valueName.c_str(), 0, REG_DWORD,
                                  reinterpret_cast<const BYTE*>(&data), sizeof data);
    }
    return HRESULT_FROM_WIN32(status);
}

HRESULT DeleteValueIn(const std::wstring& key, BSTR name) {
    win::RegKey handle;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_SET_VALUE, handle.put()) !=
        ERROR_SUCCESS) {
        return S_FALSE;
    }
    const LONG status = ::RegDeleteValueW(handle.get(), Text(name).c_str());
    return status == ERROR_SUCCESS ? S_OK : S_FALSE;
}

HRESULT ValueNames(const std::wstring& key, BSTR* names) {
    if (!names) {
        return E_POINTER;
    }
    *names = nullptr;
    std::wstring list;
    win::RegKey handle;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_READ, handle.put()) ==
        ERROR_SUCCESS) {
        for (DWORD index = 0;; ++index) {
            wchar_t name[256];
            DWORD length = 256;
            const LONG status = ::RegEnumValueW(handle.get(), index, name, &length, nullptr,
                                                nullptr, nullptr, nullptr);
            if (status == ERROR_MORE_DATA) {
                continue;
            }
            if (status != ERROR_SUCCESS) {
                break;
            }
            list.append(name, length);
            list += L"\n";
        }
    }
    *names = ::SysAllocStringLen(list.c_str(), static_cast<UINT>(list.size()));
    return *names ? S_OK : E_OUTOFMEMORY;
}

HRESULT Allocated(const std::wstring& text, BSTR* out) {
    if (!out) {
        return E_POINTER;
    }
    *out = ::SysAllocStringLen(text.c_str(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

} // namespace

HRESULT SettingsObject::SetValue(BSTR section, BSTR name, VARIANT value) {
    std::wstring key;
    return SectionKey(section, key) ? WriteValue(key, name, value) : E_INVALIDARG;
}

HRESULT SettingsObject::DeleteValue(BSTR section, BSTR name) {
    std::wstring key;
    return SectionKey(section, key) ? DeleteValueIn(key, name) : E_INVALIDARG;
}

HRESULT SettingsObject::SetHostValue(BSTR name, VARIANT value) {
    return WriteValue(kHostValuesKey, name, value);
}

HRESULT SettingsObject::DeleteHostValue(BSTR name) {
    return DeleteValueIn(kHostValuesKey, name);
}

HRESULT SettingsObject::GetValue(BSTR section, BSTR name, VARIANT* value, LONG* present) {
    std::wstring key;
    if (!SectionKey(section, key)) {
        if (value) {
            ::VariantInit(value);
        }
        if (present) {
            *present = 0;
        }
        return E_INVALIDARG;
    }
    return ReadValue(key, name, value, present);
}

HRESULT SettingsObject::NotifyChanged() {
    return win::ComBoundary([&] {
        if (notify_) {
            notify_();
        }
        return S_OK;
    });
}

HRESULT SettingsObject::GetValueNames(BSTR section, BSTR* names) {
    std::wstring key;
    return SectionKey(section, key) ? ValueNames(key, names) : E_INVALIDARG;
}

HRESULT SettingsObject::GetHostValueNames(BSTR* names) {
    return ValueNames(kHostValuesKey, names);
}

HRESULT SettingsObject::GetHostFolder(BSTR* folder) {
    return Allocated(hostFolder_, folder);
}

HRESULT SettingsObject::GetStoreKey(BSTR* key) {
    return Allocated(kStoreKey, key);
}

HRESULT SettingsObject::GetHostValue(BSTR name, VARIANT* value, LONG* present) {
    return ReadValue(kHostValuesKey, name, value, present);
}

HostObject::HostObject(HostFrame& frame, std::wstring hostFolder)
    : ConnectionPoints(Identity(), {DIID__ITarvoHostEvents}), frame_(&frame),
      settings_(SettingsObject::Make(std::move(hostFolder), [this] { FireSettingsChanged(); })) {}

int HostObject::CommandState(const std::string& name) const {
    auto found = states_.find(name);
    return found == states_.end() ? -1 : found->second;
}

HRESULT HostObject::GetFrameWindow(HWND* frame) {
    if (!frame) {
        return E_POINTER;
    }
    *frame = frame_ ? frame_->FrameWindow() : nullptr;
    return S_OK;
}

HRESULT HostObject::RequestLayout(IUnknown*) {
    return win::ComBoundary([&] {
        if (frame_) {
            frame_->LayOut();
        }
        return S_OK;
    });
}

HRESULT HostObject::MenusChanged(IUnknown*) {
    return win::ComBoundary([&] {
        if (frame_) {
            frame_->ReloadMenus();
        }
        return S_OK;
    });
}

HRESULT HostObject::SetTabTitle(IUnknown*, BSTR title) {
    return win::ComBoundary([&] {
        if (frame_) {
            frame_->SetTabTitle(Text(title));
        }
        return S_OK;
    });
}

HRESULT HostObject::ShowPlugIn(IUnknown*) {
    return win::ComBoundary([&] {
        if (frame_) {
            frame_->ShowPlugInTab();
        }
        return S_OK;
    });
}

HRESULT HostObject::GetSettings(IUnknown** settings) {
    if (!settings) {
        return E_POINTER;
    }
    *settings = nullptr;
    return settings_->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(settings));
}

HRESULT HostObject::SetCommandState(IUnknown*, BSTR command, LONG state) {
    return win::ComBoundary([&] {
        const std::string name = win::BstrToAnsi(command);
        states_[name] = static_cast<int>(state);
        if (frame_) {
            frame_->CommandStateChanged(name, static_cast<int>(state));
        }
        return S_OK;
    });
}

bool ReadHostDword(const wchar_t* name, DWORD& value) {
    DWORD size = sizeof value;
    return ::RegGetValueW(HKEY_CURRENT_USER, kHostValuesKey, name, RRF_RT_REG_DWORD, nullptr,
                          &value, &size) == ERROR_SUCCESS;
}

void WriteHostDword(const wchar_t* name, DWORD value) {
    ::RegSetKeyValueW(HKEY_CURRENT_USER, kHostValuesKey, name, REG_DWORD, &value, sizeof value);
}

std::wstring ReadHostString(const wchar_t* name) {
    wchar_t data[512] = {};
    DWORD size = sizeof data - sizeof(wchar_t);
    if (::RegGetValueW(HKEY_CURRENT_USER, kHostValuesKey, name, RRF_RT_REG_SZ, nullptr, data,
                       &size) != ERROR_SUCCESS) {
        return {};
    }
    return data;
}

void WriteHostString(const wchar_t* name, const std::wstring& value) {
    ::RegSetKeyValueW(HKEY_CURRENT_USER, kHostValuesKey, name, REG_SZ, value.c_str(),
                      static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

bool ReadSectionDword(const wchar_t* section, const wchar_t* name, DWORD& value) {
    const std::wstring key = std::wstring(kStoreKey) + L"\\" + section;
    DWORD size = sizeof value;
    return ::RegGetValueW(HKEY_CURRENT_USER, key.c_str(), name, RRF_RT_REG_DWORD, nullptr, &value,
                          &size) == ERROR_SUCCESS;
}

void WriteSectionDword(const wchar_t* section, const wchar_t* name, DWORD value) {
    const std::wstring key = std::wstring(kStoreKey) + L"\\" + section;
    ::RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), name, REG_DWORD, &value, sizeof value);
}

} // namespace corvid::host
