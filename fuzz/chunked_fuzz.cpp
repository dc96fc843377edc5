// Chunked bodies from peers: whatever the bytes and however they are cut, the decoder reads no
// further than it is given, and its verdict and data do not depend on where the reads end.
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/http_chunked.h"

namespace {

struct Reading {
    std::string data;
    corvid::ChunkedDecoder::Status end = corvid::ChunkedDecoder::Status::NeedMore;
    std::size_t consumed = 0;
};

Reading Read(std::string_view text, std::size_t piece) {
    corvid::ChunkedDecoder decoder;
    Reading reading;
    for (std::size_t at = 0; at < text.size(); at += piece) {
        std::string_view input = text.substr(at, piece);
        while (!input.empty()) {
            const auto step = decoder.Feed(input);
            if (step.consumed > input.size() || step.data.size() > step.consumed)
                std::abort();
            reading.consumed += step.consumed;
            input.remove_prefix(step.consumed);
            reading.data += step.data;
            if (step.status == corvid::ChunkedDecoder::Status::Done ||
                step.status == corvid::ChunkedDecoder::Status::Error) {
                reading.end = step.status;
                return reading;
            }
            if (step.status == corvid::ChunkedDecoder::Status::NeedMore && !input.empty())
                std::abort();
        }
    }
    return reading;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::size_t piece = 1 + data[0] % 16;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const Reading whole = Read(text, text.size() + 1);
    const Reading cut = Read(text, piece);
    if (whole.end != cut.end || whole.data != cut.data ||
        (whole.end == corvid::ChunkedDecoder::Status::Done && whole.consumed != cut.consumed))
        std::abort();
    return 0;
}
