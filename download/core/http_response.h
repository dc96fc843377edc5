#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/http_chunked.h"

namespace corvid::download {

struct HttpResponseHead {
    int status = 0;
    std::string text; // the status line and header lines as received, "\r\n" after each
    std::vector<std::pair<std::string, std::string>> headers;

    // The first header of that name (case-insensitive), if any.
    std::optional<std::string_view> find(std::string_view name) const;
};

// "bytes first-last/total", "bytes first-last/*" or "bytes */total" (then `satisfied` is false).
struct ContentRange {
    bool satisfied = true;
    std::uint64_t first = 0;
    std::uint64_t last = 0; // inclusive, as on the wire
    std::optional<std::uint64_t> total;
};

std::optional<ContentRange> ParseContentRange(std::string_view value);
// Plain decimal digits only; a value that does not fit 63 bits is refused.
std::optional<std::uint64_t> ParseDecimal(std::string_view value);
// Retry-After in delta seconds (the date form is not honoured), capped at one day.
std::optional<std::uint32_t> ParseRetryAfterSeconds(std::string_view value);

enum class HttpParseError {
    None,
    NotHttp,      // the first bytes are not "HTTP/"
    HeadTooLarge, // no end of the head within the limit
    TooManyHeaders,
    BadStatusLine,
    BadHeader,                   // a line without a colon, a control byte, a folded line
    BadContentLength,            // not a number, or two that disagree
    UnsupportedTransferEncoding, // anything but "chunked" or "identity"
    BadChunk,                    // a chunk size line, chunk end or trailer that is not HTTP
    TruncatedBody,               // the connection ended before the announced length
    ClosedInHead,                // the connection ended before the head did
};

const char* Describe(HttpParseError error);

struct HttpParserLimits {
    std::size_t maxHeadBytes = 16 * 1024;
    std::size_t maxHeaders = 64;
};

// Reads one HTTP/1.x response after another from a byte stream. No I/O: the caller feeds what it
// received and acts on the steps. Never throws, never reads past the input it is given, never
// holds more than the head limit in memory: body bytes are handed back as views into the input.
class HttpResponseParser {
public:
    enum class Step {
        NeedMore, // everything given was consumed; feed more
        Head,     // head() is complete (interim 1xx responses are skipped)
        Body,     // `body` holds the next body bytes (a view into the input)
        Done,     // the response is complete; reset() before the next one
        Error,    // see error(); the connection must not be used any further
    };
    struct Result {
        Step step = Step::NeedMore;
        std::size_t consumed = 0;
        std::string_view body;
    };

    explicit HttpResponseParser(HttpParserLimits limits = {}) : limits_(limits) {}

    Result feed(std::string_view input);
    // The peer closed the connection: Done when the body ran to the close, Error otherwise.
    Step finish();
    void reset();

    const HttpResponseHead& head() const { return head_; }
    HttpParseError error() const { return error_; }
    // Bytes of body still to come, or nothing when the body runs to the close of the connection
    // or comes in chunks.
    std::optional<std::uint64_t> bodyRemaining() const { return bodyRemaining_; }
    // Whether the body ends by its own framing (a length or the last chunk), leaving the
    // connection usable for another request.
    bool bodyDelimited() const { return bodyRemaining_.has_value() || chunked_.has_value(); }
    bool chunked() const { return chunked_.has_value(); }
    bool inBody() const { return state_ == State::Body; }

private:
    enum class State { Head, Body, Done, Error };

    Result feedHead(std::string_view input);
    Result fail(HttpParseError error, std::size_t consumed);
    bool parseHead(std::string_view text);

    HttpParserLimits limits_;
    State state_ = State::Head;
    HttpParseError error_ = HttpParseError::None;
    std::string buffer_;
    HttpResponseHead head_;
    std::optional<std::uint64_t> bodyRemaining_;
    std::optional<ChunkedDecoder> chunked_;
    static constexpr int kMaxInterimResponses = 8;
    int interimResponses_ = 0;
};

} // namespace corvid::download
