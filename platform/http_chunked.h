#pragma once

// HTTP/1.1 chunked transfer coding, read side: "<hex size>[;ext]CRLF <data> CRLF ... 0 CRLF
// [trailer lines] CRLF". Shared by every HTTP reader that meets peers (browse host, the upload
// server's requests, the downloader). No I/O, never throws, never reads past its input, holds no
// body bytes: data comes back as views into what it is fed. Bare LF is accepted for CRLF, as
// peers write both.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/ascii.h"

namespace corvid {

class ChunkedDecoder {
public:
    enum class Status {
        NeedMore, // everything given was consumed; feed more
        Data,     // `data` holds the next body bytes (a view into the input)
        Done,     // the last chunk and the trailer are through; bytes after it are not ours
        Error,    // see error(); the stream must not be read any further
    };
    struct Step {
        Status status = Status::NeedMore;
        std::size_t consumed = 0;
        std::string_view data;
    };

    // A size line (digits and extensions) or a trailer longer than these is not HTTP we serve.
    static constexpr std::size_t kMaxSizeLine = 1024;
    static constexpr std::size_t kMaxTrailer = 8192;
    // Fifteen hex digits: no chunk can overflow the 64-bit counters of any reader.
    static constexpr int kMaxSizeDigits = 15;

    // Reads from the start of input up to the next event.
    Step Feed(std::string_view input) {
        std::size_t i = 0;
        while (i < input.size()) {
            const char c = input[i];
            switch (state_) {
            case State::Size:
                if (const int digit = HexDigit(c); digit >= 0) {
                    if (++digits_ > kMaxSizeDigits)
                        return Fail("a chunk size is too large", i);
                    remaining_ = remaining_ * 16 + static_cast<std::uint64_t>(digit);
                } else if (digits_ == 0) {
                    return Fail("a chunk does not start with its size", i);
                } else if (c == ';' || c == ' ' || c == '\t') {
                    state_ = State::Extension;
                } else if (c == '\r') {
                    state_ = State::SizeLf;
                } else if (c == '\n') {
                    EndSizeLine();
                } else {
                    return Fail("a chunk size is not hexadecimal", i);
                }
                if (++lineLength_ > kMaxSizeLine)
                    return Fail("a chunk size line is too long", i);
                ++i;
                break;
            case State::Extension:
                if (c == '\n')
                    EndSizeLine();
                else if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\r')
                    return Fail("a chunk extension holds a control byte", i);
                if (++lineLength_ > kMaxSizeLine)
                    return Fail("a chunk size line is too long", i);
                ++i;
                break;
            case State::SizeLf:
                if (c != '\n')
                    return Fail("a chunk size line is not ended", i);
                EndSizeLine();
                ++i;
                break;
            case State::Data: {
                const std::size_t take =
                    static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, input.size() - i));
                remaining_ -= take;
                if (remaining_ == 0)
                    state_ = State::DataEnd;
                return {Status::Data, i + take, input.substr(i, take)};
            }
            case State::DataEnd:
                if (c == '\r') {
                    state_ = State::DataLf;
                } else if (c == '\n') {
                    StartSizeLine();
                } else {
                    return Fail("a chunk is longer than its size", i);
                }
                ++i;
                break;
            case State::DataLf:
                if (c != '\n')
                    return Fail("a chunk is longer than its size", i);
                StartSizeLine();
                ++i;
                break;
            case State::Trailer:
                // Trailer lines are read past; an empty one ends the body.
                if (++trailerLength_ > kMaxTrailer)
                    return Fail("the chunked trailer is too long", i);
                ++i;
                if (c == '\n') {
                    if (lineLength_ == 0) {
                        state_ = State::Done;
                        return {Status::Done, i, {}};
                    }
                    lineLength_ = 0;
                } else if (c != '\r') {
                    ++lineLength_;
                }
                break;
            case State::Done:
                return {Status::Done, i, {}};
            case State::Failed:
                return {Status::Error, i, {}};
            }
        }
        if (state_ == State::Done)
            return {Status::Done, i, {}};
        if (state_ == State::Failed)
            return {Status::Error, i, {}};
        return {Status::NeedMore, i, {}};
    }

    bool done() const { return state_ == State::Done; }
    bool failed() const { return state_ == State::Failed; }
    const char* error() const { return error_; }

private:
    enum class State { Size, Extension, SizeLf, Data, DataEnd, DataLf, Trailer, Done, Failed };

    void StartSizeLine() {
        state_ = State::Size;
        remaining_ = 0;
        digits_ = 0;
        lineLength_ = 0;
    }
    void EndSizeLine() {
        lineLength_ = 0;
        state_ = remaining_ == 0 ? State::Trailer : State::Data;
    }
    Step Fail(const char* why, std::size_t at) {
        state_ = State::Failed;
        error_ = why;
        return {Status::Error, at, {}};
    }

    State state_ = State::Size;
    std::uint64_t remaining_ = 0;
    int digits_ = 0;
    std::size_t lineLength_ = 0;
    std::size_t trailerLength_ = 0;
    const char* error_ = "";
};

} // namespace corvid
