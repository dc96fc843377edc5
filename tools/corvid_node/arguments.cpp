#include "tools/corvid_node/arguments.h"

#include <charconv>

namespace corvid::node_tool {

const char* const kUsage =
    "usage: corvid-node --listen IP[:PORT] [--ultrapeer|--leaf] [--connect HOST:PORT]...\n"
    "                   [--share-list FILE] [--share DIR] [--network-ini FILE] [--host-cache "
    "FILE]\n"
    "                   [--port-file FILE] [--status-file FILE] [--firewalled] [--caches FILE]\n"
    "       corvid-node search --connect HOST:PORT... [--timeout SECONDS] [--enough N]\n"
    "                   [--sha1 BASE32] [--download DIR] [KEYWORD]...\n"
    "       corvid-node browse HOST:PORT [--timeout SECONDS]\n"
    "       corvid-node get (MAGNET | SHA1 --source HOST:PORT...) [--out DIR]\n"
    "                   [--search-network HOST:PORT] [--timeout SECONDS]\n"
    "A share list has one file a line: size<TAB>sha1 or -<TAB>name.\n"
    "Without a port (or with port 0) --listen takes a free one; --port-file tells which.\n";

namespace {

// "IP", "IP:0" or "IP:PORT": the first two leave the port to the system.
std::optional<gnutella::Endpoint> ParseListen(std::string_view text) {
    if (text.ends_with(":0"))
        text.remove_suffix(2);
    return gnutella::ParseEndpoint(text, 0);
}

} // namespace

std::optional<Arguments> ParseArguments(const std::vector<std::string>& args, std::string* error) {
    Arguments a;
    std::size_t i = 0;
    if (!args.empty() && args[0] == "search") {
        a.search = true;
        i = 1;
    } else if (!args.empty() && args[0] == "browse") {
        auto host = args.size() > 1 ? gnutella::ParseEndpoint(args[1]) : std::nullopt;
        if (!host) {
            *error = "browse wants HOST:PORT with a numeric IPv4 host";
            return std::nullopt;
        }
        a.browse = true;
        a.browse_host = *host;
        i = 2;
    } else if (!args.empty() && args[0] == "get") {
        if (args.size() < 2 || args[1].starts_with("--")) {
            *error = "get wants a magnet link or a SHA1";
            return std::nullopt;
        }
        a.get = true;
        a.get_target = args[1];
        i = 2;
    }
    auto value = [&](const std::string& flag) -> std::optional<std::string> {
        if (i + 1 >= args.size()) {
            *error = flag + " needs a value";
            return std::nullopt;
        }
        return args[++i];
    };
    for (; i < args.size(); ++i) {
        const auto& arg = args[i];
        if (arg == "--listen") {
            auto v = value(arg);
            auto ep = v ? ParseListen(*v) : std::nullopt;
            if (!ep) {
                *error = "--listen wants IP:PORT";
                return std::nullopt;
            }
            a.listen = *ep;
            a.listen_given = true;
        } else if (arg == "--connect" || arg == "--source" || arg == "--search-network") {
            auto v = value(arg);
            auto ep = v ? gnutella::ParseEndpoint(*v) : std::nullopt;
            if (!ep) {
                *error = arg + " wants HOST:PORT with a numeric IPv4 host";
                return std::nullopt;
            }
            if (arg == "--connect")
                a.connect.push_back(*ep);
            else if (arg == "--source")
                a.sources.push_back(*ep);
            else
                a.search_network = *ep;
        } else if (arg == "--ultrapeer") {
            a.mode = gnutella::NodeMode::UltraPeer;
        } else if (arg == "--leaf") {
            a.mode = gnutella::NodeMode::LeafPeer;
        } else if (arg == "--share-list" || arg == "--network-ini" || arg == "--host-cache" ||
                   arg == "--port-file" || arg == "--status-file" || arg == "--out" ||
                   arg == "--caches") {
            auto v = value(arg);
            if (!v)
                return std::nullopt;
            (arg == "--share-list"    ? a.share_list
             : arg == "--network-ini" ? a.network_ini
             : arg == "--host-cache"  ? a.host_cache
             : arg == "--port-file"   ? a.port_file
             : arg == "--status-file" ? a.status_file
             : arg == "--caches"      ? a.cache_list
                                      : a.out_dir) = *v;
        } else if (arg == "--firewalled") {
            a.firewalled = true;
        } else if (arg == "--download" && a.search) {
            auto v = value(arg);
            if (!v)
                return std::nullopt;
            a.download_dir = *v;
        } else if (arg == "--share") {
            auto v = value(arg);
            if (!v)
                return std::nullopt;
            a.share_dir = *v;
        } else if (arg == "--timeout" || arg == "--enough") {
            auto v = value(arg);
            if (!v)
                return std::nullopt;
            int number = 0;
            auto [end, ec] = std::from_chars(v->data(), v->data() + v->size(), number);
            if (ec != std::errc() || end != v->data() + v->size() || number <= 0) {
                *error = arg + " wants a positive number";
                return std::nullopt;
            }
            if (arg == "--timeout")
                a.timeout_seconds = number;
            else
                a.enough_results = number;
        } else if (arg == "--sha1") {
            auto v = value(arg);
            if (!v || !gnutella::IsSha1Base32(*v)) {
                *error = "--sha1 wants 32 base32 characters";
                return std::nullopt;
            }
            a.sha1s.push_back(*v);
        } else if (a.search && !arg.starts_with("--")) {
            a.keywords.push_back(arg);
        } else {
            *error = "unknown argument " + arg;
            return std::nullopt;
        }
    }
    if (a.search && a.connect.empty()) {
        *error = "search needs at least one --connect";
        return std::nullopt;
    }
    if (a.search && a.keywords.empty() && a.sha1s.empty()) {
        *error = "search needs keywords or --sha1";
        return std::nullopt;
    }
    if (!a.get && (!a.sources.empty() || a.search_network)) {
        *error = "--source and --search-network belong to get";
        return std::nullopt;
    }
    if (!a.search && !a.browse && !a.get && !a.listen_given) {
        *error = "--listen IP:PORT is required";
        return std::nullopt;
    }
    return a;
}

} // namespace corvid::node_tool
