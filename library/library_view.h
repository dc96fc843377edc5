#pragma once

// The library panel's model: the file manager's texts read into what the panel lists.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::library {

// One file of the file manager's library text.
struct LibraryRow {
    std::string name;
    std::string path;
    std::uint64_t size = 0;
    std::string sha1;      // empty until hashed
    int progress = 0;      // hashing progress, 0-100
    bool download = false; // a completed download rather than a file of a shared folder
};

// Reads <library><file><name/><path/><size/><sha1/><progress/><download/></file>...</library>;
// children are looked for in that order. A <file> without a name is left out; a missing or
// unreadable number is 0, a progress outside 0-100 is brought into it.
std::vector<LibraryRow> ReadLibraryText(std::string_view text);

// The shared folders: one per line, lines ended by CR LF (a last line without one counts too);
// blank lines are skipped.
std::vector<std::string> ReadFolderList(std::string_view text);

// Bytes with thousands separators: "4,518,273".
std::string SizeText(std::uint64_t bytes);

} // namespace corvid::library
