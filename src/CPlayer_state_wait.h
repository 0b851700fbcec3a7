#ifndef KORVEL_CPLAYER_STATE_WAIT_H
#define KORVEL_CPLAYER_STATE_WAIT_H

#include "APlayerState.h"

#include <ctime>

// Holds a stream that could not be opened for one to two seconds, then retries it, for as long as no
// command says otherwise.
class CPlayer_state_wait : public APlayerState {
public:
    static constexpr int kRetrySeconds = 1;

    explicit CPlayer_state_wait(CPlayer* player);
    void on_entry() override;
    void SetNewPlaylist(bool interrupt) override;
    void Play() override;
    void Stop(bool immediately) override;
    void Pause() override;
    void PlayNext() override;
    void PlayPrevious() override;
    void Process() override;

private:
    int m_timeout_s;
    time_t m_start;  // monotonic second at which the wait began
};

#endif
