#ifndef KORVEL_PLAYERFACTORY_H
#define KORVEL_PLAYERFACTORY_H

#include "IPlayer.h"
#include "PlayerTypes.h"

// How a host program makes, starts and ends players with nothing but the installed headers.
//
// A program's life with the library:
//
//     KorvelPlayer::ScopedRuntime runtime;              // or StartRuntime() ... StopRuntime()
//     KorvelPlayer::IPlayer* player = KorvelPlayer::CreatePlayer();
//     player->SetDelegate(&delegate, player);          // before anything can be notified
//     KorvelPlayer::InitializePlayer(player, init, stream);
//     ... SetItem, SetVolume, FadeIn, ...
//     KorvelPlayer::DeinitializePlayer(player);
//     delete player;
//
// The runtime is one timer thread shared by every player of the process: fades, the fade before a
// track ends and the pause of a reload are all stepped on it. It must run before the first player
// is initialised and keep running until the last one has been deinitialised, because a player's
// timers may fire up to its Deinitialize.
namespace KorvelPlayer {

// Starts the process-wide timer thread; a second call while it runs does nothing.
void StartRuntime();

// Stops the timer thread and forgets every pending timer. Only after the last player has been
// deinitialised: a live player's fades would stop half way and their end would never be reported.
void StopRuntime();

// Starts the runtime for the lifetime of a scope, typically the host's main().
class ScopedRuntime {
public:
    ScopedRuntime() { StartRuntime(); }
    ~ScopedRuntime() { StopRuntime(); }
    ScopedRuntime(const ScopedRuntime&) = delete;
    ScopedRuntime& operator=(const ScopedRuntime&) = delete;
};

// A new player that has not been initialised, or nullptr when memory ran out. The host owns it
// and deletes it through IPlayer's virtual destructor after DeinitializePlayer (a player deleted
// while it runs deinitialises itself first).
IPlayer* CreatePlayer();

// Opens the player's mixer element and outputs (channel<n> and chan_<n> for init.player_id n in
// 1..4, otherwise plug:dmix and Playback) and starts its worker thread. Returns 0, the negative
// code of the step that failed, or -EINVAL for a player that CreatePlayer did not make.
int InitializePlayer(IPlayer* player, const InitParams& init, const StreamParams& stream);

// Stops playback and the worker thread and releases what InitializePlayer opened; the player can
// be initialised again. Returns 0, a negative code, or -EINVAL for a foreign player.
int DeinitializePlayer(IPlayer* player);

}  // namespace KorvelPlayer

#endif
