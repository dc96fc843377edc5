#pragma once

// The DLL's module state: its handle and the lock count that decides DllCanUnloadNow. Every COM
// object of the server holds one module lock for its lifetime, as does IClassFactory::LockServer.

#include <windows.h>

#include <string>

namespace corvid::server {

HMODULE ModuleHandle();
std::wstring ModulePath();

void LockModule();
void UnlockModule();
long ModuleLockCount();

// Held by each object of ours for as long as it lives.
class ModuleLock {
public:
    ModuleLock() { LockModule(); }
    ModuleLock(const ModuleLock&) = delete;
    ModuleLock& operator=(const ModuleLock&) = delete;
    ~ModuleLock() { UnlockModule(); }
};

} // namespace corvid::server
