// Query routing: keyword hashing, the presence table a leaf sends, and its reassembly upstream.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/core/wire.h"
#include "engine/core/zstream.h"

namespace corvid::gnutella {

inline constexpr std::uint32_t kQrpDefaultTableSize = 65536;
inline constexpr std::uint32_t kQrpMaxTableSize = 1u << 20;
inline constexpr std::uint8_t kQrpInfinity = 7;
inline constexpr std::size_t kQrpChunkSize = 4096;

// The keyword hash; bits is log2 of the table length (1 to 32).
std::uint32_t QrpHash(std::string_view keyword, int bits);

// Words of a file name or a query, lower-cased, split on the usual delimiters.
std::vector<std::string> SplitKeywords(std::string_view text);
// What a leaf puts in its table for one file name: each word, and for words of five characters
// or more the word without its last one and two characters.
std::vector<std::string> TableKeywords(std::string_view file_name);

// A presence-only table: one bit per slot.
class QueryRouteTable {
public:
    explicit QueryRouteTable(std::uint32_t size = kQrpDefaultTableSize);

    std::uint32_t size() const { return size_; }
    int bits() const { return bits_; }
    void Clear();
    void Add(std::string_view keyword);
    void Set(std::uint32_t slot, bool present);
    bool Contains(std::string_view keyword) const;
    bool Slot(std::uint32_t slot) const { return (words_[slot >> 6] >> (slot & 63)) & 1; }
    // Marks present every slot of ours that a present slot of other's may stand for, whatever
    // the two sizes: the union an ultrapeer sends for its leaves.
    void MergeFrom(const QueryRouteTable& other);
    // True when every plain word of the query (or its SHA1 URN) is in the table.
    bool MatchesQuery(std::string_view text, const std::vector<std::string>& sha1s) const;

private:
    std::uint32_t size_;
    int bits_;
    std::vector<std::uint64_t> words_;
};

// The RESET message and the PATCH messages (4-bit entries, zlib, chunks of at most 4 KB) that
// replace whatever table the peer held for us.
std::vector<Bytes> BuildQrpUpdate(const QueryRouteTable& table);

// Rebuilds a peer's table from its RESET and PATCH messages.
class QrpReceiver {
public:
    // TooLarge: a RESET claiming a table over kQrpMaxTableSize slots.
    enum class Result { Ok, Complete, Error, TooLarge };

    Result Apply(ByteView payload);
    // The last table completed by a full patch sequence, nothing before the first.
    const std::optional<QueryRouteTable>& table() const { return complete_; }

private:
    Result Reset(ByteReader& r);
    Result Patch(ByteReader& r);
    bool ApplyEntries(ByteView entries);

    std::optional<QueryRouteTable> building_;
    std::optional<QueryRouteTable> complete_;
    int expected_sequence_ = 0;
    int sequence_count_ = 0;
    int entry_bits_ = 0;
    int compressor_ = 0;
    std::uint64_t entries_done_ = 0;
    std::unique_ptr<Inflater> inflater_;
};

} // namespace corvid::gnutella
