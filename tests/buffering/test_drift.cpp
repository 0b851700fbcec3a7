// Clock drift between a stream's sender and the sound card, the reason the buffered output has a
// buffering algorithm. A producer delivers blocks at exactly the nominal 48000 Hz while the virtual
// card runs 500 ppm fast or slow. Both run `kSpeed` times faster than real time: the algorithm
// counts samples, not seconds, so its behaviour is the same as in a real-time run.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <vector>

#include "CBufferingAlgorithm.h"
#include "CBufferingAlgorithmNone.h"
#include "CPCMOutputBuffered.h"
#include "CardFixture.h"
#include "LogCapture.h"

namespace {

using namespace BufferingAlgorithm;

constexpr int kRate = 48000, kBlock = 1152, kTargetMs = 300, kAccuracyMs = 25;
constexpr long kSpeed = 6, kDriftPpm = 500;
constexpr double kAudioSeconds = 120;
constexpr int64_t kTarget = kRate * kTargetMs / 1000, kAccuracy = kRate * kAccuracyMs / 1000;

double Now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec + now.tv_nsec / 1e9;
}

struct Correction {
    double at_s;             // audio time
    int64_t before, after;   // level when the correcting block came, and when the next one came
    bool duplicated;
};

struct DriftRecord {
    std::vector<double> time_s;  // audio time of each measurement, from the start of playback
    std::vector<int64_t> level;  // ring plus device, as if measured exactly on the producer's schedule
    std::vector<Correction> corrections;
    int starts = 0;

    double MeanLevel(double from_s, double to_s) const {
        double sum = 0;
        int n = 0;
        for (size_t i = 0; i < level.size(); ++i)
            if (time_s[i] >= from_s && time_s[i] < to_s) sum += static_cast<double>(level[i]), ++n;
        return n ? sum / n : 0;
    }
    int64_t LargestDeviation() const {
        int64_t worst = 0;
        for (int64_t l : level) worst = std::max<int64_t>(worst, std::llabs(l - kTarget));
        return worst;
    }
};

class Drift : public CardTest {
protected:
    DriftRecord Play(long drift_ppm, IBufferingAlgorithm& algorithm) {
        vcard::Options options;
        options.drift_ppm = drift_ppm;
        options.speed = kSpeed;
        // A device buffer that outlasts the producer's scheduling jitter at this speed.
        options.limits.buffer_bytes_max = 32768 * 4;
        options.limits.period_bytes_max = 1024 * 4;
        MakeCard(options);
        LogCapture capture(Logger::kMaskError | Logger::kMaskNotice);
        CPCMOutputBuffered output(&algorithm, kTargetMs, kAccuracyMs);
        output.SetDevice("channel1");
        EXPECT_EQ(output.Initialize(), 0);
        EXPECT_EQ(output.SetBufferSize(kTargetMs), 0);
        EXPECT_EQ(output.SetAudioFormat(AudioFormat{16, kRate, 2}), 0);

        const std::vector<uint8_t> block(kBlock * 4, 0);
        const double block_s = static_cast<double>(kBlock) / kRate / kSpeed;  // real time per block
        const double card_rate = kRate * kSpeed * (1 + drift_ppm / 1e6);      // frames per real second
        DriftRecord run;
        double started_at = -1;
        int seen_drops = 0, seen_duplicates = 0;
        bool correction_pending = false;
        const double begin = Now();
        for (int k = 0; k < static_cast<int>(kAudioSeconds * kRate / kBlock); ++k) {
            const double scheduled = begin + k * block_s;
            const timespec at{static_cast<time_t>(scheduled), static_cast<long>((scheduled - static_cast<time_t>(scheduled)) * 1e9)};
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
            // The level the algorithm judges: ring plus device just before the block is stored.
            int64_t level = 0;
            if (!output.NeedsBuffering() && output.GetBufferedDelay(&level) == 0) {
                const double audio_s = k * static_cast<double>(kBlock) / kRate;
                if (started_at < 0) started_at = audio_s;
                // What the card played since the scheduled moment is the producer's lateness, not the buffer's.
                level += static_cast<int64_t>((Now() - scheduled) * card_rate);
                run.time_s.push_back(audio_s - started_at);
                run.level.push_back(level);
                if (correction_pending) run.corrections.back().after = level;
                correction_pending = false;
            }
            EXPECT_EQ(output.WriteBuffer(block.data(), kBlock, 0), 0);
            const int drops = capture.count("-> dropping"), duplicates = capture.count("-> duplicating");
            if (drops + duplicates > seen_drops + seen_duplicates && !run.level.empty()) {
                run.corrections.push_back({run.time_s.back(), run.level.back(), run.level.back(), duplicates > seen_duplicates});
                correction_pending = true;
            }
            seen_drops = drops;
            seen_duplicates = duplicates;
        }
        run.starts = capture.count("Starting playback");
        output.DeInitialize();
        return run;
    }
};

struct DriftCase {
    bool corrected;
    long drift_ppm;
};
void PrintTo(const DriftCase& c, std::ostream* os) {
    *os << (c.corrected ? "correction" : "no correction") << ", card " << (c.drift_ppm > 0 ? "+" : "") << c.drift_ppm << " ppm";
}

class DriftRun : public Drift, public ::testing::WithParamInterface<DriftCase> {};

// Without correction the level walks away by the drift times the time played. With it the level
// stays within the band, but for the smoothing filter's lag, which trails a steady walk by the walk's
// rate times its time constant; each correction moves the level one band against the drift.
TEST_P(DriftRun, TheLevelWalksAwayWithTheClocksUnlessCorrectedWithinTheBand) {
    const DriftCase& c = GetParam();
    CBufferingAlgorithmNone none;
    CBufferingAlgorithm correcting(kTargetMs, kAccuracyMs);
    const DriftRecord run = Play(c.drift_ppm, c.corrected ? static_cast<IBufferingAlgorithm&>(correcting) : none);
    ASSERT_GT(run.level.size(), 100u);
    std::printf("largest deviation %.1f ms, %zu corrections\n", run.LargestDeviation() * 1000.0 / kRate, run.corrections.size());
    EXPECT_EQ(run.starts, 1) << "no underrun, no restart";
    if (!c.corrected) {
        constexpr double kWindow = 10;
        const double walk = run.MeanLevel(run.time_s.back() - kWindow, 1e9) - run.MeanLevel(0, kWindow);
        const double expected = -c.drift_ppm / 1e6 * kRate * (run.time_s.back() - kWindow);  // a fast card empties the buffer
        EXPECT_NEAR(walk, expected, std::fabs(expected) * 0.2) << "walk " << walk << " expected " << expected;
        return;
    }
    const double walk_per_s = kDriftPpm / 1e6 * kRate;
    const double time_constant_s = kBlock / static_cast<double>(kRate) / (1 - CBufferingAlgorithm::kAlpha);
    EXPECT_LT(run.LargestDeviation(), kAccuracy + static_cast<int64_t>(walk_per_s * time_constant_s) + kBlock);
    ASSERT_GE(run.corrections.size(), 1u);
    for (const Correction& correction : run.corrections) {
        // A fast card drains the buffer: samples are duplicated; a slow one fills it: dropped.
        EXPECT_EQ(correction.duplicated, c.drift_ppm > 0) << "at " << correction.at_s << " s";
        EXPECT_NEAR(static_cast<double>(correction.after - correction.before), correction.duplicated ? kAccuracy : -kAccuracy, kBlock)
            << "at " << correction.at_s << " s";
    }
}

INSTANTIATE_TEST_SUITE_P(CardFastAndSlow, DriftRun,
                         ::testing::Values(DriftCase{false, kDriftPpm}, DriftCase{false, -kDriftPpm},
                                           DriftCase{true, kDriftPpm}, DriftCase{true, -kDriftPpm}));

}  // namespace
