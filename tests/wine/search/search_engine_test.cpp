// A result window over the real engine component (CorvidEngine.dll, taken from its class factory
// in this process), searching a loopback network of native corvid-node peers that the ctest
// fixture runs.

#include "search/win/search_window.h"

#include "engine_h.h"
#include "platform/win/text.h"
#include "platform/win/user_folders.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

namespace corvid::testing {
namespace {

constexpr DWORD kNetworkWaitMs = 30000;

// ULTRAPEERS of the fixture's network.env, found through CORVID_TEST_NETWORK.
std::string Ultrapeers() {
    char path[MAX_PATH] = {};
    if (!::GetEnvironmentVariableA("CORVID_TEST_NETWORK", path, sizeof path)) {
        return {};
    }
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("ULTRAPEERS=", 0) == 0) {
            std::string value = line.substr(11);
            value.erase(std::remove(value.begin(), value.end(), '\''), value.end());
            return value;
        }
    }
    return {};
}

// The engine from its own DLL's class factory, as the in-process server gives it.
win::ComPtr<IGnutellaEngine> MakeEngine() {
    HMODULE dll = ::LoadLibraryA("CorvidEngine.dll");
    using GetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
    auto get = dll ? reinterpret_cast<GetClassObject>(
                         reinterpret_cast<void*>(::GetProcAddress(dll, "DllGetClassObject")))
                   : nullptr;
    win::ComPtr<IClassFactory> factory;
    win::ComPtr<IGnutellaEngine> engine;
    if (get && SUCCEEDED(get(CLSID_GnutellaEngine, IID_IClassFactory, factory.put_void()))) {
        factory->CreateInstance(nullptr, IID_IGnutellaEngine, engine.put_void());
    }
    return engine;
}

TEST(SearchWindowWithTheEngine, ASearchFillsItsWindowFromTheLoopbackNetwork) {
    const std::string bootstrap = Ultrapeers();
    ASSERT_FALSE(bootstrap.empty()) << "the loopback network fixture did not run";
    win::ComApartment apartment;
    // A leaf that dials the network's ultrapeers, named in its configuration file.
    const std::wstring ini = win::NetWorkIniPath();
    ASSERT_FALSE(ini.empty());
    std::ofstream(std::filesystem::path(ini), std::ios::binary)
        << "[NetWork]\r\nNodeMode=2\r\nBehindFirewall=0\r\nHosts=" << bootstrap << "\r\n";

    win::ComPtr<IGnutellaEngine> engine = MakeEngine();
    ASSERT_TRUE(engine);
    ASSERT_TRUE(SUCCEEDED(engine->Connect()));
    const bool linked = PumpUntil(
        [&] {
            long count = 0;
            return SUCCEEDED(engine->GetNodeCount(&count)) && count > 0;
        },
        kNetworkWaitMs);
    win::Bstr info;
    engine->GetNetworkInfo(info.put());
    win::Bstr hostsInfo;
    engine->GetHostsInfo(hostsInfo.put());
    ASSERT_TRUE(linked) << bootstrap << " / " << win::BstrToAnsi(info.get()) << " / "
                        << win::BstrToAnsi(hostsInfo.get());

    FakePanelSite site("Corvid search window over the engine");
    site.engine = engine.get();
    win::ComPtr<IGnutellaSearch> search;
    win::Bstr keywords(L"free software song");
    win::Bstr type(L"All");
    ASSERT_EQ(engine->CreateSearch(keywords.get(), type.get(), 0, 0, 0, 1, search.put()), S_OK);
    shell::Panel* tab = site.OpenTab(
        search::MakeSearchWindow(site, search.get(), "free software song", "All"), true);
    ASSERT_TRUE(tab);
    ASSERT_EQ(search->Start(), S_OK);

    auto* window = static_cast<search::ResultWindow*>(tab);
    HWND list = window->List();
    // The refresh timer's tick, sent rather than waited for, until the song is listed from the
    // four leaves that share it, each on a loopback address of its own.
    ASSERT_TRUE(PumpUntil(
        [&] {
            ::SendMessageA(window->Window(), WM_TIMER, search::ResultWindow::kRefreshTimer, 0);
            return ListView_GetItemCount(list) > 0 && ListViewText(list, 0, 2) == "multiple(4)";
        },
        kNetworkWaitMs));
    EXPECT_EQ(ListView_GetItemCount(list), 1);
    EXPECT_EQ(ListViewText(list, 0, 0), "free software song.mp3");
    EXPECT_EQ(ListViewText(list, 0, 1), "3,145,728");
    EXPECT_EQ(ListViewText(list, 0, 2), "multiple(4)");
    EXPECT_EQ(ListViewText(list, 0, 6), "Audio");
    EXPECT_EQ(ListViewText(list, 0, 9).size(), 32u); // the SHA1 as the engine writes it
    EXPECT_EQ(window->Title(), "free software song (1)");
    EXPECT_EQ(site.counters[shell::kPaneResults], 1);
    PumpPending();
    SaveScreenshot("search_window_engine");

    site.tabs.clear();
    engine->Disconnect();
}

} // namespace
} // namespace corvid::testing
