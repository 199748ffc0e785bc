// The whole road of an event through the exports, the report object, the worker and the
// delivery engine to a loopback collector, with the strategy served by the same peer.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "api/legacy_bridge.h"
#include "delivery/delivery_test_util.h"
#include "qzdata_report.h"
#include "report/report_object.h"
#include "support/wait.h"
#include "tests/api/fake_legacy_library.h"

namespace qzdata_report_kelvo {
namespace {

std::string TestHardwareId() {
    return "K";
}

bool CalledLegacy(const std::string& name) {
    const std::vector<std::string> calls = qz_fake_legacy::Calls();
    return std::any_of(calls.begin(), calls.end(),
                       [&](const std::string& call) { return call.rfind(name + "(", 0) == 0; });
}

TEST(EndToEndTest, AnEventReachesTheCollectorSignedAndTheStrategyEndsTheLegacyCalls) {
    const bool blobsFit = qz_test::StrategyBlobsFit();
    const std::string blob = blobsFit ? qz_test::ReadStrategyData("good.blob") : "";
    qz_test::ServerGroup collector;
    ASSERT_TRUE(collector.Start(
        {"127.0.0.1"}, {[blob](qz_test::TestConnection& connection) {
            const std::string request = connection.ReadRequest();
            if (request.empty()) {
                return;
            }
            const bool strategy = request.find(" /zhsdkinfo.php?") != std::string::npos;
            connection.Send(strategy ? qz_test::ReplyWithBody(blob) : qz_test::kReplyOk);
            connection.CloseSending();
            connection.WaitForPeerClose();
        }}));
    auto recordWith = [&collector](const std::string& text) {
        std::vector<std::string> records;
        for (const std::string& line : qz_test::RequestLines(collector.at(0))) {
            if (line.find(text) != std::string::npos) {
                records.push_back(line);
            }
        }
        return records;
    };

    LegacyFunctions legacy = MakeLinkedLegacyFunctions();
    SetLegacyFunctionsForTesting(&legacy);
    qz_fake_legacy::Clear();
    ReportThreadImpl& worker = GetReportObject()->GetReportThread();
    ASSERT_NE(worker.GetReportContext(), nullptr);
    worker.GetReportContext()->GetStrategy().SetRoutingForTesting(
        qz_test::LoopbackRouting("127.0.0.1", collector.port(), {}));
    worker.SetHardwareIdSourceForTesting(&TestHardwareId);
    worker.SetCommonParams({{"mid", "ABC"}, {"pro", "demo"}});

    ASSERT_TRUE(Init(L"http://collector.test/", "D", "demo", 60000, nullptr, L"", 7, false));
    qzdata_report_kelvo::Run();
    EXPECT_TRUE(CalledLegacy("Run"));
    if (blobsFit) {
        // The good blob turns the switch on: the next export leaves the legacy library alone.
        ASSERT_TRUE(qz_test::WaitUntil([] { return IsStopOldSdk(); }));
        qz_fake_legacy::Clear();
    }
    EXPECT_TRUE(SendCustomEvent("click", "a b", "", -1, false));
    EXPECT_EQ(CalledLegacy("SendCustomEvent"), !blobsFit);
    ASSERT_TRUE(qz_test::WaitUntil([&] { return recordWith("eid%3Dclick").size() == 1; }));
    Exit(true, 5000);
    SetLegacyFunctionsForTesting(nullptr);

    // GET <path>&EC=1&action=<id>&sdkver=<version>&key=<key>&time=<time>&<query> HTTP/1.1
    const std::string line = recordWith("eid%3Dclick").front();
    const std::string head = "GET /c.gif?act=zhwebevent&smkdata=0&EC=1&action=";
    const std::string version = "&sdkver=vs-nat-2.2.5&key=";
    const size_t keyAt = head.size() + 32 + version.size();
    const size_t timeAt = keyAt + 32 + 6;
    const size_t queryAt = line.find('&', timeAt) + 1;
    ASSERT_GT(queryAt, timeAt) << line;
    EXPECT_EQ(line.substr(0, head.size()), head);
    EXPECT_EQ(line.substr(head.size(), 32).find_first_not_of("0123456789abcdef"),
              std::string::npos);
    EXPECT_EQ(line.substr(head.size() + 32, version.size()), version);
    EXPECT_EQ(line.substr(keyAt + 32, 6), "&time=");
    const std::string time = line.substr(timeAt, queryAt - 1 - timeAt);
    Md5Context key;
    key.Start("zhwebevent" + time + deployment::kRequestSalt);
    EXPECT_EQ(line.substr(keyAt, 32), key.HexDigest());
    EXPECT_EQ(line.substr(queryAt),
              "kelvo_mid=K&mid=ABC&pro=demo&extra=dty%3DD%26eid%3Dclick%26eid_desc%3Da%2Bb"
              "%26sdk_ver%3Dvs-nat-2.2.5%26session_id%3D" +
                  GetSessionId() + " HTTP/1.1");
    // startup, the event, heartbeat and endup: each taken on once and sent at its first try.
    const ReportCounters counters = worker.GetReportContext()->GetStats().Peek();
    EXPECT_EQ(counters.cur, recordWith("/c.gif?").size());
    EXPECT_EQ(counters.first_connect, counters.cur);
    EXPECT_EQ(counters.succeed_report, counters.cur);
}

}  // namespace
}  // namespace qzdata_report_kelvo
