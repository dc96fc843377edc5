#pragma once

// Every dialog of the plug-in re-captions and re-lays itself out from the language table when it
// opens, with its own resource id.

#include <windows.h>

namespace corvid::shell {

void ApplyLanguageToDialog(HWND dialog, int resourceId);

} // namespace corvid::shell
