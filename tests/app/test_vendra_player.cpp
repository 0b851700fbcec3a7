#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>

#include "LocalServer.h"
#include "VendraFixture.h"

namespace {

constexpr const char* kBanner = "Starting Vendra Player v1.1 with player library version (player vb5.00fb)\n";
constexpr const char* kRefused = "Error parsing config and setting player params.\n";
constexpr const char* kDefaults = "Volume=50\nBUFFER SIZE=500\n";
constexpr int kExitRefused = 255, kExitInterrupted = 2, kExitTerminated = 15, kExitNormal = 0;

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    if (const size_t at = text.find(from); at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

// What the configuration and the card's folders make the program play. A refused configuration or a
// failed initialisation ends the program; otherwise SIGINT stops it once `until` shows.
struct StartupCase {
    const char* name;
    const char* config;  // nullptr: no configuration file
    const char* folder;  // below the card's root, "" for the root, nullptr for none
    std::vector<std::string> files;  // copies of a track in that folder
    const char* playlist_before;     // its p.m3u before the run, nullptr for none
    int exit_status;
    // The console after the banner up to the refusal or the item name; "{listed}" stands for the
    // playlist's content, in the order the folder listed its files.
    std::string console;
    const char* playlist_after;  // p.m3u's lines afterwards in any order; nullptr: there is none
    const char* until = "ITEM NAME is";
    bool card_missing = false;  // the media root does not exist
};
void PrintTo(const StartupCase& c, std::ostream* out) { *out << c.name; }

const std::string kFolderMusic = std::string(kDefaults) + "MEDIA_TYPE is \nMedia folder is [music]\n";
const std::string kCreated = "Playlist {root}/music/p.m3u does not exist, creating it first time.\n";
const StartupCase kStartupCases[] = {
    {"StreamInMixedCaseWithHexVolumeAndWrappedBuffer",
     "volume = 0x20\nbuffer_ms = 70000\nmedia_type = Stream\nurl = http://127.0.0.1:9/radio\n", nullptr, {}, nullptr,
     kExitInterrupted,
     "Volume=32\nBUFFER SIZE=4464\nMEDIA_TYPE is Stream\nPlaying stream...\nITEM NAME is http://127.0.0.1:9/radio\n", nullptr},
    {"StreamInCapitalsWithCapitalKeys", "MEDIA_TYPE = STREAM\nURL = http://127.0.0.1:9/a;b\n", nullptr, {}, nullptr,
     kExitInterrupted, std::string(kDefaults) + "MEDIA_TYPE is STREAM\nPlaying stream...\nITEM NAME is http://127.0.0.1:9/a;b\n",
     nullptr},
    {"SyntaxErrorKeepsTheKeysAroundIt", "volume = 40\nno separator here\nmedia_type = internet_stream\nurl = http://x/\n",
     nullptr, {}, nullptr, kExitInterrupted,
     "Volume=40\nBUFFER SIZE=500\nMEDIA_TYPE is internet_stream\nPlaying stream...\nITEM NAME is http://x/\n", nullptr},
    {"StreamWithoutUrlIsRefused", "volume = abc\nmedia_type = stream\n", nullptr, {}, nullptr, kExitRefused,
     std::string(kDefaults) + "MEDIA_TYPE is stream\nPlaying stream...\n" + kRefused, nullptr},
    {"NoConfigurationIsRefused", nullptr, nullptr, {}, nullptr, kExitRefused, kRefused, nullptr},
    {"MissingMediaFolderIsRefusedWithTheSystemError", "media_folder = nowhere\n", nullptr, {}, nullptr, kExitRefused,
     std::string(kDefaults) + "MEDIA_TYPE is \nMedia folder is [nowhere]\nNo such file or directory\n" + kRefused, nullptr},
    {"NoMediaFolderWritesNoPlaylistInTheRoot", "", "", {"song.mp3"}, nullptr, kExitInterrupted,
     std::string(kDefaults) + "MEDIA_TYPE is \nMedia folder is []\nITEM NAME is p.m3u\n", nullptr},
    {"NoMediaFolderPlaysTheRootsPlaylist", "media_type = folder\n", "", {"song.mp3"}, "song.mp3\n", kExitInterrupted,
     std::string(kDefaults) + "MEDIA_TYPE is folder\nMedia folder is []\nITEM NAME is p.m3u\n", "song.mp3",
     "NotifyTrackPlaybackStarted() for song.mp3 received"},
    {"PlaylistListsLowerCaseMp3NamesAnywhereInTheName", "media_folder = music\n", "music",
     {"one.mp3", "two.mp3", "LOUD.MP3", "copy.mp3.bak", "notes.txt"}, nullptr, kExitInterrupted,
     kFolderMusic + kCreated + "{listed}ITEM NAME is p.m3u\n", "one.mp3\ntwo.mp3\ncopy.mp3.bak\n"},
    {"ExistingPlaylistIsLeftAsItIs", "media_folder = music\n", "music", {"new.mp3"}, "old.mp3\n", kExitInterrupted,
     kFolderMusic + "ITEM NAME is p.m3u\n", "old.mp3"},
    {"EmptyFolderGivesAnEmptyPlaylist", "media_folder = music\n", "music", {}, nullptr, kExitInterrupted,
     kFolderMusic + kCreated + "ITEM NAME is p.m3u\n", ""},
    {"MissingCardFailsTheInitialisationAndShutsDown", "", nullptr, {}, nullptr, kExitNormal,
     std::string(kDefaults) + "MEDIA_TYPE is \nMedia folder is []\nITEM NAME is p.m3u\n"
     "Error initilizing Vendra Player! Check config (media folder may be missing).\nmain: Player Test: Deinitilaizing ...\n"
     "main: Player Test: Deinitilaizing returned 0\nmain: Sleeping 2s to allow PCM to exit properly.. 0\nVendra Player: End. 0\n",
     nullptr, nullptr, true},
};

class Startup : public VendraPlayerTest, public ::testing::WithParamInterface<StartupCase> {};

TEST_P(Startup, ConfigurationAndFolderDecideTheItem) {
    const StartupCase& c = GetParam();
    if (c.config != nullptr) Config(c.config);
    if (c.card_missing) ::setenv("VENDRA_PLAYER_MEDIA_ROOT", (m_dir + "/nocard").c_str(), 1);
    std::string folder;
    if (c.folder != nullptr) {
        std::map<std::string, std::string> files;
        for (const std::string& file : c.files) files[file] = "track_c.mp3";
        folder = Folder(c.folder, files);
        if (c.playlist_before != nullptr) std::ofstream(folder + "p.m3u") << c.playlist_before;
    }
    const auto run = Start();
    const bool stopped = c.exit_status == kExitInterrupted;
    if (stopped) {
        EXPECT_TRUE(run->WaitFor(c.until)) << run->Console();
    }
    EXPECT_EQ(run->Finish(stopped ? SIGINT : 0), c.exit_status);

    const std::string expected =
        Replaced(Replaced(kBanner + c.console, "{root}", m_root), "{listed}", ReadTextFile(folder + "p.m3u"));
    const std::string console = run->Console();
    EXPECT_EQ(stopped ? console.substr(0, expected.size()) : console, expected);
    EXPECT_EQ(Count(console, "\nInterrupt signal (2) received.\n"), stopped ? 1u : 0u);
    EXPECT_EQ(Count(console, "Deinitilaizing"), stopped ? 0u : Count(expected, "Deinitilaizing"));
    if (c.folder != nullptr) {
        EXPECT_EQ(Entries(folder).count("p.m3u"), c.playlist_after == nullptr ? 0u : 1u);
        EXPECT_EQ(SortedLines(ReadTextFile(folder + "p.m3u")), SortedLines(c.playlist_after == nullptr ? "" : c.playlist_after));
    }
}

INSTANTIATE_TEST_SUITE_P(App, Startup, ::testing::ValuesIn(kStartupCases),
                         [](const auto& info) { return std::string(info.param.name); });

// A folder played from its generated playlist: the card hears the three tracks in the playlist's
// order, every notification is printed with the whole playback information, a reader never sees
// the status file half-written, it holds the exact line while a track plays and stays JSON for a
// file name in Latin-1; SIGINT ends the program at once with status 2.
TEST_F(VendraPlayerTest, AFolderPlaysToTheCardAndIsReportedOnConsoleAndStatusFile) {
    const std::map<std::string, int> tones = {{"track_a.mp3", 440}, {"caf\xE9.mp3", 880}, {"track_b.mp3", 660}};
    const std::string folder =
        Folder("music", {{"track_a.mp3", "track_a.mp3"}, {"caf\xE9.mp3", "track_c.mp3"}, {"track_b.mp3", "track_b.mp3"}});
    Config("volume = 0x20\nmedia_type = folder\nmedia_folder = music\n");
    FileWatcher watcher(m_status);
    const auto run = Start();
    // The fourth connection follows the third track's last line: the list starts over.
    ASSERT_TRUE(run->WaitFor("New state is 4, name is Player_state_connecting", 4)) << run->Console();
    EXPECT_EQ(run->Finish(SIGINT), kExitInterrupted);
    const std::string console = run->Console();
    EXPECT_EQ(Count(console, "\nInterrupt signal (2) received.\n"), 1u);
    EXPECT_EQ(Count(console, "Deinitilaizing"), 0u);

    const std::vector<std::string> playlist = Lines(ReadTextFile(folder + "p.m3u"));
    ASSERT_EQ(playlist.size(), 3u);
    std::vector<int> heard = Tones(), expected_tones;
    for (const std::string& track : playlist) expected_tones.push_back(tones.at(track));
    heard.resize(std::min(heard.size(), expected_tones.size()));
    EXPECT_EQ(heard, expected_tones);

    const size_t a = std::find(playlist.begin(), playlist.end(), "track_a.mp3") - playlist.begin();
    const std::string info =
        "Song is --<Song A>--, Playlist is --<p.m3u>--, album is --<>--, artist is --<Artist A>--\n"
        "CTestPlayerDelegate::PrintPlaybackInfo():[ m_album_name=\tm_artist_name=Artist A\tm_curr_music_file=track_a.mp3"
        "m_curr_volume=32\nm_next_music_file=" + playlist[(a + 1) % 3] + "\tm_player_state=1\tm_playlist_name=p.m3u\t"
        "m_song_id=" + std::to_string(a) + " ]\nCNT=-1 ]\n";
    for (const std::string& block :
         {"\nCTestPlayerDelegate::NotifyTrackPlaybackStarted() for Song A received\n" + info,
          "\nCTestPlayerDelegate::NotifyPlaybackStateChanged(): New state is 1, name is Player_state_playing\n" + info,
          "\nCTestPlayerDelegate::NotifyTrackPlaybackFinished(track_a.mp3) received\n" + info + "\n",
          std::string("\nCTestPlayerDelegate::NotifyItemPlaybackStarted() received\nSong is --<"),
          std::string("\nCTestPlayerDelegate::NotifyPlaybackCommandExecuted() received\nSong is --<")})
        EXPECT_GT(Count(console, block), 0u) << block << "\nnot in\n" << console;

    const std::vector<std::string>& versions = watcher.Versions();
    for (const std::string& version : versions)
        EXPECT_TRUE(Lines(version).size() == 1 && version.size() > 2 && version.substr(version.size() - 2) == "}\n")
            << "a reader saw [" << version << "]";
    EXPECT_GT(std::count(versions.begin(), versions.end(),
                         "{\"m_player_state\":\"1\",\"m_curr_song_name\":\"Song A\",\"m_playlist_name\":\"p.m3u\","
                         "\"error\":\"no error\"}\n"), 0);
    const std::string parsed = JsonSongNames(m_dir, versions);
    EXPECT_TRUE(Count(parsed, "\"caf\\u00e9.mp3\"\n") > 0 && Count(parsed, "\nVALID\n") == 1) << parsed;
}

// A playlist whose missing first track is followed by a radio slow to answer: the status file
// carries the error while the radio connects, then "no error" with the radio's ICY title, whose
// quote, backslash and tab are JSON escapes that a JSON reader turns back into the title.
TEST_F(VendraPlayerTest, AnErrorStaysInTheStatusFileUntilTheNextNotification) {
    LocalHttpServer server(MediaPath(""));
    ASSERT_GT(server.port(), 0);
    server.Get("/control/title?t=StreamTitle%3D%27Say%20%22Hi%22%20%5C%09now%27%3B");
    std::ofstream(Folder("music", {}) + "p.m3u")
        << "missing.mp3\n" << server.url("/stream?file=track_long.mp3&metaint=8000&hold=1500") << "\n";
    Config("media_folder = music\n");
    const auto run = Start();
    EXPECT_TRUE(WaitForStatus("{\"m_player_state\":\"4\",\"m_curr_song_name\":\"missing.mp3\","
                              "\"m_playlist_name\":\"p.m3u\",\"error\":\"-1001\"}\n")) << ReadTextFile(m_status);
    EXPECT_EQ(Count(run->Console(), "\nCTestPlayerDelegate::NotifyPlaybackError, state - 4, id request = 1, error code "
                                    "(-1001):\"EPLAYER_OPEN_TRACKFILE: Failed to open a track file.\" for "
                                    "item={missing.mp3}/track={missing.mp3} received\n"), 1u) << run->Console();
    const std::string playing = "{\"m_player_state\":\"1\",\"m_curr_song_name\":\"Say \\\"Hi\\\" \\\\\\tnow\","
                                "\"m_playlist_name\":\"p.m3u\",\"error\":\"no error\"}\n";
    EXPECT_TRUE(WaitForStatus(playing)) << ReadTextFile(m_status);
    EXPECT_EQ(JsonSongNames(m_dir, {playing}), "\"Say \\\"Hi\\\" \\\\\\tnow\"\nVALID\n");
    EXPECT_EQ(run->Finish(SIGINT), kExitInterrupted);
}

// A radio named by the configuration: its URL of 1,000 characters reaches the server whole, the card
// plays the radio's tone, and SIGTERM stops the program as SIGINT does, with its own number.
TEST_F(VendraPlayerTest, AStreamConfigurationPlaysTheRadioUntilSigterm) {
    constexpr size_t kUrlLength = 1000;
    LocalHttpServer server(MediaPath(""));
    ASSERT_GT(server.port(), 0);
    std::string url = server.url("/stream?file=track_long.mp3&metaint=8000&pad=");
    url.append(kUrlLength - url.size(), 'x');
    Config("media_type = internet_stream\nurl = " + url + "\n");
    const auto run = Start();
    ASSERT_TRUE(run->WaitFor("New state is 1, name is Player_state_playing")) << run->Console();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(run->Finish(SIGTERM), kExitTerminated);
    EXPECT_EQ(Count(run->Console(), "ITEM NAME is " + url + "\n"), 1u);
    EXPECT_EQ(Count(run->Console(), "\nInterrupt signal (15) received.\n"), 1u);
    EXPECT_GE(server.Requests("REQUEST " + url.substr(url.find("/stream")) + "\n").size(), 1u);
    EXPECT_EQ(Tones(), std::vector<int>{330});
}

// A console up to the interrupt, without the reports of executed commands: how the worker batches
// the program's first commands depends on the machine's load.
std::string WithoutBatchReports(const std::string& console) {
    const std::string report = "\nCTestPlayerDelegate::NotifyPlaybackCommandExecuted() received\n";
    const std::string interrupted = "Interrupt signal (2) received.\n";
    std::string out = console.substr(0, console.find(interrupted) + interrupted.size());
    for (size_t at; (at = out.find(report)) != std::string::npos;) out.erase(at, out.find('\n', out.find("\nCNT=", at) + 1) + 1 - at);
    return out;
}

// The status file is a side channel: where it cannot be written the console is what it would be,
// and where it can, no temporary file stays behind.
TEST_F(VendraPlayerTest, AnUnwritableStatusDirectoryChangesNothingOnTheConsole) {
    std::ofstream(Folder("music", {}) + "p.m3u") << "missing.mp3\n";
    Config("media_folder = music\n");
    std::vector<std::string> consoles;
    for (const std::string& status : {m_status, m_dir + "/absent/vendra_player"}) {
        ::setenv("VENDRA_PLAYER_STATUS", status.c_str(), 1);
        const auto run = Start();
        EXPECT_TRUE(run->WaitFor("New state is 0")) << run->Console();
        EXPECT_EQ(run->Finish(SIGINT), kExitInterrupted);
        consoles.push_back(WithoutBatchReports(run->Console()));
    }
    EXPECT_EQ(consoles[0], consoles[1]);
    EXPECT_EQ(Count(consoles[0], "error code (-1007)"), 1u) << consoles[0];
    EXPECT_EQ(Entries(m_run), std::set<std::string>{"vendra_player"});
    EXPECT_EQ(Entries(m_dir + "/absent"), std::set<std::string>());
}

}  // namespace
