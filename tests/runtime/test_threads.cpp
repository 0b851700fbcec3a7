#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "LogCapture.h"
#include "RuntimeDoubles.h"
#include "event.h"
#include "mutex.h"

namespace {

using std::chrono::milliseconds;

// Generous bound for "returns at once" on a loaded 2-core machine running sanitizers.
constexpr long kPromptMs = 150;

TEST(Mutex, IsRecursiveAndExcludesOtherThreads) {
    utils::mutex m;
    ASSERT_TRUE(m.lock());
    ASSERT_TRUE(m.lock());
    bool other_got_it = true;
    std::thread([&] { other_got_it = m.trylock(); }).join();
    EXPECT_FALSE(other_got_it);
    EXPECT_EQ(m.unlock(), 0);
    EXPECT_EQ(m.unlock(), 0);
    std::thread([&] { if ((other_got_it = m.trylock())) m.unlock(); }).join();
    EXPECT_TRUE(other_got_it);
}

// Deadlines live on the monotonic clock, so a wall clock stepped by decades at boot neither fires
// nor freezes a wait.
TEST(Event, DeadlinesAreOnTheMonotonicClock) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const timespec deadline = utils::deadline_after_ms(100);
    const int64_t ahead_ms = (deadline.tv_sec - now.tv_sec) * 1000 + (deadline.tv_nsec - now.tv_nsec) / 1000000;
    EXPECT_GE(ahead_ms, 99);
    EXPECT_LT(ahead_ms, 100 + kPromptMs);
    utils::event ev;
    const auto start = Clock::now();
    EXPECT_EQ(ev.wait(deadline), 110);
    EXPECT_GE(elapsed_ms(start), 95) << "the wait measured its deadline on another clock";
    EXPECT_LT(elapsed_ms(start), 100 + kPromptMs);
}

// A set waits for one waiter and is consumed by it; a pulse reaches only a thread already waiting;
// a broadcast set wakes every waiter.
TEST(Event, SetIsKeptForOneWaitPulseIsLostWithoutAWaiterBroadcastWakesAll) {
    utils::event ev(false, false);
    const auto start = Clock::now();
    EXPECT_EQ(ev.wait(0), 110);
    std::thread([&] { ev.set(); }).join();  // the time-out path released the lock
    EXPECT_EQ(ev.wait(5000), 0);
    EXPECT_LT(elapsed_ms(start), kPromptMs);
    EXPECT_EQ(ev.wait(0), 110) << "the set was consumed";
    ev.pulse();
    EXPECT_EQ(ev.wait(0), 110) << "a pulse with no waiter must be lost";
    std::atomic<int> result{-1};
    std::thread waiter([&] { result = ev.wait(5000); });
    for (; result == -1; std::this_thread::sleep_for(milliseconds(5))) ev.pulse();
    waiter.join();
    EXPECT_EQ(result, 0);

    utils::event broadcast(true, false);
    std::atomic<int> woken{0};
    std::thread a([&] { woken += broadcast.wait(5000) == 0; }), b([&] { woken += broadcast.wait(5000) == 0; });
    std::this_thread::sleep_for(milliseconds(50));
    broadcast.set();
    a.join();
    b.join();
    EXPECT_EQ(woken, 2);
}

// Stop ends a suspended thread at once, without killing it, and a later suspend returns at once;
// on an object that never started a thread it only clears the run flag.
TEST(Thread, StartsWithItsArgumentCutsALongNameForTheKernelOnlyAndStopsAtOnce) {
    LogCapture capture;
    TestThread never;
    auto start = Clock::now();
    never.stop(500);
    EXPECT_LT(elapsed_ms(start), kPromptMs);
    EXPECT_FALSE(never.is_running());
    EXPECT_TRUE(capture.lines().empty());

    int token = 0;
    TestThread thread("AVeryLongThreadNameIndeed");
    thread.m_resume_first = true;
    ASSERT_EQ(thread.start(&token, SCHED_OTHER, 0), 0);
    wait_until(thread.m_started);
    ASSERT_TRUE(thread.m_started);
    EXPECT_EQ(thread.m_arg_seen, &token);
    EXPECT_EQ(thread.m_kernel_name, "AVeryLongThread");
    EXPECT_EQ(thread.name(), "AVeryLongThreadNameIndeed");
    thread.resume();
    thread.m_go = true;
    wait_until(thread.m_done);
    EXPECT_EQ(thread.m_first, 0) << "the resume before the suspend was lost";
    EXPECT_LT(thread.m_first_ms, kPromptMs);
    start = Clock::now();
    thread.stop(500);
    EXPECT_LT(elapsed_ms(start), kPromptMs);
    EXPECT_EQ(thread.m_after_stop, 0);
    EXPECT_LT(thread.m_after_stop_ms, kPromptMs);
    EXPECT_TRUE(capture.contains("Thread 'AVeryLongThreadNameIndeed' ("));
    EXPECT_FALSE(thread.is_running());
    EXPECT_FALSE(thread.is_executing());
    EXPECT_EQ(capture.count("killed"), 0);
}

// The owner may start an object again, or destroy it, the moment stop() returns: the ending thread
// must not touch the object after that, nor let its end release the next run's start handshake.
TEST(Thread, StopThenRestartOrDestroyInALoopLeavesNothingBehind) {
    LogCapture capture(Logger::kDefaultMask);
    TestThread reused("again");
    int token = 0;
    for (int round = 0; round < 2000; ++round) {
        reused.m_arg_seen = nullptr;
        ASSERT_EQ(reused.start(&token, SCHED_OTHER, 0), 0);
        reused.stop(500);
        ASSERT_EQ(reused.thread_id(), 0u);
        auto owned = std::make_unique<TestThread>("churn");
        ASSERT_EQ(owned->start(nullptr, SCHED_OTHER, 0), 0);
        owned->stop(500);
    }
    reused.m_started = false;
    reused.start(&token, SCHED_OTHER, 0);
    wait_until(reused.m_started);
    EXPECT_EQ(reused.m_arg_seen, &token) << "a run that really started sees its own argument";
    reused.stop(500);
    EXPECT_EQ(capture.count("killed"), 0);
}

TEST(Thread, StopCancelsAThreadThatIgnoresItsRunFlag) {
    LogCapture capture;
    TestThread thread("stubborn", true);
    thread.start(nullptr, SCHED_OTHER, 0);
    wait_until(thread.m_started);
    const auto start = Clock::now();
    thread.stop(500);
    EXPECT_GE(elapsed_ms(start), 450);
    EXPECT_LT(elapsed_ms(start), 500 + kPromptMs);
    EXPECT_EQ(capture.count("Thread stubborn( "), 1);
    EXPECT_EQ(capture.count(") killed"), 1);
    EXPECT_FALSE(thread.is_executing());
    std::this_thread::sleep_for(milliseconds(20));  // let the cancellation reach its next sleep
}

}  // namespace
