#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "CMsgQueue.h"
#include "LogCapture.h"

namespace {

using utils::CMsgQueue;

std::string drain_payloads(CMsgQueue& queue) {
    std::string out;
    CMsgQueue::Message message;
    while (queue.Get(message) != CMsgQueue::kEmptyId) out += message.payload + ",";
    return out;
}

TEST(MsgQueue, DeliversInOrderAndAnEmptyQueueGivesTheEmptyMessage) {
    CMsgQueue queue("?????", 20);
    queue.Push(0, "a.mp3");
    queue.Push(4);
    queue.Add(11, "b.mp3");
    EXPECT_EQ(queue.Count(), 3);
    CMsgQueue::Message message;
    EXPECT_EQ(queue.Get(message), 0);
    EXPECT_EQ(message.payload, "a.mp3");
    EXPECT_EQ(queue.Get(message), 4);
    EXPECT_EQ(message.payload, "");
    EXPECT_EQ(queue.Get(message), 11);
    EXPECT_EQ(message.payload, "b.mp3");
    EXPECT_EQ(queue.Get(message), 0xFFFF);
    EXPECT_EQ(message.payload, "");
    EXPECT_EQ(queue.Count(), 0);
}

TEST(MsgQueue, AddOnAFullQueueDropsTheOldestAndLogsTheOverflow) {
    LogCapture capture;
    CMsgQueue queue("?????", 50);
    for (int i = 0; i < 60; ++i) queue.Add(1, std::to_string(i));
    EXPECT_EQ(queue.Count(), 50);
    EXPECT_EQ(capture.count("Message queue '?????\' overflow"), 10);
    std::string expected;
    for (int i = 10; i < 60; ++i) expected += std::to_string(i) + ",";
    EXPECT_EQ(drain_payloads(queue), expected);
}

TEST(MsgQueue, PushAdmitsOneBeyondCapacityBeforeDropping) {
    LogCapture capture;
    CMsgQueue queue("q", 50);
    for (int i = 0; i < 51; ++i) queue.Push(1, std::to_string(i));
    EXPECT_EQ(queue.Count(), 51);
    EXPECT_EQ(capture.count("overflow"), 0);
    queue.Push(1, "51");
    EXPECT_EQ(queue.Count(), 51);
    EXPECT_EQ(capture.count("Message queue 'q' overflow"), 1);
    CMsgQueue::Message oldest;
    queue.Get(oldest);
    EXPECT_EQ(oldest.payload, "1");
}

TEST(MsgQueue, ConcurrentProducersLoseNothingBelowCapacity) {
    CMsgQueue queue("q", 1000);
    std::thread a([&] { for (int i = 0; i < 400; ++i) queue.Push(1); });
    std::thread b([&] { for (int i = 0; i < 400; ++i) queue.Add(2); });
    a.join();
    b.join();
    int ones = 0, twos = 0;
    CMsgQueue::Message message;
    while (queue.Get(message) != CMsgQueue::kEmptyId) (message.id == 1 ? ones : twos)++;
    EXPECT_EQ(ones, 400);
    EXPECT_EQ(twos, 400);
}

}  // namespace
