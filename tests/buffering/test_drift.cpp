// Clock drift between a stream's sender and the sound card, the reason the buffered output has a
// buffering algorithm: the card runs 500 ppm fast or slow against the producer (DriftHarness.h).
// The algorithm counts samples, not seconds, so sped up it behaves as in a real-time run.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "DriftHarness.h"

namespace {

using namespace BufferingAlgorithm;

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
