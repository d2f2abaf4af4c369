#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Every peer does every task and comes to the same, and the driver measures and prints; how fast is
no matter here."""

import contextlib
import io
import os
import subprocess
import sys
import unittest

from bus import Bus, Feeder, PeerFailed, run
from run import LIBRARY, PEERS, Bench, print_memory, print_results

PROGRAMS = sys.argv.pop()


class Peers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bus = Bus()
        cls.enterClassContext(cls.bus)
        cls.feeder = cls.enterClassContext(Feeder(os.path.join(PROGRAMS, "feeder"), cls.bus))
        cls.peers = sorted(name for name in os.listdir(PROGRAMS)
                           if name.startswith("peer-") and not name.endswith("_autogen"))

    def each(self, check, *arguments, **options):
        """Has every peer do this task, and checks what each has told."""
        self.assertGreaterEqual(len(self.peers), 5)
        for peer in self.peers:
            with self.subTest(peer=peer):
                check(run(os.path.join(PROGRAMS, peer), self.bus, *arguments, **options))

    def test_the_load_has_every_package(self):
        for packages, entries in ((0, 0), (20, 0), (20, 4), (20, 16)):
            def check(told, expected=packages):
                self.assertEqual(told[0]["packages"], expected)
                self.assertEqual(len(told), 3)

            self.feeder.command("packages", packages, entries)
            self.each(check, "load", 2)

    def test_every_signal_reaches_the_subscriber(self):
        def check(told):
            self.assertEqual(told[-1]["received"], 50)
            self.assertEqual(told[-1]["characters"], 50 * len("1.20.3"))

        self.feeder.command("packages", 20, 4)
        self.each(check, "signals", 50, when_ready=lambda _: self.feeder.command("flood", 50))

    def test_calls_return(self):
        self.each(lambda told: self.assertGreater(told[-1]["call_wall"], 0), "calls", 3)

    def test_the_first_query_is_answered(self):
        self.feeder.command("packages", 20, 4)
        self.each(lambda told: self.assertEqual(told[-1]["version"], "1.20.3"),
                  "start-up", "org.example.package-19")

    def test_a_wrong_task_is_an_error(self):
        with self.assertRaisesRegex(PeerFailed, "there is no such task: nothing"):
            run(os.path.join(PROGRAMS, self.peers[0]), self.bus, "nothing", "1")

    def test_everything_in_one_process_runs(self):
        result = subprocess.run(
            [os.path.join(PROGRAMS, "in-process"), "--benchmark_min_time=0.0001",
             "--benchmark_filter=/(50|100)$"],
            env=self.bus.environment, capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("GetPackageOfAll/100", result.stdout)
        self.assertNotIn("ERROR", result.stdout)

    def test_the_driver_measures_and_prints(self):
        bench = Bench(PROGRAMS, self.bus, self.feeder, quick=True)
        output = io.StringIO()
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(io.StringIO()):
            bench.load(20, 4, rounds=3)
            bench.signals(20, 50, rounds=1)
            bench.calls(3, rounds=1)
            bench.start_up(rounds=1)
            bench.loading(rounds=1)
            print_results(bench)
            print_memory(bench.memory_by_file(20, 4))
        table = output.getvalue()
        self.assertIn(PEERS[LIBRARY], table)
        self.assertRegex(table, r"\| call and decode, 20 packages, 4 entries \| ms \| [0-9.]+ ±")
        self.assertRegex(table, r"\| libemporium \| 0 \| [1-9]")

    def test_more_than_the_protocol_allows_is_refused_with_a_reason(self):
        bench = Bench(PROGRAMS, self.bus, self.feeder, quick=True)
        with contextlib.redirect_stderr(io.StringIO()):
            self.assertRegex(bench.beyond_the_protocol(),
                             r"^\[E\] Couldn't call org.velmora.Emporium.GetAllProperties ")


if __name__ == "__main__":
    unittest.main()
