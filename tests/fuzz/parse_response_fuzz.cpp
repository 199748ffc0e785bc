// The HTTP response parser as the clients drive it: bytes arrive in pieces of any size, and the
// accumulated response is parsed again after each piece until the first verdict. However the
// bytes are split, the verdict and what the client takes from the state must be the same as
// when the whole response arrives at once.
//
// Input: one byte N (taken modulo 8), then N piece lengths of one byte each, then the response.
// The response is fed in those pieces, the rest in one; also whole, and byte by byte when short.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "net/constants.h"
#include "net/http_message.h"

namespace {

using qzdata_report_kelvo::HttpResponseState;
using qzdata_report_kelvo::ParseResponse;

constexpr int kNoVerdict = -1;

struct Outcome {
    int verdict = kNoVerdict;  // the code once parsing ended
    HttpResponseState state;
    std::string fed;
    std::string body;  // what the client keeps as the reply body
};

Outcome Feed(const std::string& response, const std::vector<size_t>& pieces) {
    Outcome outcome;
    size_t at = 0;
    size_t piece = 0;
    while (at < response.size()) {
        const size_t length = piece < pieces.size() ? pieces[piece++] : response.size() - at;
        outcome.fed.append(response, at, length);
        at += length;
        int code = kNoVerdict;
        const uint32_t before = outcome.state.parsePos;
        if (ParseResponse(outcome.fed, code, outcome.state)) {
            outcome.verdict = code;
            break;
        }
        QZ_FUZZ_CHECK(outcome.state.parsePos >= before);
        QZ_FUZZ_CHECK(outcome.state.parsePos <= outcome.fed.size());
    }
    const HttpResponseState& s = outcome.state;
    if (outcome.verdict == qzdata_report_kelvo::net::kResultOk) {
        // The client copies the body from the accumulated bytes: they must all be there.
        if (s.contentLength != 0 && s.bodyOffset != 0) {
            QZ_FUZZ_CHECK(s.headersComplete);
            QZ_FUZZ_CHECK(s.bodyOffset <= outcome.fed.size());
            QZ_FUZZ_CHECK(outcome.fed.size() - s.bodyOffset >= s.contentLength);
            outcome.body = outcome.fed.substr(s.bodyOffset, s.contentLength);
        } else if (!s.hasContentLength && s.chunked) {
            outcome.body = s.chunkedBody;
        }
    } else {
        QZ_FUZZ_CHECK(outcome.verdict == kNoVerdict ||
                      outcome.verdict == qzdata_report_kelvo::net::kResultMalformed);
    }
    return outcome;
}

void ExpectSame(const Outcome& whole, const Outcome& split) {
    QZ_FUZZ_CHECK(split.verdict == whole.verdict);
    if (whole.verdict != qzdata_report_kelvo::net::kResultOk) {
        return;
    }
    QZ_FUZZ_CHECK(split.state.statusCode == whole.state.statusCode);
    QZ_FUZZ_CHECK(split.state.keepAlive == whole.state.keepAlive);
    QZ_FUZZ_CHECK(split.state.hasContentLength == whole.state.hasContentLength);
    QZ_FUZZ_CHECK(split.state.contentLength == whole.state.contentLength);
    QZ_FUZZ_CHECK(split.state.chunked == whole.state.chunked);
    QZ_FUZZ_CHECK(split.state.bodyOffset == whole.state.bodyOffset);
    QZ_FUZZ_CHECK(split.body == whole.body);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    size_t count = data[0] % 8;
    if (size < 1 + count) {
        return 0;
    }
    std::vector<size_t> pieces;
    for (size_t i = 0; i < count; ++i) {
        pieces.push_back(data[1 + i]);
    }
    const std::string response(reinterpret_cast<const char*>(data) + 1 + count,
                               size - 1 - count);
    // Pieces beyond the end of the response are cut to what is left.
    size_t left = response.size();
    for (size_t& piece : pieces) {
        piece = piece < left ? piece : left;
        left -= piece;
    }

    const Outcome whole = Feed(response, {});
    ExpectSame(whole, Feed(response, pieces));
    if (response.size() <= 512) {
        ExpectSame(whole, Feed(response, std::vector<size_t>(response.size(), 1)));
    }
    return 0;
}
