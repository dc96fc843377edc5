#include "library/library_settings.h"

#include <algorithm>
#include <charconv>

namespace corvid::library {
namespace {

void AddOnce(std::vector<std::string>& list, std::string_view value) {
    if (!value.empty() && std::find(list.begin(), list.end(), value) == list.end()) {
        list.emplace_back(value);
    }
}

} // namespace

LibrarySettings ParseLibrarySettings(std::string_view text) {
    LibrarySettings settings;
    while (!text.empty()) {
        const auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        const auto equals = line.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        const std::string_view key = line.substr(0, equals);
        const std::string_view value = line.substr(equals + 1);
        if (key == "folder") {
            AddOnce(settings.folders, value);
        } else if (key == "file") {
            AddOnce(settings.files, value);
        } else if (key == "cpu" || key == "share_downloads") {
            int number = 0;
            const auto [stop, error] =
                std::from_chars(value.data(), value.data() + value.size(), number);
            if (error != std::errc() || stop != value.data() + value.size()) {
                continue;
            }
            if (key == "cpu") {
                settings.cpuPercent = std::clamp(number, 1, 100);
            } else {
                settings.shareDownloads = number != 0;
            }
        }
    }
    return settings;
}

std::string SerializeLibrarySettings(const LibrarySettings& settings) {
    std::string text;
    for (const auto& folder : settings.folders) {
        text += "folder=" + folder + "\r\n";
    }
    for (const auto& file : settings.files) {
        text += "file=" + file + "\r\n";
    }
    text += "cpu=" + std::to_string(settings.cpuPercent) + "\r\n";
    text += "share_downloads=" + std::string(settings.shareDownloads ? "1" : "0") + "\r\n";
    return text;
}

} // namespace corvid::library
