#include "CPlayer_state_idle.h"

#include "CPlayer.h"

CPlayer_state_idle::CPlayer_state_idle(CPlayer* player)
    : APlayerState(player, KorvelPlayer::PLAYER_STATE_IDLE, "Player_state_idle") {}

void CPlayer_state_idle::on_entry() {
    ClearInterrupt();
    m_player->ClearPlaybackInfo(true);
}

void CPlayer_state_idle::on_exit() { ClearInterrupt(); }

void CPlayer_state_idle::SetNewPlaylist(bool) { m_player->OpenPlaylist(Context("::SetNewPlaylist():")); }

void CPlayer_state_idle::Play() { m_player->SetState(m_player->GetConnecting()); }

void CPlayer_state_idle::PlayNext() {
    if (m_player->MoveTrackUp(Context("::PlayNext():"), true) == 0) m_player->SetState(m_player->GetConnecting());
}

void CPlayer_state_idle::PlayPrevious() { PreviousAndConnect("::PlayPrevious():"); }
