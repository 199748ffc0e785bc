#include "net/http_message.h"

#include <cstdio>

#include "codec/text.h"
#include "net/constants.h"

namespace qzdata_report_kelvo {

namespace {

const char kLineEnd[] = "\r\n";

std::string Trim(const std::string& value) {
    size_t begin = 0;
    size_t end = value.size();
    while (begin < end && text::IsAsciiSpace(value[begin])) {
        ++begin;
    }
    while (end > begin && text::IsAsciiSpace(value[end - 1])) {
        --end;
    }
    return value.substr(begin, end - begin);
}

// Reads a decimal number as "%lu" does (leading white space and a sign allowed); false when no
// digits are there.
bool ReadUnsigned(const std::string& text, uint32_t* value) {
    unsigned long number = 0;
    if (std::sscanf(text.c_str(), "%lu", &number) != 1) {
        return false;
    }
    *value = static_cast<uint32_t>(number);
    return true;
}

// A chunk-size line: hexadecimal digits only (no extension, no white space); an empty line
// reads as 0. A size beyond 32 bits counts as malformed rather than wrapping to a small one.
bool ReadChunkSize(const std::string& line, uint32_t* size) {
    uint64_t value = 0;
    for (char c : line) {
        const int digit = text::HexDigitValue(c);
        if (digit < 0) {
            return false;
        }
        value = value * 16 + static_cast<uint64_t>(digit);
        if (value > 0xFFFFFFFFu) {
            return false;
        }
    }
    *size = static_cast<uint32_t>(value);
    return true;
}

bool ParseStatusLine(const std::string& line, HttpResponseState& state) {
    if (line.size() < 4 || line.compare(0, 4, "HTTP") != 0) {
        return false;
    }
    size_t pos = 0;
    auto skipSpace = [&] {
        while (pos < line.size() && text::IsAsciiSpace(line[pos])) {
            ++pos;
        }
    };
    auto skipToken = [&] {
        while (pos < line.size() && !text::IsAsciiSpace(line[pos])) {
            ++pos;
        }
    };
    skipSpace();
    skipToken();
    skipSpace();
    const size_t begin = pos;
    skipToken();
    if (pos > begin) {
        ReadUnsigned(line.substr(begin, pos - begin), &state.statusCode);
    }
    return true;
}

void ParseHeaderLine(const std::string& line, HttpResponseState& state) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) {
        return;
    }
    const std::string name = Trim(line.substr(0, colon));
    const std::string value = Trim(line.substr(colon + 1));
    if (name.empty() || value.empty()) {
        return;
    }
    if (!state.keepAlive && text::EqualsNoCase(name, "Connection") &&
        text::EqualsNoCase(value, "Keep-Alive")) {
        state.keepAlive = true;
        return;
    }
    if (text::EqualsNoCase(name, "Content-Length")) {
        uint32_t length = 0;
        if (ReadUnsigned(value, &length)) {
            state.hasContentLength = true;
            state.contentLength = length;
        }
    } else if (!state.chunked && text::EqualsNoCase(name, "Transfer-Encoding") &&
               text::EqualsNoCase(value, "chunked")) {
        state.chunked = true;
    }
}

}  // namespace

bool ParseResponse(const std::string& response, int& code, HttpResponseState& state) {
    code = net::kResultOk;
    while (!state.headersComplete) {
        const size_t lineEnd = response.find(kLineEnd, state.parsePos);
        if (lineEnd == std::string::npos) {
            return false;
        }
        const std::string line = response.substr(state.parsePos, lineEnd - state.parsePos);
        const bool statusLine = state.parsePos == 0;
        state.parsePos = static_cast<uint32_t>(lineEnd + 2);
        if (statusLine) {
            if (!ParseStatusLine(line, state)) {
                code = net::kResultMalformed;
                return true;
            }
        } else if (line.empty()) {
            state.bodyOffset = state.parsePos;
            state.headersComplete = true;
            if (state.contentLength == 0 && (state.hasContentLength || !state.chunked)) {
                return true;
            }
        } else {
            ParseHeaderLine(line, state);
        }
    }

    if (state.hasContentLength || !state.chunked) {
        return response.size() - state.bodyOffset >= state.contentLength;
    }

    for (;;) {
        if (!state.chunkLengthKnown) {
            const size_t lineEnd = response.find(kLineEnd, state.parsePos);
            if (lineEnd == std::string::npos) {
                return false;
            }
            uint32_t size = 0;
            if (!ReadChunkSize(response.substr(state.parsePos, lineEnd - state.parsePos), &size)) {
                code = net::kResultMalformed;
                return true;
            }
            state.chunkLength = size;
            state.chunkLengthKnown = true;
            state.parsePos = static_cast<uint32_t>(lineEnd + 2);
        }
        if (state.chunkLength == 0) {
            return response.find(kLineEnd, state.parsePos) != std::string::npos;
        }
        const size_t available = response.size() - state.parsePos;
        if (available < static_cast<size_t>(state.chunkLength) + 2) {
            return false;
        }
        const size_t chunkEnd = state.parsePos + static_cast<size_t>(state.chunkLength);
        if (response[chunkEnd] != '\r' || response[chunkEnd + 1] != '\n') {
            code = net::kResultMalformed;
            return true;
        }
        state.chunkedBody.append(response, state.parsePos, state.chunkLength);
        state.parsePos = static_cast<uint32_t>(chunkEnd + 2);
        state.chunkLength = 0;
        state.chunkLengthKnown = false;
    }
}

std::string BuildRequestText(const HttpRequest& request, const std::string& host) {
    const std::string& path = request.path;
    const std::string& body = request.body;
    const bool post = request.post;
    std::string text = post ? "POST " : "GET ";
    if (path.empty() || (path[0] != '/' && path[0] != '\\')) {
        text += "/";
    }
    text += path;
    text += " HTTP/1.1\r\n";
    text += "Accept: */*\r\n";
    text += "Content-Type: application/octet-stream\r\n";
    text += request.keepAlive ? "Connection: Keep-Alive\r\n" : "Connection: Close\r\n";
    text += "Host: " + host + "\r\n";
    text += "Cache-Control: no-cache\r\n";
    if (post && !body.empty()) {
        char length[32];
        std::snprintf(length, sizeof(length), "%llu", static_cast<unsigned long long>(body.size()));
        text += "Content-Length: ";
        text += length;
        text += "\r\n";
    } else {
        text += "Content-Length: 0\r\n";
    }
    text += "\r\n";
    if (post) {
        text += body;
    }
    return text;
}

}  // namespace qzdata_report_kelvo
