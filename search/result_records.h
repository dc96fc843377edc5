#pragma once

// The records a search result text is read into: one host's offer of a file, the same with the
// file's SHA1 and the search's key words, and one distinct file with all the hosts offering it.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

// One host's offer of one file.
struct ResultSource {
    std::string name;
    std::string host; // dotted IPv4 text, as the answering host gave it
    std::int32_t port = 0;
    std::int32_t fileIndex = 0; // the host's index of the file, used in its download address
    std::int32_t size = 0;      // bytes
    std::int32_t speed = 0;
    std::string type; // the search's type, or the file's media class name in an "All" search
    std::string vendorCode;
    std::int32_t browsable = 1;
    std::string uptime; // no result text fills it; kept for the list's column
    std::string guid;   // likewise
    std::string nodeId;
    std::string info;
    std::int32_t push = 0; // 1 when the host is firewalled and reachable only by a push
    // The URL the engine names for fetching the file when the host cannot be dialled (its
    // loopback relay, which pushes); empty: the host's own address.
    std::string sourceUrl{};
};

// What the reader makes of one FileInfo: the host's offer plus the file's identity.
struct ParsedResult {
    ResultSource source;
    std::string sha1; // opaque: only compared and passed on
    std::string keyword;
};

// One file as a reader finds it in a result text: the same fields as a ParsedResult, but the
// texts are views into the text being read, valid only during the call they are handed to. The
// store copies what it keeps, and only once it has decided to keep it.
struct ResultFields {
    std::string_view name;
    std::string_view host;
    std::string_view type;
    std::string_view vendorCode;
    std::string_view nodeId;
    std::string_view info;
    std::string_view sha1;
    std::string_view keyword;
    std::string_view sourceUrl{};
    std::int32_t port = 0;
    std::int32_t fileIndex = 0;
    std::int32_t size = 0;
    std::int32_t speed = 0;
    std::int32_t browsable = 1;
    std::int32_t push = 0;
};

// One distinct file, keyed by its SHA1 text. The first source gives the name, size and type
// the list shows for the group.
struct ResultGroup {
    std::vector<ResultSource> sources; // in order of arrival; never shrinks
    std::string sha1;
    int state = 0; // the list's mark for the group (2 once handed to the downloads)
    int row = -1;  // the list's own row bookkeeping
};

// A count of bytes as the lists show it: decimal with "," between each group of three digits
// (1234567 -> "1,234,567"); a negative value keeps its sign in front ("-1,024").
std::string FormatSize(std::int64_t value);

} // namespace corvid
