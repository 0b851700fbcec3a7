#ifndef KORVEL_CTHREAD_H
#define KORVEL_CTHREAD_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <pthread.h>
#include <string>

#include "event.h"

namespace utils {

// A named POSIX thread with a scheduling policy and priority, a start handshake, sleeping and waking
// (suspend/resume), and a stop that waits a bounded time and cancels as a last resort. A thread that
// ended is joined by its owner, so once stop() returns nothing of it touches the object any more:
// the owner may start it again or destroy it. Derived classes put their loop in run() and test m_run
// once per pass.
class CThread {
public:
    static constexpr uint64_t kInfinite = event::kInfinite;
    static constexpr size_t kKernelNameChars = 15;  // the kernel keeps 15 characters and a NUL

    CThread();
    explicit CThread(const std::string& name);
    virtual ~CThread();
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    // Hook run on the new thread before run().
    virtual void thread_init() {}
    // The thread's body; the default sleeps until stopped.
    virtual void run(void* arg);

    int start(void* arg, int policy, int priority);
    static void* entry_point(void* pt);

    // Own thread only: sleeps until resume(), stop() or the time-out; 0 when woken, 110 on time-out.
    int suspend(uint64_t timeout_ms) const;
    int suspend(const timespec& deadline) const;
    void resume();
    // Any thread but the object's own: ends the thread within timeout_ms or cancels it.
    void stop(uint32_t timeout_ms);

    void set_name(const std::string& name);
    bool set_priority(int policy, int priority);

    const std::string& name() const { return m_name; }
    bool is_running() const { return m_run.load(); }
    bool is_executing() const { return m_executing.load(); }
    pthread_t thread_id() const { return m_thread_id.load(); }
    unsigned long kernel_tid() const { return m_tid.load(); }

protected:
    std::atomic<bool> m_run;        // atomic: set by start(), cleared by stop() from other threads
    void* m_arg;                    // written by start() before the handshake
    std::atomic<bool> m_executing;  // atomic: written by the thread, read by stop()
    mutable event m_event;          // own lock; handshake, suspend/resume and the end signal
    pthread_attr_t m_attr;          // creator only, released once the thread exists
    std::atomic<pthread_t> m_thread_id;  // atomic: 0 when no thread exists
    std::atomic<unsigned long> m_tid;    // atomic: kernel id, written by the thread itself
    std::string m_name;             // written before start() and by set_name() on the owner's side
    int m_policy;                   // creator before the handshake, then the thread itself
    int m_priority;                 // as m_policy

private:
    void body();
    void apply_own_schedule();
    // Owner side: waits for a thread that has signalled its end to be gone.
    void join_ended();

    std::atomic<bool> m_alive;      // atomic: from pthread_create until the thread signals its end
    mutable event m_end;            // own lock; the thread's end signal, set after m_alive is cleared
    pthread_t m_joinable;           // owner side only: the last thread started and not yet joined
    bool m_has_joinable;            // owner side only
    bool m_apply_schedule;          // written by start() before the handshake
};

}  // namespace utils

#endif
