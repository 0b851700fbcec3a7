// The demo program: plays a stream or a folder of the memory card on player 1, as the device's
// configuration says, reports every notification on the console and in the status file, and runs
// until it is asked to stop with SIGINT or SIGTERM.
#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "CIniReader.h"
#include "CPlayer.h"
#include "CTestPlayerDelegate.h"
#include "CTimer.h"
#include "Logger.h"
#include "PlayerTypes.h"

using KorvelPlayer::InitParams;
using KorvelPlayer::PlayerItem;
using KorvelPlayer::StreamParams;

namespace {
constexpr const char* kLogIdentity = "vendra player";
constexpr const char* kProgramVersion = "1.1";

constexpr const char* kConfigPathVariable = "VENDRA_PLAYER_CONFIG";
constexpr const char* kDefaultConfigPath = "/etc/vendra_player.conf";
constexpr const char* kMediaRootVariable = "VENDRA_PLAYER_MEDIA_ROOT";
constexpr const char* kDefaultMediaRoot = "/media/mmcsd0p1/";
constexpr const char* kStatusPathVariable = "VENDRA_PLAYER_STATUS";
constexpr const char* kDefaultStatusPath = "/var/run/vendra_player";

constexpr const char* kPlaylistName = "p.m3u";
constexpr const char* kListedMarker = ".mp3";  // as written, anywhere in an entry's name
constexpr const char* kStreamMarker = "stream";
constexpr const char* kPathSeparator = "/";
constexpr const char* kUnnamedSection = "";
constexpr const char* kNoText = "";

constexpr int kPlayerId = 1;
constexpr const char* kPlayerPrefix = "PLAYBACK :";
constexpr const char* kUnsetFolder = "./";
constexpr int kDefaultVolume = 50;
constexpr long kDefaultBufferMs = 500;
constexpr int kPlayForever = -1;
constexpr int kConfiguredRequestId = 1;
constexpr unsigned kApplyVolumeAtOnce = 0;

// Buffering for streams: RTP keeps its configured delay within a tight band; TCP radios get a
// long delay with a wide band, since their servers send in bursts.
constexpr uint16_t kRtpAccuracyMs = 100;
constexpr uint16_t kRtpLowThresholdMs = 100;
constexpr uint16_t kTcpDelayMs = 5000;
constexpr uint16_t kTcpAccuracyMs = 500;
constexpr uint16_t kTcpLowThresholdMs = 1000;
constexpr uint32_t kStreamFadeMs = 1000;
constexpr int32_t kTrackFadeMarginMs = 1000;

constexpr int kExitConfigurationUnusable = -1;  // seen as 255 by the shell
constexpr int kExitNormal = 0;
constexpr int kPlaylistCreated = 0;
constexpr int kFolderMissing = 1;
constexpr unsigned kPcmSettleSeconds = 2;

// Where the program finds its files: the device's fixed paths, each replaceable through the
// environment so that a development machine or a test can run the program without root rights.
struct ProgramPaths {
    std::string config;
    std::string media_root;  // always ends with a separator: folders are appended to it
    std::string status;
};

std::string FromEnvironment(const char* variable, const char* fallback) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0' ? value : fallback;
}

ProgramPaths PathsFromEnvironment() {
    ProgramPaths paths{FromEnvironment(kConfigPathVariable, kDefaultConfigPath),
                       FromEnvironment(kMediaRootVariable, kDefaultMediaRoot),
                       FromEnvironment(kStatusPathVariable, kDefaultStatusPath)};
    if (paths.media_root.back() != kPathSeparator[0]) paths.media_root += kPathSeparator;
    return paths;
}

// The stop requests of the process. SIGINT and SIGTERM are blocked in every thread from the first
// line of main on (threads inherit the mask of the thread that starts them), and the main thread
// takes them synchronously with sigwait. No asynchronous handler ever runs, so the shutdown that
// follows may take the player's locks, allocate and print like any other code.
class CStopSignals {
public:
    // Must run before the first thread of the process starts.
    CStopSignals() {
        sigemptyset(&m_set);
        sigaddset(&m_set, SIGINT);
        sigaddset(&m_set, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &m_set, nullptr);
    }
    CStopSignals(const CStopSignals&) = delete;
    CStopSignals& operator=(const CStopSignals&) = delete;

    // Main thread: the number of the first stop request; one sent earlier is returned at once.
    int Wait() const {
        for (;;) {
            int signal_number = 0;
            if (sigwait(&m_set, &signal_number) == 0) return signal_number;
        }
    }

    // Main thread: from now on a stop request ends the process the default way, as when nobody
    // waits for it.
    void Release() const { pthread_sigmask(SIG_UNBLOCK, &m_set, nullptr); }

private:
    sigset_t m_set;
};

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

// The stop of a running player; `signal_number` becomes the exit status.
int OnInterrupt(CPlayer& player, int signal_number) {
    std::printf("Interrupt signal (%d) received.\n", signal_number);
    player.Stop(true);
    player.Deinitialize();
    return signal_number;
}
}  // namespace

// 0 when the playlist exists afterwards or could not be written (the player then reports the item),
// 1 when the folder cannot be opened.
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

int main() {
    const CStopSignals stop_signals;
    // The console is usually a pipe to a logger or a test: each line has to arrive as it is printed.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const ProgramPaths paths = PathsFromEnvironment();

    utils::CTimer::instance().start_thread();
    g_logger.init(kLogIdentity);
    g_logger.set_mask(Logger::kFullMask);

    CPlayer player;
    CTestPlayerDelegate delegate(paths.status);
    player.SetDelegate(&delegate, &player);

    PlayerItem item;
    item.name.clear();
    item.shuffle = false;
    item.interrupt = true;
    item.option = false;
    item.repeat_count = 1;
    item.volume = 0;
    item.request_id = 0;
    item.auto_fade_streams = true;
    item.auto_fade_tracks = false;

    StreamParams sp;
    sp.rtp_delay = static_cast<uint16_t>(kDefaultBufferMs);
    sp.rtp_accuracy = kRtpAccuracyMs;
    sp.rtp_low_threshold = kRtpLowThresholdMs;
    sp.tcp_delay = kTcpDelayMs;
    sp.tcp_accuracy = kTcpAccuracyMs;
    sp.tcp_low_threshold = kTcpLowThresholdMs;
    sp.stream_fade = kStreamFadeMs;
    sp.track_fade_margin = kTrackFadeMarginMs;

    InitParams ip;
    ip.playlist_dir = kUnsetFolder;
    ip.media_dir = kUnsetFolder;
    ip.prefix = kPlayerPrefix;

    std::string version;
    player.GetVersion(version);
    std::printf("Starting Vendra Player v%s with player library version (%s)\n", kProgramVersion, version.c_str());

    ip.player_id = kPlayerId;
    if (!ReadConfiguration(paths, item, sp, ip)) {
        std::puts("Error parsing config and setting player params.");
        return kExitConfigurationUnusable;
    }

    if (player.Initialize(ip, sp) == 0) {
        player.SetItem(item);
        player.FadeIn(kApplyVolumeAtOnce, static_cast<unsigned>(item.volume));
        return OnInterrupt(player, stop_signals.Wait());
    }

    std::puts("Error initilizing Vendra Player! Check config (media folder may be missing).");
    // Nobody waits for a stop request any more: Ctrl-C during the pause below simply ends the program.
    stop_signals.Release();
    std::puts("main: Player Test: Deinitilaizing ...");
    const int result = player.Deinitialize();
    utils::CTimer::instance().shutdown();
    std::printf("main: Player Test: Deinitilaizing returned %d\n", result);
    std::printf("main: Sleeping 2s to allow PCM to exit properly.. %d\n", result);
    sleep(kPcmSettleSeconds);
    std::printf("Vendra Player: End. %d\n", result);
    return kExitNormal;
}
