#include <gtest/gtest.h>

#include <thread>

#include "CTimeout_handler.h"

namespace {

time_t g_now = 0;
time_t fake_time(time_t* out) {
    if (out != nullptr) *out = g_now;
    return g_now;
}

// More whole seconds than the limit must pass since the clock started; an interrupt from another
// thread counts at once and sticks until a limit is set again.
TEST(TimeoutHandler, TimesOutAfterTheLimitOrAtOnceAfterAnInterrupt) {
    CTimeout_handler handler;
    handler.set_time_source(&fake_time);
    g_now = 100;
    handler.start_clock();
    g_now = 110;
    EXPECT_FALSE(handler.timed_out()) << "exactly the default limit of ten seconds is not a time-out";
    g_now = 111;
    EXPECT_TRUE(handler.timed_out());
    handler.set_timeout(15);
    EXPECT_FALSE(handler.timed_out());
    g_now = 116;
    EXPECT_TRUE(handler.timed_out());
    handler.start_clock();
    EXPECT_FALSE(handler.timed_out()) << "a restarted clock starts a new period";
    std::thread([&] { handler.interrupt(); }).join();
    EXPECT_TRUE(handler.timed_out()) << "in the same second as the clock start";
    EXPECT_LT(handler.get_timeout(), 0);
    handler.start_clock();
    EXPECT_TRUE(handler.timed_out()) << "until someone sets a limit again";
    handler.set_timeout(10);
    EXPECT_FALSE(handler.timed_out());
}

// The network time stepping the wall clock by decades must neither end every open at once nor let a
// stalled one run for ever.
TEST(TimeoutHandler, CountsSecondsOnTheMonotonicClock) {
    struct Probe : CTimeout_handler {
        time_t started() const { return m_start; }
    } handler;
    handler.start_clock();
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_LE(now.tv_sec - handler.started(), 1);
    EXPECT_GE(now.tv_sec - handler.started(), 0);
}

}  // namespace
