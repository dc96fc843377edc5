#pragma once

// The state of the binary (DLL or EXE) this code is linked into: its handle, its path, and the
// lock count that decides DllCanUnloadNow (or, for a local server, when the process may end).
// Every COM object holds one module lock for its lifetime, as does IClassFactory::LockServer.

#include <windows.h>

#include <string>

namespace corvid::win {

// The binary that contains this code, found by address: no DllMain is needed.
HMODULE ModuleHandle();
std::wstring ModulePath();

void LockModule();
void UnlockModule();
long ModuleLockCount();

// A local server asks to hear when the last lock goes, to leave its message loop. Called on the
// thread that releases the last lock.
void SetLastUnlockHandler(void (*handler)());

// Held by each object of ours for as long as it lives.
class ModuleLock {
public:
    ModuleLock() { LockModule(); }
    ModuleLock(const ModuleLock&) = delete;
    ModuleLock& operator=(const ModuleLock&) = delete;
    ~ModuleLock() { UnlockModule(); }
};

} // namespace corvid::win
