#ifndef KORVEL_CPLAYER_STATE_CONNECTING_H
#define KORVEL_CPLAYER_STATE_CONNECTING_H

#include "APlayerState.h"

// Opens the selected track: a file goes on to playing, a stream to buffering; a file that fails
// makes way for the next track, a stream that fails for the wait before its retry.
class CPlayer_state_connecting : public APlayerState {
public:
    explicit CPlayer_state_connecting(CPlayer* player);
    void on_entry() override;
    void on_exit() override;
    void SetNewPlaylist(bool interrupt) override;
    void Stop(bool immediately) override;
    void Pause() override;
    void PlayNext() override;
    void PlayPrevious() override;
    void Process() override;

private:
    bool m_open_ok;  // the result of the last opening
};

#endif
