#include "transfer/upload_list.h"

#include "search/result_records.h"
#include "search/tag_scanner.h"

namespace corvid::transfer {
namespace {

// Reads one child after `from`; when found, `from` moves behind it.
std::string_view Child(std::string_view content, std::size_t& from, std::string_view tag) {
    std::string_view value;
    const auto end = ReadElement(content.substr(from), tag, value);
    if (end == 0)
        return {};
    from += end;
    return value;
}

} // namespace

std::vector<UploadInfo> ParseUploads(std::string_view text) {
    std::vector<UploadInfo> uploads;
    std::size_t offset = 0;
    while (offset < text.size()) {
        std::string_view content;
        std::string_view openTag;
        const auto end = ReadElement(text.substr(offset), "<UploadInfo", content, openTag);
        if (end == 0)
            break;
        offset += end;
        UploadInfo upload;
        std::string_view id;
        if (ReadAttribute(openTag, "id", id))
            upload.id = ParseDecimal(id);
        std::size_t from = 0;
        upload.progress = ParseDecimal(Child(content, from, "<Progress"));
        upload.speed = ParseDecimal(Child(content, from, "<Speed"));
        upload.description = Child(content, from, "<Description");
        upload.fileName = Child(content, from, "<FileName");
        upload.fileSize = ParseDecimal(Child(content, from, "<FileSize>"));
        upload.ip = Child(content, from, "<IP");
        upload.port = ParseDecimal(Child(content, from, "<port"));
        uploads.push_back(std::move(upload));
    }
    return uploads;
}

std::string UploadCellText(const UploadInfo& upload, int column) {
    switch (column) {
    case kUploadFile:
        return upload.fileName;
    case kUploadHost:
        return upload.port > 0 ? upload.ip + ":" + std::to_string(upload.port) : upload.ip;
    case kUploadProgress:
        return std::to_string(upload.progress < 0 ? 0 : upload.progress) + "%";
    case kUploadSpeed:
        return FormatSize(upload.speed < 0 ? 0 : upload.speed) + " B/s";
    case kUploadSize:
        return FormatSize(upload.fileSize);
    default:
        return {};
    }
}

std::optional<std::uint32_t> ParseUploadSpeed(std::string_view text) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    if (text.empty())
        return std::nullopt;
    std::uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return std::nullopt;
        value = value * 10 + static_cast<std::uint64_t>(c - '0');
        if (value > 0xFFFFFFFFu)
            return std::nullopt;
    }
    return static_cast<std::uint32_t>(value);
}

bool UploadLimitOn(std::optional<std::uint32_t> maxUploadSpeed) {
    return maxUploadSpeed && *maxUploadSpeed != 0;
}

UploadLimitChange ToggleUploadLimit(std::optional<std::uint32_t> maxUploadSpeed,
                                    std::optional<std::uint32_t> uploadLimit) {
    UploadLimitChange change;
    change.checked = !UploadLimitOn(maxUploadSpeed);
    // Turning on with an "UploadLimit" of 0 writes 0: the button shows on while nothing is
    // limited, and the next press reads limiting as off and turns it on again.
    change.newLimit = change.checked ? uploadLimit.value_or(kDefaultUploadLimit) : 0;
    return change;
}

} // namespace corvid::transfer
