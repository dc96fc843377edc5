#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

#include "download/core/range_set.h"

namespace corvid::download {

// Who fetches which bytes. Each source owns at most one claim [next, end): the bytes it asked a
// server for and has not written yet. Bytes written are done; nothing is claimed twice. No I/O.
class SwarmPlan {
public:
    struct Claim {
        std::uint64_t next = 0; // the next byte the owner will write
        std::uint64_t end = 0;
    };

    std::optional<std::uint64_t> length() const { return length_; }
    // Fixes the file's length; claims and done bytes beyond it are cut back.
    void setLength(std::uint64_t length);
    void markDone(ByteSpan span);
    const RangeSet& done() const { return done_; }
    bool complete() const { return length_ && done_.total() >= *length_; }

    // A fresh span of at most `maxSize` bytes nobody holds, from the front of the file.
    std::optional<ByteSpan> claimFree(std::uint32_t owner, std::uint64_t maxSize);
    // Used when nothing is free any more: takes over the back of the claim that would end last
    // at its owner's speed. `speedOf` gives an owner's bytes per second, 0 while unknown, or a
    // negative number once the owner has gone quiet. A quiet owner loses its whole claim; a
    // measured one keeps as much as lets both end together at the two speeds (half when a speed
    // is unknown), when each part keeps at least `minSize` bytes. The victim's claim shrinks.
    std::optional<ByteSpan> steal(std::uint32_t owner, std::uint64_t minSize, std::uint64_t maxSize,
                                  double ownSpeed,
                                  const std::function<double(std::uint32_t)>& speedOf);
    // Before the length is known: the start of the file, for the one source finding out the length.
    void claimExact(std::uint32_t owner, ByteSpan span);

    std::optional<Claim> claimOf(std::uint32_t owner) const;
    // `span` must start at the owner's next byte and stay inside its claim.
    void recordWritten(std::uint32_t owner, ByteSpan span);
    void release(std::uint32_t owner);
    // Bytes neither done nor claimed.
    std::uint64_t freeBytes() const;

private:
    std::optional<std::uint64_t> length_;
    RangeSet done_;
    std::map<std::uint32_t, Claim> claims_;
};

} // namespace corvid::download
