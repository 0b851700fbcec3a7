#ifndef KORVEL_CPLAYER_STATE_PLAYING_H
#define KORVEL_CPLAYER_STATE_PLAYING_H

#include "APlayerState.h"

// Moves the open track packet by packet into the output and moves on when it ends.
class CPlayer_state_playing : public APlayerState {
public:
    explicit CPlayer_state_playing(CPlayer* player);
    void on_entry() override;
    void on_exit() override;
    void SetNewPlaylist(bool interrupt) override;
    void Stop(bool immediately) override;
    void Pause() override;
    void PlayNext() override;
    void PlayPrevious() override;
    void Process() override;

private:
    bool m_stop_at_end;  // a Stop(false) waits for the end of the song
};

#endif
