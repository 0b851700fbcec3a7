#include "PlayerFactory.h"

#include <cerrno>
#include <new>

#include "CPlayer.h"
#include "CTimer.h"
#include "Logger.h"

namespace KorvelPlayer {

namespace {
// Hosts hold players as IPlayer only; anything else passed in is refused rather than trusted.
CPlayer* AsPlayer(IPlayer* player, const char* caller) {
    auto* own = dynamic_cast<CPlayer*>(player);
    if (own == nullptr)
        KLOG_ERROR("PLAYBACK : ERROR :%s(): not a player made by CreatePlayer\n", caller);
    return own;
}
}  // namespace

void StartRuntime() { utils::CTimer::instance().start_thread(); }

void StopRuntime() { utils::CTimer::instance().shutdown(); }

IPlayer* CreatePlayer() { return new (std::nothrow) CPlayer(); }

int InitializePlayer(IPlayer* player, const InitParams& init, const StreamParams& stream) {
    CPlayer* own = AsPlayer(player, "InitializePlayer");
    return own != nullptr ? own->Initialize(init, stream) : -EINVAL;
}

int DeinitializePlayer(IPlayer* player) {
    CPlayer* own = AsPlayer(player, "DeinitializePlayer");
    return own != nullptr ? own->Deinitialize() : -EINVAL;
}

}  // namespace KorvelPlayer
