// The upload page over the real engine component (CorvidEngine.dll, loaded the way COM would load
// it) while a native corvid-node peer downloads from it: the fixture's peer starts once this test
// tells it the engine's port.

#include <windows.h>
#include <winsock2.h>

#include "platform/win/handles.h"
#include "platform/win/text.h"
#include "platform/win/user_folders.h"
#include "tests/wine/support/fake_panel_site.h"
#include "tests/wine/support/wine_test_support.h"
#include "tests/wine/transfer/transfer_test_support.h"
#include "transfer/win/transfer_settings.h"
#include "transfer/win/upload_panel.h"

#include "engine_h.h"

#include <commctrl.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace corvid::transfer::testing {
namespace {

using corvid::testing::PumpUntil;
using corvid::win::ComPtr;

int FreeLoopbackPort() {
    WSADATA data;
    ::WSAStartup(MAKEWORD(2, 2), &data);
    SOCKET probe = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof address;
    ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    ::closesocket(probe);
    return ntohs(address.sin_port);
}

std::string FixtureFolder() {
    return FixtureFolderFrom("CORVID_TRANSFER_FIXTURE");
}

TEST(UploadEngineTest, AnUploadToANativePeerIsListedLimitedAndStopped) {
    Fixture fixture;
    ASSERT_TRUE(fixture.Ready());
    // The engine listens where this test says, and uploads slowly until Limit Speed lets go.
    const int port = FreeLoopbackPort();
    const auto ini = corvid::win::NetWorkIniPath();
    ASSERT_FALSE(ini.empty());
    ::WritePrivateProfileStringW(L"NetWork", L"Port", std::to_wstring(port).c_str(), ini.c_str());
    ASSERT_TRUE(win::WriteDword(win::kHttpServerKey, win::kMaxUploadSpeedValue, 24576));
    ::RegDeleteKeyValueA(HKEY_CURRENT_USER, win::kP2PViewKey, win::kUploadLimitValue);

    corvid::win::Module module(::LoadLibraryA("CorvidEngine.dll"));
    ASSERT_TRUE(module);
    {
        auto files = CreateFromDll<IFileManager>(module.get(), CLSID_FileManager, IID_IFileManager);
        auto engine =
            CreateFromDll<IGnutellaEngine>(module.get(), CLSID_GnutellaEngine, IID_IGnutellaEngine);
        ASSERT_TRUE(files && engine);
        corvid::win::Bstr share(corvid::win::ToWide(FixtureFolder() + "\\share").c_str());
        ASSERT_TRUE(SUCCEEDED(files->AddSharedFolder(share.get())));
        ASSERT_TRUE(PumpUntil(
            [&] {
                long count = 0;
                return SUCCEEDED(files->GetSharedFileCount(&count)) && count >= 5;
            },
            120000));
        ASSERT_EQ(engine->Connect(), S_OK);

        corvid::testing::FakePanelSite site("Corvid uploads to a peer");
        site.engine = engine.get();
        win::UploadPanel panel(site);
        ASSERT_TRUE(site.Adopt(panel));
        EXPECT_TRUE(::SendMessageA(panel.Toolbar(), TB_ISBUTTONCHECKED, win::kUploadLimitSpeed, 0))
            << "the limit in force shows checked";
        std::ofstream(FixtureFolder() + "\\engine.port") << port;

        // The peer asks for two files; both show, with their host and sizes.
        ASSERT_TRUE(PumpUntil(
            [&] {
                panel.OnTick();
                return panel.Uploads().size() == 2;
            },
            60000));
        const auto names =
            std::vector<std::string>{Cell(panel.List(), 0, "Name"), Cell(panel.List(), 1, "Name")};
        EXPECT_TRUE(std::find(names.begin(), names.end(), "big.bin") != names.end());
        EXPECT_TRUE(std::find(names.begin(), names.end(), "slow.bin") != names.end());
        EXPECT_EQ(Cell(panel.List(), 0, "Host").rfind("127.0.0.1:", 0), 0u);
        EXPECT_EQ(site.counters[shell::kPaneUploading], 2);
        corvid::testing::SaveScreenshot("upload-page-engine");

        // Stop without a choice stops nothing; with one, that upload ends.
        ::SendMessageA(panel.Window(), WM_COMMAND, win::kUploadStop, 0);
        panel.OnTick();
        ASSERT_EQ(panel.Uploads().size(), 2u);
        const int slowRow = Cell(panel.List(), 0, "Name") == "slow.bin" ? 0 : 1;
        const long stoppedId = panel.Uploads()[slowRow].id;
        SelectRow(panel.List(), slowRow);
        ::SendMessageA(panel.Window(), WM_COMMAND, win::kUploadStop, 0);
        EXPECT_TRUE(PumpUntil(
            [&] {
                panel.OnTick();
                return std::none_of(
                    panel.Uploads().begin(), panel.Uploads().end(),
                    [&](const UploadInfo& upload) { return upload.id == stoppedId; });
            },
            30000));

        // Limit Speed off: the engine lets the big file go at full speed and the peer has it.
        ::SendMessageA(panel.Window(), WM_COMMAND, win::kUploadLimitSpeed, 0);
        EXPECT_FALSE(
            ::SendMessageA(panel.Toolbar(), TB_ISBUTTONCHECKED, win::kUploadLimitSpeed, 0));
        EXPECT_EQ(win::ReadDword(win::kHttpServerKey, win::kMaxUploadSpeedValue), 0u);
        // The peer names what it fetched by its SHA1.
        const auto fetched = FixtureFolder() + "\\peer\\" + fixture.Sha1("big.bin");
        EXPECT_TRUE(PumpUntil(
            [&] {
                panel.OnTick();
                return ReadWholeFile(fetched) == ReadWholeFile(fixture.SharedFile("big.bin"));
            },
            60000));
        // On again: with no "UploadLimit" of the user's, 30720 is the limit in force.
        ::SendMessageA(panel.Window(), WM_COMMAND, win::kUploadLimitSpeed, 0);
        EXPECT_EQ(win::ReadDword(win::kHttpServerKey, win::kMaxUploadSpeedValue), 30720u);
        EXPECT_TRUE(::SendMessageA(panel.Toolbar(), TB_ISBUTTONCHECKED, win::kUploadLimitSpeed, 0));
        engine->Disconnect();
    }
}

} // namespace
} // namespace corvid::transfer::testing
