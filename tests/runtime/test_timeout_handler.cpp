#include <gtest/gtest.h>

#include <thread>

#include "CTimeout_handler.h"

namespace {

time_t g_now = 0;
time_t fake_time(time_t* out) {
    if (out != nullptr) *out = g_now;
    return g_now;
}

class TimeoutHandlerTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_now = 100;
        handler.set_time_source(&fake_time);
    }
    CTimeout_handler handler;
};

TEST_F(TimeoutHandlerTest, TimesOutOnlyWhenMoreWholeSecondsThanTheLimitHavePassed) {
    EXPECT_EQ(handler.get_timeout(), 10);
    handler.start_clock();
    g_now = 110;
    EXPECT_FALSE(handler.timed_out()) << "exactly the limit is not a time-out";
    g_now = 111;
    EXPECT_TRUE(handler.timed_out());
}

TEST_F(TimeoutHandlerTest, RestartingTheClockStartsANewPeriod) {
    handler.set_timeout(15);
    handler.start_clock();
    g_now = 116;
    EXPECT_TRUE(handler.timed_out());
    handler.start_clock();
    EXPECT_FALSE(handler.timed_out());
}

TEST_F(TimeoutHandlerTest, InterruptFromAnotherThreadIsImmediateAndSticky) {
    handler.start_clock();
    EXPECT_FALSE(handler.timed_out());
    std::thread([this] { handler.interrupt(); }).join();
    EXPECT_TRUE(handler.timed_out()) << "in the same second as the clock start";
    EXPECT_LT(handler.get_timeout(), 0);
    handler.start_clock();
    EXPECT_TRUE(handler.timed_out()) << "until someone sets a limit again";
    handler.set_timeout(10);
    EXPECT_FALSE(handler.timed_out());
}

TEST(TimeoutHandler, KeepsItsNameAndContext) {
    CTimeout_handler handler;
    EXPECT_EQ(handler.name(), "CTimeout_handler");
    handler.set_name("CAudioSource");
    handler.set_context("http://127.0.0.1/stream");
    EXPECT_EQ(handler.name(), "CAudioSource");
    EXPECT_EQ(handler.context(), "http://127.0.0.1/stream");
}

}  // namespace
