#include "port/socket_api.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace qzdata_report_kelvo {
namespace {

TEST(SocketApiTest, WriteToAClosedPeerRaisesNoSignal) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    close(pair[1]);
    int error = 0;
    // Without the guard the default action of the signal would end this process.
    EXPECT_EQ(port::RunWithoutBrokenPipeSignal([&] {
                  const int written = static_cast<int>(write(pair[0], "x", 1));
                  error = errno;
                  return written;
              }),
              -1);
    close(pair[0]);
    EXPECT_EQ(error, EPIPE);
    // Nor is it left pending or blocked.
    sigset_t pending, blocked;
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE) == 1 || sigismember(&blocked, SIGPIPE) == 1);
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
