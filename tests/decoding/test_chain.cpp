#include <gtest/gtest.h>

#include <mpg123.h>

#include "CAudioDecoderChain.h"
#include "CAudioOutput.h"
#include "LogCapture.h"
#include "PacketReader.h"
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

struct ChainCase {
    int id;  // kDefault: no selection after CreateChain
    const char* media;
    bool decodes;
};
constexpr int kDefault = -2;
void PrintTo(const ChainCase& c, std::ostream* os) { *os << c.id << " " << c.media; }

class ChainMedia : public DecoderChain, public ::testing::WithParamInterface<ChainCase> {};

// The decoder an id selects is the one that turns that codec's packets into PCM at the output; the
// wrong one turns them into nothing.
TEST_P(ChainMedia, TheSelectedDecoderTurnsItsCodecIntoPcm) {
    const ChainCase& c = GetParam();
    MediaPackets media;
    ASSERT_EQ(ReadPackets(MediaPath(c.media), &media), 0);
    if (c.id != kDefault) {
        ASSERT_EQ(m_chain.SetDecoderId(c.id), 0);
    }
    uint8_t* config[1] = {media.extradata.data()};
    uint32_t length[1] = {static_cast<uint32_t>(media.extradata.size())};
    m_chain.SetExtraData(config, length, 1);
    m_chain.RestartFeed();
    for (const auto& packet : media.packets) m_chain.WriteBuffer(packet.data(), static_cast<uint16_t>(packet.size()), 0);
    const size_t pcm = m_output.PcmAt(44100, 2).size();
    if (c.decodes) {
        EXPECT_GE(pcm, media.packets.size() * 1024 * 4);
    } else {
        EXPECT_EQ(pcm, 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, ChainMedia,
                         ::testing::Values(ChainCase{kDefault, "mp3_44100_stereo_cbr.mp3", true},
                                           ChainCase{AUDIO_TYPE_MP3, "mp2_44100_stereo.mp2", true},
                                           ChainCase{AUDIO_TYPE_AAC, "aac_lc_44100_stereo.m4a", true},
                                           ChainCase{AUDIO_TYPE_AAC_ADTS, "aac_lc_44100_stereo.aac", true},
                                           ChainCase{AUDIO_TYPE_MP3, "aac_lc_44100_stereo.aac", false},
                                           ChainCase{AUDIO_TYPE_AAC_ADTS, "mp3_44100_stereo_cbr.mp3", false}));

TEST_F(DecoderChain, PrefixesCarryEachPartsTag) {
    LogCapture capture;
    m_chain.set_player_prefix("P1");
    EXPECT_STREQ(m_chain.GetPrefix(), "P1 DECODER CHAIN:");
    ASSERT_EQ(m_chain.SetDecoderId(AUDIO_TYPE_AAC), 0);
    EXPECT_EQ(m_chain.WriteBuffer(nullptr, 0, 0), -1);
    EXPECT_TRUE(capture.contains("P1 DECODER AAC+: ERROR :CAACDecoder::WriteBuffer(): Error: no source."));
}

}  // namespace
