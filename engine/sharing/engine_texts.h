#pragma once

// The XML texts the engine hands to the plug-in: search results, connected hosts, uploads and the
// network summary. The plug-in reads them with a flat tag scanner that looks for elements in a
// fixed order, so the order of the elements here is part of the format. The scanner takes element
// contents as they stand (it knows no entities), so strings are cleaned rather than escaped: every
// string that came from a peer goes through CleanText, and no peer can end an element early or
// start one of its own.

#include "engine/sharing/upload_registry.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace corvid::gnutella {

// Angle brackets become '_' (Windows forbids them in file names anyway), control characters
// blanks, and bytes that are not UTF-8 '?'.
std::string CleanText(std::string_view text);

// The answering host of one "searchresult" text.
struct ResultHost {
    std::string keyword;
    std::string type; // "All", "Audio", ... or "BrowseHost" for a browse answer
    std::string nodeId;
    std::string ip;
    std::uint16_t port = 0;
    std::uint32_t speed = 0;
    std::string vendorCode;
    bool firewalled = false; // reachable only by a push
};

struct ResultFile {
    std::uint32_t index = 0;
    std::string name;
    std::uint64_t size = 0;
    std::string info;
    std::string sha1;
    // Where the downloader fetches the file when the host's own address will not do: the
    // engine's loopback relay for a firewalled host. Empty: the host's address.
    std::string source{};
};

std::string SearchResultText(const ResultHost& host, std::span<const ResultFile> files);

// One connected node for the hosts view. Tick counts are milliseconds of the same tick counter the
// view reads (32-bit, wrapping).
struct HostRecord {
    std::string id;
    std::string node; // "a.b.c.d:port"
    std::string userAgent;
    std::uint32_t handshakeTick = 0;
    std::string type;
    std::string in;
    std::string out;
    std::uint32_t updateTick = 0;
    std::string version;
};

std::string HostInfoText(std::span<const HostRecord> hosts);

std::string UploadInfoText(std::span<const UploadInfo> uploads);

// The engine's state in a few figures, for the information panel.
struct NetworkSummary {
    std::string mode; // "Leaf" or "Ultrapeer"
    std::string address;
    bool firewalled = true;
    std::uint32_t ultrapeers = 0;
    std::uint32_t leaves = 0;
    std::uint64_t sharedFiles = 0;
    std::uint64_t sharedKilobytes = 0;
    std::uint32_t uploads = 0;
    std::uint64_t uptimeSeconds = 0;
    std::string userAgent;
};

std::string NetworkInfoText(const NetworkSummary& summary);

} // namespace corvid::gnutella
