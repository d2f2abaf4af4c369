// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace EmporiumCtl {

/// What the program tells a script.
enum class ExitStatus : int
{
    Done = 0,
    Failed = 1,      ///< The operation or command failed.
    Usage = 2,       ///< The command line was wrong.
    NoDaemon = 3,    ///< There is no session bus, or no daemon on it.
    Interrupted = 4, ///< The time ran out, or somebody pressed Ctrl-C; the operation goes on.
};

} // namespace EmporiumCtl
