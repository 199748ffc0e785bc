#include "net/http_message.h"

#include <gtest/gtest.h>

#include <string>

#include "net/constants.h"

namespace qzdata_report_kelvo {
namespace {

constexpr int kBad = net::kResultMalformed;
const std::string kHead = "HTTP/1.1 200 OK\r\n";
const std::string kChunked = kHead + "Transfer-Encoding: chunked\r\n\r\n";

struct ParseCase {
    std::string response;
    bool done;
    int code;
    uint32_t status;
    bool keepAlive;
    std::string body;  // Content-Length bytes at the body offset, else the decoded chunks
};

struct Outcome {
    bool done = false;
    int code = -1;
    HttpResponseState state;
    std::string body;
};

// Feeds `response` in steps of `step` bytes, as a slow peer would, up to the first verdict.
Outcome Parse(const std::string& response, size_t step) {
    Outcome out;
    std::string fed;
    for (size_t pos = 0; pos < response.size() && !out.done; pos += step) {
        fed += response.substr(pos, step);
        out.done = ParseResponse(fed, out.code, out.state);
    }
    const HttpResponseState& s = out.state;
    if (s.contentLength != 0 && s.bodyOffset != 0) {
        out.body = fed.substr(s.bodyOffset, s.contentLength);
    } else if (!s.hasContentLength && s.chunked) {
        out.body = s.chunkedBody;
    }
    return out;
}

class ParseResponseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseResponseTest, WholeAndByteByByteAgree) {
    const ParseCase& c = GetParam();
    for (size_t step : {c.response.size(), size_t{1}}) {
        SCOPED_TRACE(step);
        const Outcome out = Parse(c.response, step);
        ASSERT_EQ(out.done, c.done);
        if (c.done) {
            EXPECT_EQ(out.code, c.code);
        }
        if (c.done && c.code == 0) {
            EXPECT_EQ(out.state.statusCode, c.status);
            EXPECT_EQ(out.state.keepAlive, c.keepAlive);
            EXPECT_EQ(out.body, c.body);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ParseResponseTest,
    ::testing::Values(
        ParseCase{kHead + "\r\n", true, 0, 200, false, ""},
        ParseCase{"HTTP/1.1 204 No Content\r\n\r\n", true, 0, 204, false, ""},
        ParseCase{"HTTP/1.1\r\n\r\n", true, 0, 0, false, ""},
        ParseCase{"HTPP/1.1 200 OK\r\n\r\n", true, kBad, 0, false, ""},
        ParseCase{"http/1.1 200 OK\r\n\r\n", true, kBad, 0, false, ""},
        ParseCase{"HTT\r\n\r\n", true, kBad, 0, false, ""},
        ParseCase{"\r\n" + kHead + "\r\n", true, kBad, 0, false, ""},
        ParseCase{"HTTP/1.1 200 OK", false, 0, 0, false, ""},
        ParseCase{kHead + "Content-Length: 5\r\n\r\nhelloEXTRA", true, 0, 200, false, "hello"},
        ParseCase{kHead + "Content-Length: 10\r\n\r\nabc", false, 0, 0, false, ""},
        ParseCase{kHead + "Content-Length: 0\r\n\r\nignored", true, 0, 200, false, ""},
        ParseCase{kHead + "\r\nnot a body", true, 0, 200, false, ""},
        ParseCase{
            kHead +
                "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n",
            true, 0, 200, false, "5\r\nhe"},
        ParseCase{kChunked + "4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n", true, 0, 200, false,
                  "Wikipedia"},
        ParseCase{kChunked + "A\r\n0123456789\r\na\r\nabcdefghij\r\n0\r\n\r\n", true, 0, 200, false,
                  "0123456789abcdefghij"},
        ParseCase{kChunked + "2\r\nok\r\n0\r\nTrailer: y\r\n", true, 0, 200, false, "ok"},
        ParseCase{kChunked + "2\r\nok\r\n0\r\n", false, 0, 0, false, ""},
        ParseCase{kChunked + "\r\n\r\n", true, 0, 200, false, ""},
        ParseCase{kChunked + "4;name=x\r\nWiki\r\n0\r\n\r\n", true, kBad, 0, false, ""},
        ParseCase{kChunked + "4\r\nWikiXY0\r\n\r\n", true, kBad, 0, false, ""},
        ParseCase{kChunked + "100000000\r\nx\r\n0\r\n\r\n", true, kBad, 0, false, ""},
        ParseCase{kHead + "Transfer-Encoding: gzip, chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n", true, 0,
                  200, false, ""},
        ParseCase{kHead + "cOnNeCtIoN:   kEEP-aLIVE  \r\n\r\n", true, 0, 200, true, ""},
        ParseCase{kHead + "Connection: Keep-Alive, Upgrade\r\n\r\n", true, 0, 200, false, ""},
        ParseCase{kHead + "no colon\r\nContent-Length:\r\n: 7\r\nContent-Length: 2\r\n\r\nok", true,
                  0, 200, false, "ok"},
        ParseCase{kHead + "Content-Length: many\r\n\r\n", true, 0, 200, false, ""},
        ParseCase{"HTTP/1.0 404 Not Found\r\nContent-Length: 2\r\n\r\nno", true, 0, 404, false,
                  "no"}));

}  // namespace
}  // namespace qzdata_report_kelvo
