#include "theater/media_player.h"

#include "search/media_class.h"

namespace corvid::theater {

bool IsPlayableMedia(std::string_view path) {
    // Only the name decides, not a dot in a folder above it.
    const std::size_t slash = path.find_last_of("\\/");
    if (slash != std::string_view::npos) {
        path.remove_prefix(slash + 1);
    }
    const MediaClass mediaClass = MediaClassOf(path);
    return mediaClass == MediaClass::Video || mediaClass == MediaClass::Audio;
}

} // namespace corvid::theater
