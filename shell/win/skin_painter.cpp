#include "shell/win/skin_painter.h"

#include <algorithm>

namespace corvid::shell {

COLORREF SkinToColorRef(SkinColour colour, int systemColour) {
    if (colour == kNoColour) {
        return ::GetSysColor(systemColour);
    }
    const auto value = static_cast<std::uint32_t>(colour);
    return RGB((value >> 16) & 0xFF, (value >> 8) & 0xFF, value & 0xFF);
}

void SkinPainter::Forget() {
    for (auto& [path, bitmap] : bitmaps_) {
        if (bitmap) {
            ::DeleteObject(bitmap);
        }
    }
    bitmaps_.clear();
}

HBITMAP SkinPainter::Bitmap(const std::string& path) {
    if (path.empty()) {
        return nullptr;
    }
    auto found = bitmaps_.find(path);
    if (found != bitmaps_.end()) {
        return found->second;
    }
    auto bitmap = static_cast<HBITMAP>(::LoadImageA(nullptr, path.c_str(), IMAGE_BITMAP, 0, 0,
                                                    LR_LOADFROMFILE | LR_CREATEDIBSECTION));
    bitmaps_[path] = bitmap;
    return bitmap;
}

void SkinPainter::PaintPicture(HDC dc, const RECT& area, const std::string& path, int mode) {
    HBITMAP bitmap = Bitmap(path);
    if (!bitmap) {
        return;
    }
    BITMAP info = {};
    ::GetObjectA(bitmap, sizeof info, &info);
    if (info.bmWidth <= 0 || info.bmHeight <= 0) {
        return;
    }
    HDC source = ::CreateCompatibleDC(dc);
    HGDIOBJ old = ::SelectObject(source, bitmap);
    const int width = area.right - area.left;
    const int height = area.bottom - area.top;
    if (mode == kSkinTile) {
        for (int y = area.top; y < area.bottom; y += info.bmHeight) {
            for (int x = area.left; x < area.right; x += info.bmWidth) {
                ::BitBlt(dc, x, y, std::min<int>(info.bmWidth, area.right - x),
                         std::min<int>(info.bmHeight, area.bottom - y), source, 0, 0, SRCCOPY);
            }
        }
    } else {
        ::SetStretchBltMode(dc, HALFTONE);
        ::StretchBlt(dc, area.left, area.top, width, height, source, 0, 0, info.bmWidth,
                     info.bmHeight, SRCCOPY);
    }
    ::SelectObject(source, old);
    ::DeleteDC(source);
}

void SkinPainter::PaintBand(HDC dc, const RECT& area, const SkinBand& band, int systemColour) {
    HBRUSH brush = ::CreateSolidBrush(SkinToColorRef(band.backColor, systemColour));
    ::FillRect(dc, &area, brush);
    ::DeleteObject(brush);
    PaintPicture(dc, area, band.background, band.mode);
}

RECT SkinPainter::PaintButton(HDC dc, const RECT& area, const SkinButtonState& state,
                              int systemColour) {
    HBRUSH brush = ::CreateSolidBrush(SkinToColorRef(state.backColor, systemColour));
    ::FillRect(dc, &area, brush);
    ::DeleteObject(brush);
    PaintPicture(dc, area, state.background, state.mode);
    auto edge = [&](RECT rect, SkinColour colour) {
        if (rect.right > rect.left && rect.bottom > rect.top) {
            HBRUSH line = ::CreateSolidBrush(SkinToColorRef(colour, COLOR_BTNSHADOW));
            ::FillRect(dc, &rect, line);
            ::DeleteObject(line);
        }
    };
    const SkinSides<int>& width = state.borderWidth;
    const SkinSides<SkinColour>& colour = state.borderColor;
    edge({area.left, area.top, area.left + width.left, area.bottom}, colour.left);
    edge({area.left, area.top, area.right, area.top + width.top}, colour.top);
    edge({area.right - width.right, area.top, area.right, area.bottom}, colour.right);
    edge({area.left, area.bottom - width.bottom, area.right, area.bottom}, colour.bottom);
    return {area.left + width.left, area.top + width.top, area.right - width.right,
            area.bottom - width.bottom};
}

namespace {

HFONT MakeFont(bool bold) {
    NONCLIENTMETRICSA metrics = {};
    metrics.cbSize = sizeof metrics;
    if (!::SystemParametersInfoA(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0)) {
        return static_cast<HFONT>(::GetStockObject(DEFAULT_GUI_FONT));
    }
    if (bold) {
        metrics.lfMessageFont.lfWeight = FW_BOLD;
    }
    return ::CreateFontIndirectA(&metrics.lfMessageFont);
}

} // namespace

HFONT UiFont() {
    static HFONT font = MakeFont(false);
    return font;
}

HFONT UiBoldFont() {
    static HFONT font = MakeFont(true);
    return font;
}

} // namespace corvid::shell
