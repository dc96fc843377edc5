#pragma once

// The plug-in's own element tree: a lenient, destructive parser that cuts names and values out of
// one text buffer in place, a literal writer, and the handle through which the rest of the plug-in
// reads and builds trees. C-style on purpose: records on the heap, pointers into the buffer, no
// exceptions and no error codes. Malformed text yields whatever tree was reached.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace corvid {

// Held in one byte, so that a node record fits 64 bytes.
enum XmlNodeKind : std::int8_t {
    kXmlNull = 0,
    kXmlDocument = 1,
    kXmlElement = 2,
    kXmlText = 3,
    kXmlCData = 4,
    kXmlComment = 5,
    kXmlProcessingInstruction = 6,
    kXmlInclude = 7,
    kXmlDocType = 8,
    kXmlDtdEntity = 9,
    kXmlDtdAttList = 10,
    kXmlDtdElement = 11,
    kXmlDtdNotation = 12,
};

// Parse flags, combined into one 32-bit mask.
enum XmlParseOptions : std::uint32_t {
    kXmlParsePi = 0x0002,
    kXmlParseDocType = 0x0004,
    kXmlParseComments = 0x0008,
    kXmlParseCData = 0x0010,
    kXmlParseEscapes = 0x0020, // reserved: references are never decoded
    kXmlTrimText = 0x0040,
    kXmlTrimAttributes = 0x0080,
    kXmlTrimCData = 0x0100,
    kXmlTrimDtd = 0x0200,
    kXmlTrimDocType = 0x0400,
    kXmlTrimComments = 0x0800,
    kXmlNormaliseSpace = 0x1000,
    kXmlParseDtd = 0x2000,
    kXmlDtdOnly = 0x4000,
    kXmlKeepOptions = 0x80000000u,
};

// The mask every reader of the plug-in loads its documents with.
inline constexpr std::uint32_t kXmlStandardReader = 0x3BDE;

struct XmlAttribute {
    char* name;
    char* value;
    std::uint8_t nameInPlace; // 1: points into the document's buffer (or null), never freed
    std::uint8_t valueInPlace;
    std::uint8_t pooled; // the record itself lives in the document's pool
};

// 56 bytes on 64-bit targets: the pointers first, then the counts, then the one-byte fields. The
// attribute array always has exactly `attributeCount` slots.
struct XmlNode {
    XmlNode* parent; // the Document node is its own parent
    char* name;
    char* value;
    XmlAttribute** attributes;
    XmlNode** children;
    std::uint32_t attributeCount;
    std::uint32_t childCount;
    std::uint32_t childCapacity;
    XmlNodeKind kind;
    std::uint8_t nameInPlace;
    std::uint8_t valueInPlace;
    // Bookkeeping bits, the element tree's own: where the record and its arrays live, whether
    // some node below the Document node owns heap memory, whether the parser is still adding to
    // the node's children.
    std::uint8_t bookkeeping;
};
static_assert(sizeof(void*) != 8 || sizeof(XmlNode) == 56);

// True when `pattern` matches the whole of `name`: `*` any run, `?` any byte, `[...]` one byte of a
// set (leading `!` negates, `a-z` ranges, `]` first is literal). Case-sensitive, byte by byte.
bool XmlNameMatches(const char* pattern, const char* name);

// The indent state of one write: one indent character per level; nothing at all when the character
// is 0.
class XmlIndent {
public:
    explicit XmlIndent(char indentChar) : indentChar_(indentChar) {}
    void Push() {
        if (indentChar_) {
            current_.push_back(indentChar_);
        }
    }
    void Pop() {
        if (indentChar_ && !current_.empty()) {
            current_.pop_back();
        }
    }
    const std::string& Current() const { return current_; }

private:
    char indentChar_;
    std::string current_;
};

// A value handle on one node (or on nothing, which reads as an empty node).
class XmlBranch {
public:
    XmlBranch() = default;
    explicit XmlBranch(XmlNode* node) : node_(node) {}

    XmlNode* node() const { return node_; }
    bool IsNull() const { return node_ == nullptr; }
    XmlNodeKind Kind() const { return node_ ? node_->kind : kXmlNull; }
    // The name or value, or "" when the handle or the field is null.
    const char* Name() const { return node_ && node_->name ? node_->name : ""; }
    const char* Value() const { return node_ && node_->value ? node_->value : ""; }

    std::uint32_t ChildCount() const { return node_ ? node_->childCount : 0; }
    XmlBranch Child(std::uint32_t index) const;
    std::uint32_t AttributeCount() const { return node_ ? node_->attributeCount : 0; }
    XmlAttribute* AttributeAt(std::uint32_t index) const;

    bool MatchesName(const char* pattern) const;
    // Depth-first, pre-order search below this node for the first node whose name matches.
    XmlBranch FindFirst(const char* pattern) const;
    // The first attribute, in document order, whose name matches; null when none does.
    XmlAttribute* Attribute(const char* pattern) const;

    // Tree building.
    XmlBranch AppendChild(XmlNodeKind kind) const;
    bool SetName(const char* text) const;
    bool SetValue(const char* text) const;
    XmlAttribute* AttributeOrAdd(const char* name) const;
    // Sets the value of one of this node's attributes by the copy rule: over the present bytes when
    // it fits, else an owned copy.
    bool SetAttributeValue(XmlAttribute* attribute, const char* text) const;

    void Write(std::ostream& out, char indentChar, bool lineBreaks) const;

private:
    XmlNode* node_ = nullptr;
};

class XmlDocument {
public:
    XmlDocument() = default;
    ~XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    // Drops any tree and buffer and starts an empty Document node, for building a tree to write.
    void Create();
    // Takes ownership of `text` (from std::malloc, NUL-terminated, writable) and parses it in
    // place. Returns the position at which parsing stopped, or null when `text` is null.
    const char* Parse(char* text, std::uint32_t options);
    // Copies `text` into a buffer of its own and parses that.
    const char* ParseCopy(std::string_view text, std::uint32_t options);
    void Reset();

    XmlBranch Root() const { return XmlBranch(root_); }
    void Write(std::ostream& out, char indentChar, bool lineBreaks) const;

    // Callers may still set it, but nothing grows by steps any more: children wait on the
    // parser's stack and take an array of exactly their count when their element closes, and an
    // attribute array grows one slot at a time in place while its tag is read.
    std::uint32_t growStep = 4;
    std::uint32_t options = 0xFFFF;
    std::size_t length() const { return length_; }

private:
    // Parses `text_`, whose first NUL is at `length`, with `spare` (or null) as room for the first
    // records.
    const char* ParseText(std::size_t length, std::uint32_t options, char* spare);

    XmlNode* root_ = nullptr;
    char* text_ = nullptr;
    bool textInPool_ = false; // the text is a copy in the pool's first block
    std::size_t length_ = 0;
    struct PoolBlock;
    PoolBlock* pool_ = nullptr;

    friend class XmlParser;
};

} // namespace corvid
