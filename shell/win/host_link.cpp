#include "shell/win/host_link.h"

#include "platform/win/text.h"

#include <cstdlib>

#include <olectl.h>

namespace corvid::shell {

win::Bstr MakeBstr(const std::string& text, const IID& iid) {
    const std::wstring wide = win::ToWide(text);
    win::Bstr result;
    result.reset(::SysAllocStringLen(wide.c_str(), static_cast<UINT>(wide.size())));
    if (!result.get()) {
        throw win::ComError(E_OUTOFMEMORY, iid);
    }
    return result;
}

HRESULT DispatchSink::GetTypeInfoCount(UINT* count) {
    if (!count) {
        return E_POINTER;
    }
    *count = 0;
    return S_OK;
}

HRESULT DispatchSink::GetTypeInfo(UINT, LCID, ITypeInfo** info) {
    if (info) {
        *info = nullptr;
    }
    return E_NOTIMPL;
}

HRESULT DispatchSink::GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) {
    return E_NOTIMPL;
}

HRESULT DispatchSink::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                             EXCEPINFO*, UINT*) {
    if (result) {
        ::VariantInit(result);
    }
    return win::ComBoundary([&] {
        // Kept alive across the call: the handler may unadvise and drop the last other reference.
        win::ComPtr<DispatchSink> self(this);
        Handler handler = handler_;
        if (handler) {
            handler(id, params);
        }
        return S_OK;
    });
}

HRESULT Advice::Advise(IUnknown* source, const IID& events, IUnknown* sink) {
    if (cookie_ != kNotAdvised) {
        return S_FALSE;
    }
    if (!source) {
        return E_POINTER;
    }
    win::ComPtr<IConnectionPointContainer> container;
    HRESULT hr = source->QueryInterface(IID_IConnectionPointContainer, container.put_void());
    win::ComPtr<IConnectionPoint> point;
    if (SUCCEEDED(hr)) {
        hr = container->FindConnectionPoint(events, point.put());
    }
    DWORD cookie = 0;
    if (SUCCEEDED(hr)) {
        hr = point->Advise(sink, &cookie);
    }
    if (SUCCEEDED(hr)) {
        point_ = std::move(point);
        cookie_ = cookie;
    }
    return hr;
}

void Advice::Unadvise() {
    if (cookie_ != kNotAdvised && point_) {
        point_->Unadvise(cookie_);
    }
    point_.reset();
    cookie_ = kNotAdvised;
}

HostLink::HostLink(IUnknown* host) : host_(host) {
    if (!host_) {
        return;
    }
    host_.As(IID_ITarvoHost, hostInterface_);
    host_.As(IID_ITarvoCommandState, commandState_);
    if (hostInterface_) {
        win::ComPtr<IUnknown> settings;
        if (SUCCEEDED(hostInterface_->GetSettings(settings.put())) && settings) {
            settings.As(IID_ITarvoSettings, settings_);
        }
    }
}

std::optional<int> HostLink::Integer(VARIANT* value, long present, HRESULT hr) {
    if (FAILED(hr) || present == 0) {
        return std::nullopt;
    }
    // The value's integer field is used as it stands, whatever the host called its type; a text
    // is read as a number so that hand-edited settings still count.
    if (value->vt == VT_BSTR) {
        return static_cast<int>(std::strtol(win::BstrToAnsi(value->bstrVal).c_str(), nullptr, 10));
    }
    return static_cast<int>(value->lVal);
}

std::optional<int> HostLink::HostValue(const char* name) {
    if (!settings_) {
        return std::nullopt;
    }
    win::Bstr text = MakeBstr(name, IID_ITarvoSettings);
    win::Variant value;
    long present = 0;
    HRESULT hr = settings_->GetHostValue(text.get(), value.get(), &present);
    return Integer(value.get(), present, hr);
}

std::optional<int> HostLink::SectionValue(const char* section, const char* name) {
    if (!settings_) {
        return std::nullopt;
    }
    win::Bstr sectionText = MakeBstr(section, IID_ITarvoSettings);
    win::Bstr nameText = MakeBstr(name, IID_ITarvoSettings);
    win::Variant value;
    long present = 0;
    HRESULT hr = settings_->GetValue(sectionText.get(), nameText.get(), value.get(), &present);
    return Integer(value.get(), present, hr);
}

std::optional<std::string> HostLink::HostText(const char* name) {
    if (!settings_) {
        return std::nullopt;
    }
    win::Bstr text = MakeBstr(name, IID_ITarvoSettings);
    win::Variant value;
    long present = 0;
    HRESULT hr = settings_->GetHostValue(text.get(), value.get(), &present);
    if (FAILED(hr) || present == 0 || value.get()->vt != VT_BSTR) {
        return std::nullopt;
    }
    return win::BstrToAnsi(value.get()->bstrVal);
}

void HostLink::ReportCommandState(IUnknown* plugIn, const std::string& name, int state) {
    if (!commandState_) {
        return;
    }
    win::Bstr text = MakeBstr(name, IID_ITarvoCommandState);
    win::ThrowIfFailed(commandState_->SetCommandState(plugIn, text.get(), state),
                       IID_ITarvoCommandState);
}

void HostLink::RequestLayout(IUnknown* plugIn) {
    if (hostInterface_) {
        hostInterface_->RequestLayout(plugIn);
    }
}

void HostLink::MenusChanged(IUnknown* plugIn) {
    if (hostInterface_) {
        hostInterface_->MenusChanged(plugIn);
    }
}

HWND HostLink::FrameWindow() {
    HWND frame = nullptr;
    if (hostInterface_ && FAILED(hostInterface_->GetFrameWindow(&frame))) {
        frame = nullptr;
    }
    return frame;
}

} // namespace corvid::shell
