#include <gtest/gtest.h>

#include <cerrno>
#include <mpg123.h>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include "CAudioDecoderChain.h"
#include "CAudioSource.h"
#include "LogCapture.h"
#include "PacketReader.h"
#include "RecordingOutput.h"
#include "SourceFixtures.h"

namespace {

const bool kLibrariesReady = (mpg123_init(), av_log_set_level(AV_LOG_ERROR), true);

struct LocalCase {
    const char* file;  // generated media; "src:" names one of the source tests' own files
    const char* item;
    int codec;
};

std::string PathOf(const std::string& name) {
    return name.rfind("src:", 0) == 0 ? SourceMediaPath(name.substr(4)) : MediaPath(name);
}

void PrintTo(const LocalCase& c, std::ostream* os) { *os << c.file << " as item '" << c.item << "'"; }

class LocalFile : public ::testing::TestWithParam<LocalCase> {};

// What the source forwards is exactly what libavformat reads from the file by name: every packet
// of the chosen stream, whole and in order, then the end. The decoder is chosen and configured
// before any data.
TEST_P(LocalFile, ForwardsEveryPacketOfTheAudioStreamThenEnds) {
    const LocalCase& c = GetParam();
    const std::string path = PathOf(c.file);
    MediaPackets expected;
    ASSERT_EQ(ReadPackets(path, &expected), 0);

    LogCapture capture;
    PacketSink sink;
    CAudioSource source;
    source.SetOutput(&sink);
    ASSERT_GE(source.Initialize(path, c.item), 0);
    EXPECT_EQ(source.GetCodecType(), c.codec);
    EXPECT_EQ(sink.m_calls, (std::vector<std::string>{"SetDecoderId(" + std::to_string(c.codec) + ")", "SetExtraData",
                                                      "SetAudioFormat(zero)"}));
    EXPECT_EQ(sink.m_config, expected.extradata);

    EXPECT_EQ(DrainSource(source), AVERROR_EOF);
    EXPECT_EQ(sink.m_packets.size(), expected.packets.size());
    EXPECT_TRUE(sink.m_packets == expected.packets) << "a packet was cut, lost or changed";
    EXPECT_TRUE(capture.contains("AV format detected end of track for " + path));
    source.Close();
}

INSTANTIATE_TEST_SUITE_P(
    Formats, LocalFile,
    ::testing::Values(LocalCase{"mp3_44100_stereo_cbr.mp3", "", CODEC_MP3},
                      LocalCase{"mp2_44100_stereo.mp2", "", CODEC_MP3},
                      LocalCase{"aac_lc_44100_stereo.m4a", "", CODEC_AAC},  // index at the end: needs seeking
                      LocalCase{"aac_lc_44100_stereo_faststart.m4a", "", CODEC_AAC},
                      LocalCase{"aac_lc_44100_stereo.aac", "", CODEC_AAC_ADTS},  // the file name decides
                      LocalCase{"aac_lc_44100_stereo.aac", "song.M4a", CODEC_AAC_ADTS},
                      LocalCase{"aac_lc_44100_stereo.aac", "song.m4a", CODEC_AAC},
                      LocalCase{"aac_lc_44100_stereo.aac", "song.M4A", CODEC_AAC},
                      LocalCase{"aac_lc_44100_stereo.aac", "x.ab", CODEC_AAC_ADTS},  // too short: the path decides
                      LocalCase{"src:video_first.mkv", "", CODEC_MP3},
                      LocalCase{"src:big_id3.mp3", "", CODEC_MP3}));  // its cover comes first, as video

// The set-up calls leave the real decoders able to decode: raw AAC gets its config, ADTS and MP3
// their own framing, and the whole file comes out as PCM.
TEST(LocalFileDecoding, EveryCodecPlaysThroughTheDecoderChain) {
    CAudioDecoderChain chain;
    ASSERT_EQ(chain.CreateChain("PLAYBACK :"), 0);
    for (const char* file : {"mp3_44100_stereo_cbr.mp3", "aac_lc_44100_stereo.m4a", "aac_lc_44100_stereo.aac"}) {
        RecordingOutput pcm;
        chain.SetOutput(&pcm);
        CAudioSource source;
        source.SetOutput(&chain);
        ASSERT_GE(source.Initialize(MediaPath(file), ""), 0) << file;
        chain.RestartFeed();
        EXPECT_EQ(DrainSource(source), AVERROR_EOF) << file;
        source.Close();
        const size_t frames = pcm.PcmAt(44100, 2).size() / 4;
        EXPECT_GT(frames, 44100u * 29 / 10) << file << ": three seconds of audio";
        EXPECT_LT(frames, 44100u * 32 / 10) << file;
    }
}

TEST(LocalFileOpen, ReadsTrimmedTagsAndTheDurationAndForgetsThemOnClose) {
    CAudioSource source;
    PacketSink sink;
    source.SetOutput(&sink);
    ASSERT_GE(source.Initialize(SourceMediaPath("tagged.mp3"), ""), 0);
    TrackInfo info;
    source.GetTrackInfo(info);
    EXPECT_EQ(info.title, "Padded Title");
    EXPECT_EQ(info.artist, "Some Artist");
    EXPECT_EQ(info.album, "Album");
    EXPECT_EQ(info.song_id, -1);
    EXPECT_NEAR(static_cast<double>(source.m_duration_ms), 2000.0, 100.0);
    EXPECT_EQ(source.GetPlaylistDigest(), "") << "a local file has no playlist";
    source.Close();
    source.GetTrackInfo(info);
    EXPECT_EQ(info.title + info.artist + info.album, "");
}

struct FailureCase {
    const char* name;
    std::string path;
    int result;
    const char* line;
};

void PrintTo(const FailureCase& c, std::ostream* os) { *os << c.path; }

class LocalFileFailure : public ::testing::TestWithParam<FailureCase> {};

TEST_P(LocalFileFailure, ReturnsItsCodeAndLogsOneErrorLine) {
    const FailureCase& c = GetParam();
    LogCapture capture;
    PacketSink sink;
    CAudioSource source;
    source.set_player_prefix("P1");
    source.SetOutput(&sink);
    EXPECT_EQ(source.Initialize(c.path, ""), c.result);
    EXPECT_TRUE(capture.contains(std::string("P1 AUDIO SOURCE: ERROR :") + c.line + c.path)) << c.line;
    EXPECT_TRUE(sink.m_packets.empty());
    source.Close();
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LocalFileFailure,
    ::testing::Values(
        FailureCase{"Missing", "/nonexistent/track.mp3", -ENOENT,
                    "CAudioSource::Initialize(): Error opening normal playback audio source "},
        FailureCase{"NoMpegOrAac", SourceMediaPath("pcm.wav"), AVERROR(EINVAL),
                    "CAudioSource::Initialize(): No audio stream detected in "},
        FailureCase{"Empty", SourceMediaPath("empty.mp3"), -1,
                    "CAudioSource::init_avcontext_with_custom_io(): Can not guess the audio format from "}),
    [](const auto& info) { return std::string(info.param.name); });

// Whatever a file holds, the source either refuses it with an error line or plays to a clean end.
TEST(HostileFile, EndsInAnErrorOrACleanEnd) {
    for (const std::string& path : {SourceMediaPath("truncated.mp3"), MediaPath("random.bin"),
                                   SourceMediaPath("empty.mp3"), SourceMediaPath("video_first.mkv")}) {
        LogCapture capture;
        PacketSink sink;
        CAudioSource source;
        source.SetOutput(&sink);
        const int opened = source.Initialize(path, "");
        if (opened < 0) {
            EXPECT_TRUE(capture.contains("ERROR :")) << path;
        } else {
            const int end = DrainSource(source);
            EXPECT_TRUE(end == AVERROR_EOF || capture.contains("ERROR :")) << path << " ended with " << end;
        }
        source.Close();
    }
}

TEST(NetworkOpenDeathTest, NeedsTheOwnersInterruptCallback) {
    CAudioSource source;
    EXPECT_DEATH(source.Initialize("http://127.0.0.1:9/stream", ""), "src/CAudioSource.*m_libav_callback");
}

TEST(PacketReading, NeedsAnOpenSourceAndStopsAtOnceAfterAnInterrupt) {
    LogCapture capture;
    PacketSink sink;
    CAudioSource source;
    source.SetOutput(&sink);
    bool changed = true;
    EXPECT_EQ(source.ProcessPacket(changed), -1);
    EXPECT_TRUE(capture.contains("The player context is not initialized"));

    ASSERT_GE(source.Initialize(MediaPath("mp3_44100_stereo_cbr.mp3"), ""), 0);
    EXPECT_GT(source.ProcessPacket(changed), 0);
    EXPECT_FALSE(changed);
    const size_t delivered = sink.m_packets.size();
    source.Interrupt();
    EXPECT_EQ(source.GetTimeout(), -1) << "the owner tells an interrupt from a time-out by this";
    EXPECT_EQ(source.ProcessPacket(changed), AVERROR_EXIT);
    EXPECT_EQ(sink.m_packets.size(), delivered) << "the packet read after the interrupt is dropped";
    EXPECT_TRUE(capture.contains("AV format requested to exit immediatly."));
    source.Close();
}

struct IcyCase {
    const char* before;
    const char* packet;
    bool changed;
    const char* after;
};

void PrintTo(const IcyCase& c, std::ostream* os) { *os << c.packet; }

class IcyTitle : public ::testing::TestWithParam<IcyCase> {};

TEST_P(IcyTitle, ChangesOnlyWhenTheTitleDiffers) {
    std::string title = GetParam().before;
    EXPECT_EQ(CAudioSource::ParseIcyTitle(GetParam().packet, title), GetParam().changed);
    EXPECT_EQ(title, GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Packets, IcyTitle,
    ::testing::Values(IcyCase{"", "StreamTitle='Artist - Song';StreamUrl='';", true, "Artist - Song"},
                      IcyCase{"Artist - Song", "StreamTitle='Artist - Song';StreamUrl='';", false, "Artist - Song"},
                      IcyCase{"Artist - Song", "StreamTitle='';", true, ""},
                      IcyCase{"", "StreamTitle='';", false, ""},
                      IcyCase{"Old", "StreamTitle='no end", false, "Old"},
                      IcyCase{"Old", "StreamUrl='x';StreamTitle='New';", true, ""}));  // the first "';" ends it

}  // namespace
