#include "CFaderAdapter.h"

#include "CPlayer.h"
#include "Logger.h"

namespace {
constexpr const char* kPrefixTag = " FADER:";
}  // namespace

using KorvelPlayer::FadeRequest;

CFaderAdapter::CFaderAdapter() : CFader(nullptr), m_player(nullptr) {}

void CFaderAdapter::SetPlayer(CPlayer* player) {
    m_player = player;
    SetCallback(player);
}

void CFaderAdapter::set_player_prefix(const char* prefix) { set_tagged_prefix(prefix, kPrefixTag); }

bool CFaderAdapter::check_player(const char* message) const {
    if (m_player == nullptr) return false;
    if (m_player->GetState() == nullptr) KLOG_WARNING(message, GetPrefix());
    return true;
}

void CFaderAdapter::FadeAndStop(uint32_t interval, uint32_t volume) {
    if (!check_player("%s  CFaderAdapter::FadeAndStop(interval,volume) could not start fading. Initialize Player first\n"))
        return;
    if (interval == 0) {
        KLOG_WARNING("%s  CFaderAdapter::FadeAndStop(interval,volume) duration is 0 applying volume level right away and stopping",
                     GetPrefix());
        m_player->SetVolume(static_cast<unsigned short>(volume));
        m_player->Stop(true);
        return;
    }
    FadeRequest request;
    request.duration = interval;
    request.target = volume;
    request.init = static_cast<uint32_t>(m_player->GetVolume());
    request.operation = KorvelPlayer::FADE_OP_STOP;
    m_player->PrepareFader(request);
    KLOG_INFO("%s Requesting fading with Stop at the end ..............\n", GetPrefix());
}

void CFaderAdapter::FadeAndPause(uint32_t interval, uint32_t volume) {
    if (!check_player("%s  CFaderAdapter::FadeAndPause(interval,volume) could not start fading. Initialize Player first\n"))
        return;
    if (interval == 0) {
        KLOG_WARNING("%s  CFaderAdapter::FadeAndPause(interval,volume) duration is 0 applying volume level right away and pausing",
                     GetPrefix());
        m_player->SetVolume(static_cast<unsigned short>(volume));
        m_player->Pause();
        return;
    }
    FadeRequest request;
    request.duration = interval;
    request.target = volume;
    request.init = static_cast<uint32_t>(m_player->GetVolume());
    request.operation = KorvelPlayer::FADE_OP_PAUSE;
    m_player->PrepareFader(request);
    KLOG_INFO("%s Requesting fading with Pause at the end ..............\n", GetPrefix());
}

void CFaderAdapter::FadeAndPlay(uint32_t interval, uint32_t init, uint32_t target) {
    if (!check_player("%s CFaderAdapter::FadeAndPlay(interval,volume) could not start fading. Initialize Player first\n"))
        return;
    if (interval == 0) {
        KLOG_WARNING("%s  CFaderAdapter::FadeAndPlay(interval,volume) duration is 0 applying volume level right away and playing",
                     GetPrefix());
        m_player->SetVolume(static_cast<unsigned short>(target));
        m_player->Play();
        return;
    }
    FadeRequest request;
    request.duration = interval;
    request.target = target;
    request.init = init;
    request.operation = KorvelPlayer::FADE_OP_NONE;
    m_player->PrepareFader(request);
    m_player->PostCommand(CPlayer::kCmdPlayAfterFade);
    KLOG_INFO("%s Requesting fading over Play ..............\n", GetPrefix());
}
