#include "network/win/config_paths.h"
#include "network/win/netviews_ids.h"
#include "network/win/options_sheet.h"
#include "tests/wine/network/fake_engine.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <string>

namespace corvid::testing {
namespace {

class NetworkPageTest : public ::testing::Test {
protected:
    void SetUp() override {
        char temp[MAX_PATH] = {};
        ::GetTempPathA(sizeof temp, temp);
        base = std::string(temp) + "corvid-network-page";
        ::SetEnvironmentVariableA("CORVID_CONFIG_BASE", base.c_str());
        ini = network::NetworkIniPath();
        ::DeleteFileA(ini.c_str());
        ::RegDeleteKeyValueA(HKEY_CURRENT_USER, "Software\\Tarvo Explorer\\P2P View", "AutoOnline");
    }
    void TearDown() override {
        Close();
        ::SetEnvironmentVariableA("CORVID_CONFIG_BASE", nullptr);
    }

    HWND Open() {
        Close();
        sheet = network::ShowOptionsSheetModeless(site, network::OptionsPages());
        EXPECT_NE(sheet, nullptr);
        page = PropSheet_GetCurrentPageHwnd(sheet);
        EXPECT_NE(page, nullptr);
        return page;
    }
    void Close() {
        if (sheet) {
            ::DestroyWindow(sheet);
            sheet = nullptr;
            page = nullptr;
        }
    }
    // OK: true when the sheet accepted every page and asks to be closed.
    bool PressOk() {
        PropSheet_PressButton(sheet, PSBTN_OK);
        PumpPending();
        return PropSheet_GetCurrentPageHwnd(sheet) == nullptr;
    }
    std::string Field(int id) { return WindowText(::GetDlgItem(page, id)); }
    bool Checked(int id) { return ::IsDlgButtonChecked(page, id) == BST_CHECKED; }
    std::string IniValue(const char* key) {
        char text[64] = {};
        ::GetPrivateProfileStringA("NetWork", key, "", text, sizeof text, ini.c_str());
        return text;
    }

    FakePanelSite site{"Options"};
    std::string base;
    std::string ini;
    HWND sheet = nullptr;
    HWND page = nullptr;
};

TEST_F(NetworkPageTest, ANewInstallationShowsTheDefaults) {
    Open();
    EXPECT_EQ(WindowText(sheet), "Corvid Options");
    EXPECT_EQ(Field(IDC_PORT), "6346");
    EXPECT_EQ(Field(IDC_UPLOAD_PORT), "6347");
    EXPECT_EQ(Field(IDC_NODE_TYPE), "automatic");
    EXPECT_EQ(::SendDlgItemMessageA(page, IDC_NODE_TYPE, CB_GETCOUNT, 0, 0), 4);
    EXPECT_TRUE(Checked(IDC_AUTO_ONLINE));
    EXPECT_TRUE(Checked(IDC_AUTO_RESUME));
    EXPECT_TRUE(Checked(IDC_BEHIND_FIREWALL));
    EXPECT_EQ(Field(IDC_PEER_MAX), "3");
    EXPECT_EQ(Field(IDC_ULTRA_PEER_MAX), "6");
    EXPECT_EQ(Field(IDC_ULTRA_PEER_MIN), "2");
    EXPECT_EQ(Field(IDC_LEAF_PEER_MAX), "100");
    int low = 0;
    int high = 0;
    ::SendDlgItemMessageA(page, IDC_PORT_SPIN, UDM_GETRANGE32, reinterpret_cast<WPARAM>(&low),
                          reinterpret_cast<LPARAM>(&high));
    EXPECT_EQ(low, 1);
    EXPECT_EQ(high, 65535);
    ::SendDlgItemMessageA(page, IDC_LEAF_PEER_MAX_SPIN, UDM_GETRANGE32,
                          reinterpret_cast<WPARAM>(&low), reinterpret_cast<LPARAM>(&high));
    EXPECT_EQ(high, 500);
}

TEST_F(NetworkPageTest, TheUploadPortReopensAsThePortPlusOne) {
    Open();
    ::SetDlgItemTextA(page, IDC_UPLOAD_PORT, "7000");
    ::SendDlgItemMessageA(page, IDC_NODE_TYPE, CB_SETCURSEL, 2, 0);
    ::CheckDlgButton(page, IDC_AUTO_ONLINE, BST_UNCHECKED);
    ::CheckDlgButton(page, IDC_AUTO_RESUME, BST_UNCHECKED);
    ASSERT_TRUE(PressOk());
    EXPECT_EQ(IniValue("Port"), "6346");
    EXPECT_EQ(IniValue("UploadPort"), "7000");
    EXPECT_EQ(IniValue("NodeMode"), "2");
    EXPECT_EQ(IniValue("BehindFirewall"), "1");
    EXPECT_EQ(IniValue("LeafPeerMaxCount"), "100");

    Open();
    EXPECT_EQ(Field(IDC_UPLOAD_PORT), "6347");
    EXPECT_EQ(Field(IDC_NODE_TYPE), "leaf peer");
    EXPECT_FALSE(Checked(IDC_AUTO_ONLINE));
    EXPECT_FALSE(Checked(IDC_AUTO_RESUME));
    DWORD stored = 1;
    DWORD size = sizeof stored;
    ASSERT_EQ(::RegGetValueA(HKEY_CURRENT_USER, "Software\\Tarvo Explorer\\P2P View", "AutoOnline",
                             RRF_RT_REG_DWORD, nullptr, &stored, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(stored, 0u);
}

TEST_F(NetworkPageTest, BehindFirewallOutsideTheFlagsShowsUnchecked) {
    ::CreateDirectoryA(base.c_str(), nullptr);
    ::CreateDirectoryA((base + "\\Config").c_str(), nullptr);
    ASSERT_TRUE(::WritePrivateProfileStringA("NetWork", "BehindFirewall", "5", ini.c_str()));
    ::WritePrivateProfileStringA("NetWork", "Port", "7100", ini.c_str());
    Open();
    EXPECT_FALSE(Checked(IDC_BEHIND_FIREWALL));
    EXPECT_EQ(Field(IDC_PORT), "7100");
    EXPECT_EQ(Field(IDC_UPLOAD_PORT), "7101");
}

TEST_F(NetworkPageTest, ALetterInANumberFieldKeepsThePageOpenWithTheFocusOnIt) {
    Open();
    ::SetDlgItemTextA(page, IDC_ULTRA_PEER_MAX, "6a");
    EXPECT_FALSE(PressOk());
    EXPECT_EQ(::GetFocus(), ::GetDlgItem(page, IDC_ULTRA_PEER_MAX));
    EXPECT_EQ(IniValue("Port"), "");

    ::SetDlgItemTextA(page, IDC_ULTRA_PEER_MAX, "");
    EXPECT_FALSE(PressOk());
    ::SetDlgItemTextA(page, IDC_ULTRA_PEER_MAX, "8");
    EXPECT_TRUE(PressOk());
    EXPECT_EQ(IniValue("UltraPeerMaxCount"), "8");
}

TEST_F(NetworkPageTest, ARunningEngineIsToldTheSettingsChanged) {
    auto engine = FakeEngine::Make();
    Open();
    ASSERT_TRUE(PressOk());
    EXPECT_EQ(engine->reloads, 0);
    site.engine = engine.get();
    Open();
    ASSERT_TRUE(PressOk());
    EXPECT_EQ(engine->reloads, 1);
    site.engine = nullptr;
}

TEST_F(NetworkPageTest, Screenshot) {
    Open();
    ::SetForegroundWindow(sheet);
    PumpPending();
    SaveScreenshot("options_sheet");
}

} // namespace
} // namespace corvid::testing
