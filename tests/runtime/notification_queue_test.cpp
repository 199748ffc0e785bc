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
    auto numbered = std::dynamic_pointer_cast<Numbered>(notification);
    return numbered ? numbered->number : -1;
}

TEST(CNotificationQueueTest, PendingOrderWithUrgentAndNull) {
    CNotificationQueue queue;
    queue.enqueue(nullptr);
    queue.enqueueUrgent(nullptr);
    EXPECT_EQ(queue.size(), 0u);

    queue.enqueue(std::make_shared<Numbered>(1));
    queue.enqueue(std::make_shared<Numbered>(2));
    queue.enqueueUrgent(std::make_shared<Numbered>(0));
    ASSERT_EQ(queue.size(), 3u);
    EXPECT_EQ(NumberOf(queue.waitDequeue()), 0);
    EXPECT_EQ(NumberOf(queue.waitDequeue()), 1);
    queue.clear();
    EXPECT_EQ(queue.size(), 0u);
}

// Readers are served in the order they began to wait, whichever form of enqueue wakes them.
TEST(CNotificationQueueTest, BlockedReadersAreServedFirstComeFirstServed) {
    for (bool urgent : {false, true}) {
        SCOPED_TRACE(urgent ? "enqueueUrgent" : "enqueue");
        CNotificationQueue queue;
        int first = 0;
        int second = 0;
        std::thread a([&] { first = NumberOf(queue.waitDequeue()); });
        ASSERT_TRUE(qz_test::WaitUntil([&] { return queue.waitingReaders() == 1; }));
        std::thread b([&] { second = NumberOf(queue.waitDequeue()); });
        ASSERT_TRUE(qz_test::WaitUntil([&] { return queue.waitingReaders() == 2; }));

        auto hand = [&](int number) {
            if (urgent) {
                queue.enqueueUrgent(std::make_shared<Numbered>(number));
            } else {
                queue.enqueue(std::make_shared<Numbered>(number));
            }
        };
        hand(10);
        a.join();
        EXPECT_EQ(first, 10);
        hand(20);
        b.join();
        EXPECT_EQ(second, 20);
        // A handed notification never enters pending.
        EXPECT_EQ(queue.size(), 0u);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
