# SPDX-License-Identifier: BSD-3-Clause
"""Rules of the simulated daemon that applications and their tests rely on."""

import json
import re
import signal
import subprocess
from shlex import quote

import fixture
from fixture import SIMULATOR, SimulatorTest, die_with_parent

HELPERS = """
# Waits until $MONITOR contains the text that many times.
await_count() { for i in $(seq 10000); do [ "$(grep -c -- "$2" "$MONITOR")" -ge "$1" ] && return 0
  sleep 0.02; done; echo "no $2"; exit 9; }
# The simulator takes the calls between these two at once, in the order in which they arrived.
hold() { kill -STOP "$PPID"; }
release() { kill -CONT "$PPID"; }
"""


class RulesTest(SimulatorTest):
    def script(self, text, *options):
        return super().script(HELPERS + text, *options)

    def monitor(self):
        with open(self.file("monitor"), encoding="utf-8") as f:
            return f.read()

    def read(self, name):
        with open(self.file(name), encoding="utf-8") as f:
            return f.read()


class Wire(RulesTest):
    def order(self, call, prepare=""):
        """What the daemon sends between the call of Start and its reply."""
        self.script(f"""watch_messages; {prepare}
            k QueueSignal Start PackageRemoved "('first',)"; k QueueSignal Start PackageRemoved "('second',)"
            {call}; k EmitSignalFrom / org.velmora.Emporium Done '()' 1; await_count 1 member=Done
            kill $watcher""")
        blocks = re.split(r"^(?=\S)", self.monitor(), flags=re.M)
        call = next(i for i, block in enumerate(blocks)
                    if re.match(r"method call .*member=Start$", block, re.M))
        caller, serial = re.search(r"sender=(\S+) .*? serial=(\d+) ", blocks[call]).groups()
        order = []
        for block in blocks[call + 1:]:
            head, _, body = block.partition("\n")
            if "member=PackageRemoved" in head:
                order.append(re.search('string "(.*)"', body).group(1))
            elif f"destination={caller} " in head and head.endswith(f"reply_serial={serial}"):
                order.append(head.split(" time=")[0])
        return order

    def test_queued_signals_precede_a_reply(self):
        self.assertEqual(self.order("d Start org.example.camera"), ["first", "second", "method return"])

    def test_queued_signals_precede_an_error(self):
        self.assertEqual(self.order("d Start none"), ["first", "second", "error"])

    def test_queued_signals_precede_a_delayed_reply(self):
        self.assertEqual(self.order("d Start org.example.camera", "k DelayReply Start 50"),
                         ["first", "second", "method return"])


class Lists(RulesTest):
    def test_a_removed_package_is_gone_also_after_an_earlier_snapshot(self):
        output = self.script("""d GetAllProperties; k RemovePackage org.example.camera false
            d GetAllProperties""").splitlines()
        self.assertIn("org.example.camera", output[0])
        self.assertNotIn("org.example.camera", output[2])
        self.assertIn("org.example.gallery", output[2])

    def test_an_added_and_a_reset_package_are_listed_also_after_an_earlier_snapshot(self):
        output = self.script("""d GetAllProperties; k AddPackage "('a.b','1','s','d',@a{sv} {})" false
            d GetAllProperties; k Reset; d GetAllProperties""").splitlines()
        self.assertEqual(["'a.b'" in output[line] for line in (0, 2, 4)], [False, True, False])

    def test_an_operation_that_is_reported_again_is_listed_once(self):
        output = self.script("""k AddCompletedOperation "('v','a.b',0,101,28)" false
            k AddCompletedOperation "('v','a.b',0,100,0)" false
            k AddActiveOperation "('w','a.b',0,10,0)" false; k AddActiveOperation "('w','a.b',0,40,0)" false
            d GetAllProperties""")
        self.assertIn("'CompletedOperations': <[('v', 'a.b', 0, 100, 0)]>", output)
        self.assertIn("'Operations': <[('w', 'a.b', 0, 40, 0)]>", output)

    def test_an_active_operation_that_is_reported_completed_is_no_longer_active(self):
        output = self.script("""k AddActiveOperation "('v','a.b',0,10,0)" false
            k AddCompletedOperation "('v','a.b',0,100,0)" false; d GetAllProperties""")
        self.assertIn("'CompletedOperations': <[('v', 'a.b', 0, 100, 0)]>", output)
        self.assertIn("'Operations': <@a(ssiii) []>", output)


class Queue(RulesTest):
    def results(self):
        """The final status and error of each operation in the order of completion."""
        return [numbers[1:] for name, _, numbers in self.signals()
                if name == "OperationStatusChanged" and numbers[1] >= 100]

    def test_a_failure_is_used_once(self):
        for package in ("org.example.camera", ""):
            with self.subTest(package):
                self.script(f"""watch_signals; k FailOperation {quote(package)} 28
                    d Remove org.example.camera; await "$MONITOR" 'int32 101'
                    d Remove org.example.camera; await "$MONITOR" 'int32 100'; kill $watcher""",
                            "--steps", "0")
                self.assertEqual(self.results(), [[101, 28], [100, 0]])

    def test_the_second_of_two_queued_installs_of_the_same_package_fails(self):
        path = quote(self.package())
        self.script(f"""watch_messages; hold
            d Install {path} & d Install {path} & await_count 2 'member=Install$'
            release; await_count 1 'int32 100'; await_count 1 'int32 101'; kill $watcher""",
                    "--step-ms", "500", "--steps", "0")
        self.assertEqual(self.results(), [[100, 0], [101, 29]])
        self.assertEqual(self.monitor().count("member=PackageInstalled"), 1)

    def test_reset_stops_the_running_operations(self):
        path = quote(self.package())
        output = self.script(f"""watch_messages; hold
            d Install {path} >/dev/null & await_count 1 'member=Install$'
            d Remove org.example.gallery >/dev/null & await_count 1 'member=Remove$'
            k Reset >/dev/null & await_count 1 'member=Reset$'
            release; d Remove org.example.camera >/dev/null; await_count 1 'int32 100'; kill $watcher
            d GetAllProperties""", "--step-ms", "300", "--steps", "0")
        removed = [strings[1] for name, strings, numbers in self.signals()
                   if name == "OperationStatusChanged" and numbers[1] >= 100]
        self.assertEqual(removed, ["org.example.camera"])
        self.assertIn("org.example.gallery", output)
        self.assertIn("'Operations': <@a(ssiii) []>", output)

    def test_reset_forgets_the_statuses_that_were_reached(self):
        removed = "WaitForStatus 'org.example.camera', 100\n"
        scenario = self.file("scenario", removed + "Reset\nEmitSignal 'Restored', '()', 1\n" +
                             removed + "EmitSignal 'Done', '()', 1\n")
        self.script("""watch_signals; d Remove org.example.camera; await "$MONITOR" member=Restored
            d Remove org.example.camera; await "$MONITOR" member=Done; kill $watcher""",
                    "--steps", "0", "--scenario", scenario)
        seen = re.findall(r"member=(PackageRemoved|Restored|Done)$", self.monitor(), flags=re.M)
        self.assertEqual(seen, ["PackageRemoved", "Restored", "PackageRemoved", "Done"])

    def test_reset_forgets_a_failure_to_come(self):
        self.script("""watch_signals; k FailOperation '' 28; k Reset; d Remove org.example.camera
            await "$MONITOR" 'int32 10[01]'; kill $watcher""", "--steps", "0")
        self.assertEqual(self.results(), [[100, 0]])


class Names(RulesTest):
    def test_vanishing_for_good_cancels_a_return(self):
        # The reply is due after the return would have been.
        output = self.script("""k DelayReply Start 900; k Vanish 700; k Vanish 0
            gdbus call --session --dest org.velmora.Emporium.Simulator --object-path /org/velmora/Emporium \
              --method org.velmora.Emporium.Start org.example.camera
            d GetAllProperties""").splitlines()
        self.assertEqual(output[:4], ["()"] * 4)
        self.assertIn("ServiceUnknown", output[4])


    def errors_while_the_name_is_taken(self, text, *options):
        """The messages of a simulator until one of them says that another program owns the name."""
        # The program is in the queue for the name, and owns it from the moment the simulator releases it.
        program = self.file("owner.py", """
import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
bus.call_sync("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
              GLib.Variant("(su)", ("org.velmora.Emporium", 0)), None, 0, -1)
print("queued", flush=True)
GLib.MainLoop().run()
""")
        text = f""": >"$MONITOR"; /usr/bin/python3 {quote(program)} >"$MONITOR" & owner=$!
            await "$MONITOR" queued; {text}; await {quote(self.file("errors"))} owns; kill $owner"""
        with open(self.file("errors"), "w+", encoding="utf-8") as errors:
            run = subprocess.run([SIMULATOR, *options, "--private-bus", "--", "bash", "-c", fixture.PRELUDE + text],
                                 env=self.environment, timeout=300, stdout=subprocess.PIPE, stderr=errors,
                                 check=False, preexec_fn=die_with_parent)
            errors.seek(0)
            self.assertEqual(run.returncode, 0)
            return errors.read()

    def test_a_name_that_another_program_took_meanwhile_cannot_be_reclaimed(self):
        self.assertEqual(self.errors_while_the_name_is_taken("k Vanish 1"),
                         "emporium-simulator: cannot reclaim the bus name: "
                         "another program owns the bus name org.velmora.Emporium\n")

    def test_a_replay_continues_without_a_name_that_another_program_took(self):
        empty = {"packages": [], "active": [], "completed": [], "architecture": "a", "version": "1"}
        lines = [dict(empty, type="snapshot"), {"type": "event", "offset_ms": 0, "event": "DaemonVanished"},
                 {"type": "event", "offset_ms": 0, "event": "DaemonAppeared", "snapshot": empty}]
        recording = self.file("recording", "".join(json.dumps(line) + "\n" for line in lines))
        self.assertEqual(self.errors_while_the_name_is_taken("k StartReplay", "--replay", recording, "--paused"),
                         "emporium-simulator: another program owns the bus name org.velmora.Emporium\n")


class Versions(RulesTest):
    def installed(self, installed, offered):
        """Whether the offered version is accepted, else the refusal."""
        catalogue = self.file("catalogue", f"[Package a.b]\nVersion={installed}\n")
        path = self.package("offered", "a.b", offered)
        output = self.script("d Install " + quote(path), "--catalogue", catalogue)
        refusal = re.search(r"Error\.(\w+): ", output)
        return refusal.group(1) if refusal else "accepted"

    def test_a_prerelease_is_older_than_its_release(self):
        for older, newer in (("1.0-rc1", "1.0"), ("1.0-rc.9", "1.0-rc.10"), ("1.0-alpha", "1.0-beta"),
                             ("1.0", "1.1-rc1"), ("1.0-rc", "1.0-rc.1"), ("1.0-rc.10", "1.0-rc.b")):
            with self.subTest(older + " < " + newer):
                self.assertEqual(self.installed(older, newer), "accepted")
                self.assertEqual(self.installed(newer, older), "DowngradeAttempt")

    def test_the_same_prerelease_is_the_same_package(self):
        self.assertEqual(self.installed("1.0-rc1", "1.0-rc1"), "SamePackageIsInstalled")


class Replays(RulesTest):
    def test_a_second_client_does_not_restart_a_replay(self):
        lines = [{"type": "snapshot", "time": "2026-01-01T00:00:00Z", "architecture": "arm",
                  "version": "9", "packages": [], "active": [], "completed": []},
                 {"type": "event", "offset_ms": 1000, "event": "PackageRemoved",
                  "package": {"id": "a.b", "version": "1", "developer": "d", "subgroup": "s"}}]
        path = self.file("r", "".join(json.dumps(line) + "\n" for line in lines))
        self.script("""watch_signals; end=$((SECONDS + 15))
            while ! grep -q PackageRemoved "$MONITOR" && [ $SECONDS -lt $end ]; do
              d GetAllProperties >/dev/null; done; kill $watcher""", "--replay", path)
        self.assertEqual([name for name, _, _ in self.signals()], ["PackageRemoved"])

    def test_an_operation_that_is_not_finished_is_active(self):
        lines = [{"type": "snapshot", "time": "2026-01-01T00:00:00Z", "architecture": "arm",
                  "version": "9", "packages": [], "active": [], "completed": []},
                 {"type": "event", "offset_ms": 0, "event": "OperationStatusChanged",
                  "operation": {"uuid": "u", "package": "p", "type": 0, "status": 50, "error": 0}}]
        path = self.file("r", "".join(json.dumps(line) + "\n" for line in lines))
        output = self.script("""watch_signals; d GetAllProperties >/dev/null
            await "$MONITOR" OperationStatusChanged; d GetAllProperties; kill $watcher""", "--replay", path)
        self.assertIn("'Operations': <[('u', 'p', 0, 50, 0)]>", output)


class Scenarios(RulesTest):
    def test_one_that_fails_at_once_or_on_its_way_ends_the_program_with_2(self):
        for wait in ("", "Wait 1\n"):
            scenario = self.file("s", f"# comment\n{wait}RemovePackage 'no.such', false\n")
            with self.subTest(wait):
                run = self.simulator("--scenario", scenario, "--private-bus", "--", "sleep", "600")
                self.assertEqual(run.returncode, 2)
                self.assertIn(f"{scenario}:{2 + len(wait.splitlines())}: ", run.stderr)

    def test_one_that_fails_on_its_way_ends_the_program_without_a_command_with_2(self):
        scenario = self.file("s", "Wait 1\nRemovePackage 'no.such', false\n")
        output = self.script(f"""k ExitDuring Start >/dev/null; d Start x >/dev/null
            {quote(SIMULATOR)} --scenario {quote(scenario)} 2>&1; echo $?""")
        self.assertEqual(output.splitlines()[-1], "2")
        self.assertIn(f"{scenario}:2: ", output)


class Hangup(RulesTest):
    def test_ends_the_command_and_the_program(self):
        with subprocess.Popen([SIMULATOR, "--private-bus", "--", "sh", "-c", "echo go; exec sleep 600"],
                              env=self.environment, stdout=subprocess.PIPE, text=True,
                              preexec_fn=die_with_parent) as process:
            self.assertEqual(process.stdout.readline(), "go\n")
            process.send_signal(signal.SIGHUP)
            self.assertEqual(process.wait(30), 128 + signal.SIGTERM)


if __name__ == "__main__":
    fixture.main()
