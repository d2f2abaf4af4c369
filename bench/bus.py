# SPDX-License-Identifier: BSD-3-Clause
"""Runs a private bus, the feeding daemon on it, and the peers: one measurement at a time."""

import json
import os
import subprocess
import tempfile
import time
import urllib.parse


class PeerFailed(Exception):
    """A peer ended with an error; its output is in the text."""


class Bus:
    """A private dbus-daemon in a new directory, which is also the home of the processes on it."""

    @staticmethod
    def directory_in(parent=None):
        return tempfile.TemporaryDirectory(prefix="emporium-bench-", dir=parent)

    def __enter__(self):
        self.directory = self.directory_in()
        home = self.directory.name
        self.daemon = subprocess.Popen(
            ["dbus-daemon", "--session", "--nofork", "--print-address",
             "--address=unix:path=" + urllib.parse.quote(os.path.join(home, "bus"))],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        address = self.daemon.stdout.readline().strip()
        self.environment = {
            "PATH": os.environ["PATH"],
            "HOME": home,
            "XDG_CACHE_HOME": os.path.join(home, "cache"),
            "XDG_RUNTIME_DIR": home,
            "DBUS_SESSION_BUS_ADDRESS": address,
            "VEYRA_APP_ID": "org.example.bench",
            "LC_ALL": "C.UTF-8",
            # Keeps GLib modules of the desktop out of the measurement.
            "GIO_MODULE_DIR": home,
            "QT_LOGGING_RULES": "*=false",
        }
        return self

    def __exit__(self, *_):
        self.daemon.terminate()
        self.daemon.wait()
        self.daemon.stdout.close()
        self.directory.cleanup()


class Feeder:
    """The daemon; executes one command after the other."""

    def __init__(self, program, bus):
        self.process = subprocess.Popen(
            [program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            text=True, env=bus.environment)
        self._expect_ok()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()
        self.process.stderr.close()

    def command(self, *words):
        self.process.stdin.write(" ".join(str(word) for word in words) + "\n")
        self.process.stdin.flush()
        self._expect_ok()

    def _expect_ok(self):
        answer = self.process.stdout.readline().strip()
        if answer != "ok":
            raise RuntimeError("the feeding daemon failed: " + self.process.stderr.read())


def run(program, bus, *arguments, when_ready=None, wrapper=(), log=None):
    """Runs a peer to its end and returns the list of its reports. Calls `when_ready` with its process
    ID when it reports that it is ready. Appends what the library logs to the list `log`."""
    started = time.monotonic_ns()
    process = subprocess.Popen(
        [*wrapper, program, *[str(argument) for argument in arguments]],
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=bus.environment)
    reported = []
    log = [] if log is None else log
    for line in process.stdout:
        if not line.startswith("{"):
            log.append(line)  # a log line of the library
            continue
        values = json.loads(line)
        if "answered_at" in values:
            values["start_wall"] = values.pop("answered_at") - started
        reported.append(values)
        if "ready" in values:
            when_ready(process.pid)
    log.append(process.stderr.read())
    process.stdout.close()
    process.stderr.close()
    if process.wait() != 0:
        raise PeerFailed("".join(log).strip())
    return reported
