#ifndef KORVEL_CTIMER_H
#define KORVEL_CTIMER_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <utility>

#include "CThread.h"
#include "ITimer.h"
#include "mutex.h"

namespace utils {

// The one process-wide timer thread. It serves any number of one-shot and periodic timers with
// millisecond intervals; periodic timers fire on a fixed grid (origin + n * interval), so a slow
// handler delays other expiries but never moves a grid. Handlers run on the timer thread without
// the schedule's lock, and may start, delete or restart timers, their own included.
class CTimer : public CThread, public ITimer, private mutex {
public:
    static constexpr uint64_t kMinIntervalMs = 10;
    static constexpr uint32_t kStopTimeoutMs = 100;

    static CTimer& instance();

    void start_thread();
    void shutdown();

    void run(void* arg) override;
    uint32_t start_timer(uint64_t interval, ITimerEventHandler& handler, void* data, bool periodic,
                         time_t start) override;
    bool delete_timer(uint32_t id) override;
    bool restart_timer(uint32_t id) override;

    // Waits until no expiry of timer `id` is being delivered. An owner that deletes its timer and
    // then destroys the handler calls this in between, with none of the handler's locks held.
    // Not from the timer thread.
    void wait_for_handler(uint32_t id) const;

    size_t pending() const;

private:
    struct Record {
        timespec deadline;
        timespec origin;
        ITimerEventHandler* handler;
        uint64_t interval;
        void* data;
        bool periodic;
        uint32_t id;
        uint64_t multiple;
        uint64_t multiple_limit;
    };
    // Deadline in nanoseconds on the wait clock, then the id: two timers due on the same nanosecond
    // both stay scheduled, and a delivery erases exactly the record it delivered.
    using Key = std::pair<uint64_t, uint32_t>;
    using Schedule = std::map<Key, Record>;

    CTimer();
    ~CTimer() override;

    void schedule(Record record);
    Schedule::iterator find_locked(uint32_t id);

    Schedule m_schedule;                 // guarded by the timer's lock
    uint32_t m_delivering;               // guarded by the timer's lock; id whose on_timer runs, or 0
    static std::atomic<uint32_t> s_next_id;
};

}  // namespace utils

#endif
