// The translations and skins that ship beside the host: each loads, names only texts and controls
// the plug-in has, and changes what it claims to change.

#include "markup/host_files.h"
#include "markup/language_table.h"
#include "markup/skin.h"
#include "resources/string_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace corvid {
namespace {

// The folder the files ship from stands in for the host's folder: its "language" and "skin"
// folders are laid out as they are installed.
class ShippedFiles : public ::testing::Test {
protected:
    void SetUp() override { InstallHostFiles(&files_); }
    void TearDown() override { InstallHostFiles(nullptr); }

    // The plug-in builds Windows paths; here they are read with the separators of this system.
    class SlashedFiles : public HostFiles {
    public:
        std::string HostFolder() const override { return CORVID_RESOURCES; }
        std::optional<std::string> ReadFile(const std::string& path) const override {
            std::string local = path;
            std::replace(local.begin(), local.end(), '\\', '/');
            return StdioHostFiles(CORVID_RESOURCES).ReadFile(local);
        }
    };
    SlashedFiles files_;
};

// The dialog and control ids of the customise dialog, and the dialog's OK and Cancel.
const std::set<int> kDialogIds = {36200, 1001, 1002, 1003, 1004, 1005, 1006,
                                  1007,  1008, 1009, 1010, 1,    2};

TEST_F(ShippedFiles, EveryTranslationLoadsAndNamesOnlyTextsAndControlsThePlugInHas) {
    for (const char* language : {"de", "pt"}) {
        SCOPED_TRACE(language);
        LanguageTable table;
        ASSERT_TRUE(table.Load(language));
        int translated = 0;
        for (const BuiltinString& builtin : BuiltinStrings()) {
            std::string text;
            ASSERT_TRUE(table.LoadText(builtin.id, text));
            if (text != builtin.text) {
                ++translated;
                EXPECT_FALSE(table.FindName(static_cast<int>(builtin.id)).empty());
            }
        }
        EXPECT_GT(translated, 60);
        for (std::uint32_t id : {36101u, 36121u, 32960u, 32949u, 36171u}) {
            std::string text;
            table.LoadText(id, text);
            EXPECT_NE(text, BuiltinText(id)) << id;
        }
        const DialogChanges customise = table.ChangesForDialog(36200);
        ASSERT_TRUE(customise.caption.has_value());
        EXPECT_GE(customise.controls.size(), 8u);
        for (const DialogChanges::Control& control : customise.controls) {
            EXPECT_TRUE(kDialogIds.count(control.id)) << control.id;
            EXPECT_TRUE(control.label.has_value());
        }
    }
}

TEST_F(ShippedFiles, BrazilianPortugueseFallsBackToPortuguese) {
    LanguageTable table;
    ASSERT_TRUE(table.Load("pt-br"));
    EXPECT_EQ(table.language(), "pt");
    std::string text;
    table.LoadText(36101, text);
    EXPECT_EQ(text, "&Conectar");
    ASSERT_FALSE(table.Load("xx-yy"));
    table.LoadText(36101, text);
    EXPECT_EQ(text, "&Connect");
}

TEST_F(ShippedFiles, TheOceanSkinColoursTheBarsAndTabs) {
    SkinRecord skin = DefaultSkin();
    ASSERT_TRUE(LoadSkinFile(std::string(CORVID_RESOURCES) + "\\skin\\Ocean\\Corvid.xml", skin));
    EXPECT_EQ(skin.tabbar.backColor, 0xc9dcf0);
    EXPECT_EQ(skin.rebar.backColor, 0xdce8f5);
    EXPECT_EQ(skin.tabActive.textColor, 0x12395f);
    EXPECT_EQ(skin.tabActive.borderWidth, (SkinSides<int>{1, 1, 1, 1}));
    EXPECT_EQ(skin.menu.separatorColor, 0x8fb0d4);
}

} // namespace
} // namespace corvid
