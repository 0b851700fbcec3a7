#include "mutex.h"

#include "Assert.h"

namespace {
constexpr const char* kSource = "src/mutex";
}

namespace utils {

mutex::mutex() { mutex_init(PTHREAD_MUTEX_RECURSIVE); }

mutex::~mutex() {
    pthread_mutex_destroy(&m_mutex);
    pthread_mutexattr_destroy(&m_attr);
}

void mutex::mutex_init(int type) {
    int ok = pthread_mutexattr_init(&m_attr);
    KORVEL_ASSERT(kSource, ok == 0);
    ok = pthread_mutexattr_settype(&m_attr, type);
    KORVEL_ASSERT(kSource, ok == 0);
    ok = pthread_mutex_init(&m_mutex, &m_attr);
    KORVEL_ASSERT(kSource, ok == 0);
}

bool mutex::lock() { return pthread_mutex_lock(&m_mutex) == 0; }

int mutex::unlock() { return pthread_mutex_unlock(&m_mutex); }

bool mutex::trylock() { return pthread_mutex_trylock(&m_mutex) == 0; }

}  // namespace utils
