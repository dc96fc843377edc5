#include "theater/win/theater_panel.h"

#include "markup/language_table.h"
#include "platform/win/com_object.h"
#include "platform/win/handles.h"
#include "platform/win/module.h"
#include "platform/win/text.h"
#include "platform/win/window.h"

#include <ole2.h>
#include <shellapi.h>

#include <cwchar>

namespace corvid::theater {

namespace {

constexpr int kMessageId = 100;
constexpr std::uint32_t kTheaterTitle = 36125; // "Theater", the main view's tab title
constexpr std::uint32_t kNoPlayerText = 37414;
constexpr std::uint32_t kReadyText = 37415;

// The controls we know how to drive, best first.
constexpr wchar_t kMediaPlayerProgId[] = L"WMPlayer.OCX";
constexpr wchar_t kRealPlayerProgId[] = L"rmocx.RealPlayer G2 Control";

std::string Text(const LanguageTable& language, std::uint32_t id) {
    std::string text;
    language.LoadText(id, text);
    return text;
}

// A control's automation: its IDispatch, and for a dual interface the type of its virtual table,
// through which members are called when the control's own name lookup is not implemented.
struct Automation {
    win::ComPtr<IDispatch> object;
    win::ComPtr<ITypeInfo> vtableType;
};

// IDispatch itself, or else the default interface its class information names (dual), for
// controls that answer only to the latter.
Automation AutomationOf(const win::ComPtr<IOleObject>& control) {
    Automation automation;
    control.As(IID_IDispatch, automation.object);
    win::ComPtr<IProvideClassInfo> classInfo;
    win::ComPtr<ITypeInfo> type;
    TYPEATTR* attributes = nullptr;
    if (FAILED(control.As(IID_IProvideClassInfo, classInfo)) ||
        FAILED(classInfo->GetClassInfo(type.put())) || FAILED(type->GetTypeAttr(&attributes))) {
        return automation;
    }
    const UINT count = attributes->cImplTypes;
    type->ReleaseTypeAttr(attributes);
    for (UINT i = 0; i < count; ++i) {
        INT flags = 0;
        HREFTYPE reference = 0;
        win::ComPtr<ITypeInfo> implemented;
        if (FAILED(type->GetImplTypeFlags(i, &flags)) || !(flags & IMPLTYPEFLAG_FDEFAULT) ||
            (flags & IMPLTYPEFLAG_FSOURCE) || FAILED(type->GetRefTypeOfImplType(i, &reference)) ||
            FAILED(type->GetRefTypeInfo(reference, implemented.put())) ||
            FAILED(implemented->GetTypeAttr(&attributes))) {
            continue;
        }
        const IID iid = attributes->guid;
        implemented->ReleaseTypeAttr(attributes);
        win::ComPtr<IDispatch> dual;
        HREFTYPE vtable = 0;
        if (SUCCEEDED(control->QueryInterface(iid, dual.put_void())) &&
            SUCCEEDED(implemented->GetRefTypeOfImplType(static_cast<UINT>(-1), &vtable)) &&
            SUCCEEDED(implemented->GetRefTypeInfo(vtable, automation.vtableType.put()))) {
            automation.object = dual;
        }
        break;
    }
    return automation;
}

// Calls a member of the control by name: a property put or a method.
HRESULT CallByName(const Automation& automation, const wchar_t* name, WORD flags,
                   VARIANT* arguments, UINT count) {
    if (!automation.object) {
        return E_NOINTERFACE;
    }
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS params = {arguments, nullptr, count, 0};
    if (flags == DISPATCH_PROPERTYPUT) {
        params.rgdispidNamedArgs = &named;
        params.cNamedArgs = 1;
    }
    DISPID id = 0;
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    HRESULT hr = automation.object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
    if (SUCCEEDED(hr)) {
        return automation.object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, nullptr,
                                         nullptr, nullptr);
    }
    if (!automation.vtableType || FAILED(automation.vtableType->GetIDsOfNames(names, 1, &id))) {
        return hr;
    }
    return automation.vtableType->Invoke(automation.object.get(), id, flags, &params, nullptr,
                                         nullptr, nullptr);
}

// The container side of one in-place active control: its client site, in-place site and frame.
// The control sees our panel's window as both its window and its frame; we have no menus,
// toolbars or accelerators to share with it. The in-place site speaks the Ex interface too: some
// controls activate only in a site that does.
class ControlSite final
    : public win::ComObject<ControlSite, IOleClientSite, IOleInPlaceSiteEx, IOleInPlaceFrame> {
public:
    explicit ControlSite(HWND window) : window_(window) {}

    void* QueryMore(REFIID iid) {
        if (IsEqualIID(iid, IID_IOleWindow) || IsEqualIID(iid, IID_IOleInPlaceSite)) {
            return static_cast<IOleInPlaceSiteEx*>(this);
        }
        if (IsEqualIID(iid, IID_IOleInPlaceUIWindow)) {
            return static_cast<IOleInPlaceFrame*>(this);
        }
        return nullptr;
    }

    // IOleClientSite
    HRESULT STDMETHODCALLTYPE SaveObject() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMoniker(DWORD, DWORD, IMoniker** moniker) override {
        if (moniker) {
            *moniker = nullptr;
        }
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetContainer(IOleContainer** container) override {
        if (container) {
            *container = nullptr;
        }
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE ShowObject() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnShowWindow(BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE RequestNewObjectLayout() override { return E_NOTIMPL; }

    // IOleWindow (shared by the in-place site and the frame)
    HRESULT STDMETHODCALLTYPE GetWindow(HWND* window) override {
        if (!window) {
            return E_POINTER;
        }
        *window = window_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ContextSensitiveHelp(BOOL) override { return E_NOTIMPL; }

    // IOleInPlaceSite
    HRESULT STDMETHODCALLTYPE CanInPlaceActivate() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnInPlaceActivate() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnUIActivate() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetWindowContext(IOleInPlaceFrame** frame,
                                               IOleInPlaceUIWindow** document, RECT* position,
                                               RECT* clip,
                                               OLEINPLACEFRAMEINFO* frameInfo) override {
        if (!frame || !document || !position || !clip || !frameInfo) {
            return E_POINTER;
        }
        AddRef();
        *frame = this;
        *document = nullptr;
        ::GetClientRect(window_, position);
        *clip = *position;
        frameInfo->fMDIApp = FALSE;
        frameInfo->hwndFrame = window_;
        frameInfo->haccel = nullptr;
        frameInfo->cAccelEntries = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Scroll(SIZE) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OnUIDeactivate(BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnInPlaceDeactivate() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE DiscardUndoState() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE DeactivateAndUndo() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnPosRectChange(LPCRECT) override { return S_OK; }

    // IOleInPlaceSiteEx: the control keeps its window; we redraw nothing for it.
    HRESULT STDMETHODCALLTYPE OnInPlaceActivateEx(BOOL* noRedraw, DWORD) override {
        if (noRedraw) {
            *noRedraw = FALSE;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnInPlaceDeactivateEx(BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE RequestUIActivate() override { return S_OK; }

    // IOleInPlaceUIWindow and IOleInPlaceFrame: no border space, menus or accelerators to share.
    HRESULT STDMETHODCALLTYPE GetBorder(LPRECT) override { return INPLACE_E_NOTOOLSPACE; }
    HRESULT STDMETHODCALLTYPE RequestBorderSpace(LPCBORDERWIDTHS) override {
        return INPLACE_E_NOTOOLSPACE;
    }
    HRESULT STDMETHODCALLTYPE SetBorderSpace(LPCBORDERWIDTHS) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetActiveObject(IOleInPlaceActiveObject*, LPCOLESTR) override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE InsertMenus(HMENU, LPOLEMENUGROUPWIDTHS) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetMenu(HMENU, HOLEMENU, HWND) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE RemoveMenus(HMENU) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetStatusText(LPCOLESTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EnableModeless(BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE TranslateAccelerator(LPMSG, WORD) override { return S_FALSE; }

private:
    HWND window_;
};

MediaPlayer* g_player = nullptr;

class TheaterPanel : public shell::Panel, public MediaPlayer, private win::WindowBase {
public:
    TheaterPanel(shell::PanelSite& site, std::vector<std::wstring> playerProgIds)
        : site_(site), playerProgIds_(std::move(playerProgIds)) {}

    ~TheaterPanel() override {
        if (g_player == this) {
            g_player = nullptr;
        }
        CloseControl();
    }

    bool Create(HWND parent) override {
        RECT rect = {0, 0, 0, 0};
        if (!WindowBase::Create("CorvidTheater", "", WS_CHILD | WS_CLIPCHILDREN, 0, parent, rect)) {
            return false;
        }
        message_ =
            ::CreateWindowExA(0, "STATIC", "", WS_CHILD | SS_CENTER, 0, 0, 0, 0, hwnd(),
                              reinterpret_cast<HMENU>(kMessageId), win::ModuleHandle(), nullptr);
        ::SendMessageA(message_, WM_SETFONT,
                       reinterpret_cast<WPARAM>(::GetStockObject(DEFAULT_GUI_FONT)), FALSE);
        // Only looked up here: the control itself is made when it is first needed.
        for (const std::wstring& progId : playerProgIds_) {
            if (SUCCEEDED(::CLSIDFromProgID(progId.c_str(), &playerClass_))) {
                playerProgId_ = progId;
                break;
            }
        }
        g_player = this;
        ShowMessage(HasPlayer() ? kReadyText : kNoPlayerText);
        return true;
    }

    HWND Window() const override { return hwnd(); }
    std::string Title() const override { return Text(site_.Language(), kTheaterTitle); }

    void ApplyLanguage() override {
        if (!control_) {
            ShowMessage(HasPlayer() ? kReadyText : kNoPlayerText);
        }
    }

    // MediaPlayer
    bool Accepts(const std::string& path) const override {
        return HasPlayer() && IsPlayableMedia(path);
    }

    bool Play(const std::string& path) override {
        if (!Accepts(path) || !OpenControl()) {
            return false;
        }
        site_.ShowPanel(shell::kCmdTheater);
        const Automation player = AutomationOf(control_);
        win::Bstr source(win::ToWide(path).c_str());
        VARIANT argument;
        ::VariantInit(&argument);
        argument.vt = VT_BSTR;
        argument.bstrVal = source.get();
        HRESULT hr;
        if (_wcsicmp(playerProgId_.c_str(), kRealPlayerProgId) != 0) {
            // Setting the URL starts playing: the control's autoStart is on by default.
            hr = CallByName(player, L"URL", DISPATCH_PROPERTYPUT, &argument, 1);
        } else {
            hr = CallByName(player, L"SetSource", DISPATCH_METHOD, &argument, 1);
            if (SUCCEEDED(hr)) {
                hr = CallByName(player, L"DoPlay", DISPATCH_METHOD, nullptr, 0);
            }
        }
        return SUCCEEDED(hr);
    }

private:
    bool HasPlayer() const { return !playerProgId_.empty(); }

    void ShowMessage(std::uint32_t id) {
        ::SetWindowTextA(message_, Text(site_.Language(), id).c_str());
        ::ShowWindow(message_, SW_SHOWNA);
    }

    // Creates the control and activates it in place in the panel's window. When that fails the
    // player counts as absent from then on, and the panel says so.
    bool OpenControl() {
        if (control_) {
            return true;
        }
        win::ComPtr<IOleObject> control;
        if (FAILED(::CoCreateInstance(playerClass_, nullptr, CLSCTX_INPROC_SERVER, IID_IOleObject,
                                      control.put_void()))) {
            return GiveUp();
        }
        controlSite_ = ControlSite::Make(hwnd());
        IOleClientSite* clientSite = controlSite_.get();
        if (FAILED(control->SetClientSite(clientSite))) {
            return GiveUp();
        }
        win::ComPtr<IPersistStreamInit> persist;
        if (SUCCEEDED(control.As(IID_IPersistStreamInit, persist))) {
            persist->InitNew();
        }
        RECT rect;
        ::GetClientRect(hwnd(), &rect);
        if (FAILED(
                control->DoVerb(OLEIVERB_INPLACEACTIVATE, nullptr, clientSite, 0, hwnd(), &rect))) {
            control->SetClientSite(nullptr);
            return GiveUp();
        }
        control_ = control;
        ::ShowWindow(message_, SW_HIDE);
        return true;
    }

    bool GiveUp() {
        controlSite_.reset();
        playerProgId_.clear();
        ShowMessage(kNoPlayerText);
        return false;
    }

    void CloseControl() {
        if (!control_) {
            return;
        }
        win::ComPtr<IOleInPlaceObject> inPlace;
        if (SUCCEEDED(control_.As(IID_IOleInPlaceObject, inPlace))) {
            inPlace->InPlaceDeactivate();
        }
        control_->Close(OLECLOSE_NOSAVE);
        control_->SetClientSite(nullptr);
        control_.reset();
        controlSite_.reset();
    }

    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        switch (message) {
        case WM_SIZE: {
            const int width = LOWORD(lParam);
            const int height = HIWORD(lParam);
            ::MoveWindow(message_, 40, height / 3, std::max(width - 80, 10), 80, TRUE);
            win::ComPtr<IOleInPlaceObject> inPlace;
            if (control_ && SUCCEEDED(control_.As(IID_IOleInPlaceObject, inPlace))) {
                RECT rect = {0, 0, width, height};
                inPlace->SetObjectRects(&rect, &rect);
            }
            return 0;
        }
        case WM_DESTROY:
            CloseControl();
            break;
        }
        return Default(message, wParam, lParam);
    }

    shell::PanelSite& site_;
    HWND message_ = nullptr;
    CLSID playerClass_ = {};
    std::vector<std::wstring> playerProgIds_;
    std::wstring playerProgId_;
    win::ComPtr<ControlSite> controlSite_;
    win::ComPtr<IOleObject> control_;
};

} // namespace

std::unique_ptr<shell::Panel> MakeTheaterPanel(shell::PanelSite& site) {
    return MakeTheaterPanel(site, {kMediaPlayerProgId, kRealPlayerProgId});
}

std::unique_ptr<shell::Panel> MakeTheaterPanel(shell::PanelSite& site,
                                               std::vector<std::wstring> playerProgIds) {
    return std::make_unique<TheaterPanel>(site, std::move(playerProgIds));
}

MediaPlayer* FindMediaPlayer() {
    return g_player;
}

bool ShellOpen(HWND owner, const std::string& path) {
    const auto result = reinterpret_cast<INT_PTR>(
        ::ShellExecuteA(owner, "open", path.c_str(), nullptr, nullptr, SW_SHOWNORMAL));
    return result > 32;
}

bool RunMediaFile(HWND owner, const std::string& path,
                  const std::function<bool(HWND, const std::string&)>& open) {
    MediaPlayer* player = FindMediaPlayer();
    if (player && player->Accepts(path) && player->Play(path)) {
        return true;
    }
    return open(owner, path);
}

HWND TheaterMessageOf(HWND theaterPanelWindow) {
    return ::GetDlgItem(theaterPanelWindow, kMessageId);
}

} // namespace corvid::theater
