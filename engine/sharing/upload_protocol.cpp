#include "engine/sharing/upload_protocol.h"
#include "platform/ascii.h"

#include "library/sha1.h"

#include <algorithm>
#include <charconv>

namespace corvid::gnutella {
namespace {

constexpr std::size_t kMaxHeaders = 64;
constexpr std::size_t kMaxAltFiles = 1000;
constexpr std::size_t kMaxAltPerFile = 20;

char Lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](char x, char y) { return Lower(x) == Lower(y); });
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && EqualNoCase(text.substr(0, prefix.size()), prefix);
}

bool ContainsNoCase(std::string_view text, std::string_view part) {
    if (part.size() > text.size()) {
        return false;
    }
    for (std::size_t i = 0; i + part.size() <= text.size(); ++i) {
        if (EqualNoCase(text.substr(i, part.size()), part)) {
            return true;
        }
    }
    return false;
}

template <typename Number> bool ParseDecimal(std::string_view text, Number& value) {
    if (text.empty() || text.front() == '-' || text.front() == '+') {
        return false;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool IsToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return c > 0x20 && c < 0x7F &&
               std::string_view("()<>@,;:\\\"/[]?={}").find(c) == std::string_view::npos;
    });
}

bool HasControlCharacters(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7F;
    });
}

std::string StatusLine(int status) {
    switch (status) {
    case 200:
        return "HTTP/1.1 200 OK\r\n";
    case 206:
        return "HTTP/1.1 206 Partial Content\r\n";
    case 400:
        return "HTTP/1.1 400 Bad Request\r\n";
    case 404:
        return "HTTP/1.1 404 Not Found\r\n";
    case 406:
        return "HTTP/1.1 406 Not Acceptable\r\n";
    case 416:
        return "HTTP/1.1 416 Requested Range Not Satisfiable\r\n";
    default:
        return "HTTP/1.1 503 Service Unavailable\r\n";
    }
}

std::string ConnectionHeader(bool keepAlive) {
    return keepAlive ? "Connection: Keep-Alive\r\n" : "Connection: close\r\n";
}

UploadReply Refusal(int status, bool keepAlive, const UploadSettings& settings,
                    std::string extraHeaders = {}) {
    UploadReply reply;
    reply.status = status;
    reply.keepAlive = keepAlive;
    reply.head = StatusLine(status) + "Server: " + settings.serverName + "\r\n" + extraHeaders +
                 "Content-Length: 0\r\n" + ConnectionHeader(keepAlive) + "\r\n";
    return reply;
}

std::optional<library::SharedFile> FindTarget(const UploadTarget& target,
                                              const library::FileIndex& index) {
    if (target.kind == UploadTarget::Kind::Sha1) {
        return index.FindBySha1(target.sha1);
    }
    auto file = index.FindByIndex(target.index);
    if (!file) {
        return std::nullopt;
    }
    // Some downloaders write blanks in the name as '+'.
    std::string plusAsBlank = target.name;
    std::replace(plusAsBlank.begin(), plusAsBlank.end(), '+', ' ');
    if (file->name != target.name && file->name != plusAsBlank) {
        return std::nullopt;
    }
    return file;
}

} // namespace

const std::string* HttpRequest::Header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (EqualNoCase(key, name)) {
            return &value;
        }
    }
    return nullptr;
}

bool HttpRequest::WantsKeepAlive() const {
    const std::string* connection = Header("Connection");
    if (connection && ContainsNoCase(*connection, "close")) {
        return false;
    }
    if (minorVersion >= 1) {
        return true;
    }
    return connection && ContainsNoCase(*connection, "keep-alive");
}

HeadParse ParseRequestHead(std::string_view bytes) {
    HeadParse parse;
    const std::string_view limited = bytes.substr(0, kMaxRequestHead);
    std::size_t end = std::string_view::npos;
    std::size_t terminator = 0;
    for (std::size_t i = 0; i < limited.size(); ++i) {
        if (limited[i] != '\n') {
            continue;
        }
        if (i + 1 < limited.size() && limited[i + 1] == '\n') {
            end = i;
            terminator = 2;
            break;
        }
        if (i + 2 < limited.size() && limited[i + 1] == '\r' && limited[i + 2] == '\n') {
            end = i;
            terminator = 3;
            break;
        }
    }
    if (end == std::string_view::npos) {
        parse.status =
            bytes.size() >= kMaxRequestHead ? HeadStatus::Invalid : HeadStatus::Incomplete;
        return parse;
    }
    parse.status = HeadStatus::Invalid;
    std::string_view head = limited.substr(0, end);
    std::vector<std::string_view> lines;
    while (!head.empty()) {
        const std::size_t newline = head.find('\n');
        std::string_view line = head.substr(0, newline);
        head.remove_prefix(newline == std::string_view::npos ? head.size() : newline + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        lines.push_back(line);
    }
    if (lines.empty() || lines.size() > kMaxHeaders + 1) {
        return parse;
    }
    // Request line: METHOD SP target SP HTTP/1.x
    const std::string_view requestLine = lines.front();
    const std::size_t firstSpace = requestLine.find(' ');
    const std::size_t lastSpace = requestLine.rfind(' ');
    if (firstSpace == std::string_view::npos || lastSpace == firstSpace) {
        return parse;
    }
    const std::string_view method = requestLine.substr(0, firstSpace);
    const std::string_view target = requestLine.substr(firstSpace + 1, lastSpace - firstSpace - 1);
    const std::string_view version = requestLine.substr(lastSpace + 1);
    if (!IsToken(method) || target.empty() || target.find(' ') != std::string_view::npos ||
        HasControlCharacters(target) || version.size() != 8 ||
        !StartsWithNoCase(version, "HTTP/1.") || version[7] < '0' || version[7] > '9') {
        return parse;
    }
    parse.request.method.assign(method);
    parse.request.target.assign(target);
    parse.request.minorVersion = version[7] - '0';
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::size_t colon = lines[i].find(':');
        if (colon == std::string_view::npos || !IsToken(lines[i].substr(0, colon)) ||
            HasControlCharacters(lines[i])) {
            return parse;
        }
        parse.request.headers.emplace_back(std::string(lines[i].substr(0, colon)),
                                           std::string(TrimBlanks(lines[i].substr(colon + 1))));
    }
    parse.status = HeadStatus::Complete;
    parse.consumed = end + terminator;
    return parse;
}

RangeChoice ChooseRange(const std::string* rangeHeader, std::uint64_t fileSize) {
    RangeChoice choice;
    choice.range = {0, fileSize == 0 ? 0 : fileSize - 1};
    if (!rangeHeader) {
        return choice;
    }
    std::string_view text = TrimBlanks(*rangeHeader);
    if (!StartsWithNoCase(text, "bytes")) {
        return choice;
    }
    text = TrimBlanks(text.substr(5));
    if (text.empty() || text.front() != '=') {
        return choice;
    }
    text = TrimBlanks(text.substr(1));
    text = TrimBlanks(text.substr(0, text.find(',')));
    const std::size_t dash = text.find('-');
    if (dash == std::string_view::npos) {
        return choice;
    }
    const std::string_view from = TrimBlanks(text.substr(0, dash));
    const std::string_view to = TrimBlanks(text.substr(dash + 1));
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    if (from.empty()) {
        // The last n bytes.
        std::uint64_t count = 0;
        if (!ParseDecimal(to, count)) {
            return choice;
        }
        if (count == 0 || fileSize == 0) {
            choice.status = RangeStatus::Unsatisfiable;
            return choice;
        }
        first = fileSize - std::min(count, fileSize);
        last = fileSize - 1;
    } else {
        if (!ParseDecimal(from, first)) {
            return choice;
        }
        if (to.empty()) {
            last = fileSize == 0 ? 0 : fileSize - 1;
        } else if (!ParseDecimal(to, last) || last < first) {
            return choice;
        }
        if (first >= fileSize) {
            choice.status = RangeStatus::Unsatisfiable;
            return choice;
        }
        last = std::min(last, fileSize - 1);
    }
    choice.status = RangeStatus::Part;
    choice.range = {first, last};
    return choice;
}

std::optional<std::string> PercentDecode(std::string_view text) {
    auto hex = [](char c) -> int {
        if (c >= '0' && c <= '9') {
            return c - '0';
        }
        c = Lower(c);
        return (c >= 'a' && c <= 'f') ? c - 'a' + 10 : -1;
    };
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        if (i + 2 >= text.size()) {
            return std::nullopt;
        }
        const int high = hex(text[i + 1]);
        const int low = hex(text[i + 2]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

UploadTarget ParseUploadTarget(std::string_view target) {
    UploadTarget parsed;
    if (target == "/") {
        parsed.kind = UploadTarget::Kind::Browse;
        return parsed;
    }
    constexpr std::string_view kN2R = "/uri-res/N2R?";
    constexpr std::string_view kGet = "/get/";
    if (StartsWithNoCase(target, kN2R)) {
        const auto urn = PercentDecode(target.substr(kN2R.size()));
        if (urn && StartsWithNoCase(*urn, "urn:sha1:")) {
            parsed.sha1 = library::NormalizeSha1Text(std::string_view(*urn).substr(9));
            if (!parsed.sha1.empty()) {
                parsed.kind = UploadTarget::Kind::Sha1;
            }
        }
        return parsed;
    }
    if (!target.starts_with(kGet)) {
        return parsed;
    }
    target.remove_prefix(kGet.size());
    const std::size_t slash = target.find('/');
    if (slash == std::string_view::npos || !ParseDecimal(target.substr(0, slash), parsed.index)) {
        return parsed;
    }
    auto name = PercentDecode(target.substr(slash + 1));
    if (!name || name->empty() ||
        name->find_first_of(std::string_view("/\\\0", 3)) != std::string::npos) {
        return parsed;
    }
    parsed.name = std::move(*name);
    parsed.kind = UploadTarget::Kind::IndexAndName;
    return parsed;
}

std::optional<std::string> NormalizeEndpoint(std::string_view text) {
    text = TrimBlanks(text);
    const std::size_t colon = text.find(':');
    const std::string_view address = text.substr(0, colon);
    unsigned port = 6346;
    if (colon != std::string_view::npos &&
        (!ParseDecimal(text.substr(colon + 1), port) || port == 0 || port > 65535)) {
        return std::nullopt;
    }
    std::string_view rest = address;
    std::string normalized;
    for (int part = 0; part < 4; ++part) {
        const std::size_t dot = rest.find('.');
        if ((part < 3) == (dot == std::string_view::npos)) {
            return std::nullopt;
        }
        const std::string_view digits = rest.substr(0, dot);
        unsigned octet = 0;
        if (digits.size() > 3 || !ParseDecimal(digits, octet) || octet > 255) {
            return std::nullopt;
        }
        normalized += std::to_string(octet);
        normalized += part < 3 ? "." : "";
        rest.remove_prefix(dot == std::string_view::npos ? rest.size() : dot + 1);
    }
    return normalized + ":" + std::to_string(port);
}

void AltLocations::Learn(const std::string& sha1, std::string_view xAltHeader) {
    const std::string key = library::NormalizeSha1Text(sha1);
    if (key.empty()) {
        return;
    }
    std::lock_guard lock(mutex_);
    if (!bySha1_.contains(key) && bySha1_.size() >= kMaxAltFiles) {
        return;
    }
    auto& known = bySha1_[key];
    while (!xAltHeader.empty() && known.size() < kMaxAltPerFile) {
        const std::size_t comma = xAltHeader.find(',');
        if (auto endpoint = NormalizeEndpoint(xAltHeader.substr(0, comma))) {
            known.insert(std::move(*endpoint));
        }
        xAltHeader.remove_prefix(comma == std::string_view::npos ? xAltHeader.size() : comma + 1);
    }
    if (known.empty()) {
        bySha1_.erase(key);
    }
}

std::vector<std::string> AltLocations::For(const std::string& sha1, std::string_view excludeIp,
                                           std::size_t max) const {
    std::vector<std::string> endpoints;
    std::lock_guard lock(mutex_);
    const auto found = bySha1_.find(library::NormalizeSha1Text(sha1));
    if (found == bySha1_.end()) {
        return endpoints;
    }
    for (const auto& endpoint : found->second) {
        if (endpoints.size() == max) {
            break;
        }
        if (std::string_view(endpoint).substr(0, endpoint.find(':')) != excludeIp) {
            endpoints.push_back(endpoint);
        }
    }
    return endpoints;
}

UploadReply BusyReply(const UploadSettings& settings) {
    return Refusal(503, false, settings,
                   "Retry-After: " + std::to_string(settings.retryAfterSeconds) + "\r\n");
}

RequestBody RequestBodyOf(const HttpRequest& request) {
    RequestBody body;
    if (const std::string* transfer = request.Header("Transfer-Encoding");
        transfer && !EqualNoCase(TrimBlanks(*transfer), "identity")) {
        body.kind = EqualNoCase(TrimBlanks(*transfer), "chunked") ? RequestBody::Kind::Chunked
                                                                  : RequestBody::Kind::Unsupported;
        return body;
    }
    if (const std::string* length = request.Header("Content-Length")) {
        std::uint64_t value = 0;
        if (!ParseDecimal(TrimBlanks(*length), value)) {
            body.kind = RequestBody::Kind::Unsupported;
        } else if (value > 0) {
            body.kind = RequestBody::Kind::Length;
            body.length = value;
        }
    }
    return body;
}

UploadReply RefusalReply(int status, bool keepAlive, const UploadSettings& settings) {
    return Refusal(status, keepAlive, settings);
}

UploadReply DecideUpload(const HttpRequest& request, const library::FileIndex& index,
                         AltLocations& alternates, std::string_view peerIp,
                         const UploadSettings& settings) {
    const bool keepAlive = request.WantsKeepAlive();
    const bool head = request.method == "HEAD";
    if (request.method != "GET" && !head) {
        return Refusal(400, false, settings);
    }
    const UploadTarget target = ParseUploadTarget(request.target);
    if (target.kind == UploadTarget::Kind::Browse) {
        const std::string* accept = request.Header("Accept");
        if (!settings.browseHost || !accept ||
            !ContainsNoCase(*accept, "application/x-gnutella-packets")) {
            return Refusal(406, keepAlive, settings);
        }
        const std::string* encodings = request.Header("Accept-Encoding");
        UploadReply reply;
        reply.status = 200;
        reply.body = head ? UploadReply::Body::None : UploadReply::Body::Browse;
        reply.deflate = encodings && ContainsNoCase(*encodings, "deflate");
        reply.keepAlive = false; // the stream ends when the connection does
        reply.head = StatusLine(200) + "Server: " + settings.serverName +
                     "\r\nContent-Type: application/x-gnutella-packets\r\n" +
                     (reply.deflate ? "Content-Encoding: deflate\r\n" : "") +
                     ConnectionHeader(false) + "\r\n";
        return reply;
    }
    if (target.kind == UploadTarget::Kind::Malformed) {
        return Refusal(404, keepAlive, settings);
    }
    std::optional<library::SharedFile> file = FindTarget(target, index);
    if (!file) {
        return Refusal(404, keepAlive, settings);
    }
    if (const std::string* alt = request.Header("X-Alt"); alt && !file->sha1.empty()) {
        alternates.Learn(file->sha1, *alt);
    }

    std::string fileHeaders;
    if (!file->sha1.empty()) {
        fileHeaders += "X-Gnutella-Content-URN: urn:sha1:" + file->sha1 + "\r\n";
        const auto others = alternates.For(file->sha1, peerIp, settings.maxAltLocations);
        if (!others.empty()) {
            fileHeaders += "X-Alt: ";
            for (std::size_t i = 0; i < others.size(); ++i) {
                fileHeaders += (i ? ", " : "") + others[i];
            }
            fileHeaders += "\r\n";
        }
    }
    const RangeChoice range = ChooseRange(request.Header("Range"), file->size);
    if (range.status == RangeStatus::Unsatisfiable) {
        return Refusal(416, keepAlive, settings,
                       "Content-Range: bytes */" + std::to_string(file->size) + "\r\n" +
                           fileHeaders);
    }
    UploadReply reply;
    reply.status = range.status == RangeStatus::Part ? 206 : 200;
    reply.keepAlive = keepAlive;
    reply.range = range.range;
    const std::uint64_t length = file->size == 0 ? 0 : range.range.length();
    reply.head =
        StatusLine(reply.status) + "Server: " + settings.serverName +
        "\r\nContent-Type: application/binary\r\nContent-Length: " + std::to_string(length) +
        "\r\n";
    if (reply.status == 206) {
        reply.head += "Content-Range: bytes " + std::to_string(range.range.first) + "-" +
                      std::to_string(range.range.last) + "/" + std::to_string(file->size) + "\r\n";
    }
    reply.head += fileHeaders + ConnectionHeader(keepAlive) + "\r\n";
    reply.body = (head || length == 0) ? UploadReply::Body::None : UploadReply::Body::File;
    reply.file = std::move(file);
    return reply;
}

} // namespace corvid::gnutella
