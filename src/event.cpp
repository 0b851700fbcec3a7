#include "event.h"

#include <cerrno>

#include "Logger.h"

namespace {
constexpr long kNanosPerSecond = 1000000000L;
constexpr uint64_t kMillisPerSecond = 1000;
constexpr long kNanosPerMilli = 1000000L;
}  // namespace

namespace utils {

timespec deadline_after_ms(uint64_t ms) {
    timespec now;
    clock_gettime(event::kWaitClock, &now);
    timespec deadline;
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(ms / kMillisPerSecond);
    long nanos = now.tv_nsec + static_cast<long>(ms % kMillisPerSecond) * kNanosPerMilli;
    deadline.tv_sec += nanos / kNanosPerSecond;
    deadline.tv_nsec = nanos % kNanosPerSecond;
    return deadline;
}

event::event(bool broadcast, bool signaled)
    : m_broadcast(broadcast), m_signaled(signaled), m_generation(0) {
    // Deadlines are measured on the monotonic clock: a device without a battery-backed clock boots
    // in 1970 and steps the wall clock by decades once the network time arrives.
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, kWaitClock);
    if (pthread_cond_init(&m_cond, &attributes) != 0) KLOG_ERROR("Event could not be initialized\n");
    pthread_condattr_destroy(&attributes);
}

event::~event() { pthread_cond_destroy(&m_cond); }

void event::set() {
    scope_lock guard(*this);
    m_signaled = true;
    wake_locked();
}

void event::pulse() {
    scope_lock guard(*this);
    if (!m_signaled) wake_locked();
}

// Called with the lock held: wakes one waiter, or all in broadcast mode.
void event::wake_locked() {
    ++m_generation;
    if (m_broadcast)
        pthread_cond_broadcast(&m_cond);
    else
        pthread_cond_signal(&m_cond);
}

void event::reset() {
    scope_lock guard(*this);
    m_signaled = false;
}

// Called with the lock held and the state not signalled. Spurious wake-ups of the condition are
// absorbed here: only set(), pulse() or the deadline end the wait.
int event::wait_locked(const timespec* deadline) {
    const uint64_t generation = m_generation;
    int result = 0;
    while (result == 0 && !m_signaled && generation == m_generation) {
        result = deadline == nullptr ? pthread_cond_wait(&m_cond, &m_mutex)
                                     : pthread_cond_timedwait(&m_cond, &m_mutex, deadline);
    }
    if (result == 0 && !m_broadcast) m_signaled = false;
    return result;
}

int event::wait(uint64_t timeout_ms) {
    scope_lock guard(*this);
    if (m_signaled) {
        m_signaled = false;
        return 0;
    }
    if (timeout_ms == 0) return kTimedOut;
    if (timeout_ms == kInfinite) return wait_locked(nullptr);
    const timespec deadline = deadline_after_ms(timeout_ms);
    return wait_locked(&deadline);
}

int event::wait(const timespec& deadline) {
    scope_lock guard(*this);
    if (m_signaled) {
        m_signaled = false;
        return 0;
    }
    return wait_locked(&deadline);
}

}  // namespace utils

