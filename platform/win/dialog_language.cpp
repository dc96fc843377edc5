#include "platform/win/dialog_language.h"

#include "markup/language_table.h"

namespace corvid::win {

namespace {

// An open dialog as the language table changes it: dialog units mapped with the dialog's own
// mapping, the size grown by the frame its styles give it, nothing moved in z-order.
class WindowDialogSurface : public DialogSurface {
public:
    explicit WindowDialogSurface(HWND dialog) : dialog_(dialog) {}

    void SetCaption(const std::string& caption) override {
        ::SetWindowTextA(dialog_, caption.c_str());
    }
    void SetSize(int width, int height) override {
        RECT rect = {0, 0, width, height};
        ::MapDialogRect(dialog_, &rect);
        const DWORD style = static_cast<DWORD>(::GetWindowLongPtrA(dialog_, GWL_STYLE));
        const DWORD exStyle = static_cast<DWORD>(::GetWindowLongPtrA(dialog_, GWL_EXSTYLE));
        ::AdjustWindowRectEx(&rect, style, FALSE, exStyle);
        ::SetWindowPos(dialog_, nullptr, 0, 0, rect.right - rect.left, rect.bottom - rect.top,
                       SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    bool HasControl(int id) const override { return ::GetDlgItem(dialog_, id) != nullptr; }
    void MoveControl(int id, int x, int y) override {
        RECT rect = {x, y, 0, 0};
        ::MapDialogRect(dialog_, &rect);
        ::SetWindowPos(::GetDlgItem(dialog_, id), nullptr, rect.left, rect.top, 0, 0,
                       SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    void ResizeControl(int id, int width, int height) override {
        RECT rect = {0, 0, width, height};
        ::MapDialogRect(dialog_, &rect);
        ::SetWindowPos(::GetDlgItem(dialog_, id), nullptr, 0, 0, rect.right, rect.bottom,
                       SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    void SetControlText(int id, const std::string& text) override {
        ::SetDlgItemTextA(dialog_, id, text.c_str());
    }

private:
    HWND dialog_;
};

} // namespace

void ApplyLanguageToDialog(HWND dialog, const LanguageTable& language, int resourceId) {
    WindowDialogSurface surface(dialog);
    language.ApplyToDialog(surface, resourceId);
}

} // namespace corvid::win
