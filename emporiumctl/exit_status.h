// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace EmporiumCtl {

/// The exit status of the program, documented for scripts.
enum class ExitStatus : int
{
    Done = 0,
    Failed = 1,   ///< Failed or refused, or the output could not be written.
    Usage = 2,    ///< The command line was wrong.
    NoDaemon = 3, ///< There is no session bus, or no daemon on it.
    NotKnown = 4, ///< The outcome is not known: time-out, interrupted, or the daemon vanished.
};

} // namespace EmporiumCtl
