// The shipped translations are complete: every built-in text translated with the same printf
// directives and accelerators, every dialog of the plug-in re-captioned with every
// labelled control named by an id that control really has, in clean Windows-1252.

#include "markup/host_files.h"
#include "markup/language_table.h"
#include "markup/xml.h"
#include "resources/string_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace corvid {
namespace {

const char* const kLanguages[] = {"de", "pt"};

// The resource scripts of the plug-in's dialogs and the headers that number their ids.
const char* const kScripts[] = {"resources/shell.rc", "search/win/search.rc",
                                "network/win/netviews.rc", "transfer/win/transfer.rc"};
const char* const kHeaders[] = {"resources/shell_resources.h", "search/win/search_resources.h",
                                "network/win/netviews_ids.h", "transfer/win/transfer_resources.h"};

std::string ReadSource(const std::string& relative) {
    std::ifstream in(std::string(CORVID_SOURCE_DIR) + "/" + relative, std::ios::binary);
    EXPECT_TRUE(in.good()) << relative;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The plug-in builds Windows paths below the host folder; here the source tree's "resources"
// folder is the host folder, read with this system's separators.
class SourceHostFiles : public HostFiles {
public:
    std::string HostFolder() const override { return "resources"; }
    std::optional<std::string> ReadFile(const std::string& path) const override {
        std::string local = path;
        std::replace(local.begin(), local.end(), '\\', '/');
        return StdioHostFiles(CORVID_SOURCE_DIR)
            .ReadFile(std::string(CORVID_SOURCE_DIR) + "/" + local);
    }
};

struct DialogControl {
    std::string symbol;
    std::string text; // empty for controls that show no text of their own
};

struct ResourceDialog {
    std::string caption;
    std::vector<DialogControl> controls;
};

// The statements that make a control; other lines of a dialog's body continue one.
const std::set<std::string> kStatements = {
    "LTEXT",    "RTEXT",   "CTEXT",           "GROUPBOX",    "PUSHBUTTON", "DEFPUSHBUTTON",
    "CHECKBOX", "CONTROL", "AUTOCHECKBOX",    "RADIOBUTTON", "EDITTEXT",   "COMBOBOX",
    "LISTBOX",  "ICON",    "AUTORADIOBUTTON", "SCROLLBAR"};

// The first comma-separated field of `rest`, blanks trimmed, after an optional quoted text.
std::string FieldAfterText(std::string rest, std::string* text) {
    auto trim = [](std::string s) {
        const auto first = s.find_first_not_of(" \t");
        const auto last = s.find_last_not_of(" \t\r");
        return first == std::string::npos ? std::string() : s.substr(first, last - first + 1);
    };
    rest = trim(rest);
    if (!rest.empty() && rest[0] == '"') {
        const auto close = rest.find('"', 1);
        *text = rest.substr(1, close - 1);
        rest = trim(rest.substr(rest.find(',', close) + 1));
    }
    return trim(rest.substr(0, rest.find(',')));
}

// The DIALOGEX blocks of the scripts: caption and controls, ids as the script spells them.
std::map<std::string, ResourceDialog> ReadDialogs() {
    std::map<std::string, ResourceDialog> dialogs;
    for (const char* script : kScripts) {
        std::istringstream lines(ReadSource(script));
        std::string line;
        ResourceDialog* open = nullptr;
        bool inBody = false;
        while (std::getline(lines, line)) {
            std::istringstream words(line);
            std::string first;
            std::string second;
            words >> first >> second;
            if (second == "DIALOGEX") {
                open = &dialogs[first];
                inBody = false;
            } else if (open && first == "CAPTION") {
                open->caption = line.substr(line.find('"') + 1);
                open->caption.erase(open->caption.rfind('"'));
            } else if (open && first == "BEGIN") {
                inBody = true;
            } else if (open && first == "END") {
                open = nullptr;
            } else if (open && inBody && kStatements.count(first)) {
                DialogControl control;
                control.symbol =
                    FieldAfterText(line.substr(line.find(first) + first.size()), &control.text);
                open->controls.push_back(control);
            }
        }
    }
    return dialogs;
}

// Every "#define NAME number" of the headers, and the buttons every dialog may have.
std::map<std::string, int> ReadNumbers() {
    std::map<std::string, int> numbers = {{"IDOK", 1}, {"IDCANCEL", 2}, {"-1", -1}};
    for (const char* header : kHeaders) {
        std::istringstream lines(ReadSource(header));
        std::string line;
        while (std::getline(lines, line)) {
            std::istringstream words(line);
            std::string directive;
            std::string name;
            int number = 0;
            if (words >> directive >> name >> number && directive == "#define") {
                numbers[name] = number;
            }
        }
    }
    return numbers;
}

// The printf directives of a text in order, "%%" included: what a formatting caller reads.
std::vector<std::string> Directives(const std::string& text) {
    std::vector<std::string> found;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            continue;
        }
        std::size_t end = i + 1;
        while (end < text.size() && std::strchr("-+ #0123456789.hlLqjzt", text[end])) {
            ++end;
        }
        found.push_back(text.substr(i, end - i + 1));
        i = end;
    }
    return found;
}

// The accelerator letter of a label ("&&" is a literal ampersand), or 0.
char Accelerator(const std::string& label, int* count) {
    char letter = 0;
    *count = 0;
    for (std::size_t i = 0; i + 1 < label.size(); ++i) {
        if (label[i] == '&' && label[i + 1] == '&') {
            ++i;
        } else if (label[i] == '&') {
            ++*count;
            letter = static_cast<char>(std::tolower(static_cast<unsigned char>(label[i + 1])));
        }
    }
    return letter;
}

class Translations : public ::testing::Test {
protected:
    void SetUp() override { InstallHostFiles(&files_); }
    void TearDown() override { InstallHostFiles(nullptr); }

    static std::string FileText(const char* language) {
        return ReadSource(std::string("resources/language/") + language + "/Corvid.srml");
    }

    // The names that the file's `string` elements give a value.
    static std::set<std::string> TranslatedNames(const std::string& file) {
        XmlDocument document;
        document.ParseCopy(file, kXmlStandardReader);
        std::set<std::string> names;
        XmlBranch root = document.Root().FindFirst("language");
        for (std::uint32_t g = 0; g < root.ChildCount(); ++g) {
            XmlBranch group = root.Child(g);
            for (std::uint32_t i = 0; group.MatchesName("string") && i < group.ChildCount(); ++i) {
                XmlBranch item = group.Child(i);
                if (item.Attribute("id") && item.Attribute("value")) {
                    names.insert(item.Attribute("id")->value);
                }
            }
        }
        return names;
    }

    SourceHostFiles files_;
};

TEST_F(Translations, EveryBuiltInTextIsTranslatedWithTheSameDirectivesAndAccelerators) {
    for (const char* language : kLanguages) {
        SCOPED_TRACE(language);
        LanguageTable table;
        ASSERT_TRUE(table.Load(language));
        const std::set<std::string> translated = TranslatedNames(FileText(language));
        for (const BuiltinString& builtin : BuiltinStrings()) {
            SCOPED_TRACE(builtin.id);
            const std::string english(builtin.text);
            const std::string name = table.FindName(static_cast<int>(builtin.id));
            ASSERT_FALSE(name.empty());
            EXPECT_TRUE(translated.count(name)) << name;
            std::string text;
            ASSERT_TRUE(table.LoadText(builtin.id, text));
            EXPECT_EQ(Directives(text), Directives(english)) << text;
            int englishMarks = 0;
            int marks = 0;
            Accelerator(english, &englishMarks);
            Accelerator(text, &marks);
            EXPECT_EQ(marks, englishMarks) << text;
        }
    }
}

TEST_F(Translations, EachNumberHasOneNameSoTextsAndControlsAreFoundUnambiguously) {
    for (const char* language : kLanguages) {
        SCOPED_TRACE(language);
        LanguageTable table;
        ASSERT_TRUE(table.Load(language));
        XmlDocument document;
        document.ParseCopy(FileText(language), kXmlStandardReader);
        XmlBranch define = document.Root().FindFirst("language").FindFirst("define");
        std::set<std::string> names;
        for (std::uint32_t i = 0; i < define.ChildCount(); ++i) {
            XmlBranch item = define.Child(i);
            if (item.Kind() != kXmlElement) {
                continue;
            }
            ASSERT_TRUE(item.Attribute("id") && item.Attribute("value"));
            const std::string name = item.Attribute("id")->value;
            EXPECT_TRUE(names.insert(name).second) << name;
            EXPECT_EQ(table.FindName(std::stoi(item.Attribute("value")->value)), name);
        }
    }
}

TEST_F(Translations, EveryDialogIsTranslatedThroughIdsItsControlsReallyHave) {
    const std::map<std::string, ResourceDialog> dialogs = ReadDialogs();
    const std::map<std::string, int> numbers = ReadNumbers();
    ASSERT_GE(dialogs.size(), 7u);
    for (const char* language : kLanguages) {
        SCOPED_TRACE(language);
        LanguageTable table;
        ASSERT_TRUE(table.Load(language));
        for (const auto& [symbol, dialog] : dialogs) {
            SCOPED_TRACE(symbol);
            ASSERT_TRUE(numbers.count(symbol));
            const int resourceId = numbers.at(symbol);
            EXPECT_EQ(table.FindNumber(symbol), resourceId);
            const DialogChanges changes = table.ChangesForDialog(resourceId);
            // The product's name needs no translation.
            if (dialog.caption != "Tarvo Explorer") {
                EXPECT_TRUE(changes.caption.has_value());
            }
            std::map<int, const DialogChanges::Control*> changed;
            for (const DialogChanges::Control& control : changes.controls) {
                changed[control.id] = &control;
            }
            std::set<int> present;
            std::map<char, std::string> accelerators;
            for (const DialogControl& control : dialog.controls) {
                ASSERT_TRUE(numbers.count(control.symbol)) << control.symbol;
                const int id = numbers.at(control.symbol);
                present.insert(id);
                if (control.text.empty()) {
                    continue;
                }
                // A control that shows text must be reachable by the file, so never -1.
                const auto found = changed.find(id);
                ASSERT_NE(found, changed.end()) << control.symbol << " \"" << control.text << "\"";
                ASSERT_TRUE(found->second->label.has_value()) << control.symbol;
                const std::string& label = *found->second->label;
                int englishMarks = 0;
                int marks = 0;
                Accelerator(control.text, &englishMarks);
                const char letter = Accelerator(label, &marks);
                EXPECT_EQ(marks, englishMarks) << label;
                if (letter) {
                    EXPECT_TRUE(accelerators.emplace(letter, label).second)
                        << label << " and " << accelerators[letter] << " share one key";
                }
            }
            for (const DialogChanges::Control& control : changes.controls) {
                EXPECT_TRUE(present.count(control.id)) << control.id;
            }
        }
        // A dialog element naming no dialog of ours would be dead weight or a typo.
        XmlDocument document;
        document.ParseCopy(FileText(language), kXmlStandardReader);
        XmlBranch root = document.Root().FindFirst("language");
        for (std::uint32_t i = 0; i < root.ChildCount(); ++i) {
            if (root.Child(i).Kind() == kXmlElement && root.Child(i).MatchesName("dialog")) {
                const std::string name = root.Child(i).Attribute("id")->value;
                EXPECT_TRUE(dialogs.count(name)) << name;
            }
        }
    }
}

TEST_F(Translations, FilesAreCleanWindows1252WithoutUtf8Sequences) {
    for (const char* language : kLanguages) {
        SCOPED_TRACE(language);
        const std::string file = FileText(language);
        EXPECT_NE(file.find("encoding=\"windows-1252\""), std::string::npos);
        for (std::size_t i = 0; i < file.size(); ++i) {
            const auto byte = static_cast<unsigned char>(file[i]);
            // Bytes Windows-1252 leaves undefined, and the control bytes that no text holds.
            EXPECT_TRUE(byte != 0x81 && byte != 0x8D && byte != 0x8F && byte != 0x90 &&
                        byte != 0x9D)
                << "byte " << i;
            EXPECT_TRUE(byte >= 0x20 || byte == '\t' || byte == '\r' || byte == '\n')
                << "byte " << i;
            // A UTF-8 lead byte followed by a continuation byte: "Ã¼" where "ü" was meant.
            if (byte >= 0xC2 && byte <= 0xF4 && i + 1 < file.size()) {
                const auto next = static_cast<unsigned char>(file[i + 1]);
                EXPECT_FALSE(next >= 0x80 && next <= 0xBF) << "byte " << i;
            }
        }
    }
}

} // namespace
} // namespace corvid
