// The text side of a Gnutella 0.6 connection: header blocks, their limits, and try-lists.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/core/wire.h"

namespace corvid::gnutella {

inline constexpr std::size_t kMaxHandshakeBlock = 16384;
inline constexpr std::size_t kMaxHandshakeHeaders = 64;

struct HeaderBlock {
    std::string start_line;
    bool is_connect = false; // "GNUTELLA CONNECT/0.6"
    int code = 0;            // for a "GNUTELLA/0.6 <code> <reason>" response
    std::vector<std::pair<std::string, std::string>> headers;

    // The value of a header, repeated ones joined with ","; nothing when absent.
    std::optional<std::string> Get(std::string_view name) const;
    bool IsTrue(std::string_view name) const;
    bool IsFalse(std::string_view name) const;
    bool Has(std::string_view name) const { return Get(name).has_value(); }
    bool HasToken(std::string_view name, std::string_view token) const;
};

// Reads one header block (start line, headers, empty line) from a stream, CRLF or bare LF.
// Bounded: a block over kMaxHandshakeBlock bytes or kMaxHandshakeHeaders lines is an error.
class HeaderBlockReader {
public:
    enum class Status { NeedMore, Complete, Error };

    // *used tells how many bytes of in belong to the block; the rest follow it on the wire.
    Status Feed(ByteView in, std::size_t* used);
    const HeaderBlock& block() const { return block_; }

private:
    bool ParseLine(std::string_view line);

    std::string line_;
    std::size_t total_ = 0;
    bool have_start_ = false;
    HeaderBlock block_;
};

std::string FormatHeaderBlock(std::string_view start_line,
                              const std::vector<std::pair<std::string, std::string>>& headers);

// "ip[:port], ip[:port] timestamp, ..." with junk tokens tolerated and skipped.
std::vector<Endpoint> ParseTryList(std::string_view value);
std::string FormatTryList(const std::vector<Endpoint>& hosts);

} // namespace corvid::gnutella
