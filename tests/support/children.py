# SPDX-License-Identifier: BSD-3-Clause
"""What every child process of a test needs."""

import ctypes
import signal

LIBC = ctypes.CDLL(None)


def die_with_parent():
    """To be called in a child before it is executed, so that it ends with a test that is killed: a
    child that lived on would keep the test's output open."""
    pr_set_pdeathsig = 1
    LIBC.prctl(pr_set_pdeathsig, signal.SIGTERM)
