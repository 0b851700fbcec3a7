#ifndef VENDRA_CTESTPLAYERDELEGATE_H
#define VENDRA_CTESTPLAYERDELEGATE_H

#include <string>

#include "CStatusFile.h"
#include "IPlayerDelegate.h"

// The program's view of its player: prints every notification with the whole playback information to
// the console and keeps the status file up to date for the other processes of the device.
// All notifications arrive on the player's worker thread, one at a time, so no member needs a lock.
class CTestPlayerDelegate : public KorvelPlayer::IPlayerDelegate {
public:
    explicit CTestPlayerDelegate(const std::string& status_path);

    void NotifyItemPlaybackFinished(const KorvelPlayer::PlaybackInfo& info, const std::string& item) override;
    void NotifyTrackPlaybackFinished(const KorvelPlayer::PlaybackInfo& info, const std::string& track,
                                     bool partially) override;
    void NotifyPlaybackCommandExecuted(const KorvelPlayer::PlaybackInfo& info) override;
    void NotifyPlaybackStateChanged(const KorvelPlayer::PlaybackInfo& info, const char* state_name) override;
    void NotifyTrackPlaybackStarted(const KorvelPlayer::PlaybackInfo& info, bool last_track) override;
    void NotifyItemPlaybackStarted(const KorvelPlayer::PlaybackInfo& info) override;
    void NotifyPlaybackItemMissing(const KorvelPlayer::PlaybackInfo& info, const std::string& item) override;
    void NotifyPlaybackError(const KorvelPlayer::PlaybackInfo& info, int code) override;
    void NotifyPlaybackInfoChanged(const KorvelPlayer::PlaybackInfo& info) override;

private:
    // Prints `info` and rewrites the status file, with the last error code when `error` is set.
    void PrintPlaybackInfo(const KorvelPlayer::PlaybackInfo& info, bool error);

    bool m_item_finished;  // worker thread only
    int m_last_error;      // worker thread only
    CStatusFile m_status;  // worker thread only
};

#endif
