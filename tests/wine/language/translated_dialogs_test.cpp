// The plug-in's dialogs as a German user sees them: the shipped translation put where the host
// looks for it, the dialogs opened as the plug-in opens them, and their texts read back.

#include "library/win/library_panel.h"
#include "markup/host_files.h"
#include "markup/language_table.h"
#include "network/win/hosts_panel.h"
#include "network/win/netviews_ids.h"
#include "network/win/options_sheet.h"
#include "search/search_window_model.h"
#include "search/win/search_dialogs.h"
#include "search/win/search_panel.h"
#include "search/win/search_resources.h"
#include "shell/win/customise_dialog.h"
#include "shell_resources.h"
#include "tests/wine/library/fake_file_manager.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"
#include "transfer/win/download_panel.h"
#include "transfer/win/transfer_resources.h"
#include "transfer/win/upload_panel.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace corvid::testing {
namespace {

std::string ProgramFolder() {
    char path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string file(path, length);
    return file.substr(0, file.find_last_of('\\'));
}

// The bytes of the German file exactly as they ship, from the program's resources.
std::string ShippedGerman() {
    HRSRC found = ::FindResourceA(nullptr, "GermanTranslation", MAKEINTRESOURCEA(10)); // RT_RCDATA
    EXPECT_NE(found, nullptr);
    HGLOBAL loaded = found ? ::LoadResource(nullptr, found) : nullptr;
    const char* bytes = loaded ? static_cast<const char*>(::LockResource(loaded)) : nullptr;
    return bytes ? std::string(bytes, ::SizeofResource(nullptr, found)) : std::string();
}

// A language file beside the program, for the life of the object.
class LanguageFile {
public:
    LanguageFile(const std::string& language, const std::string& text) {
        const std::string languages = ProgramFolder() + "\\language";
        folder_ = languages + "\\" + language;
        ::CreateDirectoryA(languages.c_str(), nullptr);
        ::CreateDirectoryA(folder_.c_str(), nullptr);
        std::ofstream(folder_ + "\\Corvid.srml", std::ios::binary) << text;
    }
    ~LanguageFile() {
        ::DeleteFileA((folder_ + "\\Corvid.srml").c_str());
        ::RemoveDirectoryA(folder_.c_str());
        ::RemoveDirectoryA((ProgramFolder() + "\\language").c_str());
    }
    LanguageFile(const LanguageFile&) = delete;
    LanguageFile& operator=(const LanguageFile&) = delete;

private:
    std::string folder_;
};

// A panel site whose texts come from a language loaded from the program's folder.
class TranslatedSite : public FakePanelSite {
public:
    const LanguageTable& Language() const override { return language; }
    LanguageTable language;
};

std::string TabTitle(HWND sheet, int index) {
    char title[128] = {};
    TCITEMA item = {};
    item.mask = TCIF_TEXT;
    item.pszText = title;
    item.cchTextMax = sizeof title;
    ::SendMessageA(PropSheet_GetTabControl(sheet), TCM_GETITEMA, index,
                   reinterpret_cast<LPARAM>(&item));
    return title;
}

std::string Item(HWND dialog, int id) {
    return WindowText(::GetDlgItem(dialog, id));
}

struct ClassSearch {
    const char* className;
    std::vector<HWND> found;
};

BOOL CALLBACK CollectOfClass(HWND child, LPARAM lParam) {
    auto& search = *reinterpret_cast<ClassSearch*>(lParam);
    char name[64] = {};
    ::GetClassNameA(child, name, sizeof name);
    if (::lstrcmpiA(name, search.className) == 0) {
        search.found.push_back(child);
    }
    return TRUE;
}

// Every descendant of `parent` of one window class, in creation order.
std::vector<HWND> OfClass(HWND parent, const char* className) {
    ClassSearch search{className, {}};
    ::EnumChildWindows(parent, &CollectOfClass, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

std::vector<std::string> TextsOfClass(HWND parent, const char* className) {
    std::vector<std::string> texts;
    for (HWND child : OfClass(parent, className)) {
        texts.push_back(WindowText(child));
    }
    return texts;
}

HWND FirstList(HWND parent) {
    const std::vector<HWND> lists = OfClass(parent, WC_LISTVIEWA);
    return lists.empty() ? nullptr : lists.front();
}

bool Contains(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

class TranslatedDialogsTest : public ::testing::Test {
protected:
    void SetUp() override {
        InstallHostFiles(&files_);
        ASSERT_TRUE(site_.language.Load("de"));
        ASSERT_TRUE(corvid::Language().Load("de"));
        char temp[MAX_PATH] = {};
        ::GetTempPathA(sizeof temp, temp);
        ::SetEnvironmentVariableA("CORVID_CONFIG_BASE",
                                  (std::string(temp) + "corvid-translated-dialogs").c_str());
    }
    void TearDown() override {
        corvid::Language().Load("");
        InstallHostFiles(nullptr);
        ::SetEnvironmentVariableA("CORVID_CONFIG_BASE", nullptr);
    }

    StdioHostFiles files_{ProgramFolder()};
    LanguageFile german_{"de", ShippedGerman()};
    TranslatedSite site_;
};

TEST_F(TranslatedDialogsTest, TheOptionsSheetShowsBothPagesAndTheirTabsInGerman) {
    HWND sheet = network::ShowOptionsSheetModeless(site_, network::OptionsPages());
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(WindowText(sheet), "Corvid-Optionen");
    EXPECT_EQ(TabTitle(sheet, 0), "Netzwerk");
    EXPECT_EQ(TabTitle(sheet, 1), "Download/Upload");

    HWND network = PropSheet_GetCurrentPageHwnd(sheet);
    EXPECT_EQ(Item(network, IDC_AUTO_ONLINE), "Beim Start mit dem Gnutella-Netz verbinden");
    EXPECT_EQ(Item(network, IDC_ADVANCED_GROUP), "Erweiterte Optionen");
    EXPECT_EQ(Item(network, IDC_PORT_LABEL), "Gnutella-Port:");
    char node[64] = {};
    ::SendDlgItemMessageA(network, IDC_NODE_TYPE, CB_GETLBTEXT, 0, reinterpret_cast<LPARAM>(node));
    EXPECT_STREQ(node, "automatisch");
    PumpPending();
    SaveScreenshot("german_options_network");

    PropSheet_SetCurSel(sheet, nullptr, 1);
    PumpPending();
    HWND transfers = PropSheet_GetCurrentPageHwnd(sheet);
    ASSERT_NE(transfers, network);
    EXPECT_EQ(Item(transfers, IDC_DOWNLOAD_FOLDER_LABEL),
              "Ordner f\xFCr heruntergeladene Dateien:");
    EXPECT_EQ(Item(transfers, IDC_TEMP_BROWSE), "Durchsuchen...");
    EXPECT_EQ(Item(transfers, IDC_UPLOAD_LIMIT_LABEL), "Gesamt-Upload bei Drosselung:");
    // The values are filled in after the texts, so none is lost to a relabelling.
    EXPECT_FALSE(Item(transfers, IDC_DOWNLOAD_FOLDER).empty());
    EXPECT_FALSE(Item(transfers, IDC_UPLOAD_LIMIT).empty());
    SaveScreenshot("german_options_transfers");
    ::DestroyWindow(sheet);
}

TEST_F(TranslatedDialogsTest, APageTabTakesTheTitleTheLanguageGivesItsDialog) {
    LanguageFile titles("testtab",
                        "<language><define><item id=\"IDD_DOWNLOAD_UPLOAD\" value=\"212\"/>"
                        "</define><dialog id=\"IDD_DOWNLOAD_UPLOAD\" caption=\"Transfers\"/>"
                        "</language>");
    ASSERT_TRUE(site_.language.Load("testtab"));
    HWND sheet = network::ShowOptionsSheetModeless(site_, network::OptionsPages());
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(TabTitle(sheet, 0), "Network");
    EXPECT_EQ(TabTitle(sheet, 1), "Transfers");
    ::DestroyWindow(sheet);
}

TEST_F(TranslatedDialogsTest, TheSearchDialogsSpeakGerman) {
    char temp[MAX_PATH] = {};
    ::GetTempPathA(MAX_PATH, temp);
    const std::string history = std::string(temp) + "corvid_bhistory_german.txt";
    std::ofstream(history, std::ios::binary) << "192.168.1.20:6346\r\n";
    search::BrowseHostDialog browse(site_.language, history);
    HWND dialog = browse.CreateModeless(site_.MainWindow());
    ASSERT_TRUE(dialog);
    EXPECT_EQ(WindowText(dialog), "Host-Adresse eingeben");
    EXPECT_EQ(Item(dialog, IDC_BROWSE_CLEAR_HISTORY), "Verlauf &l\xF6schen");
    EXPECT_EQ(Item(dialog, IDCANCEL), "&Abbrechen");
    ::ShowWindow(dialog, SW_SHOW);
    PumpPending();
    SaveScreenshot("german_browse_host");
    ::DestroyWindow(dialog);
    ::DeleteFileA(history.c_str());

    search::FileExistsDialog exists(site_.language, "C:\\Freigaben\\Nachtzug.mp3");
    dialog = exists.CreateModeless(site_.MainWindow());
    ASSERT_TRUE(dialog);
    EXPECT_EQ(WindowText(dialog), "Tarvo Explorer");
    EXPECT_EQ(Item(dialog, IDC_FILE_EXISTS_TEXT),
              "Die Datei ist bereits auf Ihrer Festplatte vorhanden:");
    ::ShowWindow(dialog, SW_SHOW);
    PumpPending();
    SaveScreenshot("german_file_exists");
    ::DestroyWindow(dialog);

    ResultGroup group;
    group.sha1 = "S1";
    ResultSource source;
    source.name = "Nachtzug.mp3";
    source.host = "10.0.0.2";
    source.port = 7001;
    source.size = 1234567;
    group.sources.push_back(source);
    search::PropertiesDialog properties(site_.language, group, -1);
    dialog = properties.CreateModeless(site_.MainWindow());
    ASSERT_TRUE(dialog);
    EXPECT_EQ(WindowText(dialog), "Eigenschaften");
    EXPECT_EQ(Item(dialog, IDCANCEL), "&Schlie\xDF"
                                      "en");
    HWND list = ::GetDlgItem(dialog, IDC_PROPERTIES_LIST);
    EXPECT_EQ(ListViewText(list, 0, 0), "Name");
    EXPECT_EQ(ListViewText(list, 1, 0), "Gr\xF6\xDF"
                                        "e");
    ::ShowWindow(dialog, SW_SHOW);
    PumpPending();
    SaveScreenshot("german_result_properties");
    ::DestroyWindow(dialog);
}

TEST_F(TranslatedDialogsTest, TheToolbarCustomiseDialogSpeaksGerman) {
    shell::CustomiseDialog customise({34001, 34002});
    HWND dialog = customise.CreateModeless(site_.MainWindow());
    ASSERT_TRUE(dialog);
    EXPECT_EQ(WindowText(dialog), "Symbolleiste anpassen");
    EXPECT_EQ(Item(dialog, IDC_RESET), "&Zur\xFC"
                                       "cksetzen");
    ::ShowWindow(dialog, SW_SHOW);
    PumpPending();
    SaveScreenshot("german_customise");
    ::SendMessageA(dialog, WM_COMMAND, IDCANCEL, 0);
}

TEST_F(TranslatedDialogsTest, ThePanelsTitleTheirColumnsAndLabelsInGerman) {
    std::unique_ptr<shell::Panel> search = search::MakeSearchPanel(site_);
    ASSERT_TRUE(site_.Adopt(*search));
    PumpPending();
    EXPECT_TRUE(Contains(TextsOfClass(search->Window(), "Static"), "Suchbegriff:"));
    EXPECT_TRUE(Contains(TextsOfClass(search->Window(), "Button"), "&Suchen"));
    SaveScreenshot("german_search_panel");
    search.reset();

    std::unique_ptr<shell::Panel> hosts = network::MakeHostsPanel(site_);
    ASSERT_TRUE(site_.Adopt(*hosts));
    PumpPending();
    std::string title;
    ASSERT_TRUE(ListViewColumnTitle(FirstList(hosts->Window()), 4, title));
    EXPECT_EQ(title, "Empfangen");
    SaveScreenshot("german_hosts_panel");
    hosts.reset();

    std::unique_ptr<shell::Panel> uploads = transfer::win::MakeUploadPanel(site_);
    ASSERT_TRUE(site_.Adopt(*uploads));
    PumpPending();
    ASSERT_TRUE(ListViewColumnTitle(FirstList(uploads->Window()), 2, title));
    EXPECT_EQ(title, "Fortschritt");
    SaveScreenshot("german_upload_panel");
    uploads.reset();

    std::unique_ptr<shell::Panel> downloads = transfer::win::MakeDownloadPanel(site_);
    ASSERT_TRUE(site_.Adopt(*downloads));
    PumpPending();
    EXPECT_GE(ColumnOf(FirstList(downloads->Window()), "Gr\xF6\xDF"
                                                       "e"),
              0);
    SaveScreenshot("german_download_panel");
    // The columns beyond the first screen, whose titles must fit their default widths too.
    ::SendMessageA(FirstList(downloads->Window()), LVM_SCROLL, 700, 0);
    PumpPending();
    SaveScreenshot("german_download_columns");
}

TEST_F(TranslatedDialogsTest, TheLibraryLabelsItsFoldersFilesAndOptionsInGerman) {
    win::ComPtr<FakeFileManager> manager = FakeFileManager::Make();
    manager->folders = {"C:\\Freigaben\\Musik"};
    manager->files = {
        {"Nachtzug.mp3", "C:\\Freigaben\\Musik\\Nachtzug.mp3", 4518273,
         "QLFYWY2RI5WZCTEP6MJKR5CAFGP7FQ5X", 100, false},
        {"Album.flac", "C:\\Freigaben\\Musik\\Album.flac", 312000000, "", 42, false},
        {"Vortrag.ogg", "C:\\Downloads\\Vortrag.ogg", 1200, "", 0, true},
    };
    site_.fileManager = manager.get();
    std::unique_ptr<shell::Panel> library = library::MakeLibraryPanel(site_);
    ASSERT_TRUE(site_.Adopt(*library));
    PumpPending();
    const std::vector<std::string> buttons = TextsOfClass(library->Window(), "Button");
    EXPECT_TRUE(Contains(buttons, "&Hinzuf\xFCgen..."));
    EXPECT_TRUE(Contains(buttons, "Fertige Downloads freigeben"));
    SaveScreenshot("german_library_panel");
    library.reset();
    site_.fileManager = nullptr;
}

} // namespace
} // namespace corvid::testing
