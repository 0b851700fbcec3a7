#include "CPlayer_state_playing.h"

#include "CPlayer.h"
#include "Logger.h"

CPlayer_state_playing::CPlayer_state_playing(CPlayer* player)
    : APlayerState(player, KorvelPlayer::PLAYER_STATE_PLAYING, "Player_state_playing"), m_stop_at_end(false) {}

void CPlayer_state_playing::on_entry() {
    m_stop_at_end = false;
    m_player->LoadPlaybackInfo(true);
    if (m_player->IsStreamTrack()) {
        KLOG_NOTICE("%s PLAYBACK CPlayer_state_playing::on_entry(): id=%d, state=%s, starting fading stream. \n",
                    GetPrefix(), m_player->GetPlayerId(), GetName());
        m_player->StartFading();
    } else {
        m_player->SetupTrackAutoFade();
    }
}

void CPlayer_state_playing::on_exit() { ClearInterrupt(true); }

void CPlayer_state_playing::SetNewPlaylist(bool interrupt) {
    if (interrupt)
        SwitchToNewItem("::SetNewPlaylist():");
    else
        m_player->SetState(m_player->GetEnding());
}

void CPlayer_state_playing::Stop(bool immediately) {
    if (immediately) {
        m_player->SetState(m_player->GetIdle());
        m_player->CloseTrack();
        KLOG_INFO("%s CPlayer_state_playing::Stop(): Stopping now.\n", GetPrefix());
        LogStop();
        return;
    }
    m_stop_at_end = true;
    KLOG_INFO("%s CPlayer_state_playing::Stop(): Requesting a Stop at song end.\n", GetPrefix());
}

void CPlayer_state_playing::Pause() {
    m_player->SetState(m_player->GetPaused());
    KLOG_NOTICE("%s  id=%d, state=%s, %s :paused.\n", GetPrefix(), m_player->GetPlayerId(), GetName(),
                m_player->GetCurrentTrack());
}

void CPlayer_state_playing::PlayNext() {
    m_player->CloseTrack();
    NextOrIdle("::PlayNext():");
}

void CPlayer_state_playing::PlayPrevious() {
    m_player->CloseTrack();
    PreviousAndConnect("::PlayPrevious():");
}

void CPlayer_state_playing::Process() {
    const int result = m_player->ProcessTrack();
    if (result <= 0) {
        LogFinished(result);
        if (m_stop_at_end) {
            m_stop_at_end = false;
            KLOG_INFO("%s CPlayer_state_playing::Process(): Stopping at song end.\n", GetPrefix());
            m_player->SetState(m_player->GetIdle());
            m_player->CloseTrack();
            // The next start begins with the following track.
            m_player->MoveTrackUp(Context("::Process():"), true);
            LogStop();
        } else if (m_player->ClearCustomInterrupt()) {
            KLOG_NOTICE("%s  id=%d, state=%s, %s :stopping because of an interrupt.\n", GetPrefix(),
                        m_player->GetPlayerId(), GetName(), m_player->GetCurrentTrack());
            Stop(true);
        } else {
            KLOG_NOTICE("%s \nGoing to the next ......\n\n", GetPrefix());
            PlayNext();
        }
    }
    // Only while this state still plays: a track that ended may have sent the player idle already.
    if (m_player->GetState() == this && m_player->NeedsBuffering()) {
        m_player->SetState(m_player->GetBuffering());
        m_player->NotifyAudioStreamFinished();
    }
}
