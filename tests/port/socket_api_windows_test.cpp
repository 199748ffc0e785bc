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
    if (probe == INVALID_SOCKET) {
        EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
        return false;
    }
    closesocket(probe);
    return true;
}

// Starts nest and only the last clean-up stops the layer; a clean-up without a start of ours,
// or a start with a version the layer does not have, leaves a host's own start alone.
TEST(SocketApiWindowsTest, StartsNestAndCleanupsMatchThem) {
    if (LayerWorks()) {
        GTEST_SKIP() << "an earlier test of this process started the layer; CTest runs it alone";
    }
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

// Two loopback connections through every call of the seam, made after more sockets than a
// select set holds, against a blocking peer of the platform's own calls.
TEST(SocketApiWindowsTest, LoopbackConnectionsThroughTheSeam) {
    using Clock = std::chrono::steady_clock;
    ASSERT_EQ(port::SocketStartup(net::kSocketVersion), 0);
    std::vector<SOCKET> sockets(FD_SETSIZE + 10);
    for (SOCKET& each : sockets) {
        each = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    }
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof(local);
    const SOCKET listener = sockets.back();
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof(local)), 0);
    listen(listener, 4);
    getsockname(listener, reinterpret_cast<sockaddr*>(&local), &length);
    port::AddrInfo* list = nullptr;
    ASSERT_EQ(port::ResolveStream("127.0.0.1", std::to_string(ntohs(local.sin_port)), &list), 0);
    port::SocketHandle ours[2];
    SOCKET peers[2];
    for (int i = 0; i < 2; ++i) {
        ours[i] = port::CreateSocket(*list);
        ASSERT_NE(ours[i], port::kInvalidSocket);
        EXPECT_EQ(port::SetNonBlocking(ours[i]), 0);
        port::SetNoDelay(ours[i]);
        const int connected = port::ConnectSocket(ours[i], *list);
        EXPECT_TRUE(connected == 0 || port::GetLastSocketError() == net::kErrorWouldBlock);
        EXPECT_EQ(port::SelectWritable(ours[i], 2000), 1);
        EXPECT_EQ(port::ConnectSocket(ours[i], *list), -1);
        EXPECT_EQ(port::GetLastSocketError(), net::kErrorIsConnected);
        peers[i] = accept(listener, nullptr, nullptr);
        const DWORD bound = 2000;  // bounds the peer's reads
        setsockopt(peers[i], SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&bound),
                   sizeof(bound));
    }
    port::FreeResolved(list);
    DWORD flags = 0;
    EXPECT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(ours[0]), &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);

    // Nothing to read: "would block", and a wait takes its whole time-out, millisecond part too.
    char buffer[16] = {};
    EXPECT_EQ(port::Recv(ours[0], buffer, sizeof(buffer)), -1);
    EXPECT_EQ(port::GetLastSocketError(), net::kErrorWouldBlock);
    const auto start = Clock::now();
    EXPECT_EQ(port::SelectReadable(ours[0], 1250), 0);
    const auto waited = (Clock::now() - start) / std::chrono::milliseconds(1);
    EXPECT_TRUE(waited >= 1240 && waited < 2000) << waited;
    EXPECT_EQ(port::Send(ours[0], "ping", 4), 4);
    EXPECT_EQ(recv(peers[0], buffer, sizeof(buffer), 0), 4);
    EXPECT_EQ(send(peers[0], "pong!", 5, 0), 5);
    EXPECT_EQ(port::SelectReadable(ours[0], 2000), 1);
    EXPECT_EQ(port::Recv(ours[0], buffer, sizeof(buffer)), 5);

    // A peer that resets: reading ends (Windows reports the reset, Wine the end of the stream),
    // and sending fails with the reset itself.
    const linger hard{1, 0};
    setsockopt(peers[0], SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&hard), sizeof(hard));
    closesocket(peers[0]);
    EXPECT_EQ(port::SelectReadable(ours[0], 2000), 1);
    const int read = port::Recv(ours[0], buffer, sizeof(buffer));
    EXPECT_TRUE(read == 0 || (read == -1 && port::GetLastSocketError() == WSAECONNRESET)) << read;
    EXPECT_EQ(port::RunWithoutBrokenPipeSignal([&] { return port::Send(ours[0], "x", 1); }), -1);
    EXPECT_EQ(port::GetLastSocketError(), WSAECONNRESET);

    // Our shutdown is the end of the stream at the peer.
    EXPECT_EQ(port::ShutdownSend(ours[1]), 0);
    EXPECT_EQ(recv(peers[1], buffer, sizeof(buffer), 0), 0);
    closesocket(peers[1]);
    for (port::SocketHandle each : ours) {
        port::CloseSocket(each);
    }
    for (SOCKET each : sockets) {
        closesocket(each);
    }
    port::SocketCleanup();
}

// Calls on a value that is no socket fail, with the platform's error passed through unchanged.
TEST(SocketApiWindowsTest, NoSocketFailsWithTheErrorUnchanged) {
    ASSERT_EQ(port::SocketStartup(net::kSocketVersion), 0);
    char byte = 0;
    const port::SocketHandle none = port::kInvalidSocket;
    for (int result :
         {port::SelectReadable(none, 10), port::SelectWritable(none, 10), port::Send(none, "x", 1),
          port::Recv(none, &byte, 1), port::ShutdownSend(none), port::SetNonBlocking(none)}) {
        EXPECT_EQ(result, -1);
    }
    EXPECT_EQ(port::GetLastSocketError(), WSAENOTSOCK);
    port::SocketCleanup();
}

}  // namespace
}  // namespace qzdata_report_kelvo
