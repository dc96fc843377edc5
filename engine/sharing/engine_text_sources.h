// What the servent knows, turned into the records the engine's texts are written from.
#pragma once

#include "engine/core/descriptor.h"
#include "engine/core/servent.h"
#include "engine/sharing/engine_texts.h"

#include <string>
#include <string_view>
#include <vector>

namespace corvid::gnutella {

// One hit message: the answering host (searched with keyword and type) and its files.
ResultHost ResultHostOf(const QueryHit& hit, std::string keyword, std::string type);
std::vector<ResultFile> ResultFilesOf(const QueryHit& hit);

// A connected node; the ticks are the tick counter's values when the link opened and when it last
// carried something.
HostRecord HostRecordOf(const PeerInfo& peer, std::uint32_t handshakeTick,
                        std::uint32_t updateTick);

// The status lines the console keeps of the network: a link that opened ("Connected to
// 1.2.3.4:6346 (Ultrapeer, Vendor/1.0)") and one that closed, with why ("Link to 1.2.3.4:6346
// closed: Query flood"). What the peer said of itself (its agent, its Bye text) is cut short and
// cleaned like every peer string.
std::string LinkOpenedText(const PeerInfo& peer);
std::string LinkClosedText(const PeerInfo& peer, std::string_view reason);

} // namespace corvid::gnutella
