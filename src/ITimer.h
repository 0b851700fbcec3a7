#ifndef KORVEL_ITIMER_H
#define KORVEL_ITIMER_H

#include <cstdint>
#include <ctime>

// Receives the expiries of a timer, on the timer thread, with no timer lock held.
class ITimerEventHandler {
public:
    virtual ~ITimerEventHandler() = default;
    virtual void on_timer(void* data) = 0;
};

// Starts, deletes and restarts millisecond timers served by one thread.
class ITimer {
public:
    virtual ~ITimer() = default;
    // `start` (seconds since the epoch), when not 0, is the first expiry and the origin of the grid.
    virtual uint32_t start_timer(uint64_t interval, ITimerEventHandler& handler, void* data, bool periodic,
                                 time_t start) = 0;
    virtual bool delete_timer(uint32_t id) = 0;
    virtual bool restart_timer(uint32_t id) = 0;
};

#endif
