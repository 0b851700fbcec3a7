#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "RuntimeDoubles.h"

namespace {

using std::chrono::milliseconds;

// Expiries may come late by scheduling jitter (more under sanitizers), never early.
constexpr int64_t kSlackMs = 25;

class TimerTest : public ::testing::Test {
protected:
    void SetUp() override { utils::CTimer::instance().start_thread(); }
    utils::CTimer& timer() { return utils::CTimer::instance(); }
};

// A one-shot timer fires once, about one interval later, and leaves the schedule; a restart moves a
// periodic timer's pending expiry to the next grid point from the restart.
TEST_F(TimerTest, OneShotFiresOnceAndRestartMovesThePendingExpiry) {
    RecordingHandler once, restarted;
    int payload = 0;
    const size_t before = timer().pending();
    const int64_t start = monotonic_ms();
    TimerGuard one_shot(timer().start_timer(10, once, &payload, false, 0));
    {
        TimerGuard periodic(timer().start_timer(100, restarted, nullptr, true, 0));
        std::this_thread::sleep_for(milliseconds(50));
        EXPECT_TRUE(timer().restart_timer(periodic.id()));
        ASSERT_TRUE(restarted.wait_for(1, 1000));
    }
    const auto times = once.times();
    ASSERT_EQ(times.size(), 1u);
    EXPECT_GE(times[0] - start, 9);
    EXPECT_LT(times[0] - start, 10 + kSlackMs);
    EXPECT_EQ(once.m_data, &payload);
    EXPECT_EQ(timer().pending(), before);
    EXPECT_GE(restarted.times()[0] - start, 199);
    EXPECT_LT(restarted.times()[0] - start, 200 + kSlackMs);
}

TEST_F(TimerTest, PeriodicTimerStaysOnItsGridWhenTheHandlerIsSlow) {
    constexpr int kInterval = 100;
    constexpr size_t kExpiries = 10;
    RecordingHandler handler(30);
    const int64_t origin = monotonic_ms();
    {
        TimerGuard guard(timer().start_timer(kInterval, handler, nullptr, true, 0));
        ASSERT_TRUE(handler.wait_for(kExpiries, kInterval * (kExpiries + 5)));
    }
    const auto times = handler.times();
    for (size_t i = 0; i < kExpiries; ++i) {
        const int64_t error = times[i] - (origin + kInterval * static_cast<int64_t>(i + 1));
        EXPECT_GE(error, -1) << "expiry " << i << " came early";
        EXPECT_LT(error, kSlackMs) << "expiry " << i << " drifted off the grid";
    }
}

// Deletes its own timer from inside the first expiry.
class SelfDeletingHandler : public ITimerEventHandler {
public:
    void on_timer(void*) override {
        ++m_calls;
        m_deleted = utils::CTimer::instance().delete_timer(m_id);
    }
    std::atomic<uint32_t> m_id{0};
    std::atomic<int> m_calls{0};
    std::atomic<bool> m_deleted{false};
};

TEST_F(TimerTest, DeletingATimerFromItsOwnHandlerStopsItAndItsIdIsRefusedAfter) {
    SelfDeletingHandler handler;
    handler.m_id = timer().start_timer(20, handler, nullptr, true, 0);
    TimerGuard guard(handler.m_id);
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(handler.m_calls, 1);
    EXPECT_TRUE(handler.m_deleted);
    EXPECT_FALSE(timer().delete_timer(guard.id()));
    EXPECT_FALSE(timer().restart_timer(guard.id()));
}

TEST_F(TimerTest, AStartInThePastCatchesUpOnEveryMissedGridPoint) {
    RecordingHandler handler;
    const time_t one_second_ago = time(nullptr) - 1;
    const int64_t begin = monotonic_ms();
    {
        TimerGuard guard(timer().start_timer(100, handler, nullptr, true, one_second_ago));
        // At least the ten points of the past second are due at once.
        ASSERT_TRUE(handler.wait_for(10, 1000));
    }
    EXPECT_LT(handler.times()[9] - begin, kSlackMs * 2);
}

TEST_F(TimerTest, IdsAreUniqueWhenStartedFromSeveralThreads) {
    RecordingHandler handler;
    std::vector<uint32_t> ids[4];
    std::vector<std::thread> threads;
    for (auto& list : ids)
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) list.push_back(timer().start_timer(60000, handler, nullptr, false, 0));
        });
    for (auto& thread : threads) thread.join();
    std::set<uint32_t> unique;
    for (const auto& list : ids)
        for (uint32_t id : list) {
            unique.insert(id);
            EXPECT_TRUE(timer().delete_timer(id));
        }
    EXPECT_EQ(unique.size(), 200u);
}

}  // namespace
