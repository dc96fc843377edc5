#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "download/core/downloader.h"

namespace corvid::download {

// A Download with a thread of its own: what Download.dll hands out behind each handle. Events
// come on that thread. finish() waits for the thread, unless called from it (from inside an
// event), in which case the thread is left to end by itself.
class DownloadRunner {
public:
    DownloadRunner(std::string targetPath, DownloadOptions options);
    ~DownloadRunner();
    DownloadRunner(const DownloadRunner&) = delete;
    DownloadRunner& operator=(const DownloadRunner&) = delete;

    std::uint32_t addSource(std::string_view url);
    bool start(EventHandler handler);
    void stop();
    enum class Finish { Close, Forget };
    void finish(Finish how);
    std::int32_t info(InfoCode code) const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace corvid::download
