#include "port/socket_api.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace qzdata_report_kelvo {
namespace {

// Without the guard the default action of the signal would end this process; the signal is
// neither left pending nor blocked, and the call's errno survives.
TEST(SocketApiTest, WriteToAClosedPeerRaisesNoSignal) {
    int pair[2];
    ASSERT_TRUE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0 && close(pair[1]) == 0);
    EXPECT_EQ(port::Send(pair[0], "x", 1), -1);  // sends never raise the signal either
    const int written = port::RunWithoutBrokenPipeSignal([&] { return write(pair[0], "x", 1); });
    EXPECT_EQ(std::make_pair(written, errno), std::make_pair(-1, EPIPE));
    close(pair[0]);
    sigset_t pending, blocked;
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE) == 1 || sigismember(&blocked, SIGPIPE) == 1);
}

// select cannot watch descriptors from FD_SETSIZE on; the waits must still work there.
TEST(SocketApiTest, WaitsWorkOnDescriptorsBeyondTheSelectSet) {
    const int high = FD_SETSIZE + 100;
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    const rlimit raised{static_cast<rlim_t>(high) + 1, saved.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) != 0)
        GTEST_SKIP() << "descriptor limit too low";
    int pair[2];
    ASSERT_TRUE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0 && dup2(pair[0], high) == high);
    EXPECT_EQ(port::SelectReadable(high, 20), 0);
    EXPECT_EQ(port::SelectWritable(high, 20), 1);
    EXPECT_TRUE(write(pair[1], "x", 1) == 1 && port::SelectReadable(high, 1000) == 1);
    for (int fd : {high, pair[0], pair[1]})
        close(fd);
    setrlimit(RLIMIT_NOFILE, &saved);
}

}  // namespace
}  // namespace qzdata_report_kelvo
