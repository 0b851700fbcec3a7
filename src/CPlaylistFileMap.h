#ifndef KORVEL_CPLAYLISTFILEMAP_H
#define KORVEL_CPLAYLISTFILEMAP_H

#include <cstdint>
#include <map>
#include <string>

#include "APlayerInfoAdapter.h"

// One track of a playlist: its line as read, the comment that preceded it and whether it can be
// played. `parse_index` is its position in the file and travels with it through shuffles.
struct PlaylistEntry {
    uint32_t parse_index = 0;
    std::string path;
    std::string comment;
    bool exists = false;
};

// The player's current list of tracks, read from an m3u-style playlist: keeps them in play order,
// shuffles and un-shuffles them, walks a cursor through them with wrap-around and counts the tracks
// not yet found unplayable. Worker thread only.
class CPlaylistFileMap : public APlayerInfoAdapter {
public:
    static constexpr int kMissing = -2;
    static constexpr int kLineBufferChars = 2000;
    // Shorter lines cannot name a track ("a.mp3" is the shortest useful one).
    static constexpr size_t kMinTrackChars = 5;

    CPlaylistFileMap();
    ~CPlaylistFileMap() override = default;
    CPlaylistFileMap(const CPlaylistFileMap&) = delete;
    CPlaylistFileMap& operator=(const CPlaylistFileMap&) = delete;

    void set_player_prefix(const char* prefix) override;

    // 0, or kMissing when either folder does not exist (an existing media folder is kept anyway).
    int SetFolders(const std::string& playlist_folder, const std::string& media_folder);
    void Clear();
    // Appends the tracks of playlist folder + `file_name`; the number of tracks held, or kMissing.
    int ParsePlaylist(const std::string& file_name, bool check_files);
    void SetSingleItem(const std::string& path, const std::string& comment, bool exists);
    bool Shuffle();
    bool DontShuffle();
    // Peeks at the track after the cursor: 0, or 1 when it wrapped to the top (re-shuffling a
    // shuffled list) or the list is empty.
    int GetNext(std::string& out, bool display_name);
    // 0, or 1 when it wrapped to the first track or the list is empty.
    int MoveToNext(std::string& out);
    // 0, or 1 when it wrapped to the last track or the list is empty.
    int MoveToPrevious(std::string& out);
    // 1 when the cursor moved to `position`, else 0 with the cursor left alone.
    int MoveTo(unsigned position, std::string& out);
    unsigned GetCount() const { return static_cast<unsigned>(m_tracks.size()); }
    bool HasPlayableTracks() const { return m_playable_count != 0; }
    void SetCurrentPlayable(bool ok);
    void ResetPlayableCount() { m_playable_count = GetCount(); }
    int GetCurrent(std::string& path) const;
    // The position in the file of the track under the cursor, -1 at the end.
    int GetCurrentIndex() const;
    int GetCurrent(std::string& path, std::string& comment) const;
    int GetNextPlayable(std::string& out);
    int GetCurrentDisplayName(std::string& out) const;

    // "#./Some Song.mp3" shows as "Some Song".
    static std::string DisplayName(const std::string& text);

private:
    using Tracks = std::map<uint32_t, PlaylistEntry>;

    uint32_t m_playable_count;
    Tracks m_tracks;
    Tracks::iterator m_cursor;
    uint32_t m_next_index;
    bool m_shuffled;
    std::string m_media_folder;
    std::string m_playlist_folder;
    char m_line[kLineBufferChars];
};

#endif
