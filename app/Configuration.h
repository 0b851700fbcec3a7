#ifndef VENDRA_CONFIGURATION_H
#define VENDRA_CONFIGURATION_H

#include <string>

#include "PlayerTypes.h"

// The demo program's reading of its configuration file, kept apart from main() so that the parse of
// a file the device owner edits by hand can be exercised on its own.

// The playback buffer when the configuration names none, and before it is read.
constexpr long kDefaultBufferMs = 500;
constexpr const char* kPathSeparator = "/";

// Where the program finds its files: the device's fixed paths, each replaceable through the
// environment so that a development machine or a test can run the program without root rights.
struct ProgramPaths {
    std::string config;
    std::string media_root;  // always ends with a separator: folders are appended to it
    std::string status;
};

// 0 when the playlist exists afterwards or could not be written (the player then reports the item),
// 1 when the folder cannot be opened.
int CreatePlaylistIfMissing(const char* folder, const char* playlist_path);

// Fills the item to play, the stream buffering and the folders from the configuration file, printing
// what it found; false when the file cannot be read or names nothing playable.
bool ReadConfiguration(const ProgramPaths& paths, KorvelPlayer::PlayerItem& item, KorvelPlayer::StreamParams& sp,
                       KorvelPlayer::InitParams& ip);

#endif
