#include "PlayerTypes.h"

#include <cstdlib>

namespace KorvelPlayer {

namespace {
constexpr int kFirstErrorCode = 1000;
constexpr const char* kErrorTexts[] = {
    "EPLAYER_OPEN_ITEM: Failed to open/parse a playback item.",
    "EPLAYER_OPEN_TRACKFILE: Failed to open a track file.",
    "EPLAYER_OPEN_URL: URL not reachable.",
    "EPLAYER_PROCESS_BUFFER: Error detected while reading/decoding audio buffer. Details to be found in syslog.",
    "EPLAYER_SOURCE_TIMEOUT: Audio source timeout detected.",
    "EPLAYER_SET_VOLUME: Error encountered during volume setting.",
    "EPLAYER_PCMAUDIO_OUT: Audio PCM interface error.",
    "EPLAYER_ITEM_NOT_PLAYABLE: All tracks in playlist or item failed to open.",
    "EPLAYER_STREAM_LOW_BUFFER_REACHED: Stream is runnig out of buffer.",
};
constexpr int kErrorTextCount = static_cast<int>(sizeof kErrorTexts / sizeof kErrorTexts[0]);

constexpr const char* kStateNames[kPlayerStateCount] = {
    "Player_state_idle",       "Player_state_playing",   "Player_state_paused", "Player_state_ending",
    "Player_state_connecting", "Player_state_buffering", "Player_state_wait",
};
}  // namespace

bool GetErrorText(int code, std::string& text) {
    // abs(INT_MIN) is undefined; such a code is far outside the table anyway.
    if (code < -kFirstErrorCode - kErrorTextCount || code > kFirstErrorCode + kErrorTextCount) return false;
    const int index = std::abs(code) - kFirstErrorCode;
    if (index < 0 || index >= kErrorTextCount) return false;
    text = kErrorTexts[index];
    return true;
}

const char* GetStateName(int state_id) {
    if (state_id < 0 || state_id >= kPlayerStateCount) return "";
    return kStateNames[state_id];
}

}  // namespace KorvelPlayer
