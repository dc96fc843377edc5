#pragma once

// Where the Network page reads and writes "Config\NetWork.ini": the file the engine reads when it
// starts and when told that the settings changed (platform/win/user_folders.h names it for both).

#include <string>

namespace corvid::network {

// "<per-user Corvid folder>\Config\NetWork.ini"; with the environment variable CORVID_CONFIG_BASE
// set, "<CORVID_CONFIG_BASE>\Config\NetWork.ini" instead (tests keep a folder of their own).
std::string NetworkIniPath();

} // namespace corvid::network
