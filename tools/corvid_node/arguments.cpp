#include "tools/corvid_node/arguments.h"

#include <charconv>

namespace corvid::node_tool {

const char* const kUsage =
    "usage: corvid-node --listen IP:PORT [--ultrapeer|--leaf] [--connect HOST:PORT]...\n"
    "                   [--share-list FILE] [--share DIR] [--network-ini FILE] [--host-cache "
    "FILE]\n"
    "                   [--firewalled] [--caches FILE]\n"
    "       corvid-node search --connect HOST:PORT... [--timeout SECONDS] [--sha1 BASE32]\n"
    "                   [--download DIR] [KEYWORD]...\n"
    "       corvid-node browse HOST:PORT [--timeout SECONDS]\n"
    "A share list has one file a line: size<TAB>sha1 or -<TAB>name.\n"
    "A listening port of 0 picks a free one; the line \"listening IP:PORT\" names it.\n";

std::optional<Arguments> ParseArguments(const std::vector<std::string>& args, std::string* error) {
    Arguments a;
    bool listen_given = false;
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
            auto ep = v ? gnutella::ParseEndpoint(*v, 0) : std::nullopt;
            if (!ep && v && v->ends_with(":0"))
                ep = gnutella::ParseEndpoint(v->substr(0, v->size() - 2), 0);
            if (!ep) {
                *error = "--listen wants IP:PORT";
                return std::nullopt;
            }
            a.listen = *ep;
            listen_given = true;
        } else if (arg == "--connect") {
            auto v = value(arg);
            auto ep = v ? gnutella::ParseEndpoint(*v) : std::nullopt;
            if (!ep) {
                *error = "--connect wants HOST:PORT with a numeric IPv4 host";
                return std::nullopt;
            }
            a.connect.push_back(*ep);
        } else if (arg == "--ultrapeer") {
            a.mode = gnutella::NodeMode::UltraPeer;
        } else if (arg == "--leaf") {
            a.mode = gnutella::NodeMode::LeafPeer;
        } else if (arg == "--share-list" || arg == "--network-ini" || arg == "--host-cache" ||
                   arg == "--caches") {
            auto v = value(arg);
            if (!v)
                return std::nullopt;
            (arg == "--share-list"    ? a.share_list
             : arg == "--network-ini" ? a.network_ini
             : arg == "--caches"      ? a.cache_list
                                      : a.host_cache) = *v;
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
        } else if (arg == "--timeout") {
            auto v = value(arg);
            if (!v)
                return std::nullopt;
            auto [end, ec] = std::from_chars(v->data(), v->data() + v->size(), a.timeout_seconds);
            if (ec != std::errc() || end != v->data() + v->size() || a.timeout_seconds <= 0) {
                *error = "--timeout wants a positive number of seconds";
                return std::nullopt;
            }
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
    if (!a.search && !a.browse && !listen_given) {
        *error = "--listen IP:PORT is required";
        return std::nullopt;
    }
    return a;
}

} // namespace corvid::node_tool
