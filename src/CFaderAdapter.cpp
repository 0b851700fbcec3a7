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

// The ramp from the player's current volume to `volume`, then `operation`; without time, the volume
// at once and `now` (the player's stop or pause).
void CFaderAdapter::fade_then(uint32_t interval, uint32_t volume, uint32_t operation, const Texts& texts,
                              void (CFaderAdapter::*now)()) {
    if (!check_player(texts.uninitialised)) return;
    if (interval == 0) {
        KLOG_WARNING(texts.at_once, GetPrefix());
        m_player->SetVolume(static_cast<unsigned short>(volume));
        (this->*now)();
        return;
    }
    FadeRequest request;
    request.duration = interval;
    request.target = volume;
    request.init = static_cast<uint32_t>(m_player->GetVolume());
    request.operation = operation;
    m_player->PrepareFader(request);
    KLOG_INFO(texts.requested, GetPrefix());
}

void CFaderAdapter::stop_now() { m_player->Stop(true); }

void CFaderAdapter::pause_now() { m_player->Pause(); }

void CFaderAdapter::FadeAndStop(uint32_t interval, uint32_t volume) {
    static const Texts texts{
        "%s  CFaderAdapter::FadeAndStop(interval,volume) could not start fading. Initialize Player first\n",
        "%s  CFaderAdapter::FadeAndStop(interval,volume) duration is 0 applying volume level right away and stopping",
        "%s Requesting fading with Stop at the end ..............\n"};
    fade_then(interval, volume, KorvelPlayer::FADE_OP_STOP, texts, &CFaderAdapter::stop_now);
}

void CFaderAdapter::FadeAndPause(uint32_t interval, uint32_t volume) {
    static const Texts texts{
        "%s  CFaderAdapter::FadeAndPause(interval,volume) could not start fading. Initialize Player first\n",
        "%s  CFaderAdapter::FadeAndPause(interval,volume) duration is 0 applying volume level right away and pausing",
        "%s Requesting fading with Pause at the end ..............\n"};
    fade_then(interval, volume, KorvelPlayer::FADE_OP_PAUSE, texts, &CFaderAdapter::pause_now);
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
