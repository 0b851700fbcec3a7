#include "CTimeout_handler.h"

#include "event.h"

time_t CTimeout_handler::monotonic_seconds(time_t* out) {
    timespec now;
    clock_gettime(utils::event::kWaitClock, &now);
    if (out != nullptr) *out = now.tv_sec;
    return now.tv_sec;
}

CTimeout_handler::CTimeout_handler()
    : m_timeout(kDefaultTimeoutSec), m_start(0), m_name("CTimeout_handler"), m_time_source(&monotonic_seconds) {}

void CTimeout_handler::start_clock() { m_start = m_time_source(nullptr); }

bool CTimeout_handler::timed_out() const {
    const int limit = m_timeout.load();
    if (limit < 0) return true;
    return m_time_source(nullptr) - m_start > limit;
}
