#pragma once

// Outgoing (event) interfaces. An object that fires events lists IConnectionPointContainer among
// its interfaces and derives from ConnectionPoints, naming the dispinterfaces it fires:
//
//   class Engine : public ComObject<Engine, IGnutellaEngine, IConnectionPointContainer>,
//                  public ConnectionPoints {
//       Engine() : ConnectionPoints(Identity(), {DIID__IGnutellaEngineEvents}) {}
//       ... Fire(DIID__IGnutellaEngineEvents, 3, {Arg(text), Arg(code)});
//   };
//
// Sinks are IDispatch; events are fired on the thread that calls Fire (the object's apartment).
// The sink list is copied before a call, so a sink may unadvise from inside its handler.

#include "platform/win/com_error.h"
#include "platform/win/handles.h"

#include <ocidl.h>
#include <oleauto.h>
#include <olectl.h>
#include <windows.h>

#include <initializer_list>
#include <memory>
#include <vector>

namespace corvid::win {

class ConnectionPoint;

class ConnectionPoints {
public:
    // owner is the container's identity: each point hands it out from
    // GetConnectionPointContainer, without holding a reference to it (the container owns the
    // points, so a reference would keep both alive for ever).
    ConnectionPoints(IUnknown* owner, std::initializer_list<IID> eventInterfaces);
    ~ConnectionPoints();
    ConnectionPoints(const ConnectionPoints&) = delete;
    ConnectionPoints& operator=(const ConnectionPoints&) = delete;

    // IConnectionPointContainer
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points);
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point);

    // Calls DISPID id on every sink advised for the event interface, arguments in their
    // declared order (they are reversed into DISPPARAMS here). Failures of single sinks are
    // ignored: one broken listener must not silence the others.
    void Fire(REFIID eventInterface, DISPID id, std::initializer_list<VARIANT> arguments = {});

    // How many sinks listen on the event interface.
    size_t SinkCount(REFIID eventInterface) const;

    // Drops every sink (before the object goes away, or on shut-down).
    void DisconnectAll();

private:
    ConnectionPoint* Find(REFIID iid) const;

    std::vector<ConnectionPoint*> points_; // each holds one reference, released in the destructor
};

// VARIANT views of event arguments; they borrow, so the values must outlive the Fire call.
inline VARIANT Arg(BSTR text) {
    VARIANT v;
    ::VariantInit(&v);
    v.vt = VT_BSTR;
    v.bstrVal = text;
    return v;
}
inline VARIANT Arg(long value) {
    VARIANT v;
    ::VariantInit(&v);
    v.vt = VT_I4;
    v.lVal = value;
    return v;
}
inline VARIANT Arg(IUnknown* object) {
    VARIANT v;
    ::VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = object;
    return v;
}

} // namespace corvid::win
