// corvid-engine.exe: the engine and the file manager in a process of their own, so that whatever
// a hostile peer manages against the engine cannot take the browser down with it. COM starts it
// with "-Embedding"; "/RegServer" and "/UnregServer" register and unregister it. It serves its
// classes on one apartment thread and ends when the last object it made is released.

#include "engine/com/engine_module.h"
#include "platform/win/handles.h"
#include "platform/win/module.h"

#include <shellapi.h>
#include <windows.h>

#include <string>
#include <vector>

namespace {

// A server started by hand, or whose client never came, does not linger.
constexpr UINT kIdleCheckMs = 60000;

DWORD g_mainThread = 0;

void QuitServer() {
    ::PostThreadMessageW(g_mainThread, WM_QUIT, 0, 0);
}

void CALLBACK IdleCheck(HWND, UINT, UINT_PTR, DWORD) {
    if (corvid::win::ModuleLockCount() == 0) {
        QuitServer();
    }
}

bool HasSwitch(const std::vector<std::wstring>& arguments, const wchar_t* name) {
    for (const auto& argument : arguments) {
        if (argument.size() > 1 && (argument[0] == L'/' || argument[0] == L'-') &&
            ::lstrcmpiW(argument.c_str() + 1, name) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
    using namespace corvid;
    std::vector<std::wstring> arguments;
    int count = 0;
    if (LPWSTR* list = ::CommandLineToArgvW(::GetCommandLineW(), &count)) {
        arguments.assign(list, list + count);
        ::LocalFree(list);
    }
    win::ComApartment apartment(COINIT_APARTMENTTHREADED);
    if (FAILED(apartment.result())) {
        return 1;
    }
    if (HasSwitch(arguments, L"RegServer")) {
        return FAILED(engine::RegisterEngineServer(engine::ServerKind::LocalServer)) ? 1 : 0;
    }
    if (HasSwitch(arguments, L"UnregServer")) {
        return FAILED(engine::UnregisterEngineServer(engine::ServerKind::LocalServer)) ? 1 : 0;
    }

    g_mainThread = ::GetCurrentThreadId();
    win::SetLastUnlockHandler(&QuitServer);
    std::vector<DWORD> cookies;
    for (const auto& entry : engine::EngineClasses()) {
        win::ComPtr<IUnknown> factory;
        DWORD cookie = 0;
        if (SUCCEEDED(
                win::MakeLocalServerClassFactory(entry.create, IID_IUnknown, factory.put_void())) &&
            SUCCEEDED(::CoRegisterClassObject(*entry.clsid, factory.get(), CLSCTX_LOCAL_SERVER,
                                              REGCLS_MULTIPLEUSE, &cookie))) {
            cookies.push_back(cookie);
        }
    }
    const UINT_PTR idle = ::SetTimer(nullptr, 0, kIdleCheckMs, &IdleCheck);
    MSG message;
    while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
    }
    ::KillTimer(nullptr, idle);
    for (DWORD cookie : cookies) {
        ::CoRevokeClassObject(cookie);
    }
    return 0;
}
