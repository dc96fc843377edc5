// Command line of corvid-node: run a servent, or connect, search and print the hits.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/core/network_settings.h"
#include "engine/core/wire.h"

namespace corvid::node_tool {

struct Arguments {
    bool search = false;
    bool browse = false;
    gnutella::Endpoint browse_host;
    std::string share_dir; // shared through the file index, hashed at start
    gnutella::Endpoint listen{0x7F000001, 0};
    std::optional<gnutella::NodeMode> mode;
    std::vector<gnutella::Endpoint> connect;
    std::string share_list;
    std::string network_ini;
    std::string host_cache;
    std::vector<std::string> keywords;
    std::vector<std::string> sha1s;
    int timeout_seconds = 5;
    bool firewalled = false;  // hits say "push me": others reach our files only through a Push
    std::string download_dir; // search: fetch the first result found into this folder
    std::string cache_list;   // caches to ask when no host is known (none unless given)
};

// Nothing, with *error set, when the command line does not make sense.
std::optional<Arguments> ParseArguments(const std::vector<std::string>& args, std::string* error);
extern const char* const kUsage;

} // namespace corvid::node_tool
