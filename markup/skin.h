#pragma once

// The skin: one global record of how the bars, tabs, menus and splash area look, filled from
// "<host folder>\skin\<skin name>\Corvid.xml". Every element that a skin file holds sets every
// field of its group; groups the file leaves out keep the built-in defaults.

#include "markup/xml.h"

#include <cstdint>
#include <functional>
#include <string>

namespace corvid {

// A colour as read from the file, 0xRRGGBB in the order written, or kNoColour.
using SkinColour = std::int32_t;
inline constexpr SkinColour kNoColour = -1;

enum SkinMode : int { kSkinStretch = 0, kSkinTile = 1 };

// The platform's pen-style numbers.
enum SkinPenStyle : int {
    kPenSolid = 0,
    kPenDash = 1,
    kPenDot = 2,
    kPenDashDot = 3,
    kPenDashDotDot = 4,
    kPenNull = 5,
    kPenInsideFrame = 6,
};

template <typename T> struct SkinSides {
    T left{};
    T top{};
    T right{};
    T bottom{};
    bool operator==(const SkinSides&) const = default;
};

// A band with a background picture: rebar, tab bar, mini bar; the status and reading bars add an
// image of their own in `bitmap`. Bitmaps are full paths (skin folder + name), empty for none.
struct SkinBand {
    std::string background;
    SkinColour backColor = kNoColour;
    int mode = kSkinStretch;
    std::string bitmap;
    bool operator==(const SkinBand&) const = default;
};

// One state of a tab button or a top-level menu entry.
struct SkinButtonState {
    std::string background;
    int mode = kSkinStretch;
    SkinColour backColor = kNoColour;
    SkinColour textColor = kNoColour;
    SkinSides<int> borderWidth;
    SkinSides<SkinColour> borderColor;
    bool operator==(const SkinButtonState&) const = default;
};

struct SkinMenu {
    SkinColour sidebarBackColor = kNoColour;
    SkinColour activeBackColor = kNoColour;
    SkinColour activeTextColor = kNoColour;
    SkinColour activeBorderColor = kNoColour;
    SkinSides<int> activeBorderWidth;
    SkinColour normalBackColor = kNoColour;
    SkinColour normalTextColor = kNoColour;
    SkinColour disabledBackColor = kNoColour;
    SkinColour disabledTextColor = kNoColour;
    SkinColour separatorColor = kNoColour;
    int separatorStyle = kPenSolid;
    int separatorWidth = 0;
};

struct SkinRecord {
    bool loaded = false;
    std::string folder; // the skin folder, with its trailing separator
    SkinBand rebar;
    SkinBand tabbar;
    SkinBand statusbar;
    std::string toolbarLarge;
    std::string toolbarSmall;
    std::string addressbarBitmap;
    std::string systembarBitmap;
    SkinButtonState tabActive;
    SkinButtonState tabNormal;
    SkinButtonState rootmenuHot;
    SkinButtonState rootmenuActive;
    SkinButtonState rootmenuNormal;
    SkinMenu menu;
    SkinBand minibar;
    std::string splashBackground;
    SkinBand readingbar;
};

// The built-in look, put back before every load: no pictures, system colours (no colour), thin
// grey borders on tabs and menu entries, a one-pixel solid grey separator.
SkinRecord DefaultSkin();

// The value types of skin attributes. Null text reads as empty.
SkinColour ReadSkinColour(const char* text);
int ReadSkinMode(const char* text);
int ReadSkinPenStyle(const char* text);
int ReadSkinInteger(const char* text);
// Four-sided lists: an empty list leaves `sides` as they are.
void ReadSkinWidths(const char* text, SkinSides<int>& sides);
void ReadSkinColours(const char* text, SkinSides<SkinColour>& sides);

// Applies the children of a `skin` element to `skin`, in order; the element gains every attribute
// that its readers ask for.
void ApplySkinElement(XmlBranch skinElement, SkinRecord& skin);

// Reads a skin file into `skin` (whose defaults the caller has set). The skin folder is the path up
// to its last separator. True when the file was read, parsed and held a `skin` element.
bool LoadSkinFile(const std::string& path, SkinRecord& skin);

// The plug-in's global skin record.
SkinRecord& GlobalSkin();
// The global record's form of the above.
bool LoadSkinFile(const std::string& path);

// Told of every applied skin: the toolbars, status bar and tab strip repaint from it, and lay
// themselves out again when `relayout` is set.
using SkinObserver = std::function<void(const SkinRecord& skin, bool relayout)>;
void SetSkinObserver(SkinObserver observer);

// Resets the global record, loads "<host folder>\skin\<skinName>\Corvid.xml" into it and hands it
// to the observer. Returns whether the file loaded.
bool ApplySkin(const std::string& skinName, bool relayout);

} // namespace corvid
