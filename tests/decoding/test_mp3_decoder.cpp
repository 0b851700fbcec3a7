#include <gtest/gtest.h>

#include <mpg123.h>

#include "CMP3Decoder.h"
#include "DecoderHarness.h"
#include "LogCapture.h"
#include "PcmChecks.h"
#include "PcmTolerance.h"
#include "RecordingOutput.h"

namespace {

const bool kMpg123Ready = (mpg123_init(), true);

class Mp3Decoder : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(m_decoder.Initialize(), 0);
        m_decoder.set_player_prefix("PLAYBACK :");
        m_decoder.SetOutput(&m_output);
    }
    CMP3Decoder m_decoder;
    RecordingOutput m_output;
};

// Every file decodes to exactly the independent decode, announced first. A packet that completes no
// frame sends nothing, not even the format: the first packet comes in two halves, as a network read may cut it.
TEST(Mp3Files, DecodeEqualsTheReferenceByteForByteAfterItsFormat) {
    for (const auto& [name, format] : {std::pair{"mp3_44100_stereo_cbr.mp3", "16/44100/2 "}, {"mp3_44100_stereo_vbr.mp3", "16/44100/2 "},
                                       {"mp3_22050_mono.mp3", "16/22050/1 "}, {"mp2_44100_stereo.mp2", "16/44100/2 "}}) {
        SCOPED_TRACE(name);
        CMP3Decoder decoder;
        RecordingOutput output;
        ASSERT_EQ(decoder.Initialize(), 0);
        decoder.SetOutput(&output);
        MediaPackets media = Packets(name);
        ASSERT_FALSE(media.packets.empty());
        auto& first = media.packets[0];
        const auto half = first.begin() + static_cast<long>(first.size() / 2);
        EXPECT_EQ(Write(decoder, std::vector<uint8_t>(first.begin(), half)), 0);
        EXPECT_TRUE(output.m_events.empty());
        first.erase(first.begin(), half);
        EXPECT_EQ(FeedAll(decoder, media), 0);
        EXPECT_EQ(FormatList(output), format);
        ASSERT_EQ(output.m_events.front().kind, RecordingOutput::Event::kFormat) << "the format comes before any samples";
        const std::vector<uint8_t> reference = Mp3Reference(MediaPath(name));
        ASSERT_FALSE(reference.empty());
        EXPECT_TRUE(PcmSame(output.AllPcm(), reference));
        for (const auto& event : output.m_events) EXPECT_LE(event.bytes.size(), CMP3Decoder::kOutputBufferBytes);
    }
}

TEST_F(Mp3Decoder, ARateChangeIsAnnouncedBeforeTheFirstBlockAtTheNewRate) {
    EXPECT_EQ(FeedAll(m_decoder, Packets("mp3_rate_change.mp3")), 0);
    EXPECT_EQ(FormatList(m_output), "16/44100/2 16/32000/1 ");
    // Every sample of the first segment went out in the first format: a tail sent after the new
    // announcement would be missing here and play at the wrong rate.
    EXPECT_TRUE(PcmSame(m_output.PcmAt(44100, 2), Mp3Reference(MediaPath("mp3_rate_change_part_a.mp3"))));
    const size_t second = m_output.PcmAt(32000, 1).size();
    const size_t expected = Mp3Reference(MediaPath("mp3_rate_change_part_b.mp3")).size();
    EXPECT_NEAR(static_cast<double>(second), static_cast<double>(expected), 2 * 1152 * 2);
}

// A packet of ten frames decodes to more than one output buffer: the packets lost before it must
// reach the output once, with its first block, or the buffered output conceals them twice. An empty
// packet sends one empty block, without them.
TEST_F(Mp3Decoder, LostPacketsTravelWithTheFirstBlockOfTheNextPacketOnly) {
    EXPECT_EQ(m_decoder.WriteBuffer(nullptr, 0, 4), 0);
    ASSERT_EQ(m_output.m_events.size(), 1u);
    EXPECT_EQ(m_output.m_events[0].kind, RecordingOutput::Event::kBlock);
    EXPECT_EQ(m_output.m_events[0].frames, 0);
    EXPECT_EQ(m_output.m_events[0].lost_packets, 0u);
    const MediaPackets media = Packets("mp3_44100_stereo_cbr.mp3");
    ASSERT_EQ(Write(m_decoder, media.packets[0]), 0);
    std::vector<uint8_t> burst;
    for (size_t i = 1; i <= 10; ++i) burst.insert(burst.end(), media.packets[i].begin(), media.packets[i].end());
    const size_t before = m_output.m_events.size();
    ASSERT_EQ(Write(m_decoder, burst, 3), 0);

    std::vector<unsigned> lost;
    for (size_t i = before; i < m_output.m_events.size(); ++i)
        if (m_output.m_events[i].kind == RecordingOutput::Event::kBlock) lost.push_back(m_output.m_events[i].lost_packets);
    ASSERT_GE(lost.size(), 2u);
    EXPECT_EQ(lost[0], 3u);
    for (size_t i = 1; i < lost.size(); ++i) EXPECT_EQ(lost[i], 0u) << "block " << i;
}

TEST_F(Mp3Decoder, RandomBytesNeverCrashNorAnnounceAnEmptyFormat) {
    LogCapture capture;
    const std::vector<uint8_t> noise = ReadWholeFile(MediaPath("random.bin"));
    ASSERT_FALSE(noise.empty());
    constexpr size_t kChunk = 1000;
    for (size_t at = 0; at < noise.size(); at += kChunk) {
        const uint16_t n = static_cast<uint16_t>(std::min(kChunk, noise.size() - at));
        const int result = m_decoder.WriteBuffer(&noise[at], n, 0);
        if (result < 0) {
            EXPECT_EQ(m_decoder.RestartFeed(), 0);
        }
    }
    for (const AudioFormat& format : m_output.Formats()) {
        EXPECT_GT(format.channels, 0);
        EXPECT_GT(format.rate, 0);
    }
    // The decoder is still usable for a real stream afterwards.
    ASSERT_EQ(m_decoder.RestartFeed(), 0);
    m_output.m_events.clear();
    EXPECT_EQ(FeedAll(m_decoder, Packets("mp3_22050_mono.mp3")), 0);
    EXPECT_TRUE(PcmSame(m_output.AllPcm(), Mp3Reference(MediaPath("mp3_22050_mono.mp3"))));
}

TEST(Mp3DecoderLifecycle, WithoutInitialisationEveryPacketFails) {
    CMP3Decoder decoder;
    const uint8_t packet[8] = {};
    EXPECT_EQ(decoder.WriteBuffer(packet, sizeof packet, 0), -1);
    EXPECT_EQ(decoder.RestartFeed(), -1);
    EXPECT_EQ(decoder.DeInitialize(), 0);
    EXPECT_EQ(decoder.DeInitialize(), 0);
}

}  // namespace
