#include <gtest/gtest.h>

#include <cmath>

#include "CBufferingAlgorithm.h"
#include "LogCapture.h"

namespace {

using namespace BufferingAlgorithm;

constexpr int kBlock = 1152;

class Rtp : public ::testing::Test {
protected:
    // Puts the smoothed level exactly at `level`: while the device does not run the filter
    // follows the level, and a running block at the same level keeps it there.
    void SettleAt(int64_t level) {
        int64_t count = 0;
        m_algorithm.WriteFrame(level, kBlock, false, &count, 0);
    }
    CBufferingAlgorithm m_algorithm{200, 20};
};

// A smoothed level outside the band (target 9600, band 960) moves the level one band and pulls the
// filter along; a level at the band's edge passes the block unchanged.
TEST_F(Rtp, ALevelOutsideTheBandMovesOneBandAndPullsTheFilterAlong) {
    struct Case { int64_t level; int frames; int64_t count; const char* line; };
    for (const Case& c : {Case{10600, kBlock, 192, "buffer level too high (DELTA=1000) > (ACC=960) -> dropping 960 samples"},
                          Case{8600, kBlock, 2112, "buffer level too low (DELTA=-1000) < -(ACC=960) -> duplicating 960 samples"},
                          Case{9600 + 960, kBlock, kBlock, ""}, Case{9600 - 960, kBlock, kBlock, ""},
                          Case{12000, 100, 0, "dropping 960 samples"}}) {
        LogCapture capture;
        SettleAt(c.level);
        int64_t count = -1;
        EXPECT_EQ(m_algorithm.WriteFrame(c.level, c.frames, true, &count, 0), ACTION_WRITE) << c.level;
        EXPECT_EQ(count, c.count) << c.level;
        const int64_t moved = c.frames - c.count < 0 ? 960 : (c.count == c.frames ? 0 : -960);
        EXPECT_DOUBLE_EQ(m_algorithm.GetFilteredDelay(), static_cast<double>(c.level + moved)) << c.level;
        EXPECT_EQ(capture.contains("-> "), *c.line != '\0') << c.level;
        EXPECT_TRUE(*c.line == '\0' || capture.contains(c.line)) << c.level;
    }
}

// The filter is a first-order low pass with a time constant of 1 / (1 - alpha) = 1250 blocks: a step
// of the real level inside the band shows 63 % of itself after one time constant, and a step of
// 2000 ticks crosses the 960-tick band after ln(1 - 961 / 2000) / ln(alpha) blocks, not before.
TEST_F(Rtp, TheFilterFollowsAStepWithItsTimeConstant) {
    const double alpha = CBufferingAlgorithm::kAlpha;
    const int time_constant = static_cast<int>(1 / (1 - alpha) + 0.5);
    SettleAt(9600);
    int64_t count = 0;
    m_algorithm.WriteFrame(9600 + 900, kBlock, true, &count, 0);
    EXPECT_NEAR(m_algorithm.GetFilteredDelay() - 9600, 900 * (1 - alpha), 0.01) << "one block barely moves it";
    for (int block = 1; block < time_constant; ++block) m_algorithm.WriteFrame(9600 + 900, kBlock, true, &count, 0);
    EXPECT_NEAR(m_algorithm.GetFilteredDelay() - 9600, 900 * (1 - std::exp(-1.0)), 900 * 0.01);
    EXPECT_EQ(count, kBlock) << "a step inside the band is never corrected";

    SettleAt(9600);
    const int crossing = static_cast<int>(std::ceil(std::log(1 - 961.0 / 2000) / std::log(alpha)));
    int corrected_at = -1;
    for (int block = 1; block <= 2 * crossing && corrected_at < 0; ++block) {
        m_algorithm.WriteFrame(9600 + 2000, kBlock, true, &count, 0);
        if (count != kBlock) corrected_at = block;
    }
    EXPECT_NEAR(corrected_at, crossing, 1);
}

// Up to three lost packets repeat the block over their place; more insert silence.
TEST_F(Rtp, FewLossesRepeatTheBlockAndManyInsertSilence) {
    struct Case { unsigned lost; int action; int64_t count; const char* line; };
    for (const Case& c : {Case{2, ACTION_WRITE, 3456, "minor loss of 2 packets detected -> replicating 3456 samples"},
                          Case{3, ACTION_WRITE, 4608, "minor loss of 3 packets detected -> replicating 4608 samples"},
                          Case{4, ACTION_SILENCE, 5760, "major loss of 4 packets detected -> hard inserting 5760 samples of silence"}}) {
        LogCapture capture;
        SettleAt(9600);
        int64_t count = 0;
        EXPECT_EQ(m_algorithm.WriteFrame(9600, kBlock, true, &count, c.lost), c.action) << c.lost;
        EXPECT_EQ(count, c.count) << c.lost;
        EXPECT_TRUE(capture.contains(c.line)) << c.lost;
    }
}

// A rate change rescales the filter and the ticks; new parameters restart the filter at that rate.
TEST_F(Rtp, ARateChangeRescalesTheFilterAndNewParametersRestartIt) {
    SettleAt(9600);
    m_algorithm.SetSampleRate(44100);
    EXPECT_DOUBLE_EQ(m_algorithm.GetFilteredDelay(), 9600.0 * 44100 / 48000);
    EXPECT_EQ(m_algorithm.GetLevelTicks(), 8820);
    EXPECT_EQ(m_algorithm.GetAccuracyTicks(), 882);
    EXPECT_EQ(m_algorithm.MsToSamples(1000), 44100);
    EXPECT_EQ(m_algorithm.SamplesToMs(44100), 1000);
    LogCapture capture;
    m_algorithm.SetParams(300, 25);
    EXPECT_DOUBLE_EQ(m_algorithm.GetFilteredDelay(), 0);
    EXPECT_TRUE(capture.contains("Buffering [level_ms,level_ticks,acc_ms,acc_ticks] params: [300,13230,25,1102]"));
}

}  // namespace
