#pragma once

// The bar along the top of the transfer pages: a flat toolbar of labelled buttons, with the page's
// counter text right-aligned beside it.

#include <windows.h>

#include <commctrl.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace corvid::transfer::win {

struct BarButton {
    int command;
    int image;
    std::uint32_t text; // the language-table id of its label
    bool check = false; // stays down until clicked again
    bool separatorAfter = false;
};

// A label for a language-table id.
using BarLabel = std::function<std::string(std::uint32_t)>;

class TransferBar {
public:
    TransferBar() = default;
    ~TransferBar();
    TransferBar(const TransferBar&) = delete;
    TransferBar& operator=(const TransferBar&) = delete;

    // `name` names the toolbar window and its bitmap resource (16-pixel images, magenta as the
    // mask). The bar lives as long as its parent window; only the image list is the bar's own.
    void Create(HWND parent, const char* name, int toolbarId, int counterId, HGDIOBJ font,
                std::span<const BarButton> buttons, const BarLabel& label);
    // Every button's label again, in the language now in use.
    void Relabel(std::span<const BarButton> buttons, const BarLabel& label);
    // Places the bar across the top of a client area `width` pixels wide; returns its height.
    int LayOut(int width);

    HWND toolbar() const { return toolbar_; }
    HWND counter() const { return counter_; }

private:
    HWND toolbar_ = nullptr;
    HWND counter_ = nullptr;
    HIMAGELIST images_ = nullptr;
};

} // namespace corvid::transfer::win
