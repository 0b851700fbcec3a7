#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "CardFixture.h"
#include "LocalServer.h"
#include "PacketReader.h"

namespace {

constexpr const char* kBanner = "Starting Vendra Player v1.1 with player library version (player vb5.00fb)\n";
constexpr const char* kRefused = "Error parsing config and setting player params.\n";
constexpr const char* kDefaults = "Volume=50\nBUFFER SIZE=500\n";
constexpr int kExitRefused = 255, kExitInterrupted = 2, kExitTerminated = 15, kExitNormal = 0;
constexpr int kWaitMs = 10000, kPollMs = 10;
// Parses each line of a file as JSON and prints its song name as JSON writes it; "VALID" at the end.
constexpr const char* kJsonChecker =
    "import json, sys\n"
    "for line in open(sys.argv[1], encoding='utf-8'): print(json.dumps(json.loads(line)['m_curr_song_name']))\n"
    "print('VALID')\n";

std::string ReadText(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}
size_t Count(const std::string& text, const std::string& needle) {
    size_t n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
    return n;
}
std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    if (const size_t at = text.find(from); at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}
std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}
std::vector<std::string> SortedLines(const std::string& text) {
    std::vector<std::string> lines = Lines(text);
    std::sort(lines.begin(), lines.end());
    return lines;
}
std::set<std::string> Entries(const std::string& folder) {
    std::set<std::string> names;
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (const dirent* entry = ::readdir(dir)) names.insert(entry->d_name);
        ::closedir(dir);
    }
    names.erase(".");
    names.erase("..");
    return names;
}
void Sleep(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// The program as a child process, its standard output and error together in one file as a terminal
// shows them; killed if it still runs when the test ends.
class Program {
public:
    explicit Program(const std::string& console) : m_console(console) {
        const int out = ::open(console.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if ((m_pid = ::fork()) == 0) {
            ::dup2(out, STDOUT_FILENO);
            ::dup2(out, STDERR_FILENO);
            ::execl(VENDRA_PLAYER_BINARY, VENDRA_PLAYER_BINARY, static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(out);
    }
    ~Program() {
        if (!Ended()) ::kill(m_pid, SIGKILL), ::waitpid(m_pid, nullptr, 0);
    }
    std::string Console() const { return ReadText(m_console); }
    // Whether the console shows `text` `count` times before the program ends or the time runs out.
    bool WaitFor(const std::string& text, size_t count = 1) {
        for (int waited = 0; waited < kWaitMs && !Ended() && Count(Console(), text) < count; waited += kPollMs) Sleep(kPollMs);
        return Count(Console(), text) >= count;
    }
    // Sends `signal_number` (none: 0), waits for the end: the exit status, -1 when it did not exit.
    int Finish(int signal_number = 0) {
        if (signal_number != 0 && !Ended()) ::kill(m_pid, signal_number);
        for (int waited = 0; waited < kWaitMs && !Ended(); waited += kPollMs) Sleep(kPollMs);
        return m_ended && WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -1;
    }

private:
    bool Ended() { return m_ended || (m_ended = ::waitpid(m_pid, &m_status, WNOHANG) == m_pid); }

    std::string m_console;
    pid_t m_pid = -1;
    int m_status = 0;
    bool m_ended = false;
};

// Every version of a file that a reader polling it every half millisecond sees, in order.
class FileWatcher {
public:
    explicit FileWatcher(const std::string& path)
        : m_thread([this, path] {
              for (; !m_stop; std::this_thread::sleep_for(std::chrono::microseconds(500))) {
                  const std::string text = ReadText(path);
                  if (::access(path.c_str(), F_OK) == 0 && (m_versions.empty() || m_versions.back() != text))
                      m_versions.push_back(text);
              }
          }) {}
    ~FileWatcher() { Versions(); }
    const std::vector<std::string>& Versions() {
        m_stop = true;
        if (m_thread.joinable()) m_thread.join();
        return m_versions;
    }

private:
    std::atomic<bool> m_stop{false};
    std::vector<std::string> m_versions;
    std::thread m_thread;
};

// A virtual card four times faster than real time; the program's configuration, memory card and
// status file moved into the scratch directory through the environment.
class VendraPlayerTest : public CardTest {
protected:
    void SetUp() override {
        vcard::Options options;
        options.speed = 4;
        options.limits.buffer_bytes_max = 32768;
        MakeCard(options);
        m_root = m_dir + "/card";  // without its final slash: the program adds it
        m_run = m_dir + "/run/";
        m_status = m_run + "vendra_player";
        ASSERT_EQ(::mkdir(m_root.c_str(), 0755) | ::mkdir(m_run.c_str(), 0755), 0);
        ::setenv("VENDRA_PLAYER_CONFIG", (m_dir + "/vendra_player.conf").c_str(), 1);
        ::setenv("VENDRA_PLAYER_MEDIA_ROOT", m_root.c_str(), 1);
        ::setenv("VENDRA_PLAYER_STATUS", m_status.c_str(), 1);
    }
    void Config(const std::string& text) const { std::ofstream(m_dir + "/vendra_player.conf") << text; }
    // A folder of the card ("" for its root) with copies of generated tracks: {name there, track}.
    std::string Folder(const std::string& name, const std::map<std::string, std::string>& files) const {
        const std::string folder = m_root + "/" + name + (name.empty() ? "" : "/");
        ::mkdir(folder.c_str(), 0755);
        for (const auto& [target, source] : files)
            EXPECT_EQ(std::system(("cp '" + MediaPath(source) + "' '" + folder + target + "'").c_str()), 0);
        return folder;
    }
    std::unique_ptr<Program> Start() { return std::make_unique<Program>(m_dir + "/console" + std::to_string(++m_runs)); }
    bool WaitForStatus(const std::string& expected) const {
        for (int waited = 0; waited < kWaitMs && ReadText(m_status) != expected; waited += kPollMs) Sleep(kPollMs);
        return ReadText(m_status) == expected;
    }
    // kJsonChecker's answer for these versions of the status file.
    std::string CheckJson(const std::vector<std::string>& versions) const {
        std::ofstream(m_dir + "/check.py") << kJsonChecker;
        std::ofstream lines(m_dir + "/versions");
        for (const std::string& version : versions) lines << version;
        lines.close();
        const std::vector<uint8_t> out = CommandOutput("python3 '" + m_dir + "/check.py' '" + m_dir + "/versions' 2>&1");
        return std::string(out.begin(), out.end());
    }
    // The tones channel 1 played, in order, each once however long: the left channel's frequency in
    // 100 ms windows from its rising zero crossings, to the nearest 110 Hz (every test tone is a
    // multiple of it); runs shorter than three windows, where two tracks meet, are left out.
    std::vector<int> Tones() const {
        constexpr int kStep = 110, kWindowsPerSecond = 10, kShortestRun = 3;
        std::vector<vcard::LogEvent> events;
        vcard::ReadLog(m_card.log_path(1), &events);
        long rate = 0;
        for (const vcard::LogEvent& event : events) rate = event.name == "hw_params" ? event.number("rate") : rate;
        std::vector<uint8_t> bytes;
        vcard::ReadFileBytes(m_card.capture_path(1), &bytes);
        const auto* samples = reinterpret_cast<const int16_t*>(bytes.data());
        const size_t frames = bytes.size() / 4, window = rate / kWindowsPerSecond;
        std::vector<std::pair<int, int>> runs;  // tone, windows
        for (size_t at = 0; window > 0 && at + window <= frames; at += window) {
            int rising = 0;
            for (size_t i = at + 1; i < at + window; ++i) rising += samples[2 * i - 2] < 0 && samples[2 * i] >= 0;
            const int tone = (rising * kWindowsPerSecond + kStep / 2) / kStep * kStep;
            if (runs.empty() || runs.back().first != tone) runs.emplace_back(tone, 0);
            ++runs.back().second;
        }
        std::vector<int> tones;
        for (const auto& [tone, windows] : runs)
            if (tone != 0 && windows >= kShortestRun && (tones.empty() || tones.back() != tone)) tones.push_back(tone);
        return tones;
    }

    std::string m_root, m_run, m_status;
    int m_runs = 0;
};

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
        Replaced(Replaced(kBanner + c.console, "{root}", m_root), "{listed}", ReadText(folder + "p.m3u"));
    const std::string console = run->Console();
    EXPECT_EQ(stopped ? console.substr(0, expected.size()) : console, expected);
    EXPECT_EQ(Count(console, "\nInterrupt signal (2) received.\n"), stopped ? 1u : 0u);
    EXPECT_EQ(Count(console, "Deinitilaizing"), stopped ? 0u : Count(expected, "Deinitilaizing"));
    if (c.folder != nullptr) {
        EXPECT_EQ(Entries(folder).count("p.m3u"), c.playlist_after == nullptr ? 0u : 1u);
        EXPECT_EQ(SortedLines(ReadText(folder + "p.m3u")), SortedLines(c.playlist_after == nullptr ? "" : c.playlist_after));
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

    const std::vector<std::string> playlist = Lines(ReadText(folder + "p.m3u"));
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
    const std::string parsed = CheckJson(versions);
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
                              "\"m_playlist_name\":\"p.m3u\",\"error\":\"-1001\"}\n")) << ReadText(m_status);
    EXPECT_EQ(Count(run->Console(), "\nCTestPlayerDelegate::NotifyPlaybackError, state - 4, id request = 1, error code "
                                    "(-1001):\"EPLAYER_OPEN_TRACKFILE: Failed to open a track file.\" for "
                                    "item={missing.mp3}/track={missing.mp3} received\n"), 1u) << run->Console();
    const std::string playing = "{\"m_player_state\":\"1\",\"m_curr_song_name\":\"Say \\\"Hi\\\" \\\\\\tnow\","
                                "\"m_playlist_name\":\"p.m3u\",\"error\":\"no error\"}\n";
    EXPECT_TRUE(WaitForStatus(playing)) << ReadText(m_status);
    EXPECT_EQ(CheckJson({playing}), "\"Say \\\"Hi\\\" \\\\\\tnow\"\nVALID\n");
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
    Sleep(1000);
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
