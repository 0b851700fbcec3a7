// Cost of the buffered output path for streams: decoded 44100 Hz stereo blocks go through the
// resampler to 48000 Hz, the drift-correcting buffering algorithm and the ring into ALSA's null
// device, which plays instantly, so only the player's own work is measured.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cmath>
#include <vector>

#include "CBufferingAlgorithm.h"
#include "CPCMOutputBuffered.h"
#include "Logger.h"
#include "alloc_counter.h"

namespace {

constexpr int kInputRate = 44100;
constexpr uint16_t kBlockFrames = 1152;
constexpr int kBufferMs = 500;
constexpr int kAccuracyMs = 25;
constexpr int kBlocksPerIteration = 100;

void BM_BufferedOutputPath(benchmark::State& state) {
    const unsigned saved_mask = g_logger.mask();
    g_logger.set_mask(Logger::kMaskCritical);  // keep syslog out of the measurement
    BufferingAlgorithm::CBufferingAlgorithm algorithm(kBufferMs, kAccuracyMs);
    CPCMOutputBuffered output(&algorithm, kBufferMs, kAccuracyMs);
    output.SetDevice("null");
    if (output.Initialize() != 0 || output.SetBufferSize(kBufferMs) != 0 ||
        output.SetAudioFormat(AudioFormat{16, kInputRate, 2}) != 0) {
        state.SkipWithError("the null device could not be opened");
        g_logger.set_mask(saved_mask);
        return;
    }
    std::vector<int16_t> block(kBlockFrames * 2);
    for (int i = 0; i < kBlockFrames; ++i)
        block[2 * i] = block[2 * i + 1] = static_cast<int16_t>(8000 * std::sin(2 * M_PI * 1000.0 * i / kInputRate));
    const auto* bytes = reinterpret_cast<const uint8_t*>(block.data());
    // Up to the threshold and into playback before measuring.
    for (int i = 0; i < 40; ++i) output.WriteBuffer(bytes, kBlockFrames, 0);

    const uint64_t allocations_before = AllocationCount();
    const size_t heap_before = mallinfo2().uordblks;
    for (auto _ : state) {
        for (int i = 0; i < kBlocksPerIteration; ++i) output.WriteBuffer(bytes, kBlockFrames, 0);
    }
    const double blocks = static_cast<double>(state.iterations()) * kBlocksPerIteration;
    state.counters["audio_s_per_cpu_s"] =
        benchmark::Counter(kBlocksPerIteration * static_cast<double>(kBlockFrames) / kInputRate,
                           benchmark::Counter::kIsIterationInvariantRate);
    state.counters["allocs_per_block"] = static_cast<double>(AllocationCount() - allocations_before) / blocks;
    state.counters["heap_growth_bytes"] = static_cast<double>(mallinfo2().uordblks) - static_cast<double>(heap_before);
    output.DeInitialize();
    g_logger.set_mask(saved_mask);
}
BENCHMARK(BM_BufferedOutputPath)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

}  // namespace
