#include "fake_host_files.h"
#include "markup/skin.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace corvid {
namespace {

const std::string kBlueFolder = "C:\\Tarvo\\skin\\Blue\\";
const std::string kBluePath = kBlueFolder + "Corvid.xml";

TEST(SkinValues, ColoursArePaddedOnTheLeftCutToSixDigitsOrNone) {
    EXPECT_EQ(ReadSkinColour("#fff"), 0x000FFF);
    EXPECT_EQ(ReadSkinColour("#1234567"), 0x123456);
    EXPECT_EQ(ReadSkinColour("#AbCdEf"), 0xABCDEF);
    EXPECT_EQ(ReadSkinColour("  #102030 "), 0x102030);
    EXPECT_EQ(ReadSkinColour("red"), kNoColour);
    EXPECT_EQ(ReadSkinColour("#zzzzzz"), kNoColour);
    EXPECT_EQ(ReadSkinColour(""), kNoColour);
    EXPECT_EQ(ReadSkinColour(nullptr), kNoColour);
    // The padding comes first, so short text reads as far as its digits go.
    EXPECT_EQ(ReadSkinColour("#"), 0);
    EXPECT_EQ(ReadSkinColour("#12zz"), 0x12);
}

TEST(SkinValues, ModesPenStylesAndIntegersFallBackQuietly) {
    EXPECT_EQ(ReadSkinMode("TILE"), kSkinTile);
    EXPECT_EQ(ReadSkinMode("Stretch"), kSkinStretch);
    EXPECT_EQ(ReadSkinMode("center"), kSkinStretch);
    EXPECT_EQ(ReadSkinMode(nullptr), kSkinStretch);
    const char* styles[] = {"solid", "DASH", "Dot", "dashdot", "DashDotDot", "null", "insideframe"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(ReadSkinPenStyle(styles[i]), i) << styles[i];
    }
    EXPECT_EQ(ReadSkinPenStyle("wavy"), kPenSolid);
    EXPECT_EQ(ReadSkinInteger("12px"), 12);
    EXPECT_EQ(ReadSkinInteger(" -5"), -5);
    EXPECT_EQ(ReadSkinInteger("wide"), 0);
    EXPECT_EQ(ReadSkinInteger("99999999999999999999"), INT_MAX);
    EXPECT_EQ(ReadSkinInteger("-99999999999999999999"), INT_MIN);
}

TEST(SkinValues, FourSidedListsSpreadOneTwoOrFourValues) {
    SkinSides<int> widths{9, 9, 9, 9};
    ReadSkinWidths("1,2", widths);
    EXPECT_EQ(widths, (SkinSides<int>{1, 2, 1, 2}));
    ReadSkinWidths("3", widths);
    EXPECT_EQ(widths, (SkinSides<int>{3, 3, 3, 3}));
    ReadSkinWidths(" 4 , 5 , 6 ", widths);
    EXPECT_EQ(widths, (SkinSides<int>{4, 5, 4, 5}));
    ReadSkinWidths("1,2,3,4,5", widths);
    EXPECT_EQ(widths, (SkinSides<int>{1, 2, 3, 4}));
    ReadSkinWidths("  ", widths);
    EXPECT_EQ(widths, (SkinSides<int>{1, 2, 3, 4}));
    SkinSides<SkinColour> colours;
    ReadSkinColours("#1,red,#3,#4", colours);
    EXPECT_EQ(colours, (SkinSides<SkinColour>{1, kNoColour, 3, 4}));
}

class SkinFiles : public ::testing::Test {
protected:
    void SetUp() override { GlobalSkin() = DefaultSkin(); }
    void TearDown() override { SetSkinObserver(nullptr); }

    SkinRecord Load(const std::string& body) {
        files.files[kBluePath] = body;
        SkinRecord skin = DefaultSkin();
        loaded = LoadSkinFile(kBluePath, skin);
        return skin;
    }

    test::FakeHostFiles files;
    bool loaded = false;
};

TEST_F(SkinFiles, ApplySkinReadsTheSkinFolderOfTheHostAndTellsTheBars) {
    files.files[kBluePath] = "<skin><rebar background='rebar.bmp' backcolor='#fff' mode='TILE'/>"
                             "<toolbar large='big.bmp' small=''/></skin>";
    int calls = 0;
    bool relayout = false;
    SetSkinObserver([&](const SkinRecord& skin, bool again) {
        ++calls;
        relayout = again;
        EXPECT_TRUE(skin.loaded);
    });
    EXPECT_TRUE(ApplySkin("Blue", true));
    EXPECT_EQ(files.asked.back(), kBluePath);
    const SkinRecord& skin = GlobalSkin();
    EXPECT_EQ(skin.rebar.background, kBlueFolder + "rebar.bmp");
    EXPECT_EQ(skin.rebar.backColor, 0x000FFF);
    EXPECT_EQ(skin.rebar.mode, kSkinTile);
    EXPECT_EQ(skin.toolbarLarge, kBlueFolder + "big.bmp");
    EXPECT_EQ(skin.toolbarSmall, "");
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(relayout);
}

TEST_F(SkinFiles, EachSkinApplyStartsAgainFromTheDefaults) {
    files.files[kBluePath] = "<skin><rebar backcolor='#123'/></skin>";
    ASSERT_TRUE(ApplySkin("Blue", false));
    EXPECT_FALSE(ApplySkin("Missing", false));
    EXPECT_EQ(files.asked.back(), "C:\\Tarvo\\skin\\Missing\\Corvid.xml");
    EXPECT_FALSE(GlobalSkin().loaded);
    EXPECT_EQ(GlobalSkin().rebar.backColor, kNoColour);
    EXPECT_EQ(GlobalSkin().menu.separatorWidth, DefaultSkin().menu.separatorWidth);
}

TEST_F(SkinFiles, APresentElementSetsEveryFieldOfItsGroupTheLaterOneWinning) {
    SkinRecord skin =
        Load("<skin><statusbar background='a.bmp' backcolor='#1' mode='tile' bitmap='b.bmp'/>"
             "<statusbar backcolor='#2'/>"
             "<menu><seperator style='dot'/></menu></skin>");
    ASSERT_TRUE(loaded);
    EXPECT_EQ(skin.statusbar.background, "");
    EXPECT_EQ(skin.statusbar.backColor, 2);
    EXPECT_EQ(skin.statusbar.mode, kSkinStretch);
    EXPECT_EQ(skin.statusbar.bitmap, "");
    // The separator's left-out colour becomes no colour and its width 0, not the defaults.
    EXPECT_EQ(skin.menu.separatorColor, kNoColour);
    EXPECT_EQ(skin.menu.separatorStyle, kPenDot);
    EXPECT_EQ(skin.menu.separatorWidth, 0);
    // Groups the file leaves out keep the defaults.
    EXPECT_EQ(skin.tabActive, DefaultSkin().tabActive);
}

TEST_F(SkinFiles, FourSidedListsKeepTheirValuesWhenLeftOut) {
    SkinRecord skin =
        Load("<skin><tab><active borderwidth='1,2' bordercolor='#a,#b,#c,#d' textcolor='#5'/></tab>"
             "<tab><active backcolor='#6'/></tab>"
             "<rootmenu><hot borderwidth='7'/><normal/></rootmenu></skin>");
    ASSERT_TRUE(loaded);
    EXPECT_EQ(skin.tabActive.borderWidth, (SkinSides<int>{1, 2, 1, 2}));
    EXPECT_EQ(skin.tabActive.borderColor, (SkinSides<SkinColour>{0xa, 0xb, 0xc, 0xd}));
    EXPECT_EQ(skin.tabActive.textColor, kNoColour);
    EXPECT_EQ(skin.tabActive.backColor, 6);
    EXPECT_EQ(skin.tabNormal, DefaultSkin().tabNormal);
    EXPECT_EQ(skin.rootmenuHot.borderWidth, (SkinSides<int>{7, 7, 7, 7}));
    EXPECT_EQ(skin.rootmenuActive, DefaultSkin().rootmenuActive);
}

TEST_F(SkinFiles, ReadsEveryGroupAndTheSeparatorOnlyAsSpeltInTheFile) {
    SkinRecord skin = Load(
        "<?xml version='1.0'?><!DOCTYPE skin><!-- look --><skin>"
        "<tabbar background='t.bmp' backcolor='#111111'/><addressbar bitmap='ad.bmp'/>"
        "<systembar bitmap='sy.bmp'/><minibar mode='tile'/><splash background='sp.bmp'/>"
        "<readingbar bitmap='r.bmp' backcolor='#222222'/><unknown backcolor='#1'/>"
        "<menu><sidebar backcolor='#1'/><active backcolor='#2' textcolor='#3' bordercolor='#4' "
        "borderwidth='2'/><normal backcolor='#5' textcolor='#6'/>"
        "<disabled backcolor='#7' textcolor='#8'/><separator color='#9'/></menu></skin>");
    ASSERT_TRUE(loaded);
    EXPECT_EQ(skin.tabbar.background, kBlueFolder + "t.bmp");
    EXPECT_EQ(skin.tabbar.backColor, 0x111111);
    EXPECT_EQ(skin.addressbarBitmap, kBlueFolder + "ad.bmp");
    EXPECT_EQ(skin.systembarBitmap, kBlueFolder + "sy.bmp");
    EXPECT_EQ(skin.minibar.mode, kSkinTile);
    EXPECT_EQ(skin.splashBackground, kBlueFolder + "sp.bmp");
    EXPECT_EQ(skin.readingbar.bitmap, kBlueFolder + "r.bmp");
    EXPECT_EQ(skin.readingbar.backColor, 0x222222);
    const SkinMenu& menu = skin.menu;
    EXPECT_EQ(menu.sidebarBackColor, 1);
    EXPECT_EQ(menu.activeBackColor, 2);
    EXPECT_EQ(menu.activeTextColor, 3);
    EXPECT_EQ(menu.activeBorderColor, 4);
    EXPECT_EQ(menu.activeBorderWidth, (SkinSides<int>{2, 2, 2, 2}));
    EXPECT_EQ(menu.normalBackColor, 5);
    EXPECT_EQ(menu.normalTextColor, 6);
    EXPECT_EQ(menu.disabledBackColor, 7);
    EXPECT_EQ(menu.disabledTextColor, 8);
    EXPECT_EQ(menu.separatorColor, DefaultSkin().menu.separatorColor);
}

TEST_F(SkinFiles, FindsTheSkinElementAnywhereInTheTree) {
    SkinRecord skin = Load("<pack><info/><look><skin><rebar backcolor='#3'/></skin></look></pack>");
    EXPECT_TRUE(loaded);
    EXPECT_EQ(skin.rebar.backColor, 3);
}

TEST_F(SkinFiles, HostileFilesLeaveTheDefaultsQuietly) {
    const std::string hostile[] = {
        "",
        "no markup at all",
        "<look><rebar backcolor='#123'/></look>",
        std::string("\0\xff\xfe<skin\x01\x02", 9),
        "<skin><rebar backcolor='#123",
    };
    for (const std::string& body : hostile) {
        SkinRecord skin = Load(body);
        if (loaded) {
            // An unterminated file keeps what it reached; the value never closed is still read.
            EXPECT_EQ(skin.rebar.backColor, 0x123);
        } else {
            EXPECT_EQ(skin.rebar, DefaultSkin().rebar);
        }
    }
    SkinRecord missing = DefaultSkin();
    EXPECT_FALSE(LoadSkinFile("C:\\Tarvo\\skin\\None\\Corvid.xml", missing));
    EXPECT_FALSE(missing.loaded);
}

TEST_F(SkinFiles, HugeAttributeValuesAreReadWithoutTrouble) {
    const std::string digits(1 << 20, '7');
    const std::string name(1 << 20, 'n');
    SkinRecord skin =
        Load("<skin><rebar backcolor='#" + digits + "' background='" + name + "' mode='" + name +
             "'/><tab><active borderwidth='" + std::string(1 << 20, ',') + "'/></tab></skin>");
    ASSERT_TRUE(loaded);
    EXPECT_EQ(skin.rebar.backColor, 0x777777);
    EXPECT_EQ(skin.rebar.background.size(), kBlueFolder.size() + name.size());
    EXPECT_EQ(skin.rebar.mode, kSkinStretch);
    EXPECT_EQ(skin.tabActive.borderWidth, (SkinSides<int>{0, 0, 0, 0}));
}

} // namespace
} // namespace corvid
