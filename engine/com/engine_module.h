#pragma once

// The classes that CorvidEngine.dll and corvid-engine.exe both serve (the engine and the file
// manager, over one index per process), and their registration.

#include "platform/win/class_factory.h"

#include <span>

namespace corvid::engine {

std::span<const win::CreatableClass> EngineClasses();

enum class ServerKind { InProcess, LocalServer };

// Registers both classes for this binary, with the type library embedded in it.
HRESULT RegisterEngineServer(ServerKind kind);
// Removes this binary's server keys; the classes, their ProgIDs and the type library go once no
// server of either kind is left.
HRESULT UnregisterEngineServer(ServerKind kind);

} // namespace corvid::engine
