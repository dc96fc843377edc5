#include "tools/corvid_node/get_command.h"

#include <asio.hpp>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>

#include "download/core/downloader.h"
#include "engine/core/node.h"
#include "library/sha1.h"
#include "transfer/magnet_link.h"
#include "transfer/safe_file_name.h"

namespace corvid::node_tool {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

// How long get looks on the network for a first source before it gives up.
constexpr auto kSourceSearchTime = 30s;
// Progress lines come no closer together than this.
constexpr auto kProgressEvery = 2s;

struct Request {
    std::string sha1;      // base32, upper case
    std::string file_name; // already safe to create in the output folder
    std::optional<std::uint64_t> length;
    std::vector<std::string> urls;
};

std::string N2rUrl(const gnutella::Endpoint& host, const std::string& sha1) {
    return "http://" + host.ToString() + "/uri-res/N2R?urn:sha1:" + sha1;
}

bool IsMagnet(std::string_view text) {
    constexpr std::string_view kScheme = "magnet:";
    if (text.size() < kScheme.size())
        return false;
    for (std::size_t i = 0; i < kScheme.size(); ++i)
        if ((text[i] | 0x20) != kScheme[i])
            return false;
    return true;
}

std::optional<Request> MakeRequest(const Arguments& args, std::string* error) {
    Request request;
    if (IsMagnet(args.get_target)) {
        auto link = transfer::ParseMagnetLink(args.get_target, error);
        if (!link)
            return std::nullopt;
        request.sha1 = link->sha1;
        request.file_name = transfer::MagnetFileName(*link);
        request.length = link->length;
        request.urls = link->sources;
    } else {
        request.sha1 = library::NormalizeSha1Text(args.get_target);
        if (request.sha1.empty()) {
            *error = "get wants a magnet link or a SHA1 of 32 base32 characters";
            return std::nullopt;
        }
        request.file_name = transfer::SafeFileName(request.sha1);
    }
    for (const auto& host : args.sources)
        request.urls.push_back(N2rUrl(host, request.sha1));
    if (request.urls.empty() && !args.search_network) {
        *error = "no source: give --source HOST:PORT, a magnet link with xs=, or "
                 "--search-network HOST:PORT";
        return std::nullopt;
    }
    return request;
}

std::optional<std::string> HashFile(const fs::path& path, std::uint64_t* size) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    library::Sha1 hasher;
    std::vector<char> buffer(1 << 20);
    *size = 0;
    while (in) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const auto got = in.gcount();
        if (got <= 0)
            break;
        hasher.Update(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
        *size += static_cast<std::uint64_t>(got);
    }
    if (in.bad())
        return std::nullopt;
    return library::ToBase32(hasher.Finish());
}

double MegabytesPerSecond(std::uint64_t bytes, Clock::duration elapsed) {
    const double seconds = std::chrono::duration<double>(elapsed).count();
    return seconds > 0 ? static_cast<double>(bytes) / 1e6 / seconds : 0;
}

// The download, and the leaf that looks for more sources while it runs, on one thread.
class Getter : public gnutella::ServentObserver {
public:
    Getter(const Arguments& args, Request request, const fs::path& target,
           download::DownloadOptions options)
        : args_(args), request_(std::move(request)), download_(io_, target.string(), options),
          deadline_(io_), source_wait_(io_), signals_(io_, SIGINT, SIGTERM) {}

    // True when the downloader reports the file complete.
    bool Run() {
        for (const auto& url : request_.urls)
            AddSource(url, false);
        if (args_.search_network)
            StartSearching();
        if (!sources_.empty()) {
            StartDownload();
        } else {
            source_wait_.expires_after(kSourceSearchTime);
            source_wait_.async_wait([this](const asio::error_code& ec) {
                if (!ec && !started_) {
                    failure_ = "no source found on the network";
                    Finish();
                }
            });
        }
        if (args_.timeout_seconds) {
            deadline_.expires_after(std::chrono::seconds(*args_.timeout_seconds));
            deadline_.async_wait([this](const asio::error_code& ec) {
                if (!ec)
                    Abandon("gave up after " + std::to_string(*args_.timeout_seconds) + " s");
            });
        }
        signals_.async_wait([this](const asio::error_code& ec, int) {
            if (!ec)
                Abandon("interrupted; the partial file is kept for the next run");
        });
        io_.run();
        return succeeded_;
    }

    const std::string& failure() const { return failure_; }
    Clock::duration elapsed() const { return finished_at_ - started_at_; }

private:
    void AddSource(const std::string& url, bool from_network) {
        if (!known_.insert(url).second)
            return;
        const auto id = download_.addSource(url);
        if (id == 0) {
            std::printf("refused source %s\n", url.c_str());
            return;
        }
        sources_[id] = url;
        if (from_network)
            std::printf("found source %s\n", url.c_str());
        if (from_network && !started_)
            StartDownload();
    }

    void StartDownload() {
        started_ = true;
        source_wait_.cancel();
        started_at_ = last_print_ = Clock::now();
        std::printf("downloading %s from %zu source%s\n", request_.file_name.c_str(),
                    sources_.size(), sources_.size() == 1 ? "" : "s");
        std::fflush(stdout);
        download_.start([this](const download::DownloadEvent& event) { OnEvent(event); });
    }

    void StartSearching() {
        gnutella::NodeOptions options;
        options.servent.network.node_mode = gnutella::NodeMode::LeafPeer;
        options.bind_address = asio::ip::address_v4(args_.listen.ip);
        options.port = args_.listen.port;
        // A public network may not point us at our own machine or LAN; a test network must.
        options.servent.allow_private_addresses = !args_.search_network->IsRoutable();
        std::random_device random;
        node_ = std::make_unique<gnutella::Node>(io_, options, nothing_shared_,
                                                 (std::uint64_t{random()} << 32) | random());
        if (auto ec = node_->Start()) {
            std::fprintf(stderr, "corvid-node: get: cannot search the network: %s\n",
                         ec.message().c_str());
            node_.reset();
            return;
        }
        node_->servent().SetObserver(this);
        node_->servent().ConnectTo(*args_.search_network);
    }

    void OnPeerOpened(const gnutella::PeerInfo& peer) override {
        if (searched_ || peer.kind != gnutella::PeerKind::Ultrapeer)
            return;
        searched_ = true;
        std::printf("searching %s for urn:sha1:%s\n", peer.remote.ToString().c_str(),
                    request_.sha1.c_str());
        node_->servent().StartSearch("", {request_.sha1});
    }

    void OnSearchHit(const gnutella::Guid&, const gnutella::QueryHit& hit) override {
        if (ended_ || hit.flags.firewalled || hit.port == 0)
            return;
        const gnutella::Endpoint host = hit.endpoint();
        if (!host.IsRoutable() && args_.search_network->IsRoutable())
            return;
        for (const auto& result : hit.results)
            if (result.sha1 == request_.sha1)
                AddSource(N2rUrl(host, request_.sha1), true);
    }

    void OnEvent(const download::DownloadEvent& event) {
        using download::EventCode;
        switch (event.code) {
        case EventCode::FileLength: {
            const std::uint64_t length =
                (std::uint64_t{event.words[1]} << 32) | std::uint64_t{event.words[0]};
            if (request_.length && *request_.length != length)
                std::printf("the sources say %" PRIu64 " bytes, the link said %" PRIu64 "\n",
                            length, *request_.length);
            break;
        }
        case EventCode::Progress: {
            const auto now = Clock::now();
            if (now - last_print_ < kProgressEvery)
                break;
            last_print_ = now;
            std::printf("progress %d%% %.1f MB/s %d of %d sources receiving\n",
                        download_.info(download::InfoCode::Percent),
                        download_.info(download::InfoCode::Speed) / 1e6,
                        download_.info(download::InfoCode::SourcesReceiving),
                        download_.info(download::InfoCode::SourcesTotal));
            std::fflush(stdout);
            break;
        }
        case EventCode::InvalidSource:
            std::printf("dropped source %s\n", sources_[event.sourceId].c_str());
            break;
        case EventCode::HttpError:
            if (event.number == download::kErrorSha1Mismatch)
                failure_ = "the file did not hash to its SHA1 and was thrown away";
            else if (event.number == download::kErrorWriteFailed)
                failure_ = "the file could not be written";
            break;
        case EventCode::NoValidSource:
            if (failure_.empty())
                failure_ = "no source could deliver the file";
            break;
        case EventCode::Succeeded:
            succeeded_ = true;
            finished_at_ = Clock::now();
            break;
        case EventCode::Stopped:
            Finish();
            break;
        default:
            break;
        }
    }

    // Ends the transfer but keeps what has arrived, for a later run to go on from.
    void Abandon(std::string why) {
        if (failure_.empty())
            failure_ = std::move(why);
        if (started_)
            download_.close(); // its Stopped event finishes the run
        else
            Finish();
    }

    void Finish() {
        if (ended_)
            return;
        ended_ = true;
        if (node_)
            node_->Stop();
        deadline_.cancel();
        source_wait_.cancel();
        signals_.cancel();
        io_.stop();
    }

    const Arguments& args_;
    Request request_;
    asio::io_context io_;
    download::Download download_;
    gnutella::InMemoryFileIndex nothing_shared_;
    std::unique_ptr<gnutella::Node> node_;
    asio::steady_timer deadline_;
    asio::steady_timer source_wait_;
    asio::signal_set signals_;
    std::set<std::string> known_;
    std::map<std::uint32_t, std::string> sources_;
    bool started_ = false;
    bool searched_ = false;
    bool succeeded_ = false;
    bool ended_ = false;
    std::string failure_;
    Clock::time_point started_at_;
    Clock::time_point finished_at_;
    Clock::time_point last_print_;
};

} // namespace

int RunGet(const Arguments& args) {
    std::string error;
    auto request = MakeRequest(args, &error);
    if (!request) {
        std::fprintf(stderr, "corvid-node: get: %s\n", error.c_str());
        return 2;
    }
    const fs::path folder(args.out_dir);
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (!fs::is_directory(folder, ec)) {
        std::fprintf(stderr, "corvid-node: get: cannot use %s as the output folder\n",
                     args.out_dir.c_str());
        return 2;
    }
    // The partial file waits beside the target as NAME.part, so an interrupted run can be
    // resumed and the target name only ever holds a complete, checked file.
    const auto name =
        transfer::UniquePath("", request->file_name, [&](const std::string& candidate) {
            std::error_code ignored;
            return fs::exists(folder / candidate, ignored);
        });
    const fs::path target = folder / name;
    download::DownloadOptions options;
    options.temporaryFolder = folder.string();

    Getter getter(args, *request, target, options);
    if (!getter.Run()) {
        std::fprintf(stderr, "corvid-node: get: %s\n",
                     getter.failure().empty() ? "the download did not finish"
                                              : getter.failure().c_str());
        return 1;
    }
    std::uint64_t size = 0;
    const auto sha1 = HashFile(target, &size);
    if (!sha1 || *sha1 != request->sha1) {
        fs::remove(target, ec);
        std::fprintf(stderr, "corvid-node: get: %s does not hash to urn:sha1:%s; removed\n",
                     target.string().c_str(), request->sha1.c_str());
        return 1;
    }
    std::printf("done %s %" PRIu64 " bytes in %.2f s (%.1f MB/s), SHA1 verified\n",
                target.string().c_str(), size,
                std::chrono::duration<double>(getter.elapsed()).count(),
                MegabytesPerSecond(size, getter.elapsed()));
    return 0;
}

} // namespace corvid::node_tool
