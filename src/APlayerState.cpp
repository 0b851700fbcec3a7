#include "APlayerState.h"

extern "C" {
#include <libavutil/error.h>
}

#include "CPlayer.h"
#include "Logger.h"

void APlayerState::Process() { m_player->Sleep(CPlayer::kIdleStepMs); }

const char* APlayerState::GetPrefix() const { return m_player->GetPrefix(); }

void APlayerState::ClearInterrupt(bool on_exit_line) {
    if (!m_player->ClearCustomInterrupt()) return;
    if (on_exit_line)
        KLOG_NOTICE("%s  id=%d, state=%s:on_exit(), Custom interrupt cleared!\n", GetPrefix(), m_player->GetPlayerId(),
                    GetName());
    else
        KLOG_NOTICE("%s  id=%d, state=%s, Custom interrupt cleared!\n", GetPrefix(), m_player->GetPlayerId(), GetName());
}

void APlayerState::LogStop() {
    KLOG_NOTICE("%s  id=%d, state=%s, %s :stop.\n", GetPrefix(), m_player->GetPlayerId(), GetName(),
                m_player->GetCurrentTrack());
}

void APlayerState::SwitchToNewItem(const char* operation) {
    m_player->CloseTrack();
    LogStop();
    m_player->OpenPlaylist(Context(operation));
    m_player->SetState(m_player->GetIdle());
}

void APlayerState::StopHere() {
    m_player->SetState(m_player->GetIdle());
    m_player->CloseTrack();
    LogStop();
}

void APlayerState::NextOrIdle(const char* operation) {
    if (m_player->MoveTrackUp(Context(operation), true) == 0)
        m_player->SetState(m_player->GetConnecting());
    else
        m_player->SetState(m_player->GetIdle());
}

void APlayerState::PreviousAndConnect(const char* operation) {
    m_player->MoveTrackDown(Context(operation));
    m_player->SetState(m_player->GetConnecting());
}

void APlayerState::LogFinished(int result, bool eof_is_error) {
    if (result == 0 || (result == AVERROR_EOF && !eof_is_error))
        KLOG_NOTICE("%s  id=%d, state=%s, %s :finished.\n", GetPrefix(), m_player->GetPlayerId(), GetName(),
                    m_player->GetCurrentTrack());
    else
        KLOG_INFO("%s  id=%d, state=%s, %s :finished with errors.\n", GetPrefix(), m_player->GetPlayerId(), GetName(),
                  m_player->GetCurrentTrack());
}
