// Small helpers shared by the network client tests.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace qzdata_report_kelvo {
namespace net_test {

using Clock = std::chrono::steady_clock;

inline long ElapsedMs(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

inline const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
inline const std::string kOkKeepAlive =
    "HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\nContent-Length: 2\r\n\r\nok";

template <class Client>
void Aim(Client& client, uint16_t port, uint32_t timeoutMs) {
    client.SetHost("127.0.0.1");
    client.SetPort(port);
    client.SetTimeout(timeoutMs);
}

// What one Request gave.
struct Reply {
    int code = -1;
    uint32_t status = 0;
    bool serverKeepAlive = false;
    std::string body;
};

template <class Client>
Reply Fetch(Client& client, bool keepAlive = false, bool post = false,
            const std::string& path = "/", const std::string& body = "") {
    Reply r;
    r.code = client.Request(keepAlive, post, path, body, r.status, r.serverKeepAlive, true, r.body);
    return r;
}

}  // namespace net_test
}  // namespace qzdata_report_kelvo
