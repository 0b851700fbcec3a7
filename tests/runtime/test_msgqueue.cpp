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

// The empty message also clears the payload the previous one left.
TEST(MsgQueue, DeliversInOrderAndAnEmptyQueueGivesTheEmptyMessage) {
    CMsgQueue queue("q", 20);
    queue.Push(0, "a.mp3");
    queue.Push(4);
    queue.Add(11, "b.mp3");
    EXPECT_EQ(queue.Count(), 3);
    CMsgQueue::Message message;
    for (const auto& [id, payload] : {std::pair{0, "a.mp3"}, {4, ""}, {11, "b.mp3"}, {0xFFFF, ""}}) {
        EXPECT_EQ(queue.Get(message), id);
        EXPECT_EQ(message.payload, payload) << id;
    }
    EXPECT_EQ(queue.Count(), 0);
}

// Add keeps a full queue at its capacity, Push admits one message beyond it; either then drops the
// oldest message and logs each overflow.
TEST(MsgQueue, AFullQueueDropsTheOldestAndLogsEachOverflow) {
    struct Case { bool push; int messages, kept; };
    for (const Case& c : {Case{false, 60, 50}, Case{true, 52, 51}}) {
        LogCapture capture;
        CMsgQueue queue("q", 50);
        for (int i = 0; i < c.messages; ++i) {
            if (c.push) queue.Push(1, std::to_string(i));
            else queue.Add(1, std::to_string(i));
        }
        EXPECT_EQ(queue.Count(), c.kept) << (c.push ? "Push" : "Add");
        EXPECT_EQ(capture.count("Message queue 'q' overflow"), c.messages - c.kept) << (c.push ? "Push" : "Add");
        std::string expected;
        for (int i = c.messages - c.kept; i < c.messages; ++i) expected += std::to_string(i) + ",";
        EXPECT_EQ(drain_payloads(queue), expected) << (c.push ? "Push" : "Add");
    }
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
