#ifndef KORVEL_PLAYERTYPES_H
#define KORVEL_PLAYERTYPES_H

#include <cstdint>
#include <string>

// The records, ids and codes that cross the player's public interface.
namespace KorvelPlayer {

class IPlayer;

// What IPlayer::GetVersion reports.
constexpr const char* kPlayerVersion = "player vb5.00fb";

// Player error codes, reported through IPlayerDelegate::NotifyPlaybackError.
enum PlayerError : int {
    EPLAYER_OPEN_ITEM = -1000,
    EPLAYER_OPEN_TRACKFILE = -1001,
    EPLAYER_OPEN_URL = -1002,
    EPLAYER_PROCESS_BUFFER = -1003,
    EPLAYER_SOURCE_TIMEOUT = -1004,
    EPLAYER_SET_VOLUME = -1005,
    EPLAYER_PCMAUDIO_OUT = -1006,
    EPLAYER_ITEM_NOT_PLAYABLE = -1007,
    EPLAYER_STREAM_LOW_BUFFER_REACHED = -1008,
};

// The text of an error code; codes 1000..1008 find the same text as -1000..-1008. False, with
// `text` unchanged, for any other code.
bool GetErrorText(int code, std::string& text);

// Player state ids, as reported in PlaybackInfo::m_player_state.
enum PlayerStateId : int {
    PLAYER_STATE_IDLE = 0,
    PLAYER_STATE_PLAYING = 1,
    PLAYER_STATE_PAUSED = 2,
    PLAYER_STATE_ENDING = 3,
    PLAYER_STATE_CONNECTING = 4,
    PLAYER_STATE_BUFFERING = 5,
    PLAYER_STATE_WAIT = 6,
};
constexpr int kPlayerStateCount = 7;

// "Player_state_idle" … "Player_state_wait"; "" for an unknown id.
const char* GetStateName(int state_id);

// What happens when a fading job ends.
enum FadeOperation : uint32_t {
    FADE_OP_NONE = 0,
    FADE_OP_PAUSE = 1,
    FADE_OP_STOP = 2,
    FADE_OP_RECONNECT = 3,
    FADE_OP_STOP_TIMEOUT = 4,
    FADE_OP_PLAY = 5,
    FADE_OP_WAIT = 6,
};

// One fading job; all times in milliseconds, volumes in percent.
struct FadeRequest {
    uint32_t wait = 0;
    uint32_t duration = 0;
    uint32_t target = 0;
    uint32_t init = 0;
    uint32_t operation = FADE_OP_NONE;
};

// What a network source sends with its requests.
struct NetworkOptions {
    std::string user_agent;
    std::string headers;
};

// Buffering and fading parameters, all times in milliseconds.
struct StreamParams {
    static constexpr uint16_t kDefaultRtpDelay = 500;
    static constexpr uint16_t kDefaultRtpAccuracy = 50;
    static constexpr uint16_t kDefaultRtpLowThreshold = 500;
    static constexpr uint16_t kDefaultTcpDelay = 10000;
    static constexpr uint16_t kDefaultTcpAccuracy = 8000;
    static constexpr uint16_t kDefaultTcpLowThreshold = 1000;
    static constexpr uint32_t kDefaultStreamFade = 1000;
    static constexpr int32_t kDefaultTrackFadeMargin = 1000;

    uint16_t rtp_delay = kDefaultRtpDelay;
    uint16_t rtp_accuracy = kDefaultRtpAccuracy;
    uint16_t rtp_low_threshold = kDefaultRtpLowThreshold;
    uint16_t tcp_delay = kDefaultTcpDelay;
    uint16_t tcp_accuracy = kDefaultTcpAccuracy;
    uint16_t tcp_low_threshold = kDefaultTcpLowThreshold;
    uint32_t stream_fade = kDefaultStreamFade;
    int32_t track_fade_margin = kDefaultTrackFadeMargin;
    NetworkOptions network;
};

// The playback item handed to IPlayer::SetItem.
struct PlayerItem {
    std::string name;
    bool shuffle = false;
    bool interrupt = false;
    bool option = false;
    int32_t repeat_count = 0;
    int32_t volume = 0;
    int32_t request_id = 0;
    bool auto_fade_streams = false;
    bool auto_fade_tracks = false;
};

// Argument of CPlayer::Initialize.
struct InitParams {
    int player_id = -1;
    std::string playlist_dir;
    std::string media_dir;
    std::string prefix;
};

// A snapshot of what the player does, handed to every notification.
struct PlaybackInfo {
    std::string m_playlist_name;
    std::string m_curr_music_file;
    std::string m_next_music_file;
    std::string m_curr_song_name;
    std::string m_next_song_name;
    std::string m_artist_name;
    std::string m_album_name;
    std::string m_playlist_digest;
    int16_t m_curr_volume = 0;
    int m_player_state = PLAYER_STATE_IDLE;
    int m_song_id = -1;
    int m_cnt = 0;         // remaining repeat count of the item; -1 repeats without end
    int m_request_id = 0;  // request_id of the item being played
    IPlayer* m_player = nullptr;
    uint64_t m_format_extra = 0;
    int m_format_value = 0;
};

}  // namespace KorvelPlayer

#endif
