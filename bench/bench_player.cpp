// The player as a user feels it: how long a button press takes to reach the host as a notification
// while a track plays, what the whole local path costs per second of audio against the bare MP3
// library, and what idle players cost. Runs on the virtual sound card.
#include <benchmark/benchmark.h>
#include <mpg123.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CAudioDecoderChain.h"
#include "CAudioSource.h"
#include "CPCMOutput.h"
#include "CPlayer.h"
#include "CTimer.h"
#include "Logger.h"
#include "PacketReader.h"
#include "QuietDelegate.h"
#include "vcard.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kSamples = 200;
constexpr int kWaitMs = 5000;
constexpr const char* kLongTrack = "track_long.mp3";
// A song of ordinary length: opening a file (probing, stream information) is paid once per song.
constexpr const char* kSong = "bench_song_180s.mp3";

// Counts the notifications a latency sample waits for.
class Waiter : public QuietDelegate {
public:
    void NotifyPlaybackCommandExecuted(const KorvelPlayer::PlaybackInfo&) override { bump(m_executed); }
    void NotifyPlaybackStateChanged(const KorvelPlayer::PlaybackInfo& info, const char*) override {
        std::lock_guard<std::mutex> guard(m_lock);
        m_state = info.m_player_state;
        ++m_changes;
        m_changed.notify_all();
    }

    bool wait_state(int state) {
        std::unique_lock<std::mutex> guard(m_lock);
        return m_changed.wait_for(guard, std::chrono::milliseconds(kWaitMs), [&] { return m_state == state; });
    }
    int executed() {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_executed;
    }
    bool wait_executed(int after) {
        std::unique_lock<std::mutex> guard(m_lock);
        return m_changed.wait_for(guard, std::chrono::milliseconds(kWaitMs), [&] { return m_executed > after; });
    }

private:
    void bump(int& counter) {
        std::lock_guard<std::mutex> guard(m_lock);
        ++counter;
        m_changed.notify_all();
    }
    std::mutex m_lock;
    std::condition_variable m_changed;
    int m_state = -1;
    int m_changes = 0;
    int m_executed = 0;
};

// A virtual card and a media folder in a scratch directory, for the life of one benchmark.
struct Card {
    std::string dir;
    vcard::VirtualCard card;
    bool ok = false;
    explicit Card(vcard::Variant variant) {
        vcard::Options options;
        options.variant = variant;
        ok = vcard::MakeTempDir("korvel_bench", &dir) == 0 && vcard::VirtualCard::Create(dir, options, &card) == 0 &&
             std::system(("cp '" + MediaPath(kLongTrack) + "' '" + MediaPath(kSong) + "' '" + dir + "/'").c_str()) == 0;
        snd_config_update_free_global();
    }
    ~Card() {
        snd_config_update_free_global();
        if (!dir.empty()) vcard::RemoveTree(dir);
    }
};

KorvelPlayer::InitParams Params(const std::string& dir, int id) {
    KorvelPlayer::InitParams ip;
    ip.player_id = id;
    ip.playlist_dir = dir + "/";
    ip.media_dir = dir + "/";
    ip.prefix = "PLAYBACK :";
    return ip;
}

void Percentiles(benchmark::State& state, std::vector<double> ms) {
    if (ms.empty()) return;
    std::sort(ms.begin(), ms.end());
    state.counters["p50_ms"] = ms[ms.size() / 2];
    state.counters["p99_ms"] = ms[std::min(ms.size() - 1, ms.size() * 99 / 100)];
    state.counters["max_ms"] = ms.back();
}

double Since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

enum Press { kStop, kPause, kNext, kVolume };

// One button press at a time while the long track plays: the time to its notification.
void BM_CommandLatency(benchmark::State& state) {
    const auto press = static_cast<Press>(state.range(0));
    const unsigned saved_mask = g_logger.mask();
    g_logger.set_mask(Logger::kMaskCritical);
    utils::CTimer::instance().start_thread();
    Card card(vcard::Variant::kPaced);
    Waiter waiter;
    CPlayer player;
    player.SetDelegate(&waiter, &player);
    if (!card.ok || player.Initialize(Params(card.dir, 1), KorvelPlayer::StreamParams()) != 0) {
        state.SkipWithError("no card or player");
        g_logger.set_mask(saved_mask);
        return;
    }
    KorvelPlayer::PlayerItem item;
    item.name = kLongTrack;
    item.repeat_count = -1;
    item.volume = 50;
    player.SetItem(item);
    player.Play();
    std::vector<double> samples;
    for (auto _ : state) {
        for (int i = 0; i < kSamples && waiter.wait_state(KorvelPlayer::PLAYER_STATE_PLAYING); ++i) {
            // Let the track run a little, so that the press lands in the middle of a write.
            std::this_thread::sleep_for(std::chrono::milliseconds(20 + i % 17));
            const int executed = waiter.executed();
            const auto start = Clock::now();
            bool seen = false;
            switch (press) {
                case kStop:
                    player.Stop(true);
                    seen = waiter.wait_state(KorvelPlayer::PLAYER_STATE_IDLE);
                    break;
                case kPause:
                    player.Pause();
                    seen = waiter.wait_state(KorvelPlayer::PLAYER_STATE_PAUSED);
                    break;
                case kNext:
                    player.PlayNext();
                    seen = waiter.wait_executed(executed);
                    break;
                case kVolume:
                    player.SetVolume(static_cast<unsigned short>(40 + i % 20));
                    seen = waiter.wait_executed(executed);
                    break;
            }
            if (seen) samples.push_back(Since(start));
            if (press == kStop || press == kPause) player.Play();
        }
    }
    Percentiles(state, samples);
    player.Deinitialize();
    g_logger.set_mask(saved_mask);
}
BENCHMARK(BM_CommandLatency)->ArgName("stop0_pause1_next2_volume3")->DenseRange(kStop, kVolume)->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// Whole local path on the card's untimed variant, so only the player's own work is measured.
void BM_LocalPath(benchmark::State& state) {
    const unsigned saved_mask = g_logger.mask();
    g_logger.set_mask(Logger::kMaskCritical);
    Card card(vcard::Variant::kFast);
    CPCMOutput output;
    output.SetDevice(std::getenv("KORVEL_BENCH_DEVICE") ? std::getenv("KORVEL_BENCH_DEVICE") : "plug:channel1");
    CAudioDecoderChain chain;
    CAudioSource source;
    mpg123_init();
    if (!card.ok || chain.CreateChain("BENCH") != 0) {
        state.SkipWithError("no card or decoder");
        return;
    }
    chain.SetOutput(&output);
    source.SetOutput(&chain);
    const std::string path = card.dir + "/" + kSong;
    double seconds = 0;
    for (auto _ : state) {
        if (source.Initialize(path, kSong) < 0) {
            state.SkipWithError("track did not open");
            break;
        }
        chain.RestartFeed();
        bool changed = false;
        while (source.ProcessPacket(changed) >= 0) {
        }
        seconds += static_cast<double>(source.m_duration_ms) / 1000;
        source.Close();
    }
    state.counters["audio_s_per_cpu_s"] = benchmark::Counter(seconds, benchmark::Counter::kIsRate);
    output.DeInitialize();
    chain.DestroyChain();
    g_logger.set_mask(saved_mask);
}
BENCHMARK(BM_LocalPath)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

// The bare library on the same file, read and decoded to memory: what the local path is measured against.
void BM_LocalPathBareMpg123(benchmark::State& state) {
    mpg123_init();
    const std::string path = MediaPath(kSong);
    std::vector<unsigned char> pcm(32768);
    double seconds = 0;
    for (auto _ : state) {
        mpg123_handle* handle = mpg123_new(nullptr, nullptr);
        long rate = 0;
        int channels = 0;
        int encoding = 0;
        if (handle == nullptr || mpg123_open(handle, path.c_str()) != MPG123_OK ||
            mpg123_getformat(handle, &rate, &channels, &encoding) != MPG123_OK) {
            state.SkipWithError("mpg123 could not open the track");
            mpg123_delete(handle);
            break;
        }
        size_t done = 0;
        size_t bytes = 0;
        while (mpg123_read(handle, pcm.data(), pcm.size(), &done) == MPG123_OK || done > 0) {
            bytes += done;
            if (done == 0) break;
        }
        seconds += static_cast<double>(bytes) / (static_cast<double>(rate) * channels * 2);
        mpg123_delete(handle);
    }
    state.counters["audio_s_per_cpu_s"] = benchmark::Counter(seconds, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LocalPathBareMpg123)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Initialised players with nothing to play, for ten seconds: CPU per minute of idling.
void BM_IdlePlayers(benchmark::State& state) {
    constexpr int kIdleSeconds = 10;
    const int count = static_cast<int>(state.range(0));
    const unsigned saved_mask = g_logger.mask();
    g_logger.set_mask(Logger::kMaskCritical);
    utils::CTimer::instance().start_thread();
    Card card(vcard::Variant::kPaced);
    std::vector<std::unique_ptr<CPlayer>> players;
    for (int id = 1; id <= count; ++id) {
        players.emplace_back(new CPlayer());
        if (!card.ok || players.back()->Initialize(Params(card.dir, id), KorvelPlayer::StreamParams()) != 0) {
            state.SkipWithError("no card or player");
            break;
        }
    }
    double cpu = 0;
    for (auto _ : state) {
        const double before = CpuSeconds();
        std::this_thread::sleep_for(std::chrono::seconds(kIdleSeconds));
        cpu = CpuSeconds() - before;
    }
    state.counters["cpu_ms_per_minute"] = cpu * 1000 * 60 / kIdleSeconds;
    for (auto& player : players) player->Deinitialize();
    g_logger.set_mask(saved_mask);
}
BENCHMARK(BM_IdlePlayers)->Arg(1)->Arg(4)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
