#include <gtest/gtest.h>

#include <mpg123.h>

#include "CAudioDecoderChain.h"
#include "LogCapture.h"
#include "PacketReader.h"
#include "RecordingOutput.h"

namespace {

const bool kMpg123Ready = (mpg123_init(), true);

// A format announcement reports the last dependent's result; a null output is no dependent.
TEST(OutputChain, AFailingDependentIsRestartedAndTheOthersStillGetTheBlock) {
    LogCapture capture;
    FanOut lone;
    EXPECT_EQ(lone.AssignAudioFormat(AudioFormat{16, 44100, 2}), 0) << "no dependents";
    RecordingOutput refusing;
    refusing.m_format_result = -1;
    lone.SetOutput(&refusing);
    EXPECT_EQ(lone.AssignAudioFormat(AudioFormat{16, 44100, 2}), -1);
    EXPECT_TRUE(capture.contains("Setting audio format for audio interface"));
    lone.SetOutput(nullptr);
    EXPECT_EQ(lone.AssignAudioFormat(AudioFormat{16, 44100, 2}), 0);
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

class DecoderChain : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(m_chain.CreateChain("PLAYBACK :"), 0);
        m_chain.SetOutput(&m_output);
    }
    CAudioDecoderChain m_chain;
    RecordingOutput m_output;
};

// A destroyed chain has no slots left to select until it is built again.
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
    ASSERT_EQ(m_chain.SetDecoderId(AUDIO_TYPE_MP3), 0);
    m_chain.DestroyChain();
    EXPECT_EQ(m_chain.SetDecoderId(AUDIO_TYPE_MP3), -1);
    EXPECT_EQ(m_chain.GetCurrent(), nullptr);
    m_chain.DestroyChain();
    ASSERT_EQ(m_chain.CreateChain("P"), 0);
    EXPECT_EQ(m_chain.SetDecoderId(AUDIO_TYPE_AAC_ADTS), 0);
}

// The decoder an id selects is the one that turns that codec's packets into PCM at the output; the
// wrong one turns them into nothing. Without a selection the chain decodes MP3.
TEST(DecoderChainMedia, TheSelectedDecoderTurnsItsCodecIntoPcm) {
    constexpr int kDefault = -2;
    struct Case { int id; const char* media; bool decodes; };
    for (const Case& c : {Case{kDefault, "mp3_44100_stereo_cbr.mp3", true}, Case{AUDIO_TYPE_MP3, "mp2_44100_stereo.mp2", true},
                          Case{AUDIO_TYPE_AAC, "aac_lc_44100_stereo.m4a", true},
                          Case{AUDIO_TYPE_AAC_ADTS, "aac_lc_44100_stereo.aac", true},
                          Case{AUDIO_TYPE_MP3, "aac_lc_44100_stereo.aac", false},
                          Case{AUDIO_TYPE_AAC_ADTS, "mp3_44100_stereo_cbr.mp3", false}}) {
        SCOPED_TRACE(std::to_string(c.id) + " " + c.media);
        CAudioDecoderChain chain;
        RecordingOutput output;
        ASSERT_EQ(chain.CreateChain("PLAYBACK :"), 0);
        chain.SetOutput(&output);
        MediaPackets media;
        ASSERT_EQ(ReadPackets(MediaPath(c.media), &media), 0);
        if (c.id != kDefault) {
            ASSERT_EQ(chain.SetDecoderId(c.id), 0);
        }
        uint8_t* config[1] = {media.extradata.data()};
        uint32_t length[1] = {static_cast<uint32_t>(media.extradata.size())};
        chain.SetExtraData(config, length, 1);
        chain.RestartFeed();
        for (const auto& packet : media.packets) chain.WriteBuffer(packet.data(), static_cast<uint16_t>(packet.size()), 0);
        const size_t pcm = output.PcmAt(44100, 2).size();
        EXPECT_EQ(pcm >= media.packets.size() * 1024 * 4, c.decodes) << pcm;
        EXPECT_EQ(pcm == 0, !c.decodes) << pcm;
    }
}

// Each part's lines carry its tag after the owner's prefix; neither AAC decoder decodes before it is
// configured or armed.
TEST_F(DecoderChain, PrefixesCarryEachPartsTagAndAacNeedsItsConfiguration) {
    LogCapture capture;
    m_chain.set_player_prefix("P1");
    EXPECT_STREQ(m_chain.GetPrefix(), "P1 DECODER CHAIN:");
    for (const auto& [id, tag] : {std::pair{AUDIO_TYPE_AAC, "AAC+"}, {AUDIO_TYPE_AAC_ADTS, "AAC+ ADTS"}}) {
        ASSERT_EQ(m_chain.SetDecoderId(id), 0);
        const uint8_t packet[16] = {};
        EXPECT_EQ(m_chain.WriteBuffer(packet, sizeof packet, 0), -1) << tag;
        EXPECT_TRUE(capture.contains(std::string("P1 DECODER ") + tag + ": ERROR :CAACDecoder::WriteBuffer(): Error: no source."))
            << tag;
    }
    EXPECT_TRUE(m_output.m_events.empty());
}

}  // namespace
