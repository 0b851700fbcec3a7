// What a minute of audio costs the device, one way of playing per process so that each peak RSS is
// its own: an HTTP MP3 stream through the buffered output, a local MP3 file through the direct
// output, and libmpg123 decoding the same file alone. Both player runs play into the virtual
// card's untimed variant, which drops the audio rather than write it to a file, so that the file
// system's cost is not counted as the player's. Prints one line:
// "<mode> cpu_s_per_audio_min=<x> peak_rss_kb=<n> peak_anon_kb=<n>": the peak of all resident
// pages, and of the anonymous ones alone (heap, stacks: what the process itself allocated, as
// opposed to the shared libraries' pages, which the system can drop and share).
//
// Usage: korvel_stream_footprint stream URL AUDIO_SECONDS | file PATH [AUDIO_SECONDS] | mpg123 PATH
//                                | aac PATH | resample PCM_PATH OPTIONS | first URL
//                                | launch COMMAND [ARG]...
// "aac" is libfdk-aac decoding an ADTS file alone, the floor of an AAC stream as "mpg123" is of an
// MP3 one. "resample" converts raw 16-bit stereo 44.1 kHz PCM to 48 kHz as the buffered output
// does, with libswresample's OPTIONS ("key=value:key=value", "default" for none), or "off" to
// only copy it, so that the difference is the resampler's own cost. With AUDIO_SECONDS given, "file"
// does not decode the file a second time to learn its length: the instruction count of the whole
// process (bench/footprint_armhf.sh) then holds the player's run alone.
// "first" plays the stream on the real-time card instead and prints the time from Play to the end
// of the open (buffering starts), to the playing state and to the card's start, with a 1 s delay
// configured. "launch" runs COMMAND with the same card as its whole ALSA configuration (its
// channel1 is what "first" plays on) and prints the time from the launch to the card's start.
#include <fdk-aac/aacdecoder_lib.h>
#include <mpg123.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CPlayer.h"
#include "CTimer.h"
#include "Logger.h"
#include "QuietDelegate.h"
#include "vcard.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace {

constexpr int kSecondsPerMinute = 60;
constexpr int kMaxRunSeconds = 300;
constexpr int kPlayerChannel = 1;
constexpr auto kLogPollInterval = std::chrono::milliseconds(10);
constexpr double kMsPerSecond = 1000;

// Seconds on the clock the card's log is written with.
double MonotonicSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// When the card first started, in its log's clock, or a negative value before it has.
double CardStart(const vcard::VirtualCard& card) {
    std::vector<vcard::LogEvent> events;
    vcard::ReadLog(card.log_path(kPlayerChannel), &events);
    for (const vcard::LogEvent& event : events)
        if (event.name == "start") return event.time;
    return -1;
}

// Waits for the player to have played its item and gone idle again.
class Done : public QuietDelegate {
public:
    void NotifyPlaybackStateChanged(const KorvelPlayer::PlaybackInfo& info, const char*) override {
        std::lock_guard<std::mutex> guard(m_lock);
        const auto now = std::chrono::steady_clock::now();
        if (info.m_player_state == KorvelPlayer::PLAYER_STATE_BUFFERING && m_opened_at == Clock::time_point())
            m_opened_at = now;
        if (info.m_player_state == KorvelPlayer::PLAYER_STATE_PLAYING && !m_played) m_playing_at = now;
        if (info.m_player_state == KorvelPlayer::PLAYER_STATE_PLAYING) m_played = true;
        if (m_played && info.m_player_state == KorvelPlayer::PLAYER_STATE_IDLE) m_idle = true;
        m_changed.notify_all();
    }
    bool wait() {
        std::unique_lock<std::mutex> guard(m_lock);
        return m_changed.wait_for(guard, std::chrono::seconds(kMaxRunSeconds), [&] { return m_idle; });
    }
    bool wait_playing() {
        std::unique_lock<std::mutex> guard(m_lock);
        return m_changed.wait_for(guard, std::chrono::seconds(kMaxRunSeconds), [&] { return m_played; });
    }
    using Clock = std::chrono::steady_clock;
    void report(Clock::time_point start, double card_start_ms, int delay_ms) {
        std::lock_guard<std::mutex> guard(m_lock);
        const auto ms = [&](Clock::time_point at) { return std::chrono::duration<double, std::milli>(at - start).count(); };
        std::printf("first   open_ms=%.0f playing_ms=%.0f card_start_ms=%.0f delay_ms=%d\n", ms(m_opened_at),
                    ms(m_playing_at), card_start_ms, delay_ms);
    }

private:
    Clock::time_point m_opened_at;   // guarded by m_lock
    Clock::time_point m_playing_at;  // guarded by m_lock
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_played = false;
    bool m_idle = false;
};

// Samples the process's anonymous resident pages while a run lasts and keeps the largest figure.
class AnonPeak {
public:
    AnonPeak() : m_thread([this] { run(); }) {}
    ~AnonPeak() { stop(); }
    long stop() {
        m_running = false;
        if (m_thread.joinable()) m_thread.join();
        return m_peak_kb;
    }

private:
    // Rare enough that the sampling costs next to nothing of the CPU figure, and the heap of a
    // stream run does not grow after its first second anyway; the stop is seen within a slice.
    static constexpr auto kSlice = std::chrono::milliseconds(50);
    static constexpr int kSlicesPerSample = 20;
    static long read_kb() {
        FILE* status = std::fopen("/proc/self/status", "r");
        if (status == nullptr) return 0;
        char line[256];
        long kb = 0;
        while (std::fgets(line, sizeof line, status) != nullptr && std::sscanf(line, "RssAnon: %ld", &kb) != 1) {
        }
        std::fclose(status);
        return kb;
    }
    void run() {
        for (int slice = 0; m_running; ++slice) {
            if (slice % kSlicesPerSample == 0) m_peak_kb = std::max(m_peak_kb, read_kb());
            std::this_thread::sleep_for(kSlice);
        }
        m_peak_kb = std::max(m_peak_kb, read_kb());
    }
    std::atomic<bool> m_running{true};
    long m_peak_kb = 0;  // written by the sampling thread only, read after the join
    std::thread m_thread;
};

double CpuSeconds(long* peak_rss_kb) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    *peak_rss_kb = usage.ru_maxrss;
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Plays one item on player 1 of a fresh card (untimed, or real-time for `first_sound`); false when
// it did not play to its end. With `first_sound` it stops once the card has started and prints when.
bool Play(const std::string& item, const std::string& media_dir, bool first_sound = false) {
    std::string dir;
    vcard::VirtualCard card;
    vcard::Options options;
    options.variant = first_sound ? vcard::Variant::kPaced : vcard::Variant::kFast;
    options.capture = first_sound;  // the untimed card drops what it plays
    if (vcard::MakeTempDir("korvel_footprint", &dir) != 0 || vcard::VirtualCard::Create(dir, options, &card) != 0)
        return false;
    utils::CTimer::instance().start_thread();
    Done done;
    bool ok;
    {
        CPlayer player;
        player.SetDelegate(&done, &player);
        KorvelPlayer::InitParams ip;
        ip.player_id = kPlayerChannel;
        ip.playlist_dir = media_dir;
        ip.media_dir = media_dir;
        ip.prefix = "FOOTPRINT :";
        KorvelPlayer::StreamParams sp;
        constexpr int kDelayMs = 1000;
        sp.tcp_delay = kDelayMs;
        sp.tcp_accuracy = 250;
        sp.tcp_low_threshold = 500;
        sp.stream_fade = 0;
        ok = player.Initialize(ip, sp) == 0;
        if (ok) {
            KorvelPlayer::PlayerItem entry;
            entry.name = item;
            entry.repeat_count = 1;
            entry.volume = 50;
            player.SetItem(entry);
            const auto start = std::chrono::steady_clock::now();
            const double started = MonotonicSeconds();
            player.Play();
            ok = first_sound ? done.wait_playing() : done.wait();
            // The playing state is the player's account; the card's log says when sound reached it.
            double card_start = -1;
            while (ok && first_sound && (card_start = CardStart(card)) < 0 &&
                   MonotonicSeconds() - started < kMaxRunSeconds)
                std::this_thread::sleep_for(kLogPollInterval);
            if (ok && first_sound) done.report(start, (card_start - started) * kMsPerSecond, kDelayMs);
        }
        player.Deinitialize();
    }
    utils::CTimer::instance().shutdown();
    vcard::RemoveTree(dir);
    return ok;
}

double DecodeAlone(const std::string& path) {
    mpg123_init();
    mpg123_handle* handle = mpg123_new(nullptr, nullptr);
    long rate = 0;
    int channels = 0;
    int encoding = 0;
    if (handle == nullptr || mpg123_open(handle, path.c_str()) != MPG123_OK ||
        mpg123_getformat(handle, &rate, &channels, &encoding) != MPG123_OK)
        return 0;
    std::vector<unsigned char> pcm(32768);
    size_t done = 0;
    size_t bytes = 0;
    while (mpg123_read(handle, pcm.data(), pcm.size(), &done) == MPG123_OK) bytes += done;
    bytes += done;
    mpg123_delete(handle);
    return static_cast<double>(bytes) / (static_cast<double>(rate) * channels * 2);
}

double FileSeconds(const std::string& path) { return DecodeAlone(path); }

// libfdk-aac alone on an ADTS file, fed in pieces as a network source hands them over; the audio
// seconds decoded, or 0 on an error.
double DecodeAacAlone(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    HANDLE_AACDECODER decoder = aacDecoder_Open(TT_MP4_ADTS, 1);
    if (file == nullptr || decoder == nullptr) {
        if (file != nullptr) std::fclose(file);
        if (decoder != nullptr) aacDecoder_Close(decoder);
        return 0;
    }
    constexpr size_t kPiece = 4096;
    constexpr int kMaxFrameSamples = 2048 * 8;
    std::vector<UCHAR> input(kPiece);
    std::vector<INT_PCM> pcm(kMaxFrameSamples);
    double seconds = 0;
    size_t got;
    while ((got = std::fread(input.data(), 1, input.size(), file)) > 0) {
        UINT valid = static_cast<UINT>(got);
        while (valid > 0) {
            UCHAR* in = input.data() + (got - valid);
            UINT length = static_cast<UINT>(valid);
            if (aacDecoder_Fill(decoder, &in, &length, &valid) != AAC_DEC_OK) break;
            AAC_DECODER_ERROR err;
            while ((err = aacDecoder_DecodeFrame(decoder, pcm.data(), kMaxFrameSamples, 0)) == AAC_DEC_OK) {
                const CStreamInfo* info = aacDecoder_GetStreamInfo(decoder);
                if (info != nullptr && info->sampleRate > 0) seconds += static_cast<double>(info->frameSize) / info->sampleRate;
            }
            if (err != AAC_DEC_NOT_ENOUGH_BITS && !IS_DECODE_ERROR(err)) break;
        }
    }
    aacDecoder_Close(decoder);
    std::fclose(file);
    return seconds;
}

// Raw 16-bit stereo 44.1 kHz PCM converted to 48 kHz in pieces of an MP3 frame, as the buffered
// output converts what the decoder hands it; the audio seconds converted, or 0 on an error.
double ResampleAlone(const std::string& path, const std::string& options) {
    constexpr int kInRate = 44100;
    constexpr int kOutRate = 48000;
    constexpr int kChannels = 2;
    constexpr int kPieceFrames = 1152;
    constexpr int kFrameBytes = kChannels * 2;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return 0;
    std::vector<uint8_t> pcm;
    std::vector<uint8_t> piece(kPieceFrames * kFrameBytes);
    size_t got;
    while ((got = std::fread(piece.data(), 1, piece.size(), file)) > 0) pcm.insert(pcm.end(), piece.begin(), piece.begin() + got);
    std::fclose(file);
    const int frames = static_cast<int>(pcm.size() / kFrameBytes);
    const bool off = options == "off";
    SwrContext* swr = nullptr;
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;  // this libswresample takes it non-const
    if (!off && (swr_alloc_set_opts2(&swr, &stereo, AV_SAMPLE_FMT_S16, kOutRate, &stereo, AV_SAMPLE_FMT_S16, kInRate,
                                     0, nullptr) < 0 ||
                 (options != "default" && av_set_options_string(swr, options.c_str(), "=", ":") < 0) ||
                 swr_init(swr) < 0)) {
        std::fprintf(stderr, "resample: cannot set up libswresample with '%s'\n", options.c_str());
        swr_free(&swr);
        return 0;
    }
    std::vector<uint8_t> out((kPieceFrames * kOutRate / kInRate + 256) * kFrameBytes);
    uint64_t produced = 0;
    for (int at = 0; at < frames; at += kPieceFrames) {
        const int n = std::min(kPieceFrames, frames - at);
        const uint8_t* in = pcm.data() + static_cast<size_t>(at) * kFrameBytes;
        uint8_t* dst = out.data();
        if (off) {
            std::copy(in, in + n * kFrameBytes, dst);
            produced += n;
        } else {
            const int made = swr_convert(swr, &dst, static_cast<int>(out.size() / kFrameBytes), &in, n);
            if (made < 0) break;
            produced += made;
        }
    }
    swr_free(&swr);
    // Keeps the conversion from being optimised away and says it ran.
    std::fprintf(stderr, "resample %s: %llu frames out\n", options.c_str(), static_cast<unsigned long long>(produced));
    return static_cast<double>(frames) / kInRate;
}

// Runs command on a fresh real-time card and prints, under the command's name, how long after its
// launch the card started; the command is stopped then. False when it never started the card.
bool LaunchToCardStart(char** command) {
    std::string dir;
    vcard::VirtualCard card;
    vcard::Options options;
    options.variant = vcard::Variant::kPaced;
    if (vcard::MakeTempDir("korvel_footprint", &dir) != 0 || vcard::VirtualCard::Create(dir, options, &card) != 0)
        return false;
    const double launched = MonotonicSeconds();
    const pid_t child = fork();
    if (child == 0) {
        execvp(command[0], command);
        _exit(127);
    }
    double card_start = -1;
    bool running = child > 0;
    while (running && (card_start = CardStart(card)) < 0 && MonotonicSeconds() - launched < kMaxRunSeconds) {
        running = waitpid(child, nullptr, WNOHANG) == 0;
        std::this_thread::sleep_for(kLogPollInterval);
    }
    if (running && kill(child, SIGTERM) == 0) waitpid(child, nullptr, 0);
    if (card_start < 0) card_start = CardStart(card);  // it may have started the card just before it ended
    vcard::RemoveTree(dir);
    if (card_start < 0) return false;
    const std::string path = command[0];
    std::printf("%-7s card_start_ms=%.0f\n", path.substr(path.find_last_of('/') + 1).c_str(),
                (card_start - launched) * kMsPerSecond);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr,
                     "usage: %s stream URL AUDIO_SECONDS | file PATH [AUDIO_SECONDS] | mpg123 PATH | aac PATH"
                     " | resample PCM_PATH OPTIONS | first URL | launch COMMAND [ARG]...\n",
                     argv[0]);
        return 2;
    }
    g_logger.set_mask(Logger::kMaskCritical);
    const std::string mode = argv[1];
    const std::string target = argv[2];
    double audio_seconds = 0;
    long peak = 0;
    AnonPeak anon;
    const double start = CpuSeconds(&peak);
    if (mode == "stream" && argc > 3) {
        if (!Play(target, "/tmp/")) return 1;
        audio_seconds = std::atof(argv[3]);
    } else if (mode == "file") {
        const size_t slash = target.find_last_of('/');
        if (!Play(target.substr(slash + 1), target.substr(0, slash + 1))) return 1;
        if (argc > 3) audio_seconds = std::atof(argv[3]);
    } else if (mode == "first") {
        return Play(target, "/tmp/", true) ? 0 : 1;
    } else if (mode == "launch") {
        return LaunchToCardStart(argv + 2) ? 0 : 1;
    } else if (mode == "mpg123") {
        audio_seconds = DecodeAlone(target);
    } else if (mode == "aac") {
        audio_seconds = DecodeAacAlone(target);
    } else if (mode == "resample" && argc > 3) {
        audio_seconds = ResampleAlone(target, argv[3]);
    } else {
        return 2;
    }
    const double cpu = CpuSeconds(&peak) - start;
    const long anon_peak = anon.stop();
    if (mode == "file" && audio_seconds <= 0) audio_seconds = FileSeconds(target);
    std::printf("%-7s cpu_s_per_audio_min=%.3f peak_rss_kb=%ld peak_anon_kb=%ld audio_s=%.1f\n", mode.c_str(),
                audio_seconds > 0 ? cpu * kSecondsPerMinute / audio_seconds : 0.0, peak, anon_peak, audio_seconds);
    return 0;
}
