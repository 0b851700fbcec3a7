#ifndef KORVEL_CMSGQUEUE_H
#define KORVEL_CMSGQUEUE_H

#include <cstdint>
#include <deque>
#include <string>

#include "Logger.h"
#include "mutex.h"

namespace utils {

// A bounded FIFO of short command messages between host threads and a player's worker thread.
// Every operation takes the queue's own lock and nothing else.
class CMsgQueue : private mutex {
public:
    static constexpr uint16_t kEmptyId = 0xFFFF;

    struct Message {
        uint16_t id = kEmptyId;
        std::string payload;
    };

    CMsgQueue(const std::string& name, uint16_t capacity) : m_capacity(capacity), m_count(0), m_name(name) {}

    // Appends, then drops the oldest message once more than capacity + 1 are held.
    void Push(uint16_t id, const std::string& payload = std::string()) {
        scope_lock guard(*this);
        m_messages.push_back(Message{id, payload});
        if (m_count <= m_capacity) {
            ++m_count;
        } else {
            m_messages.pop_front();
            overflow();
        }
    }

    // Makes room first, so that the queue never holds more than capacity messages.
    void Add(uint16_t id, const std::string& payload = std::string()) {
        scope_lock guard(*this);
        if (m_count < m_capacity) {
            ++m_count;
        } else if (!m_messages.empty()) {
            m_messages.pop_front();
            overflow();
        }
        m_messages.push_back(Message{id, payload});
    }

    // Moves the oldest message into `out` (left as the empty message when none waits); returns its id.
    uint16_t Get(Message& out) {
        scope_lock guard(*this);
        if (m_count > 0 && !m_messages.empty()) {
            out = std::move(m_messages.front());
            m_messages.pop_front();
            --m_count;
        } else {
            out = Message();
        }
        return out.id;
    }

    uint16_t Count() {
        scope_lock guard(*this);
        return m_count;
    }

    void SetCapacity(uint16_t capacity) {
        scope_lock guard(*this);
        m_capacity = capacity;
    }

private:
    void overflow() { KLOG_ERROR("Message queue '%s' overflow", m_name.c_str()); }

    std::deque<Message> m_messages;  // guarded by the queue's lock
    uint16_t m_capacity;             // guarded by the queue's lock
    uint16_t m_count;                // guarded by the queue's lock
    const std::string m_name;
};

}  // namespace utils

#endif
