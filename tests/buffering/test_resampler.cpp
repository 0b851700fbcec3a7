#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "CResampler.h"
#include "PcmChecks.h"

namespace {

// Collects every converted block.
class Collector : public IResamplerOutput {
public:
    int ResamplerOutputBuffer(const uint8_t* data, uint32_t frames) override {
        const int16_t* samples = reinterpret_cast<const int16_t*>(data);
        m_samples.insert(m_samples.end(), samples, samples + frames * 2);
        ++m_blocks;
        return 0;
    }
    std::vector<int16_t> m_samples;  // stereo, interleaved
    int m_blocks = 0;
};

void Feed(CResampler& resampler, const std::vector<int16_t>& samples, int channels, int block_frames) {
    const int frames = static_cast<int>(samples.size()) / channels;
    for (int at = 0; at < frames; at += block_frames) {
        const int n = std::min(block_frames, frames - at);
        ASSERT_EQ(resampler.Resample(reinterpret_cast<const uint8_t*>(&samples[static_cast<size_t>(at) * channels]), n), 0);
    }
}

class Resampler : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(m_resampler.Initialize(), 0); }
    Collector m_out;
    CResampler m_resampler{&m_out};
};

TEST_F(Resampler, MonoPlaysOnBothSidesAtItsOwnLevel) {
    ASSERT_EQ(m_resampler.SetInputFormat(AudioFormat{16, 48000, 1}), 0);
    const auto mono = Sine(48000, 1, 1000, 48000, 10000);
    Feed(m_resampler, mono, 1, 1152);
    const double input = 10000 / std::sqrt(2.0);
    const double left = Rms(m_out.m_samples, 0, 1000), right = Rms(m_out.m_samples, 1, 1000);
    EXPECT_NEAR(20 * std::log10(left / input), 0.0, 0.05) << "no 3 dB loss on the way to stereo";
    EXPECT_NEAR(20 * std::log10(right / input), 0.0, 0.05);
}

// A new input format rebuilds the context, the same one again does not; the context holds back a
// few samples of filter delay, never more. Silence injected into the input and as much output
// dropped cancel out in the length (the frequency and the content are checked through the card).
TEST_F(Resampler, From44100To48000KeepsTheLengthAndInjectionAndDropCancelOut) {
    const unsigned builds = m_resampler.GetInitCount();
    EXPECT_EQ(m_resampler.SetInputFormat(AudioFormat{16, 48000, 2}), 0);
    EXPECT_EQ(m_resampler.SetSampleRates(48000, 48000), 0);
    EXPECT_EQ(m_resampler.GetInitCount(), builds);
    ASSERT_EQ(m_resampler.SetInputFormat(AudioFormat{16, 44100, 2}), 0);
    EXPECT_EQ(m_resampler.GetInitCount(), builds + 1);
    constexpr int kFrames = 44100 * 2;
    const auto input = Sine(44100, 2, 1000, kFrames, 12000);
    Feed(m_resampler, input, 2, 1152);
    const double exact = kFrames * 48000.0 / 44100.0;
    const size_t produced = m_out.m_samples.size() / 2;
    EXPECT_LE(produced, exact + 1);
    EXPECT_GT(produced, exact - 64);
    EXPECT_GT(m_out.m_blocks, 70) << "every block that produced output was handed on";
    m_out.m_samples.clear();
    ASSERT_EQ(m_resampler.Initialize(), 0);
    EXPECT_GE(m_resampler.InjectSilence(441), 0);  // input samples: 10 ms
    EXPECT_GE(m_resampler.DropOutput(480), 0);     // output samples: 10 ms
    Feed(m_resampler, input, 2, 1152);
    EXPECT_NEAR(static_cast<double>(m_out.m_samples.size() / 2), static_cast<double>(produced), 2);
}

}  // namespace
