// corvid-tool skin FILE: every field of the skin record that FILE gives over the built-in look,
// one per line; colours as 0xRRGGBB or -1.

#include "markup/host_files.h"
#include "markup/skin.h"
#include "tools/tool_commands.h"

#include <cstdio>
#include <iostream>
#include <span>
#include <string>

namespace corvid::tool {

namespace {

std::string Colour(SkinColour colour) {
    if (colour == kNoColour) {
        return "-1";
    }
    char text[16];
    std::snprintf(text, sizeof text, "0x%06X", static_cast<unsigned>(colour));
    return text;
}

class Printer {
public:
    explicit Printer(std::ostream& out) : out_(out) {}
    void Text(const std::string& name, const std::string& value) {
        out_ << name << ' ' << value << '\n';
    }
    void Number(const std::string& name, int value) { out_ << name << ' ' << value << '\n'; }
    void Colour(const std::string& name, SkinColour value) { Text(name, tool::Colour(value)); }
    void Widths(const std::string& name, const SkinSides<int>& sides) {
        out_ << name << ' ' << sides.left << ',' << sides.top << ',' << sides.right << ','
             << sides.bottom << '\n';
    }
    void Colours(const std::string& name, const SkinSides<SkinColour>& sides) {
        out_ << name << ' ' << tool::Colour(sides.left) << ',' << tool::Colour(sides.top) << ','
             << tool::Colour(sides.right) << ',' << tool::Colour(sides.bottom) << '\n';
    }
    void Band(const std::string& name, const SkinBand& band, bool withBitmap) {
        Text(name + ".background", band.background);
        Colour(name + ".backcolor", band.backColor);
        Number(name + ".mode", band.mode);
        if (withBitmap) {
            Text(name + ".bitmap", band.bitmap);
        }
    }
    void State(const std::string& name, const SkinButtonState& state) {
        Text(name + ".background", state.background);
        Number(name + ".mode", state.mode);
        Colour(name + ".backcolor", state.backColor);
        Colour(name + ".textcolor", state.textColor);
        Widths(name + ".borderwidth", state.borderWidth);
        Colours(name + ".bordercolor", state.borderColor);
    }

private:
    std::ostream& out_;
};

} // namespace

int RunSkin(int argc, char** argv) {
    const std::span<char* const> args(argv, static_cast<std::size_t>(argc));
    std::ostream& out = std::cout;
    std::ostream& err = std::cerr;
    if (args.size() != 1) {
        err << "usage: corvid-tool skin FILE\n";
        return 2;
    }
    const StdioHostFiles files(".");
    InstallHostFiles(&files);
    SkinRecord skin = DefaultSkin();
    const bool loaded = LoadSkinFile(args[0], skin);
    InstallHostFiles(nullptr);

    Printer print(out);
    print.Number("loaded", loaded ? 1 : 0);
    print.Band("rebar", skin.rebar, false);
    print.Band("tabbar", skin.tabbar, false);
    print.Band("statusbar", skin.statusbar, true);
    print.Text("toolbar.large", skin.toolbarLarge);
    print.Text("toolbar.small", skin.toolbarSmall);
    print.Text("addressbar.bitmap", skin.addressbarBitmap);
    print.Text("systembar.bitmap", skin.systembarBitmap);
    print.State("tab.active", skin.tabActive);
    print.State("tab.normal", skin.tabNormal);
    print.State("rootmenu.hot", skin.rootmenuHot);
    print.State("rootmenu.active", skin.rootmenuActive);
    print.State("rootmenu.normal", skin.rootmenuNormal);
    const SkinMenu& menu = skin.menu;
    print.Colour("menu.sidebar.backcolor", menu.sidebarBackColor);
    print.Colour("menu.active.backcolor", menu.activeBackColor);
    print.Colour("menu.active.textcolor", menu.activeTextColor);
    print.Colour("menu.active.bordercolor", menu.activeBorderColor);
    print.Widths("menu.active.borderwidth", menu.activeBorderWidth);
    print.Colour("menu.normal.backcolor", menu.normalBackColor);
    print.Colour("menu.normal.textcolor", menu.normalTextColor);
    print.Colour("menu.disabled.backcolor", menu.disabledBackColor);
    print.Colour("menu.disabled.textcolor", menu.disabledTextColor);
    print.Colour("menu.seperator.color", menu.separatorColor);
    print.Number("menu.seperator.style", menu.separatorStyle);
    print.Number("menu.seperator.width", menu.separatorWidth);
    print.Band("minibar", skin.minibar, false);
    print.Text("splash.background", skin.splashBackground);
    print.Band("readingbar", skin.readingbar, true);
    return loaded ? 0 : 1;
}

} // namespace corvid::tool
