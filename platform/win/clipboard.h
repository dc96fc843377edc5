#pragma once

// Putting text on the clipboard, the one way the plug-in's lists copy their rows.

#include <windows.h>

#include <cstring>
#include <string>

namespace corvid::win {

// Puts `text` (ANSI) on the clipboard for `owner`; an empty text or a busy clipboard leaves the
// clipboard as it was. The clipboard owns the memory once it takes it, and only then.
inline void CopyTextToClipboard(HWND owner, const std::string& text) {
    if (text.empty() || !::OpenClipboard(owner)) {
        return;
    }
    ::EmptyClipboard();
    if (HGLOBAL memory = ::GlobalAlloc(GMEM_MOVEABLE, text.size() + 1)) {
        if (void* bytes = ::GlobalLock(memory)) {
            std::memcpy(bytes, text.c_str(), text.size() + 1);
            ::GlobalUnlock(memory);
            if (!::SetClipboardData(CF_TEXT, memory)) {
                ::GlobalFree(memory);
            }
        } else {
            ::GlobalFree(memory);
        }
    }
    ::CloseClipboard();
}

} // namespace corvid::win
