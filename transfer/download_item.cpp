#include "transfer/download_item.h"

#include <algorithm>

namespace corvid::transfer {

void SourceLog::Append(std::time_t time, std::int32_t kind, std::string text) {
    std::lock_guard guard(lock_);
    lines_.push_back(LogLine{time, kind, std::move(text)});
}

std::size_t SourceLog::Size() const {
    std::lock_guard guard(lock_);
    return lines_.size();
}

std::vector<LogLine> SourceLog::LinesFrom(std::size_t from) const {
    std::lock_guard guard(lock_);
    if (from >= lines_.size())
        return {};
    return {lines_.begin() + static_cast<std::ptrdiff_t>(from), lines_.end()};
}

bool DownloadItem::HasSourceUrl(const std::string& url) const {
    return std::any_of(sources.begin(), sources.end(),
                       [&](const auto& source) { return source->url == url; });
}

} // namespace corvid::transfer
