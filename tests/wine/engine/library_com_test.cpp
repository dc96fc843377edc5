// The file manager ("TFMan") and the engine's upload component, in process and sharing one index:
// folders shared and hashed, files found by SHA1, bad folders refused, a shared download found by
// another peer of the loopback network, and an upload that shows in the list, keeps the
// registry's speed limit and ends when it is stopped.

#include "library/file_index.h"
#include "platform/win/text.h"
#include "platform/win/user_folders.h"
#include "tests/wine/engine/engine_test_support.h"
#include "tests/wine/support/wine_test_support.h"

#include <gtest/gtest.h>

#include <winsock2.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <thread>

namespace corvid::testing {
namespace {

namespace fs = std::filesystem;
using win::Bstr;
using win::ComPtr;

constexpr DWORD kWaitMs = 30000;

void WriteRandomFile(const fs::path& path, std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(generator() & 0xFF);
    }
    std::ofstream(path, std::ios::binary) << bytes;
}

long SharedCount(IFileManager* files) {
    long count = -1;
    files->GetSharedFileCount(&count);
    return count;
}

Bstr WideBstr(const std::wstring& text) {
    return Bstr(text.c_str());
}

// Runs a program with its output in a pipe; returns what it printed.
std::string RunAndRead(std::wstring commandLine) {
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (!::CreatePipe(&readEnd, &writeEnd, &inherit, 0)) {
        return {};
    }
    win::KernelHandle reader(readEnd);
    win::KernelHandle writer(writeEnd);
    ::SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                          &startup, &process)) {
        return {};
    }
    win::KernelHandle processHandle(process.hProcess);
    win::KernelHandle threadHandle(process.hThread);
    writer.reset();
    std::string output;
    char buffer[4096];
    DWORD got = 0;
    while (::ReadFile(readEnd, buffer, sizeof buffer, &got, nullptr) && got > 0) {
        output.append(buffer, got);
    }
    ::WaitForSingleObject(process.hProcess, 60000);
    return output;
}

void SetUploadLimit(DWORD bytesPerSecond) {
    win::RegKey key;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Tarvo Explorer\\HttpServer", 0,
                                nullptr, 0, KEY_SET_VALUE, nullptr, key.put(), nullptr),
              ERROR_SUCCESS);
    ::RegSetValueExW(key.get(), L"maxULSpeedLimit", 0, REG_DWORD,
                     reinterpret_cast<const BYTE*>(&bytesPerSecond), sizeof bytesPerSecond);
}

class FileManagerInProcess : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(apartment_.result()));
        ASSERT_TRUE(RegisterOnly(Server::InProcess));
        // Other tests of the run share this prefix and may have left folders shared: this test
        // counts files of its own folder only, so it starts from an empty library.
        std::error_code ignored;
        fs::remove(fs::path(win::CorvidConfigFolder()) / "Library.txt", ignored);
        wchar_t temp[MAX_PATH] = {};
        ::GetTempPathW(MAX_PATH, temp);
        folder_ = fs::path(temp) / ("corvid-library-" + std::to_string(::GetCurrentProcessId()));
        fs::remove_all(folder_);
        fs::create_directories(folder_ / "sub");
        WriteRandomFile(folder_ / "first tune.mp3", 70000, 1);
        WriteRandomFile(folder_ / "second.txt", 1000, 2);
        WriteRandomFile(folder_ / "sub" / "third clip.avi", 200000, 3);
        ASSERT_EQ(CreateLikeThePlugIn(CLSID_FileManager, IID_IFileManager, files_.put_void()),
                  S_OK);
        sink_ = EventSink::Make(DIID__IFileManagerEvents);
        cookie_ = Advise(files_.get(), DIID__IFileManagerEvents, sink_->Identity());
    }
    void TearDown() override {
        if (files_) {
            Unadvise(files_.get(), DIID__IFileManagerEvents, cookie_);
            files_->RemoveSharedFolder(WideBstr(folder_.wstring()).get());
            files_.reset();
        }
        // The library's settings are this test's own: the next test starts from none.
        std::error_code ignored;
        fs::remove(fs::path(win::CorvidConfigFolder()) / "Library.txt", ignored);
        fs::remove(win::NetWorkIniPath(), ignored);
        fs::remove_all(folder_, ignored);
        UnregisterBoth();
    }

    win::ComApartment apartment_;
    fs::path folder_;
    ComPtr<IFileManager> files_;
    ComPtr<EventSink> sink_;
    DWORD cookie_ = 0;
};

TEST_F(FileManagerInProcess, SharesAFolderHashesItAndFindsFilesBySha1) {
    ASSERT_EQ(files_->AddSharedFolder(WideBstr(folder_.wstring()).get()), S_OK);
    EXPECT_EQ(files_->AddSharedFolder(WideBstr(folder_.wstring() + L"\\").get()), S_FALSE)
        << "the same folder again";
    ASSERT_TRUE(PumpUntil([&] { return SharedCount(files_.get()) == 3; }, kWaitMs));
    ASSERT_TRUE(PumpUntil([&] { return sink_->Count(1) > 0; }, kWaitMs)) << "no change event";
    for (const auto& event : sink_->events) {
        EXPECT_EQ(event.thread, ::GetCurrentThreadId());
    }

    Bstr folders;
    ASSERT_EQ(files_->GetSharedFolders(folders.put()), S_OK);
    EXPECT_EQ(std::wstring(folders.get()), folder_.wstring() + L"\r\n");

    const auto sha1 = library::HashFile(folder_ / "sub" / "third clip.avi");
    ASSERT_TRUE(sha1);
    Bstr path;
    ASSERT_EQ(files_->FindBySha1(WideBstr(win::ToWide(*sha1)).get(), path.put()), S_OK);
    EXPECT_EQ(::lstrcmpiW(path.get(), (folder_ / "sub" / "third clip.avi").wstring().c_str()), 0)
        << Narrow(path.get());
    ASSERT_EQ(
        files_->FindBySha1(Bstr(L"urn:sha1:AAAABBBBCCCCDDDDEEEEFFFFGGGGHHHH").get(), path.put()),
        S_OK);
    EXPECT_EQ(::SysStringLen(path.get()), 0u) << "not on disk";
    EXPECT_EQ(files_->FindBySha1(Bstr(L"not a sha1").get(), path.put()), E_INVALIDARG);

    Bstr library;
    ASSERT_EQ(files_->GetLibraryText(library.put()), S_OK);
    const std::string text = Narrow(library.get());
    EXPECT_EQ(Elements(text, "file").size(), 3u);
    EXPECT_EQ(Elements(text, "progress"), std::vector<std::string>(3, "100"));

    // The hash cache spares a new library object from hashing the same files again: a file
    // rewritten behind its back with its size and time kept still carries the remembered hash,
    // where hashing it again would have found another.
    files_.reset();
    const fs::path second = folder_ / "second.txt";
    const auto secondSha1 = library::HashFile(second);
    ASSERT_TRUE(secondSha1);
    const auto written = fs::last_write_time(second);
    WriteRandomFile(second, 1000, 4);
    fs::last_write_time(second, written);
    ASSERT_EQ(CreateLikeThePlugIn(CLSID_FileManager, IID_IFileManager, files_.put_void()), S_OK);
    ASSERT_TRUE(PumpUntil([&] { return SharedCount(files_.get()) == 3; }, kWaitMs));
    ASSERT_EQ(files_->FindBySha1(WideBstr(win::ToWide(*secondSha1)).get(), path.put()), S_OK);
    EXPECT_EQ(::lstrcmpiW(path.get(), second.wstring().c_str()), 0) << "hashed from the cache";

    ASSERT_EQ(files_->RemoveSharedFolder(WideBstr(folder_.wstring()).get()), S_OK);
    EXPECT_EQ(SharedCount(files_.get()), 0);
    EXPECT_EQ(files_->RemoveSharedFolder(WideBstr(folder_.wstring()).get()), S_FALSE);
}

TEST_F(FileManagerInProcess, ALargeFolderIsWalkedInTheBackgroundAndEveryFileArrives) {
    constexpr int kFiles = 1000;
    for (int i = 0; i < kFiles; ++i) {
        const fs::path part = folder_ / "many" / ("part " + std::to_string(i % 20));
        fs::create_directories(part);
        std::ofstream(part / ("walked " + std::to_string(i) + ".txt"), std::ios::binary) << i;
    }
    ASSERT_EQ(files_->AddSharedFolder(WideBstr(folder_.wstring()).get()), S_OK);
    std::string text;
    ASSERT_TRUE(PumpUntil(
        [&] {
            Bstr library;
            files_->GetLibraryText(library.put());
            text = Narrow(library.get());
            return Elements(text, "file").size() == kFiles + 3u;
        },
        kWaitMs))
        << Elements(text, "file").size() << " files";
    ASSERT_TRUE(PumpUntil([&] { return SharedCount(files_.get()) == kFiles + 3; }, kWaitMs));
    ASSERT_EQ(files_->RemoveSharedFolder(WideBstr(folder_.wstring()).get()), S_OK);
    EXPECT_EQ(SharedCount(files_.get()), 0) << "unshared at once";
}

TEST_F(FileManagerInProcess, RefusesWhatItCannotShareAndChangesNothing) {
    EXPECT_EQ(files_->AddSharedFolder(WideBstr(folder_.wstring() + L"\\missing").get()),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(files_->AddSharedFolder(WideBstr((folder_ / "second.txt").wstring()).get()),
              HRESULT_FROM_WIN32(ERROR_DIRECTORY));
    EXPECT_EQ(files_->AddSharedFolder(nullptr), E_INVALIDARG);
    EXPECT_EQ(files_->AddSharedFolder(WideBstr(folder_.wstring() + L"\r\nC:\\").get()),
              E_INVALIDARG);
    EXPECT_EQ(files_->ShareDownload(WideBstr((folder_ / "gone.mp3").wstring()).get()),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(files_->put_HashingCpuShare(0), E_INVALIDARG);
    EXPECT_EQ(files_->put_HashingCpuShare(101), E_INVALIDARG);
    EXPECT_EQ(files_->GetSharedFileCount(nullptr), E_POINTER);
    ASSERT_EQ(files_->put_HashingCpuShare(30), S_OK);
    long share = 0;
    ASSERT_EQ(files_->get_HashingCpuShare(&share), S_OK);
    EXPECT_EQ(share, 30);

    Bstr folders;
    ASSERT_EQ(files_->GetSharedFolders(folders.put()), S_OK);
    EXPECT_EQ(::SysStringLen(folders.get()), 0u);
    EXPECT_EQ(SharedCount(files_.get()), 0);
}

// The engine beside the file manager, joined to the fixture's network as a leaf.
class EngineWithItsLibrary : public FileManagerInProcess {
protected:
    void SetUp() override {
        FileManagerInProcess::SetUp();
        network_ = LoadNetwork();
        ASSERT_TRUE(network_.loaded) << "the loopback network fixture did not run";
        std::string hosts;
        for (const auto& address : network_.ultrapeers) {
            hosts += (hosts.empty() ? "" : ",") + address;
        }
        WriteNetWorkIni("[NetWork]\r\nNodeMode=2\r\nBehindFirewall=0\r\nPeerMaxCount=2\r\nHosts=" +
                        hosts + "\r\n");
        ASSERT_EQ(
            CreateLikeThePlugIn(CLSID_GnutellaEngine, IID_IGnutellaEngine, engine_.put_void()),
            S_OK);
    }
    void TearDown() override {
        if (engine_) {
            engine_->Disconnect();
            engine_.reset();
        }
        win::RegKey key;
        if (::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Tarvo Explorer\\HttpServer", 0,
                            KEY_SET_VALUE, key.put()) == ERROR_SUCCESS) {
            ::RegDeleteValueW(key.get(), L"maxULSpeedLimit");
        }
        FileManagerInProcess::TearDown();
    }

    void Join() {
        ASSERT_EQ(engine_->Connect(), S_OK);
        ASSERT_TRUE(PumpUntil(
            [&] {
                long count = 0;
                engine_->GetNodeCount(&count);
                return count == 2;
            },
            kWaitMs));
    }

    std::uint16_t EnginePort() {
        Bstr info;
        engine_->GetNetworkInfo(info.put());
        const auto address = Elements(Narrow(info.get()), "Address");
        return address.empty() ? 0
                               : static_cast<std::uint16_t>(
                                     std::stoi(address[0].substr(address[0].find(':') + 1)));
    }

    LoopbackNetwork network_;
    ComPtr<IGnutellaEngine> engine_;
};

TEST_F(EngineWithItsLibrary, ASharedDownloadIsFoundByAnotherPeer) {
    const fs::path download = folder_ / "completed download rarebird.ogg";
    WriteRandomFile(download, 50000, 9);
    ASSERT_EQ(files_->ShareDownload(WideBstr(download.wstring()).get()), S_OK);
    ASSERT_TRUE(PumpUntil([&] { return SharedCount(files_.get()) == 1; }, kWaitMs));
    Join();

    // Another peer searches through the ultrapeers; the engine's routing table reaches them
    // shortly after the link opens, so the search is repeated until it is answered.
    const std::wstring command = L"\"" + BesideThisProgram(L"corvid-node.exe") +
                                 L"\" search --connect " + win::ToWide(network_.ultrapeers[0]) +
                                 L" --timeout 3 --enough 1 rarebird";
    std::string printed;
    ASSERT_TRUE(PumpUntil(
        [&] {
            printed = RunAndRead(command);
            return printed.find("completed download rarebird.ogg") != std::string::npos;
        },
        kWaitMs))
        << printed;
    const auto sha1 = library::HashFile(download);
    ASSERT_TRUE(sha1);
    EXPECT_NE(printed.find(*sha1), std::string::npos) << printed;
}

// A peer fetching one file from the engine over HTTP, on a thread of its own, noting how many
// bytes it had at what time.
class Fetcher {
public:
    Fetcher(std::uint16_t port, std::string sha1) {
        thread_ = std::thread([this, port, sha1] { Run(port, sha1); });
    }
    ~Fetcher() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    std::uint64_t received() const { return received_; }
    bool done() const { return done_; }
    // Bytes per second between the moments it had from and to bytes.
    double RateBetween(std::uint64_t from, std::uint64_t to) {
        std::lock_guard<std::mutex> guard(lock_);
        DWORD start = 0;
        DWORD end = 0;
        std::uint64_t startBytes = 0;
        std::uint64_t endBytes = 0;
        for (const auto& [tick, bytes] : marks_) {
            if (!start && bytes >= from) {
                start = tick, startBytes = bytes;
            }
            if (bytes >= to) {
                end = tick, endBytes = bytes;
                break;
            }
        }
        return end > start ? (endBytes - startBytes) * 1000.0 / (end - start) : 0;
    }

private:
    void Run(std::uint16_t port, const std::string& sha1) {
        WSADATA data;
        ::WSAStartup(MAKEWORD(2, 2), &data);
        SOCKET s = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(s, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0) {
            const std::string request = "GET /uri-res/N2R?urn:sha1:" + sha1 +
                                        " HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: "
                                        "Corvid-Test\r\nConnection: close\r\n\r\n";
            ::send(s, request.data(), static_cast<int>(request.size()), 0);
            char buffer[16384];
            int got = 0;
            while ((got = ::recv(s, buffer, sizeof buffer, 0)) > 0) {
                received_ += static_cast<std::uint64_t>(got);
                std::lock_guard<std::mutex> guard(lock_);
                marks_.emplace_back(::GetTickCount(), received_.load());
            }
        }
        ::closesocket(s);
        ::WSACleanup();
        done_ = true;
    }

    std::thread thread_;
    std::atomic<std::uint64_t> received_{0};
    std::atomic<bool> done_{false};
    std::mutex lock_;
    std::vector<std::pair<DWORD, std::uint64_t>> marks_;
};

TEST_F(EngineWithItsLibrary, AnUploadShowsKeepsTheRegistryLimitAndStops) {
    constexpr std::size_t kSize = 3 << 20;
    constexpr DWORD kLimit = 512 * 1024;
    WriteRandomFile(folder_ / "upload test.bin", kSize, 7);
    ASSERT_EQ(files_->AddSharedFolder(WideBstr(folder_.wstring()).get()), S_OK);
    ASSERT_TRUE(PumpUntil([&] { return SharedCount(files_.get()) == 4; }, kWaitMs));
    SetUploadLimit(kLimit);
    Join();
    const auto sha1 = library::HashFile(folder_ / "upload test.bin");
    ASSERT_TRUE(sha1);
    ComPtr<IUploadManager> uploads;
    ASSERT_EQ(engine_->GetUploads(uploads.put()), S_OK);

    Fetcher fetcher(EnginePort(), *sha1);
    std::string text;
    ASSERT_TRUE(PumpUntil(
        [&] {
            Bstr list;
            uploads->GetUploadsText(list.put());
            text = Narrow(list.get());
            return !Elements(text, "FileName").empty();
        },
        kWaitMs));
    EXPECT_EQ(Elements(text, "FileName"), std::vector<std::string>{"upload test.bin"});
    EXPECT_EQ(Elements(text, "IP"), std::vector<std::string>{"127.0.0.1"});
    long count = 0;
    ASSERT_EQ(uploads->GetUploadCount(&count), S_OK);
    EXPECT_EQ(count, 1);

    // Measured past the first bucketful, over a megabyte.
    ASSERT_TRUE(PumpUntil([&] { return fetcher.received() >= (3u << 19); }, kWaitMs));
    const double rate = fetcher.RateBetween(1u << 19, 3u << 19);
    std::printf("upload rate %.0f bytes/s under a limit of %lu\n", rate, kLimit);
    EXPECT_GT(rate, kLimit * 0.9);
    EXPECT_LT(rate, kLimit * 1.1);

    const auto start = text.find("<UploadInfo id=\"") + 16;
    const long id = std::stol(text.substr(start));
    ASSERT_EQ(uploads->StopUpload(id), S_OK);
    ASSERT_TRUE(PumpUntil([&] { return fetcher.done(); }, kWaitMs));
    EXPECT_LT(fetcher.received(), kSize) << "the upload was cut short";
    ASSERT_EQ(uploads->GetUploadCount(&count), S_OK);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(uploads->StopUpload(id), E_INVALIDARG) << "it is gone";
}

} // namespace
} // namespace corvid::testing
