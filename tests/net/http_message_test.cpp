#include "net/http_message.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "net/constants.h"

namespace qzdata_report_kelvo {
namespace {

TEST(BuildRequestTextTest, GetDropsTheBodyAndThePathGainsASlash) {
    // Keep-alive, post, path, body; the request line and the tail after the fixed headers.
    const std::tuple<bool, bool, std::string, std::string, std::string, std::string> cases[] = {
        {false, false, "", "", "GET /", "Content-Length: 0\r\n\r\n"},
        {true, false, "a/b?x=1", "dropped", "GET /a/b?x=1", "Content-Length: 0\r\n\r\n"},
        {false, false, "\\raw", "", "GET \\raw", "Content-Length: 0\r\n\r\n"},
        {false, true, "/up", "hello", "POST /up", "Content-Length: 5\r\n\r\nhello"}};
    for (const auto& [keepAlive, post, path, body, requestLine, tail] : cases) {
        EXPECT_EQ(BuildRequestText(HttpRequest{path, body, post, keepAlive, false}, "127.0.0.1"),
                  requestLine +
                      " HTTP/1.1\r\nAccept: */*\r\nContent-Type: application/octet-stream\r\n" +
                      (keepAlive ? "Connection: Keep-Alive\r\n" : "Connection: Close\r\n") +
                      "Host: 127.0.0.1\r\nCache-Control: no-cache\r\n" + tail);
    }
}

constexpr int kBad = net::kResultMalformed;
constexpr int kMore = -1;  // no verdict yet: the response is incomplete
const std::string kHead = "HTTP/1.1 200 OK\r\n";
const std::string kChunked = kHead + "Transfer-Encoding: chunked\r\n\r\n";

// Fed whole, and byte by byte as a slow peer would, up to the first verdict.
TEST(ParseResponseTest, WholeAndByteByByteAgree) {
    const std::tuple<std::string, int, uint32_t, bool, std::string> cases[] = {
        {"HTTP/1.1\r\n\r\n", 0, 0, false, ""},
        {"HTTx/1.1 200 OK\r\n\r\n", kBad, 0, false, ""},
        {"\r\n" + kHead + "\r\n", kBad, 0, false, ""},
        {"HTTP/1.1 200 OK", kMore, 0, false, ""},
        {kHead + "Content-Length: 5\r\n\r\nhelloEXTRA", 0, 200, false, "hello"},
        {kHead + "Content-Length: 10\r\n\r\nabc", kMore, 0, false, ""},
        {kHead + "Content-Length: 0\r\n\r\nignored", 0, 200, false, ""},
        {kHead + "\r\nnot a body", 0, 200, false, ""},
        {kHead + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello", 0, 200, false,
         "5\r\nhe"},
        {kChunked + "A\r\n0123456789\r\na\r\nabcdefghij\r\n0\r\n\r\n", 0, 200, false,
         "0123456789abcdefghij"},
        {kChunked + "2\r\nok\r\n0\r\n", kMore, 0, false, ""},
        {kChunked + "4;name=x\r\nWiki\r\n0\r\n\r\n", kBad, 0, false, ""},
        {kChunked + "4\r\nWikiX\n0\r\n\r\n", kBad, 0, false, ""},
        {kChunked + "4\r\nWiki\rX0\r\n\r\n", kBad, 0, false, ""},
        {kChunked + "100000000\r\nx\r\n0\r\n\r\n", kBad, 0, false, ""},
        // Only the exact values count; names match in any case, and blanks around them go.
        {kHead + "Connection: Keep-Alive, Upgrade\r\nTransfer-Encoding: gzip, chunked\r\n\r\n2\r\n",
         0, 200, false, ""},
        {kHead + "no colon\r\nContent-Length:\r\n: 7\r\ncOnNeCtIoN:   kEEP-aLIVE  \r\n"
                 "Content-Length: 2\r\n\r\nok",
         0, 200, true, "ok"}};
    for (const auto& [response, expected, status, keepAlive, body] : cases) {
        for (size_t step : {response.size(), size_t{1}}) {
            SCOPED_TRACE(testing::PrintToString(response) + " in steps of " + std::to_string(step));
            bool done = false;
            int code = kMore;
            HttpResponseState s;
            std::string fed;
            for (size_t pos = 0; pos < response.size() && !done; pos += step) {
                fed += response.substr(pos, step);
                done = ParseResponse(fed, code, s);
            }
            ASSERT_EQ(done ? code : kMore, expected);
            if (expected == 0) {
                EXPECT_EQ(std::make_pair(s.statusCode, s.keepAlive),
                          std::make_pair(status, keepAlive));
                EXPECT_EQ(s.contentLength != 0 && s.bodyOffset != 0
                              ? fed.substr(s.bodyOffset, s.contentLength)
                              : (!s.hasContentLength && s.chunked ? s.chunkedBody : ""),
                          body);
            }
        }
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
