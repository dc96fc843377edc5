#include "engine/service/engine_service.h"

#include "engine/sharing/browse_host.h"
#include "engine/sharing/engine_text_sources.h"
#include "engine/sharing/engine_texts.h"
#include "engine/sharing/library_share_index.h"
#include "engine/sharing/push_giv.h"
#include "engine/sharing/push_relay.h"
#include "engine/sharing/upload_server.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <future>
#include <map>
#include <random>
#include <thread>

namespace corvid::engine {

using namespace gnutella;

namespace {

constexpr auto kAnswerTimeout = std::chrono::seconds(10);
constexpr auto kLimitPoll = std::chrono::seconds(1);
// Long enough for the Byes to leave, short enough that Disconnect does not keep the user waiting.
constexpr auto kByeGrace = std::chrono::milliseconds(150);

// A cache list or a host cache is a few kilobytes; more than this is not one.
constexpr std::streamsize kMaxListBytes = 256 * 1024;

std::uint64_t RandomSeed() {
    std::random_device random;
    return (std::uint64_t{random()} << 32) | random();
}

std::string ReadSmallFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string text(static_cast<std::size_t>(kMaxListBytes), '\0');
    in.read(text.data(), kMaxListBytes);
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

bool OnPrivateAddress(const BootstrapCache& cache) {
    std::optional<Endpoint> at;
    if (cache.kind == BootstrapCache::Kind::UdpHostCache) {
        at = ParseEndpoint(cache.address);
    } else if (auto url = ParseCacheUrl(cache.address)) {
        at = ParseEndpoint(url->host, url->port);
    }
    return at && !at->IsRoutable();
}

} // namespace

std::vector<BootstrapCache> BootstrapCachesFor(const EngineOptions& options) {
    std::vector<BootstrapCache> caches = options.caches;
    if (options.shipped_cache_list.empty())
        return caches;
    if (!options.host_cache_file.empty()) {
        HostCache known(kFewKnownHosts, options.allow_private_addresses);
        known.Load(ReadSmallFile(options.host_cache_file));
        if (known.size() >= kFewKnownHosts)
            return caches;
    }
    for (auto& cache : ParseCacheList(ReadSmallFile(options.shipped_cache_list))) {
        if (std::find(caches.begin(), caches.end(), cache) == caches.end())
            caches.push_back(std::move(cache));
    }
    return caches;
}

void ApplyBootstrapVariable(EngineOptions& options, std::optional<std::string_view> value) {
    if (!value || TrimSpaces(*value).empty())
        return;
    options.shipped_cache_list.clear();
    if (EqualsIgnoreCase(TrimSpaces(*value), "none")) {
        options.host_cache_file.clear();
        return;
    }
    std::string_view listed = *value;
    for (int pieces = 0; !listed.empty() && pieces < 64; ++pieces) {
        const auto comma = listed.find(',');
        const std::string_view piece = TrimSpaces(listed.substr(0, comma));
        if (auto host = ParseUserAddress(piece)) {
            options.bootstrap.push_back(*host);
            options.allow_private_addresses =
                options.allow_private_addresses || !host->IsRoutable();
        } else {
            for (auto& cache : ParseCacheList(piece)) {
                options.allow_private_addresses =
                    options.allow_private_addresses || OnPrivateAddress(cache);
                options.caches.push_back(std::move(cache));
            }
        }
        listed = comma == std::string_view::npos ? std::string_view() : listed.substr(comma + 1);
    }
}

std::optional<Endpoint> ParseUserAddress(std::string_view text) {
    text = TrimSpaces(text);
    constexpr std::string_view kScheme = "http://";
    if (text.size() >= kScheme.size() && EqualsIgnoreCase(text.substr(0, kScheme.size()), kScheme))
        text.remove_prefix(kScheme.size());
    if (auto slash = text.find('/'); slash != std::string_view::npos)
        text = text.substr(0, slash);
    // The user names a host and its port; a bare address would silently mean 6346.
    if (text.find(':') == std::string_view::npos)
        return std::nullopt;
    auto host = ParseEndpoint(text);
    if (!host || !host->IsValid())
        return std::nullopt;
    return host;
}

std::string FormatTraffic(std::uint64_t bytes) {
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    static const char* const kUnits[] = {"KB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes) / 1024;
    int unit = 0;
    while (value >= 1024 && unit < 3) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    return text;
}

EngineIni ParseEngineIni(std::string_view text) {
    EngineIni ini;
    ini.network = ParseNetworkIni(text);
    ForEachNetworkIniValue(text, [&ini](std::string_view key, std::string_view value) {
        int number = 0;
        auto [end, ec] = std::from_chars(value.data(), value.data() + value.size(), number);
        const bool numeric = ec == std::errc() && end != value.data();
        if (EqualsIgnoreCase(key, "BehindFirewall")) {
            if (numeric)
                ini.behind_firewall = number != 0;
        } else if (EqualsIgnoreCase(key, "UploadPort")) {
            if (numeric && number > 0 && number < 65536)
                ini.upload_port = static_cast<std::uint16_t>(number);
        } else if (EqualsIgnoreCase(key, "Hosts")) {
            // A hand-edited list: what does not parse is skipped, and a long list is cut short.
            while (!value.empty() && ini.hosts.size() < 32) {
                auto comma = value.find(',');
                if (auto host = ParseUserAddress(value.substr(0, comma)))
                    ini.hosts.push_back(*host);
                value =
                    comma == std::string_view::npos ? std::string_view{} : value.substr(comma + 1);
            }
        }
    });
    return ini;
}

struct EngineService::Running : ServentObserver {
    struct Query {
        std::uint32_t search;
        std::string keyword;
        std::string type;
    };

    Running(EngineService& owner, EngineOptions opts)
        : options(std::move(opts)), files(owner.files_), listener(owner.listener_),
          uploads(owner.uploads_), share(owner.files_), work(asio::make_work_guard(io)),
          limit_timer(io), started(std::chrono::steady_clock::now()) {}

    std::uint32_t Tick() const { return options.tick ? options.tick() : 0; }

    void OnSearchHit(const Guid& guid, const QueryHit& hit) override {
        auto found = queries.find(guid);
        if (found == queries.end())
            return;
        const Query& query = found->second;
        // The plug-in hands Download.dll plain URLs and knows nothing of pushes. So a file the
        // downloader cannot fetch from the host's own address carries the engine's relay URL in
        // its result text, and the download page gives that URL instead; everything else in the
        // text stays as a reader without the element expects it.
        std::vector<ResultFile> files = ResultFilesOf(hit);
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (auto target = PushTargetOf(hit, hit.results[i], options.allow_private_addresses)) {
                files[i].source = relay->Url(*target);
            }
        }
        listener.OnSearchResult(
            query.search, SearchResultText(ResultHostOf(hit, query.keyword, query.type), files));
    }
    void OnPushRequest(const Push& push) override {
        AnswerPush(io, push, node->servent().servent_guid(), files, *server);
    }
    void OnPeerOpened(const PeerInfo& peer) override {
        handshake_ticks[peer.id] = Tick();
        listener.OnStatus(LinkOpenedText(peer), kStatusLinkOpened);
        // Counted from a fresh handler: the servent is in the middle of its own bookkeeping.
        asio::post(io, [this] { Recount(); });
    }
    // Only links that were open are news to the user: a busy node refuses many handshakes.
    void OnPeerDropped(const PeerInfo& peer, std::string_view reason) override {
        if (peer.kind != PeerKind::Handshaking)
            listener.OnStatus(LinkClosedText(peer, reason), kStatusLinkClosed);
    }
    void OnPeerClosed(PeerId peer) override {
        handshake_ticks.erase(peer);
        asio::post(io, [this] { Recount(); });
    }

    void Recount() {
        int open = 0;
        for (const auto& peer : node->servent().Peers())
            if (peer.kind != PeerKind::Handshaking)
                ++open;
        if (open != node_count.exchange(open))
            listener.OnNodeCount(open);
    }

    void PollUploadLimit() {
        const std::uint64_t limit = options.upload_limit ? options.upload_limit() : 0;
        if (limit != applied_limit) {
            applied_limit = limit;
            server->SetSpeedLimit(limit);
        }
        limit_timer.expires_after(kLimitPoll);
        limit_timer.async_wait([this](const asio::error_code& ec) {
            if (!ec)
                PollUploadLimit();
        });
    }

    EngineOptions options;
    library::FileIndex& files;
    EngineListener& listener;
    UploadRegistry& uploads;
    LibraryShareIndex share;
    // Declared before everything that holds handlers on it, so it is destroyed after them.
    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> work;
    std::unique_ptr<Node> node;
    std::unique_ptr<UploadServer> server;
    GivWaiters givs{io};
    std::unique_ptr<PushRelay> relay;
    asio::steady_timer limit_timer;
    std::uint64_t applied_limit = ~std::uint64_t{0};
    std::map<Guid, Query> queries;
    std::map<std::uint32_t, int> browses; // search id -> its running browse's round
    int browse_rounds = 0;
    std::map<PeerId, std::uint32_t> handshake_ticks;
    std::atomic<int> node_count{0};
    std::atomic<std::uint16_t> port{0};
    std::chrono::steady_clock::time_point started;
    std::thread thread;
};

EngineService::EngineService(library::FileIndex& files, EngineListener& listener)
    : files_(files), listener_(listener) {}

EngineService::~EngineService() {
    Stop();
}

std::error_code EngineService::Start(EngineOptions options) {
    Stop();
    auto run = std::make_unique<Running>(*this, std::move(options));
    Running* r = run.get();
    // Files of firewalled hosts: the relay asks for a Push down the route their hit came by and
    // through the push proxies the hit named, and carries the downloader's requests over the GIV
    // connection that answers.
    run->relay =
        std::make_unique<PushRelay>(run->io, run->givs, [r](const PushRelayTarget& target) {
            const bool routed = r->node->servent().SendPush(target.servent, target.index);
            SendPushThroughProxies(r->io, target, r->node->servent().listen());
            return routed || !target.proxies.empty();
        });
    // The port it had before, when free: downloads started before a reconnect keep their URLs.
    try {
        run->relay->Listen(relay_port_);
    } catch (const std::system_error&) {
        try {
            run->relay->Listen();
        } catch (const std::system_error& error) {
            return error.code();
        }
    }
    relay_port_ = run->relay->port();
    NodeOptions node_options;
    node_options.servent.network = run->options.network;
    node_options.servent.firewalled = run->options.behind_firewall;
    node_options.servent.allow_private_addresses = run->options.allow_private_addresses;
    node_options.servent.user_agent = run->options.user_agent;
    node_options.servent.advertise_browse_host = true;
    node_options.bind_address = asio::ip::address_v4::any();
    node_options.port = run->options.network.port;
    node_options.host_cache_file = run->options.host_cache_file;
    node_options.caches = BootstrapCachesFor(run->options);
    run->node = std::make_unique<Node>(run->io, node_options, run->share, RandomSeed());
    std::error_code error = run->node->Start();
    bool port_taken = false;
    if (error) {
        // Someone else has the port: any free one serves better than none.
        port_taken = true;
        node_options.port = 0;
        run->node = std::make_unique<Node>(run->io, node_options, run->share, RandomSeed());
        error = run->node->Start();
        if (error)
            return error;
    }
    run->port = run->node->port();

    run->server = std::make_unique<UploadServer>(run->io, files_, uploads_);
    run->server->SetBrowseSource([r] {
        const Bytes stream = BrowseHitStream(r->files.Files(), {r->node->servent().listen(),
                                                                r->node->servent().servent_guid(),
                                                                1000, r->options.behind_firewall});
        return std::string(stream.begin(), stream.end());
    });
    run->node->SetForeignConnectionHandler([r](asio::ip::tcp::socket socket, Bytes first) {
        std::string bytes(first.begin(), first.end());
        if (bytes.starts_with("GIV"))
            r->givs.Offer(std::move(socket), std::move(bytes));
        else
            r->server->Adopt(std::move(socket), std::move(bytes));
    });
    run->node->servent().SetObserver(r);
    run->PollUploadLimit();
    if (port_taken) {
        listener_.OnStatus("Port " + std::to_string(run->options.network.port) +
                               " is in use; listening on port " + std::to_string(run->port),
                           kStatusPortTaken);
    } else {
        listener_.OnStatus("Listening on port " + std::to_string(run->port), kStatusListening);
    }
    if (run->options.upload_port != 0 && run->options.upload_port != run->port) {
        try {
            run->server->Listen({asio::ip::address_v4::any(), run->options.upload_port});
        } catch (const std::system_error&) {
            listener_.OnStatus("Upload port " + std::to_string(run->options.upload_port) +
                                   " is in use; uploads go through port " +
                                   std::to_string(run->port),
                               kStatusUploadPortTaken);
        }
    }

    for (const auto& host : run->options.bootstrap) {
        listener_.OnStatus("Connecting to " + host.ToString(), kStatusDialling);
        run->node->servent().ConnectTo(host);
    }
    run->thread = std::thread([r] { r->io.run(); });
    running_ = std::move(run);
    return {};
}

void EngineService::Stop() {
    if (!running_)
        return;
    Running* r = running_.get();
    asio::post(r->io, [r] {
        // Downloads waiting on a push end first, while the links they wait on still stand.
        r->relay->Close();
        r->node->Stop();
        r->server->Close();
        r->limit_timer.cancel();
        r->queries.clear();
        r->browses.clear();
        auto grace = std::make_shared<asio::steady_timer>(r->io, kByeGrace);
        grace->async_wait([r, grace](const asio::error_code&) { r->io.stop(); });
    });
    r->thread.join();
    running_.reset();
}

template <typename Result, typename Work> Result EngineService::Ask(Result fallback, Work work) {
    if (!running_)
        return fallback;
    auto promise = std::make_shared<std::promise<Result>>();
    auto answer = promise->get_future();
    Running* r = running_.get();
    asio::post(r->io, [r, promise, work = std::move(work)]() mutable {
        try {
            promise->set_value(work(*r));
        } catch (...) {
            promise->set_exception(std::current_exception());
        }
    });
    if (answer.wait_for(kAnswerTimeout) != std::future_status::ready)
        return fallback;
    return answer.get();
}

bool EngineService::ApplySettings(const EngineOptions& options) {
    // Copied: an answer that comes too late runs after this call has returned.
    return Ask<bool>(false, [network = options.network, firewall = options.behind_firewall,
                             upload_port = options.upload_port](Running& r) {
        r.node->servent().SetLinkCounts(network);
        const EngineOptions& started = r.options;
        return network.port == started.network.port &&
               network.node_mode == started.network.node_mode &&
               firewall == started.behind_firewall && upload_port == started.upload_port;
    });
}

int EngineService::NodeCount() const {
    return running_ ? running_->node_count.load() : 0;
}

std::uint16_t EngineService::port() const {
    return running_ ? running_->port.load() : 0;
}

std::string EngineService::HostsText() {
    return Ask<std::string>(HostInfoText({}), [](Running& r) {
        const std::uint32_t tick_now = r.Tick();
        const auto now = std::chrono::steady_clock::now();
        std::vector<HostRecord> records;
        for (const auto& peer : r.node->servent().Peers()) {
            if (peer.kind == PeerKind::Handshaking)
                continue;
            auto opened = r.handshake_ticks.find(peer.id);
            const std::uint32_t handshake =
                opened == r.handshake_ticks.end() ? tick_now : opened->second;
            std::uint32_t update = handshake;
            HostRecord record = HostRecordOf(peer, handshake, update);
            if (auto traffic = r.node->traffic(peer.id)) {
                record.in = FormatTraffic(traffic->bytes_in);
                record.out = FormatTraffic(traffic->bytes_out);
                if (traffic->last_activity != std::chrono::steady_clock::time_point{}) {
                    auto idle = std::chrono::duration_cast<std::chrono::milliseconds>(
                        now - traffic->last_activity);
                    record.updateTick = tick_now - static_cast<std::uint32_t>(idle.count());
                }
            }
            records.push_back(std::move(record));
        }
        return HostInfoText(records);
    });
}

std::string EngineService::InfoText() {
    if (!running_) {
        NetworkSummary offline;
        offline.mode = "Offline";
        offline.sharedFiles = files_.FileCount();
        offline.sharedKilobytes = files_.TotalBytes() / 1024;
        return NetworkInfoText(offline);
    }
    return Ask<std::string>(std::string(), [](Running& r) {
        NetworkSummary summary;
        Servent& servent = r.node->servent();
        summary.mode = servent.IsUltrapeer() ? "Ultrapeer" : "Leaf";
        Endpoint listen = servent.listen();
        summary.address = listen.ToString();
        summary.firewalled = r.options.behind_firewall;
        for (const auto& peer : servent.Peers()) {
            if (peer.kind == PeerKind::Ultrapeer)
                ++summary.ultrapeers;
            else if (peer.kind == PeerKind::Leaf)
                ++summary.leaves;
        }
        summary.sharedFiles = r.files.FileCount();
        summary.sharedKilobytes = r.files.TotalBytes() / 1024;
        summary.uploads = static_cast<std::uint32_t>(r.uploads.Count());
        summary.uptimeSeconds =
            static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(
                                           std::chrono::steady_clock::now() - r.started)
                                           .count());
        summary.userAgent = r.options.user_agent;
        return NetworkInfoText(summary);
    });
}

bool EngineService::ConnectNode(const Endpoint& host) {
    if (!running_)
        return false;
    Running* r = running_.get();
    asio::post(r->io, [r, host] {
        r->listener.OnStatus("Connecting to " + host.ToString(), kStatusDialling);
        r->node->servent().ConnectTo(host);
    });
    return true;
}

bool EngineService::DisconnectNode(PeerId id) {
    return Ask<bool>(false, [id](Running& r) {
        for (const auto& peer : r.node->servent().Peers()) {
            if (peer.id == id) {
                r.node->servent().Disconnect(id);
                return true;
            }
        }
        return false;
    });
}

bool EngineService::StartSearch(std::uint32_t search, std::string keywords, std::string type,
                                std::vector<std::string> sha1s) {
    if (!running_)
        return false;
    Running* r = running_.get();
    asio::post(r->io, [r, search, keywords = std::move(keywords), type = std::move(type),
                       sha1s = std::move(sha1s)]() mutable {
        const std::string shown = sha1s.empty() ? keywords : "urn:sha1:" + sha1s.front();
        Guid guid = r->node->servent().StartSearch(std::move(keywords), std::move(sha1s));
        r->queries[guid] = {search, shown, std::move(type)};
    });
    return true;
}

bool EngineService::Browse(std::uint32_t search, const Endpoint& host) {
    if (!running_)
        return false;
    Running* r = running_.get();
    asio::post(r->io, [r, search, host] {
        const int round = ++r->browse_rounds;
        r->browses[search] = round;
        BrowseClient::Start(
            r->io, host,
            [r, search, host, round](const std::vector<QueryHit>& hits, const std::string& error) {
                auto active = r->browses.find(search);
                if (active == r->browses.end() || active->second != round)
                    return;
                for (const auto& hit : hits) {
                    r->listener.OnSearchResult(
                        search, SearchResultText(ResultHostOf(hit, host.ToString(), "BrowseHost"),
                                                 ResultFilesOf(hit)));
                }
                if (!error.empty() && hits.empty()) {
                    r->listener.OnStatus("Browsing " + host.ToString() + " failed: " + error,
                                         kStatusBrowseFailed);
                }
            });
    });
    return true;
}

void EngineService::StopSearch(std::uint32_t search) {
    if (!running_)
        return;
    Running* r = running_.get();
    asio::post(r->io, [r, search] {
        // Our ultrapeer stops widening the query once it hears we are done with it.
        std::erase_if(r->queries, [r, search](const auto& entry) {
            if (entry.second.search != search)
                return false;
            r->node->servent().StopSearch(entry.first);
            return true;
        });
        r->browses.erase(search);
    });
}

std::string EngineService::UploadsText() const {
    const auto list = uploads_.List();
    return UploadInfoText(list);
}

} // namespace corvid::engine
