#include "search/browse_history.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>

namespace corvid {
namespace {

constexpr std::size_t kPieceBytes = 255;

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

void AddPiece(std::vector<std::string>& entries, std::string_view piece) {
    std::string cleaned;
    cleaned.reserve(piece.size());
    for (char c : piece) {
        if (c != '\r' && c != '\n') {
            cleaned.push_back(c);
        }
    }
    std::size_t begin = 0;
    std::size_t end = cleaned.size();
    while (begin < end && IsBlank(cleaned[begin])) {
        ++begin;
    }
    while (end > begin && IsBlank(cleaned[end - 1])) {
        --end;
    }
    if (end > begin) {
        entries.push_back(cleaned.substr(begin, end - begin));
    }
}

// Reads like "%d": leading white space, a sign, digits. Advances `at` past what it read; empty
// when no digit follows. Values beyond int saturate.
std::optional<int> ReadNumber(std::string_view text, std::size_t& at) {
    std::size_t i = at;
    while (i < text.size() && (IsBlank(text[i]) || text[i] == '\r' || text[i] == '\n')) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) {
        negative = text[i] == '-';
        ++i;
    }
    const std::size_t digitsAt = i;
    long long value = 0;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
        value = std::min<long long>(value * 10 + (text[i] - '0'),
                                    std::numeric_limits<int>::max() + 1LL);
        ++i;
    }
    if (i == digitsAt) {
        return std::nullopt;
    }
    at = i;
    value = negative ? -value : value;
    return static_cast<int>(std::clamp<long long>(value, std::numeric_limits<int>::min(),
                                                  std::numeric_limits<int>::max()));
}

std::string DottedAddress(std::uint32_t address) {
    return std::to_string(address >> 24 & 0xFF) + "." + std::to_string(address >> 16 & 0xFF) + "." +
           std::to_string(address >> 8 & 0xFF) + "." + std::to_string(address & 0xFF);
}

} // namespace

std::vector<std::string> ParseBrowseHistory(std::string_view content) {
    std::vector<std::string> entries;
    std::size_t at = 0;
    while (at < content.size()) {
        const std::size_t newline = content.find('\n', at);
        const std::size_t lineEnd =
            newline == std::string_view::npos ? content.size() : newline + 1;
        std::string_view line = content.substr(at, lineEnd - at);
        // Opened as text: a CR LF pair reads as one LF, so it takes one byte of a piece.
        std::string text(line);
        if (text.size() >= 2 && text[text.size() - 2] == '\r' && text.back() == '\n') {
            text.erase(text.size() - 2, 1);
        }
        for (std::size_t piece = 0; piece < text.size(); piece += kPieceBytes) {
            AddPiece(entries, std::string_view(text).substr(piece, kPieceBytes));
        }
        at = lineEnd;
    }
    return entries;
}

std::string FormatBrowseHistory(const std::vector<std::string>& entries) {
    std::string content;
    for (const std::string& entry : entries) {
        content += entry;
        content += "\r\n";
    }
    return content;
}

bool AddToBrowseHistory(std::vector<std::string>& entries, const std::string& entry) {
    if (std::find(entries.begin(), entries.end(), entry) != entries.end()) {
        return false;
    }
    entries.insert(entries.begin(), entry);
    return true;
}

HistoryAddress ParseHistoryAddress(std::string_view line) {
    HistoryAddress address;
    std::size_t at = 0;
    for (int i = 0; i < 4; ++i) {
        const std::optional<int> octet = ReadNumber(line, at);
        if (!octet) {
            return address;
        }
        address.octets[i] = *octet;
        const char separator = i < 3 ? '.' : ':';
        if (at >= line.size() || line[at] != separator) {
            return address;
        }
        ++at;
    }
    address.port = ReadNumber(line, at);
    return address;
}

std::uint32_t PackAddress(const int (&octets)[4]) {
    std::uint32_t packed = 0;
    for (int octet : octets) {
        packed = packed << 8 | (static_cast<std::uint32_t>(octet) & 0xFF);
    }
    return packed;
}

bool IsValidPort(int port) {
    return port >= 1 && port <= 65535;
}

std::string HistoryEntry(std::uint32_t address, int port) {
    return DottedAddress(address) + ":" + std::to_string(port);
}

std::string BrowseUrl(std::uint32_t address, int port) {
    return "http://" + HistoryEntry(address, port);
}

std::string BrowseTarget(std::string_view url) {
    constexpr std::string_view kScheme = "http://";
    if (url.size() >= kScheme.size() && url.substr(0, kScheme.size()) == kScheme) {
        url.remove_prefix(kScheme.size());
    }
    const std::size_t slash = url.find('/');
    if (slash != std::string_view::npos) {
        url = url.substr(0, slash);
    }
    const std::size_t colon = url.rfind(':');
    if (colon == std::string_view::npos || colon == 0) {
        return {};
    }
    const std::string_view host = url.substr(0, colon);
    const std::string_view portText = url.substr(colon + 1);
    if (portText.empty() || portText.size() > 5 ||
        !std::all_of(portText.begin(), portText.end(),
                     [](char c) { return c >= '0' && c <= '9'; })) {
        return {};
    }
    if (!IsValidPort(std::stoi(std::string(portText))) ||
        std::any_of(host.begin(), host.end(),
                    [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == ':'; })) {
        return {};
    }
    return std::string(url);
}

std::string BrowseHistoryFolder(std::string tempPath) {
    if (tempPath.empty() || tempPath.back() != '\\') {
        tempPath += '\\';
    }
    return tempPath + "Tarvo\\P2P\\";
}

std::vector<std::string> BrowseHistoryFolders(const std::string& tempPath) {
    const std::string p2p = BrowseHistoryFolder(tempPath);
    const std::string tarvo = p2p.substr(0, p2p.size() - std::string_view("P2P\\").size());
    return {tarvo, p2p};
}

std::vector<std::string> LoadBrowseHistory(const std::string& path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                         &std::fclose);
    if (!file) {
        return {};
    }
    std::string content;
    char buffer[4096];
    std::size_t read = 0;
    while (content.size() < kMaxBrowseHistoryBytes &&
           (read = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
        content.append(buffer, std::min(read, kMaxBrowseHistoryBytes - content.size()));
    }
    return ParseBrowseHistory(content);
}

bool SaveBrowseHistory(const std::string& path, const std::vector<std::string>& entries) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"),
                                                         &std::fclose);
    if (!file) {
        return false;
    }
    const std::string content = FormatBrowseHistory(entries);
    return std::fwrite(content.data(), 1, content.size(), file.get()) == content.size();
}

} // namespace corvid
