#include "port/socket_api.h"

#include <gtest/gtest.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <chrono>
#include <string>
#include <vector>

#include "net/constants.h"

namespace qzdata_report_kelvo {
namespace {

// Whether sockets can be made now; false only because the layer is not started.
bool LayerWorks() {
    const SOCKET probe = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    closesocket(probe);
    return probe != INVALID_SOCKET;
}

// Starts nest and only the last clean-up stops the layer; a clean-up without a start of ours,
// or a start with a version the layer does not have, leaves a host's own start alone.
TEST(SocketApiWindowsTest, StartsNestAndCleanupsMatchThem) {
    if (LayerWorks())
        GTEST_SKIP() << "an earlier test of this process started the layer; CTest runs it alone";
    EXPECT_NE(port::SocketStartup(0x0303), 0);
    EXPECT_FALSE(LayerWorks());
    ASSERT_EQ(port::SocketStartup(net::kSocketVersion), 0);
    ASSERT_EQ(port::SocketStartup(net::kSocketVersion), 0);
    port::SocketCleanup();
    EXPECT_TRUE(LayerWorks());
    port::SocketCleanup();
    EXPECT_FALSE(LayerWorks());
    WSADATA data;
    ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);  // the host's own start
    port::SocketCleanup();
    EXPECT_TRUE(LayerWorks());
    WSACleanup();
}

// A loopback connection through every call of the seam, against a blocking peer of the
// platform's own calls; calls on a value that is no socket fail with the platform's error.
TEST(SocketApiWindowsTest, LoopbackConnectionThroughTheSeam) {
    ASSERT_EQ(port::SocketStartup(net::kSocketVersion), 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof(local);
    const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof(local)), 0);
    listen(listener, 1);
    getsockname(listener, reinterpret_cast<sockaddr*>(&local), &length);
    port::AddrInfo* list = nullptr;
    ASSERT_EQ(port::ResolveStream("127.0.0.1", std::to_string(ntohs(local.sin_port)), &list), 0);
    const port::SocketHandle ours = port::CreateSocket(*list);
    ASSERT_NE(ours, port::kInvalidSocket);
    EXPECT_EQ(port::SetNonBlocking(ours), 0);
    EXPECT_TRUE(port::ConnectSocket(ours, *list) == 0 ||
                port::GetLastSocketError() == net::kErrorWouldBlock);
    EXPECT_EQ(port::SelectWritable(ours, 2000), 1);
    EXPECT_EQ(port::ConnectSocket(ours, *list), -1);
    EXPECT_EQ(port::GetLastSocketError(), net::kErrorIsConnected);
    port::FreeResolved(list);
    const SOCKET peer = accept(listener, nullptr, nullptr);
    const DWORD bound = 2000;  // bounds the peer's reads
    setsockopt(peer, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&bound), sizeof(bound));
    DWORD flags = 0;
    EXPECT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(ours), &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);

    // Nothing to read: "would block", and a wait takes its whole time-out, millisecond part too.
    char buffer[16] = {};
    EXPECT_EQ(port::Recv(ours, buffer, sizeof(buffer)), -1);
    EXPECT_EQ(port::GetLastSocketError(), net::kErrorWouldBlock);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(port::SelectReadable(ours, 1250), 0);
    const auto waited = (std::chrono::steady_clock::now() - start) / std::chrono::milliseconds(1);
    EXPECT_TRUE(waited >= 1240 && waited < 2000) << waited;
    EXPECT_EQ(port::Send(ours, "ping", 4), 4);
    EXPECT_EQ(recv(peer, buffer, sizeof(buffer), 0), 4);
    EXPECT_EQ(send(peer, "pong!", 5, 0), 5);
    EXPECT_EQ(port::SelectReadable(ours, 2000), 1);
    EXPECT_EQ(port::Recv(ours, buffer, sizeof(buffer)), 5);
    EXPECT_EQ(port::ShutdownSend(ours), 0);  // the end of the stream at the peer
    EXPECT_EQ(recv(peer, buffer, sizeof(buffer), 0), 0);
    closesocket(peer);
    closesocket(listener);
    port::CloseSocket(ours);

    const port::SocketHandle none = port::kInvalidSocket;
    EXPECT_EQ(std::vector<int>({port::SelectReadable(none, 10), port::SelectWritable(none, 10),
                                port::Send(none, "x", 1), port::Recv(none, buffer, 1),
                                port::ShutdownSend(none), port::SetNonBlocking(none)}),
              std::vector<int>(6, -1));
    EXPECT_EQ(port::GetLastSocketError(), WSAENOTSOCK);
    port::SocketCleanup();
}

}  // namespace
}  // namespace qzdata_report_kelvo
