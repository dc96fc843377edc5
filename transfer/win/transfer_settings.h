#pragma once

// Where the transfer pages keep their settings: registry values under the current user, the
// download and temporary folders, and the per-user file of the download list.

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

namespace corvid::transfer::win {

inline constexpr const char* kP2PViewKey = "Software\\Tarvo Explorer\\P2P View";
inline constexpr const char* kHttpServerKey = "Software\\Tarvo Explorer\\HttpServer";
// Under kP2PViewKey.
inline constexpr const char* kUploadLimitValue = "UploadLimit";
inline constexpr const char* kDownloadFolderValue = "Download Folder";
inline constexpr const char* kTempFolderValue = "Temp Folder";
// "Automatic resume downloading" of the network options page: 1 (the default) or 0.
inline constexpr const char* kAutoResumeValue = "AutoResume";
// Under kHttpServerKey.
inline constexpr const char* kMaxUploadSpeedValue = "maxULSpeedLimit";

std::optional<std::uint32_t> ReadDword(const char* key, const char* value);
bool WriteDword(const char* key, const char* value, std::uint32_t data);
std::optional<std::string> ReadText(const char* key, const char* value);
bool WriteText(const char* key, const char* value, const std::string& data);

bool AutoResume();

// The folder the default download and temporary folders are made under: "Corvid" in the user's
// documents.
std::string BaseFolder();
// The values of the "Download/Upload" page, or the defaults under BaseFolder().
std::string DownloadFolder();
std::string TempFolder();
// The per-user file of the download list: "Corvid\Downloads.xml" in the user's application data.
std::string DownloadListFile();

// Why a folder cannot be used, as a string-table id, or 0 when it exists and takes files.
std::uint32_t FolderProblem(const std::string& folder);
// Creates the folder and its parents when they are missing; true when it exists afterwards.
bool EnsureFolder(const std::string& folder);

} // namespace corvid::transfer::win
