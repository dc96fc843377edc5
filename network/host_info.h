#pragma once

// The hosts view's model: the engine's host-info text read into rows, the cell texts by column
// id, and the rule that keeps the selection across the view's once-a-second rebuild.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::network {

// One connected node as the engine describes it. Times are milliseconds of the system tick
// counter (32 bits, wrapping), shared by engine and view; a missing or non-numeric time is 0.
struct HostRow {
    std::string id;
    std::string node;
    std::string userAgent;
    std::uint32_t handshakeTick = 0;
    std::string type;
    std::string in;
    std::string out;
    std::uint32_t updateTick = 0;
    std::string version;
};

// Reads every <Host> element; one without an <ID> (or with an empty one) is left out. Children are
// looked for in a fixed order, each search starting where the previous one ended, as the engine
// writes them.
std::vector<HostRow> ReadHostInfo(std::string_view text);

// Columns by the string-table id of their titles.
enum HostColumn : std::uint32_t {
    kHostColumnHost = 33008,
    kHostColumnNodeId = 33019,
    kHostColumnVersion = 33013,
    kHostColumnType = 33012,
    kHostColumnIn = 32946,
    kHostColumnOut = 32947,
    kHostColumnUpdateTime = 32948,
    kHostColumnTime = 32944,
    kHostColumnAgent = 32945,
    kHostColumnStatus = 33024,
};

// The ten columns in the order the view first shows them.
inline constexpr std::array<std::uint32_t, 10> kHostColumns = {
    kHostColumnHost, kHostColumnNodeId,     kHostColumnVersion, kHostColumnType,  kHostColumnIn,
    kHostColumnOut,  kHostColumnUpdateTime, kHostColumnTime,    kHostColumnAgent, kHostColumnStatus,
};

// "%d s" for the time since the connection was made: the tick difference taken as unsigned, so
// the wrap of the counter is no jump.
std::string ConnectedForText(std::uint32_t now, std::uint32_t handshakeTick);
// "%d s" for the time since the last update: signed, rounded toward zero.
std::string UpdatedAgoText(std::uint32_t now, std::uint32_t updateTick);

// The text of one cell; an unknown column (and "Status") is empty.
std::string HostCellText(const HostRow& row, std::uint32_t column, std::uint32_t now);

// "http://" + the node's address when it reads as host:port (a host without blanks or slashes and
// a port 1-65535), else nothing: the text handed to the main view to open a browse-host tab.
std::optional<std::string> BrowseAddress(std::string_view node);

// The rows of the view, rebuilt whole from each host-info text. Cells are formatted at rebuild
// time, so a row reads the same until the next rebuild.
class HostsTable {
public:
    explicit HostsTable(std::vector<std::uint32_t> columns = {kHostColumns.begin(),
                                                              kHostColumns.end()});

    void Rebuild(std::string_view hostInfoText, std::uint32_t now);

    std::size_t RowCount() const { return rows_.size(); }
    const HostRow& Row(std::size_t row) const { return rows_[row]; }
    const std::vector<std::uint32_t>& Columns() const { return columns_; }
    // Empty for a row or column out of range.
    const std::string& Cell(std::size_t row, std::size_t column) const;

    // The row the selection goes to after a rebuild: the first whose first-column text equals the
    // text remembered before it. Nothing for an empty text (no row was selected).
    std::optional<std::size_t> FindByFirstColumn(std::string_view text) const;

private:
    std::vector<std::uint32_t> columns_;
    std::vector<HostRow> rows_;
    std::vector<std::vector<std::string>> cells_;
};

// The row's fields as "Title: value" lines (CR LF between them) for the properties dialog, the
// titles being the column titles by id.
std::string HostPropertiesText(const HostRow& row, std::uint32_t now,
                               const std::function<std::string(std::uint32_t id)>& title);

} // namespace corvid::network
