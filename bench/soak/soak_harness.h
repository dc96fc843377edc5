// A hostile neighbourhood around one ultrapeer on loopback: well-behaved servents (real Nodes that
// share files, and searchers that count the hits coming back) and raw clients that each abuse the
// ultrapeer one way until it drops them, then come back for more. The ultrapeer runs elsewhere
// (another thread or process); this side only needs its address.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/wire.h"

namespace corvid::soak {

enum class Hostile {
    PushStorm,           // a leaf sending thousands of pushes a second
    BrokenGgep,          // an ultrapeer whose queries all carry a broken GGEP block
    LeafQueryFlood,      // a leaf sending a thousand queries a second
    PingFlood,           // a ping every millisecond
    HugeQrpTable,        // a leaf whose routing table claims 2^31 slots
    MaxSizeMessages,     // 64 KiB queries and pings
    Slowloris,           // a handshake dribbled a byte a second, never finished
    UltrapeerQueryFlood, // an ultrapeer neighbour relaying ten thousand queries a second
};
inline constexpr int kHostileKinds = 8;
const char* HostileName(Hostile kind);
// The reason the ultrapeer is expected to give when it drops this kind.
const char* ExpectedReason(Hostile kind);
// What a session is told when it comes back while its address rests after a drop for abuse.
inline constexpr char kRestingReason[] = "Resting after abuse";
inline constexpr char kRestingAnswer[] = "GNUTELLA/0.6 503 Resting after abuse";

struct SoakOptions {
    gnutella::Endpoint target;
    int sharing_leaves = 50;
    int searching_leaves = 40;
    int searching_ultrapeers = 10;
    int hostile = 100; // spread over the kinds in turn
    std::chrono::seconds duration{60};
    // Good searchers start once the sharers' tables have had time to arrive.
    std::chrono::seconds warm_up{3};
    std::chrono::milliseconds search_interval{3000};
    // A dropped hostile client comes back after this pause, unless the run ends within
    // hostile_margin: each session started must have time to be dropped.
    std::chrono::milliseconds hostile_pause{1000};
    std::chrono::seconds hostile_margin{20};
};

struct HostileSession {
    Hostile kind = Hostile::PushStorm;
    int client = 0;                    // sessions of one client come from one address
    gnutella::Endpoint local;          // the ultrapeer's view of the client's address
    bool accepted = false;             // the handshake went through (slowloris never asks)
    std::string answer;                // the first line of the ultrapeer's handshake answer
    std::optional<double> misbehaving; // seconds into the run when the abuse began
    std::optional<double> closed;      // seconds into the run when the ultrapeer hung up
    std::string reason;                // filled in by the caller from the ultrapeer's log
};

struct SoakResult {
    int good_connected = 0;                     // good servents whose link to the ultrapeer opened
    int good_links_lost = 0;                    // and that lost it before the end
    std::vector<std::string> good_loss_reasons; // as the good servents saw them go
    std::uint64_t searches = 0;
    std::uint64_t searches_answered = 0;
    std::uint64_t results = 0;
    std::vector<double> first_hit_seconds; // from each answered search to its first hit
    std::vector<HostileSession> hostile;
};

// Runs the neighbourhood for options.duration on the calling thread; every loop in it is bounded
// by that deadline and every socket it opened is closed when it returns.
SoakResult RunSoak(const SoakOptions& options);

} // namespace corvid::soak
