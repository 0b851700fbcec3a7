// The demo program: plays a stream or a folder of the memory card on player 1, as the device's
// configuration says, reports every notification on the console and in the status file, and runs
// until it is asked to stop with SIGINT or SIGTERM.
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <pthread.h>
#include <string>
#include <unistd.h>

#include "CPlayer.h"
#include "Configuration.h"
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

constexpr int kPlayerId = 1;
constexpr const char* kPlayerPrefix = "PLAYBACK :";
constexpr const char* kUnsetFolder = "./";
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
constexpr unsigned kPcmSettleSeconds = 2;

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

// The stop of a running player; `signal_number` becomes the exit status.
int OnInterrupt(CPlayer& player, int signal_number) {
    std::printf("Interrupt signal (%d) received.\n", signal_number);
    player.Stop(true);
    player.Deinitialize();
    return signal_number;
}
}  // namespace

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
