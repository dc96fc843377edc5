#pragma once

// Where Corvid keeps its per-user files: "<the user's application data>\Corvid". The plug-in, the
// engine and the file manager all use this one folder, so "Config\NetWork.ini" written by the
// options page is the file the engine reads at connect.

#include <string>

namespace corvid::win {

// The folder, created when missing; empty when the system names no application-data folder.
std::wstring CorvidDataFolder();
// "<data folder>\Config", created when missing.
std::wstring CorvidConfigFolder();
std::wstring NetWorkIniPath();

} // namespace corvid::win
