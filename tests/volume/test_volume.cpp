#include <gtest/gtest.h>

#include "CVolumeControlAdapter.h"
#include "CVolumeConvertion.h"
#include "CardFixture.h"
#include "LogCapture.h"

namespace {

struct CurvePoint {
    int percent;
    int mB;
};

std::string PointName(const ::testing::TestParamInfo<CurvePoint>& info) {
    auto name = [](int v) { return v < 0 ? "minus" + std::to_string(-v) : std::to_string(v); };
    return name(info.param.percent) + "percent_" + name(info.param.mB) + "mB";
}

// Forward direction at every breakpoint of the curve and just around it.
class ToMillibel : public ::testing::TestWithParam<CurvePoint> {};

TEST_P(ToMillibel, FollowsTheCurve) {
    CVolumeConvertion convert;
    EXPECT_EQ(convert.ToMillibel(GetParam().percent), GetParam().mB);
}

INSTANTIATE_TEST_SUITE_P(Breakpoints, ToMillibel,
                         ::testing::Values(CurvePoint{-5, -12000}, CurvePoint{0, -12000}, CurvePoint{1, -10850},
                                           CurvePoint{9, -6100}, CurvePoint{10, -5900}, CurvePoint{15, -4900},
                                           CurvePoint{16, -4704}, CurvePoint{24, -3728}, CurvePoint{25, -3600},
                                           CurvePoint{48, -1898}, CurvePoint{49, -1824}, CurvePoint{50, -1750},
                                           CurvePoint{100, 50}, CurvePoint{101, 50}),
                         PointName);

// Inverse direction: its breakpoints differ from the forward ones.
class FromMillibel : public ::testing::TestWithParam<CurvePoint> {};

TEST_P(FromMillibel, FollowsTheInverseCurve) {
    CVolumeConvertion convert;
    EXPECT_EQ(convert.FromMillibel(GetParam().mB), GetParam().percent);
}

INSTANTIATE_TEST_SUITE_P(Breakpoints, FromMillibel,
                         ::testing::Values(CurvePoint{100, 51}, CurvePoint{100, 5000}, CurvePoint{100, 50},
                                           CurvePoint{98, 0}, CurvePoint{51, -1700}, CurvePoint{48, -1800},
                                           CurvePoint{49, -1801}, CurvePoint{25, -3600}, CurvePoint{25, -3601},
                                           CurvePoint{15, -4800}, CurvePoint{15, -4801}, CurvePoint{10, -5900},
                                           CurvePoint{9, -5901}, CurvePoint{9, -6100}, CurvePoint{8, -6101},
                                           CurvePoint{1, -10850}, CurvePoint{0, -10851}, CurvePoint{0, -12000},
                                           CurvePoint{0, -20000}),
                         PointName);

class Mixer : public CardTest {
protected:
    void SetUp() override {
        MakeCard();
        m_volume.set_player_prefix("PLAYBACK :");
    }
    void TearDown() override {
        m_volume.CloseMixer();
        CardTest::TearDown();
    }
    CVolumeControlAdapter m_volume;
};

// Each channel's element is its own: the other adapter's opposite settings never reach it.
TEST_F(Mixer, PercentIsWrittenToItsOwnElementOnARawScaleOfTwoHundredFiftyFive) {
    CVolumeControlAdapter other;
    m_volume.set_element_name("chan_1");
    other.set_element_name("chan_2");
    ASSERT_EQ(m_volume.OpenMixer(), 0);
    ASSERT_EQ(other.OpenMixer(), 0);
    for (const auto& [percent, raw] : {std::pair{100, 255L}, {80, 204L}, {50, 127L}, {20, 51L}, {1, 2L}, {0, 0L}}) {
        ASSERT_EQ(m_volume.SetOutputVolume(percent), 0) << percent;
        ASSERT_EQ(other.SetOutputVolume(100 - percent), 0) << percent;
        EXPECT_EQ(ReadRawVolume("chan_1"), raw) << percent;
        EXPECT_EQ(m_volume.GetVolumePercent(), percent);
        EXPECT_EQ(m_volume.GetVolumeMillibel(), m_volume.ToMillibel(percent));
    }
    EXPECT_EQ(ReadRawVolume("chan_2"), 255);
    EXPECT_EQ(other.CloseMixer(), 0);
}

// -17 dB on a linear -120..0 dB scale of 255 steps lies near step 219.
TEST_F(Mixer, DecibelsReachTheCardAndAreRememberedAsPercentAndOutOfRangeValuesChangeNothing) {
    LogCapture capture;
    ASSERT_EQ(m_volume.OpenMixer(), 0);  // the default element, "Playback"
    ASSERT_EQ(m_volume.SetOutputVolume_db(-17), 0);
    const long at_minus_17 = ReadRawVolume("Playback");
    EXPECT_NEAR(at_minus_17, 219, 2);
    EXPECT_EQ(m_volume.SetOutputVolume(101), -1);
    EXPECT_EQ(m_volume.SetOutputVolume_db(1), -1);
    EXPECT_EQ(m_volume.SetOutputVolume_db(-121), -1);
    EXPECT_EQ(m_volume.GetVolumePercent(), 51);
    EXPECT_EQ(m_volume.GetVolumeMillibel(), -1700);
    EXPECT_EQ(ReadRawVolume("Playback"), at_minus_17);
    EXPECT_TRUE(capture.contains("CPCMOutput::SetOutputVolume(): Volume value 101 is out of range, value in [0..100 %] required."));
    EXPECT_TRUE(capture.contains("CPCMOutput::SetOutputVolume_db(): Volume value 1 dB is out of range"));
    ASSERT_EQ(m_volume.SetOutputVolume_db(0), 0);
    EXPECT_EQ(m_volume.GetVolumePercent(), 98);
    EXPECT_EQ(ReadRawVolume("Playback"), 255);
    ASSERT_EQ(m_volume.SetOutputVolume_db(-120), 0);
    EXPECT_EQ(m_volume.GetVolumePercent(), 0);
    EXPECT_EQ(ReadRawVolume("Playback"), 0);
    EXPECT_TRUE(capture.contains("PLAYBACK : VOLUME CONTROL:  id=-1, CPCMOutput::SetOutputVolume_db(): Setting volume -120 in dB went OK."));
}

// A missing element is only found missing when a setter looks for it.
TEST_F(Mixer, SettersFailWithoutAnOpenMixerOrAnElementAndCloseIsSafeTwice) {
    LogCapture capture;
    EXPECT_EQ(m_volume.SetOutputVolume(10), -1);
    EXPECT_EQ(m_volume.CloseMixer(), 0);
    EXPECT_TRUE(capture.contains("CPCMOutput::CloseMixer(): No active mixer handle found."));
    m_volume.set_element_name("chan_9");
    ASSERT_EQ(m_volume.OpenMixer(), 0);
    EXPECT_EQ(m_volume.SetOutputVolume(50), -1);
    EXPECT_EQ(m_volume.SetOutputVolume_db(-10), -1);
    EXPECT_EQ(m_volume.GetVolumePercent(), 0);
    EXPECT_TRUE(capture.contains("PLAYBACK : VOLUME CONTROL: ERROR :SetOutputVolume(): Could not find the mixer simple element: chan_9"));
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutput::SetOutputVolume_db(): Could not find the mixer simple element: 'chan_9'"));
    EXPECT_EQ(m_volume.CloseMixer(), 0);
    EXPECT_EQ(m_volume.CloseMixer(), 0);
}

}  // namespace
