#include "CPlaylistFileMap.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/stat.h>
#include <vector>

#include "Logger.h"
#include "utils.h"

namespace {
constexpr const char* kPrefixTag = " PLAYLIST FILE MAP:";
constexpr const char* kDisplayMarker = "#./";
constexpr size_t kDisplayLead = 3;   // "#./"
constexpr size_t kDisplayTail = 4;   // ".mp3"

bool exists(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}
}  // namespace

CPlaylistFileMap::CPlaylistFileMap()
    : m_playable_count(0), m_cursor(m_tracks.end()), m_next_index(0), m_shuffled(false), m_line{} {
    ::srandom(static_cast<unsigned>(::time(nullptr)));
}

void CPlaylistFileMap::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

int CPlaylistFileMap::SetFolders(const std::string& playlist_folder, const std::string& media_folder) {
    if (!exists(media_folder)) return kMissing;
    m_media_folder = media_folder;
    if (!exists(playlist_folder)) return kMissing;
    m_playlist_folder = playlist_folder;
    return 0;
}

void CPlaylistFileMap::Clear() {
    m_tracks.clear();
    m_next_index = 0;
    m_playable_count = 0;
    m_cursor = m_tracks.end();
}

int CPlaylistFileMap::ParsePlaylist(const std::string& file_name, bool check_files) {
    KLOG_INFO("%s CPlaylistFileMap::ParsePlaylist() called\n", GetPrefix());
    const std::string path = m_playlist_folder + file_name;
    FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) {
        KLOG_INFO("%s CPlaylistFileMap::ParsePlaylist(): %s no such file or directory!\n", GetPrefix(), path.c_str());
        return kMissing;
    }
    std::string comment;
    bool first_line = true;
    std::string line;
    bool truncated = false;
    while (utils::read_line(file, m_line, kLineBufferChars, line, truncated)) {
        if (line.empty() || line[0] == '#') {
            if (!line.empty() && !first_line) comment = line;
        } else if (line.size() >= kMinTrackChars) {
            const bool present = !check_files || exists(m_media_folder + line);
            KLOG_INFO("%s CPlaylistFileMap::ParsePlaylist(): Music files:(%d)%s\n", GetPrefix(), present ? 1 : 0,
                      line.c_str());
            m_tracks[m_next_index] = PlaylistEntry{m_next_index, line, comment, present};
            ++m_next_index;
            comment.clear();
        }
        first_line = false;
        // A line longer than the buffer ends the parse once its start has been taken.
        if (truncated) break;
    }
    std::fclose(file);
    m_shuffled = false;
    m_cursor = m_tracks.end();
    KLOG_NOTICE("%s  id=%d, ParsePlaylist(): Music files count=%d\n", GetPrefix(), GetPlayerId(),
                static_cast<int>(m_tracks.size()));
    m_playable_count = GetCount();
    return static_cast<int>(m_tracks.size());
}

void CPlaylistFileMap::SetSingleItem(const std::string& path, const std::string& comment, bool exists) {
    m_tracks.clear();
    m_tracks[0] = PlaylistEntry{0, path, comment, exists};
    m_cursor = m_tracks.end();
    m_playable_count = 1;
    m_next_index = 1;
}

bool CPlaylistFileMap::Shuffle() {
    KLOG_INFO("%s CPlaylistFileMap::Shuffle(): called\n", GetPrefix());
    m_shuffled = true;
    // Equal draws keep all their entries, in the order drawn: a shuffle never loses a track.
    std::multimap<long, PlaylistEntry> drawn;
    for (auto& track : m_tracks) drawn.emplace(::random(), std::move(track.second));
    m_tracks.clear();
    uint32_t key = 0;
    for (auto& entry : drawn) {
        KLOG_INFO("%s CPlaylistFileMap::Shuffle(): Music files:%s\n", GetPrefix(), entry.second.path.c_str());
        m_tracks.emplace(key++, std::move(entry.second));
    }
    m_cursor = m_tracks.end();
    return !m_tracks.empty();
}

bool CPlaylistFileMap::DontShuffle() {
    KLOG_INFO("%s CPlaylistFileMap::DontShuffle() called\n", GetPrefix());
    m_shuffled = false;
    Tracks ordered;
    for (auto& track : m_tracks) ordered.emplace(track.second.parse_index, std::move(track.second));
    m_tracks.swap(ordered);
    m_cursor = m_tracks.begin();
    return !m_tracks.empty();
}

int CPlaylistFileMap::GetNext(std::string& out, bool display_name) {
    KLOG_INFO("%s CPlaylistFileMap::GetNext(): Get next music file name only\n", GetPrefix());
    if (m_tracks.empty()) return 1;
    int result = 0;
    Tracks::iterator candidate;
    if (m_cursor == m_tracks.end() || std::next(m_cursor) == m_tracks.end()) {
        KLOG_INFO("%s CPlaylistFileMap::GetNext(): End of list reached going when looking for next song showing top.\n",
                  GetPrefix());
        if (m_shuffled) Shuffle();
        candidate = m_tracks.begin();
        result = 1;
    } else {
        candidate = std::next(m_cursor);
    }
    out = candidate->second.path;
    if (display_name) {
        if (!candidate->second.comment.empty()) out = candidate->second.comment;
        if (out.find(kDisplayMarker) != std::string::npos) out = DisplayName(out);
    }
    KLOG_INFO("%s CPlaylistFileMap::GetNext(): returns %s\n", GetPrefix(), out.c_str());
    return result;
}

int CPlaylistFileMap::MoveToNext(std::string& out) {
    if (m_tracks.empty()) return 1;
    KLOG_INFO("%s CPlaylistFileMap::MoveToNext():\n", GetPrefix());
    if (m_cursor != m_tracks.end() && std::next(m_cursor) != m_tracks.end()) {
        ++m_cursor;
        out = m_cursor->second.path;
        return 0;
    }
    KLOG_INFO("%s CPlaylistFileMap::MoveToNext(): End of list reached going to the top\n", GetPrefix());
    m_cursor = m_tracks.begin();
    out = m_cursor->second.path;
    return 1;
}

int CPlaylistFileMap::MoveToPrevious(std::string& out) {
    if (m_tracks.empty()) return 1;
    int result = 0;
    if (m_cursor == m_tracks.begin()) {
        m_cursor = std::prev(m_tracks.end());
        result = 1;
    } else {
        --m_cursor;
    }
    out = m_cursor->second.path;
    return result;
}

int CPlaylistFileMap::MoveTo(unsigned position, std::string& out) {
    int result = 0;
    const auto found = m_tracks.find(position);
    if (found != m_tracks.end()) {
        m_cursor = found;
        result = 1;
    }
    if (m_cursor != m_tracks.end()) out = m_cursor->second.path;
    return result;
}

void CPlaylistFileMap::SetCurrentPlayable(bool ok) {
    if (m_cursor == m_tracks.end()) return;
    m_cursor->second.exists = ok;
    if (!ok && m_playable_count > 0) --m_playable_count;
}

int CPlaylistFileMap::GetCurrentIndex() const {
    return m_cursor == m_tracks.end() ? -1 : static_cast<int>(m_cursor->second.parse_index);
}

int CPlaylistFileMap::GetCurrent(std::string& path) const {
    if (m_cursor == m_tracks.end()) return 0;
    path = m_cursor->second.path;
    return 1;
}

int CPlaylistFileMap::GetCurrent(std::string& path, std::string& comment) const {
    if (m_cursor == m_tracks.end()) return 0;
    path = m_cursor->second.path;
    comment = m_cursor->second.comment;
    return 1;
}

int CPlaylistFileMap::GetNextPlayable(std::string& out) {
    if (m_tracks.empty()) return 0;
    auto entry = m_cursor == m_tracks.end() ? m_tracks.begin() : m_cursor;
    for (size_t seen = 0; seen < m_tracks.size(); ++seen) {
        if (entry->second.exists) {
            out = entry->second.path;
            m_cursor = std::next(entry);
            if (m_cursor == m_tracks.end()) m_cursor = m_tracks.begin();
            return 1;
        }
        if (++entry == m_tracks.end()) entry = m_tracks.begin();
    }
    return 0;
}

int CPlaylistFileMap::GetCurrentDisplayName(std::string& out) const {
    if (m_cursor == m_tracks.end() || m_cursor->second.comment.empty()) return 0;
    const std::string& comment = m_cursor->second.comment;
    out = comment.find(kDisplayMarker) != std::string::npos ? DisplayName(comment) : comment;
    return 1;
}

std::string CPlaylistFileMap::DisplayName(const std::string& text) {
    if (text.size() >= kDisplayLead + kDisplayTail) return text.substr(kDisplayLead, text.size() - kDisplayLead - kDisplayTail);
    return text.size() >= kDisplayLead ? text.substr(kDisplayLead) : text;
}
