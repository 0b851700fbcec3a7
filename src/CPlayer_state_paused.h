#ifndef KORVEL_CPLAYER_STATE_PAUSED_H
#define KORVEL_CPLAYER_STATE_PAUSED_H

#include "APlayerState.h"

// A track is open but not read: play resumes it where it stopped, without reopening it.
class CPlayer_state_paused : public APlayerState {
public:
    explicit CPlayer_state_paused(CPlayer* player);
    void on_entry() override;
    void on_exit() override;
    void SetNewPlaylist(bool interrupt) override;
    void Play() override;
    void Stop(bool immediately) override;
    void PlayNext() override;
    void PlayPrevious() override;
};

#endif
