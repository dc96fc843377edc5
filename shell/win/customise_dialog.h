#pragma once

// The toolbar's customise dialog: buttons move between "available" and the toolbar, up and down,
// with separators where the user wants them. Run() is modal; tests open it modeless and drive it.

#include <windows.h>

#include <optional>
#include <vector>

namespace corvid::shell {

class CustomiseDialog {
public:
    explicit CustomiseDialog(std::vector<int> current) : order_(std::move(current)) {}
    CustomiseDialog(const CustomiseDialog&) = delete;
    CustomiseDialog& operator=(const CustomiseDialog&) = delete;
    ~CustomiseDialog();

    // The order chosen with OK; nothing after Cancel.
    std::optional<std::vector<int>> Run(HWND owner);
    // The same dialog without its own message loop; result() holds the answer once it closed.
    HWND CreateModeless(HWND owner);
    HWND hwnd() const { return hwnd_; }
    bool closed() const { return closed_; }
    const std::optional<std::vector<int>>& result() const { return result_; }

private:
    static INT_PTR CALLBACK Procedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    INT_PTR HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);
    void Fill(int selectCurrent);
    void Close(bool accepted);

    HWND hwnd_ = nullptr;
    bool modeless_ = false;
    bool closed_ = false;
    std::vector<int> order_;
    std::optional<std::vector<int>> result_;
};

} // namespace corvid::shell
