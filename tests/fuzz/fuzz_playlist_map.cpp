// A playlist on the memory card, written by any tool: the track map reads it, shuffles it, walks it
// both ways and restores its order. Input: one byte of options (bit 0: check that the files exist),
// then the playlist.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "CPlaylistFileMap.h"
#include "FuzzTarget.h"
#include "SourceFixtures.h"

namespace {
bool IsTrimmed(const std::string& line) {
    return !line.empty() && line.front() != ' ' && line.front() != '\t' && line.back() != ' ' &&
           line.back() != '\t' && line.back() != '\r';
}

bool SamePaths(std::vector<std::string> a, std::vector<std::string> b) {
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    return a == b;
}
}  // namespace

KORVEL_FUZZ_TARGET(fuzz_playlist_map) {
    static const bool ready = (korvel_fuzz::QuietLogger(), true);
    (void)ready;
    if (size < 1) return 0;
    const bool check_files = (data[0] & 1) != 0;
    korvel_fuzz::Scratch& scratch = korvel_fuzz::Scratch::Get();
    static const bool media = (scratch.Write("a.mp3", nullptr, 0), scratch.Write("b.mp3", nullptr, 0), true);
    (void)media;
    scratch.Write("p.m3u", data + 1, size - 1);

    CPlaylistFileMap map;
    KORVEL_FUZZ_CHECK(map.SetFolders(scratch.dir() + "/", scratch.dir() + "/") == 0);
    const int parsed = map.ParsePlaylist("p.m3u", check_files);
    KORVEL_FUZZ_CHECK(parsed >= 0 && static_cast<unsigned>(parsed) == map.GetCount());
    KORVEL_FUZZ_CHECK(map.HasPlayableTracks() == (parsed > 0));
    const unsigned n = map.GetCount();

    // Tracks in file order: trimmed, long enough, no comment, no line end, within the line buffer.
    std::vector<int> indices;
    const std::vector<std::string> tracks = PlayOrder(map, &indices);
    KORVEL_FUZZ_CHECK(tracks.size() == n);
    for (unsigned i = 0; i < n; ++i) {
        const std::string& track = tracks[i];
        KORVEL_FUZZ_CHECK(IsTrimmed(track) && track.size() >= CPlaylistFileMap::kMinTrackChars);
        KORVEL_FUZZ_CHECK(track.size() < static_cast<size_t>(CPlaylistFileMap::kLineBufferChars));
        KORVEL_FUZZ_CHECK(track[0] != '#' && track.find('\n') == std::string::npos);
        KORVEL_FUZZ_CHECK(indices[i] == static_cast<int>(i));
    }

    // Forward from the start visits every track once, in order, and wraps only at the ends.
    CPlaylistFileMap walker;
    KORVEL_FUZZ_CHECK(walker.SetFolders(scratch.dir() + "/", scratch.dir() + "/") == 0);
    walker.ParsePlaylist("p.m3u", check_files);
    std::string path;
    for (unsigned i = 0; i < n; ++i) {
        KORVEL_FUZZ_CHECK(walker.MoveToNext(path) == (i == 0 ? 1 : 0));
        KORVEL_FUZZ_CHECK(path == tracks[i]);
    }
    if (n > 0) {
        KORVEL_FUZZ_CHECK(walker.MoveToNext(path) == 1);
        KORVEL_FUZZ_CHECK(path == tracks[0]);
    }
    // Backward from the first track wraps to the last and comes down to the first again.
    for (unsigned i = n; i-- > 0;) {
        KORVEL_FUZZ_CHECK(walker.MoveToPrevious(path) == (i == n - 1 ? 1 : 0));
        KORVEL_FUZZ_CHECK(path == tracks[i]);
    }
    std::string peek, shown;
    KORVEL_FUZZ_CHECK(walker.GetNext(peek, false) == (n == 0 || n == 1 ? 1 : 0));
    walker.GetNext(shown, true);
    walker.GetCurrentDisplayName(shown);
    if (n > 0) KORVEL_FUZZ_CHECK(peek == tracks[n > 1 ? 1 : 0]);

    // Every track fails once: none is left playable, and a reset counts them all again.
    for (unsigned i = 0; i < n; ++i) {
        walker.MoveToNext(path);
        walker.SetCurrentPlayable(false);
    }
    KORVEL_FUZZ_CHECK(!walker.HasPlayableTracks());
    KORVEL_FUZZ_CHECK(walker.GetNextPlayable(path) == 0);
    walker.ResetPlayableCount();
    KORVEL_FUZZ_CHECK(walker.HasPlayableTracks() == (n > 0));

    // A shuffle, and the new deal when the end is passed, keep every track exactly once.
    KORVEL_FUZZ_CHECK(map.Shuffle() == (n > 0));
    std::vector<int> shuffled_indices;
    const std::vector<std::string> shuffled = PlayOrder(map, &shuffled_indices);
    KORVEL_FUZZ_CHECK(shuffled.size() == n && SamePaths(shuffled, tracks));
    KORVEL_FUZZ_CHECK(std::set<int>(shuffled_indices.begin(), shuffled_indices.end()).size() == n);
    if (n > 0) {
        map.MoveTo(n - 1, path);
        KORVEL_FUZZ_CHECK(map.GetNext(peek, false) == 1);
        const std::vector<std::string> redealt = PlayOrder(map);
        KORVEL_FUZZ_CHECK(SamePaths(redealt, tracks) && peek == redealt[0]);
    }
    KORVEL_FUZZ_CHECK(map.DontShuffle() == (n > 0));
    KORVEL_FUZZ_CHECK(map.GetCurrent(path) == (n > 0 ? 1 : 0));
    if (n > 0) KORVEL_FUZZ_CHECK(path == tracks[0]);
    KORVEL_FUZZ_CHECK(PlayOrder(map) == tracks);
    return 0;
}
