#pragma once

// The engine's network information (an <info> element of figures) as lines for people: each
// figure under its translated label, the uptime in hours and minutes, yes or no for the firewall.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvid {
class LanguageTable;
}

namespace corvid::shell {

struct InfoLine {
    std::string label;
    std::string value;
    bool operator==(const InfoLine&) const = default;
};

// Lines for the figures the text holds, in a fixed order; figures it lacks are left out. A text
// without an <info> element gives no lines.
std::vector<InfoLine> ReadNetworkInfo(std::string_view text, const LanguageTable& language);

// "2 h 05 min" from seconds ("0 min" below a minute; days counted in hours).
std::string UptimeText(long long seconds);

} // namespace corvid::shell
