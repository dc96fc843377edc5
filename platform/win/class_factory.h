#pragma once

// The class factory of every creatable class, in-process or local server: one table of
// {CLSID, creation function} per binary.

#include <unknwn.h>
#include <windows.h>

#include <span>

namespace corvid::win {

using CreateFunction = HRESULT (*)(REFIID iid, void** object);

struct CreatableClass {
    const CLSID* clsid;
    CreateFunction create;
};

// A new factory for one class (DllGetClassObject's work, or what a local server registers).
HRESULT MakeClassFactory(CreateFunction create, REFIID iid, void** object);

// The factory a local server registers with CoRegisterClassObject: it holds no module lock, so
// the server ends when the last object it made is released, not never.
HRESULT MakeLocalServerClassFactory(CreateFunction create, REFIID iid, void** object);

// Finds the class in the table and hands out its factory.
HRESULT GetClassFactory(std::span<const CreatableClass> classes, REFCLSID clsid, REFIID iid,
                        void** object);

} // namespace corvid::win
