#include "markup/skin.h"
#include "platform/ascii.h"

#include "markup/host_files.h"

#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

namespace corvid {

namespace {

bool IsBlank(char c) {
    return c >= 1 && c <= 32;
}

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
        char y = b[i] >= 'A' && b[i] <= 'Z' ? static_cast<char>(b[i] - 'A' + 'a') : b[i];
        if (x != y) {
            return false;
        }
    }
    return true;
}

// Decimal text as the C library's atoi reads it, held to the range of an int.
int ReadInteger(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && IsBlank(text[i])) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    long long value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > static_cast<long long>(INT_MAX) + 1) {
            value = static_cast<long long>(INT_MAX) + 1;
        }
    }
    if (negative) {
        value = -value;
    }
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

SkinColour ReadColour(std::string_view text) {
    text = Trimmed(text);
    if (text.empty() || text.front() != '#') {
        return kNoColour;
    }
    std::string digits(text.substr(1));
    if (digits.size() < 6) {
        digits.insert(0, 6 - digits.size(), '0');
    }
    digits.resize(6);
    SkinColour value = 0;
    std::size_t read = 0;
    for (; read < digits.size() && HexDigit(digits[read]) >= 0; ++read) {
        value = value * 16 + HexDigit(digits[read]);
    }
    return read == 0 ? kNoColour : value;
}

// Splits a four-sided list at commas and spreads its pieces over the sides: one piece sets all
// four, two or three set left/right and top/bottom, four set left, top, right, bottom.
template <typename T, typename Read>
void ReadSides(const char* text, SkinSides<T>& sides, Read read) {
    std::string_view list = Trimmed(text ? text : "");
    if (list.empty()) {
        return;
    }
    std::vector<T> pieces;
    while (true) {
        std::size_t comma = list.find(',');
        pieces.push_back(read(Trimmed(list.substr(0, comma))));
        if (comma == std::string_view::npos || pieces.size() == 4) {
            break;
        }
        list.remove_prefix(comma + 1);
    }
    if (pieces.size() == 1) {
        sides = {pieces[0], pieces[0], pieces[0], pieces[0]};
    } else if (pieces.size() < 4) {
        sides = {pieces[0], pieces[1], pieces[0], pieces[1]};
    } else {
        sides = {pieces[0], pieces[1], pieces[2], pieces[3]};
    }
}

// The value of an attribute fetched by the get-or-add rule: a left-out attribute reads as empty.
const char* Get(XmlBranch element, const char* name) {
    XmlAttribute* attribute = element.AttributeOrAdd(name);
    return attribute && attribute->value ? attribute->value : "";
}

std::string Bitmap(XmlBranch element, const char* name, const SkinRecord& skin) {
    const char* file = Get(element, name);
    return *file ? skin.folder + file : std::string();
}

// The first direct child of `element` with this name.
XmlBranch ChildNamed(XmlBranch element, const char* name) {
    for (std::uint32_t i = 0; i < element.ChildCount(); ++i) {
        if (element.Child(i).Kind() == kXmlElement && element.Child(i).MatchesName(name)) {
            return element.Child(i);
        }
    }
    return {};
}

void ReadBand(XmlBranch element, SkinBand& band, const SkinRecord& skin, bool withBitmap) {
    band.background = Bitmap(element, "background", skin);
    band.backColor = ReadSkinColour(Get(element, "backcolor"));
    band.mode = ReadSkinMode(Get(element, "mode"));
    if (withBitmap) {
        band.bitmap = Bitmap(element, "bitmap", skin);
    }
}

// A missing state element leaves that state as it was.
void ReadButtonState(XmlBranch parent, const char* name, SkinButtonState& state,
                     const SkinRecord& skin) {
    XmlBranch element = ChildNamed(parent, name);
    if (element.IsNull()) {
        return;
    }
    state.background = Bitmap(element, "background", skin);
    state.mode = ReadSkinMode(Get(element, "mode"));
    state.backColor = ReadSkinColour(Get(element, "backcolor"));
    state.textColor = ReadSkinColour(Get(element, "textcolor"));
    ReadSkinWidths(Get(element, "borderwidth"), state.borderWidth);
    ReadSkinColours(Get(element, "bordercolor"), state.borderColor);
}

void ReadMenu(XmlBranch element, SkinMenu& menu) {
    if (XmlBranch sidebar = ChildNamed(element, "sidebar"); !sidebar.IsNull()) {
        menu.sidebarBackColor = ReadSkinColour(Get(sidebar, "backcolor"));
    }
    if (XmlBranch active = ChildNamed(element, "active"); !active.IsNull()) {
        menu.activeBackColor = ReadSkinColour(Get(active, "backcolor"));
        menu.activeTextColor = ReadSkinColour(Get(active, "textcolor"));
        menu.activeBorderColor = ReadSkinColour(Get(active, "bordercolor"));
        ReadSkinWidths(Get(active, "borderwidth"), menu.activeBorderWidth);
    }
    if (XmlBranch normal = ChildNamed(element, "normal"); !normal.IsNull()) {
        menu.normalBackColor = ReadSkinColour(Get(normal, "backcolor"));
        menu.normalTextColor = ReadSkinColour(Get(normal, "textcolor"));
    }
    if (XmlBranch disabled = ChildNamed(element, "disabled"); !disabled.IsNull()) {
        menu.disabledBackColor = ReadSkinColour(Get(disabled, "backcolor"));
        menu.disabledTextColor = ReadSkinColour(Get(disabled, "textcolor"));
    }
    if (XmlBranch separator = ChildNamed(element, "seperator"); !separator.IsNull()) {
        menu.separatorColor = ReadSkinColour(Get(separator, "color"));
        menu.separatorStyle = ReadSkinPenStyle(Get(separator, "style"));
        menu.separatorWidth = ReadSkinInteger(Get(separator, "width"));
    }
}

// The first element named `name` anywhere below `node`, depth first.
XmlBranch FindElement(XmlBranch node, const char* name) {
    std::vector<std::pair<XmlBranch, std::uint32_t>> stack{{node, 0}};
    while (!stack.empty()) {
        auto& [parent, next] = stack.back();
        if (next >= parent.ChildCount()) {
            stack.pop_back();
            continue;
        }
        XmlBranch child = parent.Child(next++);
        if (child.Kind() == kXmlElement && child.MatchesName(name)) {
            return child;
        }
        if (child.ChildCount() > 0) {
            stack.emplace_back(child, 0);
        }
    }
    return {};
}

std::string FolderOf(const std::string& path) {
    std::size_t cut = path.find_last_of("\\/");
    return cut == std::string::npos ? std::string() : path.substr(0, cut + 1);
}

SkinObserver& Observer() {
    static SkinObserver observer;
    return observer;
}

} // namespace

SkinRecord DefaultSkin() {
    SkinRecord skin;
    constexpr SkinColour kGrey = 0x808080;
    for (SkinButtonState* state : {&skin.tabActive, &skin.tabNormal, &skin.rootmenuHot,
                                   &skin.rootmenuActive, &skin.rootmenuNormal}) {
        state->borderWidth = {1, 1, 1, 1};
        state->borderColor = {kGrey, kGrey, kGrey, kGrey};
    }
    skin.rootmenuNormal.borderWidth = {0, 0, 0, 0};
    skin.menu.activeBorderColor = kGrey;
    skin.menu.activeBorderWidth = {1, 1, 1, 1};
    skin.menu.separatorColor = kGrey;
    skin.menu.separatorStyle = kPenSolid;
    skin.menu.separatorWidth = 1;
    return skin;
}

SkinColour ReadSkinColour(const char* text) {
    return ReadColour(text ? text : "");
}

int ReadSkinMode(const char* text) {
    return text && EqualsIgnoringCase(text, "tile") ? kSkinTile : kSkinStretch;
}

int ReadSkinPenStyle(const char* text) {
    static const char* const kStyles[] = {"solid",      "dash", "dot",        "dashdot",
                                          "dashdotdot", "null", "insideframe"};
    for (int style = 0; style < 7; ++style) {
        if (text && EqualsIgnoringCase(text, kStyles[style])) {
            return style;
        }
    }
    return kPenSolid;
}

int ReadSkinInteger(const char* text) {
    return ReadInteger(text ? text : "");
}

void ReadSkinWidths(const char* text, SkinSides<int>& sides) {
    ReadSides(text, sides, ReadInteger);
}

void ReadSkinColours(const char* text, SkinSides<SkinColour>& sides) {
    ReadSides(text, sides, ReadColour);
}

void ApplySkinElement(XmlBranch skinElement, SkinRecord& skin) {
    static const char* const kElements[] = {"rebar",      "tabbar",    "statusbar", "toolbar",
                                            "addressbar", "systembar", "tab",       "rootmenu",
                                            "menu",       "minibar",   "splash",    "readingbar"};
    for (std::uint32_t i = 0; i < skinElement.ChildCount(); ++i) {
        XmlBranch child = skinElement.Child(i);
        if (child.Kind() != kXmlElement) {
            continue;
        }
        int which = 0;
        while (which < 12 && !child.MatchesName(kElements[which])) {
            ++which;
        }
        switch (which) {
        case 0:
            ReadBand(child, skin.rebar, skin, false);
            break;
        case 1:
            ReadBand(child, skin.tabbar, skin, false);
            break;
        case 2:
            ReadBand(child, skin.statusbar, skin, true);
            break;
        case 3:
            skin.toolbarLarge = Bitmap(child, "large", skin);
            skin.toolbarSmall = Bitmap(child, "small", skin);
            break;
        case 4:
            skin.addressbarBitmap = Bitmap(child, "bitmap", skin);
            break;
        case 5:
            skin.systembarBitmap = Bitmap(child, "bitmap", skin);
            break;
        case 6:
            ReadButtonState(child, "active", skin.tabActive, skin);
            ReadButtonState(child, "normal", skin.tabNormal, skin);
            break;
        case 7:
            ReadButtonState(child, "hot", skin.rootmenuHot, skin);
            ReadButtonState(child, "active", skin.rootmenuActive, skin);
            ReadButtonState(child, "normal", skin.rootmenuNormal, skin);
            break;
        case 8:
            ReadMenu(child, skin.menu);
            break;
        case 9:
            ReadBand(child, skin.minibar, skin, false);
            break;
        case 10:
            skin.splashBackground = Bitmap(child, "background", skin);
            break;
        case 11:
            ReadBand(child, skin.readingbar, skin, true);
            break;
        default:
            break;
        }
    }
}

bool LoadSkinFile(const std::string& path, SkinRecord& skin) {
    std::optional<std::string> text = CurrentHostFiles().ReadFile(path);
    if (!text) {
        return false;
    }
    XmlDocument document;
    document.ParseCopy(*text, kXmlStandardReader);
    if (document.Root().ChildCount() == 0) {
        return false;
    }
    XmlBranch skinElement = FindElement(document.Root(), "skin");
    if (skinElement.IsNull()) {
        return false;
    }
    skin.loaded = true;
    skin.folder = FolderOf(path);
    ApplySkinElement(skinElement, skin);
    return true;
}

SkinRecord& GlobalSkin() {
    static SkinRecord skin = DefaultSkin();
    return skin;
}

bool LoadSkinFile(const std::string& path) {
    return LoadSkinFile(path, GlobalSkin());
}

void SetSkinObserver(SkinObserver observer) {
    Observer() = std::move(observer);
}

bool ApplySkin(const std::string& skinName, bool relayout) {
    SkinRecord& skin = GlobalSkin();
    skin = DefaultSkin();
    const std::string path =
        CurrentHostFiles().HostFolder() + "\\skin\\" + skinName + "\\Corvid.xml";
    const bool loaded = LoadSkinFile(path, skin);
    if (Observer()) {
        Observer()(skin, relayout);
    }
    return loaded;
}

} // namespace corvid
