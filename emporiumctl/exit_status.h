// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace EmporiumCtl {

/// The exit status of the program, documented for scripts.
enum class ExitStatus : int
{
    Done = 0,
    Failed = 1,      ///< The operation or command failed.
    Usage = 2,       ///< The command line was wrong.
    NoDaemon = 3,    ///< There is no session bus, or no daemon on it.
    Interrupted = 4, ///< Timeout or Ctrl-C; the operation continues.
};

} // namespace EmporiumCtl
