// SPDX-License-Identifier: BSD-3-Clause
#include "testing/child_process.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Emporium::Testing::ChildProcess;

/// Starts a child that does not end by itself, and is killed.
[[noreturn]] void TestThatIsKilled()
{
    setpgid(0, 0);
    ChildProcess child({"/bin/sh", "-c", "echo started; exec sleep 600"});
    child.ReadLine();
    raise(SIGKILL);
    _exit(1);
}

TEST(TestChildProcess, OfATestThatIsKilledEndsToo)
{
    std::array<int, 2> inherited{};
    ASSERT_EQ(pipe(inherited.data()), 0);
    const pid_t test = fork();
    if (test == 0) {
        TestThatIsKilled();
    }
    close(inherited[1]);
    int status = 0;
    ASSERT_EQ(waitpid(test, &status, 0), test);
    EXPECT_TRUE(WIFSIGNALED(status));
    // The other end is closed when the last process that inherited it has ended.
    pollfd end{inherited[0], 0, 0};
    EXPECT_EQ(poll(&end, 1, 30000), 1) << "the child lives on";
    kill(-test, SIGKILL);
    close(inherited[0]);
}

} // namespace
