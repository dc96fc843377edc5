#include "network/win/dialog_language.h"

#include "markup/language_table.h"

namespace corvid::network {

namespace {

// Dialog units to pixels with the dialog's own mapping (its font).
class OpenDialog : public DialogSurface {
public:
    explicit OpenDialog(HWND dialog) : dialog_(dialog) {}

    void SetCaption(const std::string& caption) override {
        ::SetWindowTextA(dialog_, caption.c_str());
    }
    void SetSize(int width, int height) override {
        RECT rect = {0, 0, width, height};
        ::MapDialogRect(dialog_, &rect);
        ::AdjustWindowRectEx(&rect, static_cast<DWORD>(::GetWindowLongPtrA(dialog_, GWL_STYLE)),
                             FALSE, static_cast<DWORD>(::GetWindowLongPtrA(dialog_, GWL_EXSTYLE)));
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

void TranslateDialog(HWND dialog, const LanguageTable& language, int resourceId) {
    OpenDialog surface(dialog);
    language.ApplyToDialog(surface, resourceId);
}

std::string Text(const LanguageTable& language, std::uint32_t id) {
    std::string text;
    language.LoadText(id, text);
    return text;
}

} // namespace corvid::network
