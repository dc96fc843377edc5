#include "shell/win/customise_dialog.h"

#include "markup/language_table.h"
#include "platform/win/dialog_language.h"
#include "platform/win/module.h"
#include "resources/shell_resources.h"
#include "shell/commands.h"

#include <algorithm>
#include <string>

namespace corvid::shell {

namespace {

std::string ButtonLabel(int id) {
    const CommandInfo* command = id != 0 ? FindCommand(id) : nullptr;
    std::string label;
    if (command && command->buttonId != 0) {
        Language().LoadText(command->buttonId, label);
    }
    return label.empty() ? std::string("----------") : label;
}

int Selection(HWND list) {
    return static_cast<int>(::SendMessageA(list, LB_GETCURSEL, 0, 0));
}

} // namespace

CustomiseDialog::~CustomiseDialog() {
    if (hwnd_ && modeless_) {
        ::DestroyWindow(hwnd_);
    }
}

std::optional<std::vector<int>> CustomiseDialog::Run(HWND owner) {
    ::DialogBoxParamA(win::ModuleHandle(), MAKEINTRESOURCEA(IDD_TOOLBAR_CUSTOMISE), owner,
                      &Procedure, reinterpret_cast<LPARAM>(this));
    return result_;
}

HWND CustomiseDialog::CreateModeless(HWND owner) {
    modeless_ = true;
    return ::CreateDialogParamA(win::ModuleHandle(), MAKEINTRESOURCEA(IDD_TOOLBAR_CUSTOMISE), owner,
                                &Procedure, reinterpret_cast<LPARAM>(this));
}

INT_PTR CALLBACK CustomiseDialog::Procedure(HWND dialog, UINT message, WPARAM wParam,
                                            LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        auto* self = reinterpret_cast<CustomiseDialog*>(lParam);
        self->hwnd_ = dialog;
        ::SetWindowLongPtrA(dialog, DWLP_USER, lParam);
    }
    auto* self = reinterpret_cast<CustomiseDialog*>(::GetWindowLongPtrA(dialog, DWLP_USER));
    if (!self) {
        return FALSE;
    }
    const INT_PTR result = self->HandleMessage(message, wParam, lParam);
    if (message == WM_NCDESTROY) {
        self->hwnd_ = nullptr;
    }
    return result;
}

void CustomiseDialog::Fill(int selectCurrent) {
    HWND available = ::GetDlgItem(hwnd_, IDC_AVAILABLE);
    HWND current = ::GetDlgItem(hwnd_, IDC_CURRENT);
    ::SendMessageA(available, LB_RESETCONTENT, 0, 0);
    ::SendMessageA(current, LB_RESETCONTENT, 0, 0);
    for (int id : AvailableButtons(order_)) {
        const int row = static_cast<int>(::SendMessageA(
            available, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(ButtonLabel(id).c_str())));
        ::SendMessageA(available, LB_SETITEMDATA, row, id);
    }
    for (int id : order_) {
        ::SendMessageA(current, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(ButtonLabel(id).c_str()));
    }
    if (selectCurrent >= 0 && selectCurrent < static_cast<int>(order_.size())) {
        ::SendMessageA(current, LB_SETCURSEL, selectCurrent, 0);
    }
}

void CustomiseDialog::Close(bool accepted) {
    if (accepted) {
        result_ = order_;
    }
    closed_ = true;
    if (modeless_) {
        ::DestroyWindow(hwnd_);
    } else {
        ::EndDialog(hwnd_, accepted ? IDOK : IDCANCEL);
    }
}

INT_PTR CustomiseDialog::HandleMessage(UINT message, WPARAM wParam, LPARAM) {
    switch (message) {
    case WM_INITDIALOG:
        win::ApplyLanguageToDialog(hwnd_, Language(), IDD_TOOLBAR_CUSTOMISE);
        Fill(-1);
        return TRUE;
    case WM_COMMAND: {
        HWND available = ::GetDlgItem(hwnd_, IDC_AVAILABLE);
        const int at = Selection(::GetDlgItem(hwnd_, IDC_CURRENT));
        // New buttons go after the selected one, or at the end.
        const int insertAt = at >= 0 ? at + 1 : static_cast<int>(order_.size());
        switch (LOWORD(wParam)) {
        case IDC_ADD: {
            const int row = Selection(available);
            if (row >= 0) {
                const int id = static_cast<int>(::SendMessageA(available, LB_GETITEMDATA, row, 0));
                order_.insert(order_.begin() + insertAt, id);
                Fill(insertAt);
            }
            return TRUE;
        }
        case IDC_ADD_SEPARATOR:
            order_.insert(order_.begin() + insertAt, 0);
            Fill(insertAt);
            return TRUE;
        case IDC_REMOVE:
            if (at >= 0) {
                order_.erase(order_.begin() + at);
                Fill(std::min<int>(at, static_cast<int>(order_.size()) - 1));
            }
            return TRUE;
        case IDC_MOVE_UP:
            if (at > 0) {
                std::swap(order_[at], order_[at - 1]);
                Fill(at - 1);
            }
            return TRUE;
        case IDC_MOVE_DOWN:
            if (at >= 0 && at + 1 < static_cast<int>(order_.size())) {
                std::swap(order_[at], order_[at + 1]);
                Fill(at + 1);
            }
            return TRUE;
        case IDC_RESET:
            order_ = BuiltinToolbarOrder();
            Fill(-1);
            return TRUE;
        case IDOK:
            Close(true);
            return TRUE;
        case IDCANCEL:
            Close(false);
            return TRUE;
        default:
            return FALSE;
        }
    }
    default:
        return FALSE;
    }
}

} // namespace corvid::shell
