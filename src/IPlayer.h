#ifndef KORVEL_IPLAYER_H
#define KORVEL_IPLAYER_H

#include <string>

#include "IFadingCallback.h"
#include "IPlayerDelegate.h"
#include "IPlayerFadingDelegate.h"
#include "PlayerTypes.h"

namespace KorvelPlayer {

// The public face of one player. Calls that change playback post a command and return at once;
// their results reach the host only through the IPlayerDelegate notifications.
class IPlayer : public IFadingCallback {
public:
    ~IPlayer() override = default;

    virtual void FadeAndStop(unsigned interval_ms, unsigned volume) = 0;
    virtual void FadeAndPause(unsigned interval_ms, unsigned volume) = 0;
    virtual void Fade(const FadeRequest& request) = 0;
    virtual void FadeIn(unsigned interval_ms, unsigned volume) = 0;
    virtual void FadeAndPlay(unsigned interval_ms, unsigned init, unsigned target) = 0;
    virtual void ReloadItem() = 0;
    virtual void SetItem(const PlayerItem& item) = 0;
    virtual void PlayPlaylist(const std::string& playlist, bool interrupt, bool shuffle, int volume) = 0;
    virtual void Play() = 0;
    virtual void Play(int song_id) = 0;
    virtual void Stop(bool interrupt) = 0;
    virtual void Pause() = 0;
    virtual void PlayNext() = 0;
    virtual void PlayPrevious() = 0;
    virtual void Reserved1() = 0;
    virtual void Reserved2() = 0;
    virtual void SetShuffle(bool on) = 0;
    virtual void GetPlaybackInfo(PlaybackInfo& info) = 0;
    virtual int GetVolume() = 0;
    virtual void ReloadPlaylist() = 0;
    virtual bool SetVolume(unsigned short percent) = 0;
    virtual bool SetVolume_dB(long dB) = 0;
    // unit 0: percent, 1: dB; no range check.
    virtual void SetVolumeValue(int value, int unit) = 0;
    virtual void Reserved3() = 0;
    virtual void SetRepeatCount(int count) = 0;
    virtual bool IsStream() = 0;
    virtual void SetFadingDelegate(IPlayerFadingDelegate* observer) = 0;
    virtual void SetDelegate(IPlayerDelegate* delegate, IPlayer* player) = 0;
    virtual bool GetErrorText(int code, std::string& text) = 0;
    virtual void GetVersion(std::string& version) = 0;
    virtual bool IsRunning() = 0;
    virtual void SetStreamParams(const StreamParams& params) = 0;
};

}  // namespace KorvelPlayer

#endif
