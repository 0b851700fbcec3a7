#ifndef KORVEL_IFADINGCALLBACK_H
#define KORVEL_IFADINGCALLBACK_H

namespace KorvelPlayer {

// Told by the fader, on the timer thread, when a fading job ends or is aborted.
class IFadingCallback {
public:
    virtual ~IFadingCallback() = default;
    // `operation` points to the ended job's FadeOperation code.
    virtual void EndFadingCallback(const unsigned* operation) = 0;
    // `elapsed`: how long the aborted job had run, in milliseconds.
    virtual void NotifyFadeAborted(long elapsed) = 0;
};

}  // namespace KorvelPlayer

#endif
