#pragma once

// The theater (p2p_theater): a panel hosting a media player control, "WMPlayer.ocx" when it can
// be created, else the "rmocx.RealPlayer G2 Control". When neither exists the panel says so and
// takes no files.
//
// The download page's Run goes through RunMediaFile: the theater plays what it accepts, and
// everything else (or everything, without a theater or a player) opens in the program Windows
// has for it.

#include "shell/win/panel.h"
#include "theater/media_player.h"

#include <windows.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace corvid::theater {

std::unique_ptr<shell::Panel> MakeTheaterPanel(shell::PanelSite& site);
// The same with the player controls to try, by ProgID, best first (tests name absent ones).
std::unique_ptr<shell::Panel> MakeTheaterPanel(shell::PanelSite& site,
                                               std::vector<std::wstring> playerProgIds);

// The player of the theater panel while it exists (there is one per main view), else null. UI
// thread only.
MediaPlayer* FindMediaPlayer();

// The shell's "open" for a file; false when Windows could not open it.
bool ShellOpen(HWND owner, const std::string& path);

// Plays the file in the theater when it accepts it, else hands it to open (the shell's "open"
// unless a test puts its own in). Returns whether one of them took the file.
bool RunMediaFile(HWND owner, const std::string& path,
                  const std::function<bool(HWND, const std::string&)>& open = ShellOpen);

// The panel's message window, for tests: shown when no player control could be created.
HWND TheaterMessageOf(HWND theaterPanelWindow);

} // namespace corvid::theater
