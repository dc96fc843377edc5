#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace corvid::transfer {

// Longest file name (bytes) the page writes; the extension is kept when a name is cut.
inline constexpr std::size_t kMaxFileNameLength = 180;

// A file name a remote peer chose, made safe to create in the download folder (see the rules in
// the definition). Never empty.
std::string SafeFileName(std::string_view peerName);

// The folder joined with the name, using the folder's own separator ('\' unless the folder is
// written with '/' only).
std::string JoinFolder(std::string_view folder, std::string_view name);

// A Windows folder named from a root: "C:\..." (a drive and its root) or "\\server\share...".
// Anything else ("down", "\down", "C:down") means something else whenever the current folder or
// drive changes, so the download folders never take it.
bool IsFullFolderPath(std::string_view folder);

// The default folders under a base folder: "\download" for the files being downloaded, "\temp".
std::string DefaultDownloadFolder(std::string_view base);
std::string DefaultTempFolder(std::string_view base);

// The first path folder + name, then folder + "name (2).ext", "name (3).ext"... for which
// taken(path) is false. taken is asked about each candidate in turn.
std::string UniquePath(std::string_view folder, std::string_view safeName,
                       const std::function<bool(const std::string&)>& taken);

} // namespace corvid::transfer
