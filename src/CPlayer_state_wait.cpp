#include "CPlayer_state_wait.h"

#include "CPlayer.h"
#include "CTimeout_handler.h"
#include "Logger.h"

CPlayer_state_wait::CPlayer_state_wait(CPlayer* player)
    : APlayerState(player, KorvelPlayer::PLAYER_STATE_WAIT, "Player_state_wait"), m_timeout_s(kRetrySeconds), m_start(0) {}

void CPlayer_state_wait::on_entry() {
    KLOG_NOTICE("%s  id=%d, state=%s, resetting timeout", GetPrefix(), m_player->GetPlayerId(), GetName());
    m_start = CTimeout_handler::monotonic_seconds(nullptr);
}

// Whole seconds and a strict comparison: the retry comes one to two seconds after the failure.
void CPlayer_state_wait::Process() {
    if (CTimeout_handler::monotonic_seconds(nullptr) - m_start > m_timeout_s) {
        KLOG_NOTICE("%s  id=%d, state=%s, %ds timeout occurred.\n", GetPrefix(), m_player->GetPlayerId(), GetName(),
                    m_timeout_s);
        m_player->SetState(m_player->GetConnecting());
        return;
    }
    APlayerState::Process();
}

void CPlayer_state_wait::Play() {
    KLOG_INFO("%s %s::Play() : id=%d, state=%s, %s , Moving to connecting state .\n", GetPrefix(), GetName(),
              m_player->GetPlayerId(), GetName(), m_player->GetCurrentTrack());
    m_player->SetState(m_player->GetConnecting());
}

void CPlayer_state_wait::Stop(bool) { StopHere(); }

void CPlayer_state_wait::Pause() { Stop(true); }

void CPlayer_state_wait::SetNewPlaylist(bool) {
    m_player->CloseTrack();
    m_player->OpenPlaylist(Context("::SetNewPlaylist():"));
    m_player->SetState(m_player->GetIdle());
}

void CPlayer_state_wait::PlayNext() {
    m_player->CloseTrack();
    NextOrIdle("::PlayNext():");
}

void CPlayer_state_wait::PlayPrevious() {
    m_player->CloseTrack();
    PreviousAndConnect("::PlayPrevious():");
}
