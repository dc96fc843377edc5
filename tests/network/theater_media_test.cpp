#include "theater/media_player.h"

#include <gtest/gtest.h>

namespace corvid::theater {
namespace {

TEST(TheaterMedia, PlaysVideoAndAudioByTheFileName) {
    EXPECT_TRUE(IsPlayableMedia("C:\\Downloads\\holiday.AVI"));
    EXPECT_TRUE(IsPlayableMedia("night train.mp3"));
    EXPECT_FALSE(IsPlayableMedia("C:\\Downloads\\photo.jpg"));
    EXPECT_FALSE(IsPlayableMedia("C:\\Downloads\\setup.exe"));
    // A dot in a folder's name says nothing about the file.
    EXPECT_FALSE(IsPlayableMedia("C:\\clips.avi\\readme"));
    EXPECT_FALSE(IsPlayableMedia(""));
}

} // namespace
} // namespace corvid::theater
