#pragma once

// Where the engine's settings come from on Windows: "Config\NetWork.ini" in the per-user data
// folder, the cache list "caches.txt" beside the engine's binary, the variable
// CORVID_ENGINE_BOOTSTRAP (test networks and demos: see ApplyBootstrapVariable) and the upload
// limit "maxULSpeedLimit" under HKCU\Software\Tarvo Explorer\HttpServer.

#include "engine/service/engine_service.h"

namespace corvid::engine {

EngineOptions ReadEngineOptions();
// Bytes per second; 0 when the value is absent, unreadable or 0.
std::uint64_t ReadUploadLimit();

} // namespace corvid::engine
