// Command line of corvid-node: run a servent; connect, search and print the hits; browse a host;
// or fetch one file.
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
    bool get = false;
    gnutella::Endpoint browse_host;
    std::string share_dir;                    // shared through the file index, hashed at start
    gnutella::Endpoint listen{0x7F000001, 0}; // port 0: the system picks a free one
    bool listen_given = false;
    std::string port_file;   // the port actually listened on is written here
    std::string status_file; // rewritten with the peer counts whenever they change
    std::optional<gnutella::NodeMode> mode;
    std::vector<gnutella::Endpoint> connect;
    std::string share_list;
    std::string network_ini;
    std::string host_cache;
    std::vector<std::string> keywords;
    std::vector<std::string> sha1s;
    std::optional<int> timeout_seconds;
    int enough_results = 0; // search ends once this many results came in; 0: at the time-out

    // get: a magnet link, or a SHA1 with the hosts that serve it.
    std::string get_target;
    std::vector<gnutella::Endpoint> sources;
    std::optional<gnutella::Endpoint> search_network;
    std::string out_dir = ".";

    int TimeoutOr(int fallback) const { return timeout_seconds.value_or(fallback); }
    bool firewalled = false;  // hits say "push me": others reach our files only through a Push
    std::string download_dir; // search: fetch the first result found into this folder
    std::string cache_list;   // caches to ask when no host is known (none unless given)
};

// Nothing, with *error set, when the command line does not make sense.
std::optional<Arguments> ParseArguments(const std::vector<std::string>& args, std::string* error);
extern const char* const kUsage;

} // namespace corvid::node_tool
