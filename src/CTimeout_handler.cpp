#include "CTimeout_handler.h"

CTimeout_handler::CTimeout_handler()
    : m_timeout(kDefaultTimeoutSec), m_start(0), m_name("CTimeout_handler"), m_time_source(&::time) {}

void CTimeout_handler::start_clock() { m_start = m_time_source(nullptr); }

bool CTimeout_handler::timed_out() const {
    const int limit = m_timeout.load();
    if (limit < 0) return true;
    return m_time_source(nullptr) - m_start > limit;
}
