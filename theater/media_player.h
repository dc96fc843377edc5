#pragma once

// What the theater offers the rest of the plug-in: the download page asks whether the theater
// takes a file and hands it over to be played (theater/win/theater_panel.h finds the player).

#include <string>
#include <string_view>

namespace corvid::theater {

class MediaPlayer {
public:
    virtual ~MediaPlayer() = default;
    // Whether the theater plays this file: a player control is there and the file is video or
    // audio by its extension.
    virtual bool Accepts(const std::string& path) const = 0;
    // Brings the theater forward and plays the file; false when the player could not take it.
    virtual bool Play(const std::string& path) = 0;
};

// The media classes a player control plays: video and audio.
bool IsPlayableMedia(std::string_view path);

} // namespace corvid::theater
