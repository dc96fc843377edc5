#include "network/win/dialog_language.h"

#include "markup/language_table.h"
#include "platform/win/dialog_language.h"

namespace corvid::network {

void TranslateDialog(HWND dialog, const LanguageTable& language, int resourceId) {
    win::ApplyLanguageToDialog(dialog, language, resourceId);
}

std::string Text(const LanguageTable& language, std::uint32_t id) {
    std::string text;
    language.LoadText(id, text);
    return text;
}

} // namespace corvid::network
