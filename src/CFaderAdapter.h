#ifndef KORVEL_CFADERADAPTER_H
#define KORVEL_CFADERADAPTER_H

#include <cstdint>

#include "CFader.h"

class CPlayer;

// The player's fader: turns the host's "fade, then stop / pause / play" requests into fading jobs of
// its player, or applies the volume at once when no time is given. Called on host threads.
class CFaderAdapter : public CFader {
public:
    CFaderAdapter();

    void SetPlayer(CPlayer* player);
    void set_player_prefix(const char* prefix) override;

    void FadeAndStop(uint32_t interval, uint32_t volume);
    void FadeAndPause(uint32_t interval, uint32_t volume);
    void FadeAndPlay(uint32_t interval, uint32_t init, uint32_t target);

private:
    // The log lines of one kind of fade.
    struct Texts {
        const char* uninitialised;
        const char* at_once;
        const char* requested;
    };

    // False (after the warning) when there is no player; warns, but goes on, before Initialize.
    bool check_player(const char* message) const;
    void fade_then(uint32_t interval, uint32_t volume, uint32_t operation, const Texts& texts,
                   void (CFaderAdapter::*now)());
    void stop_now();
    void pause_now();

    CPlayer* m_player;  // set once, before the player's worker starts
};

#endif
