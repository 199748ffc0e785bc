// The HTTP response parser as the clients drive it: the accumulated response is parsed again
// after each piece that arrives, until the first verdict. However the bytes are split, the
// verdict and, for a complete response, what the client takes from the state are those of
// whole feeding. Input: one byte N (modulo 8), then N piece lengths of one byte each, then the
// response, fed in those pieces and the rest in one, and byte by byte when short.
#include <tuple>
#include <vector>

#include "fuzz_support.h"
#include "net/constants.h"
#include "net/http_message.h"

static auto Feed(const std::string& response, const std::vector<size_t>& pieces) {
    qzdata_report_kelvo::HttpResponseState s;
    std::string fed, body;
    int verdict = -1;
    for (size_t i = 0; fed.size() < response.size() && verdict == -1; ++i) {
        fed.append(response, fed.size(), i < pieces.size() ? pieces[i] : response.size());
        int code = -1;
        verdict = qzdata_report_kelvo::ParseResponse(fed, code, s) ? code : -1;
    }
    if (verdict != qzdata_report_kelvo::net::kResultOk) {
        s = {};
    } else if (s.contentLength != 0 && s.bodyOffset != 0) {
        // The client copies the body from the accumulated bytes: they must all be there.
        QZ_FUZZ_CHECK(s.bodyOffset <= fed.size() && fed.size() - s.bodyOffset >= s.contentLength);
        body = fed.substr(s.bodyOffset, s.contentLength);
    } else if (!s.hasContentLength && s.chunked) {
        body = s.chunkedBody;
    }
    return std::make_tuple(verdict, s.statusCode, s.keepAlive, s.hasContentLength, s.contentLength,
                           s.chunked, s.bodyOffset, body);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const size_t count = size == 0 ? 0 : data[0] % 8;
    if (size < 1 + count)
        return 0;
    const std::vector<size_t> pieces(data + 1, data + 1 + count);
    const std::string response(reinterpret_cast<const char*>(data) + 1 + count, size - 1 - count);
    const auto whole = Feed(response, {});
    QZ_FUZZ_CHECK(Feed(response, pieces) == whole);
    if (response.size() <= 512)
        QZ_FUZZ_CHECK(Feed(response, std::vector<size_t>(response.size(), 1)) == whole);
    return 0;
}
