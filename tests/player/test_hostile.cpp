#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

#include <sys/stat.h>

#include "CAudioSource.h"
#include "LocalServer.h"
#include "PlayerFixture.h"
#include "ProgramRun.h"
#include "Utf8.h"

namespace {

using namespace KorvelPlayer;
using R = RecordingDelegate;

long ResidentKb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return 0;
}

// The highest resident set while it runs: the process's own high-water mark only ever grows, so it
// cannot tell one case from the one before.
class PeakRss {
public:
    PeakRss() : m_base(ResidentKb()), m_peak(m_base), m_sampler([this] {
        while (!m_done) {
            m_peak = std::max(m_peak.load(), ResidentKb());
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }) {}
    ~PeakRss() { Stop(); }
    long Stop() {
        m_done = true;
        if (m_sampler.joinable()) m_sampler.join();
        return m_peak;
    }
    long base() const { return m_base; }

private:
    const long m_base;
    std::atomic<long> m_peak;
    std::atomic<bool> m_done{false};
    std::thread m_sampler;
};

// The title of the largest ICY block the server sends.
std::string LongestTitle() {
    std::string text;
    while (text.size() < 255 * 16 - 15) text += "Long title ";
    return text.substr(0, 255 * 16 - 15);
}

// What the player makes of a peer: it plays on, it fails the open with an error and waits to try
// again, or it plays and then ends the track with an error.
enum Outcome { kPlays, kFails, kBreaksOff };

struct HostileCase {
    const char* name;
    std::string path;   // on the server: {S} is the server, {M} the media folder, {C} a closed port
    Outcome outcome;
    int error;          // the first error it reports when it fails
    int limit_ms;       // from Play to playing, the end or the error
    std::string title;  // the title it must report while it plays; empty: any, as long as it is UTF-8
    bool plant = false; // a link to a file of the test's at the resolver's download
};
void PrintTo(const HostileCase& c, std::ostream* out) { *out << c.name; }

constexpr int kOpenMs = 4000;           // an open that the peer ends at once
constexpr int kStalledMs = 10000;       // one source time-out (6 s, counted in whole seconds) and the open
constexpr int kStalledEntriesMs = 25000; // the three entries' time-outs after which a scan gives up
#if defined(__SANITIZE_ADDRESS__)
// Freed blocks wait in the sanitizer's quarantine (256 MB by default) before they are reused: a peer's
// megabytes of junk would look like growth.
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=8"; }
#endif

// A player on small buffers (the source gives up 6 s after its last data) and a peer of
// tests/fixtures/servers/hostile_server.py.
class Hostile : public PlayerTest, public ::testing::WithParamInterface<HostileCase> {
protected:
    void SetUp() override {
        PlayerTest::SetUp();
        m_params.tcp_delay = 1000;
        m_params.tcp_accuracy = 250;
        m_params.tcp_low_threshold = 500;
        m_params.stream_fade = 0;
        Start({"track_a.mp3", "track_long.mp3"});
        // Downloads go to this test's folder, never to the file every player of the machine shares.
        m_download = m_dir + "/.url";
        m_player.GetSource()->GetResolver().SetTemporaryFile(m_download);
        m_server = std::make_unique<ChildProcess>(
            std::vector<std::string>{"python3", "-S", std::string(KORVEL_SERVERS_DIR) + "/hostile_server.py", m_media}, true);
        if (m_server->Stdout() == nullptr || std::fscanf(m_server->Stdout(), "PORT %d", &m_port) != 1) m_port = 0;
    }
    void TearDown() override {
        m_server.reset();
        PlayerTest::TearDown();
    }
    std::string Expand(std::string text) const {
        const std::pair<std::string, std::string> keys[] = {
            {"{S}", "http://127.0.0.1:" + std::to_string(m_port)}, {"{M}", m_media}, {"{C}", std::to_string(ClosedPort())}};
        for (const auto& [key, value] : keys)
            for (size_t at; (at = text.find(key)) != std::string::npos;) text.replace(at, key.size(), value);
        return text;
    }
    double Since(std::chrono::steady_clock::time_point start, int note) const {
        return note < 0 ? -1 : std::chrono::duration<double>(m_delegate.notes()[note].at - start).count();
    }

    std::unique_ptr<ChildProcess> m_server;
    int m_port = 0;
    std::string m_download;
};

// Whatever the peer sends, the player ends in the error its rules name for it (or plays on with
// clean titles), within the case's time and without growing, writes nothing but its own download,
// stops at once, and then plays a file to its end.
TEST_P(Hostile, EndsAsTheRulesSayAndThenPlaysTheNextFile) {
    const HostileCase& c = GetParam();
    ASSERT_GT(m_port, 0);
    const std::string victim = m_dir + "/victim";
    if (c.plant) {
        std::ofstream(victim) << "untouched";
        ASSERT_EQ(::symlink(victim.c_str(), m_download.c_str()), 0);
    }
    PeakRss rss;
    const auto opened = std::chrono::steady_clock::now();
    m_player.SetItem(Item(Expand("{S}" + c.path)));
    m_player.Play();
    int ended;
    if (c.outcome == kPlays) {
        ended = m_delegate.wait_for_state(PLAYER_STATE_PLAYING, c.limit_ms);
        EXPECT_GE(ended, 0) << m_delegate.trace();
        Sleep(2000);
        // Audio lost to a lying block may dip below the threshold; nothing else is an error.
        for (const auto& n : m_delegate.of(R::kError))
            EXPECT_EQ(n.value, EPLAYER_STREAM_LOW_BUFFER_REACHED) << m_delegate.trace();
        bool titled = c.title.empty();
        for (const auto& n : m_delegate.of(R::kInfoChanged)) {
            EXPECT_TRUE(IsValidUtf8(n.info.m_curr_song_name)) << n.info.m_curr_song_name;
            titled = titled || n.info.m_curr_song_name == c.title;
        }
        EXPECT_TRUE(titled) << "never reported " << c.title;
    } else if (c.outcome == kBreaksOff) {
        const int playing = m_delegate.wait_for_state(PLAYER_STATE_PLAYING, kOpenMs);
        ASSERT_GE(playing, 0) << m_delegate.trace();
        // The buffer may run low while the junk pours in: that warning is not the end.
        ended = m_delegate.wait_for(
            [](const R::Note& n) { return n.kind == R::kError && n.value != EPLAYER_STREAM_LOW_BUFFER_REACHED; },
            c.limit_ms, playing);
        ASSERT_GE(ended, 0) << m_delegate.trace();
        EXPECT_EQ(m_delegate.notes()[ended].value, c.error) << m_delegate.trace();
    } else {
        ended = m_delegate.wait_for_kind(R::kError, c.limit_ms);
        ASSERT_GE(ended, 0) << m_delegate.trace();
        EXPECT_EQ(m_delegate.notes()[ended].value, c.error) << m_delegate.trace();
        // A failed open of a stream waits before it tries again; it never plays what it refused.
        EXPECT_GE(m_delegate.wait_for_state(PLAYER_STATE_WAIT, 2000, ended), 0) << m_delegate.trace();
        EXPECT_LT(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 0), 0) << m_delegate.trace();
    }
    const double seconds = Since(opened, ended);

    // An error that ends the item may have sent the player idle before the stop arrives.
    const size_t settled = static_cast<size_t>(std::max(ended, 0));
    m_player.Stop(true);
    EXPECT_GE(m_delegate.wait_for_state(PLAYER_STATE_IDLE, 3000, settled), 0) << m_delegate.trace(settled);
    const size_t next = m_delegate.size();
    m_player.SetItem(Item("track_a.mp3"));
    m_player.Play();
    EXPECT_GE(m_delegate.wait_for_kind(R::kItemFinished, 5000, next), 0) << m_delegate.trace(next);
    EXPECT_GE(m_delegate.wait_for_track("track_a.mp3", 0, next), 0) << m_delegate.trace(next);
    EXPECT_TRUE(m_delegate.of(R::kError, next).empty()) << m_delegate.trace(next);

    const long peak = rss.Stop();
    std::printf("[ hostile  ] %-28s %-5s error %5d after %6.2f s, peak RSS %7ld kB (+%ld kB)\n", c.name,
                c.outcome == kPlays ? "plays" : c.outcome == kFails ? "fails" : "break", c.outcome != kPlays ? m_delegate.notes()[ended].value : 0, seconds, peak,
                peak - rss.base());
    EXPECT_LT(peak - rss.base(), 32 * 1024) << "kB more than before the case";
    // The download is a file of the player's own, and no more than the start of a reply.
    struct stat kept {};
    if (::lstat(m_download.c_str(), &kept) == 0) {
        EXPECT_TRUE(S_ISREG(kept.st_mode)) << "the download is not a plain file";
        EXPECT_LE(kept.st_size, CURLPlaylistAudioSource::kMaxDownloadBytes + CURL_MAX_WRITE_SIZE);
    }
    if (c.plant) {
        EXPECT_EQ(ReadTextFile(victim), "untouched") << "written through the planted link";
    }
}


INSTANTIATE_TEST_SUITE_P(
    Peers, Hostile,
    ::testing::Values(
        HostileCase{"IcyBlockAfterEveryByte", "/icy?metaint=1&title=Tiny", kPlays, 0, kOpenMs, "Tiny"},
        HostileCase{"IcyLargestBlock", "/icy?kind=max", kPlays, 0, kOpenMs, LongestTitle()},
        HostileCase{"IcyLengthThatLies", "/icy?kind=lie", kPlays, 0, kOpenMs, ""},
        HostileCase{"IcyBlocksOfNuls", "/icy?kind=nul", kPlays, 0, kOpenMs, ""},
        HostileCase{"IcyBinaryTitle", "/icy?kind=binary", kPlays, 0, kOpenMs, ""},
        HostileCase{"IcyCodePageTitle", "/icy?kind=cp1252", kPlays, 0, kOpenMs, "Café Müller – Naïve"},
        HostileCase{"IcyQuotesInTitle", "/icy?kind=quotes", kPlays, 0, kOpenMs, "It's a 'test'; really"},
        HostileCase{"EndlessHeaders", "/headers?kind=endless", kFails, EPLAYER_SOURCE_TIMEOUT, kStalledMs, ""},
        HostileCase{"MegabyteHeaderLine", "/headers?kind=huge", kPlays, 0, kOpenMs, ""},
        HostileCase{"OneHeaderByteASecond", "/headers?kind=slow", kFails, EPLAYER_SOURCE_TIMEOUT, kStalledMs, ""},
        HostileCase{"PlaylistOfStalledEntries", "/playlist?kind=stalled&to={S}/headers?kind=slow", kFails, EPLAYER_SOURCE_TIMEOUT, kStalledEntriesMs, ""},
        HostileCase{"ClosedInTheHeaders", "/headers?kind=cut", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"RedirectLoop", "/loop", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"FiftyRedirects", "/chain?n=50", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"RedirectToEtcPasswd", "/redirect?to=file:///etc/passwd", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"RedirectToALocalMp3", "/redirect?to=file://{M}track_a.mp3", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"LocationOfALocalMp3", "/redirect?code=200&to=file://{M}track_a.mp3", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"RedirectToRtp", "/redirect?to=rtp://127.0.0.1:9", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"HundredMegabytePlaylist", "/playlist?kind=big&to={S}/icy", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"TenThousandDeadEntries", "/playlist?kind=unreachable&port={C}", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"ControlCharactersInEntries", "/playlist?kind=control&to={S}/icy?title=Clean", kPlays, 0, kOpenMs, "Clean"},
        HostileCase{"PlaylistOfALocalMp3", "/playlist?kind=one&to=file://{M}track_a.mp3", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"GzipOfZeros", "/gzip?kind=zeros", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"ZerosAfterTwoSeconds", "/icy?metaint=0&junk=2", kBreaksOff, EPLAYER_PROCESS_BUFFER, kOpenMs, ""},
        HostileCase{"GzipOfPlaylistLines", "/gzip?kind=lines&ct=audio/x-mpegurl&port={C}", kFails, EPLAYER_OPEN_URL, kOpenMs, ""},
        HostileCase{"LinkPlantedAtTheDownload", "/playlist?kind=one&to={S}/icy?title=Linked", kPlays, 0, kOpenMs, "Linked", true}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
