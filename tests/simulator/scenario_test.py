# SPDX-License-Identifier: BSD-3-Clause
"""Scenarios: their verbs that wait, their checks, and where they come from; contradicting options."""

import json
import os
import subprocess
from shlex import quote

import fixture
from fixture import SIMULATOR, SimulatorTest

SNAPSHOT = {"type": "snapshot", "architecture": "a", "version": "1", "packages": [], "active": [], "completed": []}
REMOVAL = {"type": "event", "offset_ms": 0, "event": "PackageRemoved", "package": {"id": "a.b"}}


class WaitingVerbs(SimulatorTest):
    def run_scenario(self, scenario, commands, *options):
        self.script(f"watch_signals; {commands}; await \"$MONITOR\" member=Done; kill $watcher", "--scenario",
                    self.file("scenario", scenario), *options)
        return [signal for signal in self.signals() if signal[0] != "OperationStatusChanged"]

    def test_a_scenario_waits_for_a_call(self):
        seen = self.run_scenario(
            "WaitForCall 'Start'\nEmitSignal 'One', '()', 1\n"
            "WaitForCall 'Start', 3\nEmitSignal 'Three', '()', 1\nEmitSignal 'Done', '()', 1\n",
            "d Start x; k EmitSignal Between '()' 1; d Start x; k EmitSignal Between '()' 1; d Start x")
        self.assertEqual([s[0] for s in seen], ["One", "Between", "Between", "Three"])

    def test_a_scenario_waits_for_the_status_of_an_operation(self):
        # The pace is so slow that the operation has not ended when the scenario continues.
        self.run_scenario("WaitForStatus 'org.example.camera', 40\nFailOperation '', 28\n"
                          "WaitForStatus 'org.example.camera', 101\nEmitSignal 'Done', '()', 1\n",
                          "d Remove org.example.camera", "--step-ms", "100")
        self.assertEqual([numbers[1] for name, _, numbers in self.signals() if name == "OperationStatusChanged"],
                         [10, 40, 70, 101])

    def test_a_status_that_was_reached_before_is_not_waited_for(self):
        self.run_scenario("WaitForStatus 'org.example.camera', 100\nWaitForStatus 'org.example.camera', 10\n"
                          "WaitForStatus '', 70\nEmitSignal 'Done', '()', 1\n", "d Remove org.example.camera")

    def test_a_scenario_waits_for_a_client(self):
        seen = self.run_scenario("WaitForClient\nEmitSignal 'Client', '()', 1\nEmitSignal 'Done', '()', 1\n",
                                 "d Start org.example.camera; k EmitSignal Before '()' 1; d GetAllProperties")
        self.assertEqual([s[0] for s in seen], ["Before", "Client"])

    def test_programs_on_the_bus_can_wait_too(self):
        output = self.script(f"""k WaitForStatus org.example.camera 100 >{quote(self.file("out"))} & wait=$!
            k WaitForCall Remove 1 & d Remove org.example.camera >/dev/null; wait; cat {quote(self.file("out"))}""")
        self.assertEqual(output.split(), ["()", "()"])

    def test_a_paused_replay_starts_with_its_verb(self):
        recording = self.file("recording", json.dumps(SNAPSHOT) + "\n" + json.dumps(REMOVAL) + "\n")
        self.script("""watch_signals; d GetAllProperties; k EmitSignal Between '()' 1; k StartReplay
            await "$MONITOR" PackageRemoved; kill $watcher""", "--replay", recording, "--paused")
        self.assertEqual([s[0] for s in self.signals()], ["Between", "PackageRemoved"])

    def test_without_a_recording_no_replay_can_be_started(self):
        self.assertIn("no recording", self.script("k StartReplay"))
        run = self.simulator("--do", "StartReplay", "--check")
        self.assertEqual((run.returncode, "needs a recording" in run.stderr), (2, True), run.stderr)


class FailingOperations(SimulatorTest):
    def ends(self, *verbs):
        options = [option for verb in verbs for option in ("--do", verb)]
        self.script("""watch_signals; d Remove com.sample.notes; d Remove com.sample.weather
            d Remove org.example.camera; d Remove com.sample.notes
            until [ "$(grep -c member=OperationStatusChanged "$MONITOR")" = 4 ]; do sleep 0.02; done
            kill $watcher""", "--steps", "0", *options)
        return [(strings[1], numbers[2]) for name, strings, numbers in self.signals()
                if name == "OperationStatusChanged"]

    def test_failures_queue_for_each_package_and_have_a_number_or_a_name(self):
        self.assertEqual(self.ends("FailOperation 'com.sample.notes', 'FileConflict'",
                                   "FailOperation 'com.sample.notes', 3", "FailOperation '', 'Internal'",
                                   "FailOperation '', 999"),
                         [("com.sample.notes", 28), ("com.sample.weather", 2), ("org.example.camera", 999),
                          ("com.sample.notes", 3)])

    def test_a_call_fails_with_the_number_of_an_error(self):
        output = self.script("d Start x; k FailCall Start 1 8 ''; d Start x; k FailCall Start 1 4711 ''", "--do",
                             "FailCall 'Start', 1, 28, 'odd'").splitlines()
        self.assertIn("KVD.Error.FileConflict: odd", output[0])
        self.assertIn("KVD.Error.DowngradeAttempt", output[2])
        self.assertIn("no such error: 4711", output[3])


class CheckedScenarios(SimulatorTest):
    def test_a_scenario_is_checked_whole_before_anything_is_served(self):
        for line in ("FailCall 'Odd', 1, 'Internal', ''", "FailCall 'Start', 0, 'Internal', ''",
                     "FailCall 'Start', 1, 'NoSuch', ''", "FailCall 'Start', 1, 4711, ''", "DelayReply 'Odd', 1",
                     "SetReply 'Start', '5'", "QueueSignal 'Start', '1bad', '()'", "QueueSignal 'Start', 'A', '(1'",
                     "ExitDuring 'Odd'", "Calls 'Odd'", "EmitSignal '1bad', '()', 1", "EmitSignal 'A', '5', 1",
                     "EmitSignalFrom 'x', 'a.b', 'A', '()', 1", "EmitSignalFrom '/', 'x', 'A', '()', 1",
                     "FailOperation 'a', 0", "FailOperation 'a', 'NoSuch'", "WaitForCall 'Odd'",
                     "WaitForCall 'Start', 0", "WaitForStatus 'a'", "WaitForClient 1", "Odd", "Wait 'x'",
                     "StartReplay"):
            with self.subTest(line):
                path = self.file("s", "Reset\nWait 600000\n" + line + "\n")
                run = self.simulator("--scenario", path, "--private-bus", "--", "echo", "served")
                self.assertEqual((run.returncode, run.stdout), (2, ""), run.stderr)
                self.assertIn(path + ":3: ", run.stderr)

    def test_a_check_needs_no_bus(self):
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + self.file("nothing")
        good = self.file("good", "Reset\nFailCall 'Start', 1, 'Internal', ''\n")
        bad = self.file("bad", "\nOdd\n")
        catalogue = self.file("catalogue", "[Odd]\n")
        run = self.simulator("--check", "--scenario", good)
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        self.assertEqual(self.simulator("--check", "--scenario", bad).returncode, 2)
        self.assertEqual(self.simulator("--check", "--catalogue", catalogue).returncode, 2)
        self.assertEqual(self.simulator("--check", "--replay", catalogue).returncode, 2)

    def test_a_scenario_is_read_from_anything_that_has_an_end(self):
        scenario = "DropProperty 'Packages'\n"
        for command in ("--scenario - <<<$2", "--scenario <(cat <<<$2)", "--scenario /dev/stdin <<<$2"):
            with self.subTest(command):
                run = subprocess.run(
                    ["bash", "-c", f"exec \"$1\" --private-bus {command} -- gdbus call --session --dest "
                     f"{fixture.DAEMON} --object-path /org/velmora/Emporium --method {fixture.DAEMON}.GetAllProperties",
                     "bash", SIMULATOR, scenario], env=self.environment, stdout=subprocess.PIPE, text=True,
                    check=True, timeout=300)
                self.assertIn("Architecture", run.stdout)
                self.assertNotIn("'Packages'", run.stdout)

    def test_what_has_no_end_is_refused(self):
        self.assertEqual(self.simulator("--check", "--scenario", "/dev/zero").returncode, 2)
        self.assertEqual(self.simulator("--check", "--scenario", self.path).returncode, 2)

    def test_verbs_of_the_command_line_precede_the_scenario(self):
        scenario = self.file("s", "SetProperty 'A', <2>\n")
        output = self.script("d GetAllProperties", "--do", "SetProperty 'A', <1>", "--do", "DropProperty 'Packages'",
                             "--scenario", scenario)
        self.assertIn("'A': <2>", output)
        self.assertNotIn("'Packages'", output)
        run = self.simulator("--do", "Odd 1", "--check")
        self.assertEqual(run.returncode, 2)
        self.assertIn("--do: unknown verb Odd", run.stderr)


class ContradictingOptions(SimulatorTest):
    def test_options_that_contradict_each_other_are_refused(self):
        make = ["--make-package", self.file("x"), "--id", "a.b", "--version", "1"]
        cases = [[option, ""] for option in ("--catalogue", "--state", "--scenario", "--replay", "--do")]
        cases += [[option + "=", "--check"] for option in ("--catalogue", "--state", "--scenario", "--replay")]
        cases += [["--make-package", "", "--id", "a.b", "--version", "1"]]
        cases += [["--dictionary-entries", "1"], ["--speed", "2"], ["--paused"], ["--private-home"],
                  ["--keep-cache"], ["--id", "a.b"], ["--payload", "1"], ["--developer", "d"],
                  ["--keep-cache", "--private-home", "--private-bus", "true"], ["--check", "--private-bus", "true"],
                  ["--scenario", "-", "--catalogue", "-"]]
        cases += [make + [*extra] for extra in (["--private-bus", "true"], ["--packages", "1"], ["--steps", "1"],
                                                ["--scenario", "s"], ["--check"], ["--id", "c.d"])]
        cases += [[option, "1", option, "2"] for option in ("--packages", "--catalogue", "--scenario", "--state")]
        for arguments in cases:
            with self.subTest(arguments):
                run = self.simulator(*arguments)
                self.assertEqual((run.returncode, run.stdout), (2, ""), run.stderr)
                self.assertNotIn("line", run.stderr)
        self.assertFalse(os.path.exists(self.file("x")))

    def test_a_payload_that_is_no_64_bit_number_is_refused(self):
        make = ["--make-package", self.file("x"), "--id", "a.b", "--version", "1", "--payload"]
        for size in ("18446744073709551616", "-1", "many", ""):
            run = self.simulator(*make, size)
            self.assertEqual((run.returncode, run.stdout), (2, ""), run.stderr)
            self.assertIn(f"--payload: not a size: {size}\n", run.stderr)
        self.assertEqual(self.simulator(*make, "18446744073709551615").returncode, 0)

    def test_no_packages_at_all_can_be_asked_for(self):
        self.assertIn("'Packages': <@a(ssssa{sv}) []>", self.script("d GetAllProperties", "--packages", "0"))

    def test_a_reply_that_the_bus_does_not_transport_is_an_error(self):
        half = (1 << 25) * "x"
        catalogue = self.file("c", f"[System]\nArchitecture={half}\nVeyraVersion=5\n[Package a.b]\nVersion=1\n")
        scenario = self.file("s", f"SetProperty 'Extra', <'{half}'>\n")
        output = self.script("d GetAllProperties | head -c 300; d Start a.b",
                             "--catalogue", catalogue, "--scenario", scenario)
        self.assertIn("org.freedesktop.DBus.Error.LimitsExceeded: the reply is larger than the 67108864 bytes that "
                      "the bus allows", output)
        self.assertTrue(output.endswith("()\n"), output)

    def test_a_package_file_replaces_nothing_but_a_regular_file(self):
        os.mkfifo(self.file("fifo"))
        os.symlink(self.file("target", "kept"), self.file("link"))
        for path in (self.path, self.file("fifo"), self.file("link"), "/dev/null", "/dev/full"):
            with self.subTest(path):
                run = self.simulator("--make-package", path, "--id", "a.b", "--version", "1")
                self.assertEqual(run.returncode, 2)
                self.assertIn("not a regular file", run.stderr)
        with open(self.file("target"), encoding="utf-8") as f:
            self.assertEqual(f.read(), "kept")
        self.package("old", "a.b", "1")
        self.package("old", "a.b", "2")
        with open(self.file("old"), encoding="utf-8") as f:
            self.assertIn("Version=2", f.read())


class DamagedRecordings(SimulatorTest):
    def check(self, content):
        return self.simulator("--check", "--replay", self.file("recording", content))

    def test_a_cut_last_line_is_left_out_with_a_warning(self):
        whole = json.dumps(SNAPSHOT) + "\n" + json.dumps(REMOVAL) + "\n"
        event = json.dumps(dict(REMOVAL, package={"id": "gr\u00fcn"}), ensure_ascii=False).encode()
        for length in (1, 20, event.index(b"\xc3") + 1, len(event) - 1):
            run = self.check(whole.encode() + event[:length])
            self.assertEqual(run.returncode, 0, run.stderr)
            self.assertIn("the last line is incomplete", run.stderr)
        for content in (whole.encode() + event, whole.encode()):
            run = self.check(content)
            self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_a_later_speed_overrides_an_earlier_one(self):
        run = self.simulator("--check", "--replay", self.file("recording", json.dumps(SNAPSHOT) + "\n"),
                             "--speed", "2", "--speed", "3")
        self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_bytes_that_are_no_text_are_refused(self):
        for odd in (b"\0", b"\xff"):
            run = self.check(json.dumps(SNAPSHOT).encode() + b"\n" + odd + b"\n")
            self.assertEqual(run.returncode, 2)
            self.assertIn("recording:2: not UTF-8 text", run.stderr)

    def test_an_incomplete_line_elsewhere_is_refused(self):
        for content in (json.dumps(SNAPSHOT)[:20], json.dumps(SNAPSHOT) + "\n{\n"):
            run = self.check(content)
            self.assertEqual(run.returncode, 2, run.stderr)

    def test_messages_name_the_field(self):
        package = {"id": "a.b", "version": "1", "developer": "d", "subgroup": "s"}
        snapshots = {
            "packages[1].version is missing": dict(SNAPSHOT, packages=[package, {"id": "a"}]),
            "packages[0] is not an object": dict(SNAPSHOT, packages=[5]),
            "packages is not a list": dict(SNAPSHOT, packages={}),
            "architecture is not a text": dict(SNAPSHOT, architecture=1),
            "active[0].status is not a whole number":
                dict(SNAPSHOT, active=[{"uuid": "u", "package": "p", "type": 0, "status": "x", "error": 0}]),
            "the field type": dict(SNAPSHOT, type="event"),
        }
        for message, line in snapshots.items():
            with self.subTest(message):
                self.assertIn(":1: ", self.check(json.dumps(line) + "\n").stderr)
                self.assertIn(message, self.check(json.dumps(line) + "\n").stderr)
        events = {
            "offset_ms is not a number of milliseconds": dict(REMOVAL, offset_ms="x"),
            "package.id is missing": dict(REMOVAL, package={}),
            "event is not the name of an event: Odd": dict(REMOVAL, event="Odd"),
            "type is not \"event\"": dict(REMOVAL, type="odd"),
            "snapshot.packages is missing":
                dict(REMOVAL, event="DaemonAppeared", snapshot={"architecture": "a", "version": "1"}),
        }
        for message, line in events.items():
            with self.subTest(message):
                run = self.check(json.dumps(SNAPSHOT) + "\n" + json.dumps(line) + "\n")
                self.assertEqual(run.returncode, 2)
                self.assertIn(":2: the field " + message, run.stderr)

    def test_a_recorded_daemon_leaves_the_bus_and_returns_with_its_lists(self):
        package = {"id": "a.new", "version": "1", "developer": "d", "subgroup": "s"}
        vanished = {"type": "event", "offset_ms": 0, "event": "DaemonVanished"}
        appeared = {"type": "event", "offset_ms": 0, "event": "DaemonAppeared",
                    "snapshot": dict(SNAPSHOT, packages=[package])}
        before = self.file("before", "".join(json.dumps(line) + "\n" for line in (SNAPSHOT, vanished)))
        output = self.script("k StartReplay; until d Start x | grep ServiceUnknown; do :; done", "--replay", before,
                             "--paused")
        self.assertIn("ServiceUnknown", output)
        both = self.file("both", "".join(json.dumps(line) + "\n" for line in (SNAPSHOT, vanished, appeared)))
        output = self.script("k StartReplay; until d GetAllProperties | grep a.new; do :; done", "--replay", both,
                             "--paused")
        self.assertIn("('a.new', '1', 's', 'd'", output)


if __name__ == "__main__":
    fixture.main()
