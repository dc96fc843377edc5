#pragma once

// The "Input Host Address" dialog's rules: its history of addresses ("BHistory.txt", one
// "a.b.c.d:port" a line, newest first, lines ended by CR LF), the reading of a chosen history
// line back into the address and port fields, and the texts the dialog hands on.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

inline constexpr char kBrowseHistoryFile[] = "BHistory.txt";

// The history as the dialog lists it, from the file's bytes. Lines are taken in pieces of at
// most 255 bytes (a longer line gives several entries, as a line reader with a 256-byte buffer
// does); every CR and LF is removed, blanks are trimmed at both ends, and empty pieces are
// skipped.
std::vector<std::string> ParseBrowseHistory(std::string_view content);
// The file's bytes: every entry in order, each followed by CR LF.
std::string FormatBrowseHistory(const std::vector<std::string>& entries);
// Puts entry at the top unless the history holds it already (exactly); an entry already there
// does not move. True when it was added.
bool AddToBrowseHistory(std::vector<std::string>& entries, const std::string& entry);

// A history line read back as "%d.%d.%d.%d:%d": reading stops at the first piece that does not
// fit, and the fields not read stay 0 (the octets) or empty (the port).
struct HistoryAddress {
    int octets[4] = {0, 0, 0, 0};
    std::optional<int> port;
};
HistoryAddress ParseHistoryAddress(std::string_view line);

// The address control's value from four numbers, first most significant; each number keeps its
// low byte.
std::uint32_t PackAddress(const int (&octets)[4]);

// A port the dialog accepts: 1 to 65535.
bool IsValidPort(int port);

// "a.b.c.d:port", the history's form, and "http://a.b.c.d:port", the text handed to the main
// window.
std::string HistoryEntry(std::uint32_t address, int port);
std::string BrowseUrl(std::uint32_t address, int port);

// "http://host:port" (from the dialog or a search result) as the "host:port" the engine browses;
// an address without the scheme is taken as it stands. Empty when no host or no valid port.
std::string BrowseTarget(std::string_view url);

// The history file's folder under the temp path: "<temp>\Tarvo\P2P\" (a backslash is added to
// temp when it lacks one). The two folder names, in the order they must exist.
std::string BrowseHistoryFolder(std::string tempPath);
std::vector<std::string> BrowseHistoryFolders(const std::string& tempPath);

// The file itself, through the C library. A file that cannot be read gives an empty history; one
// that cannot be written is not written (false). Reading stops after kMaxBrowseHistoryBytes.
inline constexpr std::size_t kMaxBrowseHistoryBytes = 1 << 20;
std::vector<std::string> LoadBrowseHistory(const std::string& path);
bool SaveBrowseHistory(const std::string& path, const std::vector<std::string>& entries);

} // namespace corvid
