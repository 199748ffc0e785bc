#include "delivery/report_connect.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "delivery/delivery_test_util.h"
#include "support/wait.h"

namespace qzdata_report_kelvo {
namespace {

using qz_test::AttemptsSeen;
using qz_test::HttpTestServer;
using qz_test::kReplyError;
using qz_test::kReplyOk;
using qz_test::LoopbackRouting;
using qz_test::ReplyWithBody;
using qz_test::RequestLines;
using qz_test::ServerGroup;

const std::string kHost = "127.0.0.1";
const std::string kId = "0123456789abcdef0123456789abcdef";

CConnectData Record(const std::string& path, const std::string& body, int32_t retry = 1) {
    CConnectData data;
    data.path = path;
    data.body = body;
    data.recordId = kId;
    data.item = "zhwebevent";
    data.retry = retry;
    return data;
}

TEST(BuildTargetTest, Rules) {
    CConnectData direct;
    direct.retry = 0;
    CConnectData post = Record("/c.gif?act=x&smkdata=0", "&key=k&q=1");
    post.type = 1;
    CConnectData postNoItem = post;
    postNoItem.item.clear();
    CConnectData base64 = Record("/c.gif?a=1", "&q=1");
    base64.base64Body = true;
    CConnectData base64Empty = Record("/c.gif?a=1", "");
    base64Empty.base64Body = true;
    CConnectData strategyPath = direct;
    strategyPath.path = "/zhsdkinfo.php?ver=1";
    CConnectData noQuestion = direct;
    noQuestion.path = "/x";
    CConnectData trailing = direct;
    trailing.path = "/x?";
    CConnectData noSlash = direct;
    noSlash.path = "c.gif?a=1";
    CConnectData empty = direct;

    struct Case {
        const char* name;
        CConnectData data;
        int32_t attempt;
        std::string version;
        std::string target;
    };
    const std::vector<Case> cases = {
        {"direct, existing query", strategyPath, 2, "v", "/zhsdkinfo.php?ver=1&EC=2"},
        {"no question mark", noQuestion, 1, "v", "/x?EC=1"},
        {"trailing question mark", trailing, 1, "v", "/x?EC=1"},
        {"no leading slash", noSlash, 1, "v", "/c.gif?a=1&EC=1"},
        {"empty path", empty, 3, "v", "/?EC=3"},
        {"record, first attempt", Record("/c.gif?act=x&smkdata=0", "&key=k&time=1&q=1"), 1, "v1",
         "/c.gif?act=x&smkdata=0&EC=1&action=" + kId + "&sdkver=v1&key=k&time=1&q=1"},
        {"record, pass 3 attempt 4", Record("/c.gif?a=1", "&q=1", 3), 4, "v",
         "/c.gif?a=1&EC=12&action=" + kId + "&sdkver=v&q=1"},
        {"body without leading ampersand", Record("/c.gif?a=1", "q=1"), 1, "v",
         "/c.gif?a=1&EC=1&action=" + kId + "&sdkver=v&q=1"},
        {"body carries sdkver", Record("/c.gif?a=1", "&q=1&sdkver=mine"), 1, "v",
         "/c.gif?a=1&EC=1&action=" + kId + "&q=1&sdkver=mine"},
        {"body begins with sdkver", Record("/c.gif?a=1", "sdkver=mine&q=1"), 1, "v",
         "/c.gif?a=1&EC=1&action=" + kId + "&sdkver=mine&q=1"},
        {"no version", Record("/c.gif?a=1", "&q=1"), 1, "",
         "/c.gif?a=1&EC=1&action=" + kId + "&q=1"},
        {"base64 flag", base64, 1, "", "/c.gif?a=1&EC=1&enc=b64&action=" + kId + "&q=1"},
        {"base64 flag, empty body", base64Empty, 1, "", "/c.gif?a=1&EC=1&action=" + kId},
        {"post with item", post, 1, "v",
         "/c.gif?act=x&smkdata=0&EC=1&action=" + kId + "&sdkver=v&item=zhwebevent"},
        {"post without item", postNoItem, 2, "v",
         "/c.gif?act=x&smkdata=0&EC=2&action=" + kId + "&sdkver=v"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CReportConnect::BuildTarget(c.data, c.attempt, c.version), c.target) << c.name;
    }
}

// A temporary connection on the test thread, with the engine's context pointed at `port`.
struct Direct {
    Direct(uint16_t port, const std::vector<std::string>& fallback)
        : context("vs-direct"),
          connect(kHost, port, &context, &context.GetStrategy().GetFallbackList(),
                  &context.GetStrategy().GetPostFallbackList()) {
        context.GetStrategy().SetRoutingForTesting(LoopbackRouting(kHost, port, fallback));
        context.SetRequestTimeoutForTesting(1000);
    }
    CReportContext context;
    CReportConnect connect;
};

TEST(DirectWayTest, FetchPlainReturnsTheReplyBodyOfAnUnsignedTarget) {
    ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost}, HttpTestServer::Respond(ReplyWithBody("blob-text"))));
    Direct direct(servers.port(), {});
    std::string reply = "stale";
    EXPECT_TRUE(direct.connect.FetchPlain("/zhsdkinfo.php?ver=1", 0, "", reply));
    EXPECT_EQ(reply, "blob-text");
    EXPECT_EQ(RequestLines(servers.at(0)),
              std::vector<std::string>{"GET /zhsdkinfo.php?ver=1&EC=1 HTTP/1.1"});
}

// The direct way tries the host twice and a fallback address twice, and counts nothing.
TEST(DirectWayTest, AFailingFetchFallsBackQuietly) {
    ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost, "127.0.0.2"}, HttpTestServer::Respond(kReplyError)));
    Direct direct(servers.port(), {"127.0.0.2"});
    std::string reply;
    EXPECT_FALSE(direct.connect.FetchPlain("/f", 0, "", reply));
    ASSERT_TRUE(qz_test::WaitUntil([&] { return servers.ConnectionCount() == 4; }));
    EXPECT_EQ(AttemptsSeen(servers.at(0)), (std::vector<int>{1, 2}));
    EXPECT_EQ(AttemptsSeen(servers.at(1)), (std::vector<int>{3, 4}));
    const ReportCounters counters = direct.context.GetStats().Peek();
    EXPECT_EQ(counters.first_connect + counters.retry + counters.fait + counters.fail_report, 0u);
}

TEST(DirectWayTest, UploadOnceMakesOneAttemptAndNoFallback) {
    ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost, "127.0.0.2"}, HttpTestServer::Respond(kReplyError)));
    Direct direct(servers.port(), {"127.0.0.2"});
    EXPECT_FALSE(direct.connect.UploadDirect("/c.gif?act=zhlogtotal&smkdata=0", 0, "&q=1", kId,
                                             "zhlogtotal", 5, true));
    ASSERT_TRUE(qz_test::WaitUntil([&] { return servers.at(0).FinishedCount() == 1; }));
    EXPECT_EQ(servers.ConnectionCount(), 1u);
}

// The POST branch: the body travels as content, the target names the item.
TEST(DirectWayTest, UploadAsPostSendsTheBodyAsContent) {
    ServerGroup servers;
    ASSERT_TRUE(servers.Start({kHost}, HttpTestServer::Respond(kReplyOk)));
    Direct direct(servers.port(), {});
    EXPECT_TRUE(direct.connect.UploadDirect("/c.gif?act=zhlogfail&smkdata=0", 1, "&key=k&q=1", kId,
                                            "zhlogfail", 5, false));
    const std::string request = servers.at(0).ReceivedOn(0);
    EXPECT_EQ(request.substr(0, request.find("\r\n")),
              "POST /c.gif?act=zhlogfail&smkdata=0&EC=1&action=" + kId +
                  "&sdkver=vs-direct&item=zhlogfail HTTP/1.1");
    EXPECT_NE(request.find("Content-Length: 10\r\n"), std::string::npos);
    EXPECT_EQ(request.substr(request.size() - 10), "&key=k&q=1");
}

// A connection's loop run on the test thread: the queue holds records and a quick quit ahead
// of them, so Run goes straight to the drain and returns.
struct Drain {
    explicit Drain(uint16_t port) : direct(port, {"127.0.0.2"}), port(port) {}
    void Push(int32_t retry, int count) {
        for (int i = 0; i < count; ++i) {
            queue.Push("/c.gif?a=1", 0, 0, "&q=1", kId, "a", retry, -1, false, false);
        }
    }
    void Run() {
        CStrategy& strategy = direct.context.GetStrategy();
        CReportConnect connect(kHost, port, &queue, &direct.context, &strategy.GetFallbackList(),
                               &strategy.GetPostFallbackList());
        queue.PostQuickQuit();
        connect.Run();
    }
    Direct direct;
    CConnectQueue queue;
    const uint16_t port;
};

TEST(DrainTest, UntriedRecordsGetOneAttemptWithinTheBudgetAndTheRestAreGivenUp) {
    struct Case {
        const char* name;
        std::string reply;
        int laterPass;
        int untried;
        size_t requests;
        uint64_t succeeded, failed, del;
    };
    const std::vector<Case> cases = {
        {"reachable, within budget", kReplyOk, 2, 3, 3, 3, 0, 2},
        {"reachable, over budget", kReplyOk, 0, 23, 20, 20, 0, 3},
        {"failing: one attempt, no fallback, no repost", kReplyError, 1, 2, 2, 0, 2, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ServerGroup servers;
        ASSERT_TRUE(servers.Start({kHost, "127.0.0.2"}, HttpTestServer::Respond(c.reply)));
        Drain drain(servers.port());
        drain.Push(2, c.laterPass);
        drain.Push(1, c.untried);
        drain.Run();

        EXPECT_EQ(drain.queue.Size(), 0u);
        ASSERT_TRUE(
            qz_test::WaitUntil([&] { return servers.at(0).FinishedCount() == c.requests; }));
        EXPECT_EQ(servers.ConnectionCount(), c.requests);
        for (const std::string& line : RequestLines(servers.at(0))) {
            EXPECT_EQ(qz_test::AttemptOf(line), 1);
        }
        const ReportCounters counters = drain.direct.context.GetStats().Peek();
        EXPECT_EQ(counters.succeed_report, c.succeeded);
        EXPECT_EQ(counters.fail_report, c.failed);
        EXPECT_EQ(counters.del, c.del);
        EXPECT_EQ(counters.resume_report, 0u);
        EXPECT_EQ(counters.first_connect, c.requests);
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
