// corvid-demo: Corvid's main job in the real host window, step by step.
//
//   corvid-demo --network NETWORK.ENV --downloads FOLDER [--keywords TEXT] [--interactive]
//
// NETWORK.ENV is what scripts/loopback-network wrote. Screenshots go to the folder named by
// CORVID_SCREENSHOTS when it is set. With --interactive the window stays open until the user
// closes it. Exit 0 when every step reached its goal.

#include <windows.h>

#include "platform/win/handles.h"
#include "platform/win/text.h"
#include "tests/wine/support/wine_test_support.h"
#include "tools/corvid_demo/main_job.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::wstring ProgramFolder() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder(path, length < MAX_PATH ? length : 0);
    const std::size_t cut = folder.find_last_of(L"\\/");
    return cut == std::wstring::npos ? L"." : folder.substr(0, cut);
}

std::string Narrow(const wchar_t* text) {
    return corvid::win::ToAnsi(text, static_cast<int>(::lstrlenW(text)));
}

int Usage() {
    std::fprintf(stderr, "usage: corvid-demo --network NETWORK.ENV --downloads FOLDER "
                         "[--keywords TEXT] [--interactive]\n");
    return 2;
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    std::string networkFile;
    corvid::demo::MainJobOptions options;
    bool interactive = false;
    for (int i = 1; i < argc; ++i) {
        const std::wstring option = argv[i];
        const bool hasValue = i + 1 < argc;
        if (option == L"--network" && hasValue) {
            networkFile = Narrow(argv[++i]);
        } else if (option == L"--downloads" && hasValue) {
            options.downloadFolder = Narrow(argv[++i]);
        } else if (option == L"--keywords" && hasValue) {
            options.keywords = Narrow(argv[++i]);
        } else if (option == L"--interactive") {
            interactive = true;
        } else {
            return Usage();
        }
    }
    if (networkFile.empty() || options.downloadFolder.empty() || options.keywords.empty()) {
        return Usage();
    }
    std::ifstream in(networkFile, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::string error;
    const auto facts = corvid::demo::ReadNetworkFacts(text.str(), error);
    if (!facts) {
        std::fprintf(stderr, "corvid-demo: %s: %s\n", networkFile.c_str(), error.c_str());
        return 2;
    }
    options.network = *facts;
    options.hostFolder = ProgramFolder();
    options.report = [](const std::string& line) {
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
    };
    options.screenshot = [](const std::string& name) {
        const std::string path = corvid::testing::SaveScreenshot(name);
        if (!path.empty()) {
            std::printf("  screenshot %s\n", name.c_str());
            std::fflush(stdout);
        }
    };

    corvid::win::ComApartment apartment;
    if (FAILED(apartment.result())) {
        std::fprintf(stderr, "corvid-demo: COM could not start\n");
        return 1;
    }
    const auto start = std::chrono::steady_clock::now();
    corvid::demo::MainJob job(options);
    const bool done = job.Open() && job.WaitOnline() && job.Search() && job.Download() &&
                      job.WaitComplete() && job.CheckFile() && job.ShowHosts() &&
                      job.ShowLibrary() && job.ShowConsole();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (done) {
        std::printf("SHA1 %s of %s equals the source's; the main job took %.1f s\n",
                    job.DownloadedSha1().c_str(), options.network.bigFileName.c_str(), seconds);
    } else {
        std::fprintf(stderr, "corvid-demo: %s\n", job.Error().c_str());
    }
    std::fflush(stdout);
    if (interactive && job.Frame()) {
        std::printf("the window stays open; close it to stop the network\n");
        std::fflush(stdout);
        job.RunUntilClosed();
    }
    job.Close();
    return done ? 0 : 1;
}
