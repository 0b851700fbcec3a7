#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

#include "CBufferingAlgorithmNone.h"
#include "CPCMOutputBuffered.h"
#include "CardFixture.h"
#include "LogCapture.h"
#include "PacketReader.h"

namespace {

using std::chrono::milliseconds;
constexpr uint16_t kBlock = 1152;

std::vector<int16_t> StereoChirp(int rate, int frames) {
    std::vector<int16_t> samples(static_cast<size_t>(frames) * 2);
    for (int i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        samples[2 * i] = static_cast<int16_t>(12000 * std::sin(2 * M_PI * (200 * t + 400 * t * t)));
        samples[2 * i + 1] = static_cast<int16_t>(9000 * std::sin(2 * M_PI * 660 * t));
    }
    return samples;
}

const uint8_t* Bytes(const std::vector<int16_t>& samples, size_t frame) {
    return reinterpret_cast<const uint8_t*>(&samples[frame * 2]);
}

int CountEvents(const vcard::VirtualCard& card, const char* name) {
    std::vector<vcard::LogEvent> events;
    vcard::ReadLog(card.log_path(1), &events);
    int n = 0;
    for (const auto& event : events) n += event.name == name;
    return n;
}

class BufferedOutput : public CardTest {
protected:
    // A card with a device buffer of a real sound card's size (8192 frames, periods of 1024).
    void Open(int buffer_ms) {
        vcard::Options options;
        options.limits.buffer_bytes_max = 8192 * 4;
        options.limits.period_bytes_max = 1024 * 4;
        MakeCard(options);
        m_output = std::make_unique<CPCMOutputBuffered>(&m_none, buffer_ms, 25);
        m_output->SetDevice("channel1");
        m_output->set_player_prefix("PLAYBACK :");
        ASSERT_EQ(m_output->Initialize(), 0);
        ASSERT_EQ(m_output->SetBufferSize(buffer_ms), 0);
        ASSERT_EQ(m_output->SetAudioFormat(AudioFormat{16, 48000, 2}), 0);
    }
    void TearDown() override {
        if (m_output) m_output->DeInitialize();
        CardTest::TearDown();
    }
    BufferingAlgorithm::CBufferingAlgorithmNone m_none;
    std::unique_ptr<CPCMOutputBuffered> m_output;
};

TEST_F(BufferedOutput, TheThresholdAndTheRingFollowTheBufferLength) {
    Open(2000);
    EXPECT_EQ(m_output->GetThreshold(), 96000);
    EXPECT_EQ(m_output->GetRingCapacity(), 144000u);
    ASSERT_EQ(m_output->SetBufferSize(20000), 0) << "only the constructor caps the length";
    EXPECT_EQ(m_output->GetThreshold(), 960000);
    EXPECT_EQ(m_output->GetRingCapacity(), 1440000u);
    CPCMOutputBuffered capped(&m_none, 20000, 25);
    EXPECT_EQ(capped.GetThreshold(), 432000);
}

TEST_F(BufferedOutput, PlaybackStartsWithTheWriteThatReachesTheThreshold) {
    LogCapture capture;
    Open(200);  // 9600 samples: the ninth block of 1152 reaches it
    const auto pcm = StereoChirp(48000, kBlock * 9);
    for (int block = 0; block < 8; ++block) {
        ASSERT_EQ(m_output->WriteBuffer(Bytes(pcm, block * kBlock), kBlock, 0), 0);
        EXPECT_TRUE(m_output->NeedsBuffering());
    }
    EXPECT_EQ(CountEvents(m_card, "start"), 0);
    ASSERT_EQ(m_output->WriteBuffer(Bytes(pcm, 8 * kBlock), kBlock, 0), 0);
    EXPECT_FALSE(m_output->NeedsBuffering());
    EXPECT_EQ(CountEvents(m_card, "start"), 1);
    EXPECT_TRUE(capture.contains("CPCMOutputBuffered::WriteBuffer(): Audio threshold of 9600 samples reached (current 10368). Starting playback"));
    uint32_t level_ms = 0;
    EXPECT_GE(m_output->GetBufferLevel(&level_ms), 0);
    EXPECT_NEAR(level_ms, 216, 5);
}

TEST_F(BufferedOutput, AfterAnUnderrunPlaybackWaitsForTheThresholdAgain) {
    Open(200);
    const auto pcm = StereoChirp(48000, kBlock * 20);
    for (int block = 0; block < 9; ++block) m_output->WriteBuffer(Bytes(pcm, block * kBlock), kBlock, 0);
    ASSERT_FALSE(m_output->NeedsBuffering());
    // The device holds at most 8192 frames and nobody refills it: it runs dry within 200 ms.
    std::this_thread::sleep_for(milliseconds(400));
    ASSERT_EQ(m_output->WriteBuffer(Bytes(pcm, 9 * kBlock), kBlock, 0), 0);
    EXPECT_TRUE(m_output->NeedsBuffering());
    EXPECT_GE(CountEvents(m_card, "xrun"), 1);
    int block = 10;
    int64_t delay = 0;
    for (; block < 20 && m_output->NeedsBuffering(); ++block) {
        ASSERT_EQ(m_output->GetBufferedDelay(&delay), 0);
        EXPECT_LT(delay, 9600) << "still buffering below the threshold";
        m_output->WriteBuffer(Bytes(pcm, block * kBlock), kBlock, 0);
    }
    EXPECT_FALSE(m_output->NeedsBuffering());
    EXPECT_EQ(CountEvents(m_card, "start"), 2);
}

TEST_F(BufferedOutput, WhatDoesNotFitTheRingIsDroppedWithAnError) {
    LogCapture capture;
    Open(100);  // ring of 7200 frames
    std::vector<uint8_t> block(5000 * 4, 0);
    m_output->ResamplerOutputBuffer(block.data(), 4200);
    m_output->ResamplerOutputBuffer(block.data(), 5000);
    EXPECT_EQ(m_output->GetRingCount(), 7200u);
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutputBuffered::ResamplerOutputBuffer() Audio buffer full! Dropping 2000 samples..."));
}

TEST_F(BufferedOutput, StopEmptiesTheRingAndBuffersAgain) {
    Open(200);
    const auto pcm = StereoChirp(48000, kBlock * 9);
    for (int block = 0; block < 9; ++block) m_output->WriteBuffer(Bytes(pcm, block * kBlock), kBlock, 0);
    ASSERT_FALSE(m_output->NeedsBuffering());
    EXPECT_EQ(m_output->StopAudio(), 0);
    EXPECT_TRUE(m_output->NeedsBuffering());
    EXPECT_EQ(m_output->GetRingCount(), 0u);
    EXPECT_GE(CountEvents(m_card, "drop"), 1);
}

TEST_F(BufferedOutput, TheSameFormatAgainLeavesTheResamplerAlone) {
    Open(200);
    ASSERT_EQ(m_output->SetAudioFormat(AudioFormat{16, 44100, 1}), 0);
    const unsigned builds = m_output->GetResampler().GetInitCount();
    EXPECT_EQ(m_output->SetAudioFormat(AudioFormat{16, 44100, 1}), 0);
    EXPECT_EQ(m_output->GetResampler().GetInitCount(), builds);
    EXPECT_EQ(m_output->SetAudioFormat(AudioFormat{16, 44100, 0}), -1);
}

// Signal-to-noise ratio of `played` against `reference` (both 48 kHz stereo) at the lag where
// their chirp channels line up best.
double AlignedSnrDb(const std::vector<int16_t>& played, const std::vector<int16_t>& reference, long* lag_out) {
    const long a = static_cast<long>(played.size() / 2), b = static_cast<long>(reference.size() / 2);
    constexpr long kMaxLag = 2048, kStart = 4096, kWindow = 8192;
    double best = -1e300;
    long lag = 0;
    for (long l = -kMaxLag; l <= kMaxLag; ++l) {
        double sum = 0;
        for (long i = kStart; i < kStart + kWindow && i < a; ++i)
            if (i - l >= 0 && i - l < b) sum += double(played[2 * i]) * reference[2 * (i - l)];
        if (sum > best) best = sum, lag = l;
    }
    double signal = 0, noise = 0;
    for (long i = 0; i < a; ++i) {
        const long j = i - lag;
        if (j < 0 || j >= b) continue;
        for (int c = 0; c < 2; ++c) {
            const double r = reference[2 * j + c], e = played[2 * i + c] - r;
            signal += r * r;
            noise += e * e;
        }
    }
    *lag_out = lag;
    return 10 * std::log10(signal / std::max(noise, 1e-9));
}

TEST_F(BufferedOutput, TheCardPlaysTheResampledInputInOrder) {
    Open(200);
    ASSERT_EQ(m_output->SetAudioFormat(AudioFormat{16, 44100, 2}), 0);
    constexpr int kFrames = 44100 * 2;
    const auto input = StereoChirp(44100, kFrames);
    for (int at = 0; at + kBlock <= kFrames; at += kBlock) {
        ASSERT_EQ(m_output->WriteBuffer(Bytes(input, at), kBlock, 0), 0);
        // Keep about the buffer's worth ahead of the card, as a network stream arriving in real time.
        uint32_t level = 0;
        while (!m_output->NeedsBuffering() && m_output->GetBufferLevel(&level) >= 0 && level > 260)
            std::this_thread::sleep_for(milliseconds(5));
    }
    m_output->DeInitialize();

    const std::string raw = m_dir + "/input.raw";
    {
        FILE* file = std::fopen(raw.c_str(), "wb");
        ASSERT_NE(file, nullptr);
        std::fwrite(input.data(), 2, input.size(), file);
        std::fclose(file);
    }
    const std::vector<uint8_t> converted = CommandOutput(
        "ffmpeg -nostdin -loglevel error -f s16le -ar 44100 -ac 2 -i '" + raw + "' -ar 48000 -f s16le - 2>/dev/null");
    std::vector<uint8_t> captured;
    ASSERT_EQ(vcard::ReadFileBytes(m_card.capture_path(1), &captured), 0);
    ASSERT_GT(captured.size(), 48000u * 4 * 3 / 2) << "most of the two seconds were played";
    std::vector<int16_t> played(captured.size() / 2), reference(converted.size() / 2);
    std::memcpy(played.data(), captured.data(), played.size() * 2);
    std::memcpy(reference.data(), converted.data(), reference.size() * 2);
    long lag = 0;
    const double snr = AlignedSnrDb(played, reference, &lag);
    std::printf("buffered output against an independent 48 kHz conversion: %.1f dB, lag %ld\n", snr, lag);
    EXPECT_GT(snr, 40.0);
    EXPECT_LE(std::labs(lag), 64) << "nothing was lost or repeated before the compared window";
}

}  // namespace
