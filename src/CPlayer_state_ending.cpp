#include "CPlayer_state_ending.h"

#include "CPlayer.h"
#include "Logger.h"

CPlayer_state_ending::CPlayer_state_ending(CPlayer* player)
    : APlayerState(player, KorvelPlayer::PLAYER_STATE_ENDING, "Player_state_ending") {}

// A newer item simply replaces the waiting one unless it interrupts.
void CPlayer_state_ending::SetNewPlaylist(bool interrupt) {
    if (interrupt) SwitchToNewItem("::SetNewPlaylist():");
}

void CPlayer_state_ending::Stop(bool) {
    StopHere();
    m_player->OpenPlaylist(Context("::Stop():"));
}

void CPlayer_state_ending::Pause() {
    StopHere();
    m_player->OpenPlaylist(Context("::Pause():"));
}

void CPlayer_state_ending::PlayNext() { SetNewPlaylist(true); }

void CPlayer_state_ending::PlayPrevious() { SetNewPlaylist(true); }

void CPlayer_state_ending::Process() {
    const int result = m_player->ProcessTrack();
    if (result > 0) return;
    // The end of the file counts as an end with errors here.
    LogFinished(result, true);
    SetNewPlaylist(true);
}
