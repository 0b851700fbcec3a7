#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "CBufferingAlgorithmNone.h"
#include "CPCMOutput.h"
#include "CPCMOutputBuffered.h"
#include "CardFixture.h"
#include "LogCapture.h"

// While set, the card stays suspended: every resume asks to be tried again. It gives in after
// kResumeGiveUp calls, so that a retry loop without a bound fails the test rather than hangs it.
static std::atomic<bool> g_suspended{false};
static std::atomic<int> g_resume_calls{0};
static constexpr int kResumeGiveUp = 20;

// The virtual card cannot be suspended, so this definition stands in for libasound's in the library.
extern "C" int snd_pcm_resume(snd_pcm_t* pcm) {
    if (g_suspended) return ++g_resume_calls < kResumeGiveUp ? -EAGAIN : 0;
    return reinterpret_cast<int (*)(snd_pcm_t*)>(dlsym(RTLD_NEXT, "snd_pcm_resume"))(pcm);
}

// A signal ends a blocking write to a kernel driver early: short, or with -EINTR when nothing was
// written yet. libasound waits on through signals for a plugin such as the virtual card, so the
// next g_interruptions writes end early here instead, the odd ones before writing anything.
static std::atomic<int> g_interruptions{0};
extern "C" snd_pcm_sframes_t snd_pcm_writei(snd_pcm_t* pcm, const void* buffer, snd_pcm_uframes_t frames) {
    static const auto real = reinterpret_cast<snd_pcm_sframes_t (*)(snd_pcm_t*, const void*, snd_pcm_uframes_t)>(dlsym(RTLD_NEXT, "snd_pcm_writei"));
    const int interruption = g_interruptions > 0 ? g_interruptions-- : 0;
    if (interruption % 2 == 1) return -EINTR;
    return real(pcm, buffer, interruption > 0 ? frames / 2 : frames);
}

namespace {

using std::chrono::milliseconds;

constexpr int kRate = 44100;
constexpr int kChannels = 2;
constexpr size_t kBytesPerFrame = 2 * kChannels;
constexpr uint16_t kChunkFrames = 4410;  // 100 ms, as a decoder would hand over a few frames at a time
// A device buffer of a real card's size (186 ms), so that blocking writes really wait for the card.
constexpr uint16_t kDeviceFrames = 8192;

// A stereo sine with a different frequency per channel: any reordering or loss shows in the bytes.
std::vector<uint8_t> MakeStereoSine(int frames) {
    std::vector<int16_t> samples(static_cast<size_t>(frames) * kChannels);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<int16_t>(12000 * std::sin(2 * M_PI * (i % 2 ? 660.0 : 440.0) * static_cast<double>(i / 2) / kRate));
    return std::vector<uint8_t>(reinterpret_cast<const uint8_t*>(samples.data()), reinterpret_cast<const uint8_t*>(samples.data() + samples.size()));
}

// Writes the first `frames` frames in decoder-sized chunks; the sum of what WriteBuffer reported.
long WriteAll(CPCMOutput& output, const std::vector<uint8_t>& pcm, size_t frames) {
    long written = 0;
    for (size_t at = 0; at < frames; at += kChunkFrames) {
        const int result = output.WriteBuffer(&pcm[at * kBytesPerFrame], static_cast<uint16_t>(std::min<size_t>(kChunkFrames, frames - at)), 0);
        if (result < 0) return result;
        written += result;
    }
    return written;
}

// Opens up the set-up and recovery internals that these tests drive directly.
struct ExposedOutput : CPCMOutput {
    using CPCMOutput::m_format;
    using CPCMOutput::m_handle;
    using CPCMOutput::xrun_recovery;
};

class PcmOutput : public CardTest {
protected:
    void Open(vcard::Variant variant = vcard::Variant::kPaced, unsigned device_frames = 0) {
        vcard::Options options = Variant(variant);
        options.native_rate = kRate;
        options.limits.buffer_bytes_max = device_frames * kBytesPerFrame;
        MakeCard(options);
        m_output.SetDevice("channel1");
        m_output.set_player_prefix("PLAYBACK :");
        ASSERT_EQ(m_output.SetAudioFormat(AudioFormat{16, kRate, kChannels}), 0);
    }
    void TearDown() override {
        m_output.DeInitialize();
        CardTest::TearDown();
    }
    ExposedOutput m_output;
};

// Half a block in decoder-sized chunks, a pause, then the other half in one blocking write, which
// signals may interrupt. Every frame must reach the card in order, in the card's own time.
struct Disturbance { const char* name; int pause_ms, interruptions; size_t xruns; double min_seconds; };
// How much longer than the audio itself a write and drain may take, on a loaded machine.
constexpr double kSlackSeconds = 0.35;
class EveryFrame : public PcmOutput, public ::testing::WithParamInterface<Disturbance> {};

TEST_P(EveryFrame, ReachesTheCardInOrderAtItsPace) {
    constexpr uint16_t kHalf = 2 * kDeviceFrames;  // 371 ms
    Open(vcard::Variant::kPaced, kDeviceFrames);
    const std::vector<uint8_t> pcm = MakeStereoSine(2 * kHalf);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WriteAll(m_output, pcm, kHalf), kHalf);
    std::this_thread::sleep_for(milliseconds(GetParam().pause_ms));
    g_interruptions = GetParam().interruptions;
    EXPECT_EQ(m_output.WriteBuffer(&pcm[kHalf * kBytesPerFrame], kHalf, 0), kHalf);
    EXPECT_EQ(g_interruptions, 0);
    ASSERT_EQ(m_output.DeInitWithDrain(), 0);
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), GetParam().min_seconds + kSlackSeconds / 2, kSlackSeconds / 2);
    std::vector<uint8_t> captured;
    ASSERT_EQ(vcard::ReadFileBytes(m_card.capture_path(1), &captured), 0);
    EXPECT_TRUE(captured == pcm) << "the card at the stream's own rate must not lose or change a byte";
    EXPECT_EQ(Events("xrun", "played").size(), GetParam().xruns);
}
// The underrun row: the first half plays out 186 ms after its last chunk went in, well within the
// pause, and the second half starts the card afresh.
INSTANTIATE_TEST_SUITE_P(Writes, EveryFrame, ::testing::Values(Disturbance{"Undisturbed", 0, 0, 0, 0.72},
                                                               Disturbance{"ThroughAnUnderrunBetweenBlocks", 500, 0, 1, 1.03},
                                                               Disturbance{"ThroughSignalsDuringABlockingWrite", 0, 4, 0, 0.72}),
                         [](const auto& info) { return std::string(info.param.name); });

// A complete set-up is kept; a failed one leaves nothing behind, so that a retry meets the failure
// again instead of reporting success on a handle every write fails on. The card is fixed at 44100 Hz
// and refuses the 48000 Hz that both outputs ask for.
TEST_F(PcmOutput, InitializeOpensTheDeviceOnlyWhenTheWholeSetUpSucceedsOnAKnownDevice) {
    Open(vcard::Variant::kNative);
    LogCapture capture;
    EXPECT_EQ(m_output.Initialize(), 0);
    EXPECT_TRUE(capture.contains("CPCMOutput::Initialize(): already initiliazed with audio interface channel1"));
    EXPECT_EQ(m_output.SetAudioFormat(AudioFormat{16, kRate, 0}), -1);
    EXPECT_FALSE(m_output.GetFormat().IsValid());
    EXPECT_EQ(m_output.WriteBuffer(MakeStereoSine(100).data(), 100, 0), 100) << "the device stays open as it was";

    ASSERT_EQ(m_output.DeInitialize(), 0);
    m_output.m_format = AudioFormat{16, 48000, kChannels};
    BufferingAlgorithm::CBufferingAlgorithmNone none;
    CPCMOutputBuffered buffered(&none, 200, 25);
    buffered.SetDevice("channel1");
    buffered.set_player_prefix("PLAYBACK :");
    const struct { CPCMOutput* output; const char* refusal; } outputs[] = {
        {&m_output, "PLAYBACK : AUDIO OUT: ERROR :CPCMOutput::set_hwparams(): Rate doesn't match (requested 48000Hz, get 44100Hz)"},
        {&buffered, "PLAYBACK : BUFFERED AUDIO OUT: ERROR :CPCMOutputBuffered::set_alsa_hw_params(): Rate doesn't match (requested 48000Hz, get 44100Hz)"}};
    for (const auto& row : outputs) {
        for (int attempt = 1; attempt <= 2; ++attempt) {
            EXPECT_LT(row.output->Initialize(), 0) << row.refusal;
            EXPECT_EQ(capture.count(row.refusal), attempt) << row.refusal;
            EXPECT_FALSE(row.output->IsOpen()) << row.refusal;
        }
    }
    // Through a format change: the refused format is forgotten, and the card's own rate still opens.
    EXPECT_EQ(m_output.SetAudioFormat(AudioFormat{16, 48000, kChannels}), -1);
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutput::Initialize(): cannot set HW params (Invalid argument)"));
    EXPECT_FALSE(m_output.GetFormat().IsValid());
    EXPECT_EQ(m_output.SetAudioFormat(AudioFormat{16, kRate, kChannels}), 0);

    // An unknown device stays closed, and every call without a device is harmless.
    ASSERT_EQ(m_output.DeInitialize(), 0);
    m_output.SetDevice("channel9");
    EXPECT_EQ(m_output.SetAudioFormat(AudioFormat{16, kRate, kChannels}), -1);
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutput::Initialize(): cannot open audio device channel9"));
    EXPECT_EQ(m_output.StopAudio(), 0);
    EXPECT_EQ(m_output.StartAudio(), 0);
    EXPECT_EQ(m_output.DeInitialize(), 0);
    EXPECT_EQ(m_output.DeInitWithDrain(), 0);
    EXPECT_EQ(m_output.WriteBuffer(MakeStereoSine(1).data(), 1, 0), -1) << "the device stays closed";
    EXPECT_TRUE(capture.contains("ERROR :CPCMOutput::WriteBuffer(): NULL handle"));
    EXPECT_TRUE(capture.contains("CPCMOutput::StartAudio(): NULL Audio handle found."));
    EXPECT_FALSE(m_output.NeedsBuffering());
}

TEST_F(PcmOutput, ACardThatNeverResumesIsPreparedAfreshWithinASecondAndAHalf) {
    Open();
    ASSERT_EQ(WriteAll(m_output, MakeStereoSine(kRate / 4), kRate / 4), kRate / 4);
    g_suspended = true;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_output.xrun_recovery(m_output.m_handle, -ESTRPIPE), 0);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 1.5);
    g_suspended = false;
    EXPECT_EQ(g_resume_calls, CPCMOutput::kResumeAttempts);
    EXPECT_EQ(snd_pcm_state(m_output.m_handle), SND_PCM_STATE_PREPARED);
}

TEST_F(PcmOutput, StopDrainsStartPreparesAndAFormatChangeReopensTheDevice) {
    Open();
    const std::vector<uint8_t> pcm = MakeStereoSine(kRate / 5);
    ASSERT_EQ(WriteAll(m_output, pcm, kRate / 5), kRate / 5);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_output.StopAudio(), 0);
    EXPECT_GT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 0.1) << "stop plays out what is queued";
    EXPECT_EQ(m_output.StartAudio(), 0);
    constexpr uint16_t kBelowThreshold = 2000;
    EXPECT_EQ(m_output.WriteBuffer(pcm.data(), kBelowThreshold, 0), kBelowThreshold) << "stop keeps the device open";
    std::this_thread::sleep_for(milliseconds(50));
    int64_t delay = -1;
    EXPECT_EQ(m_output.GetDelay(&delay), 0);
    EXPECT_EQ(delay, kBelowThreshold) << "below the start threshold nothing plays yet";
    ASSERT_EQ(m_output.SetAudioFormat(AudioFormat{16, 22050, 1}), 0);
    EXPECT_EQ(Events("hw_params", "rate"), (std::vector<long long>{kRate, 22050}));
}

}  // namespace
