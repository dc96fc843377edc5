#include "shell/win/toolbar_store.h"

#include <windows.h>

#include "platform/win/handles.h"
#include "shell/settings.h"

#include <cstring>

namespace corvid::shell {

std::optional<std::vector<int>> LoadToolbarOrder() {
    win::RegKey key;
    if (::RegOpenKeyExA(HKEY_CURRENT_USER, kToolbarKey, 0, KEY_READ | KEY_WRITE, key.put()) !=
        ERROR_SUCCESS) {
        return std::nullopt;
    }
    std::vector<ToolbarValue> values;
    for (DWORD index = 0;; ++index) {
        char name[kToolbarValueNameLimit] = {};
        DWORD nameLength = sizeof name;
        BYTE data[20] = {};
        DWORD dataLength = sizeof data;
        DWORD type = 0;
        const LONG status =
            ::RegEnumValueA(key.get(), index, name, &nameLength, nullptr, &type, data, &dataLength);
        if (status == ERROR_MORE_DATA) {
            continue; // a name or value too long for the buffers is not one of ours
        }
        if (status != ERROR_SUCCESS) {
            break;
        }
        ToolbarValue value;
        value.name.assign(name, nameLength);
        value.isDword = type == REG_DWORD && dataLength == sizeof(DWORD);
        if (value.isDword) {
            std::memcpy(&value.data, data, sizeof(DWORD));
        }
        values.push_back(std::move(value));
    }
    return ToolbarOrderFromValues(values);
}

bool SaveToolbarOrder(const std::vector<int>& order) {
    ::RegDeleteTreeA(HKEY_CURRENT_USER, kToolbarKey);
    ::RegDeleteKeyA(HKEY_CURRENT_USER, kToolbarKey);
    win::RegKey key;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, kToolbarKey, 0, nullptr, 0, KEY_READ | KEY_WRITE,
                          nullptr, key.put(), nullptr) != ERROR_SUCCESS) {
        return false;
    }
    bool written = true;
    for (const ToolbarValue& value : ToolbarValuesFromOrder(order)) {
        const DWORD data = value.data;
        written &=
            ::RegSetValueExA(key.get(), value.name.c_str(), 0, REG_DWORD,
                             reinterpret_cast<const BYTE*>(&data), sizeof data) == ERROR_SUCCESS;
    }
    return written;
}

} // namespace corvid::shell
