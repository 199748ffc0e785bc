#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "delivery/report_context.h"
#include "port/debug_output.h"
#include "report/event_ids.h"
#include "report/report_object.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

struct SessionProbe : ReportObject {
    using ReportObject::sessionRecords, ReportObject::sessionTimer;
    void KnowMachineId(const std::string& id) { machineId = id, machineIdReady = true; }
};

struct NeverApplied : SessionProbe {  // as when the machine id never comes
    void RefreshSessionInfo() override {}
};

bool InitObject(ReportObject& object, uint32_t eventMask = 7, bool trace = false) {
    return object.Init(L"http://collector.test/", "D", "P", 5000, nullptr, L"", eventMask, trace);
}

// Until the object runs, its posts wait in the worker's queue.
const auto Queued = [](ReportObject& object) { return object.GetReportThread().QueuedPosts(); };
const auto X = [](size_t count) { return std::string(count, 'x'); };

// A refused Init leaves the object uninitialised and inert; a failed pump timer leaves the
// heartbeat timer set.
TEST(ReportObjectTest, InitRefusesBadArgumentsAndFailedTimers) {
    // url, dty, pro, heartbeat interval, timers that can be set (-1: all)
    const std::vector<std::tuple<std::wstring, std::string, std::string, uint32_t, int>> cases = {
        {L"", "D", "P", 5000, -1},  {L"u", "", "P", 5000, -1}, {L"u", "D", "", 5000, -1},
        {L"u", "D", "P", 4999, -1}, {L"u", "D", "P", 5000, 0}, {L"u", "D", "P", 5000, 1}};
    for (const auto& [url, dty, pro, interval, timers] : cases) {
        ReportObject object;
        object.GetTimers().FailSetTimerAfterForTesting(timers);
        EXPECT_FALSE(object.Init(url, dty, pro, interval, nullptr, L"", 7, false));
        object.SetDefaultUrl(L"u");
        EXPECT_FALSE(object.SendCustomEvent("e", "", "", -1, false) ||
                     object.PostImmediately(L"u", {{{"k", "v"}}}, nullptr, nullptr));
        object.Run();
        object.Exit(true, 0);
        EXPECT_EQ(timers == 1, object.GetHeartbeatTimer() != 0);
        EXPECT_EQ(kNotInitialised, object.GetObjectState());
    }
}

void NoteResponse(ReportResponed&) {}

// Posts are queued at once in runs of 20 records, whatever their priority; so are the buckets,
// with their own fields, once the object is initialised.
TEST(ReportObjectTest, PostsAndBucketsAreQueuedInRunsOfTwenty) {
    ReportObject object;
    int context = 0;
    object.AddBucketPostForTesting(3,
                                   {L"held", {25, {{"k", "v"}}}, false, &NoteResponse, &context});
    const auto six = static_cast<DataReportPriority>(6);
    EXPECT_TRUE(object.SetMaxPriority(kPriorityLow) && !object.SetMaxPriority(six) &&
                !object.FlushWithPriority(six));
    ASSERT_TRUE(InitObject(object));
    EXPECT_TRUE(std::regex_match(object.GetSessionId(), std::regex("[-0-9a-f]{36}")));  // UUID
    // records, url, priority (-1: flush the buckets instead), sizes of the posts (none: refused)
    const std::vector<std::tuple<std::vector<ReportRecord>, std::wstring, int, std::vector<size_t>>>
        cases = {{std::vector<ReportRecord>(45, {{"k", "v"}}), L"http://own/", 0, {20, 20, 5}},
                 {std::vector<ReportRecord>(20, {{"k", "v"}}), L"u", 99, {20}},
                 {{{}, {{"k", "v"}}}, L"u", 5, {2}},
                 {std::vector<ReportRecord>(3), L"u", 0, {}},
                 {{}, L"u", 0, {}},
                 {{{{"k", "v"}}}, L"", 0, {}},
                 {{}, L"held", -1, {20, 5}}};
    size_t seen = 0;
    for (const auto& [records, url, priority, sizes] : cases) {
        if (priority < 0) {
            object.Flush();
            EXPECT_EQ(0u, object.BucketSizeForTesting(3));
        } else {
            EXPECT_EQ(!sizes.empty(),
                      object.PostWithPriority(url, static_cast<DataReportPriority>(priority),
                                              records, &NoteResponse, &context));
        }
        const std::vector<ReportPost> posts = Queued(object);
        ASSERT_EQ(seen + sizes.size(), posts.size()) << "case of " << records.size() << " records";
        for (size_t i = 0; i < sizes.size(); ++i, ++seen) {
            EXPECT_EQ(sizes[i], posts[seen].records.size());
            EXPECT_TRUE(posts[seen].url == url && posts[seen].flag == (priority >= 0) &&
                        posts[seen].callback == &NoteResponse && posts[seen].context == &context);
        }
    }
}

// Exit runs a never-run object, sends heartbeat then endup, kills the timers, flushes the buckets
// and keeps an unapplied session for the not-sent file. Each mask bit lets one lifecycle event
// out; while silent every report is accepted and dropped.
TEST(ReportObjectTest, ExitSendsHeartbeatThenEndupAndKeepsAnUnappliedSession) {
    const std::vector<ReportRecord> session{{{"cha", "c"}}};
    // event mask, session applied, silent, event ids built
    const std::vector<std::tuple<uint32_t, bool, bool, std::vector<std::string>>> cases = {
        {7, true, false, {"queued", "startup", "heartbeat", "endup", "bucket"}},
        {2 | 4, false, false, {"queued", "heartbeat", "endup", "bucket"}},
        {1 | 2, true, false, {"queued", "startup", "endup", "bucket"}},
        {4, true, false, {"queued", "heartbeat", "bucket"}},
        {7, false, true, {}}};
    for (const auto& [mask, applies, silent, eids] : cases) {
        SCOPED_TRACE(mask + 10 * silent);
        std::mutex mutex;
        std::vector<std::string> built;  // event ids; before the object, whose worker fills it
        std::unique_ptr<SessionProbe> object(applies ? new SessionProbe : new NeverApplied);
        object->GetReportThread().SetRecordObserver([&](const BuiltRecord& record) {
            const std::regex eid(".*?(?:extra=|%26)eid%3D(\\w+).*");
            std::lock_guard<std::mutex> guard(mutex);
            built.push_back(std::regex_replace(record.signedQuery, eid, "$1"));
        });
        object->sessionRecords = session;
        ASSERT_TRUE(InitObject(*object, mask));
        object->SetSilent(silent);
        EXPECT_TRUE(object->SendCustomEvent("queued", "", "", -1, false));
        object->AddBucketPostForTesting(5, {L"u", {{{"eid", "bucket"}}}});
        object->Exit(true, 5000);
        EXPECT_FALSE(object->GetHeartbeatTimer() + object->GetPumpTimer() ||
                     object->GetReportThread().IsRunning());
        EXPECT_EQ(eids, built);
        // Applied, the session and the machine id are the common fields of every record.
        EXPECT_EQ((applies ? ReportRecord{{"cha", "c"}, {"mid", object->TryGetMachineId()}}
                           : ReportRecord{}),
                  object->GetReportThread().GetFormatter().GetCommonParams());
        const std::vector<ReportPost> kept = object->NotSentPostsForTesting();
        ASSERT_EQ(applies ? 0u : 1u, kept.size());
        EXPECT_TRUE(applies || (kept[0].url == L"http://collector.test/" &&
                                kept[0].records == session && kept[0].flag));
    }
}

// Each event's trace line names its operation and lists the record, known keys first; events are
// queued. Fields are cut to their byte limits (SendExt takes an empty id); error ids get "error/"
// within 99 bytes, and any description adds eid_desc, the translated id.
TEST(ReportObjectTest, TraceWritesEachEventRecord) {
    ReportObject object;
    std::vector<std::string> lines;
    port::SetDebugSink([&](const std::string& line) { lines.push_back(line); });
    EXPECT_TRUE(InitObject(object, 7, true));
    EXPECT_TRUE(AddEidDescriptions(
        std::vector<EidDescPair>{{"errseg", L"Error segment"}, {"error", L"Fault"}}));
    object.SendCustomEvent("e1", "d\xC3\xA9", "c", 5, false);
    object.PostCustomEvent("e2", "", "", -1, true);
    object.SendCustomEvent(X(100), "\xC3\xA9" + X(253), X(500), 0, false);
    // Extra keys never overwrite the event's own.
    object.SendCustomEventExt("", "", "", -1, false, {{"aaa", "x"}, {"act", "a"}, {"eid", "b"}});
    object.SendErrorEventEx(X(96), X(500), "", -1, false);
    object.SendErrorEventEx("errseg", "what", "ignored", 0, false);
    object.SendErrorEvent("plainerr", nullptr, "");
    object.PostHeartBeatEvent();
    port::SetDebugSink(nullptr);
    const std::string a = "\\[act: zhwebevent, eid: ", t = ", ati: 20[0-9]{12}\\]";
    const std::string s = "session_id: " + object.GetSessionId() + ", dty: D, pro: P";
    const std::vector<std::string> expected = {
        "SendCustomEvent" + a + "e1, eid_desc: d\xC3\xA9, content: c, dur: 5, " + s + "\\]",
        "PostCustomEvent" + a + "e2, " + s + t,
        "SendCustomEvent" + a + X(99) + ", eid_desc: \xC3\xA9" + X(252) + ", content: " + X(499) +
            ", dur: 0, " + s + "\\]",
        "SendCustomEventExt" + a + ", " + s + ", aaa: x\\]",
        "SendErrorEventEx" + a + "error/" + X(93) + ", content: " + X(499) + ", " + s + "\\]",
        "SendErrorEventEx" + a + "error/errseg, eid_desc: Fault/Error segment, content: what, " +
            "dur: 0, " + s + "\\]",
        "SendErrorEventEx" + a + "error/plainerr, " + s + t,
        "PostHeartBeatEvent" + a + "heartbeat, dur: [0-9]{1,5}, " + s + t};
    const std::vector<ReportPost> posts = Queued(object);
    ASSERT_TRUE(lines.size() == expected.size() && posts.size() == expected.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(std::regex_match(lines[i], std::regex(expected[i] + "\n"))) << lines[i];
        EXPECT_TRUE(posts[i].flag && posts[i].url == L"http://collector.test/");
    }
}

// Session info becomes the common parameters at once ("OTHER" replaced, no "act" or "ati"); the
// machine id joins at the next refresh, which alone traces (with "ati"). The first call sets the
// one session timer; a refused call changes nothing.
TEST(ReportObjectTest, SessionInfoBecomesTheCommonParameters) {
    SessionProbe object;
    std::vector<std::string> lines;
    port::SetDebugSink([&](const std::string& line) { lines.push_back(line); });
    object.SetOutputDebugString(true);
    const auto common = [&] { return object.GetReportThread().GetFormatter().GetCommonParams(); };
    SessionInfo info;
    info.channel = "OTHER-x-OTHER";
    info.run_source = "rOTHERs";
    info.tzuid = "u";
    info.game = "g";
    info.report_time = true;
    EXPECT_FALSE(object.PostSessionInfo(info));
    EXPECT_TRUE(object.sessionRecords.empty() && object.sessionTimer == 0 && common().empty());
    info.iver = "1.2";
    ASSERT_TRUE(object.PostSessionInfo(info));  // before Init: no session yet
    ReportRecord expected{
        {"session_id", ""},          {"dty", ""},       {"pro", ""},    {"ive", "1.2"},
        {"cha", "null-x-null"},      {"rso", "rnulls"}, {"tzuid", "u"}, {"gam", "g"},
        {"sdk_ver", GetSDKVersion()}};
    EXPECT_EQ(expected, common());
    const ReportIdentity identity = object.GetReportThread().GetReportContext()->GetIdentity();
    EXPECT_TRUE(identity.uid == "u" && identity.from == "null-x-null" && identity.ver == "1.2");
    const uintptr_t timer = object.sessionTimer;
    EXPECT_TRUE(timer != 0 && lines.empty());
    object.KnowMachineId("M1");
    object.RefreshSessionInfo();
    expected["mid"] = "M1";
    EXPECT_TRUE(expected == common() && object.sessionRecords.at(0).count("mid") == 0);
    ASSERT_EQ(1u, lines.size());
    EXPECT_TRUE(std::regex_match(
        lines[0], std::regex("PostSessionInfo\\[act: zhwebevent, ive: 1.2, cha: null-x-null, rso: "
                             "rnulls, tzuid: u, session_id: , mid: M1, dty: , pro: , gam: g, "
                             "ati: 20[0-9]{12}, sdk_ver: .*\\]\n")))
        << lines[0];
    info.tzuid.clear();
    ASSERT_TRUE(object.PostSessionInfo(info));
    expected.erase("tzuid");
    EXPECT_TRUE(expected == common() && timer == object.sessionTimer);
    port::SetDebugSink(nullptr);
}

std::mutex calledMutex;
std::vector<std::string> called;  // the callbacks' letter and id
void NoteMachineId(const std::string& id, void* context) {
    std::lock_guard<std::mutex> guard(calledMutex);
    called.push_back(*static_cast<const char*>(context) + id);
}

// A host may give the machine id once, before Run, and no probe runs; callbacks run once each, in
// order. While the worker resolves the id, waits end at their time-out with an empty text.
TEST(ReportObjectTest, MachineIdIsGivenOnceOrAwaited) {
    struct Probing : ReportObject {  // counts its probes, each held until `release`
        std::string ObtainMachineId() override {
            qz_test::WaitUntil([&] { return release.load(); });
            return ++obtained, "O";
        }
        std::atomic<bool> release{true};
        std::atomic<int> obtained{0};
    };
    Probing given;
    ASSERT_TRUE(InitObject(given, 0));
    given.AddMachineIdCallback(&NoteMachineId, const_cast<char*>("a"));
    given.AddMachineIdCallback(nullptr, nullptr);
    given.AddMachineIdCallback(&NoteMachineId, const_cast<char*>("b"));
    EXPECT_TRUE(given.SetMachineId("H") && !given.SetMachineId("I"));
    given.Run();
    const auto calls = [] { return std::lock_guard<std::mutex>(calledMutex), called; };
    EXPECT_TRUE(qz_test::WaitUntil([&] { return calls().size() == 2; }));
    EXPECT_EQ((std::vector<std::string>{"aH", "bH"}), calls());
    EXPECT_EQ("H", given.GetMachineIdTimeout(0));
    given.Exit(false, 5000);
    EXPECT_EQ(0, given.obtained.load());  // neither probed nor read from the store
    Probing awaited;
    awaited.release = false;
    ASSERT_TRUE(InitObject(awaited, 0));
    awaited.Run();
    EXPECT_EQ("", awaited.GetMachineIdTimeout(0) + awaited.GetMachineIdTimeout(20));
    EXPECT_FALSE(awaited.SetMachineId("late"));
    awaited.release = true;
    EXPECT_TRUE(awaited.GetMachineIdTimeout(5000) == "O" && awaited.obtained == 1);
    awaited.Exit(false, 5000);
    EXPECT_EQ(2u, calls().size());
}

}  // namespace
}  // namespace qzdata_report_kelvo
