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

std::string PathOf(const std::string& name) {
    return name.rfind("src:", 0) == 0 ? SourceMediaPath(name.substr(4)) : MediaPath(name);
}

// What the source forwards is exactly what libavformat reads from the file by name: every packet
// of the chosen stream, whole and in order, then the end. The decoder is chosen and configured
// before any data. A packet the output refuses once it has taken the track's first is lost alone.
TEST(LocalFile, ForwardsEveryPacketOfTheAudioStreamThenEnds) {
    struct Case { const char* file; const char* item; int codec; int refused_write; };  // "src:": a source test file
    for (const Case& c : {Case{"mp3_44100_stereo_cbr.mp3", "", CODEC_MP3, -1}, Case{"mp3_44100_stereo_cbr.mp3", "", CODEC_MP3, 4},
                          Case{"mp2_44100_stereo.mp2", "", CODEC_MP3, -1},
                          Case{"aac_lc_44100_stereo.m4a", "", CODEC_AAC, -1},  // index at the end: needs seeking
                          Case{"aac_lc_44100_stereo_faststart.m4a", "", CODEC_AAC, -1},
                          Case{"aac_lc_44100_stereo.aac", "", CODEC_AAC_ADTS, -1},  // the file name decides
                          Case{"aac_lc_44100_stereo.aac", "song.M4a", CODEC_AAC_ADTS, -1},
                          Case{"aac_lc_44100_stereo.aac", "song.m4a", CODEC_AAC, -1},
                          Case{"aac_lc_44100_stereo.aac", "song.M4A", CODEC_AAC, -1},
                          Case{"aac_lc_44100_stereo.aac", "x.ab", CODEC_AAC_ADTS, -1},  // too short: the path decides
                          Case{"src:video_first.mkv", "", CODEC_MP3, -1},
                          Case{"src:truncated.mp3", "", CODEC_MP3, -1},  // cut in the middle of a frame
                          Case{"src:big_id3.mp3", "", CODEC_MP3, -1}}) {  // its cover comes first, as video
        SCOPED_TRACE(std::string(c.file) + " as item '" + c.item + "'" + (c.refused_write >= 0 ? ", one write refused" : ""));
        const std::string path = PathOf(c.file);
        MediaPackets expected;
        ASSERT_EQ(ReadPackets(path, &expected), 0);
        if (c.refused_write >= 0) expected.packets.erase(expected.packets.begin() + c.refused_write);
        LogCapture capture;
        PacketSink sink;
        sink.m_refused_write = c.refused_write;
        CAudioSource source;
        source.SetOutput(&sink);
        ASSERT_GE(source.Initialize(path, c.item), 0);
        EXPECT_EQ(source.GetCodecType(), c.codec);
        EXPECT_EQ(sink.m_calls, (std::vector<std::string>{"SetDecoderId(" + std::to_string(c.codec) + ")", "SetExtraData",
                                                          "SetAudioFormat(zero)"}));
        EXPECT_EQ(sink.m_config, expected.extradata);
        EXPECT_EQ(DrainSource(source), AVERROR_EOF);
        EXPECT_TRUE(sink.m_packets == expected.packets) << "a packet was cut, lost or changed";
        EXPECT_TRUE(capture.contains("AV format detected end of track for " + path));
        source.Close();
    }
}

// ADTS under an .m4a name goes to the raw AAC decoder, which has no config for it: the track fails
// at its first packets instead of playing to its end as silence.
TEST(LocalFileDecoding, AnUnconfigurableCodecFailsAtOnce) {
    ScratchDir dir;
    const std::vector<uint8_t> adts = ReadWholeFile(MediaPath("aac_lc_44100_stereo.aac"));
    const std::string path = dir.file("adts.m4a", std::string(adts.begin(), adts.end()));
    CAudioDecoderChain chain;
    ASSERT_EQ(chain.CreateChain("PLAYBACK :"), 0);
    LogCapture capture;
    RecordingOutput pcm;
    chain.SetOutput(&pcm);
    CAudioSource source;
    source.SetOutput(&chain);
    ASSERT_GE(source.Initialize(path, ""), 0);
    chain.RestartFeed();
    EXPECT_EQ(DrainSource(source, CAudioSource::kMaxRefusedAtStart), -1);
    EXPECT_TRUE(capture.contains("ERROR : Audio processing returned -1 ("));
    source.Close();
    EXPECT_TRUE(pcm.AllPcm().empty());
}

TEST(LocalFileOpen, ReadsTrimmedTagsAndTheDurationAndForgetsThemOnClose) {
    CAudioSource source;
    ASSERT_GE(source.Initialize(SourceMediaPath("tagged.mp3"), ""), 0);
    TrackInfo info;
    source.GetTrackInfo(info);
    EXPECT_EQ(info.title + "|" + info.artist + "|" + info.album, "Padded Title|Some Artist|Album");
    EXPECT_EQ(info.song_id, -1);
    EXPECT_NEAR(static_cast<double>(source.m_duration_ms), 2000.0, 100.0);
    EXPECT_EQ(source.GetPlaylistDigest(), "") << "a local file has no playlist";
    source.Close();
    source.GetTrackInfo(info);
    EXPECT_EQ(info.title + info.artist + info.album, "");
}

TEST(LocalFileFailure, ReturnsItsCodeAndLogsOneErrorLine) {
    struct Case { std::string path; int result; const char* line; };
    for (const Case& c :
         {Case{"/nonexistent/track.mp3", -ENOENT, "CAudioSource::Initialize(): Error opening normal playback audio source "},
          Case{SourceMediaPath("pcm.wav"), AVERROR(EINVAL), "CAudioSource::Initialize(): No audio stream detected in "},
          Case{SourceMediaPath("empty.mp3"), -1,
               "CAudioSource::init_avcontext_with_custom_io(): Can not guess the audio format from "}}) {
        LogCapture capture;
        CAudioSource source;
        source.set_player_prefix("P1");
        EXPECT_EQ(source.Initialize(c.path, ""), c.result) << c.path;
        EXPECT_TRUE(capture.contains(std::string("P1 AUDIO SOURCE: ERROR :") + c.line + c.path)) << c.line;
    }
}

// Players resolving at once each download into a file of their own; a file chosen for the resolver
// stays, whatever id comes after it.
TEST(PlayerId, GivesTheResolverThePlayersOwnTemporaryFileUnlessOneWasChosen) {
    CAudioSource source;
    for (const auto& [id, file] : {std::pair{3, "/tmp/.url3"}, {0, "/tmp/.url0"}, {-1, "/tmp/.url"}}) {
        source.SetPlayerId(id);
        EXPECT_EQ(source.GetResolver().GetTemporaryFile(), file) << id;
    }
    source.GetResolver().SetTemporaryFile("/scratch/.url");
    source.SetPlayerId(4);
    EXPECT_EQ(source.GetResolver().GetTemporaryFile(), "/scratch/.url");
}

TEST(NetworkOpenDeathTest, NeedsTheOwnersInterruptCallback) {
    CAudioSource source;
    EXPECT_DEATH(source.Initialize("http://127.0.0.1:9/stream", ""), "src/CAudioSource.*m_libav_callback");
}

// A track whose first packets the output refuses, or for which it has no decoder, fails with the
// output's own code; a shorter run of refusals at the start, as a stream joined mid-frame gives,
// costs only those packets. What the output took of an earlier open does not count for the next.
TEST(PacketReading, NeedsAnOpenSourceAndAnOutputThatTakesTheTrackAndStopsAtOnceAfterAnInterrupt) {
    LogCapture capture;
    PacketSink sink;
    CAudioSource source;
    source.SetOutput(&sink);
    bool changed = true;
    EXPECT_EQ(source.ProcessPacket(changed), -1);
    EXPECT_TRUE(capture.contains("The player context is not initialized"));

    const std::string path = MediaPath("mp3_44100_stereo_cbr.mp3");
    ASSERT_GE(source.Initialize(path, ""), 0);
    EXPECT_GT(source.ProcessPacket(changed), 0);
    EXPECT_FALSE(changed);
    const size_t delivered = sink.m_packets.size();
    source.Interrupt();
    EXPECT_EQ(source.GetTimeout(), -1) << "the owner tells an interrupt from a time-out by this";
    EXPECT_EQ(source.ProcessPacket(changed), AVERROR_EXIT);
    EXPECT_EQ(sink.m_packets.size(), delivered) << "the packet read after the interrupt is dropped";
    EXPECT_TRUE(capture.contains("AV format requested to exit immediatly."));

    source.SetTimeout(CAudioSource::kSourceTimeoutSec);
    for (const int refused : {CAudioSource::kMaxRefusedAtStart - 1, CAudioSource::kMaxRefusedAtStart}) {
        sink.m_refused_write = sink.m_writes;
        sink.m_refused_count = refused;
        sink.m_packets.clear();
        ASSERT_GE(source.Initialize(path, ""), 0);
        const bool plays = refused < CAudioSource::kMaxRefusedAtStart;
        const int result = DrainSource(source, refused);
        EXPECT_EQ(plays ? result > 0 : result == PacketSink::kRefused, true) << refused << ": " << result;
        if (plays) {
            EXPECT_GT(source.ProcessPacket(changed), 0);
        }
        EXPECT_EQ(sink.m_packets.size(), plays ? 1u : 0u) << refused;
    }
    EXPECT_TRUE(capture.contains("ERROR : Audio processing returned -7 ("));
    sink.m_decoder_result = -3;
    ASSERT_GE(source.Initialize(path, ""), 0);
    EXPECT_TRUE(capture.contains("ERROR :CAudioSource::Initialize(): no decoder for codec type 0 of " + path));
    EXPECT_EQ(source.ProcessPacket(changed), -3);
    EXPECT_TRUE(sink.m_packets.empty());
    source.Close();
}

TEST(RtpLoss, CountsTheMissingPacketsOfAGapAndNoLossAcrossAReset) {
    struct Case { int64_t previous, pts, step; unsigned lost; };
    for (const Case& c : {Case{1000, 3351, 2351, 0}, Case{1000, 1000 + 3 * 2351, 2351, 2},
                          Case{1000, 1000 + 7 * 2351 + 900, 2351, 6}, Case{1000, 1000 + 2 * 2351 - 1300, 2351, 0},
                          Case{1000, 1000 + 3 * 2351 - 1100, 2351, 2}, Case{1000, 1000, 2351, 0},
                          Case{4294966000, 3000, 2351, 0}, Case{1000, 5000000000, 2351, 0},
                          Case{1000, 8000, 0, 0}}) {
        EXPECT_EQ(CAudioSource::CountLostPackets(c.previous, c.pts, c.step), c.lost)
            << c.previous << " -> " << c.pts << " step " << c.step;
    }
}

// What the host shows: the whole title, however it is quoted or encoded, in UTF-8.
TEST(IcyTitle, ChangesOnlyWhenTheTitleDiffersAndReachesTheHostAsUtf8) {
    struct Case { const char* before; std::string packet; bool changed; const char* after; };
    using namespace std::string_literals;
    for (const Case& c : {
             Case{"", "StreamTitle='Artist - Song';StreamUrl='';", true, "Artist - Song"},
             Case{"Artist - Song", "StreamTitle='Artist - Song';StreamUrl='';", false, "Artist - Song"},
             Case{"Artist - Song", "StreamTitle='';", true, ""}, Case{"", "StreamTitle='';", false, ""},
             Case{"Old", "StreamTitle='no end", false, "Old"},
             Case{"Old", "StreamUrl='x';StreamTitle='y';", true, "y"},
             Case{"", "StreamTitle='It's 'n'; Part 2';", true, "It's 'n'; Part 2"},
             Case{"", "StreamTitle='a';b';\0\0\0"s, true, "a';b"},
             Case{"", "StreamTitle='Caf\xE9 \x96 \x80 \x81';", true, "Caf\xC3\xA9 \xE2\x80\x93 \xE2\x82\xAC \xC2\x81"},
             Case{"", "StreamTitle='Caf\xC3\xA9 \xE2\x80\x93';", true, "Caf\xC3\xA9 \xE2\x80\x93"},
             Case{"", "StreamTitle='\xC0\xAF \xED\xA0\x80';", true, "\xC3\x80\xC2\xAF \xC3\xAD\xC2\xA0\xE2\x82\xAC"},
             Case{"", "StreamTitle='A &#8211; B &#x2660;&#X1F600;';", true, "A \xE2\x80\x93 B \xE2\x99\xA0\xF0\x9F\x98\x80"},
             Case{"", "StreamTitle='\xE9&#233;';", true, "\xC3\xA9\xC3\xA9"},
             Case{"", "StreamTitle='&#; &#x; &#xZZ; &#0; &#1114112; &#xD800; &#65 &';", true,
                  "&#; &#x; &#xZZ; &#0; &#1114112; &#xD800; &#65 &"}}) {
        std::string title = c.before;
        EXPECT_EQ(CAudioSource::ParseIcyTitle(c.packet, title), c.changed) << c.before << " + " << c.packet;
        EXPECT_EQ(title, c.after) << c.before << " + " << c.packet;
    }
}

}  // namespace
