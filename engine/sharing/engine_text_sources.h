// What the servent knows, turned into the records the engine's texts are written from.
#pragma once

#include "engine/core/descriptor.h"
#include "engine/core/servent.h"
#include "engine/sharing/engine_texts.h"

#include <vector>

namespace corvid::gnutella {

// One hit message: the answering host (searched with keyword and type) and its files.
ResultHost ResultHostOf(const QueryHit& hit, std::string keyword, std::string type);
std::vector<ResultFile> ResultFilesOf(const QueryHit& hit);

// A connected node; the ticks are the tick counter's values when the link opened and when it last
// carried something.
HostRecord HostRecordOf(const PeerInfo& peer, std::uint32_t handshakeTick,
                        std::uint32_t updateTick);

} // namespace corvid::gnutella
