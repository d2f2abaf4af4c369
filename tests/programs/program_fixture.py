# SPDX-License-Identifier: BSD-3-Clause
"""Runs the programs as people do, with a simulated daemon on a private bus of each test."""

import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.append(os.path.join(os.path.dirname(__file__), "../support"))
from children import die_with_parent  # noqa: E402

SIMULATOR = os.environ["EMPORIUM_SIMULATOR"]
CTL = os.environ["EMPORIUMCTL"]
SOURCE_DIR = os.environ["EMPORIUM_SOURCE_DIR"]
OTHER_WAITS = os.environ["OTHER_WAITS"]
DEADLINE = 240


def until(condition, what="the condition"):
    """Waits for a condition and returns its value."""
    end = time.monotonic() + DEADLINE
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.01)
    raise AssertionError(f"{what} did not come about within {DEADLINE} s")


class Running:
    """A program that runs in the background. Its output is in files, so it never blocks."""

    def __init__(self, test, arguments, **options):
        self.test = test
        self.out = open(test.file(f"out{len(test.running)}"), "w+b")
        self.err = open(test.file(f"err{len(test.running)}"), "w+b")
        options.setdefault("stdout", self.out)
        options.setdefault("stderr", self.err)
        options.setdefault("preexec_fn", die_with_parent)
        options.setdefault("env", test.environment)
        self.process = subprocess.Popen([CTL, *arguments], stdin=subprocess.DEVNULL, **options)

    def read(self, file):
        with open(file.name, "rb") as again:
            return again.read().decode()

    def output(self):
        return self.read(self.out)

    def errors(self):
        return self.read(self.err)

    def until_output(self, pattern):
        return until(lambda: re.search(pattern, self.output()), f"output of {pattern}")

    def until_error(self, pattern):
        return until(lambda: re.search(pattern, self.errors()), f"message of {pattern}")

    def signal(self, number):
        self.process.send_signal(number)

    def status(self):
        return self.process.wait(DEADLINE)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.out.close()
        self.err.close()


class ProgramTest(unittest.TestCase):
    # The simulated daemon finishes operations at once; a test may let them run for ever.
    simulator_options = ["--step-ms", "0"]

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.running = []
        self.simulator = None
        self.addCleanup(self.stop_daemon)
        self.environment = dict(os.environ, HOME=self.directory.name, TMPDIR=self.directory.name,
                                XDG_CACHE_HOME=self.file("cache"), LC_ALL="C.UTF-8",
                                VEYRA_APP_ID="org.example.programs", G_SLICE="always-malloc")
        for name in ("DBUS_SESSION_BUS_ADDRESS", "LANGUAGE", "NO_COLOR", "SYSTEMD_BUS_TIMEOUT"):
            self.environment.pop(name, None)

    def file(self, name, content=None):
        path = os.path.join(self.directory.name, name)
        if content is not None:
            with open(path, "wb") as file:
                file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def content(self, path):
        """The text of a file, which need not exist."""
        try:
            with open(path, encoding="utf-8") as file:
                return file.read()
        except FileNotFoundError:
            return ""

    def start_daemon(self, *options):
        """A bus with the simulated daemon, until the end of the test or the start of another one."""
        self.stop_daemon()
        self.simulator = subprocess.Popen(
            [SIMULATOR, *self.simulator_options, *options, "--private-bus", "--", "sh", "-c",
             'echo "$DBUS_SESSION_BUS_ADDRESS"; exec cat'],
            env=self.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            preexec_fn=die_with_parent)
        address = self.simulator.stdout.readline().decode().strip()
        self.assertTrue(address, "the simulator has not started")
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = address

    def other_waits(self, milliseconds_per_second):
        """An environment in which a program does not wait for as long as it says."""
        directory, library = os.path.split(OTHER_WAITS)  # a preloaded path may not have spaces
        return dict(self.environment, LD_PRELOAD=library, LD_LIBRARY_PATH=directory,
                    ASKED_SECONDS=self.file("seconds"),
                    ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0",
                    MILLISECONDS_PER_SECOND=str(milliseconds_per_second))

    def full_pipe(self):
        """The end of a pipe into which nothing can be written."""
        reader, writer = os.pipe()
        for descriptor in (reader, writer):
            self.addCleanup(os.close, descriptor)
        os.set_blocking(writer, False)
        try:
            while True:
                os.write(writer, b" " * 65536)
        except BlockingIOError:
            os.set_blocking(writer, True)
            return writer

    def stop_daemon(self):
        for program in self.running:
            program.close()
        if self.simulator is None:
            return
        self.simulator.stdin.close()
        self.simulator.stdout.close()
        self.simulator.wait(DEADLINE)
        self.simulator = None

    def gdbus(self, destination, path, method, *arguments):
        run = subprocess.run(
            ["gdbus", "call", "--session", "--dest", destination, "--object-path", path,
             "--method", method, *map(str, arguments)],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            timeout=DEADLINE, check=False)
        self.assertEqual(run.returncode, 0, run.stderr)
        return run.stdout

    def tell(self, verb, *arguments):
        """Calls the control interface of the simulator."""
        simulator = "org.velmora.Emporium.Simulator"
        return self.gdbus(simulator, "/org/velmora/Emporium/Simulator", f"{simulator}.{verb}",
                          *arguments)

    def calls(self, method):
        return int(re.search(r"\d+,", self.tell("Calls", method))[0][:-1])

    def until_called(self, method, times=1):
        until(lambda: self.calls(method) >= times, f"a call of {method}")

    def emit(self, signal_name, body, count=1):
        self.tell("EmitSignal", signal_name, body, count)

    def kill_bus(self):
        reply = self.gdbus("org.freedesktop.DBus", "/",
                           "org.freedesktop.DBus.GetConnectionUnixProcessID", "org.freedesktop.DBus")
        os.kill(int(re.search(r"uint32 (\d+)", reply)[1]), signal.SIGKILL)

    def package(self, name="new.pkg", package_id="org.example.new", version="1.0"):
        path = self.file(name)
        subprocess.run([SIMULATOR, "--make-package", path, "--id", package_id, "--version", version],
                       env=self.environment, check=True)
        return path

    def ctl(self, *arguments, **options):
        """Runs emporiumctl to its end."""
        options.setdefault("stdout", subprocess.PIPE)
        options.setdefault("stderr", subprocess.PIPE)
        options.setdefault("env", self.environment)
        return subprocess.run([CTL, *arguments], stdin=subprocess.DEVNULL, timeout=DEADLINE,
                              check=False, encoding="utf-8", **options)

    def start(self, *arguments, **options):
        """Runs emporiumctl in the background, until the end of the test."""
        program = Running(self, arguments, **options)
        self.running.append(program)
        return program

    def succeeds(self, *arguments):
        """The output of a command that must succeed."""
        run = self.ctl(*arguments)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        return run.stdout

    def ends(self, program, status):
        self.assertEqual(program.status(), status, program.output() + program.errors())


def main():
    unittest.main(argv=sys.argv, verbosity=2)
