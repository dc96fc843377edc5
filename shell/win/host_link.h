#pragma once

// The plug-in's side of its host: the host object with its settings and command-state
// interfaces, and the sink for the host's settings-changed event. Every failing call we make is a
// ComError carrying the interface's IID; names go over as fresh BSTRs, freed right after.

#include "host_h.h"
#include "platform/win/com_object.h"
#include "shell/settings.h"

#include <functional>
#include <optional>
#include <string>

namespace corvid::shell {

// The not-advised marker of an event sink's cookie.
inline constexpr DWORD kNotAdvised = 0xFEFEFEFE;

// A BSTR of an ANSI text; E_OUTOFMEMORY (as a ComError) when it cannot be allocated.
win::Bstr MakeBstr(const std::string& text, const IID& iid);

// A dispatch sink that hands every call's DISPID and arguments to a handler, until Disconnect.
// The handler runs on the thread that fires (the tab's thread: all our sources are in-process).
class DispatchSink final : public win::ComObject<DispatchSink, IDispatch> {
public:
    using Handler = std::function<void(DISPID id, DISPPARAMS* params)>;
    DispatchSink(const IID& events, Handler handler)
        : events_(events), handler_(std::move(handler)) {}

    void* QueryMore(REFIID iid) {
        return IsEqualIID(iid, events_) ? static_cast<IDispatch*>(this) : nullptr;
    }
    void Disconnect() { handler_ = nullptr; }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override;
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                     EXCEPINFO*, UINT*) override;

private:
    IID events_;
    Handler handler_;
};

// One advise of a sink on a source's connection point, undone by Unadvise or destruction.
class Advice {
public:
    Advice() = default;
    Advice(const Advice&) = delete;
    Advice& operator=(const Advice&) = delete;
    ~Advice() { Unadvise(); }

    // Advises when not advised yet (cookie still kNotAdvised); failures leave it not advised.
    HRESULT Advise(IUnknown* source, const IID& events, IUnknown* sink);
    void Unadvise();
    DWORD cookie() const { return cookie_; }

private:
    win::ComPtr<IConnectionPoint> point_;
    DWORD cookie_ = kNotAdvised;
};

class HostLink : public HostSettingsSource {
public:
    // Takes what it needs from the host object; a host without settings or command state is
    // allowed (its values read as absent, its states go nowhere).
    explicit HostLink(IUnknown* host);

    std::optional<int> HostValue(const char* name) override;
    std::optional<int> SectionValue(const char* section, const char* name) override;
    std::optional<std::string> HostText(const char* name);

    void ReportCommandState(IUnknown* plugIn, const std::string& name, int state);
    void RequestLayout(IUnknown* plugIn);
    void MenusChanged(IUnknown* plugIn);
    HWND FrameWindow();

    IUnknown* host() const { return host_.get(); }

private:
    std::optional<int> Integer(VARIANT* value, long present, HRESULT hr);

    win::ComPtr<IUnknown> host_;
    win::ComPtr<ITarvoHost> hostInterface_;
    win::ComPtr<ITarvoSettings> settings_;
    win::ComPtr<ITarvoCommandState> commandState_;
};

} // namespace corvid::shell
