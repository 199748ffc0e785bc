#include "net/http_message.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "net/constants.h"

namespace qzdata_report_kelvo {
namespace {

TEST(BuildRequestTextTest, GetDropsTheBodyAndThePathGainsASlash) {
    const std::string head = " HTTP/1.1\r\nAccept: */*\r\nContent-Type: application/octet-stream";
    // Keep-alive, post, path, body; the request line and the length with the body.
    const std::tuple<bool, bool, std::string, std::string, std::string, std::string> cases[] = {
        {false, false, "", "", "GET /", "0\r\n\r\n"},
        {true, false, "a/b?x=1", "dropped", "GET /a/b?x=1", "0\r\n\r\n"},
        {false, false, "\\raw", "", "GET \\raw", "0\r\n\r\n"},
        {false, true, "/up", "hello", "POST /up", "5\r\n\r\nhello"}};
    for (const auto& [keepAlive, post, path, body, requestLine, tail] : cases)
        EXPECT_EQ(BuildRequestText(HttpRequest{path, body, post, keepAlive, false}, "127.0.0.1"),
                  requestLine + head + "\r\nConnection: " + (keepAlive ? "Keep-Alive" : "Close") +
                      "\r\nHost: 127.0.0.1\r\nCache-Control: no-cache\r\nContent-Length: " + tail);
}

const std::string kBad = "code " + std::to_string(net::kResultMalformed);
const std::string kHead = "HTTP/1.1 200 OK\r\n";
const std::string kChunked = kHead + "Transfer-Encoding: chunked\r\n\r\n";

// Fed whole, and byte by byte as a slow peer would, up to the first verdict ("more": none yet).
// A complete response reads "status|body", with " keep" after the status when kept alive.
TEST(ParseResponseTest, WholeAndByteByByteAgree) {
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"HTTP/1.1\r\n\r\n", "0|"}, {kHead + "Content-Length: 5\r\n\r\nhelloEXTRA", "200|hello"},
        {"HTTx/1.1 200 OK\r\n\r\n", kBad}, {kHead + "Content-Length: 0\r\n\r\nignored", "200|"},
        {"\r\n" + kHead + "\r\n", kBad}, {"HTTP/1.1 200 OK", "more"},
        {kHead + "Content-Length: 10\r\n\r\nabc", "more"}, {kHead + "\r\nnot a body", "200|"},
        {kHead + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello",
         "200|5\r\nhe"},
        {kChunked + "A\r\n0123456789\r\na\r\nabcdefghij\r\n0\r\n\r\n", "200|0123456789abcdefghij"},
        {kChunked + "2\r\nok\r\n0\r\n", "more"}, {kChunked + "4;name=x\r\nWiki\r\n0\r\n\r\n", kBad},
        {kChunked + "4\r\nWikiX\n0\r\n\r\n", kBad}, {kChunked + "4\r\nWiki\rX0\r\n\r\n", kBad},
        {kChunked + "100000000\r\nx\r\n0\r\n\r\n", kBad},
        // Only the exact values count; names match in any case, and blanks around them go.
        {kHead + "Connection: Keep-Alive, Upgrade\r\nTransfer-Encoding: gzip, chunked\r\n\r\n2\r\n",
         "200|"},
        {kHead + "no colon\r\nContent-Length:\r\n: 7\r\ncOnNeCtIoN:   kEEP-aLIVE  \r\n"
                 "Content-Length: 2\r\n\r\nok", "200 keep|ok"}};
    // clang-format on
    for (const auto& [response, expected] : cases) {
        for (size_t step : {response.size(), size_t{1}}) {
            bool done = false;
            int code = 0;
            HttpResponseState s;
            std::string fed;
            for (size_t pos = 0; pos < response.size() && !done; pos += step)
                done = ParseResponse(fed += response.substr(pos, step), code, s);
            const std::string body = s.contentLength != 0 && s.bodyOffset != 0
                                         ? fed.substr(s.bodyOffset, s.contentLength)
                                         : (!s.hasContentLength && s.chunked ? s.chunkedBody : "");
            EXPECT_EQ(!done  ? "more"
                      : code ? "code " + std::to_string(code)
                             : std::to_string(s.statusCode) + (s.keepAlive ? " keep|" : "|") + body,
                      expected)
                << testing::PrintToString(response) << " in steps of " << step;
        }
    }
}

}  // namespace
}  // namespace qzdata_report_kelvo
