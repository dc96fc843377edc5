#include "shell/status_texts.h"

#include "markup/language_table.h"

namespace corvid::shell {

int StatusPaneIndex(int paneId) {
    for (std::size_t i = 0; i < kStatusPanes.size(); ++i) {
        if (kStatusPanes[i].id == paneId) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

std::string FormatCounter(std::string_view format, int count) {
    const std::string number = std::to_string(count);
    const std::size_t at = format.find("%d");
    if (at == std::string_view::npos) {
        return std::string(format) + number;
    }
    std::string text(format.substr(0, at));
    text += number;
    text += format.substr(at + 2);
    return text;
}

bool StatusTexts::SetText(std::string text) {
    if (texts_[0] == text) {
        return false;
    }
    texts_[0] = std::move(text);
    return true;
}

bool StatusTexts::SetCounter(int paneId, int count, const LanguageTable& language) {
    const int index = StatusPaneIndex(paneId);
    if (index <= 0) {
        return false;
    }
    std::string format;
    language.LoadText(static_cast<std::uint32_t>(paneId), format);
    counts_[index] = count;
    set_[index] = true;
    texts_[index] = FormatCounter(format, count);
    return true;
}

void StatusTexts::Reformat(const LanguageTable& language) {
    for (std::size_t i = 1; i < kStatusPanes.size(); ++i) {
        if (set_[i]) {
            SetCounter(kStatusPanes[i].id, counts_[i], language);
        }
    }
}

} // namespace corvid::shell
