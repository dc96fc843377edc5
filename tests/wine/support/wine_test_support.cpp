#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace corvid::testing {

void PumpPending() {
    MSG message;
    while (::PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        ::TranslateMessage(&message);
        ::DispatchMessageA(&message);
    }
}

bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs) {
    const ULONGLONG deadline = ::GetTickCount64() + timeoutMs;
    for (;;) {
        PumpPending();
        if (done()) {
            return true;
        }
        const ULONGLONG now = ::GetTickCount64();
        if (now >= deadline) {
            return done();
        }
        // Waits for the next message (or at most 50 ms, for conditions other threads change).
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE,
                                    static_cast<DWORD>(std::min<ULONGLONG>(50, deadline - now)),
                                    QS_ALLINPUT);
    }
}

std::string SaveScreenshot(const std::string& name) {
    const char* folder = std::getenv("CORVID_SCREENSHOTS");
    if (!folder || !*folder) {
        return {};
    }
    PumpPending();
    const int width = ::GetSystemMetrics(SM_CXSCREEN);
    const int height = ::GetSystemMetrics(SM_CYSCREEN);
    HDC screen = ::GetDC(nullptr);
    HDC memory = ::CreateCompatibleDC(screen);
    HBITMAP bitmap = ::CreateCompatibleBitmap(screen, width, height);
    HGDIOBJ old = ::SelectObject(memory, bitmap);
    ::BitBlt(memory, 0, 0, width, height, screen, 0, 0, SRCCOPY);
    ::SelectObject(memory, old);

    BITMAPINFOHEADER header = {};
    header.biSize = sizeof header;
    header.biWidth = width;
    header.biHeight = height;
    header.biPlanes = 1;
    header.biBitCount = 24;
    header.biCompression = BI_RGB;
    const DWORD stride = ((width * 3 + 3) / 4) * 4;
    std::vector<char> pixels(static_cast<size_t>(stride) * height);
    ::GetDIBits(memory, bitmap, 0, height, pixels.data(), reinterpret_cast<BITMAPINFO*>(&header),
                DIB_RGB_COLORS);
    ::DeleteObject(bitmap);
    ::DeleteDC(memory);
    ::ReleaseDC(nullptr, screen);

    BITMAPFILEHEADER file = {};
    file.bfType = 0x4D42;
    file.bfOffBits = sizeof file + sizeof header;
    file.bfSize = file.bfOffBits + static_cast<DWORD>(pixels.size());
    const std::string path = std::string(folder) + "\\" + name + ".bmp";
    if (FILE* out = std::fopen(path.c_str(), "wb")) {
        std::fwrite(&file, sizeof file, 1, out);
        std::fwrite(&header, sizeof header, 1, out);
        std::fwrite(pixels.data(), 1, pixels.size(), out);
        std::fclose(out);
        return path;
    }
    return {};
}

std::string ListViewText(HWND list, int row, int column) {
    char text[1024] = {};
    LVITEMA item = {};
    item.iSubItem = column;
    item.pszText = text;
    item.cchTextMax = sizeof text;
    ::SendMessageA(list, LVM_GETITEMTEXTA, row, reinterpret_cast<LPARAM>(&item));
    return text;
}

bool ListViewColumnTitle(HWND list, int column, std::string& title) {
    char text[256] = {};
    LVCOLUMNA info = {};
    info.mask = LVCF_TEXT;
    info.pszText = text;
    info.cchTextMax = sizeof text;
    if (!::SendMessageA(list, LVM_GETCOLUMNA, column, reinterpret_cast<LPARAM>(&info)))
        return false;
    title = text;
    return true;
}

int ColumnOf(HWND list, const std::string& title) {
    std::string text;
    for (int column = 0; ListViewColumnTitle(list, column, text); ++column) {
        if (text == title)
            return column;
    }
    return -1;
}

int RowCount(HWND list) {
    return static_cast<int>(::SendMessageA(list, LVM_GETITEMCOUNT, 0, 0));
}

std::string StatusBarText(HWND bar, int pane) {
    const LRESULT info = ::SendMessageA(bar, SB_GETTEXTLENGTHA, pane, 0);
    std::string text(LOWORD(info) + 1, '\0');
    ::SendMessageA(bar, SB_GETTEXTA, pane, reinterpret_cast<LPARAM>(text.data()));
    text.resize(LOWORD(info));
    return text;
}

std::string WindowText(HWND window) {
    std::string text(::GetWindowTextLengthA(window) + 1, '\0');
    text.resize(::GetWindowTextA(window, text.data(), static_cast<int>(text.size())));
    return text;
}

} // namespace corvid::testing
