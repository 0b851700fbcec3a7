#include "CPlayer_state_connecting.h"

#include "CPlayer.h"
#include "Logger.h"

CPlayer_state_connecting::CPlayer_state_connecting(CPlayer* player)
    : APlayerState(player, KorvelPlayer::PLAYER_STATE_CONNECTING, "Player_state_connecting"), m_open_ok(false) {}

void CPlayer_state_connecting::on_entry() {
    m_player->ResetSourceTrackInfo();
    if (m_player->GetTrackCount() >= 1) {
        m_player->LoadPlaybackInfo(false);
        return;
    }
    KLOG_INFO("%s  id=%d, state=%s, CPlayer_state_connecting::on_entry(): item with 0 tracks in use! Switching back to idle.\n",
              GetPrefix(), m_player->GetPlayerId(), GetName());
    m_player->LoadPlaybackInfo(true);
    m_player->SetState(m_player->GetIdle());
}

void CPlayer_state_connecting::on_exit() { ClearInterrupt(); }

void CPlayer_state_connecting::SetNewPlaylist(bool) { SwitchToNewItem("::SetNewPlaylist():"); }

void CPlayer_state_connecting::Stop(bool) { StopHere(); }

void CPlayer_state_connecting::Pause() { Stop(true); }

// The next Process opens the newly selected track.
void CPlayer_state_connecting::PlayNext() {
    m_player->CloseTrack();
    if (m_player->MoveTrackUp(Context("::PlayNext():"), true) == 0)
        m_player->LoadPlaybackInfo(false);
    else
        m_player->SetState(m_player->GetIdle());
}

void CPlayer_state_connecting::PlayPrevious() {
    m_player->CloseTrack();
    m_player->MoveTrackDown(Context("::PlayPrevious():"));
    m_player->LoadPlaybackInfo(false);
}

void CPlayer_state_connecting::Process() {
    m_open_ok = m_player->OpenTrack(Context("::Process():")) != 0;
    if (m_open_ok) {
        if (m_player->IsStreamTrack()) {
            m_player->SetState(m_player->GetBuffering());
        } else {
            m_player->LoadTrackDuration();
            m_player->SetState(m_player->GetPlaying());
        }
        return;
    }
    // An item with nothing to open has already sent the player idle.
    if (m_player->GetState() != this) return;
    KLOG_NOTICE("%s  id=%d, state=%s, OpenTrack() for %s finished with errors.\n", GetPrefix(), m_player->GetPlayerId(),
                GetName(), m_player->GetCurrentTrack());
    if (m_player->IsStreamTrack()) {
        KLOG_INFO("%s %s::Process(): Changing to Retry state for URL %s.\n", GetPrefix(), GetName(),
                  m_player->GetCurrentTrack());
        m_player->SetState(m_player->GetWait());
    } else {
        PlayNext();
    }
}
