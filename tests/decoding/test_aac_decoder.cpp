#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "CAACADTSDecoder.h"
#include "CAACDecoder.h"
#include "LogCapture.h"
#include "PacketReader.h"
#include "RecordingOutput.h"

namespace {

constexpr int kLcFrameSamples = 1024;
constexpr int kSbrFrameSamples = 2048;
// The AAC-LC test signal is two clean sines at 128 kbit/s: anything near transparent decodes it far
// above this; a misaligned, dropped or duplicated frame falls far below it.
constexpr double kMinSnrDb = 40.0;

MediaPackets Packets(const std::string& name) {
    MediaPackets media;
    EXPECT_EQ(ReadPackets(MediaPath(name), &media), 0) << name;
    return media;
}

std::vector<int16_t> Samples(const std::vector<uint8_t>& bytes) {
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    return samples;
}

// Signal-to-noise ratio of `decoded` against `reference` (both interleaved), after finding the lag
// at which their first channels correlate best. Encoders and decoders disagree on how much of the
// start (priming) to drop, so the two decodes are aligned before they are compared.
double AlignedSnrDb(const std::vector<int16_t>& decoded, const std::vector<int16_t>& reference, int channels,
                    long* best_lag) {
    const long frames_a = static_cast<long>(decoded.size()) / channels;
    const long frames_b = static_cast<long>(reference.size()) / channels;
    constexpr long kMaxLag = 4096;
    constexpr long kWindowStart = 8192;
    constexpr long kWindow = 8192;
    double best = -1e300;
    *best_lag = 0;
    for (long lag = -kMaxLag; lag <= kMaxLag; ++lag) {
        double sum = 0;
        for (long i = kWindowStart; i < kWindowStart + kWindow; ++i) {
            const long j = i - lag;
            if (i >= frames_a || j < 0 || j >= frames_b) continue;
            sum += static_cast<double>(decoded[i * channels]) * reference[j * channels];
        }
        if (sum > best) {
            best = sum;
            *best_lag = lag;
        }
    }
    double signal = 0, noise = 0;
    for (long i = 0; i < frames_a; ++i) {
        const long j = i - *best_lag;
        if (j < 0 || j >= frames_b) continue;
        for (int c = 0; c < channels; ++c) {
            const double ref = reference[j * channels + c];
            const double err = decoded[i * channels + c] - ref;
            signal += ref * ref;
            noise += err * err;
        }
    }
    return 10 * std::log10(signal / std::max(noise, 1e-9));
}

std::vector<int16_t> FfmpegDecode(const std::string& name) {
    return Samples(CommandOutput("ffmpeg -nostdin -loglevel error -i '" + MediaPath(name) +
                                 "' -f s16le -acodec pcm_s16le - 2>/dev/null"));
}

// Both decoders behind one test body: the raw one configured from the container, the ADTS one
// armed only.
template <typename Decoder>
class AacFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(m_decoder.Initialize(), 0);
        m_decoder.set_player_prefix("PLAYBACK :");
        m_decoder.SetOutput(&m_output);
    }
    void Configure(MediaPackets& media) {
        m_config[0] = media.extradata.data();
        m_config_length[0] = static_cast<uint32_t>(media.extradata.size());
        m_decoder.SetExtraData(m_config, m_config_length, 1);
        ASSERT_EQ(m_decoder.RestartFeed(), 0);
    }
    int FeedAll(const MediaPackets& media) {
        int failures = 0;
        for (const auto& packet : media.packets)
            failures += m_decoder.WriteBuffer(packet.data(), static_cast<uint16_t>(packet.size()), 0) < 0;
        return failures;
    }
    Decoder m_decoder;
    RecordingOutput m_output;
    uint8_t* m_config[1] = {nullptr};
    uint32_t m_config_length[1] = {0};
};

using RawAac = AacFixture<CAACDecoder>;
using AdtsAac = AacFixture<CAACADTSDecoder>;

struct AacFile {
    const char* name;
    bool adts;
    int rate;
    int channels;
    int frame_samples;
    bool compare_with_ffmpeg;
};

class AacFiles : public ::testing::TestWithParam<AacFile> {};

TEST_P(AacFiles, EveryFrameDecodesAtTheOutputFormat) {
    const AacFile& file = GetParam();
    MediaPackets media = Packets(file.name);
    ASSERT_FALSE(media.packets.empty());
    RecordingOutput output;
    std::unique_ptr<CAACDecoder> decoder(file.adts ? new CAACADTSDecoder : new CAACDecoder);
    ASSERT_EQ(decoder->Initialize(), 0);
    decoder->SetOutput(&output);
    uint8_t* config[1] = {media.extradata.data()};
    uint32_t length[1] = {static_cast<uint32_t>(media.extradata.size())};
    decoder->SetExtraData(config, length, 1);
    ASSERT_EQ(decoder->RestartFeed(), 0);
    int failures = 0;
    for (const auto& packet : media.packets)
        failures += decoder->WriteBuffer(packet.data(), static_cast<uint16_t>(packet.size()), 0) != 0;
    EXPECT_EQ(failures, 0);

    const auto formats = output.Formats();
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0].rate, file.rate);
    EXPECT_EQ(formats[0].channels, file.channels);
    ASSERT_EQ(output.m_events.front().kind, RecordingOutput::Event::kFormat);
    const std::vector<int16_t> decoded = Samples(output.AllPcm());
    EXPECT_EQ(decoded.size(), media.packets.size() * file.frame_samples * file.channels) << "no frame dropped";

    if (!file.compare_with_ffmpeg) return;
    long lag = 0;
    const double snr = AlignedSnrDb(decoded, FfmpegDecode(file.name), file.channels, &lag);
    RecordProperty("snr_db", std::to_string(snr));
    std::printf("%s: %.1f dB against the ffmpeg decode, lag %ld frames\n", file.name, snr, lag);
    EXPECT_GT(snr, kMinSnrDb) << "lag " << lag;
}

INSTANTIATE_TEST_SUITE_P(
    Media, AacFiles,
    ::testing::Values(AacFile{"aac_lc_44100_stereo.aac", true, 44100, 2, kLcFrameSamples, true},
                      AacFile{"aac_lc_44100_stereo.m4a", false, 44100, 2, kLcFrameSamples, true},
                      AacFile{"aac_lc_44100_stereo_faststart.m4a", false, 44100, 2, kLcFrameSamples, true},
                      AacFile{"he_aac_44100_stereo.aac", true, 44100, 2, kSbrFrameSamples, false},
                      AacFile{"he_aac_44100_stereo.m4a", false, 44100, 2, kSbrFrameSamples, false},
                      AacFile{"he_aacv2_44100_stereo.aac", true, 44100, 2, kSbrFrameSamples, false},
                      AacFile{"he_aacv2_44100_stereo.m4a", false, 44100, 2, kSbrFrameSamples, false}),
    [](const ::testing::TestParamInfo<AacFile>& info) {
        std::string name = info.param.name;
        for (char& c : name)
            if (!isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

TEST_F(RawAac, NothingDecodesBeforeTheConfiguration) {
    LogCapture capture;
    const uint8_t packet[16] = {};
    EXPECT_EQ(m_decoder.WriteBuffer(packet, sizeof packet, 0), -1);
    EXPECT_TRUE(capture.contains(
        "PLAYBACK : DECODER AAC+: ERROR :CAACDecoder::WriteBuffer(): Error: no source. Call SetExtraData() first!"));
}

TEST_F(AdtsAac, NothingDecodesBeforeItIsArmed) {
    LogCapture capture;
    const uint8_t packet[16] = {};
    EXPECT_EQ(m_decoder.WriteBuffer(packet, sizeof packet, 0), -1);
    EXPECT_TRUE(capture.contains(
        "PLAYBACK : DECODER AAC+ ADTS: ERROR :CAACDecoder::WriteBuffer(): Error: no source. Call SetExtraData() first!"));
}

TEST_F(AdtsAac, HalfAnAccessUnitWaitsForTheRest) {
    MediaPackets media = Packets("aac_lc_44100_stereo.aac");
    Configure(media);
    LogCapture capture;
    const auto& packet = media.packets.at(0);
    const uint16_t half = static_cast<uint16_t>(packet.size() / 2);
    EXPECT_EQ(m_decoder.WriteBuffer(packet.data(), half, 0), 1);
    EXPECT_TRUE(capture.contains("CAACDecoder::WriteBuffer(): Insufficient bits on a first fill"));
    EXPECT_TRUE(m_output.m_events.empty());
    EXPECT_EQ(m_decoder.WriteBuffer(packet.data() + half, static_cast<uint16_t>(packet.size() - half), 0), 0);
    EXPECT_EQ(m_output.Count(RecordingOutput::Event::kBlock), 1u);
}

TEST_F(AdtsAac, SeveralFramesInOnePacketAllDecode) {
    MediaPackets media = Packets("aac_lc_44100_stereo.aac");
    Configure(media);
    std::vector<uint8_t> joined;
    for (size_t i = 0; i < 5; ++i) joined.insert(joined.end(), media.packets[i].begin(), media.packets[i].end());
    EXPECT_EQ(m_decoder.WriteBuffer(joined.data(), static_cast<uint16_t>(joined.size()), 0), 0);
    EXPECT_EQ(m_output.Count(RecordingOutput::Event::kBlock), 5u);
}

TEST_F(RawAac, HalfAnAccessUnitIsADecodeFailure) {
    MediaPackets media = Packets("aac_lc_44100_stereo.m4a");
    Configure(media);
    LogCapture capture;
    const auto& packet = media.packets.at(0);
    EXPECT_EQ(m_decoder.WriteBuffer(packet.data(), static_cast<uint16_t>(packet.size() / 2), 0), -1);
    EXPECT_TRUE(capture.contains("ERROR :Decode failed: 5. Restarting the feed."));
    // After the restart the stream decodes again.
    ASSERT_EQ(m_decoder.RestartFeed(), 0);
    EXPECT_EQ(m_decoder.WriteBuffer(media.packets[1].data(), static_cast<uint16_t>(media.packets[1].size()), 0), 0);
}

TEST_F(RawAac, ARejectedConfigurationIsReportedAgainAtEveryRestart) {
    LogCapture capture;
    uint8_t bogus[] = {0xF8, 0x00, 0x00, 0x00};  // an object type the library does not know
    m_config[0] = bogus;
    m_config_length[0] = sizeof bogus;
    m_decoder.SetExtraData(m_config, m_config_length, 1);
    EXPECT_TRUE(capture.contains("ERROR :CAACDecoder::SetExtraData(): Error: Unable to decode the ASC"));
    EXPECT_NE(m_decoder.RestartFeed(), 0);
    EXPECT_TRUE(capture.contains("ERROR :CAACDecoder::RestartFeed(): Error: Unable to decode the ASC"));
    const uint8_t packet[64] = {};
    EXPECT_EQ(m_decoder.WriteBuffer(packet, sizeof packet, 0), -1);
    EXPECT_TRUE(m_output.m_events.empty());
}

TEST_F(AdtsAac, AFormatSwitchIsAnnouncedBeforeItsFirstFrame) {
    MediaPackets media = Packets("aac_format_change.aac");
    Configure(media);
    EXPECT_EQ(FeedAll(media), 0);
    const auto formats = m_output.Formats();
    ASSERT_EQ(formats.size(), 2u);
    EXPECT_EQ(formats[0].rate, 44100);
    EXPECT_EQ(formats[0].channels, 2);
    EXPECT_EQ(formats[1].rate, 48000);
    EXPECT_EQ(formats[1].channels, 1);
    // Every frame of each segment went out in that segment's format.
    const size_t stereo_frames = m_output.PcmAt(44100, 2).size() / 4;
    const size_t mono_frames = m_output.PcmAt(48000, 1).size() / 2;
    EXPECT_EQ(stereo_frames % kLcFrameSamples, 0u);
    EXPECT_EQ(mono_frames % kLcFrameSamples, 0u);
    EXPECT_EQ(stereo_frames + mono_frames, media.packets.size() * kLcFrameSamples);
    EXPECT_NEAR(static_cast<double>(mono_frames), 48000.0, 3 * kLcFrameSamples);
}

}  // namespace
