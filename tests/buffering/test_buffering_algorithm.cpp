#include <gtest/gtest.h>

#include "CBufferingAlgorithm.h"
#include "CBufferingAlgorithmNone.h"
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

TEST_F(Rtp, LevelAndAccuracyAreTicksAtTheSampleRate) {
    EXPECT_EQ(m_algorithm.GetLevelTicks(), 9600);
    EXPECT_EQ(m_algorithm.GetAccuracyTicks(), 960);
}

TEST_F(Rtp, ALevelAboveTheBandDropsOneBand) {
    LogCapture capture;
    SettleAt(10600);
    int64_t count = 0;
    EXPECT_EQ(m_algorithm.WriteFrame(10600, kBlock, true, &count, 0), ACTION_WRITE);
    EXPECT_EQ(count, 192);
    EXPECT_TRUE(capture.contains(
        "CBufferingAlgorithm::WriteFrame(): buffer level too high (DELTA=1000) > (ACC=960) -> dropping 960 samples"));
    EXPECT_DOUBLE_EQ(m_algorithm.GetFilteredDelay(), 9640) << "the filter moves with the correction";
}

TEST_F(Rtp, ALevelBelowTheBandDuplicatesOneBand) {
    LogCapture capture;
    SettleAt(8600);
    int64_t count = 0;
    EXPECT_EQ(m_algorithm.WriteFrame(8600, kBlock, true, &count, 0), ACTION_WRITE);
    EXPECT_EQ(count, 2112);
    EXPECT_TRUE(capture.contains("buffer level too low (DELTA=-1000) < -(ACC=960) -> duplicating 960 samples"));
}

TEST_F(Rtp, InsideTheBandTheBlockPassesUnchanged) {
    SettleAt(9600 + 959);
    int64_t count = 0;
    EXPECT_EQ(m_algorithm.WriteFrame(9600 + 959, kBlock, true, &count, 0), ACTION_WRITE);
    EXPECT_EQ(count, kBlock);
}

TEST_F(Rtp, AShortBlockNeverGetsANegativeCount) {
    SettleAt(12000);
    int64_t count = -1;
    EXPECT_EQ(m_algorithm.WriteFrame(12000, 100, true, &count, 0), ACTION_WRITE);
    EXPECT_EQ(count, 0);
}

struct LossCase {
    unsigned lost;
    int action;
    int64_t count;
    const char* line;
};

class RtpLoss : public Rtp, public ::testing::WithParamInterface<LossCase> {};

TEST_P(RtpLoss, FewLossesRepeatTheBlockAndManyInsertSilence) {
    LogCapture capture;
    SettleAt(9600);
    int64_t count = 0;
    EXPECT_EQ(m_algorithm.WriteFrame(9600, kBlock, true, &count, GetParam().lost), GetParam().action);
    EXPECT_EQ(count, GetParam().count);
    EXPECT_TRUE(capture.contains(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Losses, RtpLoss,
    ::testing::Values(
        LossCase{2, ACTION_WRITE, 3456, "minor loss of 2 packets detected -> replicating 3456 samples"},
        LossCase{3, ACTION_WRITE, 4608, "minor loss of 3 packets detected -> replicating 4608 samples"},
        LossCase{4, ACTION_SILENCE, 5760, "major loss of 4 packets detected -> hard inserting 5760 samples of silence"}));

TEST_F(Rtp, ARateChangeRescalesTheFilterAndTheTicks) {
    SettleAt(9600);
    m_algorithm.SetSampleRate(44100);
    EXPECT_DOUBLE_EQ(m_algorithm.GetFilteredDelay(), 9600.0 * 44100 / 48000);
    EXPECT_EQ(m_algorithm.GetLevelTicks(), 8820);
    EXPECT_EQ(m_algorithm.GetAccuracyTicks(), 882);
    EXPECT_EQ(m_algorithm.MsToSamples(1000), 44100);
    EXPECT_EQ(m_algorithm.SamplesToMs(44100), 1000);
}

TEST_F(Rtp, NewParametersRestartTheFilter) {
    LogCapture capture;
    SettleAt(9600);
    m_algorithm.SetParams(300, 25);
    EXPECT_DOUBLE_EQ(m_algorithm.GetFilteredDelay(), 0);
    EXPECT_TRUE(capture.contains("Buffering [level_ms,level_ticks,acc_ms,acc_ticks] params: [300,14400,25,1200]"));
}

TEST(NoBuffering, PassesEveryBlockAsItIs) {
    CBufferingAlgorithmNone none;
    for (unsigned lost : {0u, 1u, 9u}) {
        for (bool running : {false, true}) {
            int64_t count = -1;
            EXPECT_EQ(none.WriteFrame(123456, kBlock, running, &count, lost), ACTION_WRITE);
            EXPECT_EQ(count, kBlock);
        }
    }
}

}  // namespace
