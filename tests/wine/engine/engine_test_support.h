#pragma once

// What the engine's and the file manager's Wine tests share: the loopback network the ctest
// fixture started, registration of either server, creation exactly as the plug-in does it, and an
// event sink that records what arrives and on which thread.

#include "engine_h.h"
#include "platform/win/com_object.h"
#include "platform/win/handles.h"

#include <map>
#include <string>
#include <vector>

namespace corvid::testing {

// The fixture's network.env (scripts/loopback-network), found through CORVID_TEST_NETWORK.
struct LoopbackNetwork {
    std::vector<std::string> ultrapeers; // "127.0.0.1:port"
    std::vector<std::string> leaves;
    std::string folder; // the network's folder, as a Windows path
    std::string bigFileName;
    std::string bigFileSha1;
    bool loaded = false;
};
LoopbackNetwork LoadNetwork();

std::wstring BesideThisProgram(const wchar_t* name);
// Runs a program to its end (at most a minute) and returns its exit code.
DWORD RunProgram(std::wstring commandLine);

enum class Server { InProcess, LocalServer };
// Registers exactly one of the two servers of the engine's classes (the other is unregistered).
bool RegisterOnly(Server server);
void UnregisterBoth();

// CoCreateInstance with CLSCTX_ALL for IUnknown, OleRun, QueryInterface: the plug-in's way.
HRESULT CreateLikeThePlugIn(REFCLSID clsid, REFIID iid, void** object);

// Writes "<application data>\Corvid\Config\NetWork.ini".
void WriteNetWorkIni(const std::string& text);

struct RecordedEvent {
    DISPID id;
    std::vector<std::wstring> texts;
    std::vector<long> numbers;
    DWORD thread;
};

// A dispatch sink for one event interface; Invoke records every call.
class EventSink final : public win::ComObject<EventSink, IDispatch> {
public:
    explicit EventSink(const IID& events) : events_(events) {}

    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                     EXCEPINFO*, UINT*) override;
    void* QueryMore(REFIID iid) {
        return IsEqualIID(iid, events_) ? static_cast<IDispatch*>(this) : nullptr;
    }

    std::vector<RecordedEvent> events;
    size_t Count(DISPID id) const;

private:
    IID events_;
};

// Advises sink on source's connection point for events; returns the cookie (0 on failure).
DWORD Advise(IUnknown* source, const IID& events, IUnknown* sink);
void Unadvise(IUnknown* source, const IID& events, DWORD cookie);

// Everything between <tag> and </tag>, for each occurrence, in order.
std::vector<std::string> Elements(const std::string& text, const std::string& tag);
std::string Narrow(BSTR text);

} // namespace corvid::testing
