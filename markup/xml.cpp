#include "markup/xml.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace corvid {
namespace {

enum : std::uint8_t { kNameByte = 1, kValueStop = 2 };

// Name bytes are ASCII letters and digits, `_ : - .`, and every byte from 128 up so that names in
// any multi-byte code page stay whole. A value's scan stops at NUL, whitespace (1-32), either
// quote and `<`: any byte that may end the value or need trimming.
constexpr std::array<std::uint8_t, 256> MakeByteClasses() {
    std::array<std::uint8_t, 256> table{};
    for (int c = '0'; c <= '9'; ++c) {
        table[c] = kNameByte;
    }
    for (int c = 'a'; c <= 'z'; ++c) {
        table[c] = kNameByte;
        table[c - 'a' + 'A'] = kNameByte;
    }
    table['_'] = table[':'] = table['-'] = table['.'] = kNameByte;
    for (int c = 128; c < 256; ++c) {
        table[c] = kNameByte;
    }
    for (int c = 0; c <= 32; ++c) {
        table[c] |= kValueStop;
    }
    table['"'] |= kValueStop;
    table['\''] |= kValueStop;
    table['<'] |= kValueStop;
    return table;
}
constexpr auto kByteClass = MakeByteClasses();

// Whitespace is 1 to 32, tested without the table: one load less on the parser's busiest path.
inline bool IsSpace(char c) {
    return static_cast<unsigned char>(static_cast<unsigned char>(c) - 1) < 32;
}
inline bool IsNameByte(char c) {
    return kByteClass[static_cast<unsigned char>(c)] & kNameByte;
}

inline char* SkipSpace(char* p) {
    while (IsSpace(*p)) {
        ++p;
    }
    return p;
}
// The first byte at or after `p` at which a value's scan stops; a NUL stops it at the latest.
inline char* SkipValueBytes(char* p) {
    while (true) {
        if (kByteClass[static_cast<unsigned char>(p[0])] & kValueStop) {
            return p;
        }
        if (kByteClass[static_cast<unsigned char>(p[1])] & kValueStop) {
            return p + 1;
        }
        if (kByteClass[static_cast<unsigned char>(p[2])] & kValueStop) {
            return p + 2;
        }
        if (kByteClass[static_cast<unsigned char>(p[3])] & kValueStop) {
            return p + 3;
        }
        p += 4;
    }
}
inline char* SkipName(char* p) {
    while (IsNameByte(p[0]) && IsNameByte(p[1]) && IsNameByte(p[2]) && IsNameByte(p[3])) {
        p += 4;
    }
    while (IsNameByte(*p)) {
        ++p;
    }
    return p;
}
// The first `c` in [p, end), or end. Most of what the parser looks for is a few bytes away, so
// the first bytes are looked at here before the library's scan takes over.
inline char* Find(char* p, char* end, char c) {
#if defined(__SSE2__)
    if (end - p >= 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const int hits = _mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_set1_epi8(c)));
        if (hits) {
            return p + std::countr_zero(static_cast<unsigned>(hits));
        }
        p += 16;
    }
#endif
    for (char* near = end - p > 16 ? p + 16 : end; p < near; ++p) {
        if (*p == c) {
            return p;
        }
    }
    void* hit = std::memchr(p, c, static_cast<std::size_t>(end - p));
    return hit ? static_cast<char*>(hit) : end;
}
// Just past the next `c` in [p, end), or end.
inline char* SkipPast(char* p, char* end, char c) {
    char* hit = Find(p, end, c);
    return hit == end ? end : hit + 1;
}
// Just past the `>` that closes an end tag whose name starts at `p`: most often the byte straight
// after the name.
inline char* SkipEndTag(char* p, char* end) {
    p = SkipName(p);
    if (*p == '>') {
        return p + 1;
    }
    return SkipPast(p, end, '>');
}
// The first occurrence of a three-byte terminator (such as "-->" or "]]>"), or end. What it ends
// is mostly a sentence or more, so the library's scan does all of the looking.
char* FindTerminator(char* p, char* end, const char (&terminator)[4]) {
    while (true) {
        void* hit = std::memchr(p, terminator[0], static_cast<std::size_t>(end - p));
        p = hit ? static_cast<char*>(hit) : end;
        if (end - p < 3) {
            return end;
        }
        if (p[1] == terminator[1] && p[2] == terminator[2]) {
            return p;
        }
        ++p;
    }
}

// Skips a block of bytes at a time while none of them is a control byte, the `stop` byte, or a
// blank that follows another blank. Stops at the first byte that needs a closer look (or near the
// end). The caller takes the byte it stops at as a hint and looks again. It costs more than a
// byte test on the shortest values, so values start byte by byte and use it after a first blank.
#if defined(__SSE2__)
constexpr std::ptrdiff_t kPlainBlock = 16;
inline char* SkipPlainWords(char* q, char* end, char stop) {
    const __m128i stops = _mm_set1_epi8(stop);
    const __m128i blank = _mm_set1_epi8(' ');
    const __m128i lastControl = _mm_set1_epi8(0x1F);
    unsigned blankBefore = 0;
    while (end - q >= kPlainBlock) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
        const __m128i hits =
            _mm_or_si128(_mm_cmpeq_epi8(_mm_min_epu8(x, lastControl), x), _mm_cmpeq_epi8(x, stops));
        const auto blanks = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, blank)));
        const unsigned trouble = static_cast<unsigned>(_mm_movemask_epi8(hits)) |
                                 (blanks & ((blanks << 1) | blankBefore));
        if (trouble) {
            return q + std::countr_zero(trouble);
        }
        blankBefore = blanks >> 15;
        q += 16;
    }
    return q;
}
#else
// Eight bytes at a time in a general register. The byte tests are the cheap kind that is exact
// only up to the first hit, and a borrow out of a blank can make a `!` right after it look like
// one more blank.
constexpr std::ptrdiff_t kPlainBlock = 8;
inline char* SkipPlainWords(char* q, char* end, char stop) {
    if constexpr (std::endian::native == std::endian::little) {
        constexpr std::uint64_t kOnes = 0x0101010101010101ull;
        constexpr std::uint64_t kHigh = kOnes * 0x80;
        const std::uint64_t stops = kOnes * static_cast<unsigned char>(stop);
        std::uint64_t blankBefore = 0;
        while (end - q >= kPlainBlock) {
            std::uint64_t x;
            std::memcpy(&x, q, 8);
            const std::uint64_t notBlank = x ^ (kOnes * ' ');
            const std::uint64_t notStop = x ^ stops;
            const std::uint64_t blanks = (notBlank - kOnes) & ~notBlank & kHigh;
            const std::uint64_t trouble =
                (((x - kOnes * 0x20) & ~x) | ((notStop - kOnes) & ~notStop) |
                 (blanks & ((blanks << 8) | blankBefore))) &
                kHigh;
            if (trouble) {
                return q + std::countr_zero(trouble) / 8;
            }
            blankBefore = blanks >> 56;
            q += 8;
        }
    }
    return q;
}
#endif

// Drops leading and trailing whitespace of [s, e) and, when normalising, collapses each inner run
// into one blank. Writes the terminating NUL and returns the new start. Bytes up to `readable`
// (at or after e) may be looked at, so that the words of the scan need not stop short of e.
char* TrimValue(char* s, char* e, bool normalise, char* readable) {
    while (s < e && IsSpace(*s)) {
        ++s;
    }
    while (e > s && IsSpace(e[-1])) {
        --e;
    }
    if (normalise) {
        // Up to the first byte that must change: a blank that is not a lone ' ' between words.
        char* r = s;
        // A block that starts before e may run on past it, as far as the text goes.
        char* wordsEnd = readable - e > kPlainBlock - 1 ? e + (kPlainBlock - 1) : readable;
        while (true) {
            r = std::min(SkipPlainWords(r, wordsEnd, '\0'), e);
            if (r >= e || (IsSpace(*r) && (*r != ' ' || IsSpace(r[1]) || IsSpace(r[-1])))) {
                break;
            }
            ++r;
        }
        if (r < e && r[-1] == ' ') {
            --r; // the run started with the blank before
        }
        char* w = r;
        while (r < e) {
            if (IsSpace(*r)) {
                *w++ = ' ';
                ++r;
                while (IsSpace(*r)) {
                    ++r;
                }
            } else {
                *w++ = *r++;
            }
        }
        e = w;
    }
    *e = '\0';
    return s;
}

// The bits of XmlNode::bookkeeping.
enum : std::uint8_t {
    kNodePooled = 1,           // the record lives in the document's pool
    kNodeAttributesPooled = 2, // and so does its attribute array
    kNodeChildrenPooled = 4,   // and its child array
    kNodeHeapBelow = 8,        // on the Document node: some node of the tree owns heap memory
    kNodeOpen = 16,            // while parsing: its children are still coming
};

inline bool Has(const XmlNode* node, std::uint8_t bit) {
    return node->bookkeeping & bit;
}
inline void Mark(XmlNode* node, std::uint8_t bit, bool on) {
    node->bookkeeping =
        static_cast<std::uint8_t>(on ? node->bookkeeping | bit : node->bookkeeping & ~bit);
}

// Every field is written and none is read first: a record that starts a fresh page is then
// faulted in once, for the write, rather than once to read and once more to write.
void InitNode(XmlNode* node, XmlNodeKind kind, bool pooled) {
    *node = XmlNode{nullptr, nullptr, nullptr, nullptr,
                    nullptr, 0,       0,       0,
                    kind,    1,       1,       static_cast<std::uint8_t>(pooled ? kNodePooled : 0)};
}

// A tree-building array of pointers grown by one slot, or null when no memory is left. An array
// from a parse's pool is never freed on its own.
template <typename T> T** GrownByOne(T** array, std::uint32_t count, bool ownArray) {
    if (count == UINT32_MAX) {
        return nullptr;
    }
    if (ownArray) {
        return static_cast<T**>(std::realloc(array, sizeof(T*) * (count + 1)));
    }
    auto** grown = static_cast<T**>(std::malloc(sizeof(T*) * (count + 1)));
    if (grown && count > 0) {
        std::memcpy(grown, array, sizeof(T*) * count);
    }
    return grown;
}

bool AddChild(XmlNode* parent, XmlNode* child) {
    if (parent->childCount == parent->childCapacity) {
        XmlNode** grown = GrownByOne(parent->children, parent->childCount,
                                     parent->children && !Has(parent, kNodeChildrenPooled));
        if (!grown) {
            return false;
        }
        parent->children = grown;
        parent->childCapacity = parent->childCount + 1;
        Mark(parent, kNodeChildrenPooled, false);
    }
    parent->children[parent->childCount++] = child;
    child->parent = parent;
    return true;
}

bool AddAttribute(XmlNode* node, XmlAttribute* attribute) {
    XmlAttribute** grown = GrownByOne(node->attributes, node->attributeCount,
                                      node->attributes && !Has(node, kNodeAttributesPooled));
    if (!grown) {
        return false;
    }
    node->attributes = grown;
    Mark(node, kNodeAttributesPooled, false);
    node->attributes[node->attributeCount++] = attribute;
    return true;
}

void FreeAttribute(XmlAttribute* attribute) {
    if (!attribute->nameInPlace) {
        std::free(attribute->name);
    }
    if (!attribute->valueInPlace) {
        std::free(attribute->value);
    }
    if (!attribute->pooled) {
        std::free(attribute);
    }
}

void FreeNodeRecord(XmlNode* node) {
    for (std::uint32_t i = 0; i < node->attributeCount; ++i) {
        FreeAttribute(node->attributes[i]);
    }
    if (!Has(node, kNodeAttributesPooled)) {
        std::free(node->attributes);
    }
    if (!Has(node, kNodeChildrenPooled)) {
        std::free(node->children);
    }
    if (!node->nameInPlace) {
        std::free(node->name);
    }
    if (!node->valueInPlace) {
        std::free(node->value);
    }
    if (!Has(node, kNodePooled)) {
        std::free(node);
    }
}

// Frees a whole tree without recursion: always the last child of the deepest node first.
void DestroyTree(XmlNode* root) {
    XmlNode* node = root;
    while (node) {
        while (node->childCount > 0) {
            node = node->children[node->childCount - 1];
        }
        XmlNode* parent = node->parent;
        FreeNodeRecord(node);
        if (node == root) {
            break;
        }
        --parent->childCount;
        node = parent;
    }
}

// Notes on the Document node that some node of its tree now owns heap memory.
void MarkHeapBelow(XmlNode* node) {
    while (node->parent && node->parent != node) {
        node = node->parent;
    }
    Mark(node, kNodeHeapBelow, true);
}

// Replaces a name or value by the copy rule: in place when the new text fits, else an owned copy.
bool AssignString(char*& field, std::uint8_t& inPlace, const char* text) {
    std::size_t length = std::strlen(text);
    if (field && length <= std::strlen(field)) {
        std::memcpy(field, text, length + 1);
        return true;
    }
    char* copy = static_cast<char*>(std::malloc(length + 1));
    if (!copy) {
        return false;
    }
    std::memcpy(copy, text, length + 1);
    if (!inPlace) {
        std::free(field);
    }
    field = copy;
    inPlace = 0;
    return true;
}

// Matches one `[...]` set starting just after the `[`. Returns the byte after the closing `]`, or
// null when the set never closes (such a pattern matches nothing).
const char* MatchSet(const char* p, unsigned char c, bool& matched) {
    bool negate = false;
    if (*p == '!') {
        negate = true;
        ++p;
    }
    bool hit = false;
    bool first = true;
    while (*p && (*p != ']' || first)) {
        auto low = static_cast<unsigned char>(*p);
        if (p[1] == '-' && p[2] && p[2] != ']' && static_cast<unsigned char>(p[2]) >= low) {
            auto high = static_cast<unsigned char>(p[2]);
            hit |= c >= low && c <= high;
            p += 3;
        } else {
            hit |= c == low;
            ++p;
        }
        first = false;
    }
    if (*p != ']') {
        return nullptr;
    }
    matched = hit != negate;
    return p + 1;
}

} // namespace

bool XmlNameMatches(const char* pattern, const char* name) {
    if (!pattern || !name) {
        return false;
    }
    const char* p = pattern;
    const char* n = name;
    const char* starPattern = nullptr; // just after the last `*` seen
    const char* starName = nullptr;    // where that `*` now stops matching
    while (true) {
        if (*p == '*') {
            while (*p == '*') {
                ++p;
            }
            if (!*p) {
                return true;
            }
            starPattern = p;
            starName = n;
            continue;
        }
        bool matched = false;
        const char* next = nullptr;
        if (*n) {
            if (*p == '?') {
                matched = true;
                next = p + 1;
            } else if (*p == '[') {
                next = MatchSet(p + 1, static_cast<unsigned char>(*n), matched);
                if (!next) {
                    return false;
                }
            } else if (*p) {
                matched = *p == *n;
                next = p + 1;
            }
        } else if (!*p) {
            return true;
        }
        if (matched) {
            p = next;
            ++n;
            continue;
        }
        if (!starPattern || !*starName) {
            return false;
        }
        p = starPattern;
        n = ++starName;
    }
}

// ---------------------------------------------------------------------------------------------
// The document and its pool of records.

struct XmlDocument::PoolBlock {
    PoolBlock* next;
    std::size_t capacity;
};

namespace {
constexpr std::size_t kPoolAlign = alignof(void*);
// A block's header: its link and its capacity.
constexpr std::size_t kBlockHeader =
    (sizeof(void*) + sizeof(std::size_t) + kPoolAlign - 1) / kPoolAlign * kPoolAlign;
// What a copied text's own block holds beyond the text, for the first records and arrays: enough
// for a skin file, so that parsing one costs a single allocation.
constexpr std::size_t kFirstRecords = 8 << 10;
constexpr std::size_t kFirstArrays = 2 << 10;

std::size_t PoolRound(std::size_t size) {
    return (size + kPoolAlign - 1) / kPoolAlign * kPoolAlign;
}
} // namespace

class XmlParser {
public:
    // `spare`, when given, is room for the first records and arrays: kFirstRecords and then
    // kFirstArrays bytes.
    XmlParser(XmlDocument& document, std::uint32_t options, char* spare)
        : document_(document), options_(options), readable_(document.text_ + document.length_) {
        if (spare) {
            poolNext_ = spare;
            poolEnd_ = arrayNext_ = spare + kFirstRecords;
            arrayEnd_ = arrayNext_ + kFirstArrays;
        }
    }
    ~XmlParser() {
        if (staged_ != inlineStaged_) {
            std::free(staged_);
        }
    }
    XmlParser(const XmlParser&) = delete;
    XmlParser& operator=(const XmlParser&) = delete;

    // A Document node from the pool, or null when no memory is left.
    XmlNode* NewRoot() {
        auto* root = static_cast<XmlNode*>(Allocate(sizeof(XmlNode)));
        if (root) {
            InitNode(root, kXmlDocument, true);
            root->parent = root;
        }
        return root;
    }

    // Parses from the Document node and leaves every node's children in its array.
    char* ParseDocument(char* p, char* end, XmlNode* root) {
        top_ = Enter(root);
        p = Run(p, end, root, 0);
        while (top_ != root) {
            top_ = Leave(top_);
        }
        Close(root);
        return p;
    }

    char* Run(char* p, char* end, XmlNode* current, int depth);

    void* Allocate(std::size_t size) { return AllocateFrom(poolNext_, poolEnd_, size); }

    // Arrays of pointers come from a region of their own, so that a tag's attributes, handed out
    // last while the tag is read, can grow where they stand.
    void* AllocateArray(std::size_t size) { return AllocateFrom(arrayNext_, arrayEnd_, size); }

private:
    void* AllocateFrom(char*& next, char*& end, std::size_t size) {
        size = PoolRound(size);
        if (static_cast<std::size_t>(end - next) < size && !NewPoolBlock(size, next, end)) {
            return nullptr;
        }
        void* memory = next;
        next += size;
        return memory;
    }

    // Blocks double from 16 KB up to 4 MB, and are never smaller than the request.
    bool NewPoolBlock(std::size_t size, char*& next, char*& end) {
        XmlDocument::PoolBlock* block = document_.pool_;
        std::size_t capacity =
            block ? std::min<std::size_t>(block->capacity * 2, 4 << 20) : 16 << 10;
        capacity = std::max(capacity, size);
        auto* fresh = static_cast<XmlDocument::PoolBlock*>(std::malloc(kBlockHeader + capacity));
        if (!fresh) {
            return false;
        }
        fresh->next = block;
        fresh->capacity = capacity;
        document_.pool_ = fresh;
        next = reinterpret_cast<char*>(fresh) + kBlockHeader;
        end = next + capacity;
        return true;
    }

    XmlNode* Append(XmlNode* parent, XmlNodeKind kind) {
        auto* node = static_cast<XmlNode*>(Allocate(sizeof(XmlNode)));
        if (!node) {
            return nullptr;
        }
        InitNode(node, kind, true);
        if (stagedCount_ == stagedCapacity_ && !GrowStaged()) {
            return nullptr;
        }
        staged_[stagedCount_++] = node;
        ++parent->childCount;
        node->parent = parent;
        return node;
    }

    // The nodes whose children are still coming are the innermost one (`top_`, where new nodes
    // are appended) and its ancestors. Their children wait on one stack, the outermost node's
    // first, and each node's run of them is copied into an array of exactly their count when it
    // is left. So no array is ever regrown, and none is larger than it needs to be.
    XmlNode* Enter(XmlNode* node) {
        Mark(node, kNodeOpen, true);
        top_ = node;
        return node;
    }

    // Leaves the innermost node for its parent. The Document node is never left: a surplus end
    // tag keeps it current.
    XmlNode* Leave(XmlNode* node) {
        XmlNode* parent = node->parent;
        if (parent == node) {
            return node;
        }
        Close(node);
        top_ = parent;
        return parent;
    }

    void Close(XmlNode* node) {
        Mark(node, kNodeOpen, false);
        const std::uint32_t count = node->childCount;
        if (count == 0) {
            return;
        }
        stagedCount_ -= count;
        auto** children = static_cast<XmlNode**>(AllocateArray(sizeof(XmlNode*) * count));
        if (!children) {
            node->childCount = 0; // no memory left: the parse stops at its next node
            return;
        }
        std::memcpy(children, staged_ + stagedCount_, sizeof(XmlNode*) * count);
        node->children = children;
        node->childCapacity = count;
        Mark(node, kNodeChildrenPooled, true);
    }

    // Makes `target` the innermost node, as a DocType's subset asks when it ends: leaves nodes
    // up to the nearest of its ancestors that is still open, and opens again the ones from there
    // down to it (a subset can leave its DocType through surplus end tags).
    XmlNode* MoveTo(XmlNode* target) {
        if (target == top_) {
            return target;
        }
        XmlNode* open = target;
        std::size_t depth = 0;
        while (!Has(open, kNodeOpen)) {
            open = open->parent;
            ++depth;
        }
        while (top_ != open) {
            top_ = Leave(top_);
        }
        if (depth == 0) {
            return target;
        }
        auto** path = static_cast<XmlNode**>(std::malloc(sizeof(XmlNode*) * depth));
        if (!path) {
            stopped = true;
            return top_;
        }
        std::size_t at = 0;
        for (XmlNode* node = target; node != open; node = node->parent) {
            path[at++] = node;
        }
        while (at > 0 && Reopen(path[--at])) {
        }
        std::free(path);
        return top_;
    }

    // Puts the children of a closed node back on the stack and makes it the innermost node. Its
    // array is left in the pool. False, with `stopped` set, when no memory is left.
    bool Reopen(XmlNode* node) {
        while (stagedCapacity_ - stagedCount_ < node->childCount) {
            if (!GrowStaged()) {
                stopped = true;
                return false;
            }
        }
        if (node->childCount > 0) {
            std::memcpy(staged_ + stagedCount_, node->children,
                        sizeof(XmlNode*) * node->childCount);
            stagedCount_ += node->childCount;
        }
        Enter(node);
        return true;
    }

    bool GrowStaged() {
        const std::size_t capacity = stagedCapacity_ * 2;
        const bool inlined = staged_ == inlineStaged_;
        auto* grown = static_cast<XmlNode**>(
            std::realloc(inlined ? nullptr : staged_, sizeof(XmlNode*) * capacity));
        if (!grown) {
            return false;
        }
        if (inlined) {
            std::memcpy(grown, inlineStaged_, sizeof inlineStaged_);
        }
        staged_ = grown;
        stagedCapacity_ = capacity;
        return true;
    }

    XmlAttribute* AppendAttribute(XmlNode* node, char* name, char* value) {
        auto* attribute = static_cast<XmlAttribute*>(Allocate(sizeof(XmlAttribute)));
        if (!attribute) {
            return nullptr;
        }
        *attribute = XmlAttribute{name, value, 1, 1, 1};
        if (!GrowAttributes(node)) {
            return nullptr;
        }
        node->attributes[node->attributeCount++] = attribute;
        return attribute;
    }

    // Grows the attribute array of a node being parsed by one slot: where it stands when it is
    // the last thing in the array region, as it is while its tag is read; otherwise by a move
    // there. Arrays met here are always null or pooled ones.
    bool GrowAttributes(XmlNode* node) {
        const std::uint32_t count = node->attributeCount;
        if (count == UINT32_MAX) {
            return false;
        }
        if (Has(node, kNodeAttributesPooled) &&
            reinterpret_cast<char*>(node->attributes + count) == arrayNext_ &&
            static_cast<std::size_t>(arrayEnd_ - arrayNext_) >= sizeof(XmlAttribute*)) {
            arrayNext_ += sizeof(XmlAttribute*);
            return true;
        }
        auto** grown =
            static_cast<XmlAttribute**>(AllocateArray(sizeof(XmlAttribute*) * (count + 1)));
        if (!grown) {
            return false;
        }
        if (count == 1) {
            grown[0] = node->attributes[0];
        } else if (count > 1) {
            std::memcpy(grown, node->attributes, sizeof(XmlAttribute*) * count);
        }
        node->attributes = grown;
        Mark(node, kNodeAttributesPooled, true);
        return true;
    }

    // A comment, CDATA or INCLUDE section whose text starts at `value` and runs to its
    // terminator: kept as a node of `kind` when `keep` is among the options, and `p` moved past
    // it. False, with `p` untouched, when no memory is left for the node.
    bool Section(XmlNode* parent, char*& p, char* value, char* end, const char (&terminator)[4],
                 XmlNodeKind kind, std::uint32_t keep, std::uint32_t trim) {
        char* close = FindTerminator(value, end, terminator);
        if (options_ & keep) {
            XmlNode* node = Append(parent, kind);
            if (!node) {
                return false;
            }
            node->value = Trim(value, close, trim);
        }
        p = close == end ? end : close + 3;
        return true;
    }

    char* Trim(char* s, char* e, std::uint32_t flag) {
        if (!(options_ & flag)) {
            *e = '\0';
            return s;
        }
        return TrimValue(s, e, options_ & kXmlNormaliseSpace, readable_);
    }

    // Cuts the value that starts at `p` and runs to the next `stop` byte (or the end), trimmed per
    // `flag`: one pass over the bytes when there is nothing to trim. Returns the stop position.
    char* CutValue(char* p, char* end, char stop, std::uint32_t flag, char*& value) {
        if (!(options_ & flag)) {
            char* close = Find(p, end, stop);
            *close = '\0';
            value = p;
            return close;
        }
        // Byte by byte up to the first blank, as most values are a single word; past a lone
        // blank a block at a time over words and lone blanks, and then byte by byte again where
        // that scan stopped.
        char* q = p;
        if (!IsSpace(*q)) {
            while (true) {
                q = SkipValueBytes(q);
                const auto c = static_cast<unsigned char>(*q);
                if (c > 32 && c != static_cast<unsigned char>(stop)) {
                    ++q;
                    continue;
                }
                if (c == static_cast<unsigned char>(stop) || c == 0) {
                    if (q > p && q[-1] == ' ') {
                        break; // a trailing blank to drop
                    }
                    *q = '\0';
                    value = p;
                    return q;
                }
                // A single blank between two words needs no work; anything else does.
                const auto next = static_cast<unsigned char>(q[1]);
                if (c != ' ' || next <= 32 || next == static_cast<unsigned char>(stop) ||
                    IsSpace(q[-1])) {
                    break;
                }
                q = SkipPlainWords(q + 2, end, stop);
            }
        }
        char* close = Find(q, end, stop);
        value = TrimValue(p, close, options_ & kXmlNormaliseSpace, readable_);
        return close;
    }

    char* DocType(char* p, char* end, XmlNode*& current, int depth);
    char* Declaration(char* p, char* end, XmlNode* current);

    XmlDocument& document_;
    std::uint32_t options_;
    char* readable_; // the NUL after the document's text: every byte before it may be read
    char* poolNext_ = nullptr; // the free part of the newest pool block for records
    char* poolEnd_ = nullptr;
    char* arrayNext_ = nullptr; // and of the newest one for arrays
    char* arrayEnd_ = nullptr;
    XmlNode* top_ = nullptr; // the innermost node whose children are still coming
    // Their children, the outermost node's first: here at first, on the heap when a document
    // has more open at once.
    XmlNode* inlineStaged_[128];
    XmlNode** staged_ = inlineStaged_;
    std::size_t stagedCount_ = 0;
    std::size_t stagedCapacity_ = std::size(inlineStaged_);

public:
    bool stopped = false;   // the parse ended early (DtdOnly, or no memory left)
    char* stopAt = nullptr; // where it ended
};

namespace {
// Internal subsets nested deeper than this (a DOCTYPE inside a DOCTYPE's subset, and so on) are
// kept as raw text rather than parsed, so that no input can exhaust the stack.
constexpr int kMaxSubsetDepth = 16;

bool StartsWith(const char* p, const char* word) {
    while (*word) {
        if (*p++ != *word++) {
            return false;
        }
    }
    return true;
}
} // namespace

// Reads `<!DOCTYPE` from just after the keyword. Returns where parsing goes on (step 1).
char* XmlParser::DocType(char* p, char* end, XmlNode*& current, int depth) {
    const bool keep = options_ & kXmlParseDocType;
    p = SkipSpace(p);
    XmlNode* node = nullptr;
    if (keep) {
        node = Append(current, kXmlDocType);
        if (!node) {
            stopped = true;
            return end;
        }
        current = Enter(node);
    }
    char* name = p;
    p = SkipName(p);
    char next = *p; // the byte that the cut overwrites, still to be looked at
    if (p == end) {
        return end;
    }
    *p = '\0';
    if (keep) {
        node->name = name;
    }
    if (keep && !AppendAttribute(node, name, name)) {
        stopped = true;
        return end;
    }
    char* cut = p;
    while (true) {
        char c = p == cut ? next : *p;
        if (p >= end) {
            return end;
        }
        if (IsSpace(c)) {
            p = SkipSpace(p + 1);
        } else if (IsNameByte(c)) {
            char* word = p;
            p = SkipName(p);
            next = *p;
            if (p == end) {
                return end;
            }
            *p = '\0';
            cut = p;
            if (keep && !AppendAttribute(node, word, word)) {
                stopped = true;
                return end;
            }
        } else if (c == '"' || c == '\'') {
            char* literal = p + 1;
            char* close = Find(literal, end, c);
            if (close == end) {
                return end;
            }
            *close = '\0';
            p = close + 1;
            if (keep && !AppendAttribute(node, nullptr, literal)) {
                stopped = true;
                return end;
            }
        } else if (c == '[') {
            char* subset = p + 1;
            char* q = subset;
            int open = 1;
            while (q < end) {
                if (*q == '[') {
                    ++open;
                } else if (*q == ']' && --open == 0) {
                    break;
                }
                ++q;
            }
            *q = '\0';
            if (keep) {
                node->value = subset;
                if ((options_ & kXmlParseDtd) && depth < kMaxSubsetDepth) {
                    MoveTo(node);
                    if (stopped) {
                        return end;
                    }
                    Run(subset, q, node, depth + 1);
                    if (stopped) {
                        return stopAt;
                    }
                } else if (!(options_ & kXmlDtdOnly)) {
                    node->value = Trim(subset, q, kXmlTrimDocType);
                }
                if (options_ & kXmlDtdOnly) {
                    stopped = true;
                    stopAt = q == end ? end : q + 1;
                    return stopAt;
                }
            }
            p = q == end ? end : q + 1;
            break;
        } else {
            if (c == '>') {
                // The closing `>` itself, perhaps already cut to NUL: parsing goes on after it.
                if (keep) {
                    current = MoveTo(node->parent);
                }
                return p + 1;
            }
            break;
        }
    }
    if (keep) {
        current = MoveTo(node->parent);
    }
    return SkipPast(p, end, '>');
}

// Reads a declaration `<!NAME ...>` from the keyword on. Returns where parsing goes on (step 1).
char* XmlParser::Declaration(char* p, char* end, XmlNode* current) {
    char* keyword = p;
    p = SkipName(p);
    std::size_t length = static_cast<std::size_t>(p - keyword);
    XmlNodeKind kind = kXmlDtdEntity;
    if (length == 7 && std::memcmp(keyword, "ATTLIST", 7) == 0) {
        kind = kXmlDtdAttList;
    } else if (length == 7 && std::memcmp(keyword, "ELEMENT", 7) == 0) {
        kind = kXmlDtdElement;
    } else if (length == 8 && std::memcmp(keyword, "NOTATION", 8) == 0) {
        kind = kXmlDtdNotation;
    }
    XmlNode* node = Append(current, kind);
    if (!node) {
        stopped = true;
        return end;
    }
    p = SkipSpace(p);
    char* name = p;
    if (*p == '%') {
        char* percent = p;
        p = SkipSpace(p + 1);
        if (p > percent + 1) {
            *percent = ' ';
            p[-1] = '%';
        }
        name = p - 1;
    }
    p = SkipName(p);
    node->name = name;
    char next = *p;
    if (p == end) {
        return end;
    }
    *p = '\0';
    if (next == '>') {
        return p + 1;
    }
    char* value = SkipSpace(p + 1);
    char* close = value;
    if (kind == kXmlDtdEntity) {
        while (close < end && *close != '>') {
            if (*close == '"' || *close == '\'') {
                close = Find(close + 1, end, *close);
                if (close == end) {
                    break;
                }
            }
            ++close;
        }
    } else {
        close = Find(value, end, '>');
    }
    node->value = Trim(value, close, kXmlTrimDtd);
    return close == end ? end : close + 1;
}

// The parse proper, over [p, end) with *end == NUL. Returns the position where it stopped.
char* XmlParser::Run(char* p, char* end, XmlNode* current, int depth) {
    XmlNode* node;
    char* piClose = nullptr;
    char c;

outside: // Outside markup: everything up to the next `<` is skipped.
    p = Find(p, end, '<');
    if (p == end) {
        return end;
    }
    ++p;

markup: // Just after a `<`.
    switch (*p) {
    case '?':
        if (!IsNameByte(p[1])) {
            p = SkipPast(p, end, '>');
            goto outside;
        }
        if (!(options_ & kXmlParsePi)) {
            p = SkipPast(p, end, '>');
            goto outside;
        }
        piClose = Find(p + 1, end, '?');
        if (piClose != end) {
            *piClose = '/';
        }
        node = Append(current, kXmlProcessingInstruction);
        if (!node) {
            stopped = true;
            return p;
        }
        current = Enter(node);
        ++p;
        goto name;
    case '!':
        ++p;
        if (p[0] == '-' && p[1] == '-') {
            if (!Section(current, p, p + 2, end, "-->", kXmlComment, kXmlParseComments,
                         kXmlTrimComments)) {
                stopped = true;
                return p;
            }
            goto content;
        }
        if (p[0] == '[' && StartsWith(p + 1, "CDATA[")) {
            if (!Section(current, p, p + 7, end, "]]>", kXmlCData, kXmlParseCData, kXmlTrimCData)) {
                stopped = true;
                return p;
            }
            goto content;
        }
        if (p[0] == '[' && StartsWith(p + 1, "INCLUDE[")) {
            if (!Section(current, p, p + 9, end, "]]>", kXmlInclude, kXmlParseDocType,
                         kXmlTrimCData)) {
                stopped = true;
                return p;
            }
            goto content;
        }
        if (p[0] == 'D') {
            if (!StartsWith(p + 1, "OCTYPE")) {
                goto outside;
            }
            p = DocType(p + 7, end, current, depth);
            current = MoveTo(current);
            if (stopped) {
                return p;
            }
            goto outside;
        }
        if (IsNameByte(*p)) {
            p = Declaration(p, end, current);
            if (stopped) {
                return p;
            }
            goto outside;
        }
        goto outside;
    case '/':
        p = SkipEndTag(p + 1, end);
        current = Leave(current);
        goto outside;
    default:
        if (!IsNameByte(*p)) {
            goto outside;
        }
        node = Append(current, kXmlElement);
        if (!node) {
            stopped = true;
            return p;
        }
        current = Enter(node);
        goto name;
    }

name: // The name of an element or instruction, then its attributes.
    current->name = p;
    p = SkipName(p);
    c = *p;
    if (p == end) {
        return end;
    }
    *p++ = '\0';
    if (c == '/') {
        p = SkipPast(p, end, '>');
        current = Leave(current);
        goto outside;
    }
    if (!IsSpace(c)) {
        goto content;
    }
    // From here `c` is the byte under `p`: a name cut may have overwritten it with NUL.
    p = SkipSpace(p);
    c = *p;
    while (IsNameByte(c)) {
        char* attributeName = p;
        p = SkipName(p);
        char* nameEnd = p;
        p = SkipSpace(p);
        c = *p;
        if (p == end) {
            return end;
        }
        *nameEnd = '\0';
        XmlAttribute* attribute = AppendAttribute(current, attributeName, nullptr);
        if (!attribute) {
            stopped = true;
            return p;
        }
        if (c != '=') {
            continue;
        }
        p = SkipSpace(p + 1);
        c = *p;
        if (c != '"' && c != '\'') {
            if (IsNameByte(c)) {
                continue;
            }
            goto outside;
        }
        char* close = CutValue(p + 1, end, c, kXmlTrimAttributes, attribute->value);
        if (close == end) {
            return end;
        }
        p = close + 1;
        if (*p == '>') {
            ++p;
            goto content;
        }
        if (*p == '/') {
            current = Leave(current);
            p = SkipSpace(p + 1);
            if (*p == '>') {
                ++p;
            }
            goto outside;
        }
        p = SkipSpace(p);
        c = *p;
    }
    if (current->kind == kXmlProcessingInstruction) {
        // Past the `/` that stands for the closing `?`, unless an attribute value swallowed it.
        if (piClose && piClose >= p && piClose < end) {
            p = piClose + 1;
        } else {
            p = SkipPast(p, end, '?');
        }
        p = SkipSpace(p);
        if (*p == '/') {
            p = SkipSpace(p + 1);
        }
        if (*p == '>') {
            ++p;
        }
        current = Leave(current);
        goto content;
    }
    if (c == '/' && p[1] == '>') {
        p += 2;
        current = Leave(current);
        goto outside;
    }
    if (c == '>') {
        ++p;
        goto content;
    }
    goto outside;

content: // After a `>`: text up to the next tag.
    p = SkipSpace(p);
    if (p >= end) {
        return end;
    }
    if (*p == '<') {
        if (p[1] == '/') {
            p = SkipEndTag(p + 2, end);
            current = Leave(current);
            goto outside;
        }
        ++p;
        goto markup;
    }
    {
        node = Append(current, kXmlText);
        if (!node) {
            stopped = true;
            return p;
        }
        char* close = CutValue(p, end, '<', kXmlTrimText, node->value);
        if (close == end) {
            return end;
        }
        p = close + 1;
        if (*p == '/') {
            p = SkipEndTag(p + 1, end);
            current = Leave(current);
            goto content;
        }
        goto markup;
    }
}

// ---------------------------------------------------------------------------------------------

XmlDocument::~XmlDocument() {
    Reset();
}

void XmlDocument::Reset() {
    if (root_) {
        // A parsed tree lives wholly in the pool and the buffer; only a tree that the building
        // calls touched holds heap memory that needs the walk.
        if (Has(root_, kNodeHeapBelow)) {
            DestroyTree(root_);
        } else if (!Has(root_, kNodePooled)) {
            std::free(root_);
        }
        root_ = nullptr;
    }
    while (pool_) {
        PoolBlock* next = pool_->next;
        std::free(pool_);
        pool_ = next;
    }
    if (!textInPool_) {
        std::free(text_);
    }
    text_ = nullptr;
    textInPool_ = false;
    length_ = 0;
}

void XmlDocument::Create() {
    Reset();
    root_ = static_cast<XmlNode*>(std::malloc(sizeof(XmlNode)));
    if (root_) {
        InitNode(root_, kXmlDocument, false);
        root_->parent = root_;
    }
}

const char* XmlDocument::Parse(char* text, std::uint32_t parseOptions) {
    if (!text) {
        return nullptr;
    }
    Reset();
    text_ = text;
    return ParseText(std::strlen(text), parseOptions, nullptr);
}

const char* XmlDocument::ParseText(std::size_t length, std::uint32_t parseOptions, char* spare) {
    length_ = length;
    if (parseOptions != kXmlKeepOptions) {
        options = parseOptions;
    }
    XmlParser parser(*this, options, spare);
    root_ = parser.NewRoot();
    if (!root_) {
        return text_;
    }
    return parser.ParseDocument(text_, text_ + length_, root_);
}

const char* XmlDocument::ParseCopy(std::string_view text, std::uint32_t parseOptions) {
    Reset();
    // The copy and the first records share one block of the pool.
    static_assert(sizeof(PoolBlock) <= kBlockHeader);
    if (text.size() > SIZE_MAX - kBlockHeader - kFirstRecords - kFirstArrays - 2 * kPoolAlign) {
        return nullptr;
    }
    const std::size_t textRoom = PoolRound(text.size() + 1);
    const std::size_t capacity = textRoom + kFirstRecords + kFirstArrays;
    auto* block = static_cast<PoolBlock*>(std::malloc(kBlockHeader + capacity));
    if (!block) {
        return nullptr;
    }
    block->next = nullptr;
    block->capacity = capacity;
    pool_ = block;
    char* buffer = reinterpret_cast<char*>(block) + kBlockHeader;
    // The text ends at its first NUL, as it would for Parse. The copy goes in pieces that stay in
    // the cache while they are searched, so that a large text is read from memory only once.
    constexpr std::size_t kPiece = 32 << 10;
    std::size_t length = text.size();
    for (std::size_t at = 0; at < text.size(); at += kPiece) {
        const std::size_t piece = std::min(kPiece, text.size() - at);
        std::memcpy(buffer + at, text.data() + at, piece);
        if (const void* nul = std::memchr(buffer + at, '\0', piece)) {
            length = static_cast<std::size_t>(static_cast<const char*>(nul) - buffer);
            break;
        }
    }
    buffer[length] = '\0';
    text_ = buffer;
    textInPool_ = true;
    return ParseText(length, parseOptions, buffer + textRoom);
}

// ---------------------------------------------------------------------------------------------
// Reading and building through handles.

XmlBranch XmlBranch::Child(std::uint32_t index) const {
    if (!node_ || index >= node_->childCount) {
        return {};
    }
    return XmlBranch(node_->children[index]);
}

XmlAttribute* XmlBranch::AttributeAt(std::uint32_t index) const {
    if (!node_ || index >= node_->attributeCount) {
        return nullptr;
    }
    return node_->attributes[index];
}

bool XmlBranch::MatchesName(const char* pattern) const {
    return node_ && node_->name && XmlNameMatches(pattern, node_->name);
}

XmlBranch XmlBranch::FindFirst(const char* pattern) const {
    if (!node_ || !pattern) {
        return {};
    }
    // Pre-order with an explicit stack of (node, next child), so that depth costs no stack.
    std::vector<std::pair<XmlNode*, std::uint32_t>> stack;
    stack.emplace_back(node_, 0);
    while (!stack.empty()) {
        auto& [parent, next] = stack.back();
        if (next >= parent->childCount) {
            stack.pop_back();
            continue;
        }
        XmlNode* child = parent->children[next++];
        if (child->name && XmlNameMatches(pattern, child->name)) {
            return XmlBranch(child);
        }
        if (child->childCount > 0) {
            stack.emplace_back(child, 0);
        }
    }
    return {};
}

XmlAttribute* XmlBranch::Attribute(const char* pattern) const {
    if (!node_ || !pattern) {
        return nullptr;
    }
    for (std::uint32_t i = 0; i < node_->attributeCount; ++i) {
        XmlAttribute* attribute = node_->attributes[i];
        if (attribute->name && XmlNameMatches(pattern, attribute->name)) {
            return attribute;
        }
    }
    return nullptr;
}

XmlBranch XmlBranch::AppendChild(XmlNodeKind kind) const {
    if (!node_ || (node_->kind != kXmlDocument && node_->kind != kXmlElement)) {
        return {};
    }
    auto* child = static_cast<XmlNode*>(std::malloc(sizeof(XmlNode)));
    if (!child) {
        return {};
    }
    InitNode(child, kind, false);
    child->nameInPlace = 0;
    child->valueInPlace = 0;
    MarkHeapBelow(node_);
    if (!AddChild(node_, child)) {
        FreeNodeRecord(child);
        return {};
    }
    return XmlBranch(child);
}

bool XmlBranch::SetName(const char* text) const {
    if (!node_ || !text ||
        (node_->kind != kXmlElement && node_->kind != kXmlProcessingInstruction)) {
        return false;
    }
    MarkHeapBelow(node_);
    return AssignString(node_->name, node_->nameInPlace, text);
}

bool XmlBranch::SetValue(const char* text) const {
    if (!node_ || !text) {
        return false;
    }
    MarkHeapBelow(node_);
    return AssignString(node_->value, node_->valueInPlace, text);
}

bool XmlBranch::SetAttributeValue(XmlAttribute* attribute, const char* text) const {
    if (!node_ || !attribute || !text) {
        return false;
    }
    MarkHeapBelow(node_);
    return AssignString(attribute->value, attribute->valueInPlace, text);
}

XmlAttribute* XmlBranch::AttributeOrAdd(const char* name) const {
    if (!node_ || !name) {
        return nullptr;
    }
    if (XmlAttribute* found = Attribute(name)) {
        return found;
    }
    auto* attribute = static_cast<XmlAttribute*>(std::malloc(sizeof(XmlAttribute)));
    if (!attribute) {
        return nullptr;
    }
    MarkHeapBelow(node_);
    *attribute = XmlAttribute{nullptr, nullptr, 0, 0, 0};
    if (!AssignString(attribute->name, attribute->nameInPlace, name) ||
        !AssignString(attribute->value, attribute->valueInPlace, "") ||
        !AddAttribute(node_, attribute)) {
        FreeAttribute(attribute);
        return nullptr;
    }
    return attribute;
}

} // namespace corvid
