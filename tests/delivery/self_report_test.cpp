// Self-reporting: locked log files, the device configuration over TLS, statistics and failure
// lines at a loopback collector, and the upload of the files an earlier run left.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <regex>
#include <set>

#include "codec/md5.h"
#include "delivery/dispatch_table.h"
#include "delivery/report_context.h"
#include "delivery/report_log_stream.h"
#include "deployment_config.h"
#include "port/app_data_folder.h"
#include "port/env.h"
#include "port/log_file.h"
#include "support/http_test_server.h"
#include "support/test_platform.h"
#include "support/wait.h"

// The server side of TLS and the config server's cipher; last, as their macros would rename
// declarations of the client. DES is deprecated in OpenSSL 3 but still built into libcrypto.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/ssl.h>

namespace qzdata_report_kelvo {
std::string Reply(const std::string& status, const std::string& body = "");  // delivery_test.cpp
namespace {

using namespace qz_test;  // NOLINT: the servers, waits and files of the test support
using namespace testing;  // NOLINT: its matchers

// `plain` as the server enciphers it: DES-ECB keyed by 8 chars of MD5(time + pass), base64.
std::string ConfigData(const std::string& time, const std::string& plain) {
    const std::string seed = time + deployment::kConfigPass;
    unsigned char digest[MD5_DIGEST_LENGTH];
    MD5(reinterpret_cast<const unsigned char*>(seed.data()), seed.size(), digest);
    char key[9];  // the digest's first 8 hex digits, as text
    std::snprintf(key, sizeof(key), "%02x%02x%02x%02x", digest[0], digest[1], digest[2], digest[3]);
    DES_key_schedule schedule;
    DES_set_key_unchecked(reinterpret_cast<const_DES_cblock*>(key), &schedule);
    // PKCS#5 padding
    std::string blocks = plain + std::string(8 - plain.size() % 8, char(8 - plain.size() % 8));
    for (size_t at = 0; at < blocks.size(); at += 8) {
        auto* block = reinterpret_cast<DES_cblock*>(&blocks[at]);
        DES_ecb_encrypt(block, block, &schedule, DES_ENCRYPT);
    }
    std::string text(blocks.size() / 3 * 4 + 5, '\0');
    text.resize(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                reinterpret_cast<const unsigned char*>(blocks.data()),
                                static_cast<int>(blocks.size())));
    return text;
}

const char kPem[] = QZ_NET_TEST_DATA "/tls_peer.pem";

std::string ConfigReply(int open, const std::string& time = "1700000000") {
    return R"({"code":1,"time":)" + time + R"(,"data":")" +
           ConfigData(time, R"({"tzConfig":{"open":)" + std::to_string(open) + "}}") + "\"}";
}

// An extended regular expression: gtest's own is a small subset on Windows.
MATCHER_P(ContainsRe, pattern, "") {
    return std::regex_search(arg, std::regex(pattern));
}

std::set<std::string> Files(const std::string& folder) {
    std::set<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        names.insert(entry.path().filename().string());
    return names;
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// A private data home, a TLS config server and a collector (500 to "BAD" and while `down`).
class SelfReportTest : public testing::Test {
  protected:
    void SetUp() override {
        home = MakeTempFolder("qz-self");
        port::OverrideAppDataFolderForTesting(home);
        logs = home + "/norvik/tzgame/log/reportsdk/";
        ASSERT_TRUE(collector.Start([this](TestConnection& connection) {
            const std::string request = connection.ReadRequest();
            WaitUntil([this] { return !hold; }, 10000);
            const bool refuse = down || request.find("BAD") != std::string::npos;
            connection.Send(Reply(refuse ? "500 No" : "200 OK"));
            connection.WaitForPeerClose();
        }));
    }
    void TearDown() override {
        context.reset();
        std::filesystem::remove_all(home);
        port::OverrideAppDataFolderForTesting("");
    }
    // Starts the config server answering `open` (-1: nothing listens, -2: accepts and never
    // answers), then the context.
    void StartContext(int open, uint32_t periodMs = 50) {
        config = std::make_unique<HttpTestServer>();
        if (open == -2) {
            ASSERT_TRUE(config->Start(HttpTestServer::Stall()));
        } else if (open >= 0) {
            const std::string reply = Reply("200 OK", ConfigReply(open));
            ASSERT_TRUE(config->Start([this, reply](TestConnection& connection) {
                static SSL_CTX* const tls = SSL_CTX_new(TLS_server_method());
                static const int keyed = SSL_CTX_use_certificate_chain_file(tls, kPem) +
                                         SSL_CTX_use_PrivateKey_file(tls, kPem, SSL_FILETYPE_PEM);
                ASSERT_EQ(keyed, 2);
                std::unique_ptr<SSL, void (*)(SSL*)> session(SSL_new(tls), SSL_free);
                char head[4096];
                int n = 0;
                if (SSL_set_fd(session.get(), connection.fd()) == 1 &&
                    SSL_accept(session.get()) == 1 &&
                    (n = SSL_read(session.get(), head, sizeof(head))) > 0) {
                    configHead.assign(head, n);
                    SSL_write(session.get(), reply.data(), static_cast<int>(reply.size()));
                    SSL_shutdown(session.get());
                }
            }));
        }
        context = std::make_unique<CReportContext>("vs-test-1");
        StrategyRouting routing = DefaultRouting();
        routing.hosts.collectorHost = routing.hosts.configHost = "127.0.0.1";
        routing.hosts.collectorPort = collector.port();
        routing.hosts.configPort = open == -1 ? 1 : config->port();
        routing.fallbackAddresses.clear();
        context->GetStrategy().SetRoutingForTesting(routing);
        context->GetUploadLog().SetPeriodsForTesting(periodMs, 5);
        context->SetSessionInfo("S1", "K");
        context->SetAccountInfo("p", "u1", "web", "1.0");  // starts the upload thread
        context->SetDeliveryMachineId("dev1");
    }
    // The request targets of `act` at the collector, in order.
    std::vector<std::string> Requests(const std::string& act = "") {
        std::vector<std::string> found;
        for (const std::string& request : collector.Received()) {
            if (request.find("act=" + act) != std::string::npos)
                found.push_back(request.substr(0, request.find(" HTTP/1.1")));
        }
        return found;
    }
    // A record the collector refuses at once (a refused connect costs a time-out on Windows).
    void PostFailingRecord(CDispatchTable& table) {
        table.Post("127.0.0.1", collector.port(),
                   {"/c.gif?act=zhwebevent&BAD", 0, 0, "", "", "zhwebevent", 0, -1, false, false});
    }
    std::string home, logs;
    std::atomic<bool> down{false}, hold{false};
    HttpTestServer collector;
    std::string configHead;  // read once the config server's connection has finished
    std::unique_ptr<HttpTestServer> config;
    std::unique_ptr<CReportContext> context;
};

// A second writer gets the counter name; a file with bytes gets a line end before its first line.
TEST_F(SelfReportTest, LogFilesAreNamedLockedAndPrivate) {
    struct FixedClock : port::EnvWrapper {
        void GetLocalTime(port::LocalTime* out) override { *out = {2026, 1, 2, 3, 4, 5, 6}; }
    } clock;
    port::Env::Install(&clock);
    const std::string prefix = home + "/report";
    port::MakeDirectoryPrivate(home);  // as the log folders are, whose files inherit it on Windows
    WriteFile(prefix + "20260102030405006.log", "cut");
    CReportLogStream first, second;
    first.OpenLogFile(prefix);
    second.OpenLogFile(prefix);
    port::Env::Install(nullptr);
    first.WriteLine("a");
    second.WriteLine("b");
    EXPECT_EQ(second.GetPath(), prefix + "202601020304050061.log");
    EXPECT_EQ(ReadFile(first.GetPath()), "cut\r\na\r\n");
    EXPECT_EQ(ReadFile(second.GetPath()), "b\r\n");
    EXPECT_TRUE(!FileAccessIsKept() || IsPrivateToUser(second.GetPath()));
}

TEST(DeviceConfigTest, ParseRules) {
    const std::string data = ConfigData("42", R"({"tzConfig":{"open":1}})");
    for (const std::string& reply : std::vector<std::string>{
             R"({"code":1,"time":43,"data":")" + data + "\"}",
             R"({"code":2,"time":42,"data":")" + data + "\"}", R"({"code":1,"time":42,"data":""})",
             R"({"code":1,"time":42,"data":")" + data.substr(0, 20),
             R"({"code":1,"time":42,"data":")" + ConfigData("42", R"({"tzConfig":7})") + "\"}"}) {
        EXPECT_FALSE(CUploadLog::ParseDeviceConfig(reply)) << reply;
    }
}

// Closed or silent configuration: no timer, no line, no file, while records go on.
TEST_F(SelfReportTest, WithoutAnOpenConfigurationNothingIsReported) {
    for (int open : {0, -1, -2}) {
        StartContext(open);
        CDispatchTable table(context.get());
        table.Start();
        PostFailingRecord(table);
        ASSERT_TRUE(WaitUntil([&] { return context->GetStats().Peek().fait >= 2; }));
        if (open == 0) {
            ASSERT_TRUE(WaitUntil([&] { return config->FinishedCount() == 1; }));
            EXPECT_THAT(configHead, HasSubstr("GET /api/getDeviceConfig?sys=10&uid=u1&appkey=K"
                                              "&deviceid=dev1&hmid="));
        }
        if (open == -2) {  // a TLS peer that stalls: both attempts time out, then it is left
            ASSERT_TRUE(WaitUntil([&] { return config->ConnectionCount() == 2; }, 8000));
        }
        table.Stop();  // a statistics line, were it on
        EXPECT_TRUE(Requests("zhlog").empty());
        EXPECT_TRUE(Files(home + "/norvik").empty());
        // What Exit waits for: Stop gives a fetch in flight 500 ms, not its time-out.
        const auto stopping = std::chrono::steady_clock::now();
        context->GetUploadLog().Stop();
        EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::milliseconds(800));
    }
}

// A log folder that cannot be made (a file where it belongs, which holds for root too): what can
// be sent still goes out, what would wait in a file is lost, and nothing breaks.
TEST_F(SelfReportTest, AnUnwritableLogFolderStillSendsWhatItCan) {
    WriteFile(home + "/norvik", "x");
    StartContext(1);
    CDispatchTable table(context.get());
    table.Start();
    ASSERT_TRUE(WaitUntil([&] { return context->GetStrategy().IsLogsEnabled(); }));
    PostFailingRecord(table);
    ASSERT_TRUE(WaitUntil([&] { return Requests("zhlogfail").size() == 10u; }));
    down = true;
    context->AppendFailLine("7", "\tzhwebevent\t0\th", true);
    table.Stop();
    EXPECT_EQ(Files(home), (std::set<std::string>{"norvik"}));
}

// Open: signed statistics and failure lines reach the collector; while it is down they land in
// private files, which the next run uploads and deletes.
TEST_F(SelfReportTest, AnOpenConfigurationReportsAndTheNextRunUploadsWhatWasLogged) {
    StartContext(1);
    {
        CDispatchTable table(context.get());
        table.Start();
        ASSERT_TRUE(WaitUntil([&] { return context->GetStrategy().IsLogsEnabled(); }));
        PostFailingRecord(table);
        // Five passes of two attempts, each failure reported; then the run's statistics.
        // A periodic line counted before the last failure may still be on its way: wait for one
        // that counts the dropped record.
        ASSERT_TRUE(WaitUntil([&] {
            const auto lines = Requests("zhlogtotal");
            return !lines.empty() && lines.back().find("&del=1&") != std::string::npos;
        }));
        ASSERT_EQ(Requests("zhlogfail").size(), 10u);
        EXPECT_THAT(Requests("zhlogfail")[0],
                    ContainsRe("&fguid=[0-9a-f]{32}&fcode=[0-9]+&appkey=K&ver=1.0"
                               "&from=web&uid=u1&sdkver=vs-test-1&fact=zhwebevent"
                               "&retry=0&host=127.0.0.1$"));
        const std::string total = Requests("zhlogtotal").back();
        EXPECT_THAT(
            total,
            ContainsRe("&session_id=S1&kelvo_mid=[^&]+&sys=10&mbos=[^&]+&imei=dev1&log_time="
                       "[0-9]+&logdate=20[0-9]{6}&log_seid=S1&guid=[0-9a-f]{32}&log_dur=[0-9]+"
                       "&cur=1&resume_report=4&succeed_report=0&fail_report=5&first_connect=1"
                       "&retry=9&suc=0&fait=10&del=1&buf=0&appkey=K&ver=1.0&from=web&uid=u1"
                       "&sdkver=vs-test-1$"));
        Md5Context key;
        key.Start("zhlogtotal" + total.substr(total.find("&time=") + 6, 10) +
                  deployment::kRequestSalt);
        EXPECT_THAT(total, HasSubstr("&key=" + key.HexDigest()));
        // Lines that are not to be sent at once go straight to the files.
        const size_t sent = Requests().size();
        context->ReportTotals(false, false);
        context->AppendFailLine("7", "\tzhwebevent\t0\th", true);
        EXPECT_EQ(Requests().size(), sent);
        down = true;
        PostFailingRecord(table);
        ASSERT_TRUE(WaitUntil([&] { return context->GetStats().Peek().del == 2; }));
        ASSERT_EQ(Files(logs + "err/").size(), 1u);
        const std::string errors = ReadFile(logs + "err/" + *Files(logs + "err/").begin());
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 11);
    }
    context.reset();
    EXPECT_TRUE(!FileAccessIsKept() || IsPrivateToUser(logs + "err"));
    down = false;
    StartContext(1);
    ASSERT_TRUE(WaitUntil([&] {
        return Files(logs) == std::set<std::string>{"err"} && Files(logs + "err/").empty();
    }));
}

// A statistics line of the log files: `guid`, logged at `time` by `from`.
std::string TotalLine(const std::string& time, const std::string& guid,
                      const std::string& from = "w") {
    return time + "\tS0\t" + guid + "\t5\t1\t0\t1\t0\t1\t0\t1\t0\t0\t0\tK\t1.0\t" + from +
           "\tu\tvs-1\r\n";
}

// Upload keeps files with an unsendable line or a writer, drops old and malformed lines and joins
// a long line read in pieces. A line that starts with a NUL byte reads as an empty piece and is
// dropped, while the lines around it are sent; a blank in a failure line's guid is escaped in
// both fields that carry it.
TEST_F(SelfReportTest, UploadKeepsAndDropsFilesByTheirLines) {
    const std::string now = std::to_string(port::Time64()), longFrom(260, 'f');
    WriteFile(logs + "report0.log",
              TotalLine(now, "N1") + '\0' + TotalLine(now, "N2") + TotalLine(now, "N3"));
    WriteFile(logs + "report1.log", TotalLine(now, "G1", longFrom) +
                                        TotalLine(std::to_string(port::Time64() - 172801), "G2"));
    WriteFile(logs + "report2.log",
              TotalLine(now, "G3") + TotalLine(now, "BAD") + TotalLine(now, "G4"));
    WriteFile(logs + "report3.log", TotalLine(now, "G5"));
    WriteFile(logs + "err/report_err1.log",
              now + "\tS0\tG 8\t11\tK\t1.0\tw\tu\tvs-1\tzhwebevent\t0\th\n" + now +
                  "\tS0\tG7\t11\tK\t\tw\tu\tvs-1\tzhwebevent\t0\th\n" + now +
                  "\tS0\tG6\t11\tK\t1.0\tw\t\tvs-1\tzhwebevent\t0\th");
    port::LockedFile writer;
    ASSERT_TRUE(writer.Open(logs + "report3.log"));
    StartContext(1);
    ASSERT_TRUE(WaitUntil([&] {
        return Files(logs) == std::set<std::string>{"err", "report2.log", "report3.log"} &&
               Files(logs + "err/").empty();
    }));
    const std::vector<std::string> requests = Requests();
    const std::string sent = std::accumulate(requests.begin(), requests.end(), std::string());
    EXPECT_THAT(sent, HasSubstr("&from=" + longFrom + "&uid=u&sdkver=vs-1"));
    EXPECT_THAT(sent, ContainsRe("&log_time=" + now + "&logdate=20[0-9]{6}&log_seid=S0&guid=G3&"));
    EXPECT_THAT(sent, AllOf(HasSubstr("&guid=G4&"), HasSubstr("&guid=N1&"), HasSubstr("&guid=N3&"),
                            HasSubstr("&guid=G%208&fguid=G%208&fcode=11&"),
                            HasSubstr("&fguid=G6&fcode=11&appkey=K&ver=1.0&from=w&sdkver=vs-1")));
    EXPECT_THAT(sent,
                Not(AnyOf(HasSubstr("G2"), HasSubstr("G5"), HasSubstr("G7"), HasSubstr("N2"))));
}

// Stop while a line is on its way: the rest of the file is not read and the file stays.
TEST_F(SelfReportTest, StopDuringAnUploadLeavesTheFile) {
    hold = true;
    const std::string line =
        std::to_string(port::Time64()) + "\tS0\tG\t11\tK\t1.0\tw\tu\tvs-1\tzhwebevent\t0\th\n";
    WriteFile(logs + "err/report_err1.log", line + line);
    StartContext(1, 600000);
    ASSERT_TRUE(WaitUntil([&] { return collector.ConnectionCount() == 1; }));
    context->GetUploadLog().Stop();
    hold = false;
    context.reset();
    EXPECT_EQ(collector.ConnectionCount(), 1u);
    EXPECT_EQ(Files(logs + "err/"), std::set<std::string>{"report_err1.log"});
}

}  // namespace
}  // namespace qzdata_report_kelvo
