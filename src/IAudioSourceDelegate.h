#ifndef KORVEL_IAUDIOSOURCEDELEGATE_H
#define KORVEL_IAUDIOSOURCEDELEGATE_H

namespace KorvelPlayer {

// Told when the track being played has been closed.
class IAudioSourceDelegate {
public:
    virtual ~IAudioSourceDelegate() = default;
    virtual void NotifyAudioStreamFinished() = 0;
};

}  // namespace KorvelPlayer

#endif
