#include <gtest/gtest.h>

#include <cstdio>

#include "DecoderHarness.h"
#include "LogCapture.h"
#include "PcmChecks.h"

namespace {

constexpr int kLcFrameSamples = 1024;
constexpr int kSbrFrameSamples = 2048;
// The AAC-LC test signal is two clean sines at 128 kbit/s: anything near transparent decodes it far
// above this; a misaligned, dropped or duplicated frame falls far below it.
constexpr double kMinSnrDb = 40.0;

// Every frame decodes at the stream's format; the LC files also match ffmpeg's decode.
TEST(AacDecoder, EveryFrameOfEveryFileDecodesAtTheStreamsFormat) {
    struct File { const char* name; bool adts; int frame_samples; };
    for (const File& file : {File{"aac_lc_44100_stereo.aac", true, kLcFrameSamples}, File{"aac_lc_44100_stereo.m4a", false, kLcFrameSamples},
                             File{"aac_lc_44100_stereo_faststart.m4a", false, kLcFrameSamples},
                             File{"he_aac_44100_stereo.aac", true, kSbrFrameSamples}, File{"he_aac_44100_stereo.m4a", false, kSbrFrameSamples},
                             File{"he_aacv2_44100_stereo.aac", true, kSbrFrameSamples},
                             File{"he_aacv2_44100_stereo.m4a", false, kSbrFrameSamples}}) {
        SCOPED_TRACE(file.name);
        MediaPackets media = Packets(file.name);
        ASSERT_FALSE(media.packets.empty());
        Aac aac(file.adts);
        aac.Start(media);
        EXPECT_EQ(aac.FeedAll(media), 0);
        EXPECT_EQ(FormatList(aac.output), "16/44100/2 ");
        ASSERT_EQ(aac.output.m_events.front().kind, RecordingOutput::Event::kFormat);
        const std::vector<int16_t> decoded = Samples(aac.output.AllPcm());
        EXPECT_EQ(decoded.size(), media.packets.size() * file.frame_samples * 2) << "no frame dropped";
        if (file.frame_samples != kLcFrameSamples) continue;
        long lag = 0;
        const std::vector<int16_t> reference = Samples(
            CommandOutput("ffmpeg -nostdin -loglevel error -i '" + MediaPath(file.name) + "' -f s16le - 2>/dev/null"));
        const double snr = AlignedSnrDb(decoded, reference, 2, &lag);
        std::printf("%s: %.1f dB against the ffmpeg decode, lag %ld frames\n", file.name, snr, lag);
        EXPECT_GT(snr, kMinSnrDb) << "lag " << lag;
    }
}

// An ADTS packet may end inside an access unit, as a network read does: the decoder waits for the
// rest. Several units in one packet all decode.
TEST(AacDecoder, AdtsWaitsForTheRestOfAnAccessUnitAndDecodesSeveralInOnePacket) {
    MediaPackets media = Packets("aac_lc_44100_stereo.aac");
    Aac aac(true);
    aac.Start(media);
    LogCapture capture;
    const auto& packet = media.packets.at(0);
    const size_t half = packet.size() / 2;
    EXPECT_EQ(aac.Write(packet, half), 1);
    EXPECT_TRUE(capture.contains("CAACDecoder::WriteBuffer(): Insufficient bits on a first fill"));
    EXPECT_TRUE(aac.output.m_events.empty());
    EXPECT_EQ(aac.Write(std::vector<uint8_t>(packet.begin() + half, packet.end())), 0);
    EXPECT_EQ(aac.output.Count(RecordingOutput::Event::kBlock), 1u);
    std::vector<uint8_t> joined;
    for (size_t i = 1; i <= 5; ++i) joined.insert(joined.end(), media.packets[i].begin(), media.packets[i].end());
    EXPECT_EQ(aac.Write(joined), 0);
    EXPECT_EQ(aac.output.Count(RecordingOutput::Event::kBlock), 6u);
}

// A raw access unit is whole by definition: half of one is a decode failure, after which a restart
// decodes the stream again. A configuration the library rejects is reported again at every restart.
TEST(AacDecoder, RawHalfAnAccessUnitOrABadConfigurationIsAFailure) {
    MediaPackets media = Packets("aac_lc_44100_stereo.m4a");
    Aac aac(false);
    aac.Start(media);
    LogCapture capture;
    EXPECT_EQ(aac.Write(media.packets.at(0), media.packets[0].size() / 2), -1);
    EXPECT_TRUE(capture.contains("ERROR :Decode failed: 5. Restarting the feed."));
    ASSERT_EQ(aac.decoder->RestartFeed(), 0);
    EXPECT_EQ(aac.Write(media.packets[1]), 0);

    Aac bad(false);
    std::vector<uint8_t> bogus = {0xF8, 0x00, 0x00, 0x00};  // an object type the library does not know
    bad.Configure(bogus);
    EXPECT_TRUE(capture.contains("ERROR :CAACDecoder::SetExtraData(): Error: Unable to decode the ASC"));
    EXPECT_NE(bad.decoder->RestartFeed(), 0);
    EXPECT_TRUE(capture.contains("ERROR :CAACDecoder::RestartFeed(): Error: Unable to decode the ASC"));
    EXPECT_EQ(bad.Write(std::vector<uint8_t>(64)), -1);
    EXPECT_TRUE(bad.output.m_events.empty());
}

TEST(AacDecoder, AFormatSwitchIsAnnouncedBeforeItsFirstFrame) {
    MediaPackets media = Packets("aac_format_change.aac");
    Aac aac(true);
    aac.Start(media);
    EXPECT_EQ(aac.FeedAll(media), 0);
    EXPECT_EQ(FormatList(aac.output), "16/44100/2 16/48000/1 ");
    // Every frame of each segment went out in that segment's format.
    const size_t stereo_frames = aac.output.PcmAt(44100, 2).size() / 4;
    const size_t mono_frames = aac.output.PcmAt(48000, 1).size() / 2;
    EXPECT_EQ(stereo_frames % kLcFrameSamples, 0u);
    EXPECT_EQ(mono_frames % kLcFrameSamples, 0u);
    EXPECT_EQ(stereo_frames + mono_frames, media.packets.size() * kLcFrameSamples);
    EXPECT_NEAR(static_cast<double>(mono_frames), 48000.0, 3 * kLcFrameSamples);
}

// A listener joins a radio anywhere, so the first access units may be damaged. A unit that decodes
// with an error gives no PCM, and the first clean unit starts the audio exactly as if the stream
// had begun there.
TEST(AacDecoder, ADamagedFirstUnitGivesNoPcmAndTheFirstCleanOneStartsTheAudio) {
    MediaPackets media = Packets("aac_lc_44100_stereo.aac");
    constexpr size_t kAdtsHeader = 7, kFirstClean = 4;
    Aac fresh(true);
    fresh.Start(media);
    for (size_t i = kFirstClean; i < media.packets.size(); ++i) fresh.Write(media.packets[i]);
    for (uint32_t seed : {1u, 2u, 3u}) {
        Aac aac(true);
        aac.Start(media);
        std::vector<uint8_t> damaged = media.packets.at(1);
        uint32_t x = seed;
        for (size_t i = kAdtsHeader; i < damaged.size(); ++i)
            damaged[i] = static_cast<uint8_t>((x = x * 1664525u + 1013904223u) >> 24);
        LogCapture capture;
        EXPECT_EQ(aac.Write(damaged), -1) << seed;
        EXPECT_TRUE(aac.output.m_events.empty()) << seed;
        for (size_t i = kFirstClean; i < media.packets.size(); ++i) aac.Write(media.packets[i]);
        EXPECT_TRUE(aac.output.AllPcm() == fresh.output.AllPcm()) << seed;
    }
}

}  // namespace
