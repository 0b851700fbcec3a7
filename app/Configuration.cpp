#include "Configuration.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>

#include "CIniReader.h"

using KorvelPlayer::InitParams;
using KorvelPlayer::PlayerItem;
using KorvelPlayer::StreamParams;

namespace {
constexpr const char* kPlaylistName = "p.m3u";
constexpr const char* kListedMarker = ".mp3";  // as written, anywhere in an entry's name
constexpr const char* kStreamMarker = "stream";
constexpr const char* kUnnamedSection = "";
constexpr const char* kNoText = "";

constexpr int kDefaultVolume = 50;
constexpr int kPlayForever = -1;
constexpr int kConfiguredRequestId = 1;

constexpr int kPlaylistCreated = 0;
constexpr int kFolderMissing = 1;

// Lets a unique_ptr close a directory stream on every way out of a function.
struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
// Lets a unique_ptr close a stdio file on every way out of a function.
struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

std::string Lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    return text;
}
}  // namespace

int CreatePlaylistIfMissing(const char* folder, const char* playlist_path) {
    const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(folder));
    if (!directory) {
        std::perror(kNoText);
        return kFolderMissing;
    }
    // The user may have edited or reordered the playlist: it is never rewritten.
    struct stat existing;
    if (stat(playlist_path, &existing) == 0) return kPlaylistCreated;

    std::printf("Playlist %s does not exist, creating it first time.\n", playlist_path);
    const std::unique_ptr<FILE, FileCloser> playlist(std::fopen(playlist_path, "w"));
    if (!playlist) return kPlaylistCreated;
    while (const dirent* entry = readdir(directory.get())) {
        if (std::strstr(entry->d_name, kListedMarker) == nullptr) continue;
        std::puts(entry->d_name);
        std::fprintf(playlist.get(), "%s\n", entry->d_name);
    }
    return kPlaylistCreated;
}

bool ReadConfiguration(const ProgramPaths& paths, PlayerItem& item, StreamParams& sp, InitParams& ip) {
    const CIniReader config(paths.config);
    // A syntax error on some line is no reason to refuse the keys of all the others.
    if (config.ParseError() < 0) return false;

    item.interrupt = false;
    item.shuffle = false;
    item.repeat_count = kPlayForever;
    item.request_id = kConfiguredRequestId;
    item.auto_fade_streams = true;

    item.volume = static_cast<int32_t>(config.GetInteger(kUnnamedSection, "volume", kDefaultVolume));
    std::printf("Volume=%d\n", item.volume);
    sp.rtp_delay = static_cast<uint16_t>(config.GetInteger(kUnnamedSection, "buffer_ms", kDefaultBufferMs));
    std::printf("BUFFER SIZE=%d\n", sp.rtp_delay);
    const std::string media_type = config.Get(kUnnamedSection, "media_type", kNoText);
    std::printf("MEDIA_TYPE is %s\n", media_type.c_str());

    if (Lowered(media_type).find(kStreamMarker) != std::string::npos) {
        std::puts("Playing stream...");
        item.name = config.Get(kUnnamedSection, "url", kNoText);
        if (item.name.empty()) return false;
        std::printf("ITEM NAME is %s\n", item.name.c_str());
        return true;
    }

    const std::string media_folder = config.Get(kUnnamedSection, "media_folder", kNoText);
    std::printf("Media folder is [%s]\n", media_folder.c_str());
    item.name = kPlaylistName;
    if (media_folder.empty()) {
        // The card's root keeps a playlist of its own making: nothing is generated there.
        ip.playlist_dir = ip.media_dir = paths.media_root;
        std::printf("ITEM NAME is %s\n", item.name.c_str());
        return true;
    }
    const std::string folder = paths.media_root + media_folder + kPathSeparator;
    ip.playlist_dir = ip.media_dir = folder;
    if (CreatePlaylistIfMissing(folder.c_str(), (folder + kPlaylistName).c_str()) != kPlaylistCreated) return false;
    std::printf("ITEM NAME is %s\n", item.name.c_str());
    return true;
}

