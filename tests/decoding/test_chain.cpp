#include <gtest/gtest.h>

#include <mpg123.h>

#include "CAudioDecoderChain.h"
#include "CAudioOutput.h"
#include "LogCapture.h"
#include "RecordingOutput.h"

namespace {

const bool kMpg123Ready = (mpg123_init(), true);

// An output base with direct access to its dependents.
class FanOut : public CAudioOutput {
public:
    int RestartFeed() override { return 0; }
    int GetType() override { return AUDIO_TYPE_MP3; }
    int SetAudioFormat(const AudioFormat&) override { return 0; }
    int SetBufferSize(int) override { return 0; }
    int Reserved() override { return 0; }
    int WriteBuffer(const uint8_t*, uint16_t, unsigned int) override { return 0; }
    void AddOutput(IAudioOutput* output) { m_outputs.push_back(output); }
};

TEST(OutputChain, AFailingDependentIsRestartedAndTheOthersStillGetTheBlock) {
    LogCapture capture;
    RecordingOutput failing, healthy;
    failing.m_write_result = -5;
    failing.m_restart_result = -7;
    FanOut source;
    source.AddOutput(&failing);
    source.AddOutput(&healthy);
    source.AssignAudioFormat(AudioFormat{16, 44100, 1});
    const uint8_t pcm[4] = {1, 2, 3, 4};
    source.SendAudio(pcm, 2, 3);
    source.SendAudio(pcm, 1, 0);
    EXPECT_EQ(failing.Count(RecordingOutput::Event::kRestart), 2u);
    ASSERT_EQ(healthy.Count(RecordingOutput::Event::kBlock), 2u);
    EXPECT_EQ(healthy.m_events[1].lost_packets, 3u) << "lost packets pass through unchanged";
    EXPECT_EQ(healthy.AllPcm(), (std::vector<uint8_t>{1, 2, 3, 4, 1, 2}));
    EXPECT_EQ(capture.count("SendAudio() returned negative return value ret=-5, restarting the feed."), 2);
    EXPECT_EQ(capture.count("SendAudio() restarting the feed returned negative value ret=-7."), 2);
}

TEST(OutputChain, FormatAnnouncementsReportTheLastResult) {
    FanOut source;
    EXPECT_EQ(source.AssignAudioFormat(AudioFormat{16, 44100, 2}), 0) << "no dependents";
    RecordingOutput refusing;
    refusing.m_format_result = -1;
    source.SetOutput(&refusing);
    LogCapture capture;
    EXPECT_EQ(source.AssignAudioFormat(AudioFormat{16, 44100, 2}), -1);
    EXPECT_TRUE(capture.contains("Setting audio format for audio interface"));
    source.SetOutput(nullptr);
    EXPECT_EQ(source.AssignAudioFormat(AudioFormat{16, 44100, 2}), 0) << "a null output is no dependent";
}

class DecoderChain : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(m_chain.CreateChain("PLAYBACK :"), 0);
        m_chain.SetOutput(&m_output);
    }
    CAudioDecoderChain m_chain;
    RecordingOutput m_output;
};

TEST_F(DecoderChain, TheMp3DecoderIsTheDefault) {
    ASSERT_NE(m_chain.GetCurrent(), nullptr);
    EXPECT_EQ(m_chain.GetCurrent()->GetType(), AUDIO_TYPE_MP3);
    EXPECT_EQ(m_chain.GetType(), -1) << "the chain itself is no output type";
}

TEST_F(DecoderChain, UnknownOrEmptySlotsSelectNothing) {
    for (int id : {3, 7, -1}) {
        EXPECT_EQ(m_chain.SetDecoderId(id), -1) << id;
        EXPECT_EQ(m_chain.GetCurrent(), nullptr) << id;
        const uint8_t packet[4] = {0xFF, 0xFB, 0x90, 0x00};
        EXPECT_EQ(m_chain.WriteBuffer(packet, sizeof packet, 0), -1);
        EXPECT_EQ(m_chain.RestartFeed(), -1);
        EXPECT_EQ(m_chain.SetAudioFormat(AudioFormat{16, 44100, 2}), -1);
        EXPECT_EQ(m_chain.SetBufferSize(100), 0);
    }
    EXPECT_TRUE(m_output.m_events.empty());
}

TEST_F(DecoderChain, EachIdSelectsItsDecoder) {
    for (int id : {AUDIO_TYPE_AAC, AUDIO_TYPE_AAC_ADTS, AUDIO_TYPE_MP3}) {
        ASSERT_EQ(m_chain.SetDecoderId(id), 0);
        EXPECT_EQ(m_chain.GetCurrent()->GetType(), id);
    }
}

TEST_F(DecoderChain, FormatsReachTheOutputThroughTheSelectedDecoder) {
    ASSERT_EQ(m_chain.SetDecoderId(AUDIO_TYPE_AAC), 0);
    EXPECT_EQ(m_chain.SetAudioFormat(AudioFormat{16, 48000, 1}), 0);
    ASSERT_EQ(m_output.Formats().size(), 1u);
    EXPECT_EQ(m_output.Formats()[0].rate, 48000);
}

TEST_F(DecoderChain, PrefixesCarryEachPartsTag) {
    LogCapture capture;
    m_chain.set_player_prefix("P1");
    EXPECT_STREQ(m_chain.GetPrefix(), "P1 DECODER CHAIN:");
    ASSERT_EQ(m_chain.SetDecoderId(AUDIO_TYPE_AAC), 0);
    EXPECT_EQ(m_chain.WriteBuffer(nullptr, 0, 0), -1);
    EXPECT_TRUE(capture.contains("P1 DECODER AAC+: ERROR :CAACDecoder::WriteBuffer(): Error: no source."));
}

TEST(DecoderChainLifecycle, DestroyLeavesNothingSelectedAndCanBeRebuilt) {
    CAudioDecoderChain chain;
    ASSERT_EQ(chain.CreateChain("P"), 0);
    chain.DestroyChain();
    EXPECT_EQ(chain.GetCurrent(), nullptr);
    EXPECT_EQ(chain.SetDecoderId(AUDIO_TYPE_MP3), -1);
    chain.DestroyChain();
    ASSERT_EQ(chain.CreateChain("P"), 0);
    EXPECT_EQ(chain.SetDecoderId(AUDIO_TYPE_AAC_ADTS), 0);
}

}  // namespace
