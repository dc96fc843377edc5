#include "transfer/win/download_dll_engine.h"

#include "platform/win/module.h"
#include "platform/win/text.h"

namespace corvid::transfer::win {
namespace {

std::string BesideThisModule(const char* name) {
    auto path = corvid::win::ToAnsi(corvid::win::ModulePath().c_str(),
                                    static_cast<int>(corvid::win::ModulePath().size()));
    const auto cut = path.find_last_of("\\/");
    return cut == std::string::npos ? std::string(name) : path.substr(0, cut + 1) + name;
}

} // namespace

DownloadDllEngine::DownloadDllEngine(const std::string& path) {
    if (path.empty()) {
        module_.reset(::LoadLibraryA(BesideThisModule("Download.dll").c_str()));
        if (!module_)
            module_.reset(::LoadLibraryA("Download.dll"));
    } else {
        module_.reset(::LoadLibraryA(path.c_str()));
    }
    if (!module_)
        return;
    using corvid::win::ProcAddress;
    create_ = ProcAddress<decltype(create_)>(module_.get(), "CreateDownloadObject");
    addSource_ = ProcAddress<decltype(addSource_)>(module_.get(), "AddDownloadSource");
    download_ = ProcAddress<decltype(download_)>(module_.get(), "Download");
    info_ = ProcAddress<decltype(info_)>(module_.get(), "GetDownloadInfo");
    stop_ = ProcAddress<decltype(stop_)>(module_.get(), "StopDownload");
    close_ = ProcAddress<decltype(close_)>(module_.get(), "CloseDownloadObject");
    delete_ = ProcAddress<decltype(delete_)>(module_.get(), "DeleteDownloadObject");
    loaded_ = create_ && addSource_ && download_ && info_ && stop_ && close_ && delete_;
}

DownloadDllEngine::~DownloadDllEngine() {
    // The page closes every object before it lets the engine go; whatever is left is closed here,
    // before the library is unloaded under its threads.
    std::map<std::uint32_t, std::unique_ptr<Binding>> left;
    {
        std::lock_guard guard(lock_);
        left.swap(bindings_);
    }
    if (loaded_)
        for (const auto& [handle, binding] : left)
            close_(handle);
}

int DOWNLOAD_CALL DownloadDllEngine::Trampoline(void* context, uint32_t handle, uint32_t sourceId,
                                                int32_t event, intptr_t argument) {
    const auto* binding = static_cast<const Binding*>(context);
    return binding->callback(binding->context, handle, sourceId, event,
                             static_cast<std::uintptr_t>(argument));
}

std::uint32_t DownloadDllEngine::CreateDownloadObject(const std::string& localPath) {
    return loaded_ ? create_(localPath.c_str()) : 0;
}

std::uint32_t DownloadDllEngine::AddDownloadSource(std::uint32_t handle, const std::string& url) {
    return loaded_ ? addSource_(handle, url.c_str()) : 0;
}

void DownloadDllEngine::Download(std::uint32_t handle, EngineEventCallback callback,
                                 void* context) {
    if (!loaded_)
        return;
    Binding* binding;
    {
        std::lock_guard guard(lock_);
        auto& slot = bindings_[handle];
        slot = std::make_unique<Binding>(Binding{callback, context});
        binding = slot.get();
    }
    if (download_(handle, &Trampoline, binding) == 0)
        Unbind(handle);
}

std::int32_t DownloadDllEngine::GetDownloadInfo(std::uint32_t handle, std::int32_t reserved,
                                                std::int32_t infoCode) {
    return loaded_ ? info_(handle, static_cast<uint32_t>(reserved), infoCode) : -1;
}

void DownloadDllEngine::StopDownload(std::uint32_t handle) {
    if (loaded_)
        stop_(handle);
}

void DownloadDllEngine::CloseDownloadObject(std::uint32_t handle) {
    if (!loaded_)
        return;
    close_(handle);
    Unbind(handle);
}

void DownloadDllEngine::DeleteDownloadObject(std::uint32_t handle) {
    if (!loaded_)
        return;
    delete_(handle);
    Unbind(handle);
}

void DownloadDllEngine::Unbind(std::uint32_t handle) {
    std::lock_guard guard(lock_);
    bindings_.erase(handle);
}

} // namespace corvid::transfer::win
