#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Checks that every peer does every task with the same result, that the driver measures, and that the
documents agree with the results. Speed does not matter here."""

import contextlib
import io
import os
import sys
import tempfile
import unittest
import xml.etree.ElementTree
from unittest import mock

import report
from bus import Bus, Feeder, PeerFailed, run
from marks import FLAT_ROWS, marks
from results import BASE, LIBRARY, PEERS, PLAIN_FILES, Results, Row, spread
from run import IN_PROCESS, Bench, in_process_rows, machine

PROGRAMS = sys.argv.pop()


class OnTheBus(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bus = Bus()
        cls.enterClassContext(cls.bus)
        cls.feeder = cls.enterClassContext(Feeder(os.path.join(PROGRAMS, "feeder"), cls.bus))
        cls.enterClassContext(contextlib.redirect_stderr(io.StringIO()))


class Peers(OnTheBus):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.peers = sorted(name for name in os.listdir(PROGRAMS)
                           if name.startswith("peer-") and not name.endswith("_autogen"))

    def each(self, check, *arguments, **options):
        """Runs this task in every peer and checks the reports of each."""
        self.assertGreaterEqual(len(self.peers), 5)
        for peer in self.peers:
            with self.subTest(peer=peer):
                check(run(os.path.join(PROGRAMS, peer), self.bus, *arguments, **options))

    def test_the_load_has_every_package(self):
        for packages, entries in ((0, 0), (20, 0), (20, 4), (20, 16)):
            def check(reported, expected=packages):
                self.assertEqual(reported[0]["packages"], expected)
                self.assertEqual(len(reported), 3)

            self.feeder.command("packages", packages, entries)
            self.each(check, "load", 2)

    def test_every_signal_reaches_the_subscriber(self):
        def check(reported):
            self.assertEqual(reported[-1]["received"], 50)
            self.assertEqual(reported[-1]["characters"], 50 * len("1.20.3"))

        self.feeder.command("packages", 20, 4)
        self.each(check, "signals", 50, when_ready=lambda _: self.feeder.command("flood", 50))

    def test_calls_return(self):
        self.each(lambda reported: self.assertGreater(reported[-1]["call_wall"], 0), "calls", 3)

    def test_the_first_query_is_answered(self):
        self.feeder.command("packages", 20, 4)
        self.each(lambda reported: self.assertEqual(reported[-1]["version"], "1.20.3"),
                  "start-up", "org.example.package-19")

    def test_the_process_exits_by_itself(self):
        self.feeder.command("packages", 20, 4, 3)
        self.each(lambda reported: self.assertEqual(reported, []), "exit", 20)

    def test_a_wrong_task_is_an_error(self):
        with self.assertRaisesRegex(PeerFailed, "there is no such task: nothing"):
            run(os.path.join(PROGRAMS, self.peers[0]), self.bus, "nothing", "1")

    def test_a_wrong_number_of_packages_is_an_error(self):
        self.feeder.command("packages", 20, 4)
        with self.assertRaisesRegex(PeerFailed, "20 packages were loaded, not 21"):
            run(os.path.join(PROGRAMS, self.peers[0]), self.bus, "exit", "21")


class Driver(OnTheBus):
    def setUp(self):
        self.bench = Bench(PROGRAMS, self.bus, self.feeder, quick=True)

    def test_the_results_are_in_the_tables_and_can_be_restored_from_json(self):
        self.bench.load(20, 4, rounds=3)
        self.bench.signals(20, 50, rounds=1)
        self.bench.calls(3, rounds=1)
        self.bench.start_up(rounds=1)
        results = self.bench.results
        results.resident = self.bench.memory_by_file(20, 4)
        text = report.peers_table(results) + report.resident_table(results)
        self.assertIn(PEERS[LIBRARY], text)
        self.assertRegex(text, r"\| call and decode, 20 packages, 4 entries \| ms \| [0-9.]+ ±")
        self.assertRegex(text, r"\n\| - processor time \| ms \| [0-9.]+ ±")
        self.assertRegex(text, r"\n\| libemporium \| 0 \| [1-9]")
        again = Results.from_json(results.to_json([]))
        self.assertEqual(report.peers_table(again) + report.resident_table(again), text)

    def test_the_exit_is_measured_with_stored_operations(self):
        for completed in (0, 3):
            self.bench.exits("in a test", None, completed, rounds=2)
        row = self.bench.results.exits["3/in a test"]
        self.assertEqual({name: len(values) for name, values in row.values.items()},
                         {BASE: 2, LIBRARY: 2, PLAIN_FILES: 2})
        self.assertIn("| start to exit, 3 completed operations, in a test | ms |",
                      report.exits_table(self.bench.results))

    def test_operations_that_are_not_stored_are_noticed(self):
        # Makes the daemon report one completed operation less than it should.
        honest = self.feeder.command
        self.bench.feeder = type("Liar", (), {"command": staticmethod(
            lambda verb, packages, entries, completed: honest(verb, packages, entries,
                                                              completed - 1))})
        with self.assertRaisesRegex(SystemExit, "library has not stored 3 completed operations"):
            self.bench.exits("in a test", None, 3, rounds=1)

    def test_everything_in_one_process_is_measured(self):
        rows = in_process_rows(os.path.join(PROGRAMS, "in-process"), self.bus,
                               "--benchmark_min_time=0.0001")
        self.assertEqual(list(rows), [key for key, *_ in IN_PROCESS])
        for row in rows.values():
            self.assertGreater(row.ratio("measured"), 0)

    def test_more_than_the_protocol_allows_is_refused_with_a_reason(self):
        self.assertRegex(self.bench.beyond_the_protocol(),
                         r"^\[E\] Couldn't call org.velmora.Emporium.GetAllProperties ")


def sample_results(library=0.8, gdbus=4.0, flat=1.2):
    """Results in which raw sd-bus needs 10 for everything."""
    results = Results(machine(PROGRAMS) | {"processor": "8 × Fast_One CPU @ 2^3 {GHz}"})
    loads = [f"{kind}/10000/{entries}" for kind in ("load processor", "own memory")
             for entries in (0, 4, 16)]
    for key in [*loads, "signals/100", "signals/10000", "call processor", "start",
                "decode/1000/4", "decode/1000/16"]:
        row = results.peers[key] = Row("task of " + key, "ms")
        for _ in range(3):
            row.add(BASE, 10)
            row.add(LIBRARY, 10 * library)
            if not key.startswith("decode"):
                row.add("gdbus", 10 * gdbus)
                row.add("qtdbus", 25)
    for key in FLAT_ROWS:
        row = results.in_process[key] = Row("task of " + key, "ns", base="base")
        row.add("base", 50)
        row.add("measured", 50 * flat)
    return results


class Documents(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(tempfile.TemporaryDirectory())
        self.enterContext(contextlib.redirect_stderr(io.StringIO()))
        os.mkdir(os.path.join(self.root, "docs"))
        self.write(report.PAGE, "before\n" + report.BEGIN + report.NO_RUN + report.END + "after\n")

    def write(self, name, text):
        with open(os.path.join(self.root, name), "w", encoding="utf-8") as file:
            file.write(text)

    def read(self, name):
        return report.read(os.path.join(self.root, name))

    def test_the_spread_is_half_the_distance_between_the_quartiles(self):
        self.assertEqual(spread([8, 9, 10, 11, 12]), 10)
        self.assertIsNone(spread([1, 2]))

    def test_a_ratio_is_the_median_of_the_ratios_within_the_rounds(self):
        row = Row("task", "ms")
        for base, library in ((10, 20), (100, 100), (1, 3)):
            row.add(BASE, base)
            row.add(LIBRARY, library)
        self.assertEqual(row.ratio(LIBRARY), 2)

    def test_the_marks_are_met_at_their_limits_and_missed_beyond(self):
        for met, results in ((True, sample_results()),
                             (True, sample_results(library=0.9, gdbus=2.25, flat=2)),
                             (False, sample_results(flat=2.01)),
                             (False, sample_results(library=1.26)),
                             (False, sample_results(gdbus=1.99))):
            self.assertEqual(all(mark.met for mark in marks(results)), met)
        missed = [mark for mark in marks(sample_results(gdbus=1.99)) if not mark.met]
        self.assertEqual(len(missed), 1)
        self.assertRegex(missed[0].task, "^GDBus by hand .*closest of 9 rows")

    def test_the_closest_row_of_gdbus_excludes_start_up_and_small_loads(self):
        results = sample_results()
        results.peers["start"].values["gdbus"] = [1, 1, 1]
        self.assertTrue(all(mark.met for mark in marks(results)))
        results.peers["load processor/200/4"] = results.peers["start"]
        self.assertTrue(all(mark.met for mark in marks(results)))
        results.peers["signals/100"].values["gdbus"] = [1, 1, 1]
        self.assertIn("task of signals/100", marks(results)[-1].task)
        self.assertFalse(marks(results)[-1].met)

    def test_a_mark_without_its_row_is_an_error(self):
        results = sample_results()
        del results.peers["start"]
        with self.assertRaises(KeyError):
            marks(results)

    def test_the_page_has_the_marks_between_its_comments(self):
        page = report.documents(sample_results(), self.root)[report.PAGE]
        self.assertRegex(page, r"^before\n<!-- [^>]* -->\n\n[^|]*\n\n\| mark \| limit \|")
        self.assertIn("| task of start | at most 1.25 | 0.80 ±0% | met |\n", page)
        self.assertRegex(page, r"\n\n<!-- [^>]* -->\nafter\n$")

    def test_the_documents_follow_from_the_results(self):
        if report.why_no_chart():
            self.enterContext(mock.patch.object(report, "chart", report.heading))
        self.assertEqual(report.differences(self.root), [])
        report.write(sample_results(), self.root)
        self.assertEqual(report.differences(self.root), [])
        written = [self.read(name) for name in (report.JSON, report.TABLES, report.PAGE)]
        report.write(report.last_run(self.root), self.root)
        self.assertEqual([self.read(name)
                          for name in (report.JSON, report.TABLES, report.PAGE)], written)
        for name, old, new in ((report.PAGE, " 0.80 ", " 0.79 "),
                               (report.TABLES, " 0.80 ", " 0.79 "),
                               (report.JSON, '"ratio": 0.8', '"ratio": 0.7'),
                               (report.CHART, machine(PROGRAMS)["date"], "yesterday")):
            right = self.read(name)
            self.assertIn(old, right)
            self.write(name, right.replace(old, new, 1))
            self.assertEqual(report.differences(self.root), [name])
            self.write(name, right)

    def test_the_chart_names_the_peers_that_were_measured(self):
        if report.why_no_chart():
            print(f"the chart is not tested: {report.why_no_chart()}")
            self.skipTest(report.why_no_chart())
        svg = report.chart(sample_results())
        xml.etree.ElementTree.fromstring(svg)
        self.assertLess(len(svg), 60 * 1024)
        self.assertIn("SPDX-License-Identifier: BSD-3-Clause", svg)
        for text in (PEERS[BASE], PEERS[LIBRARY], PEERS["gdbus"], PEERS["qtdbus"], "0.80", "4.0"):
            self.assertIn(text, svg)
        self.assertNotIn(PEERS["sdbus-cpp"], svg)

    def test_the_committed_documents_agree_with_the_results_of_the_last_run(self):
        self.assertEqual(report.differences(), [])


if __name__ == "__main__":
    unittest.main()
