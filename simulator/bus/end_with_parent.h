// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace Simulator {

/// Called in a child process: kills it when its parent ends, even if the parent is killed.
inline void EndWithParent(pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(1); // The parent ended before the call.
    }
}

} // namespace Simulator
