// The whole road of an event through the exports, the report object, the worker and the
// delivery engine to a loopback collector, with the strategy served by the same peer.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

#include "api/legacy_bridge.h"
#include "codec/md5.h"
#include "delivery/delivery_test_util.h"
#include "deployment_config.h"
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

// Serves the strategy blob on its path and answers 200 to every record.
class Collector {
  public:
    bool Start(const std::string& blob) {
        return servers.Start({"127.0.0.1"}, [this, blob](qz_test::TestConnection& connection) {
            const std::string request = connection.ReadRequest();
            if (request.empty()) {
                return;
            }
            const std::string line = request.substr(0, request.find("\r\n"));
            if (line.find(" /zhsdkinfo.php?") != std::string::npos) {
                connection.Send(qz_test::ReplyWithBody(blob));
            } else {
                connection.Send(qz_test::kReplyOk);
                std::lock_guard<std::mutex> guard(mutex);
                records.push_back(line);
            }
            connection.CloseSending();
            connection.WaitForPeerClose(5000);
        });
    }
    std::vector<std::string> Records() {
        std::lock_guard<std::mutex> guard(mutex);
        return records;
    }
    // The first record whose line holds `text`; empty when none.
    std::string RecordWith(const std::string& text) {
        for (const std::string& line : Records()) {
            if (line.find(text) != std::string::npos) {
                return line;
            }
        }
        return std::string();
    }

    qz_test::ServerGroup servers;

  private:
    std::mutex mutex;
    std::vector<std::string> records;
};

TEST(EndToEndTest, AnEventReachesTheCollectorSignedAndTheStrategyEndsTheLegacyCalls) {
    const bool blobsFit = qz_test::StrategyBlobsFit();

    LegacyFunctions legacy = MakeLinkedLegacyFunctions();
    SetLegacyFunctionsForTesting(&legacy);
    qz_fake_legacy::Clear();

    Collector collector;
    ASSERT_TRUE(collector.Start(blobsFit ? qz_test::ReadStrategyData("good.blob") : std::string()));
    ReportThreadImpl& worker = GetReportObject()->GetReportThread();
    ASSERT_NE(worker.GetReportContext(), nullptr);
    worker.GetReportContext()->GetStrategy().SetRoutingForTesting(
        qz_test::LoopbackRouting("127.0.0.1", collector.servers.port(), {}));
    worker.GetReportContext()->SetRequestTimeoutForTesting(1000);
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
    ASSERT_TRUE(qz_test::WaitUntil([&] { return !collector.RecordWith("eid%3Dclick").empty(); }));
    Exit(true, 5000);
    SetLegacyFunctionsForTesting(nullptr);

    const std::string line = collector.RecordWith("eid%3Dclick");
    const std::regex form(
        "GET /c\\.gif\\?act=zhwebevent&smkdata=0&EC=1&action=[0-9a-f]{32}&sdkver=vs-nat-2\\.2\\.5"
        "&key=([0-9a-f]{32})&time=([0-9]+)&(.*) HTTP/1\\.1");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, form)) << line;
    Md5Context key;
    key.Start("zhwebevent" + match[2].str() + deployment::kRequestSalt);
    EXPECT_EQ(match[1].str(), key.HexDigest());
    EXPECT_EQ(match[3].str(),
              "kelvo_mid=K&mid=ABC&pro=demo&extra=dty%3DD%26eid%3Dclick%26eid_desc%3Da%2Bb"
              "%26sdk_ver%3Dvs-nat-2.2.5%26session_id%3D" +
                  GetSessionId());

    const ReportCounters counters = worker.GetReportContext()->GetStats().Peek();
    EXPECT_EQ(counters.cur, collector.Records().size());
    EXPECT_EQ(counters.succeed_report, counters.cur);
}

}  // namespace
}  // namespace qzdata_report_kelvo
