// The main view in a test host: fake settings and command-state objects that record every call,
// a fake engine registered under the engine's class id, and a prompt that records instead of
// showing message boxes.

#include "markup/language_table.h"
#include "markup/skin.h"
#include "platform/win/class_factory.h"
#include "platform/win/text.h"
#include "resources/shell_resources.h"
#include "resources/string_table.h"
#include "shell/commands.h"
#include "shell/menu.h"
#include "shell/win/customise_dialog.h"
#include "shell/win/main_view.h"
#include "shell/win/toolbar_store.h"
#include "tests/wine/shell/fake_engine.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>

namespace corvid::testing {
namespace {

using shell::MainView;

std::string Builtin(std::uint32_t id) {
    return std::string(BuiltinText(id));
}

class FakeSettings final : public win::ComObject<FakeSettings, ITarvoSettings> {
public:
    std::map<std::string, int> host;
    std::map<std::string, int> sections;
    std::vector<std::string> asked;

    HRESULT STDMETHODCALLTYPE SetValue(BSTR, BSTR, VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DeleteValue(BSTR, BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetHostValue(BSTR, VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DeleteHostValue(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetValue(BSTR section, BSTR name, VARIANT* value,
                                       LONG* present) override {
        const std::string key = win::BstrToAnsi(section) + "/" + win::BstrToAnsi(name);
        asked.push_back("7:" + key);
        return Answer(sections, key, value, present);
    }
    HRESULT STDMETHODCALLTYPE NotifyChanged() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetValueNames(BSTR, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHostValueNames(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHostFolder(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStoreKey(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHostValue(BSTR name, VARIANT* value, LONG* present) override {
        const std::string key = win::BstrToAnsi(name);
        asked.push_back("13:" + key);
        return Answer(host, key, value, present);
    }

private:
    static HRESULT Answer(const std::map<std::string, int>& values, const std::string& key,
                          VARIANT* value, LONG* present) {
        ::VariantInit(value);
        auto found = values.find(key);
        *present = found != values.end() ? 1 : 0;
        if (found != values.end()) {
            value->vt = VT_I4;
            value->lVal = found->second;
        }
        return S_OK;
    }
};

class FakeHost final
    : public win::ComObject<FakeHost, ITarvoHost, ITarvoCommandState, IConnectionPointContainer>,
      public win::ConnectionPoints {
public:
    FakeHost() : ConnectionPoints(Identity(), {DIID__ITarvoHostEvents}) {}

    win::ComPtr<FakeSettings> settings = FakeSettings::Make();
    std::vector<std::pair<std::string, int>> states;
    std::vector<IUnknown*> reporters;
    int layouts = 0;
    int menusChanged = 0;

    int State(const std::string& name) const {
        int state = -1;
        for (const auto& [reported, value] : states) {
            if (reported == name) {
                state = value;
            }
        }
        return state;
    }
    void FireChanged() { Fire(DIID__ITarvoHostEvents, 1); }

    HRESULT STDMETHODCALLTYPE GetFrameWindow(HWND* frame) override {
        *frame = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE RequestLayout(IUnknown*) override {
        ++layouts;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE MenusChanged(IUnknown*) override {
        ++menusChanged;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetTabTitle(IUnknown*, BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ShowPlugIn(IUnknown*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetSettings(IUnknown** out) override {
        return settings->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(out));
    }
    HRESULT STDMETHODCALLTYPE SetCommandState(IUnknown* plugIn, BSTR command, LONG state) override {
        states.emplace_back(win::BstrToAnsi(command), static_cast<int>(state));
        reporters.push_back(plugIn);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }
};

class RecordingPrompt : public shell::UserPrompt {
public:
    void Error(HWND, const std::string& text) override { errors.push_back(text); }
    bool AskYesNo(HWND, const std::string& text) override {
        questions.push_back(text);
        return answer;
    }
    std::vector<std::string> errors;
    std::vector<std::string> questions;
    bool answer = false;
};

// The fake engine under the engine's class id for as long as it lives.
class RegisteredEngine {
public:
    RegisteredEngine() {
        engine_ = FakeEngine::Make();
        current_ = engine_.get();
        creations_ = 0;
        win::ComPtr<IUnknown> factory;
        win::MakeClassFactory(&Create, IID_IUnknown, factory.put_void());
        registered_ = ::CoRegisterClassObject(CLSID_GnutellaEngine, factory.get(),
                                              CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie_);
    }
    ~RegisteredEngine() {
        ::CoRevokeClassObject(cookie_);
        current_ = nullptr;
    }
    bool ok() const { return SUCCEEDED(registered_); }
    FakeEngine& engine() { return *engine_.get(); }
    static int creations() { return creations_; }

private:
    static HRESULT Create(REFIID iid, void** object) {
        ++creations_;
        return current_ ? current_->QueryInterface(iid, object) : E_FAIL;
    }
    static inline FakeEngine* current_ = nullptr;
    static inline int creations_ = 0;
    win::ComPtr<FakeEngine> engine_;
    DWORD cookie_ = 0;
    HRESULT registered_ = E_FAIL;
};

// A counter's text: the number and the blanks its format carries.
std::string Padded(const char* number, std::size_t blanks) {
    std::string text = number;
    text.append(blanks, ' ');
    return text;
}

std::string ProgramFolder() {
    char path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string folder(path, length);
    return folder.substr(0, folder.find_last_of('\\'));
}

// Files a test puts beside the program (translations, skins), taken away again with every folder
// that they alone made.
class ScratchFiles {
public:
    ScratchFiles() = default;
    ScratchFiles(const ScratchFiles&) = delete;
    ScratchFiles& operator=(const ScratchFiles&) = delete;
    ~ScratchFiles() {
        for (const std::string& file : files_) {
            ::DeleteFileA(file.c_str());
        }
        for (auto folder = folders_.rbegin(); folder != folders_.rend(); ++folder) {
            ::RemoveDirectoryA(folder->c_str());
        }
    }
    void Write(const std::string& path, const std::string& text) {
        for (std::size_t cut = path.find('\\', 3); cut != std::string::npos;
             cut = path.find('\\', cut + 1)) {
            const std::string folder = path.substr(0, cut);
            if (::CreateDirectoryA(folder.c_str(), nullptr)) {
                folders_.push_back(folder);
            }
        }
        std::ofstream(path, std::ios::binary) << text;
        files_.push_back(path);
    }

private:
    std::vector<std::string> files_;
    std::vector<std::string> folders_;
};

HWND ChildOfClass(HWND parent, const char* className) {
    return ::FindWindowExA(parent, nullptr, className, nullptr);
}

class MainViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(apartment_.result()));
        INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_WIN95_CLASSES};
        ::InitCommonControlsEx(&controls);
        ::RegDeleteTreeA(HKEY_CURRENT_USER, shell::kToolbarKey);
        ::RegDeleteKeyA(HKEY_CURRENT_USER, shell::kToolbarKey);
        if (!tab_) {
            // One top-level window for every test: without a window manager, Wine waits a while
            // for each one that goes away.
            tab_ = ::CreateWindowExA(0, "STATIC", "tab", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0,
                                     1000, 700, nullptr, nullptr, nullptr, nullptr);
        }
        identity_ = FakeSearch::Make();
        host_ = FakeHost::Make();
    }
    void TearDown() override {
        view_.reset();
        corvid::Language().Load("");
        ::RegDeleteTreeA(HKEY_CURRENT_USER, shell::kToolbarKey);
        ::RegDeleteKeyA(HKEY_CURRENT_USER, shell::kToolbarKey);
    }

    MainView& Attach() {
        view_ = std::make_unique<MainView>(identity_->Identity(), prompt_);
        EXPECT_TRUE(view_->Attach(host_->Identity(), tab_));
        PumpPending();
        return *view_;
    }
    std::string Pane(int index) { return StatusBarText(view_->statusBar()->hwnd(), index); }
    int TabIndex(const std::string& title) {
        for (std::size_t i = 0; i < view_->tabStrip()->Count(); ++i) {
            if (view_->tabStrip()->TitleAt(i) == title) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }

    win::ComApartment apartment_;
    static inline HWND tab_ = nullptr;
    win::ComPtr<FakeSearch> identity_;
    win::ComPtr<FakeHost> host_;
    RecordingPrompt prompt_;
    std::unique_ptr<MainView> view_;
    ScratchFiles scratch_;
};

TEST_F(MainViewTest, StartsWithThePanelsInCreationOrderAndReportsTheOfflineCommands) {
    MainView& view = Attach();
    std::vector<std::string> titles;
    for (std::size_t i = 0; i < view.tabStrip()->Count(); ++i) {
        titles.push_back(view.tabStrip()->TitleAt(i));
    }
    EXPECT_EQ(titles, (std::vector<std::string>{"Library", "Search", "Upload", "Network", "Hosts",
                                                "Theater", "Download", "Console"}));
    EXPECT_EQ(view.CurrentCommand(), shell::kCmdSearch);
    EXPECT_EQ(host_->State("p2p_search"), 8);
    EXPECT_EQ(host_->State("p2p_connect"), 0);
    EXPECT_EQ(host_->State("p2p_disconnect"), 3);
    for (IUnknown* reporter : host_->reporters) {
        EXPECT_EQ(reporter, identity_->Identity());
    }
    // Settings read at creation: the tab values through slot 13, then AutoOnline through slot 7.
    const std::vector<std::string> expected = {"13:Tab Pos",           "13:Tab PushLike",
                                               "13:Tab Visible",       "13:Tab LButtonAction",
                                               "13:Tab MButtonAction", "13:Search ShowDownloaded",
                                               "7:P2P View/AutoOnline"};
    EXPECT_EQ(host_->settings->asked, expected);
    EXPECT_NE(view.hostCookie(), shell::kNotAdvised);
    EXPECT_EQ(view.engineCookie(), shell::kNotAdvised);
    EXPECT_EQ(host_->SinkCount(DIID__ITarvoHostEvents), 1u);
}

TEST_F(MainViewTest, AnUnregisteredEngineShowsMessage32960OncePerTryAndStaysOffline) {
    // The run's shared prefix may hold the real engine's registration from the engine's own
    // tests (each of which registers it again for itself): this case needs the class unknown.
    ::RegDeleteTreeW(HKEY_CLASSES_ROOT, L"CLSID\\{70057F54-0649-425E-9F47-CC862103B33E}");
    MainView& view = Attach();
    const std::size_t reportsBefore = host_->states.size();
    EXPECT_FALSE(view.Connect());
    EXPECT_TRUE(view.Execute("p2p_connect"));
    EXPECT_EQ(prompt_.errors, (std::vector<std::string>{Builtin(32960), Builtin(32960)}));
    EXPECT_FALSE(view.Online());
    EXPECT_EQ(view.Engine(), nullptr);
    EXPECT_EQ(host_->states.size(), reportsBefore); // the update runs only after a connect
    EXPECT_EQ(host_->State("p2p_connect"), 0);
    EXPECT_EQ(host_->State("p2p_disconnect"), 3);
}

TEST_F(MainViewTest, ConnectTwiceCallsSlot7TwiceOnOneEngineAndDisconnectKeepsIt) {
    RegisteredEngine registered;
    ASSERT_TRUE(registered.ok());
    FakeEngine& engine = registered.engine();
    MainView& view = Attach();
    ASSERT_TRUE(view.Execute("p2p_connect"));
    ASSERT_TRUE(view.Connect());
    EXPECT_EQ(engine.connects, 2);
    EXPECT_EQ(RegisteredEngine::creations(), 1);
    EXPECT_EQ(engine.uploadCalls, 2); // the upload view gets slot 13 at every connect
    EXPECT_EQ(engine.SinkCount(DIID__IGnutellaEngineEvents), 1u);
    EXPECT_TRUE(view.Online());
    EXPECT_EQ(host_->State("p2p_connect"), 3);
    EXPECT_EQ(host_->State("p2p_disconnect"), 0);
    EXPECT_TRUE(prompt_.errors.empty());

    HCURSOR before = ::GetCursor();
    EXPECT_TRUE(view.Execute("p2p_disconnect"));
    EXPECT_EQ(::GetCursor(), before);
    EXPECT_EQ(engine.disconnects, 1);
    EXPECT_FALSE(view.Online());
    EXPECT_EQ(host_->State("p2p_connect"), 0);
    EXPECT_EQ(host_->State("p2p_disconnect"), 3);
    EXPECT_EQ(view.Engine(), static_cast<IGnutellaEngine*>(&engine));

    // A later connect reuses the engine: slot 7 again, no second creation.
    ASSERT_TRUE(view.Connect());
    EXPECT_EQ(engine.connects, 3);
    EXPECT_EQ(RegisteredEngine::creations(), 1);

    // Shut-down: the sink goes, the engine hears slot 8 once more and is let go.
    view_.reset();
    EXPECT_EQ(engine.SinkCount(DIID__IGnutellaEngineEvents), 0u);
    EXPECT_EQ(engine.disconnects, 2);
    EXPECT_EQ(host_->SinkCount(DIID__ITarvoHostEvents), 0u);
}

TEST_F(MainViewTest, DisconnectWithoutAnEngineReturnsFalse) {
    MainView& view = Attach();
    HCURSOR before = ::GetCursor();
    EXPECT_FALSE(view.Disconnect());
    EXPECT_EQ(::GetCursor(), before);
}

TEST_F(MainViewTest, AFailingConnectIsAComErrorThatEndsTheCommand) {
    RegisteredEngine registered;
    registered.engine().connectResult = E_ACCESSDENIED;
    MainView& view = Attach();
    try {
        view.Connect();
        ADD_FAILURE() << "no COM error";
    } catch (const win::ComError& error) {
        EXPECT_EQ(error.result(), E_ACCESSDENIED);
        EXPECT_TRUE(IsEqualIID(error.interfaceId(), IID_IGnutellaEngine));
    }
    EXPECT_FALSE(view.Online());
    EXPECT_EQ(host_->State("p2p_connect"), 0);
    // Through the toolbar's WM_COMMAND the error ends the command inside the window.
    ::SendMessageA(view.hwnd(), WM_COMMAND, MAKEWPARAM(34001, 0), 0);
    EXPECT_EQ(registered.engine().connects, 2);
}

TEST_F(MainViewTest, EngineEventsSetTheStatusTextAndTheNodeCounter) {
    RegisteredEngine registered;
    FakeEngine& engine = registered.engine();
    engine.nodes = 5;
    MainView& view = Attach();
    ASSERT_TRUE(view.Connect());

    win::Bstr hello(L"Handshaking with 10.0.0.2:6346");
    engine.Fire(DIID__IGnutellaEngineEvents, 3, {win::Arg(hello.get()), win::Arg(2L)});
    EXPECT_EQ(Pane(0), "Handshaking with 10.0.0.2:6346");
    EXPECT_EQ(Pane(2), Padded("5", 17));

    engine.Fire(DIID__IGnutellaEngineEvents, 3,
                {win::Arg(static_cast<BSTR>(nullptr)), win::Arg(0L)});
    EXPECT_EQ(Pane(0), "");

    engine.nodes = 7;
    engine.Fire(DIID__IGnutellaEngineEvents, 1);
    EXPECT_EQ(Pane(0), "Connections OK");
    EXPECT_EQ(Pane(2), Padded("7", 17));
    engine.Fire(DIID__IGnutellaEngineEvents, 2);
    EXPECT_EQ(Pane(0), "Connections Lost");

    const int before = engine.nodeCountCalls;
    win::ComPtr<FakeSearch> search = FakeSearch::Make();
    engine.Fire(DIID__IGnutellaEngineEvents, 4, {win::Arg(search->Identity())});
    EXPECT_EQ(engine.nodeCountCalls, before);
    EXPECT_EQ(Pane(0), "Connections Lost");

    // The console keeps the messages with their times.
    HWND console = view.PanelFor(shell::kCmdConsole)->Window();
    HWND list = ChildOfClass(console, WC_LISTVIEWA);
    ASSERT_TRUE(list);
    const int rows = static_cast<int>(::SendMessageA(list, LVM_GETITEMCOUNT, 0, 0));
    ASSERT_GE(rows, 3);
    EXPECT_EQ(ListViewText(list, rows - 1, 1), "Connections Lost");
    EXPECT_EQ(ListViewText(list, 0, 0).size(), 19u); // "YYYY-MM-DD hh:mm:ss"
}

TEST_F(MainViewTest, TimerOneRefreshesTheNodesAndHandsTheInfoTextToTheInformationPanel) {
    RegisteredEngine registered;
    FakeEngine& engine = registered.engine();
    MainView& view = Attach();
    ASSERT_TRUE(view.Connect());
    engine.nodes = 11;
    ASSERT_TRUE(PumpUntil([&] { return engine.infoCalls >= 1; }, 5000));
    EXPECT_EQ(Pane(2), Padded("11", 17));
    const int network = TabIndex("Network");
    ASSERT_GE(network, 0);
    HWND list = ChildOfClass(view.tabStrip()->At(network)->Window(), WC_LISTVIEWA);
    ASSERT_TRUE(list);
    EXPECT_EQ(ListViewText(list, 0, 0), "Mode");
    EXPECT_EQ(ListViewText(list, 0, 1), "Leaf");
    EXPECT_EQ(ListViewText(list, 9, 1), "1 h 15 min");
}

TEST_F(MainViewTest, StatusPanesShowCountersInTheirFormatsAndIgnoreUnknownPanes) {
    MainView& view = Attach();
    HWND bar = view.statusBar()->hwnd();
    EXPECT_EQ(::SendMessageA(bar, SB_GETPARTS, 0, 0), 6);
    EXPECT_EQ(Pane(0), "Offline");
    view.SetStatusCounter(shell::kPaneResults, 1234);
    view.SetStatusCounter(shell::kPaneUploading, 2);
    view.SetStatusCounter(shell::kPaneShared, 17);
    view.SetStatusCounter(33006, 99);
    EXPECT_EQ(Pane(1), Padded("1234", 16));
    EXPECT_EQ(Pane(3), Padded("17", 16));
    EXPECT_EQ(Pane(5), Padded("2", 14));
    for (int pane = 0; pane < 6; ++pane) {
        EXPECT_EQ(Pane(pane).find("99"), std::string::npos);
    }
    int edges[6] = {};
    ::SendMessageA(bar, SB_GETPARTS, 6, reinterpret_cast<LPARAM>(edges));
    EXPECT_EQ(edges[1] - edges[0], 70);
    EXPECT_EQ(edges[2] - edges[1], 60);
    EXPECT_EQ(edges[3] - edges[2], 70);
    EXPECT_EQ(edges[4] - edges[3], 60);
    EXPECT_NE(::SendMessageA(bar, SB_GETICON, 1, 0), 0);
}

TEST_F(MainViewTest, TabPosTwoPutsTheStripSecondAndTabVisibleTwoHidesIt) {
    host_->settings->host = {{"Tab Pos", 2}, {"Tab Visible", 2}, {"Tab PushLike", 1}};
    MainView& view = Attach();
    EXPECT_FALSE(view.settings().tabs.firstPosition);
    EXPECT_FALSE(view.settings().tabs.visible);
    EXPECT_TRUE(view.settings().tabs.pushLike);
    EXPECT_FALSE(::IsWindowVisible(view.tabStrip()->hwnd()));

    host_->settings->host["Tab Visible"] = 1;
    host_->FireChanged();
    ASSERT_TRUE(::IsWindowVisible(view.tabStrip()->hwnd()));
    // Second position: the strip stands below the panels, just above the status bar.
    RECT strip = {};
    RECT status = {};
    RECT panel = {};
    ::GetWindowRect(view.tabStrip()->hwnd(), &strip);
    ::GetWindowRect(view.statusBar()->hwnd(), &status);
    ::GetWindowRect(view.CurrentPanel()->Window(), &panel);
    EXPECT_EQ(strip.bottom, status.top);
    EXPECT_EQ(panel.bottom, strip.top);
}

TEST_F(MainViewTest, ARepeatedChangeEventRebuildsNothing) {
    host_->settings->host = {{"Toolbar LabelMode", 1}, {"Toolbar IconSize", 0}};
    MainView& view = Attach();
    ASSERT_TRUE(view.Toolbar(tab_));
    HWND bar = view.toolbar()->bar();
    host_->FireChanged();
    host_->FireChanged();
    EXPECT_EQ(view.toolbar()->bar(), bar);
    EXPECT_EQ(host_->layouts, 0);

    host_->settings->host["Toolbar IconSize"] = 1;
    host_->FireChanged();
    EXPECT_NE(view.toolbar()->bar(), bar);
    EXPECT_EQ(host_->layouts, 1);
    EXPECT_TRUE(view.settings().toolbar.large);
    bar = view.toolbar()->bar();
    host_->FireChanged();
    EXPECT_EQ(view.toolbar()->bar(), bar);
    EXPECT_EQ(host_->layouts, 1);
}

TEST_F(MainViewTest, TheToolbarOrderComesFromTheRegistryAndAnEmptyKeyGivesNoButtons) {
    MainView& view = Attach();
    EXPECT_FALSE(shell::LoadToolbarOrder().has_value());
    ASSERT_TRUE(view.Toolbar(tab_));
    EXPECT_EQ(::SendMessageA(view.toolbar()->bar(), TB_BUTTONCOUNT, 0, 0),
              static_cast<LRESULT>(shell::BuiltinToolbarOrder().size()));

    ASSERT_TRUE(shell::SaveToolbarOrder({}));
    const std::optional<std::vector<int>> empty = shell::LoadToolbarOrder();
    ASSERT_TRUE(empty.has_value());
    EXPECT_TRUE(empty->empty());

    ASSERT_TRUE(shell::SaveToolbarOrder({34013, 0, 34001}));
    EXPECT_EQ(shell::LoadToolbarOrder(), (std::vector<int>{34013, 0, 34001}));
    // A value of another type is skipped.
    HKEY key = nullptr;
    ASSERT_EQ(::RegOpenKeyExA(HKEY_CURRENT_USER, shell::kToolbarKey, 0, KEY_SET_VALUE, &key), 0);
    ::RegSetValueExA(key, "Button9", 0, REG_SZ, reinterpret_cast<const BYTE*>("x"), 2);
    ::RegCloseKey(key);
    EXPECT_EQ(shell::LoadToolbarOrder(), (std::vector<int>{34013, 0, 34001}));
}

TEST_F(MainViewTest, TheCustomiseDialogChangesTheOrderAndAppliesItsTranslation) {
    shell::CustomiseDialog dialog({34001, 34002, 0, 34008});
    HWND window = dialog.CreateModeless(nullptr);
    ASSERT_TRUE(window);
    HWND current = ::GetDlgItem(window, IDC_CURRENT);
    EXPECT_EQ(::SendMessageA(current, LB_GETCOUNT, 0, 0), 4);
    ::SendMessageA(current, LB_SETCURSEL, 0, 0);
    ::SendMessageA(window, WM_COMMAND, IDC_REMOVE, 0);
    ::SendMessageA(current, LB_SETCURSEL, 2, 0);
    ::SendMessageA(window, WM_COMMAND, IDC_MOVE_UP, 0);
    HWND available = ::GetDlgItem(window, IDC_AVAILABLE);
    ::SendMessageA(available, LB_SETCURSEL, 0, 0); // "Connect", back from the bar
    ::SendMessageA(current, LB_SETCURSEL, -1, 0);
    ::SendMessageA(window, WM_COMMAND, IDC_ADD, 0);
    ::SendMessageA(window, WM_COMMAND, IDOK, 0);
    ASSERT_TRUE(dialog.closed());
    EXPECT_EQ(dialog.result(), (std::vector<int>{34002, 34008, 0, 34001}));

    scratch_.Write(
        ProgramFolder() + "\\language\\testxx\\Corvid.srml",
        "<lang><define><item id=\"IDD_CUSTOMISE\" value=\"36200\"/>"
        "<item id=\"IDC_RESET\" value=\"1010\"/></define>"
        "<dialog id=\"IDD_CUSTOMISE\" caption=\"Werkzeugleiste\">"
        "<item id=\"IDC_RESET\" label=\"Zur&uuml;ck\" position=\"7,150\"/></dialog></lang>");
    ASSERT_TRUE(corvid::Language().Load("testxx-yy"));
    shell::CustomiseDialog translated({});
    window = translated.CreateModeless(nullptr);
    EXPECT_EQ(WindowText(window), "Werkzeugleiste");
    EXPECT_EQ(WindowText(::GetDlgItem(window, IDC_RESET)), "Zur&uuml;ck");
    ::SendMessageA(window, WM_COMMAND, IDCANCEL, 0);
    EXPECT_FALSE(translated.result().has_value());
}

TEST_F(MainViewTest, SetLanguageWithRefreshRetextsTabsStatusAndMenus) {
    scratch_.Write(
        ProgramFolder() + "\\language\\testzz\\Corvid.srml",
        "<lang><define><item id=\"IDS_SEARCH\" value=\"36121\"/>"
        "<item id=\"IDS_NODES\" value=\"33001\"/><item id=\"IDS_CONNECT\" value=\"36101\"/>"
        "</define><string><item id=\"IDS_SEARCH\" value=\"Suche\"/>"
        "<item id=\"IDS_NODES\" value=\"%d Knoten\"/>"
        "<item id=\"IDS_CONNECT\" value=\"&amp;Verbinden\"/></string></lang>");
    MainView& view = Attach();
    view.SetStatusCounter(shell::kPaneNodes, 4);
    view.SetLanguageByName("testzz", true);
    EXPECT_GE(TabIndex("Suche"), 0);
    EXPECT_EQ(Pane(2), "4 Knoten");
    EXPECT_EQ(host_->menusChanged, 1);
    EXPECT_NE(view.MenuText("sys_file").find("label=\"&amp;Verbinden\""), std::string::npos);
    view.SetLanguageByName("none-such", true);
    EXPECT_GE(TabIndex("Search"), 0);
}

TEST_F(MainViewTest, ApplySkinPaintsFromTheRecordAndRelaysOutWhenAsked) {
    scratch_.Write(
        ProgramFolder() + "\\skin\\test-night\\Corvid.xml",
        "<skin><tabbar backcolor=\"#203040\"/><statusbar backcolor=\"#101010\"/></skin>");
    MainView& view = Attach();
    ASSERT_TRUE(view.Toolbar(tab_));
    view.ApplySkinByName("test-night", false);
    EXPECT_EQ(GlobalSkin().tabbar.backColor, 0x203040);
    EXPECT_EQ(host_->layouts, 0);
    view.ApplySkinByName("test-night", true);
    EXPECT_EQ(host_->layouts, 1);
    view.ApplySkinByName("Missing", true);
    EXPECT_EQ(GlobalSkin().tabbar.backColor, kNoColour);
}

TEST_F(MainViewTest, CommandsSwitchPanelsAndReportTheCurrentOneChecked) {
    MainView& view = Attach();
    EXPECT_TRUE(view.Execute("p2p_console"));
    EXPECT_EQ(view.CurrentCommand(), shell::kCmdConsole);
    EXPECT_EQ(host_->State("p2p_console"), 8);
    EXPECT_EQ(host_->State("p2p_search"), 0);
    EXPECT_TRUE(::IsWindowVisible(view.CurrentPanel()->Window()));
    EXPECT_FALSE(::IsWindowVisible(view.PanelFor(shell::kCmdSearch)->Window()));
    EXPECT_FALSE(view.Execute("p2p_nonsense"));
    EXPECT_TRUE(view.Execute("p2p_search_window_list_none"));

    // A click on a tab selects it; a drag moves it.
    const int hosts = TabIndex("Hosts");
    RECT rect = view.tabStrip()->TabRect(hosts);
    HWND strip = view.tabStrip()->hwnd();
    ::SendMessageA(strip, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(rect.left + 5, rect.top + 5));
    ::SendMessageA(strip, WM_LBUTTONUP, 0, MAKELPARAM(rect.left + 5, rect.top + 5));
    EXPECT_EQ(view.CurrentCommand(), shell::kCmdHosts);
    EXPECT_EQ(host_->State("p2p_hosts"), 8);
    RECT first = view.tabStrip()->TabRect(0);
    ::SendMessageA(strip, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(rect.left + 5, rect.top + 5));
    ::SendMessageA(strip, WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(first.left + 2, first.top + 5));
    ::SendMessageA(strip, WM_LBUTTONUP, 0, MAKELPARAM(first.left + 2, first.top + 5));
    EXPECT_EQ(TabIndex("Hosts"), 0);
    EXPECT_EQ(TabIndex("Library"), 1);

    const std::string window = view.MenuText("p2p_search_window_list");
    EXPECT_NE(window.find("p2p_search_window_list_none"), std::string::npos);
    EXPECT_EQ(view.MenuText("sys_tools"), shell::MenuText("sys_tools", corvid::Language()));
    EXPECT_EQ(view.MenuText("nothing"), "");
}

// A tab that records the tab menus asked of it instead of showing one.
class MenuRecordingPanel final : public shell::Panel {
public:
    explicit MenuRecordingPanel(std::vector<POINT>& asked) : asked_(asked) {}
    ~MenuRecordingPanel() override {
        if (window_) {
            ::DestroyWindow(window_);
        }
    }
    bool Create(HWND parent) override {
        window_ = ::CreateWindowExA(0, "STATIC", "", WS_CHILD, 0, 0, 10, 10, parent, nullptr,
                                    nullptr, nullptr);
        return window_ != nullptr;
    }
    HWND Window() const override { return window_; }
    std::string Title() const override { return "Menu tab"; }
    bool Closable() const override { return true; }
    bool ShowTabMenu(POINT screen) override {
        asked_.push_back(screen);
        return true;
    }

private:
    std::vector<POINT>& asked_;
    HWND window_ = nullptr;
};

TEST_F(MainViewTest, ARightClickOnATabAsksItsPanelForTheTabMenuAtTheClick) {
    MainView& view = Attach();
    std::vector<POINT> asked;
    shell::Panel* panel = view.OpenTab(std::make_unique<MenuRecordingPanel>(asked), false);
    ASSERT_NE(panel, nullptr);
    shell::Panel* current = view.CurrentPanel();
    HWND strip = view.tabStrip()->hwnd();

    const RECT rect = view.tabStrip()->TabRect(TabIndex("Menu tab"));
    const POINT click = {rect.left + 6, rect.top + 4};
    ::SendMessageA(strip, WM_RBUTTONDOWN, MK_RBUTTON, MAKELPARAM(click.x, click.y));
    ::SendMessageA(strip, WM_RBUTTONUP, 0, MAKELPARAM(click.x, click.y));
    ASSERT_EQ(asked.size(), 1u);
    POINT screen = click;
    ::ClientToScreen(strip, &screen);
    EXPECT_EQ(asked[0].x, screen.x);
    EXPECT_EQ(asked[0].y, screen.y);
    // The menu is the panel's business: the click neither selects nor closes the tab.
    EXPECT_EQ(view.CurrentPanel(), current);
    EXPECT_GE(TabIndex("Menu tab"), 0);

    // A panel without a tab menu, and a click beside every tab, ask nothing.
    const RECT hosts = view.tabStrip()->TabRect(TabIndex("Hosts"));
    ::SendMessageA(strip, WM_RBUTTONUP, 0, MAKELPARAM(hosts.left + 5, hosts.top + 5));
    RECT client = {};
    ::GetClientRect(strip, &client);
    ::SendMessageA(strip, WM_RBUTTONUP, 0, MAKELPARAM(client.right - 2, client.bottom - 2));
    EXPECT_EQ(asked.size(), 1u);
    view.CloseTab(panel);
}

TEST_F(MainViewTest, SearchOnP2PAsksToConnectWhenOfflineThenCreatesAndStartsTheSearch) {
    RegisteredEngine registered;
    FakeEngine& engine = registered.engine();
    MainView& view = Attach();
    view.Execute("p2p_console");
    view.SearchOnP2P("free music", "Audio");
    EXPECT_EQ(prompt_.questions, std::vector<std::string>{Builtin(32949)});
    EXPECT_EQ(view.CurrentCommand(), shell::kCmdSearch);
    EXPECT_EQ(engine.connects, 0);
    EXPECT_TRUE(engine.searches.empty());

    prompt_.answer = true;
    view.SearchOnP2P("free music", "");
    EXPECT_EQ(engine.connects, 1);
    ASSERT_EQ(engine.searches.size(), 1u);
    EXPECT_EQ(engine.searches[0], L"free music|All|0,0,0,1");
    EXPECT_EQ(engine.lastSearch->starts, 1);
    view.SearchOnP2P("more", "Video");
    EXPECT_EQ(prompt_.questions.size(), 2u); // online now: no question
    EXPECT_EQ(engine.searches.back(), L"more|Video|0,0,0,1");
}

} // namespace
} // namespace corvid::testing
