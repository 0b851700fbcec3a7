#include "CPlayer_state_paused.h"

#include "CPlayer.h"

CPlayer_state_paused::CPlayer_state_paused(CPlayer* player)
    : APlayerState(player, KorvelPlayer::PLAYER_STATE_PAUSED, "Player_state_paused") {}

void CPlayer_state_paused::on_entry() { ClearInterrupt(); }

void CPlayer_state_paused::on_exit() { ClearInterrupt(true); }

void CPlayer_state_paused::SetNewPlaylist(bool) { SwitchToNewItem("::SetNewPlaylist():"); }

// The open track goes on where it stopped; nothing is reopened.
void CPlayer_state_paused::Play() {
    m_player->StartAudio();
    m_player->SetState(m_player->GetPlaying());
    m_player->LoadPlaybackInfo(false);
}

void CPlayer_state_paused::Stop(bool) { StopHere(); }

void CPlayer_state_paused::PlayNext() {
    m_player->CloseTrack();
    LogStop();
    NextOrIdle("::PlayNext():");
}

void CPlayer_state_paused::PlayPrevious() {
    m_player->CloseTrack();
    LogStop();
    PreviousAndConnect("::PlayPrevious():");
}
