// Not-sent reports across processes: this binary runs twice more, to pack and to post the pack.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "qzdata_report.h"
#include "report/report_object.h"
#include "support/http_test_server.h"
#include "support/test_platform.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
void RouteEverythingTo(uint16_t port);  // load_test.cpp
namespace {

// "write" packs a post Exit did not send; "load" names the pack in Init and waits for its post.
TEST(NotSentEndToEndTest, HelperProcess) {
    const char* role = std::getenv("QZ_TEST_PACK_ROLE");
    const char* path = std::getenv("QZ_TEST_PACK_PATH");
    if (role == nullptr || path == nullptr)
        GTEST_SKIP() << "a process of NotSentEndToEndTest.APackWrittenAfterExit...";
    const bool load = role == std::string("load");
    const std::wstring pack(path, path + std::string(path).size());
    qz_test::HttpTestServer collector;
    ASSERT_TRUE(collector.Start(
        qz_test::HttpTestServer::RespondToEach("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")));
    RouteEverythingTo(collector.port());
    const auto received = [&] {
        return testing::Value(collector.Received(),
                              testing::Contains(testing::HasSubstr("eid%3Dpacked")));
    };
    ASSERT_TRUE(Init(L"http://c/", "D", "demo", 60000, nullptr, load ? pack : L"", 0, false));
    if (load) {
        qzdata_report_kelvo::Run();
        EXPECT_TRUE(qz_test::WaitUntil(received, 10000));
        EXPECT_FALSE(std::filesystem::exists(path));
    } else {
        GetReportObject()->AddBucketPostForTesting(
            kPriorityNormal, {L"http://c/", {{{"act", "zhwebevent"}, {"eid", "packed"}}}, true});
    }
    Exit(false, 5000);
    EXPECT_TRUE(load || PackNotSent(pack));
    EXPECT_EQ(load, received());
}

TEST(NotSentEndToEndTest, APackWrittenAfterExitIsPostedByTheNextRunThatNamesIt) {
    const std::string dir = qz_test::MakeTempFolder("not-sent");
    ASSERT_FALSE(dir.empty());
    // True when the helper passed; one that skipped would leave the file's presence wrong.
    const auto RunHelper = [&](const char* role) {
        qz_test::SetEnv("QZ_TEST_PACK_ROLE", role);
        qz_test::SetEnv("QZ_TEST_PACK_PATH", (dir + "/reports.pack").c_str());
        qz_test::SetEnv("XDG_CONFIG_HOME", dir.c_str());
        qz_test::SetEnv("XDG_DATA_HOME", dir.c_str());
        const std::string command =
            "\"" + qz_test::SelfPath() + "\" --gtest_filter=NotSentEndToEndTest.HelperProcess";
        const bool passed = std::system(command.c_str()) == 0;
        qz_test::SetEnv("QZ_TEST_PACK_ROLE", nullptr);
        return passed;
    };
    ASSERT_TRUE(RunHelper("write"));
    ASSERT_TRUE(std::filesystem::exists(dir + "/reports.pack"));
    EXPECT_TRUE(RunHelper("load"));
    EXPECT_FALSE(std::filesystem::exists(dir + "/reports.pack"));
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace qzdata_report_kelvo
