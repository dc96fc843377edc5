#include "transfer/engine_events.h"
#include "platform/ascii.h"

#include "transfer/download_states.h"

#include <algorithm>
#include <cctype>

namespace corvid::transfer {
namespace {

std::string Format(const char* pattern, std::string_view argument) {
    std::string text(pattern);
    const auto at = text.find("%s");
    text.replace(at, 2, argument);
    return text;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

bool IsAsciiAlnum(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsHostName(std::string_view host) {
    if (host.empty() || host.size() > 253)
        return false;
    return std::all_of(host.begin(), host.end(),
                       [](char c) { return IsAsciiAlnum(c) || c == '.' || c == '-'; });
}

bool IsPort(std::string_view port) {
    if (port.empty() || port.size() > 5)
        return false;
    int value = 0;
    for (char c : port) {
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + (c - '0');
    }
    return value >= 1 && value <= 65535;
}

bool IsUrlSafeSha1(std::string_view sha1) {
    return !sha1.empty() && sha1.size() <= 128 &&
           std::all_of(sha1.begin(), sha1.end(), IsAsciiAlnum);
}

// "http://127.0.0.1:<port>/push/<servent>/<index>/<proxies>/uri-res/N2R?urn:sha1:<sha1>", the
// engine's loopback relay: nothing else may pass for one.
bool IsRelayUrl(std::string_view url, std::string_view sha1) {
    constexpr std::string_view kLoopback = "http://127.0.0.1:";
    constexpr std::size_t kMaxRelayUrl = 1024;
    if (url.size() > kMaxRelayUrl || !url.starts_with(kLoopback) || !IsUrlSafeSha1(sha1))
        return false;
    const std::string_view rest = url.substr(kLoopback.size());
    const auto slash = rest.find('/');
    if (slash == std::string_view::npos || !IsPort(rest.substr(0, slash)) ||
        !rest.substr(slash).starts_with("/push/"))
        return false;
    const std::string wanted = "/uri-res/N2R?urn:sha1:" + std::string(sha1);
    return url.ends_with(wanted) && std::all_of(url.begin(), url.end(), [](char c) {
               return c > ' ' && c < 0x7F && c != '"' && c != '<' && c != '>' && c != '\\';
           });
}

// "host" or "host:port" made into "host:port", or nothing when the piece is not an address.
std::optional<std::string> AltAddress(std::string_view piece) {
    const auto colon = piece.find(':');
    if (colon == std::string_view::npos) {
        if (!IsHostName(piece))
            return std::nullopt;
        return std::string(piece) + ":6346";
    }
    if (!IsHostName(piece.substr(0, colon)) || !IsPort(piece.substr(colon + 1)))
        return std::nullopt;
    return std::string(piece);
}

} // namespace

bool IsItemEvent(std::int32_t code) {
    switch (code) {
    case kEventStopped:
    case kEventStart:
    case kEventFileLength:
    case kEventProgress:
    case kEventNoValidSource:
    case kEventUserAbort:
    case kEventSucceeded:
        return true;
    default:
        return false;
    }
}

SourceEffect DescribeSourceEvent(std::int32_t code, std::string_view textArgument,
                                 std::int32_t numberArgument) {
    switch (code) {
    case kEventInvalidSource:
        return {"Invalid source", kLogError, kSourceFailed, true};
    case kEventRetryWait:
        return {"Waiting 5 seconds to retry", kLogStatus, kSourceWaiting, false};
    case kEventConnecting:
        return {Format("Connecting... [%s]", textArgument), kLogStatus, kSourceConnecting, false};
    case kEventResolveFailed:
        return {Format("Resolve name failed %s", textArgument), kLogError, kSourceFailed, true};
    case kEventConnected:
        return {"Connection OK", kLogStatus, std::nullopt, false};
    case kEventConnectFailed:
        return {"Connection failed", kLogError, kSourceFailed, true};
    case kEventSendRequest:
        return {"Send request", kLogStatus, std::nullopt, false};
    case kEventHeaderReceived:
        return {"Received http header", kLogStatus, std::nullopt, false};
    case kEventReceiving:
        return {"Receiving data...", kLogStatus, kSourceReceiving, false};
    case kEventReceivedBytes:
        return {"", kLogStatus, std::nullopt, false};
    case kEventRedirect:
        return {Format("Redirect to %s", textArgument), kLogStatus, kSourceConnecting, false};
    case kEventFileName:
        return {Format("Retrieved file name [%s]", textArgument), kLogStatus, std::nullopt, false};
    case kEventTimeOut:
        return {"Time out", kLogStatus, kSourceFailed, true};
    case kEventError:
        return {"Error occured: " + std::to_string(numberArgument), kLogError, kSourceFailed, true};
    case kEventDisconnected:
        return {"Disconnected", kLogStatus, std::nullopt, true};
    default:
        return {"Unknown state", kLogStatus, std::nullopt, false};
    }
}

std::string ItemEventText(std::int32_t code, std::int32_t fileLength) {
    switch (code) {
    case kEventStopped:
        return "Download stopped.";
    case kEventStart:
        return "Download start";
    case kEventFileLength:
        return "Retrieve file length " + std::to_string(fileLength) + " bytes";
    case kEventNoValidSource:
        return "No valid source";
    case kEventUserAbort:
        return "User Abortted";
    case kEventSucceeded:
        return "Download succeed";
    default:
        return "";
    }
}

std::vector<std::string> SplitLines(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const auto end = text.find("\r\n");
        const auto line = text.substr(0, end);
        if (!line.empty())
            lines.emplace_back(line);
        if (end == std::string_view::npos)
            break;
        text.remove_prefix(end + 2);
    }
    return lines;
}

std::optional<std::string> HitSourceUrl(std::string_view host, std::int32_t port,
                                        std::string_view sha1) {
    if (!IsHostName(host) || port < 1 || port > 65535 || !IsUrlSafeSha1(sha1))
        return std::nullopt;
    return "http://" + std::string(host) + ":" + std::to_string(port) +
           "/uri-res/N2R?urn:sha1:" + std::string(sha1);
}

std::optional<std::string> SourceUrlOf(const ResultSource& hit, std::string_view sha1) {
    if (IsRelayUrl(hit.sourceUrl, sha1))
        return hit.sourceUrl;
    return HitSourceUrl(hit.host, hit.port, sha1);
}

std::vector<std::string> AltSourceUrls(std::string_view header, std::string_view sha1) {
    std::vector<std::string> urls;
    if (!IsUrlSafeSha1(sha1))
        return urls;
    for (const auto& line : SplitLines(header)) {
        const auto separator = line.find(": ");
        if (separator == std::string::npos ||
            !EqualsIgnoringCase(std::string_view(line).substr(0, separator), "x-alt"))
            continue;
        std::string_view value = std::string_view(line).substr(separator + 2);
        while (urls.size() < kMaxAltSourcesPerHeader) {
            const auto comma = value.find(',');
            if (const auto address = AltAddress(TrimBlanks(value.substr(0, comma)))) {
                auto url = "http://" + *address + "/uri-res/N2R?urn:sha1:" + std::string(sha1);
                if (std::find(urls.begin(), urls.end(), url) == urls.end())
                    urls.push_back(std::move(url));
            }
            if (comma == std::string_view::npos)
                break;
            value.remove_prefix(comma + 1);
        }
    }
    return urls;
}

} // namespace corvid::transfer
