#pragma once

// Report-view columns, added the one way every list in the plug-in adds them.

#include <windows.h>

#include <commctrl.h>

namespace corvid::win {

// Appends column `index` of a report list view: its width in pixels, its alignment (LVCFMT_LEFT or
// LVCFMT_RIGHT) and its title; lists whose titles come later from the language table pass none.
// Callers link comctl32, as every list view does.
inline void AddListColumn(HWND list, int index, int width, int format = LVCFMT_LEFT,
                          const char* title = nullptr) {
    LVCOLUMNA column = {};
    column.mask = LVCF_FMT | LVCF_WIDTH | LVCF_SUBITEM | (title ? LVCF_TEXT : 0);
    column.fmt = format;
    column.cx = width;
    column.iSubItem = index;
    column.pszText = const_cast<char*>(title);
    ::SendMessageA(list, LVM_INSERTCOLUMNA, static_cast<WPARAM>(index),
                   reinterpret_cast<LPARAM>(&column));
}

} // namespace corvid::win
