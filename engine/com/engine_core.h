#pragma once

// What the engine's COM objects share: the engine service with its network thread, the
// dispatcher that brings the service's news to the thread that created the engine, and the live
// search objects by their identifiers. Everything here but the EngineListener calls runs on that
// creating thread.

#include "engine/service/engine_service.h"
#include "library/com/shared_library.h"
#include "platform/win/window.h"

#include <oleauto.h>

#include <atomic>
#include <map>
#include <memory>

namespace corvid::engine {

class EngineObject;
class SearchObject;

class EngineCore : public EngineListener, public std::enable_shared_from_this<EngineCore> {
public:
    static std::shared_ptr<EngineCore> Make();
    ~EngineCore() override;

    EngineService& service() { return *service_; }

    // Reads "Config\NetWork.ini" (and the test network's bootstrap variable) and joins. S_FALSE
    // when already connected.
    HRESULT Connect();
    // Leaves the network; nothing the service said before reaches anyone afterwards. False when
    // it was not connected.
    bool Disconnect();
    // Reads "Config\NetWork.ini" again. S_OK when everything applies now (or at the next connect
    // of an engine that is not connected); S_FALSE when a running engine keeps its port, mode,
    // firewall flag or upload port until it reconnects.
    HRESULT ReloadSettings();

    void Attach(EngineObject* engine) { engine_ = engine; }
    void Detach() { engine_ = nullptr; }
    std::uint32_t AddSearch(SearchObject* search);
    void RemoveSearch(std::uint32_t id);
    SearchObject* FindSearch(std::uint32_t id) const;

    // EngineListener, on the network thread.
    void OnNodeCount(int count) override;
    void OnStatus(const std::string& text, int code) override;
    void OnSearchResult(std::uint32_t search, const std::string& text) override;

private:
    EngineCore();
    template <typename Work> void PostToCreator(Work work);

    std::shared_ptr<library::SharedLibrary> library_;
    win::UiDispatcher dispatcher_;
    win::UiDispatcher::Poster poster_;
    // Grows at every Disconnect: news posted before it is dropped when it arrives.
    std::atomic<unsigned> generation_{0};
    EngineObject* engine_ = nullptr;
    std::map<std::uint32_t, SearchObject*> searches_;
    std::uint32_t lastSearch_ = 0;
    bool announcedConnected_ = false;
    std::unique_ptr<EngineService> service_;
};

// Texts cross COM as BSTRs; the engine's texts are UTF-8 inside.
BSTR Utf8ToBstr(const std::string& text);
std::string BstrToUtf8(BSTR text);

} // namespace corvid::engine
