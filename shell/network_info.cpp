#include "shell/network_info.h"

#include "markup/language_table.h"
#include "search/tag_scanner.h"

#include <cstdint>
#include <cstdio>

namespace corvid::shell {

namespace {

enum class Shape { kText, kNumber, kYesNo, kUptime };

struct Figure {
    const char* tag;
    std::uint32_t labelId;
    Shape shape;
};

constexpr Figure kFigures[] = {
    {"<Mode>", 36150, Shape::kText},          {"<Address>", 36151, Shape::kText},
    {"<Firewalled>", 36152, Shape::kYesNo},   {"<Connections>", 36153, Shape::kNumber},
    {"<Ultrapeers>", 36154, Shape::kNumber},  {"<Leaves>", 36155, Shape::kNumber},
    {"<SharedFiles>", 36156, Shape::kNumber}, {"<SharedKB>", 36157, Shape::kNumber},
    {"<Uploads>", 36158, Shape::kNumber},     {"<Uptime>", 36159, Shape::kUptime},
    {"<UserAgent>", 36160, Shape::kText},
};

std::string Translated(std::uint32_t id, const LanguageTable& language) {
    std::string text;
    language.LoadText(id, text);
    return text;
}

} // namespace

std::string UptimeText(long long seconds) {
    if (seconds < 0) {
        seconds = 0;
    }
    const long long minutes = seconds / 60;
    char text[48];
    if (minutes < 60) {
        std::snprintf(text, sizeof text, "%lld min", minutes);
    } else {
        std::snprintf(text, sizeof text, "%lld h %02lld min", minutes / 60, minutes % 60);
    }
    return text;
}

std::vector<InfoLine> ReadNetworkInfo(std::string_view text, const LanguageTable& language) {
    std::vector<InfoLine> lines;
    std::string_view info;
    if (ReadElement(text, "<info", info) == 0) {
        return lines;
    }
    for (const Figure& figure : kFigures) {
        std::string_view value;
        if (ReadElement(info, figure.tag, value) == 0) {
            continue;
        }
        std::string shown;
        switch (figure.shape) {
        case Shape::kText:
            shown = std::string(value);
            break;
        case Shape::kNumber:
            shown = std::to_string(ParseDecimal(value));
            break;
        case Shape::kYesNo:
            shown = Translated(ParseDecimal(value) != 0 ? 36162 : 36163, language);
            break;
        case Shape::kUptime:
            shown = UptimeText(ParseDecimal(value));
            break;
        }
        lines.push_back({Translated(figure.labelId, language), std::move(shown)});
    }
    return lines;
}

} // namespace corvid::shell
