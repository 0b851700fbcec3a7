#include "CPlayer_state_buffering.h"

#include "CPlayer.h"
#include "Logger.h"

CPlayer_state_buffering::CPlayer_state_buffering(CPlayer* player)
    : APlayerState(player, KorvelPlayer::PLAYER_STATE_BUFFERING, "Player_state_buffering") {}

void CPlayer_state_buffering::on_entry() {
    KLOG_INFO("%s %s URL buffering, setting autofading.\n", GetPrefix(), GetName());
    m_player->SetupStreamAutoFade();
}

void CPlayer_state_buffering::SetNewPlaylist(bool) { SwitchToNewItem("::SetNewPlaylist():"); }

void CPlayer_state_buffering::Stop(bool) { StopHere(); }

void CPlayer_state_buffering::Pause() { Stop(true); }

void CPlayer_state_buffering::PlayNext() {
    m_player->CloseTrack();
    NextOrIdle("::PlayNext():");
}

void CPlayer_state_buffering::PlayPrevious() {
    m_player->CloseTrack();
    PreviousAndConnect("::PlayPrevious():");
}

void CPlayer_state_buffering::Process() {
    const int result = m_player->ProcessTrack();
    if (result > 0) {
        if (!m_player->NeedsBuffering()) m_player->SetState(m_player->GetPlaying());
        return;
    }
    LogFinished(result);
    if (m_player->ClearCustomInterrupt()) {
        KLOG_NOTICE("%s  id=%d, state=%s, %s :stopping becasue of an interrupt.\n", GetPrefix(), m_player->GetPlayerId(),
                    GetName(), m_player->GetCurrentTrack());
        Stop(true);
    } else {
        PlayNext();
    }
}
