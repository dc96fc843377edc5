#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "download/core/sha1.h"

namespace corvid::download {

// Half-open byte spans [begin, end).
struct ByteSpan {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::uint64_t size() const { return end - begin; }
    bool operator==(const ByteSpan&) const = default;
};

// A set of disjoint byte spans; touching or overlapping spans merge.
class RangeSet {
public:
    void add(ByteSpan span);
    bool covers(ByteSpan span) const;
    bool intersects(ByteSpan span) const;
    // The first byte at or after `from` (and before `limit`) that is not in the set, with the end
    // of the gap it starts (capped at `limit`).
    std::optional<ByteSpan> firstGap(std::uint64_t from, std::uint64_t limit) const;
    std::uint64_t total() const { return total_; }
    std::vector<ByteSpan> spans() const;
    void clear();

private:
    std::map<std::uint64_t, std::uint64_t> spans_; // begin -> end
    std::uint64_t total_ = 0;
};

// What survives a stop or a crash: the file's length, its SHA1 when known, and the bytes on disk.
struct RangeMapRecord {
    std::uint64_t length = 0;
    std::optional<Sha1Digest> sha1;
    std::vector<ByteSpan> done;
};

std::string FormatRangeMap(const RangeMapRecord& record);
// Refuses anything malformed: spans out of order, overlapping, empty or beyond the length.
std::optional<RangeMapRecord> ParseRangeMap(std::string_view text);

} // namespace corvid::download
