#pragma once

// Every dialog of ours re-captions and re-lays itself out from the language table when it opens,
// by its own resource id: a translation file may change any dialog's texts and layout.

#include <windows.h>

namespace corvid {
class LanguageTable;
}

namespace corvid::win {

void ApplyLanguageToDialog(HWND dialog, const LanguageTable& language, int resourceId);

} // namespace corvid::win
