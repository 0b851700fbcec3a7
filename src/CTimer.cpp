#include "CTimer.h"

#include <cerrno>
#include <limits>
#include <sched.h>
#include <unistd.h>

#include "Assert.h"
#include "Logger.h"

namespace {
constexpr const char* kSource = "src/CTimer";
constexpr const char* kThreadName = "Timer";
constexpr uint64_t kNanosPerSecond = 1000000000ULL;
constexpr uint64_t kMillisPerSecond = 1000;
constexpr uint64_t kNanosPerMilli = 1000000ULL;
constexpr uint64_t kMaxU64 = std::numeric_limits<uint64_t>::max();
// Poll step of wait_for_handler(); a teardown path, so a short sleep beats another condition.
constexpr useconds_t kHandlerPollUs = 1000;

uint64_t key_of(const timespec& t) {
    return static_cast<uint64_t>(t.tv_sec) * kNanosPerSecond + static_cast<uint64_t>(t.tv_nsec);
}

timespec clock_now() {
    timespec now;
    clock_gettime(utils::event::kWaitClock, &now);
    return now;
}

// The wait clock's time of a wall-clock second: a caller's absolute start, converted once.
timespec clock_time_of(time_t wall_second) {
    timespec wall;
    clock_gettime(CLOCK_REALTIME, &wall);
    const timespec now = clock_now();
    const int64_t offset_ns = (static_cast<int64_t>(wall_second) - wall.tv_sec) * static_cast<int64_t>(kNanosPerSecond) -
                              wall.tv_nsec;
    const int64_t at_ns = static_cast<int64_t>(now.tv_sec) * static_cast<int64_t>(kNanosPerSecond) + now.tv_nsec + offset_ns;
    const int64_t clamped = at_ns < 0 ? 0 : at_ns;
    timespec at;
    at.tv_sec = static_cast<time_t>(clamped / static_cast<int64_t>(kNanosPerSecond));
    at.tv_nsec = static_cast<long>(clamped % static_cast<int64_t>(kNanosPerSecond));
    return at;
}
}  // namespace

namespace utils {

std::atomic<uint32_t> CTimer::s_next_id{1};

CTimer& CTimer::instance() {
    static CTimer timer;
    return timer;
}

CTimer::CTimer() : CThread(kThreadName), m_delivering(0) {}

CTimer::~CTimer() { shutdown(); }

void CTimer::start_thread() {
    if (!m_run) start(nullptr, SCHED_OTHER, 0);
}

void CTimer::shutdown() {
    if (m_run) stop(kStopTimeoutMs);
    scope_lock guard(*this);
    m_schedule.clear();
}

void CTimer::wait_for_handler(uint32_t id) const {
    CTimer& self = const_cast<CTimer&>(*this);
    for (;;) {
        {
            scope_lock guard(self);
            if (m_delivering != id) return;
        }
        usleep(kHandlerPollUs);
    }
}

size_t CTimer::pending() const {
    scope_lock guard(const_cast<CTimer&>(*this));
    return m_schedule.size();
}

uint32_t CTimer::start_timer(uint64_t interval, ITimerEventHandler& handler, void* data, bool periodic,
                             time_t start) {
    KORVEL_ASSERT(kSource, interval>=10);
    Record record{};
    record.periodic = periodic;
    record.data = data;
    record.handler = &handler;
    record.interval = interval;
    record.id = s_next_id.fetch_add(1);
    record.multiple = 1;
    record.origin = clock_now();
    if (start != 0) {
        record.origin = clock_time_of(start);
        record.multiple = 0;
    }
    record.multiple_limit = kMaxU64 / interval;
    const uint32_t id = record.id;
    schedule(record);
    resume();
    return id;
}

void CTimer::schedule(Record record) {
    uint64_t multiple = record.multiple;
    if (record.multiple > record.multiple_limit) {
        record.origin = clock_now();
        multiple = 1;
        record.multiple = 2;
    } else {
        record.multiple = multiple + 1;
    }
    const uint64_t offset_ms = record.interval * multiple;
    const uint64_t nanos = (offset_ms % kMillisPerSecond) * kNanosPerMilli + static_cast<uint64_t>(record.origin.tv_nsec);
    record.deadline.tv_sec =
        record.origin.tv_sec + static_cast<time_t>(offset_ms / kMillisPerSecond + nanos / kNanosPerSecond);
    record.deadline.tv_nsec = static_cast<long>(nanos % kNanosPerSecond);

    scope_lock guard(*this);
    m_schedule[Key(key_of(record.deadline), record.id)] = record;
}

CTimer::Schedule::iterator CTimer::find_locked(uint32_t id) {
    for (auto it = m_schedule.begin(); it != m_schedule.end(); ++it)
        if (it->second.id == id) return it;
    return m_schedule.end();
}

bool CTimer::delete_timer(uint32_t id) {
    bool found = false;
    {
        scope_lock guard(*this);
        auto it = find_locked(id);
        if (it != m_schedule.end()) {
            KLOG_INFO("Deleting Timer:%d", static_cast<int>(id));
            m_schedule.erase(it);
            found = true;
        }
    }
    resume();
    return found;
}

bool CTimer::restart_timer(uint32_t id) {
    Record copy;
    {
        scope_lock guard(*this);
        auto it = find_locked(id);
        if (it == m_schedule.end()) {
            resume();
            return false;
        }
        KLOG_INFO("Restarting Timer:%d", static_cast<int>(id));
        copy = it->second;
        m_schedule.erase(it);
    }
    schedule(copy);
    resume();
    return true;
}

// Timer thread only.
void CTimer::run(void*) {
    int policy = SCHED_OTHER;
    sched_param param{};
    if (pthread_getschedparam(pthread_self(), &policy, &param) == 0)
        set_priority(policy, sched_get_priority_max(policy));

    while (m_run) {
        Key key;
        Record record;
        bool empty = true;
        {
            scope_lock guard(*this);
            if (!m_schedule.empty()) {
                empty = false;
                key = m_schedule.begin()->first;
                record = m_schedule.begin()->second;
            }
        }
        if (empty) {
            suspend(kInfinite);
            continue;
        }
        if (suspend(record.deadline) != event::kTimedOut) {
            KLOG_INFO("Timer Interrupted:%d", static_cast<int>(record.id));
            continue;
        }
        // A timer deleted or restarted after the wait ended but before delivery must not fire:
        // its owner may already be gone.
        {
            scope_lock guard(*this);
            if (m_schedule.find(key) == m_schedule.end()) continue;
            m_delivering = record.id;
        }
        record.handler->on_timer(record.data);
        scope_lock guard(*this);
        m_delivering = 0;
        if (m_schedule.erase(key) != 0 && record.periodic) schedule(record);
    }
}

}  // namespace utils
