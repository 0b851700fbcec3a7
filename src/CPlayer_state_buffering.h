#ifndef KORVEL_CPLAYER_STATE_BUFFERING_H
#define KORVEL_CPLAYER_STATE_BUFFERING_H

#include "APlayerState.h"

// Reads a stream into the buffered output until it has reached its delay, then plays.
class CPlayer_state_buffering : public APlayerState {
public:
    explicit CPlayer_state_buffering(CPlayer* player);
    void on_entry() override;
    void SetNewPlaylist(bool interrupt) override;
    void Stop(bool immediately) override;
    void Pause() override;
    void PlayNext() override;
    void PlayPrevious() override;
    void Process() override;
};

#endif
