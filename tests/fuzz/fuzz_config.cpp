// The demo program's configuration file, as the device owner edits it by hand: the program's own
// reading of it, with the media root in a scratch tree (a folder "music" of two tracks and a note,
// and an empty folder) where a missing playlist is generated.
#include <cctype>
#include <cstdio>
#include <fstream>
#include <string>
#include <sys/stat.h>

#include "CIniReader.h"
#include "Configuration.h"
#include "FuzzTarget.h"

namespace {
constexpr const char* kFolders[] = {"", "music/", "empty/"};

std::string Lowered(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}
}  // namespace

KORVEL_FUZZ_TARGET(fuzz_config) {
    static const bool ready = (korvel_fuzz::QuietLogger(), true);
    (void)ready;
    korvel_fuzz::Scratch& scratch = korvel_fuzz::Scratch::Get();
    const std::string root = scratch.path("media") + "/";
    static const bool tree = [&] {
        for (const char* folder : kFolders) ::mkdir((root + folder).c_str(), 0700);
        scratch.Write("media/music/a.mp3", nullptr, 0);
        scratch.Write("media/music/b.mp3", nullptr, 0);
        scratch.Write("media/music/notes.txt", nullptr, 0);
        return true;
    }();
    (void)tree;

    ProgramPaths paths{scratch.Write("vendra_player.conf", data, size), root, scratch.path("status")};
    // The program appends the folder to the media root as written: a folder that climbs out of the
    // scratch tree would have the fuzzer write playlists into the machine's own folders.
    if (CIniReader(paths.config).Get("", "media_folder", "").find("..") != std::string::npos) return 0;

    KorvelPlayer::PlayerItem item;
    KorvelPlayer::StreamParams sp;
    KorvelPlayer::InitParams ip;
    const bool ok = ReadConfiguration(paths, item, sp, ip);

    const CIniReader config(paths.config);
    if (ok) {
        KORVEL_FUZZ_CHECK(!item.name.empty());
        if (Lowered(config.Get("", "media_type", "")).find("stream") != std::string::npos) {
            KORVEL_FUZZ_CHECK(item.name == config.Get("", "url", ""));
        } else {
            KORVEL_FUZZ_CHECK(item.name == "p.m3u");
            KORVEL_FUZZ_CHECK(ip.playlist_dir == ip.media_dir);
            KORVEL_FUZZ_CHECK(ip.media_dir.compare(0, root.size(), root) == 0 && ip.media_dir.back() == '/');
            // A generated playlist lists the folder's tracks and nothing else.
            if (ip.media_dir != root) {
                std::ifstream playlist(ip.media_dir + "p.m3u");
                KORVEL_FUZZ_CHECK(playlist.is_open());
                for (std::string line; std::getline(playlist, line);)
                    KORVEL_FUZZ_CHECK(line.find(".mp3") != std::string::npos);
            }
        }
    }

    // The next input finds the tree as it was.
    for (const char* folder : kFolders) std::remove((root + folder + "p.m3u").c_str());
    return 0;
}
