#include "tests/wine/transfer/transfer_test_support.h"

#include "platform/win/text.h"
#include "tests/wine/support/wine_test_support.h"
#include "transfer/win/download_upload_page.h"

#include <commctrl.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace corvid::transfer::testing {

std::string FixtureFolderFrom(const char* variable) {
    const char* folder = std::getenv(variable);
    if (!folder || !*folder)
        return {};
    std::string path = std::string("Z:") + folder;
    for (auto& c : path)
        if (c == '/')
            c = '\\';
    return path;
}

Fixture::Fixture() : folder_(FixtureFolderFrom("CORVID_TRANSFER_FIXTURE")) {
    if (folder_.empty())
        return;
    ini_ = folder_ + "\\fixture.ini";
    if (!FileExists(ini_))
        folder_.clear();
}

int Fixture::Port(const char* name) const {
    return static_cast<int>(::GetPrivateProfileIntA("fixture", name, 0, ini_.c_str()));
}

std::string Fixture::Sha1(const std::string& file) const {
    char text[128] = {};
    ::GetPrivateProfileStringA("fixture", file.c_str(), "", text, sizeof text, ini_.c_str());
    return text;
}

int Fixture::Size(const std::string& file) const {
    return static_cast<int>(
        ::GetPrivateProfileIntA("fixture", (file + ".size").c_str(), 0, ini_.c_str()));
}

std::string Fixture::SharedFile(const std::string& file) const {
    return folder_ + "\\share\\" + file;
}

std::vector<std::string> Fixture::AccessLog() const {
    std::vector<std::string> lines;
    std::istringstream in(ReadWholeFile(folder_ + "\\logs\\access.log"));
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

ResultGroup GroupOf(const Fixture& fixture, const std::string& file,
                    std::initializer_list<const char*> ports) {
    ResultGroup group;
    group.sha1 = fixture.Sha1(file);
    for (const char* port : ports) {
        ResultSource source;
        source.name = file;
        source.host = "127.0.0.1";
        source.port = fixture.Port(port);
        source.size = fixture.Size(file);
        source.fileIndex = 1;
        source.type = "Others";
        source.vendorCode = "CRVD";
        group.sources.push_back(source);
    }
    return group;
}

OptionsSheet OpenDownloadUploadPage(shell::PanelSite& site,
                                    std::function<void(const std::string&)> report) {
    OptionsSheet opened;
    HPROPSHEETPAGE page = win::CreateDownloadUploadPage(site, std::move(report));
    if (!page)
        return opened;
    PROPSHEETHEADERA header = {};
    header.dwSize = sizeof header;
    header.dwFlags = PSH_MODELESS;
    header.hwndParent = site.MainWindow();
    header.pszCaption = "Corvid Options";
    header.nPages = 1;
    header.phpage = &page;
    opened.sheet = reinterpret_cast<HWND>(::PropertySheetA(&header));
    if (opened.sheet)
        opened.page =
            reinterpret_cast<HWND>(::SendMessageA(opened.sheet, PSM_GETCURRENTPAGEHWND, 0, 0));
    return opened;
}

std::string FreshFolder(const char* stem) {
    static int count = 0;
    char temp[MAX_PATH] = {};
    ::GetTempPathA(MAX_PATH, temp);
    const std::string folder = std::string(temp) + "corvid-" + stem + "-" +
                               std::to_string(::GetCurrentProcessId()) + "-" +
                               std::to_string(++count);
    ::CreateDirectoryA(folder.c_str(), nullptr);
    return folder;
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool FileExists(const std::string& path) {
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

HRESULT STDMETHODCALLTYPE FakeFileManager::ShareDownload(BSTR path) {
    shared.push_back(corvid::win::BstrToAnsi(path));
    return S_OK;
}

HRESULT STDMETHODCALLTYPE FakeEngine::CreateSearch(BSTR keywords, BSTR, long, long, long, long,
                                                   IGnutellaSearch** search) {
    auto made = FakeSearch::Make();
    searches.emplace_back(corvid::win::BstrToAnsi(keywords), made);
    *search = made.detach();
    return S_OK;
}

FakeSearch* FakeEngine::SearchFor(const std::string& keywords) const {
    for (const auto& [words, search] : searches)
        if (words == keywords)
            return search.get();
    return nullptr;
}

std::string ResultFrom(int port, const std::string& name, int size, const std::string& sha1) {
    return "<?xml version=\"1.0\"?><searchresult><keyword>urn:sha1:" + sha1 +
           "</keyword><type>All</type><nodeid>0123456789ABCDEF</nodeid><ip>127.0.0.1</ip><port>" +
           std::to_string(port) +
           "</port><speed>350</speed><vendorCode>CRVD</vendorCode><opendata size=\"2\">1c" +
           "</opendata><ResultSet><FileInfo id=\"1\"><name>" + name + "</name><size>" +
           std::to_string(size) + "</size><info></info><sha1>" + sha1 +
           "</sha1></FileInfo></ResultSet></searchresult>";
}

std::string Cell(HWND list, int row, const std::string& title) {
    const int column = ColumnOf(list, title);
    return column < 0 ? "<no column " + title + ">"
                      : corvid::testing::ListViewText(list, row, column);
}

void SelectRow(HWND list, int row, bool alone) {
    LVITEMA state = {};
    state.stateMask = LVIS_SELECTED | LVIS_FOCUSED;
    if (alone) {
        state.state = 0;
        ::SendMessageA(list, LVM_SETITEMSTATE, static_cast<WPARAM>(-1),
                       reinterpret_cast<LPARAM>(&state));
    }
    state.state = LVIS_SELECTED | LVIS_FOCUSED;
    ::SendMessageA(list, LVM_SETITEMSTATE, row, reinterpret_cast<LPARAM>(&state));
}

std::vector<std::string> TreeTexts(HWND tree) {
    std::vector<std::string> texts;
    // Depth first: the root, then its children.
    std::vector<HTREEITEM> pending;
    if (auto root =
            reinterpret_cast<HTREEITEM>(::SendMessageA(tree, TVM_GETNEXTITEM, TVGN_ROOT, 0)))
        pending.push_back(root);
    while (!pending.empty()) {
        HTREEITEM node = pending.front();
        pending.erase(pending.begin());
        char text[256] = {};
        TVITEMA item = {};
        item.mask = TVIF_TEXT;
        item.hItem = node;
        item.pszText = text;
        item.cchTextMax = sizeof text;
        ::SendMessageA(tree, TVM_GETITEMA, 0, reinterpret_cast<LPARAM>(&item));
        texts.push_back(text);
        for (auto child = reinterpret_cast<HTREEITEM>(
                 ::SendMessageA(tree, TVM_GETNEXTITEM, TVGN_CHILD, reinterpret_cast<LPARAM>(node)));
             child; child = reinterpret_cast<HTREEITEM>(::SendMessageA(
                        tree, TVM_GETNEXTITEM, TVGN_NEXT, reinterpret_cast<LPARAM>(child))))
            pending.push_back(child);
    }
    return texts;
}

} // namespace corvid::transfer::testing
