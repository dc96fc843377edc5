#pragma once

// Reading the engine's search result text: one "searchresult" document per answering host,
// holding the host's fields once and one FileInfo element per file it offers.

#include "search/result_records.h"
#include "search/result_store.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace corvid {

enum class ReadError {
    // The text is longer than the plug-in's strings can hold; the Windows face turns this into
    // E_INVALIDARG (0x80070057).
    StringLengthOutOfRange,
};

inline constexpr std::uint32_t kInvalidArgumentCode = 0x80070057u;

// Longest text accepted: the length of a string must fit a signed 32-bit int.
inline constexpr std::size_t kMaxResultTextLength = 0x7FFFFFFF;

// A count of files, or the error that ended the reading.
class ReadCount {
public:
    ReadCount(int count) : count_(count) {}
    ReadCount(ReadError error) : error_(error), failed_(true) {}

    bool ok() const { return !failed_; }
    explicit operator bool() const { return ok(); }
    int value() const { return failed_ ? 0 : count_; }
    ReadError error() const { return error_; }

private:
    int count_ = 0;
    ReadError error_ = ReadError::StringLengthOutOfRange;
    bool failed_ = false;
};

using ResultSink = std::function<void(ParsedResult& result)>;

// Reads one result text into store: every file goes through AcceptResult. Returns the number
// of new distinct files accepted (see AcceptResult for the files counted once the store is full).
ReadCount ReadSearchResult(ResultStore& store, std::string_view text);

// The download side's reading: every FileInfo of the text is handed to sink at once, in
// document order, with no filter, grouping or limit, as a record filled with the host's fields
// and the file's own (sink may move from it). Returns the number of files handed over.
// Both readings end the text at its first NUL, as the engine's C string would.
ReadCount ReadResultFiles(std::string_view text, const ResultSink& sink);

} // namespace corvid
