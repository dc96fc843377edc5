#include "transfer/download_item.h"

#include <algorithm>

namespace corvid::transfer {

void SourceLog::Append(std::time_t time, std::int32_t kind, std::string text) {
    std::lock_guard guard(lock_);
    lines_.push_back(LogLine{time, kind, std::move(text)});
    if (lines_.size() > kKeptLines) {
        lines_.pop_front();
        ++dropped_;
    }
}

std::size_t SourceLog::Size() const {
    std::lock_guard guard(lock_);
    return dropped_ + lines_.size();
}

LogLines SourceLog::LinesFrom(std::size_t from) const {
    std::lock_guard guard(lock_);
    LogLines out;
    out.first = std::max(from, dropped_);
    const std::size_t skip = out.first - dropped_;
    if (skip < lines_.size())
        out.lines.assign(lines_.begin() + static_cast<std::ptrdiff_t>(skip), lines_.end());
    return out;
}

bool DownloadItem::HasSourceUrl(const std::string& url) const {
    return std::any_of(sources.begin(), sources.end(),
                       [&](const auto& source) { return source->url == url; });
}

} // namespace corvid::transfer
