#include "download/core/http_response.h"
#include "platform/ascii.h"

#include <algorithm>
#include <cctype>

namespace corvid::download {
namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

bool IsTokenChar(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte < 0x7F && c != ':' && c != '(' && c != ')' && c != ',' && c != '/' &&
           c != ';' && c != '<' && c != '>' && c != '=' && c != '?' && c != '@' && c != '[' &&
           c != ']' && c != '{' && c != '}' && c != '"' && c != '\\';
}

bool HasControlByte(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7F;
    });
}

} // namespace

std::optional<std::string_view> HttpResponseHead::find(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (EqualsIgnoringCase(key, name)) {
            return std::string_view(value);
        }
    }
    return std::nullopt;
}

std::optional<std::uint64_t> ParseDecimal(std::string_view value) {
    if (value.empty() || value.size() > 18) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (char c : value) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        number = number * 10 + static_cast<std::uint64_t>(c - '0');
    }
    return number;
}

std::optional<ContentRange> ParseContentRange(std::string_view value) {
    value = TrimBlanks(value);
    constexpr std::string_view unit = "bytes";
    if (value.size() <= unit.size() || !EqualsIgnoringCase(value.substr(0, unit.size()), unit)) {
        return std::nullopt;
    }
    value = TrimBlanks(value.substr(unit.size()));
    const std::size_t slash = value.find('/');
    if (slash == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view span = TrimBlanks(value.substr(0, slash));
    const std::string_view total = TrimBlanks(value.substr(slash + 1));
    ContentRange range;
    if (total != "*") {
        range.total = ParseDecimal(total);
        if (!range.total) {
            return std::nullopt;
        }
    }
    if (span == "*") {
        if (!range.total) {
            return std::nullopt;
        }
        range.satisfied = false;
        return range;
    }
    const std::size_t dash = span.find('-');
    if (dash == std::string_view::npos) {
        return std::nullopt;
    }
    const auto first = ParseDecimal(span.substr(0, dash));
    const auto last = ParseDecimal(span.substr(dash + 1));
    if (!first || !last || *last < *first || (range.total && *last >= *range.total)) {
        return std::nullopt;
    }
    range.first = *first;
    range.last = *last;
    return range;
}

std::optional<std::uint32_t> ParseRetryAfterSeconds(std::string_view value) {
    const auto seconds = ParseDecimal(TrimBlanks(value));
    if (!seconds) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(*seconds, 24 * 3600));
}

const char* Describe(HttpParseError error) {
    switch (error) {
    case HttpParseError::None:
        return "no error";
    case HttpParseError::NotHttp:
        return "not an HTTP response";
    case HttpParseError::HeadTooLarge:
        return "response header too large";
    case HttpParseError::TooManyHeaders:
        return "too many header lines";
    case HttpParseError::BadStatusLine:
        return "malformed status line";
    case HttpParseError::BadHeader:
        return "malformed header line";
    case HttpParseError::BadContentLength:
        return "malformed Content-Length";
    case HttpParseError::UnsupportedTransferEncoding:
        return "unsupported Transfer-Encoding";
    case HttpParseError::BadChunk:
        return "malformed chunked body";
    case HttpParseError::TruncatedBody:
        return "connection closed inside the body";
    case HttpParseError::ClosedInHead:
        return "connection closed before the response header ended";
    }
    return "unknown error";
}

void HttpResponseParser::reset() {
    state_ = State::Head;
    error_ = HttpParseError::None;
    buffer_.clear();
    head_ = {};
    bodyRemaining_.reset();
    chunked_.reset();
    interimResponses_ = 0;
}

HttpResponseParser::Result HttpResponseParser::fail(HttpParseError error, std::size_t consumed) {
    state_ = State::Error;
    error_ = error;
    buffer_.clear();
    return {Step::Error, consumed, {}};
}

HttpResponseParser::Result HttpResponseParser::feed(std::string_view input) {
    switch (state_) {
    case State::Error:
        return {Step::Error, 0, {}};
    case State::Done:
        return {Step::Done, 0, {}};
    case State::Body: {
        if (chunked_) {
            const auto step = chunked_->Feed(input);
            switch (step.status) {
            case ChunkedDecoder::Status::Data:
                return {Step::Body, step.consumed, step.data};
            case ChunkedDecoder::Status::Done:
                state_ = State::Done;
                return {Step::Done, step.consumed, {}};
            case ChunkedDecoder::Status::Error:
                return fail(HttpParseError::BadChunk, step.consumed);
            case ChunkedDecoder::Status::NeedMore:
                return {Step::NeedMore, step.consumed, {}};
            }
        }
        if (bodyRemaining_ && *bodyRemaining_ == 0) {
            state_ = State::Done;
            return {Step::Done, 0, {}};
        }
        if (input.empty()) {
            return {Step::NeedMore, 0, {}};
        }
        std::size_t take = input.size();
        if (bodyRemaining_) {
            take = static_cast<std::size_t>(std::min<std::uint64_t>(take, *bodyRemaining_));
            *bodyRemaining_ -= take;
        }
        return {Step::Body, take, input.substr(0, take)};
    }
    case State::Head:
        break;
    }

    // Interim 1xx responses are dropped here and the loop goes on with the bytes after them.
    std::size_t skipped = 0;
    while (true) {
        const Result result = feedHead(input.substr(skipped));
        if (result.step != Step::NeedMore || result.consumed == 0 || state_ != State::Head ||
            skipped + result.consumed >= input.size() || !buffer_.empty()) {
            return {result.step, skipped + result.consumed, {}};
        }
        skipped += result.consumed;
    }
}

HttpResponseParser::Result HttpResponseParser::feedHead(std::string_view input) {
    // Look for the blank line that ends the head, starting a little before the new bytes so a
    // terminator split across two reads is found.
    const std::size_t before = buffer_.size();
    const std::size_t room = limits_.maxHeadBytes - before;
    const std::size_t copied = std::min(room, input.size());
    buffer_.append(input.substr(0, copied));
    constexpr std::string_view magic = "HTTP/";
    const std::size_t prefix = std::min(buffer_.size(), magic.size());
    if (!EqualsIgnoringCase(std::string_view(buffer_).substr(0, prefix), magic.substr(0, prefix))) {
        return fail(HttpParseError::NotHttp, copied);
    }
    std::size_t end = std::string::npos;
    for (std::size_t i = before >= 3 ? before - 3 : 0; i + 1 < buffer_.size(); ++i) {
        if (buffer_[i] != '\n') {
            continue;
        }
        if (buffer_[i + 1] == '\n') {
            end = i + 2;
            break;
        }
        if (buffer_[i + 1] == '\r' && i + 2 < buffer_.size() && buffer_[i + 2] == '\n') {
            end = i + 3;
            break;
        }
    }
    if (end == std::string::npos) {
        if (buffer_.size() >= limits_.maxHeadBytes) {
            return fail(HttpParseError::HeadTooLarge, copied);
        }
        return {Step::NeedMore, copied, {}};
    }
    const std::size_t consumed = end - before;
    buffer_.resize(end);
    if (!parseHead(buffer_)) {
        return fail(error_, consumed);
    }
    buffer_.clear();
    if (head_.status < 200) {
        // An interim response: the real one follows on the same stream, after a few at most.
        if (++interimResponses_ > kMaxInterimResponses) {
            return fail(HttpParseError::BadStatusLine, consumed);
        }
        head_ = {};
        return {Step::NeedMore, consumed, {}};
    }
    state_ = State::Body;
    return {Step::Head, consumed, {}};
}

bool HttpResponseParser::parseHead(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        std::string_view line = text.substr(0, newline);
        text.remove_prefix(newline == std::string_view::npos ? text.size() : newline + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (line.empty()) {
            break;
        }
        lines.push_back(line);
    }
    if (lines.empty()) {
        error_ = HttpParseError::BadStatusLine;
        return false;
    }
    // "HTTP/1.1 206 Partial Content"
    const std::string_view status = lines.front();
    if (status.size() < 12 || !std::isdigit(static_cast<unsigned char>(status[5])) ||
        status[6] != '.' || !std::isdigit(static_cast<unsigned char>(status[7])) ||
        status[8] != ' ' || (status.size() > 12 && status[12] != ' ') || HasControlByte(status)) {
        error_ = HttpParseError::BadStatusLine;
        return false;
    }
    const auto code = ParseDecimal(status.substr(9, 3));
    if (!code || *code < 100 || *code > 599) {
        error_ = HttpParseError::BadStatusLine;
        return false;
    }
    head_ = {};
    head_.status = static_cast<int>(*code);
    if (lines.size() - 1 > limits_.maxHeaders) {
        error_ = HttpParseError::TooManyHeaders;
        return false;
    }
    head_.text.reserve(buffer_.size());
    head_.text.append(status).append("\r\n");
    std::optional<std::uint64_t> contentLength;
    bool chunked = false;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::string_view line = lines[i];
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || colon == 0 || HasControlByte(line) ||
            !std::all_of(line.begin(), line.begin() + colon, IsTokenChar)) {
            error_ = HttpParseError::BadHeader;
            return false;
        }
        const std::string_view name = line.substr(0, colon);
        const std::string_view value = TrimBlanks(line.substr(colon + 1));
        head_.headers.emplace_back(std::string(name), std::string(value));
        head_.text.append(line).append("\r\n");
        if (EqualsIgnoringCase(name, "Content-Length")) {
            const auto length = ParseDecimal(value);
            if (!length || (contentLength && *contentLength != *length)) {
                error_ = HttpParseError::BadContentLength;
                return false;
            }
            contentLength = length;
        } else if (EqualsIgnoringCase(name, "Transfer-Encoding") &&
                   !EqualsIgnoringCase(value, "identity")) {
            if (!EqualsIgnoringCase(value, "chunked")) {
                error_ = HttpParseError::UnsupportedTransferEncoding;
                return false;
            }
            chunked = true;
        }
    }
    if (head_.status == 204 || head_.status == 304) {
        bodyRemaining_ = 0;
        return true;
    }
    // Chunks frame the body whatever a Content-Length beside them says.
    if (chunked) {
        chunked_.emplace();
        return true;
    }
    bodyRemaining_ = contentLength;
    return true;
}

HttpResponseParser::Step HttpResponseParser::finish() {
    if (state_ == State::Error) {
        return Step::Error;
    }
    if (state_ == State::Done ||
        (state_ == State::Body && !chunked_ && (!bodyRemaining_ || *bodyRemaining_ == 0))) {
        state_ = State::Done;
        return Step::Done;
    }
    error_ = state_ == State::Body ? HttpParseError::TruncatedBody : HttpParseError::ClosedInHead;
    state_ = State::Error;
    return Step::Error;
}

} // namespace corvid::download
