#include "download/core/download_runner.h"

#include <asio/executor_work_guard.hpp>
#include <mutex>
#include <optional>
#include <thread>

namespace corvid::download {

struct DownloadRunner::State {
    State(std::string target, DownloadOptions options)
        : work(asio::make_work_guard(context)),
          download(context, std::move(target), std::move(options)) {}

    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> work;
    Download download; // after the context: it posts its last words there when destroyed
    std::mutex lock;
    std::thread thread;
    bool finished = false;
};

DownloadRunner::DownloadRunner(std::string targetPath, DownloadOptions options)
    : state_(std::make_shared<State>(std::move(targetPath), std::move(options))) {}

DownloadRunner::~DownloadRunner() {
    finish(Finish::Close);
}

std::uint32_t DownloadRunner::addSource(std::string_view url) {
    return state_->download.addSource(url);
}

bool DownloadRunner::start(EventHandler handler) {
    std::lock_guard guard(state_->lock);
    if (state_->finished || state_->thread.joinable() ||
        !state_->download.start(std::move(handler))) {
        return false;
    }
    // The thread holds the state too, so a finish() from inside an event can let it go.
    state_->thread = std::thread([state = state_]() { state->context.run(); });
    return true;
}

void DownloadRunner::stop() {
    state_->download.stop();
}

void DownloadRunner::finish(Finish how) {
    std::thread thread;
    {
        std::lock_guard guard(state_->lock);
        if (state_->finished) {
            return;
        }
        state_->finished = true;
        if (how == Finish::Forget) {
            state_->download.forget();
        } else {
            state_->download.close();
        }
        state_->work.reset();
        thread = std::move(state_->thread);
    }
    if (!thread.joinable()) {
        return;
    }
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else {
        thread.join();
    }
}

std::int32_t DownloadRunner::info(InfoCode code) const {
    return state_->download.info(code);
}

} // namespace corvid::download
