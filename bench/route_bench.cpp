// One ultrapeer with 30 ultrapeer links and 100 leaves on loopback: how many queries a second it
// routes, and what each connection costs it in resident memory. The peers live in a child
// process so the parent's memory is the ultrapeer's alone.
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <thread>

#include "engine/core/node.h"

using namespace corvid::gnutella;
using namespace std::chrono_literals;

namespace {

constexpr int kUltrapeers = 30;
constexpr int kLeaves = 100;
constexpr std::uint64_t kWindow = 200; // queries in flight at most
constexpr auto kMeasure = 5s;

double ResidentMegabytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576.0;
}

NodeOptions PeerOptions(NodeMode mode, bool compress) {
    NodeOptions o;
    o.servent.compress_links = compress;
    o.servent.network.node_mode = mode;
    o.servent.network.peer_max_count = 1;
    o.servent.network.ultrapeer_min_count = 1;
    o.servent.allow_private_addresses = true;
    o.servent.query_ttl = 2; // the hub forwards with TTL 1: its neighbours answer, never flood back
    return o;
}

[[noreturn]] void RunPeers(std::uint16_t hub_port, bool compress) {
    asio::io_context io;
    Endpoint hub{0x7F000001, hub_port};
    std::vector<std::unique_ptr<InMemoryFileIndex>> indexes;
    std::vector<std::unique_ptr<Node>> nodes;
    for (int i = 0; i < kUltrapeers + kLeaves; ++i) {
        bool leaf = i >= kUltrapeers;
        auto index = std::make_unique<InMemoryFileIndex>();
        if (leaf) {
            index->Add("file" + std::to_string(i) + ".dat", 1000, "");
            index->Add("common" + std::to_string(i % 10) + " track.mp3", 2000, "");
        }
        auto node = std::make_unique<Node>(
            io, PeerOptions(leaf ? NodeMode::LeafPeer : NodeMode::UltraPeer, compress), *index,
            100 + i);
        if (node->Start())
            std::_Exit(3);
        node->servent().ConnectTo(hub);
        indexes.push_back(std::move(index));
        nodes.push_back(std::move(node));
    }
    Servent& driver = nodes[0]->servent();
    const Servent& witness = nodes[1]->servent();
    std::uint64_t sent = 0;
    asio::steady_timer pump(io);
    std::function<void(const asio::error_code&)> feed = [&](const asio::error_code&) {
        bool linked = !driver.Peers().empty() && driver.Peers()[0].kind == PeerKind::Ultrapeer;
        while (linked && sent - witness.stats().queries_handled < kWindow) {
            // One query in ten matches ten leaves' tables; the rest match nobody.
            std::string text = sent % 10 == 0 ? "common" + std::to_string(sent / 10 % 10)
                                              : "nothing" + std::to_string(sent);
            driver.StartSearch(text);
            ++sent;
        }
        pump.expires_after(1ms);
        pump.async_wait(feed);
    };
    pump.expires_after(100ms);
    pump.async_wait(feed);
    io.run();
    std::_Exit(0);
}

struct Figures {
    bool complete = false;
    int ultrapeers = 0, leaves = 0;
    double queries = 0, copies = 0, hits = 0;
    double idle_mib = 0, connected_mib = 0, loaded_mib = 0;
};

Figures Measure(bool compress) {
    Figures out;
    asio::io_context io;
    InMemoryFileIndex nothing;
    NodeOptions options;
    options.servent.network.node_mode = NodeMode::UltraPeer;
    options.servent.network.ultrapeer_max_count = kUltrapeers;
    options.servent.network.leaf_peer_max_count = kLeaves;
    options.servent.allow_private_addresses = true;
    options.servent.compress_links = compress;
    Node hub(io, options, nothing, 1);
    if (hub.Start())
        return out;
    std::fflush(stdout);
    pid_t child = fork();
    if (child == 0)
        RunPeers(hub.port(), compress);

    std::atomic<int> ultrapeers{0}, leaves{0};
    asio::steady_timer census(io);
    std::function<void(const asio::error_code&)> count = [&](const asio::error_code&) {
        int u = 0, l = 0;
        for (const auto& p : hub.servent().Peers()) {
            u += p.kind == PeerKind::Ultrapeer;
            l += p.kind == PeerKind::Leaf && p.qrp_table_complete;
        }
        ultrapeers = u;
        leaves = l;
        census.expires_after(20ms);
        census.async_wait(count);
    };
    double before = ResidentMegabytes();
    census.expires_after(20ms);
    census.async_wait(count);
    std::thread runner([&] { io.run(); });

    auto give_up = std::chrono::steady_clock::now() + 60s;
    while ((ultrapeers < kUltrapeers || leaves < kLeaves) &&
           std::chrono::steady_clock::now() < give_up)
        std::this_thread::sleep_for(50ms);
    bool complete = ultrapeers == kUltrapeers && leaves == kLeaves;
    double connected = ResidentMegabytes();

    const auto& stats = hub.servent().stats();
    std::this_thread::sleep_for(1s); // let the flood reach a steady state
    auto q0 = stats.queries_handled.load(), f0 = stats.queries_forwarded.load(),
         h0 = stats.hits_routed.load();
    auto t0 = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(kMeasure);
    auto q1 = stats.queries_handled.load(), f1 = stats.queries_forwarded.load(),
         h1 = stats.hits_routed.load();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    double loaded = ResidentMegabytes();

    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    asio::post(io, [&] { io.stop(); });
    runner.join();

    out.complete = complete;
    out.ultrapeers = ultrapeers;
    out.leaves = leaves;
    out.queries = (q1 - q0) / seconds;
    out.copies = (f1 - f0) / seconds;
    out.hits = (h1 - h0) / seconds;
    out.idle_mib = before;
    out.connected_mib = connected;
    out.loaded_mib = loaded;
    return out;
}

void Print(const char* name, const Figures& f) {
    int links = f.ultrapeers + f.leaves;
    std::printf("  %-18s %8.0f queries/s routed (%.0f copies/s sent on, %.0f hits/s routed back); "
                "%.1f KiB resident per connection (%.1f MiB idle, %.1f connected, %.1f under "
                "load)%s\n",
                name, f.queries, f.copies, f.hits,
                links ? (f.connected_mib - f.idle_mib) * 1024.0 / links : 0.0, f.idle_mib,
                f.connected_mib, f.loaded_mib, f.complete ? "" : " NOT ALL CONNECTED");
}

} // namespace

// Each configuration runs in a fresh process, so one's freed heap does not hide the other's cost.
bool MeasureApart(const char* name, bool compress) {
    std::fflush(stdout);
    pid_t child = fork();
    if (child == 0) {
        auto figures = Measure(compress);
        Print(name, figures);
        std::fflush(stdout);
        std::_Exit(figures.complete ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int main() {
    std::printf("bench-route: one ultrapeer, %d ultrapeer links, %d leaves, loopback\n",
                kUltrapeers, kLeaves);
    bool ok = MeasureApart("deflated links", true);
    ok = MeasureApart("plain links", false) && ok;
    std::printf("  reference: no other servent may run here; plain links are the comparison\n");
    return ok ? 0 : 1;
}
