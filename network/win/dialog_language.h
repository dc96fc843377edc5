#pragma once

// Dialog texts through the plug-in's language table: a translation file may re-caption, re-text
// and re-lay out any dialog of ours by its resource id.

#include <windows.h>

#include <cstdint>
#include <string>

namespace corvid {
class LanguageTable;
}

namespace corvid::network {

// Applies the language table's changes for dialog resourceId to an open dialog.
void TranslateDialog(HWND dialog, const LanguageTable& language, int resourceId);

// The text of a string-table id through the language table; empty when neither has it.
std::string Text(const LanguageTable& language, std::uint32_t id);

} // namespace corvid::network
