#ifndef KORVEL_CPLAYER_STATE_ENDING_H
#define KORVEL_CPLAYER_STATE_ENDING_H

#include "APlayerState.h"

// Plays the current song to its end while a new item waits, then opens that item and goes idle.
class CPlayer_state_ending : public APlayerState {
public:
    explicit CPlayer_state_ending(CPlayer* player);
    void SetNewPlaylist(bool interrupt) override;
    void Stop(bool immediately) override;
    void Pause() override;
    void PlayNext() override;
    void PlayPrevious() override;
    void Process() override;
};

#endif
