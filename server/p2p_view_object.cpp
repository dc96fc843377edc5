#include "server/p2p_view_object.h"

#include "markup/language_table.h"
#include "markup/skin.h"
#include "platform/win/text.h"
#include "shell/win/host_link.h"
#include "shell/win/main_view.h"
#include "shell/win/prompt.h"

namespace corvid::server {

P2PViewObject::P2PViewObject() : prompt_(std::make_unique<shell::MessageBoxPrompt>()) {
    shell::InstallHostFolderFiles();
}

P2PViewObject::~P2PViewObject() = default;

HRESULT P2PViewObject::SearchOnP2P(BSTR keywords, BSTR type) {
    // The page's script does not care what became of its search, so this always succeeds; a
    // failing engine call has ended the search and left the console a note.
    win::ComBoundary([&] {
        if (view_) {
            view_->SearchOnP2P(win::BstrToAnsi(keywords), win::BstrToAnsi(type));
        }
        return S_OK;
    });
    return S_OK;
}

HRESULT P2PViewObject::Attach(IUnknown* host, HWND tab) {
    return win::ComBoundary([&] {
        if (!tab || !::IsWindow(tab)) {
            return E_INVALIDARG;
        }
        if (view_) {
            return E_UNEXPECTED;
        }
        auto view = std::make_unique<shell::MainView>(Identity(), *prompt_);
        view_ = std::move(view);
        if (!view_->Attach(host, tab)) {
            view_.reset();
            return E_FAIL;
        }
        return S_OK;
    });
}

HRESULT P2PViewObject::Detach() {
    return win::ComBoundary([&] {
        view_.reset();
        return S_OK;
    });
}

HRESULT P2PViewObject::SetRect(LONG left, LONG top, LONG right, LONG bottom) {
    return win::ComBoundary([&] {
        if (!view_) {
            return E_UNEXPECTED;
        }
        view_->Place({left, top, right, bottom});
        return S_OK;
    });
}

HRESULT P2PViewObject::Focus() {
    return win::ComBoundary([&] {
        if (view_) {
            view_->Focus();
        }
        return S_OK;
    });
}

HRESULT P2PViewObject::GetMenu(BSTR menuId, BSTR* text) {
    return win::ComBoundary([&] {
        if (!text) {
            return E_POINTER;
        }
        *text = nullptr;
        const std::string id = win::BstrToAnsi(menuId);
        const std::string menu = view_ ? view_->MenuText(id) : std::string();
        *text = shell::MakeBstr(menu, IID_ITarvoPlugIn).detach();
        return menu.empty() ? S_FALSE : S_OK;
    });
}

HRESULT P2PViewObject::Execute(BSTR command, LONG* handled) {
    if (handled) {
        *handled = 0;
    }
    return win::ComBoundary([&] {
        if (!handled) {
            return E_POINTER;
        }
        if (!view_) {
            return E_UNEXPECTED;
        }
        *handled = view_->Execute(win::BstrToAnsi(command)) ? 1 : 0;
        return S_OK;
    });
}

HRESULT P2PViewObject::GetToolbar(HWND parent, HWND* toolbar) {
    return win::ComBoundary([&] {
        if (!toolbar) {
            return E_POINTER;
        }
        *toolbar = nullptr;
        if (!view_) {
            return E_UNEXPECTED;
        }
        *toolbar = view_->Toolbar(parent);
        return *toolbar ? S_OK : E_FAIL;
    });
}

HRESULT P2PViewObject::ApplySkin(BSTR name, LONG relayout) {
    return win::ComBoundary([&] {
        const std::string skin = win::BstrToAnsi(name);
        if (view_) {
            view_->ApplySkinByName(skin, relayout != 0);
        } else {
            corvid::ApplySkin(skin, false);
        }
        return S_OK;
    });
}

HRESULT P2PViewObject::SetLanguage(BSTR name, LONG refresh) {
    return win::ComBoundary([&] {
        const std::string language = win::BstrToAnsi(name);
        if (view_) {
            view_->SetLanguageByName(language, refresh != 0);
        } else {
            corvid::Language().Load(language);
        }
        return S_OK;
    });
}

} // namespace corvid::server
