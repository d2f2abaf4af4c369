#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""emporiumctl on a pseudo-terminal, against the simulator on a private bus.

Usage: terminal_test.py SIMULATOR CTL
"""

import fcntl
import os
import pty
import struct
import subprocess
import sys
import tempfile
import termios
import unittest

sys.path.append(os.path.join(os.path.dirname(__file__), "../support"))
from children import die_with_parent  # noqa: E402

SIMULATOR, CTL = sys.argv[1:3]


class Terminal(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.environment = dict(os.environ, HOME=self.directory.name, VEYRA_APP_ID="org.example.pty",
                                XDG_CACHE_HOME=os.path.join(self.directory.name, "cache"))
        self.environment.pop("NO_COLOR", None)
        self.package = os.path.join(self.directory.name, "new.pkg")
        subprocess.run([SIMULATOR, "--make-package", self.package, "--id", "org.example.new",
                        "--version", "1.0"], check=True)

    def tearDown(self):
        self.directory.cleanup()

    def run_on_terminal(self, *arguments, columns=100, options=(), scenario=""):
        """Returns the exit status and the terminal's output."""
        path = os.path.join(self.directory.name, "scenario")
        with open(path, "w", encoding="utf-8") as file:
            file.write(scenario)
        ours, theirs = pty.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        process = subprocess.Popen(
            [SIMULATOR, "--step-ms", "0", *options, "--scenario", path, "--private-bus", "--", CTL,
             *arguments],
            stdout=theirs, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
            env=self.environment, preexec_fn=die_with_parent)
        os.close(theirs)
        output = b""
        while True:
            try:
                piece = os.read(ours, 65536)
            except OSError:
                break
            if not piece:
                break
            output += piece
        os.close(ours)
        return process.wait(), output.decode().replace("\r\n", "\n")

    def test_a_running_operation_has_one_line_that_is_redrawn(self):
        status, output = self.run_on_terminal("install", self.package)
        self.assertEqual(status, 0)
        self.assertIn("\033[1A\r\033[K0 s  install org.example.new: 40\n", output)
        self.assertTrue(output.endswith(
            "\033[1A\r\033[K\033[32m0 s  install org.example.new: succeeded\033[0m\n"), output)

    def test_the_line_shows_the_elapsed_time(self):
        status, output = self.run_on_terminal("install", "--timeout", "3", self.package,
                                              options=["--step-ms", "20000"])
        self.assertEqual(status, 4)
        self.assertRegex(output, "\033\\[1A\r\033\\[K[1-3] s  waiting for ")
        self.assertIn("The operation goes on: ", output)

    def test_a_failure_is_red_and_shows_name_and_message(self):
        status, output = self.run_on_terminal("install", self.package,
                                              scenario="FailOperation '', 28\n")
        self.assertEqual(status, 1)
        self.assertIn("\033[31m0 s  install org.example.new: failed (FileConflict: File conflict "
                      "found when installing the package)\033[0m\n", output)

    def test_several_operations_have_a_line_each(self):
        status, output = self.run_on_terminal("remove", "com.sample.notes", "com.sample.weather")
        self.assertEqual(status, 0)
        self.assertIn("\033[2A\r\033[K", output)

    def test_a_heading_is_bold(self):
        _, output = self.run_on_terminal("list")
        self.assertTrue(output.startswith("\033[1mID "), output)

    def test_no_color_is_honoured(self):
        self.environment["NO_COLOR"] = "1"
        _, output = self.run_on_terminal("list")
        self.assertNotIn("\033", output)
        status, output = self.run_on_terminal("install", self.package)
        self.assertEqual(status, 0)
        self.assertNotIn("\033[32m", output)

    def test_a_table_fits_the_terminal(self):
        self.environment["NO_COLOR"] = "1"
        _, output = self.run_on_terminal("list", columns=40)
        lines = output.splitlines()
        self.assertEqual(len(lines), 7)
        for line in lines:
            self.assertLessEqual(len(line), 40, line)
        self.assertIn("\u2026", output)

    def test_json_has_neither_colours_nor_limits(self):
        _, output = self.run_on_terminal("list", "--json", columns=20)
        self.assertNotIn("\033", output)
        self.assertEqual(len(output.splitlines()), 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
