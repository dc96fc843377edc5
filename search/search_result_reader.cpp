#include "search/search_result_reader.h"

#include "search/tag_scanner.h"

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

} // namespace

ReadCount ReadResultFiles(std::string_view text, const ResultSink& sink) {
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
    const std::string_view keyword = NextElement(cursor, "<keyword");
    const std::string_view type = NextElement(cursor, "<type");
    const std::string_view nodeId = NextElement(cursor, "<nodeid");
    const std::string_view host = NextElement(cursor, "<ip");
    const std::string_view port = NextElement(cursor, "<port>");
    const std::string_view speed = NextElement(cursor, "<speed");
    const std::string_view vendorCode = NextElement(cursor, "<vendorCode");

    // The flags are looked for from the start of the whole text. Only bit 0 is used: set, the
    // host is firewalled and can only be reached by a push.
    std::int32_t browsable = 1;
    std::int32_t push = 0;
    std::string_view flagsText;
    ReadElement(text, "<opendata", flagsText);
    if (ParseHex(flagsText) & 1u) {
        browsable = 0;
        push = 1;
    }

    std::string_view resultSet;
    ReadElement(cursor, "<ResultSet>", resultSet);

    ParsedResult result;
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

        const std::string_view name = NextElement(file, "<name");
        const std::string_view size = NextElement(file, "<size");
        const std::string_view info = NextElement(file, "<info");
        const std::string_view sha1 = NextElement(file, "<sha1");

        // The record is refilled for every file, reusing what the sink left of its strings.
        ResultSource& source = result.source;
        source.name.assign(name);
        source.host.assign(host);
        source.port = ParseDecimal(port);
        source.fileIndex = ParseDecimal(id);
        source.size = ParseDecimal(size);
        source.speed = ParseDecimal(speed);
        source.type.assign(type);
        source.vendorCode.assign(vendorCode);
        source.browsable = browsable;
        source.uptime.clear();
        source.guid.clear();
        source.nodeId.assign(nodeId);
        source.info.assign(info);
        source.push = push;
        result.sha1.assign(sha1);
        result.keyword.assign(keyword);
        sink(result);
        ++count;
    }
    return count;
}

ReadCount ReadSearchResult(ResultStore& store, std::string_view text) {
    int accepted = 0;
    const ReadCount read = ReadResultFiles(text, [&](ParsedResult& result) {
        if (AcceptResult(store, std::move(result))) {
            ++accepted;
        }
    });
    if (!read) {
        return read;
    }
    return accepted;
}

} // namespace corvid
