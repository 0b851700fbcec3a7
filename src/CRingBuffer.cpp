#include "CRingBuffer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

CRingBuffer::CRingBuffer()
    : m_buffer(nullptr),
      m_wptr(0),
      m_rptr(0),
      m_element_size(1),
      m_capacity(0),
      m_size(0) {}

CRingBuffer::~CRingBuffer() { Free(); }

int CRingBuffer::Init(uint32_t element_size, uint32_t capacity) {
    utils::scope_lock guard(*this);
    delete[] m_buffer;
    const uint64_t size = static_cast<uint64_t>(element_size) * (static_cast<uint64_t>(capacity) + 1);
    if (element_size == 0 || size > UINT32_MAX) {
        m_buffer = nullptr;
        return -EINVAL;
    }
    m_buffer = new (std::nothrow) uint8_t[size];
    if (m_buffer == nullptr) return -ENOMEM;
    m_element_size = element_size;
    m_capacity = capacity;
    m_size = static_cast<uint32_t>(size);
    m_wptr = 0;
    m_rptr = 0;
    return 0;
}

void CRingBuffer::Free() {
    utils::scope_lock guard(*this);
    delete[] m_buffer;
    m_buffer = nullptr;
    m_capacity = 0;
    m_size = 0;
    m_wptr = 0;
    m_rptr = 0;
}

uint32_t CRingBuffer::Write(const uint8_t* src, uint32_t count) {
    utils::scope_lock guard(*this);
    if (m_buffer == nullptr || count == 0) return 0;
    uint32_t bytes = m_element_size * count;
    if (m_wptr + bytes > m_size) {
        const uint32_t tail = m_size - m_wptr;
        std::memcpy(m_buffer + m_wptr, src, tail);
        src += tail;
        bytes -= tail;
        m_wptr = 0;
    }
    std::memcpy(m_buffer + m_wptr, src, bytes);
    m_wptr += bytes;
    if (m_wptr == m_size) m_wptr = 0;
    return count;
}

uint32_t CRingBuffer::Read(uint8_t* dst, uint32_t count) {
    utils::scope_lock guard(*this);
    if (m_buffer == nullptr || count == 0) return 0;
    uint32_t bytes = m_element_size * count;
    if (m_rptr + bytes > m_size) {
        const uint32_t tail = m_size - m_rptr;
        std::memcpy(dst, m_buffer + m_rptr, tail);
        dst += tail;
        bytes -= tail;
        m_rptr = 0;
    }
    std::memcpy(dst, m_buffer + m_rptr, bytes);
    m_rptr += bytes;
    if (m_rptr == m_size) m_rptr = 0;
    return count;
}

void CRingBuffer::Reset() {
    utils::scope_lock guard(*this);
    m_rptr = m_wptr;
}

uint32_t CRingBuffer::count_locked() const {
    if (m_element_size == 0) return 0;
    return ((m_wptr < m_rptr ? m_wptr + m_size : m_wptr) - m_rptr) / m_element_size;
}

uint32_t CRingBuffer::Count() {
    utils::scope_lock guard(*this);
    return count_locked();
}

uint32_t CRingBuffer::FreeSpace() {
    utils::scope_lock guard(*this);
    return m_capacity - count_locked();
}

uint32_t CRingBuffer::Capacity() {
    utils::scope_lock guard(*this);
    return m_capacity;
}

bool CRingBuffer::IsAllocated() {
    utils::scope_lock guard(*this);
    return m_buffer != nullptr;
}

uint32_t CRingBuffer::ReadOffset() {
    utils::scope_lock guard(*this);
    return m_rptr;
}

uint32_t CRingBuffer::WriteOffset() {
    utils::scope_lock guard(*this);
    return m_wptr;
}

// The diagnostic lines go to standard output: this is a debugging aid, not an operating event.
