#ifndef KORVEL_BENCH_QUIETDELEGATE_H
#define KORVEL_BENCH_QUIETDELEGATE_H

#include <string>

#include "IPlayerDelegate.h"

// A delegate that hears every notification and does nothing with it: the benchmarks override the
// few they measure.
class QuietDelegate : public KorvelPlayer::IPlayerDelegate {
public:
    void NotifyItemPlaybackFinished(const KorvelPlayer::PlaybackInfo&, const std::string&) override {}
    void NotifyTrackPlaybackFinished(const KorvelPlayer::PlaybackInfo&, const std::string&, bool) override {}
    void NotifyPlaybackCommandExecuted(const KorvelPlayer::PlaybackInfo&) override {}
    void NotifyPlaybackStateChanged(const KorvelPlayer::PlaybackInfo&, const char*) override {}
    void NotifyTrackPlaybackStarted(const KorvelPlayer::PlaybackInfo&, bool) override {}
    void NotifyItemPlaybackStarted(const KorvelPlayer::PlaybackInfo&) override {}
    void NotifyPlaybackItemMissing(const KorvelPlayer::PlaybackInfo&, const std::string&) override {}
    void NotifyPlaybackError(const KorvelPlayer::PlaybackInfo&, int) override {}
    void NotifyPlaybackInfoChanged(const KorvelPlayer::PlaybackInfo&) override {}
};

#endif
