#pragma once

// What the network views' tests against the real engine and file manager share: the loopback
// network of the ctest fixture (loopback_fixture.sh), the engine's in-process server registered
// and made as the plug-in makes it, and a search by a native peer of that network.

#include "engine_h.h"
#include "platform/win/handles.h"

#include <string>
#include <vector>

namespace corvid::testing {

struct LoopbackNetwork {
    std::vector<std::string> ultrapeers; // "127.0.0.1:port"
    std::string requests;                // the peer's request folder, as a Windows path
    bool loaded = false;
};

// The fixture named by CORVID_TEST_LOOPBACK (its folder, a Unix path).
LoopbackNetwork LoadLoopbackNetwork();

// Registers CorvidEngine.dll (beside this program) with regsvr32; true on success.
bool RegisterEngineServer();
// CoCreateInstance, OleRun, QueryInterface: how the plug-in makes the engine and file manager.
HRESULT CreateLikeThePlugIn(REFCLSID clsid, REFIID iid, void** object);

// The engine the plug-in would make, joined to the loopback network as a leaf: NetWork.ini names
// the network's ultrapeers as the hosts it dials at start. Null on failure.
win::ComPtr<IGnutellaEngine> StartLoopbackEngine(const LoopbackNetwork& network);

// The file names a native peer's search for the keywords finds on the network (waits for the
// peer's answer, at most a minute). Empty on failure too.
std::vector<std::string> PeerSearch(const LoopbackNetwork& network, const std::string& keywords);

} // namespace corvid::testing
