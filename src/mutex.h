#ifndef KORVEL_MUTEX_H
#define KORVEL_MUTEX_H

#include <pthread.h>

namespace utils {

// A recursive POSIX lock: the thread that holds it may take it again and must release it as often.
// Used as a private base or a member by everything that shares state between threads.
class mutex {
public:
    mutex();
    virtual ~mutex();
    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;

    bool lock();
    int unlock();
    bool trylock();

protected:
    void mutex_init(int type);

    pthread_mutex_t m_mutex;
    pthread_mutexattr_t m_attr;
};

// Holds a utils::mutex for the lifetime of the scope, on every return path.
class scope_lock {
public:
    explicit scope_lock(mutex& m) : m_mutex(m) { m_mutex.lock(); }
    ~scope_lock() { m_mutex.unlock(); }
    scope_lock(const scope_lock&) = delete;
    scope_lock& operator=(const scope_lock&) = delete;

private:
    mutex& m_mutex;
};

}  // namespace utils

#endif
