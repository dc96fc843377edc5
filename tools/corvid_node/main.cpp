// corvid-node: the engine as a headless servent for local test networks, demos and benchmarks.
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#include "download/core/download_runner.h"
#include "engine/core/node.h"
#include "engine/sharing/browse_host.h"
#include "engine/sharing/library_share_index.h"
#include "engine/sharing/push_giv.h"
#include "engine/sharing/push_relay.h"
#include "engine/sharing/upload_server.h"
#include "tools/corvid_node/arguments.h"
#include "tools/corvid_node/get_command.h"

namespace {

using namespace corvid::gnutella;
using corvid::node_tool::Arguments;

std::optional<std::string> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Readers polling the file see the old text or the new, never half of one.
bool WriteFileAtomically(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << text;
        if (!out.flush())
            return false;
    }
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}

// What a script waiting for a test network to form needs to know about this node.
std::string StatusText(Node& node) {
    int ultrapeers = 0;
    int leaves = 0;
    int leaf_tables = 0;
    for (const auto& peer : node.servent().Peers()) {
        ultrapeers += peer.kind == PeerKind::Ultrapeer;
        leaves += peer.kind == PeerKind::Leaf;
        leaf_tables += peer.kind == PeerKind::Leaf && peer.qrp_table_complete;
    }
    return "listen " + node.endpoint().ToString() + "\nmode " +
           (node.servent().IsUltrapeer() ? "ultrapeer" : "leaf") + "\nultrapeers " +
           std::to_string(ultrapeers) + "\nleaves " + std::to_string(leaves) + "\nleaf-tables " +
           std::to_string(leaf_tables) + "\n";
}

const char* KindName(PeerKind kind) {
    switch (kind) {
    case PeerKind::Ultrapeer:
        return "ultrapeer";
    case PeerKind::Leaf:
        return "leaf";
    default:
        return "handshaking";
    }
}

class Printer : public ServentObserver {
public:
    void OnPeerOpened(const PeerInfo& peer) override {
        std::cout << "connected " << peer.id << " " << peer.remote.ToString() << " "
                  << KindName(peer.kind) << " " << peer.user_agent << std::endl;
        if (on_open)
            on_open();
        if (on_change)
            on_change();
    }
    // Every link that goes is logged with why, for whoever watches a node under abuse.
    void OnPeerDropped(const PeerInfo& peer, std::string_view reason) override {
        std::cout << "dropped " << peer.id << " " << peer.remote.ToString() << " "
                  << KindName(peer.kind) << " " << reason << std::endl;
    }
    void OnPeerClosed(PeerId peer) override {
        std::cout << "disconnected " << peer << std::endl;
        if (on_change)
            on_change();
    }
    void OnQrpTableComplete(PeerId) override {
        if (on_change)
            on_change();
    }
    void OnSearchHit(const Guid&, const QueryHit& hit) override {
        for (const auto& r : hit.results)
            std::cout << "hit\t" << FormatIp(hit.ip) << "\t" << hit.port << "\t" << r.index << "\t"
                      << r.size << "\t" << r.name << "\t" << (r.sha1.empty() ? "-" : r.sha1)
                      << (hit.flags.firewalled ? "\tpush" : "") << std::endl;
        results += hit.results.size();
        if (on_results)
            on_results(results);
        if (on_hit)
            on_hit(hit);
    }
    void OnPushRequest(const Push& push) override {
        std::cout << "push " << push.file_index << " to " << Endpoint{push.ip, push.port}.ToString()
                  << std::endl;
        if (on_push)
            on_push(push);
    }

    std::size_t results = 0;
    std::function<void()> on_open;
    std::function<void()> on_change;
    std::function<void(std::size_t)> on_results;
    std::function<void(const Push&)> on_push;
    std::function<void(const QueryHit&)> on_hit;
};

void PrintHit(const QueryHit& hit) {
    for (const auto& r : hit.results)
        std::cout << "hit\t" << FormatIp(hit.ip) << "\t" << hit.port << "\t" << r.index << "\t"
                  << r.size << "\t" << r.name << "\t" << (r.sha1.empty() ? "-" : r.sha1)
                  << std::endl;
}

int Browse(const Arguments& args) {
    asio::io_context io;
    int status = 1;
    BrowseClient::Start(io, args.browse_host,
                        [&](const std::vector<QueryHit>& hits, const std::string& error) {
                            for (const auto& hit : hits)
                                PrintHit(hit);
                            if (!error.empty())
                                std::cerr << "corvid-node: browse: " << error << "\n";
                            status = error.empty() ? 0 : 1;
                            io.stop();
                        });
    asio::steady_timer deadline(io);
    deadline.expires_after(std::chrono::seconds(args.TimeoutOr(5)));
    deadline.async_wait([&](const asio::error_code& ec) {
        if (!ec) {
            std::cerr << "corvid-node: browse: no answer in time\n";
            io.stop();
        }
    });
    io.run();
    return status;
}

int Run(const Arguments& args) {
    if (args.browse)
        return Browse(args);
    if (args.get)
        return corvid::node_tool::RunGet(args);
    NodeOptions options;
    if (!args.network_ini.empty()) {
        auto text = ReadFile(args.network_ini);
        if (!text) {
            std::cerr << "corvid-node: cannot read " << args.network_ini << "\n";
            return 2;
        }
        options.servent.network = ParseNetworkIni(*text);
    }
    if (args.mode)
        options.servent.network.node_mode = *args.mode;
    if (args.search)
        options.servent.network.node_mode = NodeMode::LeafPeer;
    options.bind_address = asio::ip::address_v4(args.listen.ip);
    options.port = args.listen.port;
    options.host_cache_file = args.host_cache;
    if (!args.cache_list.empty()) {
        auto text = ReadFile(args.cache_list);
        if (!text) {
            std::cerr << "corvid-node: cannot read " << args.cache_list << "\n";
            return 2;
        }
        options.caches = ParseCacheList(*text);
    }
    options.servent.allow_private_addresses = !args.listen.IsRoutable();
    options.servent.firewalled = args.firewalled;

    InMemoryFileIndex index;
    if (!args.share_list.empty()) {
        auto text = ReadFile(args.share_list);
        if (!text) {
            std::cerr << "corvid-node: cannot read " << args.share_list << "\n";
            return 2;
        }
        std::cout << "sharing " << LoadShareList(*text, index) << " files" << std::endl;
    }

    corvid::library::FileIndex files;
    LibraryShareIndex library_index(files);
    if (!args.share_dir.empty()) {
        files.SetSharedFolders({args.share_dir});
        files.WaitForWalk();
        while (files.HashNext()) {
        }
        std::cout << "sharing " << files.FileCount() << " files from " << args.share_dir
                  << std::endl;
        options.servent.advertise_browse_host = true;
    }
    const SharedFileIndex& shared =
        args.share_dir.empty() ? static_cast<const SharedFileIndex&>(index) : library_index;

    asio::io_context io;
    std::random_device random;
    Node node(io, options, shared, (std::uint64_t{random()} << 32) | random());
    UploadRegistry uploads;
    UploadServer server(io, files, uploads);
    GivWaiters givs(io);
    if (!args.share_dir.empty())
        server.SetBrowseSource([&] {
            const Bytes stream =
                BrowseHitStream(files.Files(), {node.endpoint(), node.servent().servent_guid(),
                                                1000, args.firewalled});
            return std::string(stream.begin(), stream.end());
        });
    node.SetForeignConnectionHandler([&](asio::ip::tcp::socket socket, Bytes first) {
        std::string bytes(first.begin(), first.end());
        if (bytes.starts_with("GIV"))
            givs.Offer(std::move(socket), std::move(bytes));
        else if (!args.share_dir.empty())
            server.Adopt(std::move(socket), std::move(bytes));
    });
    // Files of firewalled hosts are fetched through a Push the relay asks for.
    PushRelay relay(io, givs, [&](const PushRelayTarget& target) {
        bool routed = node.servent().SendPush(target.servent, target.index);
        SendPushThroughProxies(io, target, node.endpoint());
        return routed || !target.proxies.empty();
    });
    if (!args.download_dir.empty())
        relay.Listen();
    if (auto ec = node.Start()) {
        std::cerr << "corvid-node: cannot listen on " << args.listen.ToString() << ": "
                  << ec.message() << "\n";
        return 2;
    }
    Printer printer;
    if (!args.share_dir.empty()) {
        printer.on_push = [&](const Push& push) {
            AnswerPush(io, push, node.servent().servent_guid(), files, server);
        };
    }
    if (!args.status_file.empty()) {
        printer.on_change = [&] { WriteFileAtomically(args.status_file, StatusText(node)); };
        printer.on_change();
    }
    node.servent().SetObserver(&printer);
    // Connections closed before their handshake began, beside the links dropped.
    node.SetRefusalHandler([](const Endpoint& remote, std::string_view reason) {
        std::cout << "refused " << remote.ToString() << " " << reason << std::endl;
    });
    std::cout << "listening " << node.endpoint().ToString() << " "
              << (node.servent().IsUltrapeer() ? "ultrapeer" : "leaf") << std::endl;
    if (!args.port_file.empty() &&
        !WriteFileAtomically(args.port_file, std::to_string(node.port()) + "\n")) {
        std::cerr << "corvid-node: cannot write " << args.port_file << "\n";
        node.Stop();
        return 2;
    }
    for (const auto& host : args.connect)
        node.servent().ConnectTo(host);

    asio::signal_set signals(io, SIGINT, SIGTERM);
    signals.async_wait([&](const asio::error_code& ec, int) {
        if (!ec) {
            node.Stop();
            server.Close();
            io.stop();
        }
    });

    asio::steady_timer deadline(io);
    int status = 0;
    std::unique_ptr<corvid::download::DownloadRunner> download;
    if (!args.download_dir.empty()) {
        status = 1; // until a file has come and hashed right
        printer.on_hit = [&](const QueryHit& hit) {
            if (download || hit.results.empty() || hit.results[0].sha1.empty())
                return;
            const HitResult& result = hit.results[0];
            const std::string n2r = "/uri-res/N2R?urn:sha1:" + result.sha1;
            const std::string url =
                hit.flags.firewalled ? relay.Url({hit.servent, result.index, hit.push_proxies, n2r})
                                     : "http://" + hit.endpoint().ToString() + n2r;
            const std::string path = args.download_dir + "/" + result.sha1;
            std::cout << "download " << url << std::endl;
            download = std::make_unique<corvid::download::DownloadRunner>(
                path, corvid::download::DownloadOptions{});
            download->addSource(url);
            auto succeeded = std::make_shared<bool>(false);
            download->start([&, succeeded, path,
                             sha1 = result.sha1](const corvid::download::DownloadEvent& event) {
                if (event.code == corvid::download::EventCode::Succeeded)
                    *succeeded = true;
                if (event.code != corvid::download::EventCode::Stopped)
                    return;
                asio::post(io, [&, ok = *succeeded, path, sha1] {
                    std::cout << (ok ? "downloaded " : "download failed ") << path << " " << sha1
                              << std::endl;
                    status = ok ? 0 : 1;
                    node.Stop();
                    relay.Close();
                    io.stop();
                });
            });
        };
    }
    bool searched = false;
    std::string text;
    for (const auto& word : args.keywords)
        text += (text.empty() ? "" : " ") + word;
    if (args.search) {
        printer.on_results = [&](std::size_t results) {
            if (args.enough_results > 0 &&
                results >= static_cast<std::size_t>(args.enough_results)) {
                node.Stop();
                io.stop();
            }
        };
        printer.on_open = [&] {
            if (searched)
                return;
            searched = true;
            node.servent().StartSearch(text, args.sha1s);
            deadline.expires_after(std::chrono::seconds(args.TimeoutOr(5)));
            deadline.async_wait([&](const asio::error_code& ec) {
                if (!ec) {
                    if (download)
                        std::cerr << "corvid-node: the download did not end in time\n";
                    node.Stop();
                    io.stop();
                }
            });
        };
        // Give up when no ultrapeer answers at all.
        deadline.expires_after(std::chrono::seconds(args.TimeoutOr(5)));
        deadline.async_wait([&](const asio::error_code& ec) {
            if (!ec && !searched) {
                std::cerr << "corvid-node: no ultrapeer accepted the connection\n";
                node.Stop();
                io.stop();
            }
        });
    }
    io.run();
    if (download)
        download->finish(corvid::download::DownloadRunner::Finish::Close);
    return args.search && !searched ? 1 : status;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string error;
    auto parsed = corvid::node_tool::ParseArguments(args, &error);
    if (!parsed) {
        std::cerr << "corvid-node: " << error << "\n" << corvid::node_tool::kUsage;
        return 2;
    }
    return Run(*parsed);
}
