#include <INIReader.h>
#include <gtest/gtest.h>

#include <list>

#include "CIniReader.h"
#include "CPLSParser.h"
#include "CPlaylistFileMap.h"
#include "CURLPlaylistAudioSource.h"
#include "LogCapture.h"
#include "SourceFixtures.h"

namespace {

// Names match in any case, local files are skipped, the count limits the entries, and nothing is
// left once the parser is released. A count of a million costs no more than the entries written.
TEST(PlsParsing, ListsTheUrlEntriesInOrder) {
    struct Case { const char* content; int parse_result; std::list<std::string> urls; };
    for (const Case& c : {
             Case{"[Playlist]\nNumberOfEntries=2\nFile1=a.mp3\nFile2=http://h/b\n", 0, {"http://h/b"}},
             Case{"[playlist]\nnumberofentries=0x2\nfile1=http://h/1\nfile2=http://h/2\n", 0, {"http://h/1", "http://h/2"}},
             Case{"[playlist]\nnumberofentries=010\nfile8=http://h/8\nfile9=http://h/9\n", 0, {"http://h/8"}},
             Case{"[playlist]\nnumberofentries=1\nfile1=http://h/1\nfile2=http://h/2\n", 0, {"http://h/1"}},
             Case{"[playlist]\nnumberofentries=1\nfile1=http://h/1\nfile1=http://h/2\n", 0, {"http://h/1\nhttp://h/2"}},
             Case{"; a comment\n[playlist]\n# another\nnumberofentries: 1\nfile1 : http://h/1 \n", 0, {"http://h/1"}},
             Case{"[playlist]\nfile1=http://h/1\n", 0, {}},
             // Entry order, whatever the order of the lines; only "file<n>" itself is entry n.
             Case{"[playlist]\nnumberofentries=1000000\nfile1000000=http://h/z\nfile12=http://h/12\nfile2=http://h/2\n"
                  "file01=http://h/01\nfile=http://h/0\nfile0=http://h/00\nfile3x=http://h/3x\nfile1000001=http://h/y\n",
                  0, {"http://h/2", "http://h/12", "http://h/z"}},
             Case{"[playlist]\nnumberofentries=1\nfile1=http://h/1\nno equals sign here\n", 4, {}}}) {
        ScratchDir dir;
        CPLSParser parser;
        EXPECT_EQ(parser.Parse(dir.file("list.pls", c.content).c_str()), c.parse_result) << c.content;
        std::list<std::string> urls;
        parser.GetURLs(urls);
        EXPECT_EQ(urls, c.urls) << c.content;
        parser.Release();
        parser.GetURLs(urls);
        EXPECT_EQ(urls, c.urls) << c.content;
    }
}

// A tokenised stream URL is far longer than the system INI library's line buffer.
TEST(PlsParsing, HandlesAHundredThousandEntriesAUrlOfTwoThousandCharactersAndAMissingFile) {
    ScratchDir dir;
    std::string url = "http://stream.example/live.aac?token=";
    while (url.size() < 2000) url += "Ab3-_x=9&";
    url.resize(2000);
    std::string content = "[playlist]\nnumberofentries=100000\nFile1=" + url + "\n";
    for (int i = 2; i <= 100000; ++i) content += "File" + std::to_string(i) + "=http://h/" + std::to_string(i) + "\n";
    const std::string path = dir.file("big.pls", content);
    EXPECT_NE(INIReader(path).Get("playlist", "File1", ""), url) << "the system library cuts the line short";
    CPLSParser parser;
    ASSERT_EQ(parser.Parse(path.c_str()), 0);
    std::list<std::string> urls;
    parser.GetURLs(urls);
    ASSERT_EQ(urls.size(), 100000u);
    EXPECT_EQ(urls.front(), url);
    EXPECT_EQ(urls.back(), "http://h/100000");
    EXPECT_EQ(parser.Parse((dir.path() + "/missing.pls").c_str()), -1);
}

// A playlist map over a scratch playlist folder ("<dir>/") whose media folder holds a.mp3 and b.mp3.
class PlaylistMap : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir.file("a.mp3", "");
        m_dir.file("b.mp3", "");
        ASSERT_EQ(m_map.SetFolders(m_dir.path() + "/", m_dir.path() + "/"), 0);
    }
    int Parse(const std::string& content, bool check_files = false) {
        m_dir.file("p.m3u", content);
        return m_map.ParsePlaylist("p.m3u", check_files);
    }
    std::vector<std::string> PlayOrder() { return ::PlayOrder(m_map); }

    ScratchDir m_dir;
    CPlaylistFileMap m_map;
};

TEST_F(PlaylistMap, KeepsTracksWithTheirCommentsAndIgnoresWhatCannotBeATrack) {
    EXPECT_EQ(Parse("#./first.mp3\n#./a.mp3\na.mp3\n\n  b.mp3\t\r\nc.mp\n   \n#./Some Song.mp3\nsong.mp3"), 3);
    EXPECT_EQ(PlayOrder(), (std::vector<std::string>{"a.mp3", "b.mp3", "song.mp3"}));
    std::string path, comment;
    m_map.MoveTo(0, path);
    m_map.GetCurrent(path, comment);
    EXPECT_EQ(comment, "#./a.mp3") << "the comment on the first line of the file is never pending";
    m_map.MoveTo(1, path);
    m_map.GetCurrent(path, comment);
    EXPECT_EQ(comment, "") << "a comment belongs to one track only";

    std::string shown;
    EXPECT_EQ(m_map.GetNext(shown, true), 0);
    EXPECT_EQ(shown, "Some Song");
    m_map.MoveTo(0, path);
    EXPECT_EQ(m_map.GetNext(shown, true), 0);
    EXPECT_EQ(shown, "b.mp3");
}

// A missing playlist or folder changes nothing; a move out of range stays where it is. (The walk
// both ways and its wrapping at the ends is the playlist harness's, over the kept fuzz inputs.)
TEST_F(PlaylistMap, MoveToOutOfRangeStaysAndAMissingListOrFolderChangesNothing) {
    Parse("one.mp3\ntwo.mp3\nthree.mp3\n");
    EXPECT_EQ(m_map.ParsePlaylist("missing.m3u", false), CPlaylistFileMap::kMissing);
    EXPECT_EQ(m_map.SetFolders(m_dir.path() + "/nowhere/", m_dir.path()), CPlaylistFileMap::kMissing);
    EXPECT_EQ(m_map.GetCount(), 3u);
    std::string path;
    EXPECT_EQ(m_map.MoveTo(1, path), 1);
    EXPECT_EQ(m_map.MoveTo(7, path), 0);
    EXPECT_EQ(path, "two.mp3");
    EXPECT_EQ(m_map.MoveToPrevious(path), 0);
    EXPECT_EQ(path, "one.mp3");
    CPlaylistFileMap empty;
    path = "untouched";
    EXPECT_EQ(empty.MoveToNext(path), 1);
    EXPECT_EQ(empty.MoveToPrevious(path), 1);
    EXPECT_EQ(empty.GetNext(path, false), 1);
    EXPECT_EQ(path, "untouched");
}

// A shuffle deals a new order, and so does running off the end of a shuffled list. (That no track
// is lost and that unshuffling restores the order is the playlist harness's.)
TEST_F(PlaylistMap, ShufflingDealsANewOrderAtEveryPass) {
    std::string content;
    std::vector<std::string> tracks;
    for (int i = 0; i < 200; ++i) {
        tracks.push_back("track" + std::to_string(i) + ".mp3");
        content += tracks.back() + "\n";
    }
    Parse(content);
    EXPECT_TRUE(m_map.Shuffle());
    const std::vector<std::string> before = PlayOrder();
    EXPECT_NE(before, tracks);
    std::string path, next;
    m_map.MoveTo(199, path);
    EXPECT_EQ(m_map.GetNext(next, false), 1);
    EXPECT_NE(PlayOrder(), before);
}

// A playlist of garbage neither crashes the map nor the M3U reader; an over-long line ends both.
TEST_F(PlaylistMap, HostilePlaylistsEndCleanly) {
    std::string garbage = "a.mp3\n";
    for (int i = 0; i < 3000; ++i) garbage += static_cast<char>((i * 7919) % 256);
    garbage += "\nb.mp3\n" + std::string(10000, 'x') + "\nhttp://after.long/line\nc.mp3\n";
    const int tracks = Parse(garbage);
    std::string path;
    ASSERT_GE(tracks, 2);
    EXPECT_EQ(m_map.MoveTo(static_cast<unsigned>(tracks - 1), path), 1);
    EXPECT_EQ(path, std::string(1999, 'x')) << "the long line's start is its last track";
    CURLPlaylistAudioSource resolver;
    std::string url;
    EXPECT_FALSE(resolver.GetURLfromM3U(m_dir.path() + "/p.m3u", url));
    EXPECT_EQ(url, "");
}

// Each file is read by our reader and by the system INI library; both must agree, and the value
// read must be the one written here, so that two readers losing the same key cannot pass.
TEST(IniReading, AnswersAsTheSystemIniLibrary) {
    struct Case { std::string content; const char* section, *key, *value; };  // "<missing>": no file; "<none>": no value
    for (const Case& c : {
             Case{"[One]\nKey=1\n[two]\nkey=2\n", "ONE", "kEY", "1"},
             Case{"[s]\n  name :  some value \t\r\n", "s", "NAME", "some value"},
             Case{"; c\n\n# c\n[s]\n  ; c\n\t\nk = v ; inline\n", "s", "k", "v"},
             Case{"[s]\nk=http://h/a;b=c\n", "s", "k", "http://h/a;b=c"},
             Case{"[s]\nk=1\nk=\nk=2\n", "s", "k", "1\n\n2"},
             Case{"[s]\nk=\nk=2\n", "s", "k", "2"},
             Case{"[s]\nk=1\n  [t] ; x\n", "s", "k", "1\n[t] ; x"},
             Case{"[s]\nk=1\n[t]\n  x = 2\n", "t", "x", "2"},
             Case{"[s]\na=1\nbroken\nk=2\nalso broken\n", "s", "k", "2"},
             Case{"[s]\n[t ;]\nk=1\n", "s", "k", "1"},
             Case{"k=top\n[s]\nk=in\n", "", "k", "top"},
             Case{"[ s ]\nk=1\n", " s ", "k", "1"},
             Case{"k=0x1A\n", "", "k", "0x1A"}, Case{"k=-010\n", "", "k", "-010"},
             Case{"k=12abc\n", "", "k", "12abc"}, Case{"k=abc\n", "", "k", "abc"},
             Case{"\xEF\xBB\xBF[s]\nk=1\n", "s", "k", "1"},
             Case{"<missing>", "s", "k", "<none>"}}) {
        ScratchDir dir;
        const std::string path = c.content == "<missing>" ? dir.path() + "/missing.ini" : dir.file("f.ini", c.content);
        const CIniReader ours(path);
        const INIReader system(path);
        constexpr long kNoNumber = -424242;
        EXPECT_EQ(ours.ParseError(), system.ParseError()) << c.content;
        EXPECT_EQ(ours.Get(c.section, c.key, "<none>"), c.value) << c.content;
        EXPECT_EQ(system.Get(c.section, c.key, "<none>"), c.value) << c.content;
        EXPECT_EQ(ours.GetInteger(c.section, c.key, kNoNumber), system.GetInteger(c.section, c.key, kNoNumber)) << c.content;
    }
}

}  // namespace
