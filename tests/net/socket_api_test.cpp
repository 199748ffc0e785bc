#include "net/socket_api.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "net/constants.h"
#include "support/http_test_server.h"

namespace qzdata_report_kelvo {
namespace {

bool SigpipePendingOrBlocked() {
    sigset_t set;
    sigpending(&set);
    if (sigismember(&set, SIGPIPE) == 1) {
        return true;
    }
    pthread_sigmask(SIG_BLOCK, nullptr, &set);
    return sigismember(&set, SIGPIPE) == 1;
}

TEST(SocketApiTest, WriteToAClosedPeerRaisesNoSignal) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    close(pair[1]);
    int error = 0;
    // Without the guard the default action of the signal would end this process.
    const int result = port::RunWithoutBrokenPipeSignal([&] {
        const int written = static_cast<int>(write(pair[0], "x", 1));
        error = errno;
        return written;
    });
    close(pair[0]);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EPIPE);
    EXPECT_FALSE(SigpipePendingOrBlocked());
}

TEST(SocketApiTest, ConnectErrorsMapToTheTwoKnownValues) {
    qz_test::HttpTestServer listener;
    ASSERT_TRUE(listener.ListenOnly(4));
    port::AddrInfo* list = nullptr;
    ASSERT_EQ(port::GetAddrInfo("127.0.0.1", std::to_string(listener.port()), &list), 0);
    ASSERT_NE(list, nullptr);
    const port::SocketHandle socket = port::CreateSocket(*list);
    ASSERT_NE(socket, port::kInvalidSocket);
    ASSERT_EQ(port::SetNonBlocking(socket), 0);

    ASSERT_EQ(port::ConnectSocket(socket, *list), -1);
    EXPECT_EQ(port::GetLastSocketError(), net::kErrorWouldBlock);
    ASSERT_EQ(port::SelectWritable(socket, 1000), 1);
    // The first call after completion may still report the completion itself.
    int again = port::ConnectSocket(socket, *list);
    if (again == 0) {
        again = port::ConnectSocket(socket, *list);
    }
    ASSERT_EQ(again, -1);
    EXPECT_EQ(port::GetLastSocketError(), net::kErrorIsConnected);

    // Nothing to read yet: recv would block, and a wait for readability times out.
    char buffer[8];
    EXPECT_EQ(port::Recv(socket, buffer, sizeof(buffer)), -1);
    EXPECT_EQ(port::GetLastSocketError(), net::kErrorWouldBlock);
    EXPECT_EQ(port::SelectReadable(socket, 20), 0);
    port::CloseSocket(socket);
    port::FreeAddrInfo(list);
}

TEST(SocketApiTest, WaitsWorkOnDescriptorsBeyondTheSelectSet) {
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    const int high = FD_SETSIZE + 100;
    if (saved.rlim_max != RLIM_INFINITY && saved.rlim_max <= static_cast<rlim_t>(high)) {
        GTEST_SKIP() << "descriptor limit too low";
    }
    rlimit raised = saved;
    raised.rlim_cur = static_cast<rlim_t>(high) + 1;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);

    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    ASSERT_EQ(dup2(pair[0], high), high);
    close(pair[0]);
    EXPECT_EQ(port::SelectReadable(high, 20), 0);
    EXPECT_EQ(port::SelectWritable(high, 20), 1);
    ASSERT_EQ(write(pair[1], "x", 1), 1);
    EXPECT_EQ(port::SelectReadable(high, 1000), 1);
    close(high);
    close(pair[1]);
    setrlimit(RLIMIT_NOFILE, &saved);
}

}  // namespace
}  // namespace qzdata_report_kelvo
