#ifndef KORVEL_CRINGBUFFER_H
#define KORVEL_CRINGBUFFER_H

#include <cstdint>

#include "mutex.h"

// A fixed-size circular store of PCM frames between the resampler and the sound card in the
// buffered output. It counts in elements (one element = one frame of all channels) and keeps one
// spare element, so that a full ring still has distinct read and write offsets. Every operation
// takes the ring's lock; Write and Read do not check space, the caller does (FreeSpace, Count).
class CRingBuffer : private utils::mutex {
public:
    CRingBuffer();
    ~CRingBuffer() override;
    CRingBuffer(const CRingBuffer&) = delete;
    CRingBuffer& operator=(const CRingBuffer&) = delete;

    // Allocates element_size * (capacity + 1) bytes; the previous storage must have been freed.
    int Init(uint32_t element_size, uint32_t capacity);
    void Free();
    uint32_t Write(const uint8_t* src, uint32_t count);
    uint32_t Read(uint8_t* dst, uint32_t count);
    // Discards everything stored; the data stays in memory unread.
    void Reset();
    uint32_t Count();
    uint32_t FreeSpace();

    uint32_t Capacity();
    bool IsAllocated();
    // Offsets in bytes, for diagnostics and tests.
    uint32_t ReadOffset();
    uint32_t WriteOffset();

private:
    uint32_t count_locked() const;

    uint8_t* m_buffer;         // guarded by the ring's lock (as every field below)
    uint32_t m_wptr;
    uint32_t m_rptr;
    uint32_t m_element_size;
    uint32_t m_capacity;
    uint32_t m_size;
};

#endif
