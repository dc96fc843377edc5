#include "server/module.h"

namespace corvid::server {
namespace {

HMODULE g_module = nullptr;
volatile LONG g_locks = 0;

} // namespace

HMODULE ModuleHandle() {
    return g_module;
}

std::wstring ModulePath() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        DWORD length = ::GetModuleFileNameW(g_module, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            return {};
        }
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

void LockModule() {
    ::InterlockedIncrement(&g_locks);
}
void UnlockModule() {
    ::InterlockedDecrement(&g_locks);
}
long ModuleLockCount() {
    return g_locks;
}

} // namespace corvid::server

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        corvid::server::g_module = instance;
        ::DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}
