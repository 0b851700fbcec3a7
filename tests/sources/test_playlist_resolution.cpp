#include <gtest/gtest.h>

#include <unistd.h>

#include "CURLPlaylistAudioSource.h"
#include "LocalServer.h"
#include "LogCapture.h"
#include "PacketReader.h"
#include "SourceFixtures.h"
#include "utils.h"

namespace {

// Replaces every "{S}" with the server's address.
std::string Expand(std::string text, const std::string& server) {
    for (size_t at; (at = text.find("{S}")) != std::string::npos;) text.replace(at, 3, server);
    return text;
}

class Resolver : public ::testing::Test {
protected:
    Resolver() : m_server(m_dir.path()) {}
    void SetUp() override {
        ASSERT_NE(m_server.port(), 0) << "the local server did not start";
        std::system(("cp '" + MediaPath("mp3_44100_stereo_cbr.mp3") + "' '" + m_dir.path() + "/'").c_str());
        m_resolver.SetTemporaryFile(m_dir.path() + "/.url");
        m_resolver.set_player_prefix("P1 URL PLAYLIST:");
    }
    std::string file(const std::string& name, const std::string& content) {
        return m_dir.file(name, Expand(content, m_server.url("")));
    }

    ScratchDir m_dir;
    LocalHttpServer m_server;
    CURLPlaylistAudioSource m_resolver;
};

// A playlist is known by its content type or its extension; audio, possibly after redirects, is
// no playlist; the first entry that answers wins.
TEST_F(Resolver, ClassifiesTheReplyAndFindsTheStream) {
    const std::string m3u = "#EXTM3U\n#EXTINF:-1,Radio\n{S}/stream?n=1\n";
    const std::string pls = "[playlist]\nnumberofentries=1\nFile1={S}/stream?n=2\n";
    file("radio.m3u", m3u);
    file("m3u.txt", m3u);
    file("radio.pls.txt", pls);
    file("RADIO.PLS", pls);
    file("two.m3u", "{S}/status/404\n  {S}/stream?n=3 \r\n");
    file("page.html", "<html><body>{S}/stream</body></html>");
    struct Case { const char* location; int result; const char* stream; };  // a server path or a whole URL
    for (const Case& c : {Case{"/files/m3u.txt?ct=audio/x-mpegurl%3B%20charset%3Dutf-8", 0, "{S}/stream?n=1"},
                          Case{"/files/radio.m3u", 0, "{S}/stream?n=1"},
                          Case{"/files/radio.pls.txt?ct=audio/x-scpls", 0, "{S}/stream?n=2"},
                          Case{"/files/RADIO.PLS", 0, "{S}/stream?n=2"},
                          Case{"/files/radio.m3u?x=1", 2, ""},  // an extension followed by a query is unknown
                          Case{"/files/page.html?ct=text/html", 2, ""},
                          Case{"/stream?file=mp3_44100_stereo_cbr.mp3", 2, ""},
                          Case{"/redirect?to={S}%2Fstream%3Fn%3D5", 0, "{S}/stream?n=5"},
                          Case{"/redirect?to={S}%2Fredirect%3Fto%3D%252Fstream%253Fn%253D4", 0, "{S}/stream?n=4"},
                          Case{"/files/two.m3u", 0, "{S}/stream?n=3"}, Case{"/status/404", 1, ""},
                          Case{"/status/500", 1, ""}, Case{"/loop", 1, ""}, Case{"rtp://127.0.0.1:9", 1, ""}}) {
        std::string location = c.location;
        if (location.find("://") == std::string::npos) location = m_server.url(Expand(location, m_server.url("")));
        std::string stream = "stale";
        uint8_t digest[16] = {};
        EXPECT_EQ(m_resolver.ExtractURL(location.c_str(), stream, digest), c.result) << c.location;
        EXPECT_EQ(stream, Expand(c.stream, m_server.url(""))) << c.location;
    }
}

TEST_F(Resolver, ALongReplyIsCutAfterTheChunkThatPassedTheLimitAndDigested) {
    std::string body;
    while (body.size() < 100000) body += "#EXTINF:-1,padding padding padding padding padding\n";
    body += "{S}/stream?n=1\n";
    file("long.m3u", body);
    LogCapture capture;
    uint8_t digest[16] = {};
    std::string stream;
    EXPECT_EQ(m_resolver.ExtractURL(m_server.url("/files/long.m3u").c_str(), stream, digest), 1)
        << "the entry at the end is never seen";
    EXPECT_TRUE(capture.contains("P1 URL PLAYLIST: ERROR :CURLPlaylistAudioSource::ExtractURL() unable to obtain URL "
                                 "using M3U parser with the following link " + m_resolver.GetTemporaryFile()));

    const std::vector<uint8_t> kept = ReadWholeFile(m_resolver.GetTemporaryFile());
    EXPECT_GT(kept.size(), static_cast<size_t>(CURLPlaylistAudioSource::kMaxDownloadBytes));
    EXPECT_LT(kept.size(), 50000u);
    EXPECT_EQ(std::string(kept.begin(), kept.end()), body.substr(0, kept.size()));
    uint8_t expected[16];
    utils::md5_buffer(kept.data(), static_cast<int>(kept.size()), expected);
    EXPECT_EQ(std::vector<uint8_t>(digest, digest + 16), std::vector<uint8_t>(expected, expected + 16));
}

// Whatever holds the download's name when the download starts was put there by someone else: the
// download fails rather than write through a symbolic or a hard link.
TEST_F(Resolver, APlantedLinkFailsTheDownloadAndStaysUntouched) {
    const std::string victim = m_dir.file("victim", "untouched");
    file("radio.m3u", "{S}/stream\n");
    for (const auto plant : {&::symlink, &::link}) {
        ::unlink(m_resolver.GetTemporaryFile().c_str());
        ASSERT_EQ(plant(victim.c_str(), m_resolver.GetTemporaryFile().c_str()), 0);
        EXPECT_FALSE(m_resolver.Fetch(m_server.url("/files/radio.m3u"), true));
        const std::vector<uint8_t> content = ReadWholeFile(victim);
        EXPECT_EQ(std::string(content.begin(), content.end()), "untouched");
    }
}

}  // namespace
