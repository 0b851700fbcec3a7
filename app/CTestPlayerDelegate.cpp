#include "CTestPlayerDelegate.h"

#include <cstdio>

#include "PlayerTypes.h"

using KorvelPlayer::PlaybackInfo;

CTestPlayerDelegate::CTestPlayerDelegate(const std::string& status_path)
    : m_item_finished(false), m_last_error(0), m_status(status_path) {}

void CTestPlayerDelegate::NotifyItemPlaybackFinished(const PlaybackInfo&, const std::string& item) {
    std::printf("\nCTestPlayerDelegate::NotifyItemPlaybackFinished(%s) received\n", item.c_str());
    m_item_finished = true;
}

void CTestPlayerDelegate::NotifyTrackPlaybackFinished(const PlaybackInfo& info, const std::string& track,
                                                      bool partially) {
    std::printf("\nCTestPlayerDelegate::NotifyTrackPlaybackFinished(%s) received\n", track.c_str());
    if (partially) std::printf("CTestPlayerDelegate::NotifyTrackPlaybackFinished(%s): partialy played.\n", track.c_str());
    PrintPlaybackInfo(info, false);
    std::printf("\n");
}

void CTestPlayerDelegate::NotifyPlaybackCommandExecuted(const PlaybackInfo& info) {
    std::printf("\nCTestPlayerDelegate::NotifyPlaybackCommandExecuted() received\n");
    PrintPlaybackInfo(info, false);
}

void CTestPlayerDelegate::NotifyPlaybackStateChanged(const PlaybackInfo& info, const char* state_name) {
    std::printf("\nCTestPlayerDelegate::NotifyPlaybackStateChanged(): New state is %d, name is %s\n",
                info.m_player_state, state_name != nullptr ? state_name : "");
    PrintPlaybackInfo(info, false);
}

void CTestPlayerDelegate::NotifyTrackPlaybackStarted(const PlaybackInfo& info, bool) {
    std::printf("\nCTestPlayerDelegate::NotifyTrackPlaybackStarted() for %s received\n", info.m_curr_song_name.c_str());
    PrintPlaybackInfo(info, false);
}

void CTestPlayerDelegate::NotifyItemPlaybackStarted(const PlaybackInfo& info) {
    std::printf("\nCTestPlayerDelegate::NotifyItemPlaybackStarted() received\n");
    PrintPlaybackInfo(info, false);
    m_item_finished = false;
}

void CTestPlayerDelegate::NotifyPlaybackItemMissing(const PlaybackInfo&, const std::string& item) {
    std::printf("\nCTestPlayerDelegate::NotifyPlaybackItemMissing(%s) received\n", item.c_str());
}

void CTestPlayerDelegate::NotifyPlaybackError(const PlaybackInfo& info, int code) {
    std::string text;
    KorvelPlayer::GetErrorText(code, text);  // an unknown code leaves the text empty
    std::printf("\nCTestPlayerDelegate::NotifyPlaybackError, state - %d, id request = %d, error code (%d):\"%s\" "
                "for item={%s}/track={%s} received\n",
                info.m_player_state, info.m_request_id, code, text.c_str(), info.m_curr_music_file.c_str(),
                info.m_curr_song_name.c_str());
    m_last_error = code;
    PrintPlaybackInfo(info, true);
}

// For whoever reads the console a new stream title is a new item starting, so it gets the same line.
void CTestPlayerDelegate::NotifyPlaybackInfoChanged(const PlaybackInfo& info) {
    std::printf("\nCTestPlayerDelegate::NotifyItemPlaybackStarted() received\n");
    PrintPlaybackInfo(info, false);
}

void CTestPlayerDelegate::PrintPlaybackInfo(const PlaybackInfo& info, bool error) {
    std::printf("Song is --<%s>--, Playlist is --<%s>--, album is --<%s>--, artist is --<%s>--\n",
                info.m_curr_song_name.c_str(), info.m_playlist_name.c_str(), info.m_album_name.c_str(),
                info.m_artist_name.c_str());
    std::printf("CTestPlayerDelegate::PrintPlaybackInfo():[ m_album_name=%s\t", info.m_album_name.c_str());
    std::printf("m_artist_name=%s\t", info.m_artist_name.c_str());
    std::printf("m_curr_music_file=%s", info.m_curr_music_file.c_str());
    std::printf("m_curr_volume=%d\n", info.m_curr_volume);
    std::printf("m_next_music_file=%s\t", info.m_next_music_file.c_str());
    std::printf("m_player_state=%d\t", info.m_player_state);
    std::printf("m_playlist_name=%s\t", info.m_playlist_name.c_str());
    std::printf("m_song_id=%d ]\n", info.m_song_id);
    std::printf("CNT=%d ]\n", info.m_cnt);
    // Readers of the file cope with it missing (an unwritable directory); the console says enough.
    m_status.Write(info.m_player_state, info.m_curr_song_name, info.m_playlist_name, error, m_last_error);
}
