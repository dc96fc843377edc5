#include "fake_host_files.h"
#include "markup/language_table.h"

#include <gtest/gtest.h>

#include <string>

namespace corvid {
namespace {

std::string FileOf(const std::string& language) {
    return "C:\\Tarvo\\language\\" + language + "\\Corvid.srml";
}

const char* const kGerman =
    "<?xml version='1.0'?>\n"
    "<language name='Deutsch'>\n"
    "  <define>\n"
    "    <item id='IDS_OFFLINE' value='32949'/>\n"
    "    <item id='IDS_DELETE' value='32950'/>\n"
    "    <item id='IDS_NAME' value='33006'/>\n"
    "    <item id='IDD_NETWORK' value='219'/>\n"
    "    <item id='IDC_PORT' value='1001'/>\n"
    "    <item id='IDC_HOSTS' value='1002'/>\n"
    "    <item value='33007'/>\n"
    "  </define>\n"
    "  <define><item id='IDS_SIZE' value='33007'/><item id='IDS_STATUS' value='33024'/></define>\n"
    "  <string>\n"
    "    <item id='IDS_OFFLINE' value='Corvid ist offline &amp; getrennt'/>\n"
    "    <item id='IDS_OFFLINE' value='second, never used'/>\n"
    "    <item id='IDS_NAME'/>\n"
    "  </string>\n"
    "  <string><item id='IDS_STATUS' value='Zustand'/></string>\n"
    "  <dialog id='IDD_NETWORK' caption='Netzwerk' size='300,200'>\n"
    "    <item id='IDC_PORT' position='10,20' size='50,12' label='Anschluss'/>\n"
    "    <item id='IDC_HOSTS' position='5' size='1,2,3'/>\n"
    "    <item id='IDC_UNKNOWN' label='nobody'/>\n"
    "  </dialog>\n"
    "  <dialog id='IDD_NETWORK' caption='second, never used'/>\n"
    "</language>\n";

class Languages : public ::testing::Test {
protected:
    std::string Text(std::uint32_t id) {
        std::string text;
        EXPECT_TRUE(table.LoadText(id, text)) << id;
        return text;
    }

    test::FakeHostFiles files;
    LanguageTable table;
};

TEST_F(Languages, WithoutALanguageEveryTextIsBuiltIn) {
    EXPECT_EQ(Text(32949), "Corvid is currently offline, do you want to connect now?");
    std::string text = "untouched";
    EXPECT_FALSE(table.LoadText(1, text));
    EXPECT_TRUE(table.FindName(32949).empty());
    EXPECT_FALSE(table.FindNumber("IDC_PORT").has_value());
    EXPECT_FALSE(table.ChangesForDialog(219).caption.has_value());
}

TEST_F(Languages, TranslatesByNameAndFallsBackForEachMissingPiece) {
    files.files[FileOf("de")] = kGerman;
    ASSERT_TRUE(table.Load("de"));
    EXPECT_EQ(table.folder(), "C:\\Tarvo\\language\\de\\");
    // First string item wins; references stay as written.
    EXPECT_EQ(Text(32949), "Corvid ist offline &amp; getrennt");
    // A later `string` element is searched when the first has no match.
    EXPECT_EQ(Text(33024), "Zustand");
    // Defined but never translated, a string item without value, an unnamed define, no define.
    EXPECT_EQ(Text(32950), "Are you sure to delete all selected items?");
    EXPECT_EQ(Text(33006), "Name");
    EXPECT_EQ(Text(33007), "Size");
    EXPECT_EQ(Text(33008), "Host");
}

TEST_F(Languages, NamesAndNumbersComeFromTheFirstMatchingDefine) {
    files.files[FileOf("de")] = kGerman;
    ASSERT_TRUE(table.Load("de"));
    EXPECT_EQ(table.FindName(219), "IDD_NETWORK");
    EXPECT_EQ(table.FindName(33007), ""); // the first item for 33007 has no id
    EXPECT_EQ(table.FindName(4), "");
    EXPECT_EQ(table.FindNumber("IDC_HOSTS"), 1002);
    EXPECT_FALSE(table.FindNumber("IDC_UNKNOWN").has_value());
}

TEST_F(Languages, DialogChangesTakeOnlyWhatParses) {
    files.files[FileOf("de")] = kGerman;
    ASSERT_TRUE(table.Load("de"));
    DialogChanges changes = table.ChangesForDialog(219);
    EXPECT_EQ(changes.caption, "Netzwerk");
    EXPECT_EQ(changes.size, std::make_pair(300, 200));
    ASSERT_EQ(changes.controls.size(), 2u);
    EXPECT_EQ(changes.controls[0].id, 1001);
    EXPECT_EQ(changes.controls[0].position, std::make_pair(10, 20));
    EXPECT_EQ(changes.controls[0].size, std::make_pair(50, 12));
    EXPECT_EQ(changes.controls[0].label, "Anschluss");
    EXPECT_EQ(changes.controls[1].id, 1002);
    EXPECT_FALSE(changes.controls[1].position.has_value());
    EXPECT_EQ(changes.controls[1].size, std::make_pair(1, 2)); // "1,2,3" reads as "%d,%d" does
    EXPECT_TRUE(table.ChangesForDialog(32949).controls.empty());
}

// Records what ApplyToDialog does to a dialog that has controls 1001 and 1003.
class RecordingDialog : public DialogSurface {
public:
    void SetCaption(const std::string& caption) override { log += "caption " + caption + ";"; }
    void SetSize(int w, int h) override { log += Pair("size", w, h); }
    bool HasControl(int id) const override { return id == 1001 || id == 1003; }
    void MoveControl(int id, int x, int y) override {
        log += Pair("move " + std::to_string(id), x, y);
    }
    void ResizeControl(int id, int w, int h) override {
        log += Pair("resize " + std::to_string(id), w, h);
    }
    void SetControlText(int id, const std::string& text) override {
        log += "text " + std::to_string(id) + " " + text + ";";
    }
    std::string log;

private:
    static std::string Pair(const std::string& what, int a, int b) {
        return what + " " + std::to_string(a) + "," + std::to_string(b) + ";";
    }
};

TEST_F(Languages, ApplyToDialogSkipsControlsTheDialogLacks) {
    files.files[FileOf("de")] = kGerman;
    ASSERT_TRUE(table.Load("de"));
    RecordingDialog dialog;
    table.ApplyToDialog(dialog, 219);
    EXPECT_EQ(
        dialog.log,
        "caption Netzwerk;size 300,200;move 1001 10,20;resize 1001 50,12;text 1001 Anschluss;");
    RecordingDialog untouched;
    table.ApplyToDialog(untouched, 4);
    EXPECT_EQ(untouched.log, "");
}

TEST_F(Languages, ADialogSizeOfOneNumberChangesNothing) {
    files.files[FileOf("fr")] =
        "<l><define><item id='D' value='7'/></define><dialog id='D' size='200'/></l>";
    ASSERT_TRUE(table.Load("fr"));
    DialogChanges changes = table.ChangesForDialog(7);
    EXPECT_FALSE(changes.size.has_value());
    EXPECT_FALSE(changes.caption.has_value());
}

TEST(NumberPairs, ReadLikePercentDCommaPercentD) {
    EXPECT_EQ(ReadNumberPair("1,2"), std::make_pair(1, 2));
    EXPECT_EQ(ReadNumberPair(" -3, +4"), std::make_pair(-3, 4));
    EXPECT_EQ(ReadNumberPair("5,6,7"), std::make_pair(5, 6));
    EXPECT_FALSE(ReadNumberPair("200").has_value());
    EXPECT_FALSE(ReadNumberPair("1 ,2").has_value());
    EXPECT_FALSE(ReadNumberPair("x,1").has_value());
    EXPECT_FALSE(ReadNumberPair("1,").has_value());
    EXPECT_FALSE(ReadNumberPair(nullptr).has_value());
}

TEST_F(Languages, ARegionalLanguageFallsBackToItsFirstPart) {
    files.files[FileOf("pt")] = "<l><define><item id='A' value='33006'/></define>"
                                "<string><item id='A' value='Nome'/></string></l>";
    ASSERT_TRUE(table.Load("pt-br"));
    EXPECT_EQ(files.asked, (std::vector<std::string>{FileOf("pt-br"), FileOf("pt")}));
    EXPECT_EQ(table.language(), "pt");
    EXPECT_EQ(Text(33006), "Nome");

    files.asked.clear();
    EXPECT_FALSE(table.Load("a-b-c"));
    EXPECT_EQ(files.asked, (std::vector<std::string>{FileOf("a-b-c"), FileOf("a")}));
    EXPECT_FALSE(table.loaded());
    EXPECT_EQ(Text(33006), "Name");
}

TEST_F(Languages, AnEmptyRootCountsAsAFailedLoad) {
    files.files[FileOf("en-us")] = "<lang/>";
    files.files[FileOf("en")] = "<lang><define/></lang>";
    ASSERT_TRUE(table.Load("en-us"));
    EXPECT_EQ(table.language(), "en");
}

TEST_F(Languages, HostileFilesFallBackToTheStringTableQuietly) {
    const std::string hostile[] = {
        "",
        "<lang/>",
        "plain text",
        std::string("\0<lang><define/></lang>", 23),
        "\x89PNG\r\n\x1a\n\xff\xfe<<<>>>",
        "<lang><define><item id='X' value='32949'/></define><string><item id='X' value='unterm",
        "<lang><define><item id='" + std::string(1 << 20, 'N') +
            "' value='32949'/></define></lang>",
    };
    for (const std::string& body : hostile) {
        files.files[FileOf("xx")] = body;
        table.Load("xx");
        EXPECT_EQ(Text(32950), "Are you sure to delete all selected items?");
        std::string text;
        EXPECT_TRUE(table.LoadText(32949, text));
    }
    // The unterminated value is still read as far as the file goes.
    files.files[FileOf("xx")] = hostile[5];
    ASSERT_TRUE(table.Load("xx"));
    EXPECT_EQ(Text(32949), "unterm");
}

TEST_F(Languages, AFailedLoadDropsThePreviousLanguage) {
    files.files[FileOf("de")] = kGerman;
    ASSERT_TRUE(table.Load("de"));
    EXPECT_FALSE(table.Load("missing"));
    EXPECT_EQ(Text(32949), "Corvid is currently offline, do you want to connect now?");
}

} // namespace
} // namespace corvid
