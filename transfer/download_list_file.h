#pragma once

// The download list as it is kept between runs: one text per user, written with the element tree
// writer and read back with its parser. The file sits in the user's profile, where anyone with the
// user's rights may have edited it, so reading checks every record and drops what it cannot trust.

#include "search/result_records.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::transfer {

struct SavedDownload {
    std::string sha1;
    std::string localPath;
    std::int32_t state = 0;
    std::int32_t progress = 0;
    std::vector<ResultSource> sources;
};

std::string WriteDownloadList(std::span<const SavedDownload> downloads);

// Records with a SHA1 that is not letters and digits, a path that is not a plain absolute path
// ending in a safe file name, an unknown state or no source are dropped; so are repeats of a SHA1.
// At most kMaxSavedDownloads records and kMaxSavedSources sources each are read.
inline constexpr std::size_t kMaxSavedDownloads = 10000;
inline constexpr std::size_t kMaxSavedSources = 512;
std::vector<SavedDownload> ReadDownloadList(std::string_view text);

// A path the page may write to and delete: "X:\..." (or "/..." for the portable tests) with no
// "." or ".." part and a last part that SafeFileName leaves as it is.
bool IsPlainLocalPath(std::string_view path);

} // namespace corvid::transfer
