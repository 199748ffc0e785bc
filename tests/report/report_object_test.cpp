#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "report/report_fixture.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

struct InitCase {
    std::wstring url;
    std::string dty;
    std::string pro;
    uint32_t interval;
};

TEST_F(ReportObjectTest, InitRefusesMissingTextsAndShortIntervals) {
    for (const InitCase& c : std::vector<InitCase>{{L"", "D", "P", 5000},
                                                   {L"u", "", "P", 5000},
                                                   {L"u", "D", "", 5000},
                                                   {L"u", "D", "P", 4999}}) {
        SCOPED_TRACE(c.interval);
        EXPECT_FALSE(object->Init(c.url, c.dty, c.pro, c.interval, nullptr, L"", 7, false));
        EXPECT_EQ(0u, object->HeartbeatTimerForTesting());
        EXPECT_EQ(0u, object->PumpTimerForTesting());
        EXPECT_EQ(kNotInitialised, object->GetObjectState());
        EXPECT_EQ("", object->GetSessionId());
    }
    EXPECT_TRUE(object->Init(L"u", "D", "P", 5000, nullptr, L"", 7, false));
    EXPECT_EQ(kInitialised, object->GetObjectState());
    EXPECT_NE(0u, object->HeartbeatTimerForTesting());
    EXPECT_NE(0u, object->PumpTimerForTesting());
    EXPECT_EQ(L"u", object->GetDefaultUrl());
    const std::string id = object->GetSessionId();
    EXPECT_TRUE(std::regex_match(
        id, std::regex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")))
        << id;
    EXPECT_NE(id, object->CreateSessionId());
}

TEST_F(ReportObjectTest, FailedPumpTimerLeavesTheHeartbeatTimerSet) {
    object->GetTimers().FailSetTimerAfterForTesting(1);
    EXPECT_FALSE(InitObject());
    EXPECT_NE(0u, object->HeartbeatTimerForTesting());
    EXPECT_EQ(0u, object->PumpTimerForTesting());
    EXPECT_EQ(kNotInitialised, object->GetObjectState());
}

TEST_F(ReportObjectTest, ReportsBeforeInitAreRefused) {
    EXPECT_FALSE(object->SendCustomEvent("e", "", "", -1, false));
    EXPECT_FALSE(object->PostImmediately(L"u", {{{"k", "v"}}}, nullptr, nullptr));
    object->Run();
    EXPECT_EQ(kNotInitialised, object->GetObjectState());
    object->Exit(true, 0);
    EXPECT_EQ(kNotInitialised, object->GetObjectState());
    EXPECT_TRUE(Queued().empty());
}

void NoteResponse(ReportResponed&) {}

struct BatchCase {
    const char* name;
    std::vector<ReportRecord> records;
    std::wstring url;
    std::vector<size_t> postSizes;  // none: refused
};

TEST_F(ReportObjectTest, PostImmediatelyCutsBatchesIntoRunsOfTwenty) {
    ASSERT_TRUE(InitObject());
    int context = 0;
    std::vector<ReportRecord> oneAmongEmpty(21);
    oneAmongEmpty[7] = {{"k", "v"}};
    const std::vector<BatchCase> cases = {
        {"forty-five", std::vector<ReportRecord>(45, {{"k", "v"}}), L"http://own/", {20, 20, 5}},
        {"exactly twenty", std::vector<ReportRecord>(20, {{"k", "v"}}), L"u", {20}},
        {"all maps empty", std::vector<ReportRecord>(3), L"u", {}},
        {"no records", {}, L"u", {}},
        {"one map among empty ones sends all", oneAmongEmpty, L"u", {20, 1}},
        {"empty url", {{{"k", "v"}}}, L"", {}},
    };
    size_t seen = 0;
    for (const BatchCase& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(!c.postSizes.empty(),
                  object->PostImmediately(c.url, c.records, &NoteResponse, &context));
        const std::vector<ReportPost> posts = Queued();
        ASSERT_EQ(seen + c.postSizes.size(), posts.size());
        for (size_t i = 0; i < c.postSizes.size(); ++i) {
            const ReportPost& post = posts[seen + i];
            EXPECT_EQ(c.postSizes[i], post.records.size());
            EXPECT_EQ(c.url, post.url);
            EXPECT_TRUE(post.flag);
            EXPECT_EQ(&NoteResponse, post.callback);
            EXPECT_EQ(&context, post.context);
        }
        seen = posts.size();
    }
}

TEST_F(ReportObjectTest, PriorityNeverChangesTheFateOfAPost) {
    ASSERT_TRUE(InitObject());
    for (int priority : {0, 5, 99}) {
        EXPECT_TRUE(object->PostWithPriority(L"u", static_cast<DataReportPriority>(priority),
                                             {{{"p", "v"}}}, nullptr, nullptr));
    }
    const std::vector<ReportPost> posts = Queued();
    ASSERT_EQ(3u, posts.size());
    for (const ReportPost& post : posts) {
        EXPECT_TRUE(post.flag);
    }
    for (size_t bucket = 0; bucket < 6; ++bucket) {
        EXPECT_EQ(0u, object->BucketSizeForTesting(bucket));
    }
}

TEST_F(ReportObjectTest, FlushHandsBucketsOverInRunsOfTwentyWithTheirOwnFields) {
    int context = 0;
    ReportObject::BucketPost held;
    held.url = L"held";
    held.records.assign(25, ReportRecord{{"k", "v"}});
    held.flag = false;
    held.callback = &NoteResponse;
    held.context = &context;
    object->AddBucketPostForTesting(3, held);

    // Before Init nothing can be handed over, and the bucket keeps its post.
    EXPECT_TRUE(object->FlushWithPriority(kPriorityNormal));
    EXPECT_FALSE(object->FlushWithPriority(static_cast<DataReportPriority>(6)));
    EXPECT_EQ(1u, object->BucketSizeForTesting(3));

    ASSERT_TRUE(InitObject());
    object->Flush();
    EXPECT_EQ(0u, object->BucketSizeForTesting(3));
    const std::vector<ReportPost> posts = Queued();
    ASSERT_EQ(2u, posts.size());
    EXPECT_EQ(20u, posts[0].records.size());
    EXPECT_EQ(5u, posts[1].records.size());
    for (const ReportPost& post : posts) {
        EXPECT_EQ(L"held", post.url);
        EXPECT_FALSE(post.flag);
        EXPECT_EQ(&NoteResponse, post.callback);
        EXPECT_EQ(&context, post.context);
    }
    object->Flush();
    EXPECT_EQ(2u, Queued().size());
}

TEST_F(ReportObjectTest, SilentAcceptsAndDropsEveryReport) {
    ASSERT_TRUE(InitObject());
    object->SetSilent(true);
    EXPECT_TRUE(object->IsSilent());
    EXPECT_TRUE(object->SendCustomEvent("e", "", "", -1, true));
    EXPECT_TRUE(object->PostImmediately(L"u", {{{"k", "v"}}}, nullptr, nullptr));
    object->Run();
    object->Exit(true, 5000);
    EXPECT_TRUE(Queued().empty());
    EXPECT_TRUE(BuiltQueries().empty());
}

TEST_F(ReportObjectTest, ExitOfANeverRunObjectSendsStartupHeartbeatAndEndupInOrder) {
    ASSERT_TRUE(InitObject());
    EXPECT_TRUE(object->SendCustomEvent("queued", "", "", -1, false));
    object->Exit(true, 5000);
    EXPECT_EQ(0u, object->HeartbeatTimerForTesting());
    EXPECT_EQ(0u, object->PumpTimerForTesting());
    EXPECT_TRUE(object->GetReportThread().HasEndedForTesting());
    EXPECT_EQ((std::vector<std::string>{"queued", "startup", "heartbeat", "endup"}), BuiltEids());

    // After Exit reports are still accepted; nothing takes them any more.
    EXPECT_TRUE(object->SendCustomEvent("late", "", "", -1, false));
    EXPECT_EQ(1u, Queued().size());
}

TEST_F(ReportObjectTest, EventMaskSelectsTheLifecycleEvents) {
    const std::vector<std::pair<uint32_t, std::vector<std::string>>> cases = {
        {0, {}}, {4, {"heartbeat"}}, {1 | 2, {"startup", "endup"}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        Reset();
        ASSERT_TRUE(InitObject(c.first));
        object->Run();
        object->Exit(false, 5000);
        EXPECT_EQ(c.second, BuiltEids());
    }
}

TEST_F(ReportObjectTest, LifecycleRecordsCarryTheSessionFields) {
    ASSERT_TRUE(InitObject());
    object->PostHeartBeatEvent();
    object->PostEndUpEvent();
    const std::vector<ReportRecord> records = QueuedRecords();
    ASSERT_EQ(2u, records.size());
    for (const ReportRecord& record : records) {
        EXPECT_EQ("zhwebevent", record.at("act"));
        EXPECT_EQ(object->GetSessionId(), record.at("session_id"));
        EXPECT_EQ("D", record.at("dty"));
        EXPECT_EQ("P", record.at("pro"));
        EXPECT_TRUE(std::regex_match(record.at("ati"), std::regex("20[0-9]{12}")));
        EXPECT_TRUE(std::regex_match(record.at("dur"), std::regex("-?[0-9]+")));
    }
    EXPECT_EQ("heartbeat", records[0].at("eid"));
    EXPECT_EQ("endup", records[1].at("eid"));
    EXPECT_EQ(7u, records[0].size());
}

std::atomic<int> pumpedCalls{0};
std::atomic<bool> pumpedOnOtherThread{false};
std::thread::id testThread;

void OnPumped(ReportResponed&) {
    pumpedOnOtherThread = std::this_thread::get_id() != testThread;
    ++pumpedCalls;
}

void FinishWithCallback(void* argument) {
    auto* post = new ReportPost;
    post->callback = &OnPumped;
    static_cast<ReportObject*>(argument)->GetReportThread().FinishPost(post, 0);
}

TEST_F(ReportObjectTest, PumpTimerDeliversCompletionCallbacksOnTheTimerThread) {
    testThread = std::this_thread::get_id();
    object->GetReportThread().AddStartupCall(&FinishWithCallback, object.get());
    ASSERT_TRUE(InitObject());
    object->Run();
    EXPECT_TRUE(qz_test::WaitUntil([&] { return pumpedCalls.load() == 1; }));
    EXPECT_TRUE(pumpedOnOtherThread.load());
    object->Exit(false, 5000);
    EXPECT_EQ(1, pumpedCalls.load());
}

}  // namespace
}  // namespace qzdata_report_kelvo
