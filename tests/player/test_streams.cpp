#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "StreamFixture.h"

namespace {

using namespace KorvelPlayer;
using R = RecordingDelegate;

// The steepest step between two samples of the 330 Hz tone at half scale, 48000 Hz, with room for
// the resampler's ripple: a click at the join of a stream is far above it.
constexpr int kMaxToneStep = 1000;

class RadioCodec : public StreamTest, public ::testing::WithParamInterface<const char*> {};

// One radio session, joined in the middle of a frame: the states on the way in, a card that starts
// only once the delay is buffered and then never runs dry, no click where the audio starts, a title
// change reported once, and a quiet stop.
TEST_P(RadioCodec, BuffersItsDelayPlaysWithoutGapsAndFollowsItsTitle) {
    StartStream(1000, {GetParam()});
    PlayUrl(Radio("&from=1001", GetParam()));
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 6000), 0) << m_delegate.trace();
    EXPECT_EQ(m_delegate.states(), "4 5 1");
    const auto titled = [](const std::string& title) {
        return [title](const R::Note& n) { return n.kind == R::kInfoChanged && n.info.m_curr_song_name == title; };
    };
    ASSERT_GE(m_delegate.wait_for(titled("Artist - Song"), 3000), 0) << m_delegate.trace();
    m_server->Get("/control/title?t=StreamTitle%3D%27Next%20Song%27%3B");
    const int changed = m_delegate.wait_for(titled("Next Song"), 4000);
    ASSERT_GE(changed, 0) << m_delegate.trace();
    Sleep(1500);  // three more metadata blocks with the same title
    size_t reports = 0;
    for (const auto& n : m_delegate.of(R::kInfoChanged, changed)) reports += n.info.m_curr_song_name == "Next Song";
    EXPECT_EQ(reports, 1u) << m_delegate.trace();

    const double stopped = MonotonicNow();
    const size_t from = m_delegate.size();
    m_player.Stop(true);
    EXPECT_GE(m_delegate.wait_for_state(PLAYER_STATE_IDLE, 3000, from), 0) << m_delegate.trace(from);
    EXPECT_EQ(m_delegate.errors(), std::vector<int>()) << m_delegate.trace();

    EXPECT_GE(ExpectFedUntil(stopped) - m_opened, 0.9) << "the card started before the delay was buffered\n" << CardLog();
    const std::vector<vcard::LogEvent> formats = CardEvents("hw_params");
    ASSERT_FALSE(formats.empty());
    EXPECT_EQ(formats.back().number("rate"), 48000);
    EXPECT_EQ(formats.back().number("channels"), 2);
    EXPECT_GE(Played(m_card.capture_path(1)).second, 0.95) << "silent windows in the capture";
    const std::vector<int16_t> samples = CaptureSamples(m_card.capture_path(1));
    int step = 0;
    size_t at = 0;
    for (size_t i = 2; i < samples.size(); ++i)
        if (std::abs(samples[i] - samples[i - 2]) > step) step = std::abs(samples[i] - samples[i - 2]), at = i / 2;
    EXPECT_LE(step, kMaxToneStep) << "a click at frame " << at;
}

INSTANTIATE_TEST_SUITE_P(Streams, RadioCodec, ::testing::Values("track_long.mp3", "track_long.aac"),
                         [](const auto& info) { return std::string(info.index == 0 ? "Mp3" : "AacAdts"); });

struct NetworkCase {
    const char* name;
    uint16_t delay_ms;
    std::string query;  // how the server delivers the radio
    int watch_ms;       // how long to listen after the start
    size_t low_buffer;  // how many low-buffer errors that delivery has to cause
};
void PrintTo(const NetworkCase& c, std::ostream* out) { *out << c.name; }

class UnevenNetwork : public StreamTest, public ::testing::WithParamInterface<NetworkCase> {};

// However unevenly the data comes, a buffer that covers the gaps keeps the card fed: it starts
// once, never runs dry, the player never goes back to buffering, and each dip below the
// low-buffer threshold is reported once.
TEST_P(UnevenNetwork, KeepsTheCardFedWhileTheBufferCoversTheGaps) {
    const NetworkCase& c = GetParam();
    StartStream(c.delay_ms);
    PlayUrl(Radio(c.query));
    const int playing = m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 8000);
    ASSERT_GE(playing, 0) << m_delegate.trace();
    Sleep(c.watch_ms);
    const double watched = MonotonicNow();
    EXPECT_EQ(m_delegate.states(playing), "1") << m_delegate.trace();
    size_t low = 0, others = 0;
    for (int code : m_delegate.errors()) (code == EPLAYER_STREAM_LOW_BUFFER_REACHED ? low : others) += 1;
    EXPECT_EQ(low, c.low_buffer) << m_delegate.trace();
    EXPECT_EQ(others, 0u) << m_delegate.trace();
    ExpectFedUntil(watched);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, UnevenNetwork,
    ::testing::Values(NetworkCase{"OneSecondBursts", 2000, "&burst=1000", 3000, 0},
                      NetworkCase{"ThreeSecondStallInFiveSecondBuffer", 5000,
                                  "&prefill=" + StreamBytes(5) + "&pause=3000&pause_at=" + StreamBytes(6.5), 5000, 0},
                      NetworkCase{"TwoDips", 1000, "&pause=700&pause_at=" + StreamBytes(2) + "," + StreamBytes(4), 4000, 2}),
    [](const auto& info) { return std::string(info.param.name); });

// A stall longer than the buffer drains it: the source gives up once its time-out has passed
// without data, and the item ends there, once.
TEST_F(StreamTest, AStallLongerThanTheBufferTimesOutAndEndsTheItemOnce) {
    StartStream(1000);
    PlayUrl(Radio("&stall=" + StreamBytes(2)));
    const int playing = m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 6000);
    ASSERT_GE(playing, 0) << m_delegate.trace();
    const int timed_out = m_delegate.wait_for(
        [](const R::Note& n) { return n.kind == R::kError && n.value == EPLAYER_SOURCE_TIMEOUT; }, 10000, playing);
    ASSERT_GE(timed_out, 0) << m_delegate.trace();
    // The data ends two seconds after the open; the limit is 6 s for this buffer.
    const double after = std::chrono::duration<double>(m_delegate.notes()[timed_out].at.time_since_epoch()).count() - m_opened;
    EXPECT_GT(after, 2 + 5.0) << "gave up before the time-out";
    EXPECT_LT(after, 2 + 6.0 + 2.0) << "gave up long after the time-out";
    Sleep(1500);
    EXPECT_EQ(m_delegate.of(R::kTrackFinished).size(), 1u) << m_delegate.trace();
    EXPECT_EQ(m_delegate.of(R::kItemFinished).size(), 1u) << m_delegate.trace();
    const std::string states = m_delegate.states(playing);
    EXPECT_EQ(states.substr(states.size() - 2), " 0") << m_delegate.trace();
    // Before it gives up, the player may go back to buffering, but never reconnects.
    EXPECT_EQ(states.find('4'), std::string::npos) << m_delegate.trace();
}

// Nobody answers: the player retries every one to two seconds until it is stopped.
TEST_F(StreamTest, AnUnreachableServerIsRetriedUntilStopped) {
    StartStream(1000);
    PlayUrl("http://127.0.0.1:" + std::to_string(ClosedPort()) + "/stream");
    ASSERT_GE(m_delegate.wait_for_count(R::kStateChanged, 5, 8000), 0) << m_delegate.trace();
    const size_t from = m_delegate.size();
    m_player.Stop(true);
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_IDLE, 3000, from), 0) << m_delegate.trace();
    const std::vector<R::Note> states = m_delegate.of(R::kStateChanged);
    const std::string seen = m_delegate.states();
    EXPECT_EQ(seen.substr(0, 7), "4 6 4 6") << m_delegate.trace();
    EXPECT_EQ(seen.back(), '0') << m_delegate.trace();
    for (size_t i = 1; i + 1 < states.size() && i < 4; i += 2) {
        const double waited = std::chrono::duration<double>(states[i + 1].at - states[i].at).count();
        EXPECT_GE(waited, 0.9) << i;
        EXPECT_LE(waited, 2.2) << i;
    }
}

// A playlist that goes from a file to a radio that the server ends and back to files of three
// codecs: the closed connection ends the radio's track quietly, without a reconnect; the output
// changes twice and no more, and each decoder takes over from the last.
TEST_F(StreamTest, SwitchingBetweenFilesAndAStreamChangesTheOutputOnce) {
    StartStream(1000, {"track_long.mp3", "track_a.mp3", "track_d.m4a", "track_e.aac", "track_b.mp3"});
    m_player.SetItem(Item(Playlist(
        "mix.m3u", {"track_a.mp3", Radio("&limit=" + StreamBytes(2)), "track_d.m4a", "track_e.aac", "track_b.mp3"})));
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_kind(R::kItemFinished, 15000), 0) << m_delegate.trace();
    std::string started;
    for (const auto& n : m_delegate.of(R::kTrackStarted)) started += R::brief(n.text).substr(0, 1);
    EXPECT_EQ(started, "ahdeb");
    // A stream without a length ends as an input error: for the listener, only the end of the stream.
    EXPECT_EQ(m_delegate.errors(), std::vector<int>()) << m_delegate.trace();
    // One connection a track: the radio is neither reconnected nor retried.
    EXPECT_EQ(m_delegate.states().rfind("4 1 4 5 1 4 1 4 1 4 1", 0), 0u) << m_delegate.trace();
    EXPECT_EQ(m_delegate.of(R::kTrackFinished).size(), 5u) << m_delegate.trace();
    EXPECT_EQ(m_delegate.of(R::kItemFinished).size(), 1u) << m_delegate.trace();
    EXPECT_EQ(Log().count("Setting PCM Output to BUFFERED"), 1);
    EXPECT_EQ(Log().count("Setting PCM Output to NORMAL"), 1);
    // The capture ends with the three files of a second each, in their order.
    for (const auto& [from_end, tone] : {std::pair{-2.7, 550.0}, {-1.7, 770.0}, {-0.7, 660.0}})
        EXPECT_NEAR(Listen(m_card.capture_path(1), 44100, from_end, from_end + 0.4).tone, tone, 10) << from_end;
}

// A Stop while the server has not answered yet ends the open at once and quietly.
TEST_F(StreamTest, AStopDuringTheOpenEndsItWithoutAnError) {
    StartStream(1000);
    PlayUrl(Radio("&hold=5000"));
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_CONNECTING, 3000), 0) << m_delegate.trace();
    Sleep(300);
    const size_t from = m_delegate.size();
    m_player.Stop(true);
    const int idle = m_delegate.wait_for_state(PLAYER_STATE_IDLE, 2000, from);
    ASSERT_GE(idle, 0) << m_delegate.trace();
    EXPECT_LT(std::chrono::duration<double>(m_delegate.notes()[idle].at.time_since_epoch()).count() - m_opened, 2.0);
    Sleep(500);
    // The broken-off open passes through wait on its way, as any failed open of a stream does.
    EXPECT_EQ(m_delegate.states(), "4 6 0") << m_delegate.trace();
    EXPECT_EQ(m_delegate.errors(), std::vector<int>()) << m_delegate.trace();
}

struct PlaylistCase {
    const char* name;
    const char* file;
    const char* query;  // none: the resolver goes by the name's extension
    std::vector<std::string> (*lines)(const std::string& url);
};
void PrintTo(const PlaylistCase& c, std::ostream* out) { *out << c.name; }

class PlaylistUrl : public StreamTest, public ::testing::WithParamInterface<PlaylistCase> {};

// A radio's address is often a playlist on a web server: it leads to the stream, and the
// player reports the playlist's MD5 so that a change of it can be noticed. An address ending in
// ".m3u" is one entry, not a playlist of the device's own.
TEST_P(PlaylistUrl, LeadsToTheStreamAndReportsItsDigest) {
    const PlaylistCase& c = GetParam();
    StartStream(1000);
    Playlist(c.file, c.lines(Radio()));
    const std::string url = m_server->url(std::string("/files/") + c.file + c.query);
    PlayUrl(url);
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 6000), 0) << m_delegate.trace();
    PlaybackInfo info;
    m_player.GetPlaybackInfo(info);
    EXPECT_EQ(info.m_playlist_name, url);
    const std::vector<uint8_t> sum = CommandOutput("md5sum '" + m_media + c.file + "'");
    EXPECT_EQ(info.m_playlist_digest, std::string(sum.begin(), sum.begin() + std::min<size_t>(32, sum.size())));
    EXPECT_EQ(m_delegate.errors(), std::vector<int>()) << m_delegate.trace();
}

INSTANTIATE_TEST_SUITE_P(
    Streams, PlaylistUrl,
    ::testing::Values(
        PlaylistCase{"M3U", "radio.m3u", "",
                     [](const std::string& url) { return std::vector<std::string>{"#EXTM3U", "#EXTINF:-1,Radio", url}; }},
        PlaylistCase{"PLS", "radio.pls", "?ct=audio/x-scpls",
                     [](const std::string& url) {
                         return std::vector<std::string>{"[playlist]", "File1=" + url, "Title1=Radio", "NumberOfEntries=1",
                                                         "Version=2"};
                     }}),
    [](const auto& info) { return std::string(info.param.name); });

// Lost datagrams are concealed in place: two lost blocks are replicated and six become
// silence, so that the card never runs dry and the tone after each loss stays where the
// sender put it, within one block.
TEST_F(StreamTest, RtpLossIsConcealedWithoutShiftingTheStream) {
    m_params.rtp_delay = 500;
    // A band so wide that no level correction moves the stream on a loaded machine: whatever
    // shifts the tone can only be the concealment.
    m_params.rtp_accuracy = 400;
    m_params.rtp_low_threshold = 100;
    m_params.stream_fade = 0;
    Start({"track_long.mp3"});
    const int port = ClosedPort() & ~1;  // UDP, even: the control packets take the next one
    ChildProcess relay({"python3", "-S", std::string(KORVEL_SERVERS_DIR) + "/udp_relay.py", std::to_string(port), "40,41,80-85"}, true);
    int relay_port = 0;
    ASSERT_EQ(std::fscanf(relay.Stdout(), "PORT %d", &relay_port), 1);
    PlayUrl("rtp://127.0.0.1:" + std::to_string(port));
    Sleep(500);  // the player listens before the first datagram
    const auto sender = SendRtp(MediaPath("track_long.mp3"), relay_port);
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 4000), 0) << m_delegate.trace();
    Sleep(3000);  // block 85 is sent 2.2 s in, and played 0.5 s later
    const double watched = MonotonicNow();
    EXPECT_EQ(Log().count("minor loss of 2 packets"), 1);
    EXPECT_EQ(Log().count("major loss of 6 packets"), 1);
    EXPECT_EQ(Log().count("packets detected"), 2);
    EXPECT_EQ(m_delegate.errors(), std::vector<int>()) << m_delegate.trace();
    ExpectFedUntil(watched);

    // One silent stretch after the start of the tone, seven blocks long (the lost six and the one
    // whose place the silence takes), after which the tone is back where the sender put it.
    const std::vector<bool> silent = Listen(m_card.capture_path(1)).silent;
    const double block = 1152 * 48000.0 / 44100 / 240;  // in windows
    const size_t tone = std::find(silent.begin(), silent.end(), false) - silent.begin();
    std::vector<std::pair<size_t, size_t>> gaps;
    for (size_t i = tone; i < silent.size(); ++i)
        if (silent[i] && !silent[i - 1]) gaps.emplace_back(i, std::find(silent.begin() + i, silent.end(), false) - silent.begin());
    ASSERT_EQ(gaps.size(), 1u) << "the first at window " << (gaps.empty() ? 0 : gaps[0].first);
    EXPECT_NEAR(gaps[0].second - gaps[0].first, 7 * block, 1.5) << "from window " << gaps[0].first;
    EXPECT_NEAR(gaps[0].second, 86.5 * block, block) << "the stream lost its place";
}

// Four players share the card, each on its own channel and mixer element: two files, a radio and
// an RTP stream play at once, every capture holds its own tone, and a volume reaches its own
// element only.
TEST_F(StreamTest, FourPlayersKeepToTheirOwnChannels) {
    m_params.rtp_delay = 500;
    m_params.rtp_low_threshold = 100;
    StartStream(1000, {"track_long.mp3", "track_a.mp3", "track_b.mp3"});
    const int port = ClosedPort() & ~1;  // UDP, even: the control packets take the next one
    const std::string items[] = {"track_a.mp3", "track_b.mp3", Radio(), "rtp://127.0.0.1:" + std::to_string(port)};
    std::unique_ptr<CPlayer> more[3];
    std::unique_ptr<R> notes[3];
    CPlayer* players[] = {&m_player, nullptr, nullptr, nullptr};
    R* delegates[] = {&m_delegate, nullptr, nullptr, nullptr};
    for (int n = 1; n < 4; ++n) {
        players[n] = (more[n - 1] = std::make_unique<CPlayer>()).get();
        delegates[n] = (notes[n - 1] = std::make_unique<R>()).get();
        players[n]->SetDelegate(delegates[n], players[n]);
        InitParams ip;
        ip.player_id = n + 1;
        ip.playlist_dir = ip.media_dir = m_media;
        EXPECT_EQ(players[n]->Initialize(ip, m_params), 0) << n + 1;
    }
    for (int n = 0; n < 4; ++n) players[n]->SetItem(Item(items[n], 5)), players[n]->Play();
    Sleep(500);
    const auto sender = SendRtp(MediaPath("track_c.mp3"), port, 5);
    for (int n = 0; n < 4; ++n) EXPECT_GE(delegates[n]->wait_for_state(PLAYER_STATE_PLAYING, 5000), 0) << n + 1;
    Sleep(2500);
    for (int n = 0; n < 4; ++n) players[n]->SetVolume(static_cast<unsigned short>(30 + 20 * n));
    Sleep(500);
    for (int n = 0; n < 4; ++n) {
        EXPECT_EQ(ReadRawVolume(("chan_" + std::to_string(n + 1)).c_str()), (30 + 20 * n) * 255 / 100) << n + 1;
        EXPECT_EQ(delegates[n]->of(R::kError).size(), 0u) << n + 1 << ": " << delegates[n]->trace();
    }
    for (CPlayer* player : players) EXPECT_EQ(player->Deinitialize(), 0);
    m_initialized = false;
    const double tones[] = {440, 660, 330, 880};
    for (int n = 0; n < 4; ++n) {
        const std::vector<vcard::LogEvent> formats = CardEvents("hw_params", n + 1);
        ASSERT_FALSE(formats.empty()) << n + 1;
        const Heard heard = Listen(m_card.capture_path(n + 1), formats.back().number("rate"));
        EXPECT_GT(std::count(heard.silent.begin(), heard.silent.end(), false), 400) << "channel " << n + 1 << " hardly played";
        EXPECT_NEAR(heard.tone, tones[n], tones[n] * 0.02) << "channel " << n + 1;
    }
}

// A minute of listening, for the sanitizer runs above all: half of it a radio whose title changes
// every three seconds, then an RTP stream that replaces it while it plays. Every title is reported
// once, nothing fails, and Stop ends it.
TEST_F(StreamTest, AMinuteOfRadioThenRtpStaysClean) {
    constexpr int kPhaseMs = 30000, kTitleEveryMs = 3000;
    m_params.rtp_delay = 500;
    m_params.rtp_low_threshold = 100;
    StartStream(1000);
    PlayUrl(Radio());
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 6000), 0) << m_delegate.trace();
    const int titles = kPhaseMs / kTitleEveryMs;
    for (int n = 0; n < titles; ++n) {
        m_server->Get("/control/title?t=StreamTitle%3D%27Song%20" + std::to_string(n) + "%27%3B");
        Sleep(kTitleEveryMs);
    }
    std::map<std::string, int> reported;
    for (const auto& note : m_delegate.of(R::kInfoChanged)) reported[note.info.m_curr_song_name] += 1;
    for (int n = 0; n < titles; ++n) EXPECT_EQ(reported["Song " + std::to_string(n)], 1) << n << m_delegate.trace();

    const int port = ClosedPort() & ~1;
    const size_t from = m_delegate.size();
    PlayUrl("rtp://127.0.0.1:" + std::to_string(port));
    Sleep(500);
    const auto sender = SendRtp(MediaPath("track_long.mp3"), port, 1);
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 4000, from), 0) << m_delegate.trace(from);
    Sleep(kPhaseMs - 1000);
    EXPECT_EQ(m_delegate.states(from).back(), '1') << m_delegate.trace(from);
    const size_t stopped = m_delegate.size();
    m_player.Stop(true);
    EXPECT_GE(m_delegate.wait_for_state(PLAYER_STATE_IDLE, 3000, stopped), 0) << m_delegate.trace(stopped);
    EXPECT_EQ(m_delegate.errors(), std::vector<int>()) << m_delegate.trace();
}

}  // namespace
