#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include "CRingBuffer.h"

namespace {

constexpr uint32_t kFrameBytes = 4;

// Frames whose four bytes spell their sequence number, so that order and identity can be checked.
std::vector<uint8_t> Frames(uint32_t first, uint32_t count) {
    std::vector<uint8_t> bytes(count * kFrameBytes);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t value = first + i;
        for (uint32_t b = 0; b < kFrameBytes; ++b) bytes[i * kFrameBytes + b] = static_cast<uint8_t>(value >> (8 * b));
    }
    return bytes;
}

uint32_t FrameValue(const uint8_t* frame) {
    return frame[0] | (frame[1] << 8) | (frame[2] << 16) | (static_cast<uint32_t>(frame[3]) << 24);
}

// Random writes and reads over a small ring cross its seam at every position, a full ring included.
TEST(RingRandomised, MatchesAReferenceQueueOverManyWrapArounds) {
    CRingBuffer ring;
    constexpr uint32_t kSmall = 37;
    ASSERT_EQ(ring.Init(kFrameBytes, kSmall), 0);
    std::deque<uint32_t> reference;
    std::mt19937 random(1234);
    uint32_t next = 0;
    std::vector<uint8_t> out(kSmall * kFrameBytes);
    for (int step = 0; step < 20000; ++step) {
        if (random() % 2 == 0) {
            const uint32_t n = random() % (ring.FreeSpace() + 1);
            const auto in = Frames(next, n);
            ASSERT_EQ(ring.Write(in.data(), n), n);
            for (uint32_t i = 0; i < n; ++i) reference.push_back(next++);
        } else {
            const uint32_t n = random() % (ring.Count() + 1);
            ASSERT_EQ(ring.Read(out.data(), n), n);
            for (uint32_t i = 0; i < n; ++i) {
                ASSERT_EQ(FrameValue(&out[i * kFrameBytes]), reference.front()) << "step " << step;
                reference.pop_front();
            }
        }
        ASSERT_EQ(ring.Count(), reference.size());
        ASSERT_EQ(ring.FreeSpace(), kSmall - ring.Count());
    }
    EXPECT_GT(next, 50u * kSmall) << "enough wrap-arounds happened";
    ring.Reset();
    EXPECT_EQ(ring.Count(), 0u);
    EXPECT_EQ(ring.FreeSpace(), kSmall);
}

TEST(RingThreads, OneWriterAndOneReaderLoseAndDuplicateNothing) {
    CRingBuffer ring;
    ASSERT_EQ(ring.Init(kFrameBytes, 1000), 0);
    constexpr uint32_t kTotal = 400000;
    std::atomic<bool> failed{false};
    std::thread writer([&] {
        uint32_t next = 0;
        while (next < kTotal) {
            const uint32_t n = std::min({ring.FreeSpace(), kTotal - next, 173u});
            if (n == 0) {
                std::this_thread::yield();
                continue;
            }
            const auto in = Frames(next, n);
            ring.Write(in.data(), n);
            next += n;
        }
    });
    uint32_t expected = 0;
    std::vector<uint8_t> out(211 * kFrameBytes);
    while (expected < kTotal && !failed) {
        const uint32_t n = std::min(ring.Count(), 211u);
        if (n == 0) {
            std::this_thread::yield();
            continue;
        }
        ring.Read(out.data(), n);
        for (uint32_t i = 0; i < n; ++i)
            if (FrameValue(&out[i * kFrameBytes]) != expected++) failed = true;
    }
    writer.join();
    EXPECT_FALSE(failed);
    EXPECT_EQ(expected, kTotal);
    EXPECT_EQ(ring.Count(), 0u);
}

}  // namespace
