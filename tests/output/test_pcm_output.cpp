#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "CPCMOutput.h"
#include "CardFixture.h"
#include "LogCapture.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRate = 44100;
constexpr int kChannels = 2;
constexpr size_t kBytesPerFrame = 2 * kChannels;
constexpr uint16_t kChunkFrames = 4410;  // 100 ms, as a decoder would hand over a few frames at a time

// A stereo sine with a different frequency per channel: any reordering or loss shows in the bytes.
std::vector<uint8_t> MakeStereoSine(int frames) {
    std::vector<uint8_t> bytes(static_cast<size_t>(frames) * kBytesPerFrame);
    for (int i = 0; i < frames; ++i) {
        const int16_t left = static_cast<int16_t>(12000 * std::sin(2 * M_PI * 440.0 * i / kRate));
        const int16_t right = static_cast<int16_t>(9000 * std::sin(2 * M_PI * 660.0 * i / kRate));
        uint8_t* frame = &bytes[static_cast<size_t>(i) * kBytesPerFrame];
        frame[0] = static_cast<uint8_t>(left & 0xFF);
        frame[1] = static_cast<uint8_t>((left >> 8) & 0xFF);
        frame[2] = static_cast<uint8_t>(right & 0xFF);
        frame[3] = static_cast<uint8_t>((right >> 8) & 0xFF);
    }
    return bytes;
}

// Writes the whole buffer in decoder-sized chunks; the sum of what WriteBuffer reported.
long WriteAll(CPCMOutput& output, const std::vector<uint8_t>& pcm) {
    const size_t frames = pcm.size() / kBytesPerFrame;
    long written = 0;
    for (size_t at = 0; at < frames; at += kChunkFrames) {
        const uint16_t n = static_cast<uint16_t>(std::min<size_t>(kChunkFrames, frames - at));
        const int result = output.WriteBuffer(&pcm[at * kBytesPerFrame], n, 0);
        if (result < 0) return result;
        written += result;
    }
    return written;
}

class PcmOutput : public CardTest {
protected:
    void Open(const char* device = "channel1") {
        m_output.SetDevice(device);
        m_output.set_player_prefix("PLAYBACK :");
        ASSERT_EQ(m_output.SetAudioFormat(AudioFormat{16, kRate, kChannels}), 0);
        ASSERT_TRUE(m_output.IsOpen());
    }
    void TearDown() override {
        m_output.DeInitialize();
        CardTest::TearDown();
    }
    CPCMOutput m_output;
};

TEST_F(PcmOutput, OneSecondLandsByteExactInTheCapture) {
    MakeCard(Variant(vcard::Variant::kFast));
    Open();
    const std::vector<uint8_t> pcm = MakeStereoSine(kRate);
    EXPECT_EQ(WriteAll(m_output, pcm), kRate);
    ASSERT_EQ(m_output.DeInitWithDrain(), 0);
    EXPECT_FALSE(m_output.IsOpen());
    std::vector<uint8_t> captured;
    ASSERT_EQ(vcard::ReadFileBytes(m_card.capture_path(1), &captured), 0);
    ASSERT_EQ(captured.size(), pcm.size());
    EXPECT_TRUE(captured == pcm);
}

TEST_F(PcmOutput, OneSecondTakesAboutOneSecondOnAPacedCard) {
    MakeCard();
    Open();
    const std::vector<uint8_t> pcm = MakeStereoSine(kRate);
    const auto start = Clock::now();
    EXPECT_EQ(WriteAll(m_output, pcm), kRate);
    ASSERT_EQ(m_output.DeInitWithDrain(), 0);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    EXPECT_GT(seconds, 0.9);
    EXPECT_LT(seconds, 1.35);
    std::vector<uint8_t> captured;
    ASSERT_EQ(vcard::ReadFileBytes(m_card.capture_path(1), &captured), 0);
    EXPECT_TRUE(captured == pcm) << "the paced card at the stream's own rate must not change a byte";
}

TEST_F(PcmOutput, AnImproperFormatIsRefusedAndLeavesTheDeviceAsItWas) {
    MakeCard(Variant(vcard::Variant::kFast));
    Open();
    EXPECT_EQ(m_output.SetAudioFormat(AudioFormat{16, kRate, 0}), -1);
    EXPECT_FALSE(m_output.GetFormat().IsValid());
    EXPECT_TRUE(m_output.IsOpen());
    const std::vector<uint8_t> pcm = MakeStereoSine(100);
    EXPECT_EQ(m_output.WriteBuffer(pcm.data(), 100, 0), 100);
}

TEST_F(PcmOutput, ARateTheCardCannotTakeIsRefused) {
    vcard::Options options = Variant(vcard::Variant::kNative);
    options.native_rate = 48000;
    MakeCard(options);
    LogCapture capture;
    m_output.SetDevice("channel1");
    m_output.set_player_prefix("PLAYBACK :");
    EXPECT_EQ(m_output.SetAudioFormat(AudioFormat{16, kRate, kChannels}), -1);
    EXPECT_TRUE(capture.contains("PLAYBACK : AUDIO OUT: ERROR :CPCMOutput::set_hwparams(): Rate doesn't match (requested 44100Hz, get 48000Hz)"));
    // set_hwparams() answered -22 (EINVAL), which Initialize() reports by its text.
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutput::Initialize(): cannot set HW params (Invalid argument)"));
    EXPECT_FALSE(m_output.GetFormat().IsValid());
    // The card's own rate still opens.
    EXPECT_EQ(m_output.SetAudioFormat(AudioFormat{16, 48000, kChannels}), 0);
}

TEST_F(PcmOutput, AnUnderrunIsRecoveredAndPlaybackGoesOn) {
    MakeCard();
    Open();
    const std::vector<uint8_t> pcm = MakeStereoSine(kRate / 4);
    ASSERT_GT(WriteAll(m_output, pcm), 0);
    // Let the card run dry: a quarter second of audio, half a second of silence from the writer.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(m_output.WriteBuffer(pcm.data(), kChunkFrames, 0), 0) << "the block that met the underrun is lost";
    EXPECT_EQ(m_output.WriteBuffer(pcm.data(), kChunkFrames, 0), kChunkFrames);
    ASSERT_EQ(m_output.DeInitWithDrain(), 0);
    std::vector<vcard::LogEvent> events;
    ASSERT_EQ(vcard::ReadLog(m_card.log_path(1), &events), 0);
    bool saw_xrun = false;
    for (const auto& event : events) saw_xrun |= event.name == "xrun";
    EXPECT_TRUE(saw_xrun);
}

TEST_F(PcmOutput, StopDrainsAndStartPreparesTheOpenDevice) {
    MakeCard();
    Open();
    const std::vector<uint8_t> pcm = MakeStereoSine(kRate / 5);
    ASSERT_GT(WriteAll(m_output, pcm), 0);
    const auto start = Clock::now();
    EXPECT_EQ(m_output.StopAudio(), 0);
    EXPECT_GT(std::chrono::duration<double>(Clock::now() - start).count(), 0.1) << "stop plays out what is queued";
    EXPECT_TRUE(m_output.IsOpen());
    EXPECT_EQ(m_output.StartAudio(), 0);
    constexpr uint16_t kBelowThreshold = 2000;
    EXPECT_EQ(m_output.WriteBuffer(pcm.data(), kBelowThreshold, 0), kBelowThreshold);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    int64_t delay = -1;
    EXPECT_EQ(m_output.GetDelay(&delay), 0);
    EXPECT_EQ(delay, kBelowThreshold) << "below the start threshold nothing plays yet";
}

TEST_F(PcmOutput, CallsWithoutAHandleAreHarmless) {
    LogCapture capture;
    CPCMOutput output;
    EXPECT_EQ(output.StopAudio(), 0);
    EXPECT_EQ(output.StartAudio(), 0);
    EXPECT_EQ(output.DeInitialize(), 0);
    EXPECT_EQ(output.DeInitWithDrain(), 0);
    const uint8_t silence[4] = {};
    EXPECT_EQ(output.WriteBuffer(silence, 1, 0), -1);
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutput::WriteBuffer(): NULL handle"));
    EXPECT_TRUE(capture.contains("CPCMOutput::StartAudio(): NULL Audio handle found."));
    EXPECT_STREQ(output.GetDevice(), "plug:dmix");
    EXPECT_EQ(output.GetType(), 3);
    EXPECT_FALSE(output.NeedsBuffering());
}

TEST_F(PcmOutput, InitializeTwiceKeepsTheFirstHandle) {
    MakeCard(Variant(vcard::Variant::kFast));
    Open();
    LogCapture capture;
    EXPECT_EQ(m_output.Initialize(), 0);
    EXPECT_TRUE(capture.contains("CPCMOutput::Initialize(): already initiliazed with audio interface channel1"));
    EXPECT_TRUE(m_output.IsOpen());
}

TEST_F(PcmOutput, AnUnknownDeviceFailsToOpen) {
    MakeCard(Variant(vcard::Variant::kFast));
    LogCapture capture;
    m_output.SetDevice("channel9");
    EXPECT_EQ(m_output.SetAudioFormat(AudioFormat{16, kRate, kChannels}), -1);
    EXPECT_FALSE(m_output.IsOpen());
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutput::Initialize(): cannot open audio device channel9"));
}

TEST_F(PcmOutput, AFormatChangeReopensTheDeviceAtTheNewRate) {
    MakeCard();
    Open();
    const std::vector<uint8_t> pcm = MakeStereoSine(kRate / 10);
    ASSERT_GT(WriteAll(m_output, pcm), 0);
    ASSERT_EQ(m_output.SetAudioFormat(AudioFormat{16, 22050, 1}), 0);
    ASSERT_EQ(m_output.DeInitWithDrain(), 0);
    std::vector<vcard::LogEvent> events;
    ASSERT_EQ(vcard::ReadLog(m_card.log_path(1), &events), 0);
    std::vector<long long> rates;
    for (const auto& event : events)
        if (event.name == "hw_params") rates.push_back(event.number("rate"));
    ASSERT_EQ(rates.size(), 2u);
    EXPECT_EQ(rates[0], kRate);
    EXPECT_EQ(rates[1], 22050);
}

}  // namespace
