#pragma once

// Conversions between the UTF-16 of COM boundaries and the ANSI code page the plug-in works in.

#include <windows.h>

#include <oleauto.h>

#include <string>
#include <string_view>

namespace corvid::win {

inline std::string ToAnsi(const wchar_t* text, int length) {
    if (!text || length <= 0) {
        return {};
    }
    int size = ::WideCharToMultiByte(CP_ACP, 0, text, length, nullptr, 0, nullptr, nullptr);
    std::string result(size > 0 ? size : 0, '\0');
    if (size > 0) {
        ::WideCharToMultiByte(CP_ACP, 0, text, length, result.data(), size, nullptr, nullptr);
    }
    return result;
}

// A BSTR may be null, which COM treats as the empty string.
inline std::string BstrToAnsi(BSTR text) {
    return ToAnsi(text, text ? static_cast<int>(::SysStringLen(text)) : 0);
}

inline std::wstring ToWide(std::string_view text, UINT codePage = CP_ACP) {
    if (text.empty()) {
        return {};
    }
    int length = static_cast<int>(text.size());
    int size = ::MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
    std::wstring result(size > 0 ? size : 0, L'\0');
    if (size > 0) {
        ::MultiByteToWideChar(codePage, 0, text.data(), length, result.data(), size);
    }
    return result;
}

} // namespace corvid::win
