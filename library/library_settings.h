#pragma once

// The file manager's per-user settings, kept as a small text file: the shared folders, the single
// files shared on their own (completed downloads), the hashing CPU share and whether completed
// downloads are shared. One "key=value" a line; paths in UTF-8.

#include <string>
#include <string_view>
#include <vector>

namespace corvid::library {

struct LibrarySettings {
    std::vector<std::string> folders;
    std::vector<std::string> files;
    int cpuPercent = 50;
    bool shareDownloads = true;
};

// Hostile text: unknown keys, bad numbers and empty or duplicate paths are skipped; the CPU share
// is brought into 1..100.
LibrarySettings ParseLibrarySettings(std::string_view text);
std::string SerializeLibrarySettings(const LibrarySettings& settings);

} // namespace corvid::library
