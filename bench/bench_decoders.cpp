// Decode throughput of the decoder chain against the bare codec libraries, on the same packets held
// in memory. The difference between the two is what the chain itself costs per second of audio:
// dispatch, format bookkeeping and handing each block to the output.
#include <benchmark/benchmark.h>
#include <fdk-aac/aacdecoder_lib.h>
#include <malloc.h>
#include <mpg123.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "CAudioDecoderChain.h"
#include "CAudioOutputDummy.h"
#include "PacketReader.h"
#include "alloc_counter.h"

namespace {

constexpr size_t kMp3OutputBytes = 32768;
constexpr UINT kAacOutputSamples = 16384;

// Packets of one file plus the duration the untimed reference pass actually decoded from them.
struct Media {
    MediaPackets packets;
    double audio_seconds = 0;
    bool ok = false;
};

// The extradata pointer and length arrays the AAC decoder keeps referring to after SetExtraData.
struct AscArrays {
    uint8_t* config[1];
    uint32_t length[1];
    explicit AscArrays(std::vector<uint8_t>& asc)
        : config{asc.data()}, length{static_cast<uint32_t>(asc.size())} {}
};

// A null sink that also tallies the frames it was given: used only by the untimed check pass.
class CountingOutput : public CAudioOutputDummy {
public:
    int SetAudioFormat(const AudioFormat& format) override {
        m_rate = format.rate;
        return 0;
    }
    int WriteBuffer(const uint8_t*, uint16_t frames, unsigned int) override {
        if (m_rate > 0) m_seconds += static_cast<double>(frames) / m_rate;
        return 0;
    }
    double seconds() const { return m_seconds; }

private:
    int m_rate = 0;
    double m_seconds = 0;
};

// The same sequence as the chain's MP3 decoder: feed the packet, then drain until mpg123 asks for
// more. Returns seconds of audio produced (0 when not counting).
double Mp3LibraryPass(mpg123_handle* handle, const std::vector<std::vector<uint8_t>>& packets,
                      unsigned char* out, bool count) {
    mpg123_open_feed(handle);
    uint64_t frames = 0;
    long rate = 0;
    int channels = 0;
    int encoding = 0;
    for (const auto& packet : packets) {
        size_t done = 0;
        int r = mpg123_decode(handle, packet.data(), packet.size(), nullptr, 0, &done);
        if (r == MPG123_ERR) continue;
        if (count && r == MPG123_NEW_FORMAT) mpg123_getformat(handle, &rate, &channels, &encoding);
        while (r != MPG123_ERR && r != MPG123_NEED_MORE) {
            r = mpg123_decode(handle, nullptr, 0, out, kMp3OutputBytes, &done);
            if (r != MPG123_OK && r != MPG123_NEW_FORMAT && r != MPG123_NEED_MORE) break;
            if (count) {
                if (r == MPG123_NEW_FORMAT) mpg123_getformat(handle, &rate, &channels, &encoding);
                if (channels > 0) frames += done / (static_cast<size_t>(channels) * mpg123_encsize(encoding));
            }
            benchmark::DoNotOptimize(out);
        }
    }
    return rate > 0 ? static_cast<double>(frames) / rate : 0;
}

double AacLibraryPass(HANDLE_AACDECODER* handle, AscArrays& asc, const std::vector<std::vector<uint8_t>>& packets,
                      INT_PCM* out, bool count) {
    if (*handle != nullptr) aacDecoder_Close(*handle);
    *handle = aacDecoder_Open(TT_MP4_RAW, 1);
    aacDecoder_ConfigRaw(*handle, asc.config, asc.length);
    double seconds = 0;
    for (const auto& packet : packets) {
        UCHAR* input = const_cast<UCHAR*>(packet.data());
        const UINT length = static_cast<UINT>(packet.size());
        UINT valid = length;
        if (aacDecoder_Fill(*handle, &input, &length, &valid) != AAC_DEC_OK) continue;
        if (aacDecoder_DecodeFrame(*handle, out, kAacOutputSamples, 0) != AAC_DEC_OK) continue;
        if (count) {
            const CStreamInfo* info = aacDecoder_GetStreamInfo(*handle);
            if (info != nullptr && info->sampleRate > 0) seconds += static_cast<double>(info->frameSize) / info->sampleRate;
        }
        benchmark::DoNotOptimize(out);
    }
    return seconds;
}

// A chain selected on `decoder_id`, configured as the player's source would configure it.
struct Chain {
    CAudioDecoderChain chain;
    bool Setup(int decoder_id, IAudioOutput* output, AscArrays* asc) {
        chain.CreateChain("bench");
        chain.SetOutput(output);
        if (chain.SetDecoderId(decoder_id) != 0) return false;
        if (asc != nullptr) chain.SetExtraData(asc->config, asc->length, 1);
        return true;
    }
    void Pass(const std::vector<std::vector<uint8_t>>& packets) {
        chain.RestartFeed();
        for (const auto& packet : packets)
            chain.WriteBuffer(packet.data(), static_cast<uint16_t>(packet.size()), 0);
    }
};

Media LoadMp3() {
    Media media;
    if (ReadPackets(MediaPath("bench_44100_stereo.mp3"), &media.packets) != 0) return media;
    mpg123_init();
    mpg123_handle* handle = mpg123_new(nullptr, nullptr);
    std::vector<unsigned char> out(kMp3OutputBytes);
    media.audio_seconds = Mp3LibraryPass(handle, media.packets.packets, out.data(), true);
    mpg123_delete(handle);
    media.ok = media.audio_seconds > 0;
    return media;
}

Media LoadAac() {
    Media media;
    if (ReadPackets(MediaPath("bench_44100_stereo.m4a"), &media.packets) != 0) return media;
    if (media.packets.extradata.empty()) return media;
    AscArrays asc(media.packets.extradata);
    HANDLE_AACDECODER handle = nullptr;
    std::vector<INT_PCM> out(kAacOutputSamples);
    media.audio_seconds = AacLibraryPass(&handle, asc, media.packets.packets, out.data(), true);
    aacDecoder_Close(handle);
    media.ok = media.audio_seconds > 0;
    return media;
}

Media& Mp3Media() {
    static Media media = LoadMp3();
    return media;
}
Media& AacMedia() {
    static Media media = LoadAac();
    return media;
}

// One untimed pass first, so that buffers the codec keeps between passes already exist when the
// heap is sampled and the timed passes start on warm caches.
template <typename Pass>
void RunPasses(benchmark::State& state, const Media& media, Pass&& pass) {
    pass();
    const uint64_t news_before = AllocationCount();
    const size_t heap_before = mallinfo2().uordblks;
    for (auto _ : state) pass();
    const size_t heap_after = mallinfo2().uordblks;
    const uint64_t news = AllocationCount() - news_before;

    const double iterations = static_cast<double>(state.iterations());
    const double packets = iterations * static_cast<double>(media.packets.packets.size());
    state.counters["audio_s_per_cpu_s"] = benchmark::Counter(media.audio_seconds * iterations, benchmark::Counter::kIsRate);
    state.counters["allocs_per_packet"] = packets > 0 ? static_cast<double>(news) / packets : 0;
    state.counters["heap_growth_bytes"] =
        static_cast<double>(static_cast<int64_t>(heap_after) - static_cast<int64_t>(heap_before));
    state.counters["packets"] = static_cast<double>(media.packets.packets.size());
}

// The chain must deliver as much audio as the bare library does; otherwise the rate comparison
// would flatter whichever side skipped work.
bool ChainMatchesLibrary(int decoder_id, const Media& media, AscArrays* asc, benchmark::State& state) {
    CountingOutput counter;
    Chain check;
    if (!check.Setup(decoder_id, &counter, asc)) {
        state.SkipWithError("decoder chain setup failed");
        return false;
    }
    check.Pass(media.packets.packets);
    const double diff = counter.seconds() - media.audio_seconds;
    if (diff > 0.001 || diff < -0.001) {
        state.SkipWithError(("chain decoded " + std::to_string(counter.seconds()) + " s, library " +
                             std::to_string(media.audio_seconds) + " s")
                                .c_str());
        return false;
    }
    return true;
}

void BM_DecodeMp3_Chain(benchmark::State& state) {
    Media& media = Mp3Media();
    if (!media.ok) return state.SkipWithError("bench_44100_stereo.mp3 unreadable");
    if (!ChainMatchesLibrary(AUDIO_TYPE_MP3, media, nullptr, state)) return;
    CAudioOutputDummy sink;
    Chain chain;
    chain.Setup(AUDIO_TYPE_MP3, &sink, nullptr);
    RunPasses(state, media, [&] { chain.Pass(media.packets.packets); });
}

void BM_DecodeMp3_Library(benchmark::State& state) {
    Media& media = Mp3Media();
    if (!media.ok) return state.SkipWithError("bench_44100_stereo.mp3 unreadable");
    mpg123_handle* handle = mpg123_new(nullptr, nullptr);
    std::vector<unsigned char> out(kMp3OutputBytes);
    RunPasses(state, media, [&] { Mp3LibraryPass(handle, media.packets.packets, out.data(), false); });
    mpg123_delete(handle);
}

void BM_DecodeAac_Chain(benchmark::State& state) {
    Media& media = AacMedia();
    if (!media.ok) return state.SkipWithError("bench_44100_stereo.m4a unreadable");
    AscArrays asc(media.packets.extradata);
    if (!ChainMatchesLibrary(AUDIO_TYPE_AAC, media, &asc, state)) return;
    CAudioOutputDummy sink;
    Chain chain;
    chain.Setup(AUDIO_TYPE_AAC, &sink, &asc);
    RunPasses(state, media, [&] { chain.Pass(media.packets.packets); });
}

void BM_DecodeAac_Library(benchmark::State& state) {
    Media& media = AacMedia();
    if (!media.ok) return state.SkipWithError("bench_44100_stereo.m4a unreadable");
    AscArrays asc(media.packets.extradata);
    HANDLE_AACDECODER handle = nullptr;
    std::vector<INT_PCM> out(kAacOutputSamples);
    RunPasses(state, media, [&] { AacLibraryPass(&handle, asc, media.packets.packets, out.data(), false); });
    aacDecoder_Close(handle);
}

BENCHMARK(BM_DecodeMp3_Chain)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeMp3_Library)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeAac_Chain)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeAac_Library)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

}  // namespace
