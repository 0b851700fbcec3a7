#ifndef KORVEL_IPLAYERDELEGATE_H
#define KORVEL_IPLAYERDELEGATE_H

#include <string>

#include "PlayerTypes.h"

namespace KorvelPlayer {

// Implemented by the host: receives every notification of a player, on the player's worker thread,
// one at a time, each with the player's current PlaybackInfo.
class IPlayerDelegate {
public:
    virtual ~IPlayerDelegate() = default;
    virtual void NotifyItemPlaybackFinished(const PlaybackInfo& info, const std::string& item) = 0;
    virtual void NotifyTrackPlaybackFinished(const PlaybackInfo& info, const std::string& track, bool partially) = 0;
    virtual void NotifyPlaybackCommandExecuted(const PlaybackInfo& info) = 0;
    virtual void NotifyPlaybackStateChanged(const PlaybackInfo& info, const char* state_name) = 0;
    virtual void NotifyTrackPlaybackStarted(const PlaybackInfo& info, bool last_track) = 0;
    virtual void NotifyItemPlaybackStarted(const PlaybackInfo& info) = 0;
    virtual void NotifyPlaybackItemMissing(const PlaybackInfo& info, const std::string& item) = 0;
    virtual void NotifyPlaybackError(const PlaybackInfo& info, int code) = 0;
    virtual void NotifyPlaybackInfoChanged(const PlaybackInfo& info) = 0;
};

}  // namespace KorvelPlayer

#endif
