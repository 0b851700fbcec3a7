#ifndef KORVEL_EVENT_H
#define KORVEL_EVENT_H

#include <cstdint>
#include <ctime>
#include <pthread.h>

#include "mutex.h"

namespace utils {

// A condition with a remembered signalled state: puts a thread to sleep until another wakes it, and
// does not lose a wake-up that arrives before the sleep (except pulse(), which wakes only sleepers).
// In broadcast mode set() wakes every waiter and leaves the state set; otherwise it wakes one
// waiter, which clears the state. All fields are guarded by the event's own lock.
class event : private mutex {
public:
    // The clock of every deadline: waits, the timer grid and the fader do not follow wall-clock steps.
    static constexpr clockid_t kWaitClock = CLOCK_MONOTONIC;
    static constexpr uint64_t kInfinite = 0xFFFFFFFFu;
    static constexpr int kTimedOut = 110;  // ETIMEDOUT

    explicit event(bool broadcast = false, bool signaled = false);
    ~event() override;

    void set();
    void pulse();
    void reset();
    // 0 when woken or already signalled, kTimedOut when the time ran out, else the wait's error.
    int wait(uint64_t timeout_ms);
    // The same against an absolute deadline on kWaitClock.
    int wait(const timespec& deadline);

private:
    int wait_locked(const timespec* deadline);
    void wake_locked();

    pthread_cond_t m_cond;   // guarded by the event's lock
    bool m_broadcast;        // fixed at construction
    bool m_signaled;         // guarded by the event's lock
    uint64_t m_generation;   // guarded by the event's lock; counts set() and pulse() calls
};

// The kWaitClock time `ms` milliseconds from now, as waits and timers take it.
timespec deadline_after_ms(uint64_t ms);

}  // namespace utils

#endif
