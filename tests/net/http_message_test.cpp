#include "net/http_message.h"

#include <gtest/gtest.h>

#include <string>

#include "net/constants.h"

namespace qzdata_report_kelvo {
namespace {

struct ParseCase {
    const char* name;
    std::string response;
    bool done;
    int code;
    uint32_t status;
    bool keepAlive;
    // What the client would take as body: Content-Length bytes at the body offset, else the
    // decoded chunks.
    std::string body;
};

struct Outcome {
    bool done = false;
    int code = -1;
    HttpResponseState state;
};

std::string BodyOf(const std::string& response, const HttpResponseState& state) {
    if (state.contentLength != 0 && state.bodyOffset != 0) {
        return response.substr(state.bodyOffset, state.contentLength);
    }
    return !state.hasContentLength && state.chunked ? state.chunkedBody : std::string();
}

Outcome ParseWhole(const std::string& response) {
    Outcome outcome;
    outcome.done = ParseResponse(response, outcome.code, outcome.state);
    return outcome;
}

// Feeds the response one byte at a time, as a slow peer would, stopping at the first verdict.
Outcome ParseByteByByte(const std::string& response, std::string* fed) {
    Outcome outcome;
    fed->clear();
    for (char c : response) {
        fed->push_back(c);
        if ((outcome.done = ParseResponse(*fed, outcome.code, outcome.state))) {
            break;
        }
    }
    return outcome;
}

const std::string kStatus = "HTTP/1.1 200 OK\r\n";

class ParseResponseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseResponseTest, WholeAndIncrementalAgree) {
    const ParseCase& c = GetParam();
    const Outcome whole = ParseWhole(c.response);
    std::string fed;
    const Outcome incremental = ParseByteByByte(c.response, &fed);
    for (const Outcome* outcome : {&whole, &incremental}) {
        const std::string& seen = outcome == &whole ? c.response : fed;
        SCOPED_TRACE(outcome == &whole ? "whole" : "byte by byte");
        ASSERT_EQ(outcome->done, c.done);
        if (!c.done) {
            continue;
        }
        EXPECT_EQ(outcome->code, c.code);
        if (c.code == net::kResultOk) {
            EXPECT_EQ(outcome->state.statusCode, c.status);
            EXPECT_EQ(outcome->state.keepAlive, c.keepAlive);
            EXPECT_EQ(BodyOf(seen, outcome->state), c.body);
        }
    }
}

const ParseCase kParseCases[] = {
    {"StatusOnly", kStatus + "\r\n", true, 0, 200, false, ""},
    {"NoContentStatus", "HTTP/1.1 204 No Content\r\n\r\n", true, 0, 204, false, ""},
    {"StatusWithoutSecondToken", "HTTP/1.1\r\n\r\n", true, 0, 0, false, ""},
    {"NotHttp", "HTPP/1.1 200 OK\r\n\r\n", true, net::kResultMalformed, 0, false, ""},
    {"LowerCaseHttp", "http/1.1 200 OK\r\n\r\n", true, net::kResultMalformed, 0, false, ""},
    {"ShortFirstLine", "HTT\r\n\r\n", true, net::kResultMalformed, 0, false, ""},
    {"EmptyFirstLine", "\r\nHTTP/1.1 200 OK\r\n\r\n", true, net::kResultMalformed, 0, false, ""},
    {"NoLineEndYet", "HTTP/1.1 200 OK", false, 0, 0, false, ""},
    {"ContentLength", kStatus + "Content-Length: 5\r\n\r\nhelloEXTRA", true, 0, 200, false,
     "hello"},
    {"ContentLengthShort", kStatus + "Content-Length: 10\r\n\r\nabc", false, 0, 0, false, ""},
    {"ContentLengthZeroEndsAtEmptyLine", kStatus + "Content-Length: 0\r\n\r\nignored", true, 0, 200,
     false, ""},
    {"NeitherHeaderEndsAtEmptyLine", kStatus + "\r\nnot a body", true, 0, 200, false, ""},
    {"ContentLengthWinsOverChunked",
     kStatus + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n",
     true, 0, 200, false, "5\r\nhe"},
    {"Chunked", kStatus + "Transfer-Encoding: chunked\r\n\r\n4\r\nWiki\r\n5\r\npedia\r\n0\r\n\r\n",
     true, 0, 200, false, "Wikipedia"},
    {"ChunkedUpperCaseHex",
     kStatus + "Transfer-Encoding: CHUNKED\r\n\r\nA\r\n0123456789\r\na\r\nabcdefghij\r\n0\r\n\r\n",
     true, 0, 200, false, "0123456789abcdefghij"},
    {"ChunkedWithTrailer", kStatus + "Transfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\nX: y\r\n",
     true, 0, 200, false, "ok"},
    {"ChunkedAwaitsLastLine", kStatus + "Transfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\n", false,
     0, 0, false, ""},
    {"ChunkExtension", kStatus + "Transfer-Encoding: chunked\r\n\r\n4;name=x\r\nWiki\r\n0\r\n\r\n",
     true, net::kResultMalformed, 0, false, ""},
    {"ChunkWithoutLineEnd", kStatus + "Transfer-Encoding: chunked\r\n\r\n4\r\nWikiXY0\r\n\r\n",
     true, net::kResultMalformed, 0, false, ""},
    {"ChunkSizeBeyond32Bits",
     kStatus + "Transfer-Encoding: chunked\r\n\r\n100000000\r\nx\r\n0\r\n\r\n", true,
     net::kResultMalformed, 0, false, ""},
    {"EmptyChunkSizeLineReadsAsLast", kStatus + "Transfer-Encoding: chunked\r\n\r\n\r\n\r\n", true,
     0, 200, false, ""},
    {"ChunkedAmongOtherCodingsDoesNotCount",
     kStatus + "Transfer-Encoding: gzip, chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n", true, 0, 200, false,
     ""},
    {"KeepAliveMixedCase", "HTTP/1.1 200 OK\r\ncOnNeCtIoN:   kEEP-aLIVE  \r\n\r\n", true, 0, 200,
     true, ""},
    {"KeepAliveWithSecondWord", kStatus + "Connection: Keep-Alive, Upgrade\r\n\r\n", true, 0, 200,
     false, ""},
    {"ConnectionClose", kStatus + "Connection: close\r\n\r\n", true, 0, 200, false, ""},
    {"LinesWithoutColonOrValueIgnored",
     kStatus + "garbage line\r\nContent-Length:\r\n: 7\r\nContent-Length: 2\r\n\r\nok", true, 0,
     200, false, "ok"},
    {"UnreadableContentLengthIgnored", kStatus + "Content-Length: many\r\n\r\n", true, 0, 200,
     false, ""},
    {"StatusNotJudgedHere", "HTTP/1.0 404 Not Found\r\nContent-Length: 2\r\n\r\nno", true, 0, 404,
     false, "no"},
};

INSTANTIATE_TEST_SUITE_P(Cases, ParseResponseTest, ::testing::ValuesIn(kParseCases),
                         [](const ::testing::TestParamInfo<ParseCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(ParseResponseTest, ResumesWithoutRescanningParsedLines) {
    // A header seen in an earlier call must not be counted again when parsing resumes.
    HttpResponseState state;
    int code = -1;
    std::string response = kStatus + "Content-Length: 4\r\n";
    EXPECT_FALSE(ParseResponse(response, code, state));
    EXPECT_TRUE(state.hasContentLength);
    response += "Connection: Keep-Alive\r\n\r\nab";
    EXPECT_FALSE(ParseResponse(response, code, state));
    EXPECT_TRUE(state.headersComplete);
    response += "cd";
    EXPECT_TRUE(ParseResponse(response, code, state));
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(state.keepAlive);
    EXPECT_EQ(response.substr(state.bodyOffset, state.contentLength), "abcd");
}

}  // namespace
}  // namespace qzdata_report_kelvo
