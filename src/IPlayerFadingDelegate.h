#ifndef KORVEL_IPLAYERFADINGDELEGATE_H
#define KORVEL_IPLAYERFADINGDELEGATE_H

#include "PlayerTypes.h"

namespace KorvelPlayer {

// Optional observer of fade ends and automatic track fade-ins.
class IPlayerFadingDelegate {
public:
    virtual ~IPlayerFadingDelegate() = default;
    virtual void NotifyFadeEnded(const PlaybackInfo& info, bool is_stream, const unsigned* operation) = 0;
    virtual void NotifyTrackFadeIn(const PlaybackInfo& info) = 0;
};

}  // namespace KorvelPlayer

#endif
