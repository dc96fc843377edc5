#include "engine/core/handshake.h"

namespace corvid::gnutella {

std::optional<std::string> HeaderBlock::Get(std::string_view name) const {
    std::optional<std::string> value;
    for (const auto& [n, v] : headers) {
        if (!EqualsIgnoreCase(n, name))
            continue;
        if (value)
            *value += "," + v;
        else
            value = v;
    }
    return value;
}

bool HeaderBlock::IsTrue(std::string_view name) const {
    auto v = Get(name);
    return v && EqualsIgnoreCase(TrimSpaces(*v), "true");
}

bool HeaderBlock::IsFalse(std::string_view name) const {
    auto v = Get(name);
    return v && EqualsIgnoreCase(TrimSpaces(*v), "false");
}

bool HeaderBlock::HasToken(std::string_view name, std::string_view token) const {
    auto v = Get(name);
    if (!v)
        return false;
    std::string_view rest = *v;
    while (!rest.empty()) {
        auto comma = rest.find(',');
        auto item = TrimSpaces(rest.substr(0, comma));
        if (EqualsIgnoreCase(item, token))
            return true;
        if (comma == std::string_view::npos)
            break;
        rest.remove_prefix(comma + 1);
    }
    return false;
}

HeaderBlockReader::Status HeaderBlockReader::Feed(ByteView in, std::size_t* used) {
    *used = 0;
    for (auto b : in) {
        ++*used;
        if (++total_ > kMaxHandshakeBlock)
            return Status::Error;
        if (b != '\n') {
            line_.push_back(static_cast<char>(b));
            continue;
        }
        if (!line_.empty() && line_.back() == '\r')
            line_.pop_back();
        if (line_.empty()) {
            if (!have_start_)
                return Status::Error;
            return Status::Complete;
        }
        if (!ParseLine(line_))
            return Status::Error;
        line_.clear();
    }
    return Status::NeedMore;
}

bool HeaderBlockReader::ParseLine(std::string_view line) {
    if (!have_start_) {
        have_start_ = true;
        block_.start_line = line;
        if (StartsWithIgnoreCase(line, "GNUTELLA CONNECT/0.")) {
            block_.is_connect = true;
            return true;
        }
        if (!StartsWithIgnoreCase(line, "GNUTELLA/0."))
            return false;
        auto space = line.find(' ');
        if (space == std::string_view::npos)
            return false;
        int code = 0;
        std::size_t i = space + 1, digits = 0;
        for (; i < line.size() && line[i] >= '0' && line[i] <= '9' && digits < 3; ++i, ++digits)
            code = code * 10 + (line[i] - '0');
        if (digits != 3)
            return false;
        block_.code = code;
        return true;
    }
    if (line.front() == ' ' || line.front() == '\t') {
        // A continuation line belongs to the header above it.
        if (block_.headers.empty())
            return false;
        auto& value = block_.headers.back().second;
        value.push_back(' ');
        value.append(TrimSpaces(line));
        return true;
    }
    auto colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0)
        return false;
    if (block_.headers.size() >= kMaxHandshakeHeaders)
        return false;
    block_.headers.emplace_back(std::string(TrimSpaces(line.substr(0, colon))),
                                std::string(TrimSpaces(line.substr(colon + 1))));
    return true;
}

std::string FormatHeaderBlock(std::string_view start_line,
                              const std::vector<std::pair<std::string, std::string>>& headers) {
    std::string out(start_line);
    out += "\r\n";
    for (const auto& [name, value] : headers)
        out += name + ": " + value + "\r\n";
    out += "\r\n";
    return out;
}

std::vector<Endpoint> ParseTryList(std::string_view value) {
    std::vector<Endpoint> hosts;
    while (!value.empty()) {
        auto comma = value.find(',');
        auto item = TrimSpaces(value.substr(0, comma));
        auto space = item.find_first_of(" \t");
        if (auto ep = ParseEndpoint(item.substr(0, space)); ep && ep->IsValid())
            hosts.push_back(*ep);
        if (comma == std::string_view::npos)
            break;
        value.remove_prefix(comma + 1);
    }
    return hosts;
}

std::string FormatTryList(const std::vector<Endpoint>& hosts) {
    std::string out;
    for (const auto& h : hosts) {
        if (!out.empty())
            out += ",";
        out += h.ToString();
    }
    return out;
}

} // namespace corvid::gnutella
