#include "engine/core/qrp.h"

#include <bit>

namespace corvid::gnutella {

namespace {
bool IsDelimiter(char c) {
    switch (c) {
    case ' ':
    case '\t':
    case '-':
    case '.':
    case '_':
    case '+':
    case '/':
    case '*':
    case '(':
    case ')':
    case '\\':
    case ',':
        return true;
    default:
        return false;
    }
}

constexpr std::string_view kSha1Urn = "urn:sha1:";
} // namespace

std::uint32_t QrpHash(std::string_view keyword, int bits) {
    std::uint32_t x = 0;
    int j = 0;
    for (char c : keyword) {
        std::uint32_t b = static_cast<std::uint8_t>(c);
        if (b >= 'A' && b <= 'Z')
            b = b - 'A' + 'a';
        x ^= b << (j * 8);
        j = (j + 1) & 3;
    }
    std::uint32_t product = x * 0x4F1BBCDCu;
    return bits >= 32 ? product : product >> (32 - bits);
}

std::vector<std::string> SplitKeywords(std::string_view text) {
    std::vector<std::string> words;
    std::string word;
    for (char c : text) {
        if (IsDelimiter(c) || c == '\0') {
            if (!word.empty())
                words.push_back(ToLowerAscii(word));
            word.clear();
        } else {
            word.push_back(c);
        }
    }
    if (!word.empty())
        words.push_back(ToLowerAscii(word));
    return words;
}

std::vector<std::string> TableKeywords(std::string_view file_name) {
    std::vector<std::string> out;
    for (auto& word : SplitKeywords(file_name)) {
        if (word.size() >= 5) {
            out.push_back(word.substr(0, word.size() - 1));
            out.push_back(word.substr(0, word.size() - 2));
        }
        out.push_back(std::move(word));
    }
    return out;
}

QueryRouteTable::QueryRouteTable(std::uint32_t size)
    : size_(size), bits_(std::countr_zero(size)), words_((size + 63) / 64) {}

void QueryRouteTable::Clear() {
    std::fill(words_.begin(), words_.end(), 0);
}

void QueryRouteTable::Add(std::string_view keyword) {
    Set(QrpHash(keyword, bits_), true);
}

void QueryRouteTable::Set(std::uint32_t slot, bool present) {
    std::uint64_t bit = std::uint64_t{1} << (slot & 63);
    if (present)
        words_[slot >> 6] |= bit;
    else
        words_[slot >> 6] &= ~bit;
}

void QueryRouteTable::MergeFrom(const QueryRouteTable& other) {
    // A keyword's slot is the top bits of one product, so slots of tables of different sizes
    // nest: a smaller table's slot covers a run of ours, a larger one's falls inside one of ours.
    for (std::uint32_t slot = 0; slot < other.size(); ++slot) {
        if (!other.Slot(slot))
            continue;
        if (other.bits() <= bits_) {
            std::uint32_t shift = static_cast<std::uint32_t>(bits_ - other.bits());
            for (std::uint32_t mine = slot << shift; mine < ((slot + 1) << shift); ++mine)
                Set(mine, true);
        } else {
            Set(slot >> (other.bits() - bits_), true);
        }
    }
}

bool QueryRouteTable::Contains(std::string_view keyword) const {
    return Slot(QrpHash(keyword, bits_));
}

bool QueryRouteTable::MatchesQuery(std::string_view text,
                                   const std::vector<std::string>& sha1s) const {
    for (const auto& sha1 : sha1s)
        if (Contains(ToLowerAscii(std::string(kSha1Urn) + sha1)))
            return true;
    auto words = SplitKeywords(text);
    if (words.empty())
        return false;
    for (const auto& word : words)
        if (!Contains(word))
            return false;
    return true;
}

std::vector<Bytes> BuildQrpUpdate(const QueryRouteTable& table) {
    std::vector<Bytes> messages;
    Bytes reset{0x00};
    PutU32Le(reset, table.size());
    reset.push_back(kQrpInfinity);
    messages.push_back(std::move(reset));

    // Present slots get -6 (nibble 0xA): from infinity 7 to 1 hop.
    Bytes entries(table.size() / 2 + (table.size() & 1), 0);
    for (std::uint32_t slot = 0; slot < table.size(); ++slot)
        if (table.Slot(slot))
            entries[slot / 2] |= (slot & 1) ? 0x0A : 0xA0;
    Bytes compressed = ZlibCompress(entries);
    std::size_t count = (compressed.size() + kQrpChunkSize - 1) / kQrpChunkSize;
    if (count == 0)
        count = 1;
    for (std::size_t i = 0; i < count; ++i) {
        Bytes patch{0x01, static_cast<std::uint8_t>(i + 1), static_cast<std::uint8_t>(count), 0x01,
                    0x04};
        std::size_t begin = i * kQrpChunkSize;
        std::size_t end = std::min(compressed.size(), begin + kQrpChunkSize);
        patch.insert(patch.end(), compressed.begin() + static_cast<std::ptrdiff_t>(begin),
                     compressed.begin() + static_cast<std::ptrdiff_t>(end));
        messages.push_back(std::move(patch));
    }
    return messages;
}

QrpReceiver::Result QrpReceiver::Apply(ByteView payload) {
    ByteReader r(payload);
    std::uint8_t variant = r.U8();
    if (!r.ok())
        return Result::Error;
    if (variant == 0x00)
        return Reset(r);
    if (variant == 0x01)
        return Patch(r);
    return Result::Error;
}

QrpReceiver::Result QrpReceiver::Reset(ByteReader& r) {
    std::uint32_t size = r.U32Le();
    std::uint8_t infinity = r.U8();
    if (r.ok() && size > kQrpMaxTableSize)
        return Result::TooLarge;
    if (!r.ok() || size < 8 || !std::has_single_bit(size) || infinity == 0)
        return Result::Error;
    building_.emplace(size);
    expected_sequence_ = 1;
    sequence_count_ = 0;
    entries_done_ = 0;
    inflater_.reset();
    return Result::Ok;
}

QrpReceiver::Result QrpReceiver::Patch(ByteReader& r) {
    int sequence = r.U8();
    int count = r.U8();
    int compressor = r.U8();
    int entry_bits = r.U8();
    if (!r.ok() || !building_ || sequence != expected_sequence_ || count == 0 || sequence > count)
        return Result::Error;
    if (sequence == 1) {
        if ((compressor != 0 && compressor != 1) || (entry_bits != 4 && entry_bits != 8))
            return Result::Error;
        sequence_count_ = count;
        compressor_ = compressor;
        entry_bits_ = entry_bits;
        entries_done_ = 0;
        if (compressor_ == 1)
            inflater_ = std::make_unique<Inflater>();
    } else if (count != sequence_count_ || compressor != compressor_ || entry_bits != entry_bits_) {
        return Result::Error;
    }
    ByteView data = r.rest();
    bool ok =
        compressor_ == 1
            ? inflater_->Decompress(data, [this](ByteView piece) { return ApplyEntries(piece); })
            : ApplyEntries(data);
    if (!ok)
        return Result::Error;
    if (sequence < sequence_count_) {
        ++expected_sequence_;
        return Result::Ok;
    }
    complete_ = *building_;
    expected_sequence_ = 1;
    inflater_.reset();
    return Result::Complete;
}

bool QrpReceiver::ApplyEntries(ByteView entries) {
    const std::uint64_t size = building_->size();
    auto apply = [&](int value) {
        if (entries_done_ >= size)
            return false; // more entries than the table holds
        // Presence only: a negative delta makes a keyword reachable, a positive one removes it.
        if (value < 0)
            building_->Set(static_cast<std::uint32_t>(entries_done_), true);
        else if (value > 0)
            building_->Set(static_cast<std::uint32_t>(entries_done_), false);
        ++entries_done_;
        return true;
    };
    for (auto b : entries) {
        if (entry_bits_ == 8) {
            if (!apply(static_cast<std::int8_t>(b)))
                return false;
        } else {
            int high = b >> 4, low = b & 15;
            if (!apply(high >= 8 ? high - 16 : high) || !apply(low >= 8 ? low - 16 : low))
                return false;
        }
    }
    return true;
}

} // namespace corvid::gnutella
