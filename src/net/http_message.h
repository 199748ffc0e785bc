// The HTTP/1.1 text of the clients: the request they send and the incremental parser of the
// response, shared by the plain and the TLS client.
#pragma once

#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {

// Parser state of one response; value-initialised at the start of each receive.
struct HttpResponseState {
    uint32_t statusCode = 0;  // second token of the status line; 0 until parsed
    bool keepAlive = false;   // "Connection: Keep-Alive" was seen
    bool hasContentLength = false;
    uint32_t contentLength = 0;
    uint32_t bodyOffset = 0;  // index of the first body byte in the accumulated response
    bool headersComplete = false;
    uint32_t parsePos = 0;  // where parsing resumes in the accumulated response
    bool chunked = false;   // "Transfer-Encoding: chunked" was seen
    uint32_t chunkLength = 0;
    bool chunkLengthKnown = false;  // a chunk-size line was read and its data not yet
    std::string chunkedBody;        // the chunks decoded so far
};

// Parses `response`, the bytes received so far, resuming at state.parsePos. Returns false when
// more bytes are needed. Returns true when parsing has ended: `code` is then 0 for a complete
// response, or net::kResultMalformed. The status code is not judged here. A response with
// neither Content-Length nor chunked encoding ends at its empty line; Content-Length wins over
// chunked encoding.
bool ParseResponse(const std::string& response, int& code, HttpResponseState& state);

// What one request asks for.
struct HttpRequest {
    std::string path;
    std::string body;        // the content of a POST; a GET sends none
    bool post = false;       // POST, else GET
    bool keepAlive = false;  // asks the server to keep the connection open
    bool wantBody = false;   // keeps the reply body for the caller
};

// The whole request as it goes on the wire. A GET carries no body and "Content-Length: 0"
// whatever `body` holds; "Host:" never carries the port.
std::string BuildRequestText(const HttpRequest& request, const std::string& host);

}  // namespace qzdata_report_kelvo
