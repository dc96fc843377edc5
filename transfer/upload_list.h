#pragma once

// The upload page's model: the engine's upload text read into records, and the rule of the
// Limit Speed button over the two registry values it reads and writes.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::transfer {

struct UploadInfo {
    std::int32_t id = 0;
    std::int32_t progress = 0;
    std::int32_t speed = 0;
    std::string description;
    std::string fileName;
    std::int32_t fileSize = 0;
    std::string ip;
    std::int32_t port = 0;
    bool operator==(const UploadInfo&) const = default;
};

// Every "<UploadInfo" element of the engine's text, in order. Inside each, the children are looked
// for in a fixed order, each search starting where the previous one ended; one that is missing or
// out of order reads as empty (0 for a number).
std::vector<UploadInfo> ParseUploads(std::string_view text);

// The cells of the upload list, by column.
enum UploadColumn : int {
    kUploadFile = 0,
    kUploadHost,
    kUploadProgress,
    kUploadSpeed,
    kUploadSize,
    kUploadColumnCount,
};
std::string UploadCellText(const UploadInfo& upload, int column);

// The Limit Speed button. "maxULSpeedLimit" is the limit in force (absent or 0: none);
// "UploadLimit" is the limit to apply when limiting is turned on.
inline constexpr std::uint32_t kDefaultUploadLimit = 30720;
bool UploadLimitOn(std::optional<std::uint32_t> maxUploadSpeed);

// The options page's upload speed field: decimal digits only (blanks around them allowed), up to
// the largest 32-bit value.
std::optional<std::uint32_t> ParseUploadSpeed(std::string_view text);

struct UploadLimitChange {
    bool checked = false;       // the button's new state
    std::uint32_t newLimit = 0; // written to "maxULSpeedLimit"
};
UploadLimitChange ToggleUploadLimit(std::optional<std::uint32_t> maxUploadSpeed,
                                    std::optional<std::uint32_t> uploadLimit);

} // namespace corvid::transfer
