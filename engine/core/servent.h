// The servent's whole protocol brain, free of I/O: connections come in as ids and bytes, and
// everything it wants done (send these bytes, close that link, dial that host) goes out through
// ServentTransport. Time comes from the clock it is given.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "engine/core/descriptor.h"
#include "engine/core/handshake.h"
#include "engine/core/host_cache.h"
#include "engine/core/network_settings.h"
#include "engine/core/qrp.h"
#include "engine/core/resting_addresses.h"
#include "engine/core/route_table.h"
#include "engine/core/shared_file_index.h"
#include "engine/core/vendor.h"
#include "engine/core/zstream.h"

namespace corvid::gnutella {

struct ServentConfig {
    NetworkSettings network;
    std::string user_agent = "Corvid/0.1";
    Endpoint listen; // the address we advertise; an ip of 0 is learnt from peers' Remote-IP
    bool firewalled = false;
    bool advertise_browse_host = false;
    // Test networks live on loopback: let private addresses into the host and pong caches.
    bool allow_private_addresses = false;
    bool compress_links = true;
    std::uint8_t query_ttl = 3;
    std::uint8_t max_ttl = 4; // what we accept from others (X-Max-TTL)
    std::size_t max_results_per_query = 64;
    std::uint32_t speed_kbps = 1000;
    int ping_burst = 10;
    std::chrono::milliseconds ping_refill{1000};
    int leaf_query_burst = 20;
    std::chrono::milliseconds leaf_query_refill{1000};
    // Queries a leaf may send over its rate before it is dropped: a client re-querying every
    // open search at start-up overshoots for a moment; a flood keeps overshooting.
    int leaf_flood_burst = 100;
    std::chrono::milliseconds leaf_flood_refill{1000};
    // Queries an ultrapeer neighbour may relay, and the most we send one ourselves: whatever
    // our other neighbours and leaves give us to pass on, a neighbour that holds links to the
    // same budget must never drop us for floods we only relay. A busy ultrapeer passes on its
    // leaves' queries (each leaf is held to one a second) and those of its thirty-odd neighbours,
    // and dynamic querying sends each query down one link at a time: tens a second on a link is
    // usual, a few hundred the most a real one reaches. 500 a second with a burst of 1000 (a
    // neighbour whose leaves all re-query after it reconnects) leaves it room to spare; over that,
    // queries are discarded.
    int ultrapeer_query_burst = 1000;
    std::chrono::milliseconds ultrapeer_query_refill{2};
    // Queries over that budget a neighbour may send before it goes: the allowance earns back as
    // fast as the budget, so a link is dropped only when it keeps to more than twice the budget,
    // and then only after seconds of it (5000 more at 2000 a second: five seconds).
    int ultrapeer_flood_burst = 5000;
    std::chrono::milliseconds ultrapeer_flood_refill{2};
    // Pushes one link may send at once. A downloader asks each firewalled source once, and an
    // ultrapeer neighbour relays its leaves' pushes, so bursts of a hundred and a steady twenty
    // a second are real; thousands a second are not.
    int push_burst = 200;
    std::chrono::milliseconds push_refill{50};
    // Messages with a broken GGEP block a link may send. Neighbours relay other servents'
    // queries, so one buggy servent somewhere shows up now and then; a link that sends more
    // than one a second for half a minute is the one breaking them.
    int broken_ggep_burst = 30;
    std::chrono::milliseconds broken_ggep_refill{1000};
    std::chrono::seconds handshake_timeout{15};
    std::chrono::seconds ping_interval{30};
    // A changed library reaches our ultrapeers in a fresh routing table (and, as an ultrapeer, our
    // merged table reaches our neighbours) once it has been still for qrp_settle, so a folder
    // being walked or hashed sends one table, not one per file. Never two tables to a peer within
    // qrp_min_interval: a table is tens of kilobytes before compression, and one every five
    // seconds keeps a new folder findable within seconds at a cost next to nothing beside the
    // query traffic. While the library keeps changing, a table still goes every
    // qrp_resend_interval.
    std::chrono::seconds qrp_settle{2};
    std::chrono::seconds qrp_min_interval{5};
    std::chrono::seconds qrp_resend_interval{60};
    std::chrono::minutes refused_host_rest{10};
    // How long an address we dropped for abuse rests, and how many such addresses we remember.
    RestPolicy abuse_rest;
    std::chrono::minutes route_lifetime{5};
    std::size_t route_table_entries = 100000;
    std::size_t pong_cache_size = 32;
    int dials_per_tick = 4;
    // Dynamic querying, for our leaves' queries and our own as an ultrapeer: a probe over a few
    // links at TTL 1, then one link at a time with a TTL chosen from the results so far, until
    // the target number of results has come back.
    std::size_t leaf_query_target = 50;
    std::size_t own_query_target = 150;
    int probe_links = 3;
    std::chrono::milliseconds query_step_per_hop{2400};
    std::chrono::seconds query_lifetime{180};
};

class ServentTransport {
public:
    virtual ~ServentTransport() = default;
    virtual void Send(PeerId peer, Bytes bytes) = 0;
    // Close once everything sent so far has gone out. The servent has already forgotten the peer.
    virtual void Close(PeerId peer) = 0;
    // Open a connection; answer with Servent::Connected or Servent::DialFailed.
    virtual void Dial(const Endpoint& host) = 0;
    // Connect to the host and hang up at once: a peer asked to learn whether it can be reached.
    virtual void ConnectBack(const Endpoint& /*host*/) {}
    // The handshake with this peer is through: the link is open.
    virtual void HandshakeDone(PeerId /*peer*/) {}
};

enum class PeerKind { Handshaking, Ultrapeer, Leaf };

struct PeerInfo {
    PeerId id = 0;
    Endpoint remote;
    Endpoint listen; // the peer's own listening address when it told us
    bool outgoing = false;
    PeerKind kind = PeerKind::Handshaking;
    std::string user_agent;
    bool qrp_table_complete = false; // a leaf's table has fully arrived
    std::uint64_t queries_received = 0;
    std::uint64_t queries_sent = 0;
    bool compressed_in = false;
    bool compressed_out = false;
};

struct ServentStats {
    std::atomic<std::uint64_t> queries_handled{0};   // unique queries taken in from peers
    std::atomic<std::uint64_t> queries_forwarded{0}; // copies sent on to other peers
    std::atomic<std::uint64_t> queries_blocked_by_qrp{0};
    std::atomic<std::uint64_t> duplicates_dropped{0};
    std::atomic<std::uint64_t> queries_dropped_for_rate{0};
    // Copies not sent to keep a link under the query budget the peer holds us to.
    std::atomic<std::uint64_t> queries_held_back{0};
    std::atomic<std::uint64_t> hits_routed{0};
    std::atomic<std::uint64_t> hits_dropped_unroutable{0};
    std::atomic<std::uint64_t> peers_dropped_for_abuse{0};
    // Handshakes refused because the address is resting after a drop for abuse.
    std::atomic<std::uint64_t> handshakes_refused_resting{0};
    std::atomic<std::uint64_t> dynamic_queries{0};
    std::atomic<std::uint64_t> dynamic_steps{0}; // links a dynamic query was widened to
};

class ServentObserver {
public:
    virtual ~ServentObserver() = default;
    virtual void OnSearchHit(const Guid& /*search*/, const QueryHit& /*hit*/) {}
    virtual void OnPushRequest(const Push& /*push*/) {}
    virtual void OnPeerOpened(const PeerInfo& /*peer*/) {}
    virtual void OnPeerClosed(PeerId /*peer*/) {}
    // Every link that goes, just before OnPeerClosed, with why: the reason we gave when we
    // dropped it, "Bye ..." when the peer said goodbye, "Connection lost" when the link broke.
    virtual void OnPeerDropped(const PeerInfo& /*peer*/, std::string_view /*reason*/) {}
    virtual void OnQrpTableComplete(PeerId /*peer*/) {}
};

class Servent {
public:
    Servent(ServentConfig config, const SharedFileIndex& index, ServentTransport& transport,
            std::function<Clock::time_point()> clock, std::uint64_t seed);
    ~Servent();
    Servent(const Servent&) = delete;
    Servent& operator=(const Servent&) = delete;

    void SetObserver(ServentObserver* observer) { observer_ = observer; }

    // The transport names each connection with an id of its own choosing (never kLocalPeer,
    // never reused while the servent knows it).
    // A connection someone made to us whose first bytes said "GNUTELLA".
    void Accepted(PeerId id, const Endpoint& remote);
    // A connection we dialled is up; we speak first.
    void Connected(PeerId id, const Endpoint& remote);
    void DialFailed(const Endpoint& remote);
    void Received(PeerId peer, ByteView bytes);
    // The link broke or the peer hung up; the transport may say why it gave up on a link.
    void Lost(PeerId peer, std::string_view reason = "Connection lost");
    // Upkeep: handshake timeouts, dialling, pings, routing-table updates. Call about once a second.
    void Tick();
    // Sends a Bye to every open link and closes all of them.
    void Shutdown();

    // Dial this host now, whatever the connection counts say (a user's "connect to" request).
    void ConnectTo(const Endpoint& host);
    // Says Bye to one peer and closes its link.
    void Disconnect(PeerId peer);
    Guid StartSearch(std::string text, std::vector<std::string> sha1s = {});
    // The user closed the search: our ultrapeer hears "stop" when it asks how it is going.
    void StopSearch(const Guid& search);
    // The user changed how many links to keep (the counts of `counts`; its port and mode are
    // the node's, fixed while it runs). Raised counts are dialled for from the next tick;
    // lowered ones close the newest links beyond them now, so the longest-lived links stay.
    void SetLinkCounts(const NetworkSettings& counts);
    // Sends a Push towards the servent that offered a file, by its servent GUID.
    bool SendPush(const Guid& servent, std::uint32_t file_index);

    bool IsUltrapeer() const { return ultrapeer_; }
    const Guid& servent_guid() const { return servent_guid_; }
    Endpoint listen() const { return config_.listen; }
    void SetListen(const Endpoint& listen) { config_.listen = listen; }
    std::vector<PeerInfo> Peers() const;
    HostCache& hosts() { return hosts_; }
    // Too few links and nobody left in the host cache to dial: time to ask the caches.
    bool WantsHosts() const;
    // The host cache as kept across runs, with the ultrapeers we are linked to first.
    std::string HostCacheText() const;
    // Ultrapeers worth telling others about: those we are linked to, then the host cache.
    std::vector<Endpoint> TryHosts() const;
    Pong OwnPong() const;
    const ServentStats& stats() const { return stats_; }

private:
    struct Peer;

    Peer& NewPeer(PeerId id, const Endpoint& remote, bool outgoing);
    void Consume(Peer& peer, ByteView bytes);
    void ReceiveHandshake(Peer& peer, ByteView bytes);
    void OnConnectBlock(Peer& peer, const HeaderBlock& block);
    void OnResponseBlock(Peer& peer, const HeaderBlock& block);
    void OnFinalBlock(Peer& peer, const HeaderBlock& block);
    void Open(Peer& peer);
    void ReceiveBinary(Peer& peer, ByteView bytes);
    void Dispatch(Peer& peer, Message&& message);
    void OnPing(Peer& peer, Message& message);
    void OnPong(Peer& peer, Message& message);
    void OnQuery(Peer& peer, Message& message);
    void OnQueryHit(Peer& peer, Message& message);
    void OnPush(Peer& peer, Message& message);
    void OnRouteTable(Peer& peer, Message& message);
    void OnVendorMessage(Peer& peer, Message& message);
    void ReadCapabilities(Peer& peer, const HeaderBlock& block);

    struct DynamicQuery;
    void StartDynamicQuery(const Message& message, const Query& query, PeerId origin,
                           std::size_t target);
    // One step of each running dynamic query that is due; finished ones are forgotten.
    void AdvanceDynamicQueries(Clock::time_point now);
    bool AdvanceDynamicQuery(DynamicQuery& dq, Clock::time_point now);
    void AnswerQuery(Peer& peer, const Message& message, const Query& query);
    // To the leaves whose tables match, and unless leaves_only to the other ultrapeers.
    void RouteQuery(const Message& message, const Query& query, PeerId from, bool leaves_only);
    void SendMessage(Peer& peer, const Message& message);
    void SendRaw(Peer& peer, std::string_view text);
    void SendQrp(Peer& peer);
    // Our files' and our leaves' tables as one, for ultrapeer neighbours' last hop.
    void SendMergedQrp(Peer& peer);
    std::uint64_t MergedTableStamp() const;
    // Notes when our own and our merged tables' contents were last seen to change.
    void NoteTableChanges(Clock::time_point now);
    // Whether a peer sent the table stamped `sent` at `sent_at` is owed the one stamped `current`,
    // which changed last at `changed_at`.
    bool TableDue(std::uint64_t sent, std::optional<Clock::time_point> sent_at,
                  std::uint64_t current, Clock::time_point changed_at, Clock::time_point now) const;
    bool TolerateBrokenGgep(Peer& peer);
    void Drop(Peer& peer, std::uint16_t code, std::string_view reason);
    // A drop for abuse: counted, and the peer's address rests.
    void DropForAbuse(Peer& peer, std::uint16_t code, std::string_view reason);
    bool Resting(const Endpoint& host);
    // Whether one more query may go to this peer now: a leaf holds its ultrapeer to the same
    // budget as ultrapeers hold each other, so no link gets more than that from us.
    bool MaySendQuery(Peer& target);
    // Sends what this event produced and forgets the peers it closed; every public entry ends here.
    void Settle();
    void FlushPeer(Peer& peer);
    template <typename F> void Notify(F&& call);
    void Dial(const Endpoint& host);
    // We hold a link to the servent listening there, or are dialling it.
    bool Linked(const Endpoint& host) const;
    // Another link to the same servent as this one, by its listening address.
    Peer* Twin(const Peer& peer);
    // Of two links to one servent, which goes; both ends choose alike.
    bool KeepsTwin(const Peer& peer, const Peer& twin) const;
    // Of two links to one servent, the one KeepsTwin does not keep goes now; false when that is
    // this one (it has been answered 503 and dropped).
    bool KeepOneOfTwins(Peer& peer);
    void LearnAddress(const HeaderBlock& block);

    std::vector<std::pair<std::string, std::string>> CommonHeaders(const Peer& peer) const;
    PeerInfo Describe(const Peer& peer) const;
    int CountPeers(PeerKind kind) const;
    // Closes the newest open links of a kind beyond `keep`.
    void TrimLinks(PeerKind kind, int keep, std::string_view reason);
    int CountPendingUltrapeers() const;
    Peer* Find(PeerId id);

    ServentConfig config_;
    const SharedFileIndex& index_;
    ServentTransport& transport_;
    std::function<Clock::time_point()> clock_;
    ServentObserver* observer_ = nullptr;
    std::mt19937_64 rng_;
    Guid servent_guid_;
    bool ultrapeer_;
    std::map<PeerId, std::unique_ptr<Peer>> peers_;
    std::vector<PeerId> doomed_;
    std::vector<PeerId> dirty_;
    std::set<Endpoint> dialing_;
    RouteTable ping_routes_;
    RouteTable query_routes_;
    RouteTable push_routes_;
    HostCache hosts_;
    RestingAddresses resting_;
    std::deque<Pong> pong_cache_;
    std::map<Guid, DynamicQuery> dynamic_;
    std::uint64_t leaf_tables_changed_ = 0;
    std::uint64_t own_table_seen_ = 0;
    Clock::time_point own_table_changed_{};
    std::uint64_t merged_table_seen_ = 0;
    Clock::time_point merged_table_changed_{};
    // Results of our own searches, for our ultrapeer's status requests; stopped ones say so.
    struct OwnSearch {
        std::size_t results = 0;
        bool stopped = false;
    };
    std::map<Guid, OwnSearch> searches_;
    std::deque<Guid> search_order_;
    std::optional<Clock::time_point> last_ping_;
    ServentStats stats_;
    int notifying_ = 0;
};

} // namespace corvid::gnutella
