#pragma once

// The cell texts of the result list, by column identifier (the string-table id of the
// column's title), so columns can be reordered.

#include "search/result_records.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace corvid {

enum ResultColumn : std::uint32_t {
    kColumnName = 33006,
    kColumnSize = 33007,
    kColumnHost = 33008,
    kColumnPort = 33009,
    kColumnFileIndex = 33010,
    kColumnRank = 33011,
    kColumnType = 33012,
    kColumnVersion = 33013,
    kColumnSpeed = 33014,
    kColumnSha1 = 33015,
    kColumnBrowse = 33016,
    kColumnUptime = 33017,
    kColumnGuid = 33018,
    kColumnNodeId = 33019,
    kColumnInformation = 33020,
};

// The fifteen columns of the result list in id order.
inline constexpr std::array<std::uint32_t, 15> kResultColumns = {
    kColumnName,   kColumnSize,   kColumnHost,    kColumnPort,   kColumnFileIndex,
    kColumnRank,   kColumnType,   kColumnVersion, kColumnSpeed,  kColumnSha1,
    kColumnBrowse, kColumnUptime, kColumnGuid,    kColumnNodeId, kColumnInformation,
};

// The columns whose values differ between the hosts of one file: a group's own row shows
// "multiple(N)" there, and sorts after every single value, by its number of hosts.
bool ShowsMultiple(std::uint32_t column);

// sourceIndex -1 is the group's own row, whose values come from its first source; 0 and up is
// one source's row. A group's own row with two or more sources shows "multiple(N)" in the
// columns that differ between hosts. Unknown columns, missing sources and empty groups give "".
std::string CellText(const ResultGroup& group, int sourceIndex, std::uint32_t column);

// The same text written into the list's buffer, cut to fit and always NUL-terminated (nothing
// is written into an empty buffer). Returns the number of characters written before the NUL.
std::size_t CopyCellText(const ResultGroup& group, int sourceIndex, std::uint32_t column,
                         std::span<char> buffer);

} // namespace corvid
