#include "search/result_cells.h"

#include <algorithm>
#include <cstring>

namespace corvid {
namespace {

std::string Decimal(long long value) {
    return std::to_string(value);
}

} // namespace

std::string FormatSize(std::int64_t value) {
    const bool negative = value < 0;
    // Through unsigned so that the most negative value has a magnitude too.
    std::uint64_t magnitude =
        negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    char reversed[32];
    std::size_t length = 0;
    int digits = 0;
    do {
        if (digits == 3) {
            reversed[length++] = ',';
            digits = 0;
        }
        reversed[length++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
        ++digits;
    } while (magnitude != 0);
    if (negative) {
        reversed[length++] = '-';
    }
    return std::string(std::make_reverse_iterator(reversed + length),
                       std::make_reverse_iterator(reversed));
}

bool ShowsMultiple(std::uint32_t column) {
    switch (column) {
    case kColumnHost:
    case kColumnPort:
    case kColumnFileIndex:
    case kColumnVersion:
    case kColumnSpeed:
    case kColumnBrowse:
    case kColumnUptime:
    case kColumnNodeId:
        return true;
    default:
        return false;
    }
}

std::string CellText(const ResultGroup& group, int sourceIndex, std::uint32_t column) {
    if (group.sources.empty() || sourceIndex < -1 ||
        (sourceIndex >= 0 && static_cast<std::size_t>(sourceIndex) >= group.sources.size())) {
        return {};
    }
    if (sourceIndex == -1 && group.sources.size() >= 2 && ShowsMultiple(column)) {
        return "multiple(" + Decimal(static_cast<long long>(group.sources.size())) + ")";
    }
    const ResultSource& source = group.sources[sourceIndex == -1 ? 0 : sourceIndex];
    switch (column) {
    case kColumnName:
        return source.name;
    case kColumnSize:
        return FormatSize(source.size);
    case kColumnHost:
        return source.host;
    case kColumnPort:
        return Decimal(source.port);
    case kColumnFileIndex:
        return Decimal(source.fileIndex);
    case kColumnRank:
        return " ";
    case kColumnType:
        return source.type;
    case kColumnVersion:
        return source.vendorCode;
    case kColumnSpeed:
        return Decimal(source.speed);
    case kColumnSha1:
        return group.sha1;
    case kColumnBrowse:
        return source.browsable != 0 ? "Yes" : "No";
    case kColumnUptime:
        return source.uptime;
    case kColumnGuid:
        return source.guid;
    case kColumnNodeId:
        return source.nodeId;
    case kColumnInformation:
        return source.info;
    default:
        return {};
    }
}

std::size_t CopyCellText(const ResultGroup& group, int sourceIndex, std::uint32_t column,
                         std::span<char> buffer) {
    if (buffer.empty()) {
        return 0;
    }
    const std::string text = CellText(group, sourceIndex, column);
    const std::size_t length = std::min(text.size(), buffer.size() - 1);
    std::memcpy(buffer.data(), text.data(), length);
    buffer[length] = '\0';
    return length;
}

} // namespace corvid
