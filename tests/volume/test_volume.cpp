#include <gtest/gtest.h>

#include "CVolumeControlAdapter.h"
#include "CVolumeConvertion.h"
#include "CardFixture.h"
#include "LogCapture.h"

namespace {

// Both directions at every breakpoint of the curve and just around it; the inverse has breakpoints
// of its own.
TEST(VolumeCurve, PercentAndMillibelFollowTheCurveBothWays) {
    CVolumeConvertion convert;
    const std::pair<int, int> forward[] = {{-5, -12000}, {0, -12000}, {1, -10850}, {9, -6100}, {10, -5900},
                                           {15, -4900}, {16, -4704}, {24, -3728}, {25, -3600}, {48, -1898},
                                           {49, -1824}, {50, -1750}, {100, 50}, {101, 50}};
    for (const auto& [percent, mB] : forward) EXPECT_EQ(convert.ToMillibel(percent), mB) << percent << " %";
    const std::pair<int, int> inverse[] = {{100, 51}, {100, 5000}, {100, 50}, {98, 0}, {51, -1700}, {48, -1800},
                                           {49, -1801}, {25, -3600}, {25, -3601}, {15, -4800}, {15, -4801},
                                           {10, -5900}, {9, -5901}, {9, -6100}, {8, -6101}, {1, -10850},
                                           {0, -10851}, {0, -12000}, {0, -20000}};
    for (const auto& [percent, mB] : inverse) EXPECT_EQ(convert.FromMillibel(mB), percent) << mB << " mB";
}

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

// -17 dB on a linear -120..0 dB scale of 255 steps lies near step 219, and is remembered as percent
// and millibel; out-of-range values change nothing.
TEST_F(Mixer, DecibelsReachTheCardAndAreRememberedAsPercentAndOutOfRangeValuesChangeNothing) {
    LogCapture capture;
    ASSERT_EQ(m_volume.OpenMixer(), 0);  // the default element, "Playback"
    ASSERT_EQ(m_volume.SetOutputVolume_db(-17), 0);
    const long at_minus_17 = ReadRawVolume("Playback");
    EXPECT_NEAR(at_minus_17, 219, 2);
    EXPECT_EQ(m_volume.SetOutputVolume(101), -1);
    EXPECT_EQ(m_volume.SetOutputVolume_db(1), -1);
    EXPECT_EQ(m_volume.GetVolumePercent(), 51);
    EXPECT_EQ(m_volume.GetVolumeMillibel(), -1700);
    EXPECT_EQ(ReadRawVolume("Playback"), at_minus_17);
    EXPECT_TRUE(capture.contains("CPCMOutput::SetOutputVolume(): Volume value 101 is out of range, value in [0..100 %] required."));
    EXPECT_TRUE(capture.contains("CPCMOutput::SetOutputVolume_db(): Volume value 1 dB is out of range"));
    ASSERT_EQ(m_volume.SetOutputVolume_db(-120), 0);
    EXPECT_EQ(m_volume.GetVolumePercent(), 0);
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
