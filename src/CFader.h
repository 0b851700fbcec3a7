#ifndef KORVEL_CFADER_H
#define KORVEL_CFADER_H

#include <cstdint>
#include <ctime>

#include "APlayerInfoAdapter.h"
#include "IFadingCallback.h"
#include "ITimer.h"
#include "PlayerTypes.h"
#include "mutex.h"

class CVolumeControlAdapter;

// Ramps the mixer volume linearly from a start to a target value in 50 ms steps on the shared timer
// thread, or waits a given time, and then tells its owner which operation (stop, pause, nothing…)
// is to follow. Set up and aborted from the worker or host threads; stepped on the timer thread.
// Lock order: the fader's lock may be held while the owner's callback takes the owner's lock, so the
// owner never calls the fader with its own lock held.
class CFader : public ITimerEventHandler, public APlayerInfoAdapter {
public:
    static constexpr uint64_t kStepMs = 50;
    static constexpr int kStateWaiting = 0;
    static constexpr int kStateFading = 1;
    static constexpr int kStateIdle = 2;

    explicit CFader(CVolumeControlAdapter* volume);
    ~CFader() override;
    CFader(const CFader&) = delete;
    CFader& operator=(const CFader&) = delete;

    void on_timer(void* data) override;

    void SetVolumeControl(CVolumeControlAdapter* volume);
    void SetCallback(KorvelPlayer::IFadingCallback* callback);
    // Loads a job and applies its start volume (except for a wait); nothing runs until a Start call.
    void Setup(const KorvelPlayer::FadeRequest& request);
    void StartWaiting();
    void StartFadingNow();
    // 1 when a job was broken off (its target applied, its end operation still delivered unless it
    // was a wait), 0 when the fader was idle.
    int Abort();
    void CancelTimer();
    // Stops stepping and waits until a step in progress has returned, so that the volume control and
    // the callback may go. Not from the timer thread.
    void Shutdown();

    int GetState() const;
    KorvelPlayer::FadeRequest GetRequest() const;

private:
    // Milliseconds since m_start on the wait clock.
    uint32_t elapsed_ms() const;
    void start_timer_locked();

    uint32_t m_timer_id;                      // guarded by m_lock
    mutable utils::mutex m_lock;
    KorvelPlayer::FadeRequest m_params;       // guarded by m_lock
    timespec m_start;                         // guarded by m_lock
    int m_delta;                              // guarded by m_lock
    int m_state;                              // guarded by m_lock
    uint32_t m_elapsed_ms;                    // guarded by m_lock
    CVolumeControlAdapter* m_volume;          // guarded by m_lock
    KorvelPlayer::IFadingCallback* m_callback;  // guarded by m_lock
};

#endif
