#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include "CRingBuffer.h"

namespace {

constexpr uint32_t kFrameBytes = 4;
constexpr uint32_t kCapacity = 100;

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

class Ring : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(m_ring.Init(kFrameBytes, kCapacity), 0); }
    CRingBuffer m_ring;
};

TEST_F(Ring, AFullRoundTripLeavesBothOffsetsAtTheEndOfTheData) {
    const auto in = Frames(0, kCapacity);
    EXPECT_EQ(m_ring.Write(in.data(), kCapacity), kCapacity);
    EXPECT_EQ(m_ring.Count(), kCapacity);
    EXPECT_EQ(m_ring.FreeSpace(), 0u);
    std::vector<uint8_t> out(in.size());
    EXPECT_EQ(m_ring.Read(out.data(), kCapacity), kCapacity);
    EXPECT_EQ(out, in);
    EXPECT_EQ(m_ring.Count(), 0u);
    EXPECT_EQ(m_ring.ReadOffset(), 400u);
    EXPECT_EQ(m_ring.WriteOffset(), 400u);
}

TEST_F(Ring, AWriteEndingExactlyAtTheEndWrapsToZero) {
    const auto first = Frames(0, kCapacity);
    m_ring.Write(first.data(), kCapacity);
    std::vector<uint8_t> sink(first.size());
    m_ring.Read(sink.data(), kCapacity);
    const auto one = Frames(100, 1);  // the spare element: 400..404 is the end of the storage
    m_ring.Write(one.data(), 1);
    EXPECT_EQ(m_ring.WriteOffset(), 0u);
    EXPECT_EQ(m_ring.Count(), 1u);
}

TEST_F(Ring, CountAfterAWrapAndDataAcrossTheSeam) {
    const auto a = Frames(0, 99);  // wptr 396
    m_ring.Write(a.data(), 99);
    std::vector<uint8_t> sink(a.size());
    m_ring.Read(sink.data(), 99);  // rptr 396
    const auto b = Frames(1000, 4);  // 396..404, then 0..8
    m_ring.Write(b.data(), 4);
    EXPECT_EQ(m_ring.WriteOffset(), 8u);
    EXPECT_EQ(m_ring.ReadOffset(), 396u);
    EXPECT_EQ(m_ring.Count(), 4u);
    std::vector<uint8_t> out(4 * kFrameBytes);
    m_ring.Read(out.data(), 4);
    EXPECT_EQ(out, b);
}

TEST_F(Ring, ResetDiscardsWhatWasNotRead) {
    const auto in = Frames(0, 10);
    m_ring.Write(in.data(), 10);
    m_ring.Reset();
    EXPECT_EQ(m_ring.Count(), 0u);
    EXPECT_EQ(m_ring.FreeSpace(), kCapacity);
}

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
            ring.Write(in.data(), n);
            for (uint32_t i = 0; i < n; ++i) reference.push_back(next++);
        } else {
            const uint32_t n = random() % (ring.Count() + 1);
            ring.Read(out.data(), n);
            for (uint32_t i = 0; i < n; ++i) {
                ASSERT_EQ(FrameValue(&out[i * kFrameBytes]), reference.front()) << "step " << step;
                reference.pop_front();
            }
        }
        ASSERT_EQ(ring.Count(), reference.size());
    }
    EXPECT_GT(next, 50u * kSmall) << "enough wrap-arounds happened";
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
