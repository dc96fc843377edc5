#include "platform/win/module.h"

namespace corvid::win {
namespace {

volatile LONG g_locks = 0;
void (*volatile g_lastUnlock)() = nullptr;

} // namespace

HMODULE ModuleHandle() {
    HMODULE module = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                             GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(&ModuleHandle), &module);
    return module;
}

std::wstring ModulePath() {
    HMODULE module = ModuleHandle();
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        DWORD length = ::GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
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
    if (::InterlockedDecrement(&g_locks) == 0) {
        if (auto handler = g_lastUnlock) {
            handler();
        }
    }
}

long ModuleLockCount() {
    return g_locks;
}

void SetLastUnlockHandler(void (*handler)()) {
    g_lastUnlock = handler;
}

} // namespace corvid::win
