#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <fstream>
#include <thread>
#include <vector>

#include "CBufferingAlgorithmNone.h"
#include "CPCMOutputBuffered.h"
#include "CardFixture.h"
#include "LogCapture.h"
#include "PacketReader.h"
#include "PcmChecks.h"

// Milliseconds the next write into a card waits before it goes ahead: a worker that is descheduled
// between finding room in the device and filling it.
static std::atomic<int> g_stall_next_write_ms{0};

// Stands in for libasound's write in the library, which offers no other way to stall in that gap.
extern "C" snd_pcm_sframes_t snd_pcm_writei(snd_pcm_t* pcm, const void* buffer, snd_pcm_uframes_t frames) {
    std::this_thread::sleep_for(std::chrono::milliseconds(g_stall_next_write_ms.exchange(0)));
    return reinterpret_cast<snd_pcm_sframes_t (*)(snd_pcm_t*, const void*, snd_pcm_uframes_t)>(dlsym(RTLD_NEXT, "snd_pcm_writei"))(pcm, buffer, frames);
}

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

TEST_F(BufferedOutput, TheThresholdAndTheRingFollowTheBufferLengthAndWhatDoesNotFitIsDropped) {
    Open(2000);
    EXPECT_EQ(m_output->GetThreshold(), 96000);
    EXPECT_EQ(m_output->GetRingCapacity(), 144000u);
    ASSERT_EQ(m_output->SetBufferSize(20000), 0) << "only the constructor caps the length";
    EXPECT_EQ(m_output->GetThreshold(), 960000);
    EXPECT_EQ(CPCMOutputBuffered(&m_none, 20000, 25).GetThreshold(), 432000);
    LogCapture capture;
    ASSERT_EQ(m_output->SetBufferSize(100), 0);  // a ring of 7200 frames
    std::vector<uint8_t> block(5000 * 4, 0);
    m_output->ResamplerOutputBuffer(block.data(), 4200);
    m_output->ResamplerOutputBuffer(block.data(), 5000);
    EXPECT_EQ(m_output->GetRingCount(), 7200u);
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutputBuffered::ResamplerOutputBuffer() Audio buffer full! Dropping 2000 samples..."));
}

// How a playing card starves: nobody writes for longer than the device buffer, and the delay query
// of the next block meets the underrun; or the worker stalls between finding room in the device and
// filling it, and the transfer's own write meets it.
struct Starvation { const char* name; int quiet_ms, stall_ms; };
class Starved : public BufferedOutput, public ::testing::WithParamInterface<Starvation> {};

TEST_P(Starved, PlaybackWaitsForTheThresholdAgainAndThenRestartsTheCard) {
    LogCapture capture;
    Open(200);  // 9600 samples: the ninth block of 1152 reaches it
    const auto pcm = StereoChirp(48000, kBlock * 20);
    for (int block = 0; block < 9; ++block) {
        ASSERT_EQ(m_output->WriteBuffer(Bytes(pcm, block * kBlock), kBlock, 0), 0);
        EXPECT_EQ(m_output->NeedsBuffering(), block < 8);
        EXPECT_EQ(CardEvents("start").size(), block < 8 ? 0u : 1u);
    }
    EXPECT_TRUE(capture.contains("CPCMOutputBuffered::WriteBuffer(): Audio threshold of 9600 samples reached (current 10368). Starting playback"));
    uint32_t level_ms = 0;
    EXPECT_GE(m_output->GetBufferLevel(&level_ms), 0);
    EXPECT_NEAR(level_ms, 216, 5);
    // The device holds at most 8192 frames and runs dry within 200 ms unless refilled.
    std::this_thread::sleep_for(milliseconds(GetParam().quiet_ms));
    g_stall_next_write_ms = GetParam().stall_ms;
    ASSERT_EQ(m_output->WriteBuffer(Bytes(pcm, 9 * kBlock), kBlock, 0), 0);
    EXPECT_TRUE(m_output->NeedsBuffering()) << "a card that has stopped must not count as playing";
    ASSERT_EQ(CardEvents("xrun").size(), 1u);
    int64_t delay = 0;
    for (int block = 10; block < 20 && m_output->NeedsBuffering(); ++block) {
        ASSERT_EQ(m_output->GetBufferedDelay(&delay), 0);
        EXPECT_LT(delay, 9600) << "still buffering below the threshold";
        m_output->WriteBuffer(Bytes(pcm, block * kBlock), kBlock, 0);
    }
    EXPECT_FALSE(m_output->NeedsBuffering());
    EXPECT_EQ(CardEvents("start").size(), 2u);
    std::this_thread::sleep_for(milliseconds(100));
    // Stopping empties the ring and drops what the device holds: the output buffers afresh.
    EXPECT_EQ(m_output->StopAudio(), 0);
    EXPECT_TRUE(m_output->NeedsBuffering());
    EXPECT_EQ(m_output->GetRingCount(), 0u);
    EXPECT_GE(CardEvents("drop").size(), 1u);
    std::vector<uint8_t> captured;
    ASSERT_EQ(vcard::ReadFileBytes(m_card.capture_path(1), &captured), 0);
    const auto restart = captured.begin() + std::min<long long>(4 * Events("xrun", "played")[0], captured.size());
    EXPECT_TRUE(std::any_of(restart, captured.end(), [](uint8_t byte) { return byte != 0; })) << "silent after the restart";
}
INSTANTIATE_TEST_SUITE_P(Cards, Starved,
                         ::testing::Values(Starvation{"SeenByTheNextBlocksDelayQuery", 400, 0}, Starvation{"MetByTheTransfersOwnWrite", 50, 400}),
                         [](const auto& info) { return std::string(info.param.name); });

// The player's other thread reads the level all along, up to the moment the worker closes the device.
TEST_F(BufferedOutput, TheCardPlaysTheResampledInputInOrderWhileAnotherThreadReadsTheLevel) {
    Open(200);
    ASSERT_EQ(m_output->SetAudioFormat(AudioFormat{16, 44100, 2}), 0);
    // The same format again leaves the resampler as it is, and an improper one is refused.
    const unsigned builds = m_output->GetResampler().GetInitCount();
    EXPECT_EQ(m_output->SetAudioFormat(AudioFormat{16, 44100, 2}), 0);
    EXPECT_EQ(m_output->GetResampler().GetInitCount(), builds);
    EXPECT_EQ(m_output->SetAudioFormat(AudioFormat{16, 44100, 0}), -1);
    constexpr int kFrames = 44100 * 2;
    const auto input = StereoChirp(44100, kFrames);
    uint32_t peak_ms = 0, level_ms = 0;
    std::thread reader([&] {
        while (m_output->GetBufferLevel(&level_ms) != -EBADF) peak_ms = std::max(peak_ms, level_ms);
    });
    for (int at = 0; at + kBlock <= kFrames; at += kBlock) {
        EXPECT_EQ(m_output->WriteBuffer(Bytes(input, at), kBlock, 0), 0);
        // Keep about the buffer's worth ahead of the card, as a network stream arriving in real time;
        // meanwhile the worker keeps the card fed, as it does while the network stalls.
        uint32_t level = 0;
        while (!m_output->NeedsBuffering() && m_output->UpdateBufferLevel() >= 0 && m_output->GetBufferLevel(&level) >= 0 && level > 260)
            std::this_thread::sleep_for(milliseconds(5));
    }
    m_output->DeInitialize();
    reader.join();
    m_output.reset();
    EXPECT_GT(peak_ms, 200u);
    EXPECT_EQ(level_ms, 0u) << "a closed device holds nothing";

    const std::string raw = m_dir + "/input.raw";
    std::ofstream(raw, std::ios::binary).write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size() * 2));
    const std::vector<uint8_t> converted = CommandOutput(
        "ffmpeg -nostdin -loglevel error -f s16le -ar 44100 -ac 2 -i '" + raw + "' -ar 48000 -f s16le - 2>/dev/null");
    std::vector<uint8_t> captured;
    ASSERT_EQ(vcard::ReadFileBytes(m_card.capture_path(1), &captured), 0);
    ASSERT_GT(captured.size(), 48000u * 4 * 3 / 2) << "most of the two seconds were played";
    long lag = 0;
    const double snr = AlignedSnrDb(Samples(captured), Samples(converted), 2, &lag);
    EXPECT_GT(snr, 40.0) << "against an independent 48 kHz conversion, at lag " << lag;
    EXPECT_LE(std::labs(lag), 64) << "nothing was lost or repeated before the compared window";
}

}  // namespace
