#include "net/http_message.h"

#include <gtest/gtest.h>

#include <string>

#include "net/constants.h"

namespace qzdata_report_kelvo {
namespace {

constexpr int kBad = net::kResultMalformed;
constexpr int kMore = -1;  // no verdict yet: the response is incomplete
const std::string kHead = "HTTP/1.1 200 OK\r\n";
const std::string kChunked = kHead + "Transfer-Encoding: chunked\r\n\r\n";

struct ParseCase {
    std::string response;
    int code;
    uint32_t status;
    bool keepAlive;
    std::string body;  // Content-Length bytes at the body offset, else the decoded chunks
};

class ParseResponseTest : public ::testing::TestWithParam<ParseCase> {};

// Fed whole and byte by byte, as a slow peer would, up to the first verdict.
TEST_P(ParseResponseTest, WholeAndByteByByteAgree) {
    const ParseCase& c = GetParam();
    for (size_t step : {c.response.size(), size_t{1}}) {
        SCOPED_TRACE(step);
        bool done = false;
        int code = kMore;
        HttpResponseState s;
        std::string fed;
        for (size_t pos = 0; pos < c.response.size() && !done; pos += step) {
            fed += c.response.substr(pos, step);
            done = ParseResponse(fed, code, s);
        }
        ASSERT_EQ(done ? code : kMore, c.code);
        if (c.code == 0) {
            EXPECT_EQ(s.statusCode, c.status);
            EXPECT_EQ(s.keepAlive, c.keepAlive);
            EXPECT_EQ(s.contentLength != 0 && s.bodyOffset != 0
                          ? fed.substr(s.bodyOffset, s.contentLength)
                          : (!s.hasContentLength && s.chunked ? s.chunkedBody : ""),
                      c.body);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ParseResponseTest,
    ::testing::Values(
        ParseCase{kHead + "\r\n", 0, 200, false, ""},
        ParseCase{"HTTP/1.1 204 No Content\r\n\r\n", 0, 204, false, ""},
        ParseCase{"HTTP/1.1\r\n\r\n", 0, 0, false, ""},
        ParseCase{"HTPP/1.1 200 OK\r\n\r\n", kBad, 0, false, ""},
        ParseCase{"http/1.1 200 OK\r\n\r\n", kBad, 0, false, ""},
        ParseCase{"\r\n" + kHead + "\r\n", kBad, 0, false, ""},
        ParseCase{"HTTP/1.1 200 OK", kMore, 0, false, ""},
        ParseCase{kHead + "Content-Length: 5\r\n\r\nhelloEXTRA", 0, 200, false, "hello"},
        ParseCase{kHead + "Content-Length: 10\r\n\r\nabc", kMore, 0, false, ""},
        ParseCase{kHead + "Content-Length: 0\r\n\r\nignored", 0, 200, false, ""},
        ParseCase{kHead + "\r\nnot a body", 0, 200, false, ""},
        ParseCase{kHead + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0"
                          "\r\n\r\n",
                  0, 200, false, "5\r\nhe"},
        ParseCase{kChunked + "A\r\n0123456789\r\na\r\nabcdefghij\r\n0\r\n\r\n", 0, 200, false,
                  "0123456789abcdefghij"},
        ParseCase{kChunked + "2\r\nok\r\n0\r\nTrailer: y\r\n", 0, 200, false, "ok"},
        ParseCase{kChunked + "2\r\nok\r\n0\r\n", kMore, 0, false, ""},
        ParseCase{kChunked + "4;name=x\r\nWiki\r\n0\r\n\r\n", kBad, 0, false, ""},
        ParseCase{kChunked + "4\r\nWikiXY0\r\n\r\n", kBad, 0, false, ""},
        ParseCase{kChunked + "100000000\r\nx\r\n0\r\n\r\n", kBad, 0, false, ""},
        ParseCase{kHead + "Transfer-Encoding: gzip, chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n", 0, 200,
                  false, ""},
        ParseCase{kHead + "cOnNeCtIoN:   kEEP-aLIVE  \r\n\r\n", 0, 200, true, ""},
        ParseCase{kHead + "Connection: Keep-Alive, Upgrade\r\n\r\n", 0, 200, false, ""},
        ParseCase{kHead + "no colon\r\nContent-Length:\r\n: 7\r\nContent-Length: 2\r\n\r\nok", 0,
                  200, false, "ok"},
        ParseCase{"HTTP/1.0 404 Not Found\r\nContent-Length: 2\r\n\r\nno", 0, 404, false, "no"}));

}  // namespace
}  // namespace qzdata_report_kelvo
