#pragma once

// The host's COM side as a plug-in sees it: the host object (frame window, layout requests, the
// command states, the settings-changed event) and the settings object over the current user's
// registry: host values under "Software\Tarvo Explorer\Settings", a section's values under
// "Software\Tarvo Explorer\<section>".

#include "host_h.h"
#include "platform/win/com_object.h"
#include "platform/win/connection_point.h"

#include <functional>
#include <map>
#include <string>

namespace corvid::host {

inline constexpr wchar_t kStoreKey[] = L"Software\\Tarvo Explorer";
inline constexpr wchar_t kHostValuesKey[] = L"Software\\Tarvo Explorer\\Settings";

class SettingsObject final : public win::ComObject<SettingsObject, ITarvoSettings> {
public:
    // notify runs on NotifyChanged: the host fires its change event.
    SettingsObject(std::wstring hostFolder, std::function<void()> notify)
        : hostFolder_(std::move(hostFolder)), notify_(std::move(notify)) {}

    HRESULT STDMETHODCALLTYPE SetValue(BSTR section, BSTR name, VARIANT value) override;
    HRESULT STDMETHODCALLTYPE DeleteValue(BSTR section, BSTR name) override;
    HRESULT STDMETHODCALLTYPE SetHostValue(BSTR name, VARIANT value) override;
    HRESULT STDMETHODCALLTYPE DeleteHostValue(BSTR name) override;
    HRESULT STDMETHODCALLTYPE GetValue(BSTR section, BSTR name, VARIANT* value,
                                       LONG* present) override;
    HRESULT STDMETHODCALLTYPE NotifyChanged() override;
    HRESULT STDMETHODCALLTYPE GetValueNames(BSTR section, BSTR* names) override;
    HRESULT STDMETHODCALLTYPE GetHostValueNames(BSTR* names) override;
    HRESULT STDMETHODCALLTYPE GetHostFolder(BSTR* folder) override;
    HRESULT STDMETHODCALLTYPE GetStoreKey(BSTR* key) override;
    HRESULT STDMETHODCALLTYPE GetHostValue(BSTR name, VARIANT* value, LONG* present) override;

    // The host object is going: NotifyChanged has no one to tell any more.
    void Forget() { notify_ = nullptr; }

private:
    std::wstring hostFolder_;
    std::function<void()> notify_;
};

// What the host's window does for the host object.
class HostFrame {
public:
    virtual ~HostFrame() = default;
    virtual HWND FrameWindow() const = 0;
    virtual void LayOut() = 0;
    virtual void ReloadMenus() = 0;
    virtual void SetTabTitle(const std::wstring& title) = 0;
    virtual void ShowPlugInTab() = 0;
    virtual void CommandStateChanged(const std::string& name, int state) = 0;
};

class HostObject final
    : public win::ComObject<HostObject, ITarvoHost, ITarvoCommandState, IConnectionPointContainer>,
      public win::ConnectionPoints {
public:
    HostObject(HostFrame& frame, std::wstring hostFolder);
    ~HostObject() override { settings_->Forget(); }

    // Forgets the frame (it is going away); later calls do nothing.
    void DetachFrame() { frame_ = nullptr; }
    void FireSettingsChanged() { Fire(DIID__ITarvoHostEvents, 1); }
    // The last state the plug-in reported for a command, or -1.
    int CommandState(const std::string& name) const;

    // ITarvoHost
    HRESULT STDMETHODCALLTYPE GetFrameWindow(HWND* frame) override;
    HRESULT STDMETHODCALLTYPE RequestLayout(IUnknown* plugIn) override;
    HRESULT STDMETHODCALLTYPE MenusChanged(IUnknown* plugIn) override;
    HRESULT STDMETHODCALLTYPE SetTabTitle(IUnknown* plugIn, BSTR title) override;
    HRESULT STDMETHODCALLTYPE ShowPlugIn(IUnknown* plugIn) override;
    HRESULT STDMETHODCALLTYPE GetSettings(IUnknown** settings) override;
    // ITarvoCommandState
    HRESULT STDMETHODCALLTYPE SetCommandState(IUnknown* plugIn, BSTR command, LONG state) override;
    // IConnectionPointContainer
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }

private:
    HostFrame* frame_;
    win::ComPtr<SettingsObject> settings_;
    std::map<std::string, int> states_;
};

// Registry access for the settings dialog, in the same places the settings object reads.
bool ReadHostDword(const wchar_t* name, DWORD& value);
void WriteHostDword(const wchar_t* name, DWORD value);
std::wstring ReadHostString(const wchar_t* name);
void WriteHostString(const wchar_t* name, const std::wstring& value);
bool ReadSectionDword(const wchar_t* section, const wchar_t* name, DWORD& value);
void WriteSectionDword(const wchar_t* section, const wchar_t* name, DWORD value);

} // namespace corvid::host
