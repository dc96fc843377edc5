#pragma once

// The library panel's model: the file manager's texts read into what the panel lists.

#include <chrono>
#include <cstdint>
#include <optional>
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

// Spaces the panel's refreshes out by what they cost. Reading a large library's text keeps the
// user-interface thread busy for a good part of a second, and a library being walked or hashed
// changes every moment: refreshed at each change, the window would stop answering. After a
// refresh that took `busy`, the next waits nine times as long, so the thread stays nine tenths
// free however large the library grows, while a small one is still refreshed at once.
class RefreshPacer {
public:
    using Clock = std::chrono::steady_clock;

    // Zero when a refresh may run now, otherwise how long until it may.
    Clock::duration Wait(Clock::time_point now) const;
    void Ran(Clock::time_point started, Clock::time_point ended);

private:
    std::optional<Clock::time_point> next_;
};

} // namespace corvid::library
