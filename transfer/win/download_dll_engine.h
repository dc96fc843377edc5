#pragma once

// The download page's engine over Download.dll: the seven exports looked up by their plain names,
// and the library's __stdcall callback turned into the page's own.

#include <windows.h>

#include "download/dll/download_api.h"
#include "platform/win/handles.h"
#include "transfer/download_ports.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace corvid::transfer::win {

class DownloadDllEngine : public DownloadEngine {
public:
    // Loads the library from `path`; an empty path means "Download.dll" beside this module, then
    // wherever the system finds it. Loaded() says whether it worked: without the library every
    // object is refused.
    explicit DownloadDllEngine(const std::string& path = {});
    ~DownloadDllEngine() override;

    bool Loaded() const { return loaded_; }

    std::uint32_t CreateDownloadObject(const std::string& localPath) override;
    std::uint32_t AddDownloadSource(std::uint32_t handle, const std::string& url) override;
    void Download(std::uint32_t handle, EngineEventCallback callback, void* context) override;
    std::int32_t GetDownloadInfo(std::uint32_t handle, std::int32_t reserved,
                                 std::int32_t infoCode) override;
    void StopDownload(std::uint32_t handle) override;
    void CloseDownloadObject(std::uint32_t handle) override;
    void DeleteDownloadObject(std::uint32_t handle) override;

private:
    // What the library's callback context points to, one per started object; it lives until the
    // object is closed or deleted (both wait for the library's thread).
    struct Binding {
        EngineEventCallback callback;
        void* context;
    };
    static int DOWNLOAD_CALL Trampoline(void* context, uint32_t handle, uint32_t sourceId,
                                        int32_t event, intptr_t argument);
    void Unbind(std::uint32_t handle);

    corvid::win::Module module_;
    bool loaded_ = false;
    decltype(&::CreateDownloadObject) create_ = nullptr;
    decltype(&::AddDownloadSource) addSource_ = nullptr;
    decltype(&::Download) download_ = nullptr;
    decltype(&::GetDownloadInfo) info_ = nullptr;
    decltype(&::StopDownload) stop_ = nullptr;
    decltype(&::CloseDownloadObject) close_ = nullptr;
    decltype(&::DeleteDownloadObject) delete_ = nullptr;

    std::mutex lock_;
    std::map<std::uint32_t, std::unique_ptr<Binding>> bindings_;
};

} // namespace corvid::transfer::win
