#include "CThread.h"

#include <cerrno>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Assert.h"
#include "Logger.h"

namespace {
constexpr const char* kSource = "src/CThread";
constexpr const char* kUnnamed = "--";
constexpr int kHighestKnownPolicy = SCHED_RR;

unsigned long current_kernel_tid() { return static_cast<unsigned long>(syscall(SYS_gettid)); }
}  // namespace

namespace utils {

CThread::CThread() : CThread(kUnnamed) {}

CThread::CThread(const std::string& name)
    : m_run(false),
      m_arg(nullptr),
      m_executing(false),
      m_event(false, false),
      m_attr(),
      m_thread_id(0),
      m_tid(0),
      m_name(name),
      m_policy(SCHED_OTHER),
      m_priority(0),
      m_alive(false),
      m_end(true, false),
      m_joinable(),
      m_has_joinable(false),
      m_apply_schedule(false) {}

CThread::~CThread() {
    if (m_alive.load()) {
        KLOG_ERROR("~CThread(): Thread %s( %lu ) Still active. killing it.", m_name.c_str(), m_tid.load());
        pthread_cancel(m_joinable);
        pthread_detach(m_joinable);
        return;
    }
    join_ended();
}

void CThread::join_ended() {
    if (!m_has_joinable) return;
    pthread_join(m_joinable, nullptr);
    m_has_joinable = false;
}

void CThread::run(void*) { suspend(kInfinite); }

int CThread::start(void* arg, int policy, int priority) {
    m_policy = policy;
    m_priority = priority;
    m_run = true;
    KORVEL_ASSERT(kSource, m_thread_id == 0);

    m_arg = arg;
    int status = pthread_attr_init(&m_attr);
    KORVEL_ASSERT(kSource, 0 == status);
    // Joinable: the owner learns that the thread is gone, not only that it is about to go.
    status = pthread_attr_setdetachstate(&m_attr, PTHREAD_CREATE_JOINABLE);
    KORVEL_ASSERT(kSource, 0 == status);
    // A thread that ended by itself since the last start is collected first.
    join_ended();

    // A priority the policy does not allow is not an error: the thread keeps what it inherits.
    m_apply_schedule = policy >= 0 && policy <= kHighestKnownPolicy &&
                       priority >= sched_get_priority_min(policy) && priority <= sched_get_priority_max(policy);

    m_event.reset();
    m_end.reset();
    m_alive = true;
    pthread_t id = 0;
    status = pthread_create(&id, &m_attr, entry_point, this);
    // The attributes are only read by pthread_create; releasing them here means no later path
    // (normal end, stop, destruction) has to.
    pthread_attr_destroy(&m_attr);
    if (status != 0) m_alive = false;
    m_joinable = id;
    m_has_joinable = status == 0;
    m_thread_id = id;
    KORVEL_ASSERT(kSource, m_thread_id);
    KORVEL_ASSERT(kSource, status>=0);

    set_name(m_name);
    m_event.set();  // releases the new thread from its start handshake
    return status;
}

void* CThread::entry_point(void* pt) {
    KORVEL_ASSERT(kSource, pt);
    static_cast<CThread*>(pt)->body();
    return nullptr;
}

// Kept out of body(): a thread cancelled inside run() is unwound without the address sanitizer's
// red zones of its frames being cleared, and body() then has none to leave behind for the exit path.
void CThread::apply_own_schedule() {
    sched_param param{};
    param.sched_priority = m_priority;
    pthread_setschedparam(pthread_self(), m_policy, &param);
}

void CThread::body() {
    m_tid = current_kernel_tid();
    if (m_apply_schedule) apply_own_schedule();
    m_event.wait(kInfinite);
    KLOG_NOTICE("Thread '%s' ( %lu ) started", m_name.c_str(), m_tid.load());

    thread_init();
    m_executing = true;
    run(m_arg);
    m_executing = false;

    KLOG_NOTICE("Thread %s ( %lu ) exit normally", m_name.c_str(), m_tid.load());
    m_thread_id = 0;
    m_run = false;
    m_alive = false;
    // The last access to the object. The owner joins the thread after this signal before it lets
    // the object go, so the signal's own unlock has finished by then.
    m_end.set();
}

int CThread::suspend(uint64_t timeout_ms) const {
    if (!m_run) return 0;
    KORVEL_ASSERT(kSource, pthread_equal(m_thread_id,pthread_self()) != 0);
    return m_event.wait(timeout_ms);
}

int CThread::suspend(const timespec& deadline) const {
    if (!m_run) return 0;
    KORVEL_ASSERT(kSource, pthread_equal(m_thread_id,pthread_self()) != 0);
    return m_event.wait(deadline);
}

void CThread::resume() { m_event.set(); }

void CThread::stop(uint32_t timeout_ms) {
    m_run = false;
    const pthread_t id = m_thread_id.load();
    if (id != 0 && pthread_equal(id, pthread_self())) return;
    if (!m_alive.load()) {
        join_ended();
        return;
    }

    // set() rather than a bare pulse: a thread that is between its m_run test and its wait would
    // miss a pulse and sleep out its whole time-out; a pending state makes that wait return at once.
    m_event.set();
    sched_yield();

    const timespec deadline = deadline_after_ms(timeout_ms);
    while (m_alive.load()) {
        if (m_end.wait(deadline) == event::kTimedOut) break;
    }

    if (m_alive.load()) {
        pthread_cancel(m_joinable);
        // Nobody waits for a cancelled thread: it releases itself when it reaches its cancellation point.
        pthread_detach(m_joinable);
        m_has_joinable = false;
        m_thread_id = 0;
        m_executing = false;
        m_alive = false;
        KLOG_ERROR("Thread %s( %lu ) killed", m_name.c_str(), m_tid.load());
        m_tid = 0;
    }
    join_ended();
    // A wake-up the thread never consumed must not release the next run's start handshake.
    m_event.reset();
}

void CThread::set_name(const std::string& name) {
    m_name = name;
    const pthread_t id = m_thread_id.load();
    if (name.empty() || !m_run || id == 0) return;
    pthread_setname_np(id, name.substr(0, kKernelNameChars).c_str());
}

bool CThread::set_priority(int policy, int priority) {
    sched_param param{};
    param.sched_priority = priority;
    if (pthread_setschedparam(m_thread_id.load(), policy, &param) != 0) return false;
    m_policy = policy;
    m_priority = priority;
    return true;
}

}  // namespace utils
