#pragma once

// Where "Config\NetWork.ini" lives. The plug-in's options page writes it and the engine reads it
// when it starts and when told that the settings changed, so both take the path from here.

#include <string>

namespace corvid::network {

// The base folder of the plug-in's files: "<per-user application data>\Corvid", the folder the
// engine and the file manager keep their files in too. The environment variable
// CORVID_CONFIG_BASE, when set, replaces it (tests use a folder of their own).
std::string ConfigBaseFolder();

// "<base folder>\Config\NetWork.ini".
std::string NetworkIniPath();

} // namespace corvid::network
