// The seven exports of Download.dll over the portable downloader: a table of handles, each a
// DownloadRunner with its own thread, and the translation of events into callback arguments.
#include "download/dll/download_api.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>

#include "download/core/download_runner.h"

namespace {

using corvid::download::DownloadEvent;
using corvid::download::DownloadOptions;
using corvid::download::DownloadRunner;
using corvid::download::EventCode;
using corvid::download::InfoCode;

class HandleTable {
public:
    std::uint32_t add(std::shared_ptr<DownloadRunner> runner) {
        std::lock_guard guard(lock_);
        do {
            ++last_;
        } while (last_ == 0 || runners_.count(last_) > 0);
        runners_.emplace(last_, std::move(runner));
        return last_;
    }
    std::shared_ptr<DownloadRunner> find(std::uint32_t handle) {
        std::lock_guard guard(lock_);
        const auto it = runners_.find(handle);
        return it == runners_.end() ? nullptr : it->second;
    }
    std::shared_ptr<DownloadRunner> take(std::uint32_t handle) {
        std::lock_guard guard(lock_);
        const auto it = runners_.find(handle);
        if (it == runners_.end()) {
            return nullptr;
        }
        auto runner = std::move(it->second);
        runners_.erase(it);
        return runner;
    }

private:
    std::mutex lock_;
    std::uint32_t last_ = 0;
    std::map<std::uint32_t, std::shared_ptr<DownloadRunner>> runners_;
};

HandleTable& Handles() {
    static HandleTable table;
    return table;
}

intptr_t ArgumentOf(const DownloadEvent& event) {
    switch (event.code) {
    case EventCode::Connecting:
    case EventCode::ResolveFailed:
    case EventCode::RequestSent:
    case EventCode::HeaderReceived:
    case EventCode::Redirected:
    case EventCode::FileName:
        return reinterpret_cast<intptr_t>(event.text.c_str());
    case EventCode::Received:
    case EventCode::HttpError:
        return static_cast<intptr_t>(event.number);
    case EventCode::FileLength:
        return reinterpret_cast<intptr_t>(event.words.data());
    default:
        return 0;
    }
}

} // namespace

extern "C" {

uint32_t DOWNLOAD_CALL CreateDownloadObject(const char* localPath) {
    if (localPath == nullptr || *localPath == '\0') {
        return 0;
    }
    try {
        DownloadOptions options;
        if (const char* folder = std::getenv("CORVID_DOWNLOAD_TEMP")) {
            options.temporaryFolder = folder;
        }
        return Handles().add(std::make_shared<DownloadRunner>(localPath, options));
    } catch (...) {
        return 0;
    }
}

uint32_t DOWNLOAD_CALL AddDownloadSource(uint32_t handle, const char* url) {
    const auto runner = Handles().find(handle);
    if (!runner || url == nullptr) {
        return 0;
    }
    try {
        return runner->addSource(url);
    } catch (...) {
        return 0;
    }
}

int32_t DOWNLOAD_CALL Download(uint32_t handle, DownloadEventCallback callback, void* context) {
    const auto runner = Handles().find(handle);
    if (!runner) {
        return 0;
    }
    try {
        return runner->start([callback, context, handle](const DownloadEvent& event) {
            if (callback != nullptr) {
                callback(context, handle, event.sourceId, static_cast<int32_t>(event.code),
                         ArgumentOf(event));
            }
        })
                   ? 1
                   : 0;
    } catch (...) {
        return 0;
    }
}

int32_t DOWNLOAD_CALL GetDownloadInfo(uint32_t handle, uint32_t, int32_t infoCode) {
    const auto runner = Handles().find(handle);
    if (!runner || infoCode < 0 || infoCode > static_cast<int32_t>(InfoCode::Percent)) {
        return -1;
    }
    return runner->info(static_cast<InfoCode>(infoCode));
}

void DOWNLOAD_CALL StopDownload(uint32_t handle) {
    if (const auto runner = Handles().find(handle)) {
        runner->stop();
    }
}

void DOWNLOAD_CALL CloseDownloadObject(uint32_t handle) {
    if (const auto runner = Handles().take(handle)) {
        runner->finish(DownloadRunner::Finish::Close);
    }
}

void DOWNLOAD_CALL DeleteDownloadObject(uint32_t handle) {
    if (const auto runner = Handles().take(handle)) {
        runner->finish(DownloadRunner::Finish::Forget);
    }
}

} // extern "C"
