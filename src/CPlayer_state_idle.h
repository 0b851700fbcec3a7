#ifndef KORVEL_CPLAYER_STATE_IDLE_H
#define KORVEL_CPLAYER_STATE_IDLE_H

#include "APlayerState.h"

// No track is held: waits for a command. A new item is opened here but only started by Play.
class CPlayer_state_idle : public APlayerState {
public:
    explicit CPlayer_state_idle(CPlayer* player);
    void on_entry() override;
    void on_exit() override;
    void SetNewPlaylist(bool interrupt) override;
    void Play() override;
    void PlayNext() override;
    void PlayPrevious() override;
};

#endif
