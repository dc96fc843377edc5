#pragma once

// The upload server's HTTP side as plain functions: bytes in, decisions and response heads out.
// Nothing here touches a socket or a file; the session in upload_server.h does that.

#include "library/file_index.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvid::gnutella {

struct HttpRequest {
    std::string method;
    std::string target;
    int minorVersion = 1; // HTTP/1.x
    std::vector<std::pair<std::string, std::string>> headers;

    // The first header of that name (names compare without regard to case); null when absent.
    const std::string* Header(std::string_view name) const;
    // Whether the connection may carry another request after this one.
    bool WantsKeepAlive() const;
};

enum class HeadStatus { Incomplete, Complete, Invalid };

struct HeadParse {
    HeadStatus status = HeadStatus::Incomplete;
    std::size_t consumed = 0; // bytes of the head, blank line included, when Complete
    HttpRequest request;
};

constexpr std::size_t kMaxRequestHead = 8192;

// Reads one request head from the start of bytes. Lines may end in CRLF or a bare LF.
HeadParse ParseRequestHead(std::string_view bytes);

// What follows a request's head: GETs carry nothing, but a peer may send a body (with a length or
// in chunks), which must be read past for the next request on the connection to be found.
struct RequestBody {
    enum class Kind { None, Length, Chunked, Unsupported } kind = Kind::None;
    std::uint64_t length = 0; // of a Length body
};
// No request we serve needs a body; one larger than this is not read past but refused.
constexpr std::uint64_t kMaxRequestBody = 64 * 1024;

RequestBody RequestBodyOf(const HttpRequest& request);

struct ByteRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0; // inclusive
    std::uint64_t length() const { return last - first + 1; }
};

enum class RangeStatus { Whole, Part, Unsatisfiable };

struct RangeChoice {
    RangeStatus status = RangeStatus::Whole;
    ByteRange range;
};

// A Range header against a file of the given size. Only the first range of a list is served; a
// header that does not parse is ignored (the whole file), as HTTP says.
RangeChoice ChooseRange(const std::string* rangeHeader, std::uint64_t fileSize);

// Strict %XX decoding; nullopt for a malformed escape.
std::optional<std::string> PercentDecode(std::string_view text);

// What a request target names. Only files of the index can be named: by SHA1 or by index and
// name; anything else is refused before any file is looked at.
struct UploadTarget {
    enum class Kind { Sha1, IndexAndName, Browse, Malformed } kind = Kind::Malformed;
    std::string sha1;
    std::uint32_t index = 0;
    std::string name;
};

UploadTarget ParseUploadTarget(std::string_view target);

// Addresses ("a.b.c.d:port") of other hosts that offer a file, learned from downloaders' X-Alt
// headers and handed on in ours. Bounded; safe to use from any thread.
class AltLocations {
public:
    void Learn(const std::string& sha1, std::string_view xAltHeader);
    std::vector<std::string> For(const std::string& sha1, std::string_view excludeIp,
                                 std::size_t max) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::set<std::string>> bySha1_;
};

// Checks "a.b.c.d" or "a.b.c.d:port" (port 6346 when absent) and writes it as "a.b.c.d:port".
std::optional<std::string> NormalizeEndpoint(std::string_view text);

struct UploadSettings {
    std::string serverName = "Corvid/0.1";
    unsigned retryAfterSeconds = 60;
    std::size_t maxAltLocations = 10;
    bool browseHost = true; // whether "GET /" may list the shared files
};

struct UploadReply {
    enum class Body { None, File, Browse } body = Body::None;
    int status = 0;
    std::string head;
    std::optional<library::SharedFile> file;
    ByteRange range; // of file, when body is File
    bool keepAlive = false;
    bool deflate = false; // of a Browse body
};

// The whole decision for one request: which file and part, or which refusal, and the head to send.
// A reply with a File body still needs an upload slot; without one the caller sends BusyReply.
// X-Alt addresses in the request are learned for the file asked for.
UploadReply DecideUpload(const HttpRequest& request, const library::FileIndex& index,
                         AltLocations& alternates, std::string_view peerIp,
                         const UploadSettings& settings);

// 503 with Retry-After; the connection closes after it.
UploadReply BusyReply(const UploadSettings& settings);
// A refusal without a body: 400, 404, 406...
UploadReply RefusalReply(int status, bool keepAlive, const UploadSettings& settings);

} // namespace corvid::gnutella
