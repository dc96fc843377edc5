#pragma once

// What the download library's events mean to the page: their texts, the log kinds and source
// statuses they bring, and the source addresses the page builds from search hits and from the
// alternate sources peers report.

#include "search/result_records.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::transfer {

enum EngineEvent : std::int32_t {
    kEventStopped = 0,
    kEventStart = 1,
    kEventInvalidSource = 2,
    kEventRetryWait = 3,
    kEventConnecting = 4,
    kEventResolveFailed = 5,
    kEventConnected = 6,
    kEventConnectFailed = 7,
    kEventSendRequest = 9,
    kEventHeaderReceived = 11,
    kEventReceiving = 12,
    kEventReceivedBytes = 13,
    kEventRedirect = 14,
    kEventFileName = 15,
    kEventFileLength = 16,
    kEventTimeOut = 17,
    kEventProgress = 18,
    kEventError = 19,
    kEventDisconnected = 20,
    kEventNoValidSource = 21,
    kEventUserAbort = 22,
    kEventSucceeded = 23,
};

// Events about the whole item rather than one of its sources.
bool IsItemEvent(std::int32_t code);

// What a source event does to its source.
struct SourceEffect {
    std::string text; // the status line logged, empty for event 13
    std::int32_t kind = 0;
    std::optional<std::int32_t> status; // the new status, when the event sets one
    bool failed = false;                // `received` becomes -1
};

// textArgument is the event's text (events 4, 5, 14, 15), numberArgument its number (event 19).
SourceEffect DescribeSourceEvent(std::int32_t code, std::string_view textArgument,
                                 std::int32_t numberArgument);

// The status line of an item event; empty for event 18. fileLength is event 16's first word.
std::string ItemEventText(std::int32_t code, std::int32_t fileLength);

// The non-empty lines of a request or header text, split at "\r\n".
std::vector<std::string> SplitLines(std::string_view text);

// "http://%s:%d/uri-res/N2R?urn:sha1:%s" for a search hit. Host, port and SHA1 come from the
// network, so nothing is built (and the source is skipped) unless the host is a plain name or
// address, the port lies in 1-65535 and the SHA1 is letters and digits only.
std::optional<std::string> HitSourceUrl(std::string_view host, std::int32_t port,
                                        std::string_view sha1);

// The URL a search hit is fetched from: the engine's relay URL when the hit carries one (a
// firewalled host), otherwise the host's own address as HitSourceUrl builds it. The relay URL is
// taken only in the shape the engine writes it, on loopback and asking for exactly this SHA1;
// anything else falls back to the host's address.
std::optional<std::string> SourceUrlOf(const ResultSource& hit, std::string_view sha1);

// The addresses of the alternate sources listed in a response header, as
// "http://%s/uri-res/N2R?urn:sha1:%s", in the order given, without repeats. Header names compare
// without regard to case, as HTTP has them; pieces are trimmed and get ":6346" when they have no
// port. A peer writes this header, so a piece that is not a plain host name or address with an
// optional port in 1-65535 is dropped rather than let into a URL (and a SHA1 that is not letters
// and digits gives none), and at most
// kMaxAltSourcesPerHeader are taken from one header.
inline constexpr std::size_t kMaxAltSourcesPerHeader = 64;
std::vector<std::string> AltSourceUrls(std::string_view header, std::string_view sha1);

} // namespace corvid::transfer
