// corvid-engine-demo: creates the engine the way the plug-in does (CLSID, CLSCTX_ALL, OleRun,
// QueryInterface), connects, and prints what the plug-in would see: the engine's events, the node
// count, the hosts, and the groups of one search as the plug-in's own reader makes them.
//
//   corvid-engine-demo [KEYWORDS]     (the network comes from NetWork.ini or
//                                      CORVID_ENGINE_BOOTSTRAP)

#include "engine_h.h"
#include "platform/win/com_object.h"
#include "platform/win/connection_point.h"
#include "platform/win/text.h"
#include "search/result_store.h"
#include "search/search_result_reader.h"

#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace {

using namespace corvid;

// Prints each event of the interface it listens to and hands texts on.
class Listener final : public win::ComObject<Listener, IDispatch> {
public:
    Listener(const IID& events, std::function<void(DISPID, const std::string&, long)> heard)
        : events_(events), heard_(std::move(heard)) {}

    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                     EXCEPINFO*, UINT*) override {
        std::string text;
        long number = 0;
        for (UINT i = params ? params->cArgs : 0; i-- > 0;) {
            const VARIANT& argument = params->rgvarg[i];
            if (argument.vt == VT_BSTR) {
                text = win::BstrToAnsi(argument.bstrVal);
            } else if (argument.vt == VT_I4) {
                number = argument.lVal;
            }
        }
        heard_(id, text, number);
        return S_OK;
    }
    void* QueryMore(REFIID iid) {
        return IsEqualIID(iid, events_) ? static_cast<IDispatch*>(this) : nullptr;
    }

private:
    IID events_;
    std::function<void(DISPID, const std::string&, long)> heard_;
};

DWORD Advise(IUnknown* source, const IID& events, IUnknown* sink) {
    win::ComPtr<IConnectionPointContainer> container;
    win::ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    if (SUCCEEDED(source->QueryInterface(IID_IConnectionPointContainer, container.put_void())) &&
        SUCCEEDED(container->FindConnectionPoint(events, point.put()))) {
        point->Advise(sink, &cookie);
    }
    return cookie;
}

// Dispatches messages (the engine's news arrives as messages) until done() or the time is up.
void Pump(DWORD milliseconds, const std::function<bool()>& done = {}) {
    const DWORD start = ::GetTickCount();
    while (::GetTickCount() - start < milliseconds && !(done && done())) {
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
        MSG message;
        while (::PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
            ::TranslateMessage(&message);
            ::DispatchMessageA(&message);
        }
    }
}

const char* EventName(DISPID id) {
    switch (id) {
    case 1:
        return "connection established";
    case 2:
        return "connection lost";
    case 3:
        return "status";
    default:
        return "search object";
    }
}

} // namespace

int main(int argc, char** argv) {
    std::string keywords = argc > 1 ? argv[1] : "free software";
    win::ComApartment apartment;
    win::ComPtr<IUnknown> unknown;
    win::ComPtr<IGnutellaEngine> engine;
    HRESULT hr = ::CoCreateInstance(CLSID_GnutellaEngine, nullptr, CLSCTX_ALL, IID_IUnknown,
                                    unknown.put_void());
    if (SUCCEEDED(hr)) {
        hr = ::OleRun(unknown.get());
    }
    if (SUCCEEDED(hr)) {
        hr = unknown.As(IID_IGnutellaEngine, engine);
    }
    if (FAILED(hr)) {
        std::printf("creating the engine failed: 0x%08lx\n", static_cast<unsigned long>(hr));
        return 1;
    }
    bool connected = false;
    auto events = Listener::Make(
        DIID__IGnutellaEngineEvents, [&](DISPID id, const std::string& text, long code) {
            connected = connected || id == 1;
            if (id == 3) {
                std::printf("event 3 (status): %s [%ld]\n", text.c_str(), code);
            } else {
                std::printf("event %ld (%s)\n", id, EventName(id));
            }
        });
    Advise(engine.get(), DIID__IGnutellaEngineEvents, events->Identity());

    std::printf("connecting\n");
    engine->Connect();
    Pump(20000, [&] { return connected; });
    Pump(1000);
    long nodes = 0;
    engine->GetNodeCount(&nodes);
    std::printf("node count: %ld\n", nodes);
    win::Bstr hosts;
    engine->GetHostsInfo(hosts.put());
    std::printf("hosts: %s\n", win::BstrToAnsi(hosts.get()).c_str());

    win::ComPtr<IGnutellaSearch> search;
    const std::wstring wide = win::ToWide(keywords);
    if (FAILED(engine->CreateSearch(win::Bstr(wide.c_str()).get(), win::Bstr(L"All").get(), 0, 0, 0,
                                    1, search.put()))) {
        std::printf("the search could not be made\n");
        return 1;
    }
    ResultStore store;
    std::map<std::string, std::set<std::string>> offers; // SHA1 -> the hosts offering it
    int texts = 0;
    auto results =
        Listener::Make(DIID__IGnutellaSearchEvents, [&](DISPID, const std::string& text, long) {
            ++texts;
            ReadSearchResult(store, text);
            ReadResultFiles(text, [&](ParsedResult& result) {
                offers[result.sha1].insert(result.source.host + ":" +
                                           std::to_string(result.source.port));
            });
        });
    Advise(search.get(), DIID__IGnutellaSearchEvents, results->Identity());
    std::printf("searching for \"%s\"\n", keywords.c_str());
    search->Start();
    Pump(5000);
    std::printf("%d result texts, %zu groups:\n", texts, store.Groups().size());
    for (const ResultGroup* group : store.Groups()) {
        const ResultSource& first = group->sources.front();
        std::printf("  %-28s %9d bytes  %-8s %s  offered by %zu hosts\n", first.name.c_str(),
                    first.size, first.type.c_str(), group->sha1.c_str(),
                    offers[group->sha1].size());
    }
    search->Stop();
    std::printf("disconnecting\n");
    engine->Disconnect();
    return 0;
}
