#include "network/host_info.h"

#include "search/tag_scanner.h"

#include <charconv>

namespace corvid::network {

namespace {

// The engine writes ticks as signed 32-bit decimals; the same 32 bits come back either way.
std::uint32_t TickOf(std::string_view text) {
    return static_cast<std::uint32_t>(ParseDecimal(text));
}

std::string SecondsText(long long seconds) {
    return std::to_string(seconds) + " s";
}

} // namespace

std::vector<HostRow> ReadHostInfo(std::string_view text) {
    std::vector<HostRow> rows;
    std::string_view host;
    while (std::size_t end = ReadElement(text, "<Host>", host)) {
        text.remove_prefix(end);
        std::string_view rest = host;
        std::string_view value;
        auto next = [&](std::string_view tag) {
            value = {};
            if (std::size_t used = ReadElement(rest, tag, value)) {
                rest.remove_prefix(used);
                return true;
            }
            return false;
        };
        HostRow row;
        if (!next("<ID>") || value.empty()) {
            continue;
        }
        row.id = value;
        next("<Node>");
        row.node = value;
        next("<UserAgent>");
        row.userAgent = value;
        next("<HandshakeTime>");
        row.handshakeTick = TickOf(value);
        next("<Type>");
        row.type = value;
        next("<In>");
        row.in = value;
        next("<Out>");
        row.out = value;
        next("<UpdateTime>");
        row.updateTick = TickOf(value);
        next("<Ver>");
        row.version = value;
        rows.push_back(std::move(row));
    }
    return rows;
}

std::string ConnectedForText(std::uint32_t now, std::uint32_t handshakeTick) {
    return SecondsText(static_cast<std::uint32_t>(now - handshakeTick) / 1000);
}

std::string UpdatedAgoText(std::uint32_t now, std::uint32_t updateTick) {
    return SecondsText(static_cast<std::int32_t>(now - updateTick) / 1000);
}

std::string HostCellText(const HostRow& row, std::uint32_t column, std::uint32_t now) {
    switch (column) {
    case kHostColumnHost:
        return row.node;
    case kHostColumnNodeId:
        return row.id;
    case kHostColumnVersion:
        return row.version;
    case kHostColumnType:
        return row.type;
    case kHostColumnIn:
        return row.in;
    case kHostColumnOut:
        return row.out;
    case kHostColumnUpdateTime:
        return UpdatedAgoText(now, row.updateTick);
    case kHostColumnTime:
        return ConnectedForText(now, row.handshakeTick);
    case kHostColumnAgent:
        return row.userAgent;
    default:
        return {};
    }
}

std::optional<std::string> BrowseAddress(std::string_view node) {
    const std::size_t colon = node.rfind(':');
    if (colon == std::string_view::npos || colon == 0) {
        return std::nullopt;
    }
    const std::string_view host = node.substr(0, colon);
    const std::string_view port = node.substr(colon + 1);
    for (char c : host) {
        if (static_cast<unsigned char>(c) <= ' ' || c == '/' || c == '\\' || c == '?' || c == '#' ||
            c == '@') {
            return std::nullopt;
        }
    }
    unsigned value = 0;
    auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), value);
    if (error != std::errc() || end != port.data() + port.size() || value == 0 || value > 65535) {
        return std::nullopt;
    }
    return "http://" + std::string(node);
}

HostsTable::HostsTable(std::vector<std::uint32_t> columns) : columns_(std::move(columns)) {}

void HostsTable::Rebuild(std::string_view hostInfoText, std::uint32_t now) {
    rows_ = ReadHostInfo(hostInfoText);
    cells_.clear();
    cells_.reserve(rows_.size());
    for (const HostRow& row : rows_) {
        std::vector<std::string> cells;
        cells.reserve(columns_.size());
        for (std::uint32_t column : columns_) {
            cells.push_back(HostCellText(row, column, now));
        }
        cells_.push_back(std::move(cells));
    }
}

const std::string& HostsTable::Cell(std::size_t row, std::size_t column) const {
    static const std::string empty;
    if (row >= cells_.size() || column >= cells_[row].size()) {
        return empty;
    }
    return cells_[row][column];
}

std::optional<std::size_t> HostsTable::FindByFirstColumn(std::string_view text) const {
    if (text.empty()) {
        return std::nullopt;
    }
    for (std::size_t row = 0; row < cells_.size(); ++row) {
        if (Cell(row, 0) == text) {
            return row;
        }
    }
    return std::nullopt;
}

std::string HostPropertiesText(const HostRow& row, std::uint32_t now,
                               const std::function<std::string(std::uint32_t id)>& title) {
    std::string text;
    for (std::uint32_t column : kHostColumns) {
        if (column == kHostColumnStatus) {
            continue;
        }
        if (!text.empty()) {
            text += "\r\n";
        }
        text += title(column) + ": " + HostCellText(row, column, now);
    }
    return text;
}

} // namespace corvid::network
