#include "search/search_result_reader.h"

#include "search/tag_scanner.h"

#include <array>
#include <cstring>
#include <string>

namespace corvid {
namespace {

// Reads the element tag from cursor on; when found, the cursor moves behind it, otherwise it
// stays so that a missing element shifts nothing else.
std::string_view NextElement(std::string_view& cursor, std::string_view tag) {
    std::string_view value;
    if (const std::size_t consumed = ReadElement(cursor, tag, value)) {
        cursor.remove_prefix(consumed);
    }
    return value;
}

// Reads every FileInfo of text into a ResultFields and hands it to visit, in document order.
template <typename Visit> ReadCount ReadFields(std::string_view text, Visit&& visit) {
    if (text.size() > kMaxResultTextLength) {
        return ReadError::StringLengthOutOfRange;
    }
    if (const void* nul = std::memchr(text.data(), '\0', text.size())) {
        text = text.substr(0, static_cast<const char*>(nul) - text.data());
    }

    // The document's version attribute and the flags' size attribute carry nothing the lists
    // use, so they are not looked for.
    std::string_view body;
    ReadElement(text, "<searchresult", body);
    std::string_view cursor = body;
    ResultFields fields;
    fields.keyword = NextElement(cursor, "<keyword");
    fields.type = NextElement(cursor, "<type");
    fields.nodeId = NextElement(cursor, "<nodeid");
    fields.host = NextElement(cursor, "<ip");
    fields.port = ParseDecimal(NextElement(cursor, "<port>"));
    fields.speed = ParseDecimal(NextElement(cursor, "<speed"));
    fields.vendorCode = NextElement(cursor, "<vendorCode");

    // The flags are looked for from the start of the whole text. Only bit 0 is used: set, the
    // host is firewalled and can only be reached by a push.
    std::string_view flagsText;
    ReadElement(text, "<opendata", flagsText);
    if (ParseHex(flagsText) & 1u) {
        fields.browsable = 0;
        fields.push = 1;
    }

    std::string_view resultSet;
    ReadElement(cursor, "<ResultSet>", resultSet);

    int count = 0;
    std::string_view files = resultSet;
    for (;;) {
        std::string_view file;
        std::string_view openTag;
        const std::size_t consumed = ReadElement(files, "<FileInfo", file, openTag);
        if (consumed == 0) {
            break;
        }
        std::string_view id;
        ReadAttribute(openTag, "id", id);
        files.remove_prefix(consumed);

        fields.fileIndex = ParseDecimal(id);
        fields.name = NextElement(file, "<name");
        fields.size = ParseDecimal(NextElement(file, "<size"));
        fields.info = NextElement(file, "<info");
        fields.sha1 = NextElement(file, "<sha1");
        fields.sourceUrl = NextElement(file, "<source");
        visit(static_cast<const ResultFields&>(fields));
        ++count;
    }
    return count;
}

} // namespace

ReadCount ReadResultFields(std::string_view text, const ResultFieldsSink& sink) {
    return ReadFields(text, sink);
}

ReadCount ReadResultFiles(std::string_view text, const ResultSink& sink) {
    // The record is refilled for every file, reusing what the sink left of its strings.
    ParsedResult result;
    return ReadFields(text, [&](const ResultFields& fields) {
        ResultSource& source = result.source;
        source.name.assign(fields.name);
        source.host.assign(fields.host);
        source.port = fields.port;
        source.fileIndex = fields.fileIndex;
        source.size = fields.size;
        source.speed = fields.speed;
        source.type.assign(fields.type);
        source.vendorCode.assign(fields.vendorCode);
        source.browsable = fields.browsable;
        source.uptime.clear();
        source.guid.clear();
        source.nodeId.assign(fields.nodeId);
        source.info.assign(fields.info);
        source.push = fields.push;
        source.sourceUrl.assign(fields.sourceUrl);
        result.sha1.assign(fields.sha1);
        result.keyword.assign(fields.keyword);
        sink(result);
    });
}

ReadCount ReadSearchResult(ResultStore& store, std::string_view text) {
    // Files are handed to the store in batches: their views stay valid until the text is done.
    std::array<ResultFields, 32> batch;
    std::size_t batched = 0;
    int accepted = 0;
    const ReadCount read = ReadFields(text, [&](const ResultFields& fields) {
        batch[batched++] = fields;
        if (batched == batch.size()) {
            accepted += AcceptResults(store, batch);
            batched = 0;
        }
    });
    if (!read) {
        return read;
    }
    return accepted + AcceptResults(store, std::span(batch.data(), batched));
}

} // namespace corvid
