#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <syslog.h>

#include "PlayerFixture.h"

namespace {

using namespace KorvelPlayer;
using Note = RecordingDelegate::Note;
using R = RecordingDelegate;

const std::vector<std::string> kABC = {"track_a.mp3", "track_b.mp3", "track_c.mp3"};

// One playlist run proves the order of states and notifications, the information that goes with
// every track, and that the card hears the tracks back to back with nothing lost or repeated.
TEST_F(PlayerTest, APlaylistPlaysItsTracksBackToBackAndDescribesEach) {
    Start(kABC, Card(4));
    m_player.SetItem(Item(Playlist("p.m3u", kABC)));
    m_player.Play();
    const int finished = m_delegate.wait_for_kind(R::kItemFinished, 10000);
    ASSERT_GE(finished, 0);
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_IDLE, 2000, finished), 0);
    EXPECT_EQ(m_delegate.trace(), "s4 is ts:a s1 tf:a s4 ts:b s1 tf:b s4 ts:c s1 tf:c if s0");

    struct Expected {
        int song_id;
        const char* name;
        const char* next_file;
        const char* next_name;
        int last;
    } const expected[] = {{0, "Song A", "track_b.mp3", "Song B", 0},
                          {1, "Song B", "track_c.mp3", "track_c.mp3", 0},
                          {2, "track_c.mp3", "track_a.mp3", "Song A (Artist A)", 1}};
    const std::vector<Note> started = m_delegate.of(R::kTrackStarted);
    ASSERT_EQ(started.size(), 3u);
    for (size_t i = 0; i < started.size(); ++i) {
        const PlaybackInfo& info = started[i].info;
        EXPECT_EQ(info.m_curr_music_file, kABC[i]);
        EXPECT_EQ(info.m_song_id, expected[i].song_id) << i;
        EXPECT_EQ(info.m_curr_song_name, expected[i].name) << i;
        EXPECT_EQ(info.m_next_music_file, expected[i].next_file) << i;
        EXPECT_EQ(info.m_next_song_name, expected[i].next_name) << i;
        EXPECT_EQ(info.m_playlist_name, "p.m3u") << i;
        EXPECT_EQ(started[i].value, expected[i].last) << i;
    }
    EXPECT_EQ(m_delegate.of(R::kItemFinished)[0].text, "p.m3u");
    Shutdown();
    ExpectPlayed(Reference(kABC));
}

struct RepeatCase {
    const char* name;
    int repeat;
    bool shuffle;
    size_t tracks;  // how many starts to see; an endless item is stopped after them
    size_t item_finished;
};
void PrintTo(const RepeatCase& c, std::ostream* out) { *out << c.name; }

class Repeats : public PlayerTest, public ::testing::WithParamInterface<RepeatCase> {};

// The repeat count decides the passes and the one end of the item; shuffle changes the order
// within a pass, never what a pass holds, nor the song ids, which stay the lines of the file.
TEST_P(Repeats, PassesOverTheListAndEndTheItemOnce) {
    const RepeatCase& c = GetParam();
    Start(kABC, Card(8));
    PlayerItem item = Item(Playlist("p.m3u", kABC), c.repeat);
    item.shuffle = c.shuffle;
    m_player.SetItem(item);
    m_player.Play();
    if (c.repeat < 0) {
        ASSERT_GE(m_delegate.wait_for_count(R::kTrackStarted, c.tracks, 10000), 0);
        m_player.Stop(true);
    }
    if (c.repeat > 0) m_delegate.wait_for_kind(R::kItemFinished, 8000);
    Sleep(300);
    PlaybackInfo now;
    m_player.GetPlaybackInfo(now);
    EXPECT_EQ(now.m_player_state, PLAYER_STATE_IDLE) << m_delegate.trace();
    const std::vector<Note> started = m_delegate.of(R::kTrackStarted);
    ASSERT_EQ(started.size(), c.tracks) << m_delegate.trace();
    std::vector<std::string> pass;
    for (size_t i = 0; i < started.size(); ++i) {
        const std::string& file = started[i].info.m_curr_music_file;
        const int line = static_cast<int>(std::find(kABC.begin(), kABC.end(), file) - kABC.begin());
        EXPECT_EQ(started[i].info.m_song_id, line) << file;
        if (!c.shuffle) {
            EXPECT_EQ(file, kABC[i % 3]) << i;
        }
        pass.push_back(file);
        if (pass.size() == 3) {
            std::sort(pass.begin(), pass.end());
            EXPECT_EQ(pass, kABC) << "pass ending at " << i;
            pass.clear();
        }
    }
    EXPECT_EQ(m_delegate.of(R::kItemFinished).size(), c.item_finished);
}

INSTANTIATE_TEST_SUITE_P(Counts, Repeats,
                         ::testing::Values(RepeatCase{"Twice", 2, false, 6, 1}, RepeatCase{"Never", 0, false, 0, 0},
                                           RepeatCase{"Endless", -1, false, 7, 0},
                                           RepeatCase{"ShuffledTwice", 2, true, 6, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

// Song ids out of range fall back to the first track; next and previous wrap around both ends.
TEST_F(PlayerTest, NavigationWrapsAroundTheList) {
    LogCapture& capture = Log();
    Start(kABC);
    m_player.SetItem(Item(Playlist("p.m3u", kABC), -1));
    const std::vector<std::function<void()>> steps = {
        [&] { m_player.Play(7); }, [&] { m_player.PlayPrevious(); }, [&] { m_player.PlayNext(); },
        [&] { m_player.PlayNext(); }, [&] { m_player.Play(2); }};
    for (size_t i = 0; i < steps.size(); ++i) {
        const size_t from = m_delegate.size();
        steps[i]();
        ASSERT_GE(m_delegate.wait_for_kind(R::kTrackStarted, 3000, from), 0) << i;
    }
    EXPECT_EQ(m_delegate.started(), "a#0 c#2 a#0 b#1 c#2");
    EXPECT_EQ(capture.level("song id=7 is out of playlist range. Playing the first track"), LOG_WARNING);
    EXPECT_EQ(capture.count("begin passed"), 1);
}

// Pause keeps the open track and Play goes on with it; a stop at the song's end lets it finish and
// leaves the next track to start with; an immediate stop cuts it.
TEST_F(PlayerTest, PauseResumesTheOpenTrackAndStopsCutAtOnceOrAtTheSongEnd) {
    LogCapture& capture = Log();
    Start(kABC);
    m_player.SetItem(Item(Playlist("p.m3u", kABC)));
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_track("track_a.mp3", 3000), 0);
    Sleep(300);
    m_player.Pause();
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PAUSED, 1000), 0);
    Sleep(100);
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 1000, m_delegate.wait_for_state(PLAYER_STATE_PAUSED, 0)), 0);
    m_player.Stop(false);
    const int idle = m_delegate.wait_for_state(PLAYER_STATE_IDLE, 3000);
    ASSERT_GE(idle, 0);
    EXPECT_TRUE(capture.contains("Stopping at song end."));

    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_track("track_b.mp3", 3000), 0);
    Sleep(300);
    const auto cut_at = std::chrono::steady_clock::now();
    m_player.Stop(true);
    const int cut = m_delegate.wait_for_state(PLAYER_STATE_IDLE, 1000, idle + 1);
    ASSERT_GE(cut, 0);
    EXPECT_LT(m_delegate.notes()[cut].at - cut_at, std::chrono::milliseconds(200));
    Sleep(100);
    // a ends whole (not partial), b is cut (partial); the resume reopens nothing (no item or
    // connecting again), it only reloads and announces the track under way.
    EXPECT_EQ(m_delegate.trace(), "s4 is ts:a s1 s2 ts:a s1 s0 tf:a s4 ts:b s1 s0 tf:b~");

    Shutdown();
    // a goes on where it paused, losing at most what the card's buffer held, then b starts; nothing
    // is repeated.
    const std::vector<uint8_t> a = Reference({"track_a.mp3"}), b = Reference({"track_b.mp3"});
    std::vector<uint8_t> played;
    vcard::ReadFileBytes(m_card.capture_path(1), &played);
    const size_t paused_at = PcmMismatch(a.begin(), a.end(), played.begin(), played.end()) - a.begin();
    size_t resumed_at = paused_at;
    while (resumed_at <= paused_at + kCardBufferBytes &&
           !PcmPrefix(a.begin() + resumed_at, a.end(), played.begin() + paused_at, played.end()))
        resumed_at += 4;
    ASSERT_LE(resumed_at, paused_at + kCardBufferBytes) << "a did not go on after the pause at byte " << paused_at;
    const size_t b_at = paused_at + (a.size() - resumed_at);
    ASSERT_LT(b_at, played.size());
    EXPECT_LT(played.size() - b_at, b.size() * 3 / 4);
    EXPECT_TRUE(PcmPrefix(played.begin() + b_at, played.end(), b.begin(), b.end())) << "b did not follow a";
}

// A new item that does not interrupt waits for the song's end in the ending state; one that
// interrupts cuts the song at once. Either way the new item is open and waits for Play.
TEST_F(PlayerTest, ANewItemWaitsForTheSongEndUnlessItInterrupts) {
    Start(kABC);
    m_player.SetItem(Item(Playlist("ab.m3u", {"track_a.mp3", "track_b.mp3"})));
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_track("track_a.mp3", 3000), 0);
    Sleep(200);
    m_player.SetItem(Item(Playlist("c.m3u", {"track_c.mp3"}), 1, false));
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_ENDING, 1000), 0);
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_IDLE, 3000), 0);
    Sleep(200);
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_track("track_c.mp3", 3000), 0);
    Sleep(200);
    const auto cut_at = std::chrono::steady_clock::now();
    m_player.SetItem(Item("ab.m3u"));
    const int cut = m_delegate.wait_for_state(PLAYER_STATE_IDLE, 1000, m_delegate.wait_for_track("track_c.mp3", 0));
    ASSERT_GE(cut, 0);
    EXPECT_LT(m_delegate.notes()[cut].at - cut_at, std::chrono::milliseconds(200));
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 3000, cut), 0);
    EXPECT_EQ(m_delegate.trace(), "s4 is ts:a s1 s3 tf:a s0 s4 is ts:c s1 tf:c~ s0 s4 is ts:a s1");
}

// Commands that pile up behind a busy worker run as one batch with one report: the 50 newest of
// 60 survive, and a pause that meets a connecting player stops it.
TEST_F(PlayerTest, CommandsPiledUpBehindABusyWorkerRunAsOneBatch) {
    LogCapture& capture = Log();
    Start(kABC);
    m_player.SetItem(Item(Playlist("p.m3u", kABC)));
    ASSERT_GE(m_delegate.wait_for_kind(R::kCommandExecuted, 2000), 0);
    auto hold = [&] {
        m_delegate.BlockNext(R::kCommandExecuted);
        m_player.SetShuffle(false);
        return m_delegate.WaitBlocked(2000);
    };
    ASSERT_TRUE(hold());
    size_t from = m_delegate.size();
    for (int percent = 1; percent <= 60; ++percent) m_player.SetVolume(static_cast<unsigned short>(percent));
    m_delegate.Release();
    ASSERT_GE(m_delegate.wait_for_kind(R::kCommandExecuted, 2000, from), 0);
    Sleep(200);
    EXPECT_EQ(m_delegate.trace(from, true), "x");
    for (int percent = 1; percent <= 60; ++percent)
        EXPECT_EQ(capture.count("Setting volume " + std::to_string(percent) + "% went OK."), percent > 10 ? 1 : 0)
            << percent;
    EXPECT_EQ(ReadRawVolume("chan_1"), 60 * 255 / 100);

    ASSERT_TRUE(hold());
    from = m_delegate.size();
    m_player.Play();
    m_player.Pause();
    m_player.SetVolume(40);
    m_delegate.Release();
    ASSERT_GE(m_delegate.wait_for_kind(R::kCommandExecuted, 2000, from), 0);
    Sleep(300);
    EXPECT_EQ(m_delegate.trace(from, true), "s4 s0 x");

    // A fade ending on a full queue makes room by dropping the oldest command, and says so.
    ASSERT_TRUE(hold());
    for (int i = 0; i < CPlayer::kMaxWaitingCommands; ++i) m_player.SetVolume(30);
    EXPECT_EQ(capture.count(std::string("Message queue '") + CPlayer::kQueueName + "' overflow"), 0);
    m_player.FadeAndStop(1000, 10);  // armed only: nothing plays
    m_player.FadeAndStop(1000, 10);  // aborts the first, whose stop is still delivered
    EXPECT_EQ(capture.count(std::string("Message queue '") + CPlayer::kQueueName + "' overflow"), 1);
    m_delegate.Release();
}

struct FailureCase {
    const char* name;
    std::vector<std::string> lines;  // empty: the playlist file does not exist
    const char* trace;
};
void PrintTo(const FailureCase& c, std::ostream* out) { *out << c.name; }

class Failures : public PlayerTest, public ::testing::WithParamInterface<FailureCase> {};

// A track that cannot be opened or read is reported and skipped; an item with nothing playable is
// reported as such and never reported finished.
TEST_P(Failures, AreReportedAndSkipped) {
    Start({"track_a.mp3", "track_c.mp3", "track_cut.mp3"}, Card(4));
    ASSERT_EQ(std::system(("cp '" + MediaPath("random.bin") + "' '" + m_media + "junk.mp3'").c_str()), 0);
    const std::string name = GetParam().lines.empty() ? "absent.m3u" : Playlist("p.m3u", GetParam().lines);
    m_player.SetItem(Item(name));
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_IDLE, 8000), 0) << m_delegate.trace();
    Sleep(300);
    EXPECT_EQ(m_delegate.trace(), GetParam().trace);
}

INSTANTIATE_TEST_SUITE_P(
    Items, Failures,
    ::testing::Values(
        FailureCase{"MissingMiddleTrack", {"track_a.mp3", "gone.mp3", "track_c.mp3"},
                    "s4 is ts:a s1 tf:a s4 miss:gone e-1001 ts:c s1 tf:c if s0"},
        FailureCase{"EveryTrackMissing", {"gone.mp3", "lost.mp3"}, "s4 miss:gone e-1001 miss:lost e-1001 e-1007 s0"},
        // The connecting state goes idle at its entry: the delegate hears the newest state twice.
        FailureCase{"MissingPlaylist", {}, "e-1007 miss:absent.m3u e-1007 s0 s0"},
        FailureCase{"TruncatedMiddleTrack", {"track_a.mp3", "track_cut.mp3", "track_c.mp3"},
                    "s4 is ts:a s1 tf:a s4 ts:cut s1 tf:cut s4 ts:c s1 tf:c if s0"},
        FailureCase{"GarbageMiddleTrack", {"track_a.mp3", "junk.mp3", "track_c.mp3"},
                    "s4 is ts:a s1 tf:a s4 e-1001 ts:c s1 tf:c if s0"}),
    [](const auto& info) { return std::string(info.param.name); });

// A failed start leaves nothing behind, ending twice is harmless, and a player ended can start again.
TEST_F(PlayerTest, AFailedOrEndedPlayerStartsAgainCleanly) {
    Prepare({"track_a.mp3"}, Card(4));
    EXPECT_NE(Init(1, m_dir + "/nowhere/"), 0);
    EXPECT_EQ(m_player.Deinitialize(), 0);
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(Init(1), 0) << round;
        const size_t from = m_delegate.size();
        m_player.SetItem(Item("track_a.mp3"));
        m_player.Play();
        ASSERT_GE(m_delegate.wait_for_track("track_a.mp3", 3000, from), 0) << round;
        ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 3000, from), 0) << round;
        EXPECT_EQ(m_player.Deinitialize(), 0);
        EXPECT_EQ(m_player.Deinitialize(), 0);
        m_initialized = false;
    }
}

class OffChannel : public PlayerTest, public ::testing::WithParamInterface<int> {};

// Player ids without a channel of their own play through the shared mix device.
TEST_P(OffChannel, PlayersUseTheMixDevice) {
    LogCapture& capture = Log();
    Start({"track_a.mp3"}, Card(4), GetParam());
    EXPECT_EQ(capture.level("unsupported mixer channel chan_" + std::to_string(GetParam())), LOG_WARNING);
    m_player.SetItem(Item("track_a.mp3"));
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_kind(R::kItemFinished, 5000), 0);
    Shutdown();
    ExpectPlayed(Reference({"track_a.mp3"}), m_card.dmix_capture_path());
    std::vector<uint8_t> channel;
    vcard::ReadFileBytes(m_card.capture_path(1), &channel);
    EXPECT_TRUE(channel.empty());
}

INSTANTIATE_TEST_SUITE_P(Ids, OffChannel, ::testing::Values(0, 5),
                         [](const auto& info) { return "Id" + std::to_string(info.param); });

// Raw 0..255 values of the channel's mixer element for a volume in percent.
long Raw(int percent) { return 255L * percent / 100; }

// Fades move the channel's mixer in small steps and end with their operation; an immediate fade
// sets the volume and acts at once; a user command breaks a fade off at its target and still
// performs its stop or pause.
TEST_F(PlayerTest, FadesRampTheMixerAndEndWithTheirOperation) {
    Start({"track_long.mp3"});
    m_player.SetItem(Item(Playlist("long.m3u", {"track_long.mp3"}), -1));
    auto play = [&] {
        const size_t from = m_delegate.size();
        m_player.Play();
        return m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 3000, from) >= 0;
    };
    ASSERT_TRUE(play());
    size_t from = m_delegate.size();
    ASSERT_TRUE(m_player.SetVolume(20));
    ASSERT_GE(m_delegate.wait_for_kind(R::kCommandExecuted, 1000, from), 0);
    m_player.FadeIn(1000, 80);
    const Ramp in(SampleVolume(1300), Raw(80));
    EXPECT_EQ(in.lowest, Raw(20));
    EXPECT_FALSE(in.falls);
    EXPECT_GE(in.rise_ms, 850);
    EXPECT_LE(in.rise_ms, 1250);
    EXPECT_GE(in.levels.size(), 12u) << "not a ramp of 50 ms steps";
    EXPECT_EQ(ReadRawVolume("chan_1"), Raw(80));

    from = m_delegate.size();
    m_player.FadeAndPause(0, 30);
    EXPECT_GE(m_delegate.wait_for_state(PLAYER_STATE_PAUSED, 300, from), 0);
    EXPECT_EQ(ReadRawVolume("chan_1"), Raw(30));

    ASSERT_TRUE(play());
    const auto stop_at = std::chrono::steady_clock::now();
    from = m_delegate.size();
    m_player.FadeAndStop(500, 10);
    const int stopped = m_delegate.wait_for_state(PLAYER_STATE_IDLE, 2000, from);
    ASSERT_GE(stopped, 0);
    EXPECT_GE(m_delegate.notes()[stopped].at - stop_at, std::chrono::milliseconds(450));
    EXPECT_EQ(ReadRawVolume("chan_1"), Raw(10));

    struct Broken {
        std::function<void()> fade;
        int state;
    } const broken[] = {{[&] { m_player.FadeAndStop(3000, 10); }, PLAYER_STATE_IDLE},
                        {[&] { m_player.FadeAndPause(3000, 10); }, PLAYER_STATE_PAUSED}};
    for (const Broken& b : broken) {
        ASSERT_TRUE(play());
        from = m_delegate.size();
        ASSERT_TRUE(m_player.SetVolume(90));
        ASSERT_GE(m_delegate.wait_for_kind(R::kCommandExecuted, 1000, from), 0);
        ASSERT_EQ(ReadRawVolume("chan_1"), Raw(90));
        b.fade();
        Sleep(300);
        EXPECT_GT(ReadRawVolume("chan_1"), Raw(60)) << "the fade went too fast";
        from = m_delegate.size();
        m_player.Play();
        EXPECT_GE(m_delegate.wait_for_state(b.state, 500, from), 0) << b.state;
        EXPECT_EQ(ReadRawVolume("chan_1"), Raw(10));
    }
}

// With track fading on, every track starts silent and comes up to the item's volume in half a
// second; then the wait for the track's end is armed, unless the track is too short for one.
TEST_F(PlayerTest, TracksFadeInOneByOneWhenTheItemAsksForIt) {
    LogCapture& capture = Log();
    Start({"track_a.mp3", "track_long.mp3"});
    PlayerItem item = Item(Playlist("p.m3u", {"track_a.mp3", "track_long.mp3"}));
    item.volume = 60;
    item.auto_fade_tracks = true;
    m_player.SetItem(item);
    m_player.Play();
    for (const char* track : {"track_a.mp3", "track_long.mp3"}) {
        ASSERT_GE(m_delegate.wait_for_track(track, 3000), 0);
        const Ramp ramp(SampleVolume(800), Raw(60));
        EXPECT_EQ(ramp.lowest, 0) << track << " did not start silent";
        EXPECT_FALSE(ramp.falls) << track;
        EXPECT_GE(ramp.rise_ms, 350) << track;
        EXPECT_LE(ramp.rise_ms, 700) << track;
        EXPECT_GE(ramp.levels.size(), 6u) << track;
    }
    EXPECT_EQ(capture.count("is too short, issue wait end now."), 1);
    const long wait_ms = MediaDurationMs(m_media + "track_long.mp3") - (StreamParams::kDefaultTrackFadeMargin + 10000);
    EXPECT_TRUE(capture.contains("Waiting for " + std::to_string(wait_ms) + "[ms]")) << wait_ms;
}

// Out-of-range volumes are refused without posting; corrected stream parameters are logged, and a
// repeated set posts nothing; before Initialize the parameters can only be warned about.
TEST_F(PlayerTest, VolumesAndStreamParametersAreCheckedBeforeTheyArePosted) {
    LogCapture& capture = Log();
    Start({});
    // The defaults are corrected at Initialize too: an RTP low-buffer threshold at the full delay
    // would report a low buffer while the stream plays normally.
    EXPECT_EQ(capture.level("rtp low buffer threshold > delay/2 requested , overriding accuracy with 250"), LOG_NOTICE);
    auto posts = [&](const std::function<void()>& call) {
        const size_t from = m_delegate.size();
        call();
        return m_delegate.wait_for_kind(R::kCommandExecuted, 300, from) >= 0;
    };
    ASSERT_TRUE(posts([&] { m_player.SetVolume(40); }));
    struct VolumeCase {
        std::function<bool()> call;
        bool accepted;
        long raw;
    } const volumes[] = {{[&] { return m_player.SetVolume(101); }, false, Raw(40)},
                         {[&] { return m_player.SetVolume_dB(-121); }, false, Raw(40)},
                         {[&] { return m_player.SetVolume_dB(1); }, false, Raw(40)},
                         {[&] { return m_player.SetVolume(100); }, true, 255},
                         {[&] { return m_player.SetVolume_dB(-120); }, true, 0},
                         {[&] { return m_player.SetVolume_dB(0); }, true, 255}};
    for (size_t i = 0; i < std::size(volumes); ++i) {
        bool accepted = false;
        EXPECT_EQ(posts([&] { accepted = volumes[i].call(); }), volumes[i].accepted) << i;
        EXPECT_EQ(accepted, volumes[i].accepted) << i;
        EXPECT_EQ(ReadRawVolume("chan_1"), volumes[i].raw) << i;
    }

    struct ParamCase {
        std::function<void(StreamParams&)> change;
        std::vector<std::string> notices;
    } const params[] = {
        {[](StreamParams& p) { p.rtp_delay = 40, p.rtp_accuracy = 100, p.rtp_low_threshold = 20; },
         {"too low rtp delay requested, overriding with 50", "rtp delay < accuracy requested , overriding accuracy with 49"}},
        {[](StreamParams& p) { p.tcp_delay = 600, p.tcp_accuracy = 100; },
         {"too low tcp accuracy requested, overriding with 250"}},
        {[](StreamParams& p) { p.tcp_delay = 3000, p.tcp_accuracy = 1000, p.tcp_low_threshold = 2000, p.stream_fade = 1800; },
         {"tcp low buffer threshold (2000) > (1500) delay/2 requested , overriding with 1500",
          "stream fade in period > tcp low buffer threshold requested, overriding with value of the threshold 1500"}},
        {[](StreamParams& p) { p.rtp_low_threshold = 200; }, {}}};
    for (size_t i = 0; i < std::size(params); ++i) {
        StreamParams p;
        params[i].change(p);
        EXPECT_TRUE(posts([&] { m_player.SetStreamParams(p); })) << "case " << i;
        for (const std::string& notice : params[i].notices) EXPECT_EQ(capture.level(notice), LOG_NOTICE) << notice;
        EXPECT_FALSE(posts([&] { m_player.SetStreamParams(p); })) << "case " << i << ": the repeated set was posted";
    }

    CPlayer uninitialised;
    StreamParams changed;
    changed.rtp_delay = 800;
    uninitialised.SetStreamParams(changed);
    Sleep(100);
    EXPECT_EQ(capture.level("could not apply new streaming parameters. Initilize Player first"), LOG_WARNING);
}

// Four host threads throw random commands at a playing player; it must come out answering.
TEST_F(PlayerTest, RandomCommandsFromFourThreadsLeaveThePlayerAnswering) {
    Start(kABC, Card(4));
    const std::string list = Playlist("p.m3u", kABC);
    m_player.SetItem(Item(list, -1));
    m_player.Play();
    ASSERT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 3000), 0);
    std::vector<std::thread> hosts;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        hosts.emplace_back([this, seed, &list] {
            std::mt19937 random(seed);
            for (int i = 0; i < 500; ++i) {
                const unsigned value = random();
                switch (value % 12) {
                    case 0: m_player.SetItem(Item(value & 16 ? list : "track_b.mp3", -1, value & 32)); break;
                    case 1: m_player.Play(); break;
                    case 2: m_player.Pause(); break;
                    case 3: m_player.Stop(value & 16); break;
                    case 4: m_player.PlayNext(); break;
                    case 5: m_player.PlayPrevious(); break;
                    case 6: m_player.SetVolume(value % 101); break;
                    case 7: m_player.FadeIn(value % 200, value % 101); break;
                    case 8: m_player.FadeAndStop(value % 200, value % 101); break;
                    case 9: m_player.SetShuffle(value & 16); break;
                    case 10: m_player.ReloadPlaylist(); break;
                    default: m_player.Play(); break;
                }
                if (value % 7 == 0) std::this_thread::sleep_for(std::chrono::microseconds(value % 2000));
            }
        });
    }
    for (std::thread& host : hosts) host.join();
    Sleep(500);  // the last fades end
    const size_t from = m_delegate.size();
    m_player.SetItem(Item(list, -1));
    m_player.Play();
    EXPECT_GE(m_delegate.wait_for_state(PLAYER_STATE_PLAYING, 5000, from), 0) << m_delegate.trace(from, true);
    EXPECT_TRUE(m_player.IsRunning());
}

}  // namespace
