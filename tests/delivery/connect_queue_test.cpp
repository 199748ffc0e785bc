#include "delivery/connect_queue.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

void Push(CConnectQueue& queue, const std::string& id, int32_t priority, int32_t retry = 1) {
    queue.Push("/p", priority, 0, "&b=1", id, "item", retry, 7, false, false);
}

TEST(NotificationTest, TypeTestsTellTheFamilyApart) {
    const CNotificationPtr connect = std::make_shared<CConnectNotification>();
    const CNotificationPtr quickQuit = std::make_shared<CQuickQuitNotification>();
    const CNotificationPtr quit = std::make_shared<CQuitNotification>();
    EXPECT_TRUE(IsNotification<CConnectNotification>(connect));
    EXPECT_FALSE(IsNotification<CConnectNotification>(quickQuit));
    EXPECT_TRUE(IsNotification<CQuickQuitNotification>(quickQuit));
    EXPECT_FALSE(IsNotification<CQuickQuitNotification>(quit));
    EXPECT_TRUE(IsNotification<CQuitNotification>(quit));
    EXPECT_FALSE(IsNotification<CQuitNotification>(nullptr));
}

TEST(ConnectQueueTest, LowestPriorityFirstAndEqualPrioritiesInArrivalOrder) {
    CConnectQueue queue;
    Push(queue, "a", 5);
    Push(queue, "b", 0);
    Push(queue, "c", 5);
    Push(queue, "d", -1);
    Push(queue, "e", 0);
    EXPECT_EQ(queue.Size(), 5u);
    std::vector<std::string> order;
    CConnectDataPtr data;
    while (queue.PendingNotifications() > 0) {
        const CNotificationPtr notification = queue.Wait(data);
        ASSERT_TRUE(IsNotification<CConnectNotification>(notification));
        ASSERT_TRUE(data);
        order.push_back(data->recordId);
    }
    EXPECT_EQ(order, (std::vector<std::string>{"d", "b", "e", "a", "c"}));
    EXPECT_EQ(queue.Size(), 0u);
}

TEST(ConnectQueueTest, PushKeepsEveryField) {
    CConnectQueue queue;
    queue.Push("/path", 3, 1, "body", "id", "act", 2, 123456789012LL, true, true);
    const CConnectDataPtr data = queue.TakeNext();
    ASSERT_TRUE(data);
    EXPECT_EQ(data->path, "/path");
    EXPECT_EQ(data->priority, 3);
    EXPECT_EQ(data->type, 1);
    EXPECT_EQ(data->body, "body");
    EXPECT_EQ(data->recordId, "id");
    EXPECT_EQ(data->item, "act");
    EXPECT_EQ(data->retry, 2);
    EXPECT_EQ(data->time, 123456789012LL);
    EXPECT_TRUE(data->base64Body);
    EXPECT_TRUE(data->keepAlive);
    EXPECT_FALSE(queue.TakeNext());
}

TEST(ConnectQueueTest, QuickQuitOvertakesQueuedRecordsAndLeavesThemQueued) {
    CConnectQueue queue;
    Push(queue, "a", 0);
    Push(queue, "b", 0);
    queue.PostQuickQuit();
    CConnectDataPtr data;
    const CNotificationPtr first = queue.Wait(data);
    EXPECT_TRUE(IsNotification<CQuickQuitNotification>(first));
    EXPECT_FALSE(data);
    EXPECT_EQ(queue.Size(), 2u);

    queue.Clear();
    EXPECT_EQ(queue.Size(), 0u);
    EXPECT_EQ(queue.PendingNotifications(), 0u);
}

TEST(ConnectQueueTest, AWaitingReaderWakesWithTheRecordPushedLater) {
    CConnectQueue queue;
    CConnectDataPtr data;
    CNotificationPtr notification;
    std::thread reader([&] { notification = queue.Wait(data); });
    Push(queue, "late", 0);
    reader.join();
    EXPECT_TRUE(IsNotification<CConnectNotification>(notification));
    ASSERT_TRUE(data);
    EXPECT_EQ(data->recordId, "late");
}

}  // namespace
}  // namespace qzdata_report_kelvo
