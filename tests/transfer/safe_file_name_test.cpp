#include "transfer/safe_file_name.h"

#include <gtest/gtest.h>

#include <set>

namespace corvid::transfer {
namespace {

TEST(SafeFileName, PlainNamesStayAsTheyAre) {
    EXPECT_EQ(SafeFileName("song.mp3"), "song.mp3");
    EXPECT_EQ(SafeFileName("My Song (live).mp3"), "My Song (live).mp3");
    EXPECT_EQ(SafeFileName("\xC4\xE3\xBA\xC3.txt"), "\xC4\xE3\xBA\xC3.txt");
    EXPECT_EQ(SafeFileName(".profile"), ".profile");
}

TEST(SafeFileName, NoWayOutOfTheDownloadFolder) {
    EXPECT_EQ(SafeFileName("..\\..\\Windows\\win.ini"), ".._.._Windows_win.ini");
    EXPECT_EQ(SafeFileName("../../etc/passwd"), ".._.._etc_passwd");
    EXPECT_EQ(SafeFileName("C:\\boot.ini"), "C__boot.ini");
    EXPECT_EQ(SafeFileName("\\\\server\\share\\x"), "__server_share_x");
    EXPECT_EQ(SafeFileName("file.txt:stream"), "file.txt_stream");
    EXPECT_EQ(SafeFileName("a<b>c\"d|e?f*g"), "a_b_c_d_e_f_g");
    EXPECT_EQ(SafeFileName(std::string("a\0b\x1f\x7f\r\n.txt", 11)), "a_b____.txt");
    for (auto name : {"..", ".", "...", " . . ", "", "   "})
        EXPECT_EQ(SafeFileName(name), "download") << '"' << name << '"';
}

TEST(SafeFileName, TrailingDotsAndBlanksGo) {
    EXPECT_EQ(SafeFileName("song.mp3. . "), "song.mp3");
    EXPECT_EQ(SafeFileName("  song.mp3"), "song.mp3");
}

TEST(SafeFileName, DeviceNamesAreNotOpened) {
    for (auto name : {"CON", "con.txt", "Nul", "PRN.tar.gz", "aux", "COM1", "com9.mp3", "LPT1",
                      "lpt0.x", "CON .txt", "CONIN$", "conout$.log"})
        EXPECT_EQ(SafeFileName(name), "_" + std::string(name)) << name;
    for (auto name : {"CONSOLE.txt", "COM10", "NULL", "LPT", "ACON"})
        EXPECT_EQ(SafeFileName(name), name) << name;
}

TEST(SafeFileName, LongNamesAreCutKeepingTheExtension) {
    const auto cut = SafeFileName(std::string(1000, 'a') + ".mp3");
    EXPECT_EQ(cut.size(), kMaxFileNameLength);
    EXPECT_EQ(cut.substr(cut.size() - 4), ".mp3");
    const auto longExtension = SafeFileName("a." + std::string(1000, 'b'));
    EXPECT_EQ(longExtension.size(), kMaxFileNameLength);
    EXPECT_EQ(SafeFileName(std::string(300, '.') + "x").size(), kMaxFileNameLength);
}

TEST(SafeFileName, PathsAreJoinedAndKeptApart) {
    EXPECT_EQ(JoinFolder("C:\\down", "a.txt"), "C:\\down\\a.txt");
    EXPECT_EQ(JoinFolder("C:\\down\\", "a.txt"), "C:\\down\\a.txt");
    EXPECT_EQ(JoinFolder("/home/u/down", "a.txt"), "/home/u/down/a.txt");
    EXPECT_EQ(DefaultDownloadFolder("C:\\Program Files\\Tarvo"),
              "C:\\Program Files\\Tarvo\\download");
    EXPECT_EQ(DefaultTempFolder("C:\\Tarvo\\"), "C:\\Tarvo\\temp");
    for (const char* full : {"C:\\down", "d:/down", "\\\\server\\share"})
        EXPECT_TRUE(IsFullFolderPath(full)) << full;
    for (const char* relative : {"", "down", "down\\music", "C:down", "\\down", "\\\\\\x",
                                 ".\\down", "..", "C:", "/home/u"})
        EXPECT_FALSE(IsFullFolderPath(relative)) << relative;

    std::set<std::string> taken;
    for (int i = 0; i < 4; ++i)
        taken.insert(UniquePath("D:\\dl", "a.mp3",
                                [&](const std::string& p) { return taken.count(p) != 0; }));
    EXPECT_EQ(taken, (std::set<std::string>{"D:\\dl\\a.mp3", "D:\\dl\\a (2).mp3",
                                            "D:\\dl\\a (3).mp3", "D:\\dl\\a (4).mp3"}));
    const auto name = SafeFileName(std::string(500, 'x') + ".avi");
    const auto second =
        UniquePath("D:", name, [&](const std::string& p) { return p == "D:\\" + name; });
    EXPECT_EQ(second.size(), 3 + kMaxFileNameLength);
    EXPECT_EQ(second.substr(second.size() - 8), " (2).avi");
    // A name that is nearly all extension is numbered at its end.
    const auto dotted = SafeFileName("ab." + std::string(300, 'c'));
    const auto numbered =
        UniquePath("D:", dotted, [&](const std::string& p) { return p == "D:\\" + dotted; });
    EXPECT_EQ(numbered.size(), 3 + kMaxFileNameLength);
    EXPECT_EQ(numbered.substr(0, 6), "D:\\ab.");
    EXPECT_EQ(numbered.substr(numbered.size() - 4), " (2)");
}

} // namespace
} // namespace corvid::transfer
