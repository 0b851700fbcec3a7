#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <unistd.h>

extern "C" {
#include <libavutil/error.h>
}

#include "CAudioDecoderChain.h"
#include "CAudioSource.h"
#include "LocalServer.h"
#include "LogCapture.h"
#include "PacketReader.h"
#include "RecordingOutput.h"
#include "SourceFixtures.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* kStreamFile = "mp3_44100_stereo_cbr.mp3";

// A source with the owner's interrupt installed and a server to open, over a directory holding the
// stream file. The process id as player id keeps the downloads of parallel test runs apart.
class NetworkSource : public ::testing::Test {
protected:
    NetworkSource() : m_server(m_dir.path()) {
        std::system(("cp '" + MediaPath(kStreamFile) + "' '" + m_dir.path() + "/'").c_str());
    }
    void SetUp() override {
        ASSERT_NE(m_server.port(), 0) << "the local server did not start";
        m_source.InitializeLibrary();
        InstallInterrupt(m_source);
        m_source.SetOutput(&m_sink);
        m_source.SetPlayerId(::getpid());
    }
    void TearDown() override {
        m_source.Close();
        m_source.Deinitialize();
        ::unlink(m_players_file.c_str());
    }

    ScratchDir m_dir;
    LocalHttpServer m_server;
    PacketSink m_sink;
    CAudioSource m_source;
    const std::string m_players_file = "/tmp/.url" + std::to_string(::getpid());
};

TEST_F(NetworkSource, AnHttpStreamPlaysThroughTheChainWithTheConfiguredAgentAndHeader) {
    CAudioDecoderChain chain;
    ASSERT_EQ(chain.CreateChain("PLAYBACK :"), 0);
    RecordingOutput pcm;
    chain.SetOutput(&pcm);
    m_source.SetOutput(&chain);
    m_source.SetNetworkOptions(KorvelPlayer::NetworkOptions{"KorvelTest/1.0", "X-Korvel-Test: yes"});
    LogCapture capture;
    ASSERT_GE(m_source.Initialize(m_server.url("/stream?file=mp3_44100_stereo_cbr.mp3"), ""), 0);
    EXPECT_EQ(m_source.GetCodecType(), CODEC_MP3);
    EXPECT_TRUE(capture.contains("Opening URL playback audio source")) << "an audio stream is no playlist";
    EXPECT_EQ(m_source.GetPlaylistDigest(), "");
    EXPECT_EQ(m_source.m_duration_ms, 0);
    bool changed = false;
    for (int i = 0; i < 200; ++i) ASSERT_GT(m_source.ProcessPacket(changed), 0) << "packet " << i;
    EXPECT_GT(pcm.PcmAt(44100, 2).size(), 44100u * 4) << "more than a second of decoded audio";

    // Both the resolver's request and the demuxer's (which asks for ICY metadata) carry them.
    const auto requests = m_server.Requests("/stream?");
    ASSERT_EQ(requests.size(), 2u);
    for (const std::string& request : requests) {
        EXPECT_NE(request.find("User-Agent: KorvelTest/1.0\n"), std::string::npos) << request;
        EXPECT_NE(request.find("X-Korvel-Test: yes\n"), std::string::npos) << request;
    }
    EXPECT_NE(requests[1].find("Icy-MetaData: 1"), std::string::npos);
}

// The player proves a title change is reported once; a reconnect is a fresh open, to which the title
// the server repeats is news, and an emptied title is a change too.
TEST_F(NetworkSource, AnIcyTitleIsNewsToEveryOpenAndAnEmptiedTitleIsAChange) {
    LogCapture capture;
    TrackInfo info;
    for (int open = 0; open < 2; ++open) {
        ASSERT_GE(m_source.Initialize(m_server.url("/stream?file=mp3_44100_stereo_cbr.mp3&metaint=8192&rate=200000"), ""), 0);
        ASSERT_GT(PacketsUntilTitleChange(m_source, 200), 0) << "open " << open << " never names its title";
        m_source.GetTrackInfo(info);
        EXPECT_EQ(info.title, "Artist - Song");
    }
    EXPECT_STREQ(m_source.GetIcyMetadata(), "StreamTitle='Artist - Song';StreamUrl='';");
    m_server.Get("/control/title?t=StreamTitle%3D%27%27%3B");
    ASSERT_GT(PacketsUntilTitleChange(m_source, 3000), 0);
    m_source.GetTrackInfo(info);
    EXPECT_EQ(info.title, "");
    EXPECT_EQ(capture.count("new icy meta data packet: "), 3);
}

// Either the demuxer's probe (the resolver's download went through) or the resolver's download of a
// playlist whose body never comes blocks; libcurl looks at its progress callback about once a second.
TEST_F(NetworkSource, InterruptAbortsABlockingOpenAtOnce) {
    struct Case { const char* query; double limit; int result; };  // result 0: any error
    for (const Case& c : {Case{"/stream?stall=5000", 0.5, AVERROR_EXIT}, Case{"/stream?stall=0&ct=audio/x-mpegurl", 1.5, 0}}) {
        int result = 0;
        m_source.SetTimeout(CAudioSource::kSourceTimeoutSec);  // an interrupt sticks until then
        const double seconds = SecondsFromInterruptToReturn(m_source, m_server.url(c.query), &result);
        EXPECT_GT(seconds, 0) << c.query << " gave up before the interrupt";
        EXPECT_LT(seconds, c.limit) << c.query;
        EXPECT_EQ(c.result == 0 ? result < 0 : result == c.result, true) << c.query << ": " << result;
    }
}

// Without a Content-Length the end of the connection is an I/O error, after the last whole packet.
TEST_F(NetworkSource, AStreamThatClosesEarlyDeliversWhatItSentThenAnError) {
    constexpr int kSent = 20000;
    LogCapture capture;
    ASSERT_GE(m_source.Initialize(m_server.url("/stream?file=mp3_44100_stereo_cbr.mp3&limit=20000"), ""), 0);
    const int end = DrainSource(m_source);
    EXPECT_TRUE(end == AVERROR(EIO) || end == AVERROR_EOF) << end;
    size_t bytes = 0;
    for (const auto& packet : m_sink.m_packets) bytes += packet.size();
    EXPECT_GT(bytes, static_cast<size_t>(kSent) - 2 * 418 - 2048) << "at most a frame and the tag header lost";
    EXPECT_LE(bytes, static_cast<size_t>(kSent));
}

TEST_F(NetworkSource, AnRtpStreamIsOpenedAsUrlPlaybackWithoutTheResolver) {
    const int port = ClosedPort() & ~1;  // UDP, even: the control packets take the next one
    const std::string url = "rtp://127.0.0.1:" + std::to_string(port);
    const auto sender = SendRtp(MediaPath("bench_44100_stereo.mp3"), port);
    LogCapture capture;
    ASSERT_GE(m_source.Initialize(url, ""), 0);
    EXPECT_TRUE(capture.contains("Opening URL playback audio source " + url));
    EXPECT_FALSE(capture.contains("ERROR")) << "no playlist download is tried for a protocol that has none";
    EXPECT_EQ(m_source.GetPlaylistDigest(), "");
    EXPECT_EQ(m_source.GetCodecType(), CODEC_MP3);
    int forwarded = 0;
    bool changed = false;
    for (int i = 0; i < 20; ++i) forwarded += m_source.ProcessPacket(changed) > 0 ? 1 : 0;
    EXPECT_GE(forwarded, 15);
    EXPECT_EQ(m_sink.m_lost, 0u) << "a stream that lost nothing has nothing to conceal";
    ASSERT_FALSE(m_sink.m_packets.empty());
    EXPECT_EQ(m_sink.m_packets.back()[0], 0xFF) << "whole MPEG frames, without the RTP payload header";
}

// The stream arrives in real time: the open decides from the declared type, or from a short probe,
// rather than from seconds of audio.
TEST_F(NetworkSource, AnMp3OrAacStreamOpensWithinAFractionOfASecond) {
    std::system(("cp '" + MediaPath("aac_lc_44100_stereo.aac") + "' '" + m_dir.path() + "/'").c_str());
    struct Case { const char* query; int codec; };
    for (const Case& c : {Case{"file=mp3_44100_stereo_cbr.mp3", CODEC_MP3},
                          Case{"file=aac_lc_44100_stereo.aac&ct=audio/aacp", CODEC_AAC_ADTS},
                          Case{"file=aac_lc_44100_stereo.aac&ct=application/octet-stream", CODEC_AAC_ADTS}}) {
        const auto start = Clock::now();
        ASSERT_GE(m_source.Initialize(m_server.url(std::string("/stream?rate=16000&metaint=8192&") + c.query), ""), 0);
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::printf("open of %s: %.3f s\n", c.query, seconds);
        EXPECT_LT(seconds, 1.5) << c.query;
        EXPECT_EQ(m_source.GetCodecType(), c.codec) << c.query;
        bool changed = false;
        EXPECT_GT(m_source.ProcessPacket(changed), 0) << c.query;
    }
}

// Entries that do not answer each get the whole limit, not a share of one: the third is still tried.
// The playlist goes to the player's own file, which no other player overwrites.
TEST_F(NetworkSource, APlaylistUrlOpensItsFirstAnsweringStreamAndKeepsTheDigest) {
    const std::string stream = m_server.url("/stream?file=mp3_44100_stereo_cbr.mp3");
    const std::string playlist = "#EXTM3U\n" + m_server.url("/stream?stall=0&n=1") + "\n" +
                                 m_server.url("/stream?stall=0&n=2") + "\n" + stream + "\n";
    const std::string local = m_dir.file("radio.m3u", playlist);
    m_source.SetTimeout(1);
    LogCapture capture;
    ASSERT_GE(m_source.Initialize(m_server.url("/files/radio.m3u"), ""), 0);
    EXPECT_TRUE(capture.contains("Opening play list stream audio source " + stream));
    EXPECT_EQ(capture.count("CURLPlaylistAudioSource::Fetch(): " + m_server.url("/stream?stall=0")), 2);
    EXPECT_EQ(utils::compare_files(m_players_file, local), 0) << "the download is not in " << m_players_file;
    EXPECT_NE(utils::compare_files("/tmp/.url", local), 0) << "the download is in the file every player shares";
    unsigned char digest[16];
    std::string hex;
    utils::md5_buffer(playlist.data(), static_cast<int>(playlist.size()), digest);
    utils::convert_array_to_hex_string(digest, 16, hex);
    EXPECT_EQ(m_source.GetPlaylistDigest(), hex);
    bool changed = false;
    EXPECT_GT(m_source.ProcessPacket(changed), 0);
}

}  // namespace
