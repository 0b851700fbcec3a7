#ifndef KORVEL_CTIMEOUT_HANDLER_H
#define KORVEL_CTIMEOUT_HANDLER_H

#include <atomic>
#include <ctime>
#include <string>

// A time-out in whole seconds for blocking network operations, which another thread can also break
// off at once (interrupt). The limit is the only value shared between threads. Seconds are counted on
// the monotonic clock, so a wall clock stepped by the network time neither fires nor stalls it.
class CTimeout_handler {
public:
    using TimeSource = time_t (*)(time_t*);
    static constexpr int kDefaultTimeoutSec = 10;
    static constexpr int kInterrupted = -1;

    CTimeout_handler();
    virtual ~CTimeout_handler() = default;

    void start_clock();
    // True once more whole seconds than the limit have passed since start_clock(), or after interrupt().
    bool timed_out() const;
    void set_timeout(int seconds) { m_timeout.store(seconds); }
    int get_timeout() const { return m_timeout.load(); }
    void interrupt() { m_timeout.store(kInterrupted); }
    void set_name(const char* name) { m_name = name != nullptr ? name : ""; }
    void set_context(const char* context) { m_context = context != nullptr ? context : ""; }
    const std::string& name() const { return m_name; }
    const std::string& context() const { return m_context; }

    // Replaces the clock; lets tests place it on a chosen second.
    void set_time_source(TimeSource source) { m_time_source = source; }
    // The default clock: whole seconds of the monotonic clock, with time()'s signature.
    static time_t monotonic_seconds(time_t* out);

protected:
    std::atomic<int> m_timeout;  // atomic: written by host threads (interrupt, set_timeout)
    time_t m_start;              // worker thread only
    std::string m_name;          // owner's thread only
    std::string m_context;       // owner's thread only

private:
    TimeSource m_time_source;
};

#endif
