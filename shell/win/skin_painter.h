#pragma once

// Painting from the skin record: bands (a colour and a picture, stretched or tiled) and buttons
// (a state's colours, picture and four borders). Colours are stored as read, 0xRRGGBB; a missing
// one (-1) falls back to the system colour the caller names.

#include "markup/skin.h"

#include <windows.h>

#include <map>
#include <string>

namespace corvid::shell {

COLORREF SkinToColorRef(SkinColour colour, int systemColour);

class SkinPainter {
public:
    SkinPainter() = default;
    SkinPainter(const SkinPainter&) = delete;
    SkinPainter& operator=(const SkinPainter&) = delete;
    ~SkinPainter() { Forget(); }

    // Drops the pictures of the last skin (after ApplySkin).
    void Forget();

    void PaintBand(HDC dc, const RECT& area, const SkinBand& band, int systemColour);
    // Fills, draws the picture and the borders; returns the inner rectangle for the content.
    RECT PaintButton(HDC dc, const RECT& area, const SkinButtonState& state, int systemColour);
    COLORREF TextColour(const SkinButtonState& state, int systemColour) const {
        return SkinToColorRef(state.textColor, systemColour);
    }
    // A picture of the skin, loaded once; null when it cannot be read.
    HBITMAP Bitmap(const std::string& path);

private:
    void PaintPicture(HDC dc, const RECT& area, const std::string& path, int mode);

    std::map<std::string, HBITMAP> bitmaps_;
};

// The message font of the system, made once for the process.
HFONT UiFont();
HFONT UiBoldFont();

} // namespace corvid::shell
