#include "runtime/notification_queue.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

struct Numbered : CNotification {
    explicit Numbered(int number) : number(number) {}
    int number;
};

int NumberOf(const CNotificationPtr& notification) {
    return static_cast<const Numbered&>(*notification).number;
}

// Pending notifications: urgent ones first, nulls dropped. Blocked readers are handed theirs in
// the order they began to wait, whichever form of enqueue wakes them, past pending.
TEST(CNotificationQueueTest, PendingOrderAndFirstComeFirstServedReaders) {
    CNotificationQueue queue;
    queue.enqueue(nullptr);
    queue.enqueueUrgent(nullptr);
    queue.enqueue(std::make_shared<Numbered>(1));
    queue.enqueue(std::make_shared<Numbered>(2));
    queue.enqueueUrgent(std::make_shared<Numbered>(0));
    ASSERT_EQ(queue.size(), 3u);
    EXPECT_EQ(NumberOf(queue.waitDequeue()), 0);
    EXPECT_EQ(NumberOf(queue.waitDequeue()), 1);
    queue.clear();
    EXPECT_EQ(queue.size(), 0u);

    for (auto hand : {&CNotificationQueue::enqueue, &CNotificationQueue::enqueueUrgent}) {
        int first = 0, second = 0;
        std::thread a([&] { first = NumberOf(queue.waitDequeue()); });
        EXPECT_TRUE(qz_test::WaitUntil([&] { return queue.waitingReaders() == 1; }));
        std::thread b([&] { second = NumberOf(queue.waitDequeue()); });
        EXPECT_TRUE(qz_test::WaitUntil([&] { return queue.waitingReaders() == 2; }));
        (queue.*hand)(std::make_shared<Numbered>(10));
        (queue.*hand)(std::make_shared<Numbered>(20));
        a.join();
        b.join();
        EXPECT_EQ(std::make_pair(first, second), std::make_pair(10, 20))
            << (hand == &CNotificationQueue::enqueue ? "enqueue" : "enqueueUrgent");
        EXPECT_EQ(queue.size(), 0u);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
