# SPDX-License-Identifier: BSD-3-Clause
"""Runs the real emporium-simulator on private buses and calls it with gdbus."""

import json
import os
import re
import signal
import subprocess
from shlex import quote
from urllib.parse import unquote_to_bytes

import fixture
from fixture import DAEMON, SIMULATOR, SOURCE_DIR, SimulatorTest, die_with_parent, errors


class Contract(SimulatorTest):
    def test_introspection_on_the_bus_is_the_installed_contract(self):
        seen = self.script("gdbus introspect --session --xml --dest org.velmora.Emporium "
                           "--object-path /org/velmora/Emporium")
        with open(os.path.join(SOURCE_DIR, "data/org.velmora.Emporium.xml"), encoding="utf-8") as f:
            wanted = f.read()

        def members(xml):
            part = xml[xml.index('<interface name="org.velmora.Emporium">'):]
            part = part[:part.index("</interface>")]
            return [(kind, name, re.findall(r'type="([^"]*)"', body)) for kind, name, body in
                    re.findall(r'<(method|signal) name="(\w+)"(?:/>|>(.*?)</\1>)', part, re.S)]
        self.assertEqual(len(members(wanted)), 9)
        self.assertEqual(members(seen), members(wanted))

    def test_snapshot_has_the_five_keys(self):
        output = self.script("d GetAllProperties")
        for text in ("'Architecture': <'aarch64'>", "'VeyraVersion': <'5.1.2'>",
                     "'Packages': <[('org.example.calculator', '1.2.0', 'regular'",
                     "'Operations': <@a(ssiii) []>", "'CompletedOperations': <@a(ssiii) []>"):
            self.assertIn(text, output)

    def test_start_and_restart_know_the_packages(self):
        output = self.script("d Start org.example.camera; d Restart org.example.camera; d Start no; "
                             "d Restart no; k Calls Start; k Calls Restart").splitlines()
        missing = "Error: GDBus.Error:org.velmora.KVD.Error.PackageNotExist: The package does not exist"
        self.assertEqual(output, ["()", "()", missing, missing, "(uint32 2, 'no')",
                                  "(uint32 2, 'no')"])


class Operations(SimulatorTest):
    def follow(self, calls, *options):
        self.script(f"watch_signals; {calls}; kill $watcher", *options)
        return self.signals()

    def test_install_ends_with_the_package_in_the_list(self):
        path = self.package("p.pkg", "org.example.clock", "1.0", "--payload", "7")
        self.script(f"""watch_signals; d Install {quote(path)}; await "$MONITOR" 'int32 100'
            d GetAllProperties >{quote(self.file("after"))}; kill $watcher""")
        names = [(name, numbers[-2:-1]) for name, _, numbers in self.signals()]
        self.assertEqual(names, [("OperationStatusChanged", [10]), ("OperationStatusChanged", [40]),
                                 ("OperationStatusChanged", [70]), ("PackageInstalled", []),
                                 ("OperationStatusChanged", [100])])
        with open(self.file("after"), encoding="utf-8") as f:
            after = f.read()
        self.assertIn("('org.example.clock', '1.0', '', '', {'Size': <uint64 7>})", after)
        self.assertIn("'Operations': <@a(ssiii) []>", after)
        self.assertRegex(after, r"'CompletedOperations': <\[\('[-0-9a-f]{36}', 'org.example.clock', 0, 100, 0\)\]>")

    def test_install_of_an_installed_package_is_an_upgrade(self):
        path = self.package("p.pkg", "org.example.calculator", "1.10.0", "--developer",
                            "3f1c9a52-example-developer")
        seen = self.follow(f"""d Install {quote(path)}; await "$MONITOR" 'int32 100'""", "--steps", "0")
        self.assertEqual([s[0] for s in seen], ["PackageUpgraded", "OperationStatusChanged"])
        self.assertEqual(seen[1][2], [1, 100, 0])

    def test_removal(self):
        seen = self.follow("""d Remove org.example.camera; await "$MONITOR" 'int32 100'""",
                           "--steps", "1")
        self.assertEqual([(s[0], s[2]) for s in seen],
                         [("OperationStatusChanged", [2, 10, 0]), ("PackageRemoved", []),
                          ("OperationStatusChanged", [2, 100, 0])])

    def test_second_removal_of_the_same_package_ends_in_failure(self):
        seen = self.follow("""d Remove org.example.camera & d Remove org.example.camera
            wait $!; await "$MONITOR" 'int32 101'""", "--step-ms", "500", "--steps", "0")
        self.assertEqual([s[2] for s in seen if s[2]], [[2, 100, 0], [2, 101, 10]])

    def test_failing_operation(self):
        path = self.package()
        seen = self.follow(f"""k FailOperation org.example.clock 28; d Install {quote(path)}
                               await "$MONITOR" 'int32 101'""", "--steps", "0")
        self.assertEqual([(s[0], s[2]) for s in seen], [("OperationStatusChanged", [0, 101, 28])])

    def test_state_is_kept(self):
        path = self.package()
        state = self.file("state")
        self.script(f"""watch_signals; d Install {quote(path)}; await "$MONITOR" 'int32 100'; kill $watcher""",
                    "--state", state)
        output = self.script("d GetAllProperties", "--state", state)
        self.assertIn("'org.example.clock', '1.0'", output)
        self.assertRegex(output, "'org.example.clock', 0, 100, 0")
        self.assertEqual(os.listdir(state), ["state.catalogue"])

    def test_a_state_with_odd_content_can_be_reloaded(self):
        state = self.file("state")
        self.script("""k AddPackage "('odd]\\n[','x','s','d',{'k':<1>})" false
            k AddPackage "('a.b','1','  s \\\\\\\\ \\n','d',{'k=[':<1>,'good':<('x\\n',)>})" false
            k AddCompletedOperation "('u','a.b',7,8,9)" false; k AddActiveOperation "('u','a.b',0,8,9)" false
            k AddCompletedOperation "(']','a.b',0,100,0)" false
            k AddPackage "('odd]', '1', '', '', @a{sv} {})" false
            k AddPackage "('c.d', '1', '', ' space ', @a{sv} {})" false""", "--state", state)
        output = self.script("d GetAllProperties", "--state", state)
        self.assertIn("('a.b', '1', '  s \\\\ \\n', 'd', {'good': <('x\\n',)>})", output)
        self.assertIn("('c.d', '1', '', ' space ', {})", output)
        self.assertIn("'CompletedOperations': <[('u', 'a.b', 0, 101, 2)]>", output)

    def test_a_damaged_state_is_refused(self):
        os.mkdir(self.file("state"))
        path = self.file("state/state.catalogue", "odd\n")
        run = self.simulator("--state", self.file("state"), "--private-bus", "--", "true")
        self.assertEqual(run.returncode, 2)
        self.assertIn(path + ":1: ", run.stderr)


class PackageChecks(SimulatorTest):
    def refusal(self, path):
        output = self.script("d Install " + quote(path))
        return re.search(r"org\.velmora\.KVD\.Error\.(\w+): (.*)", output).groups()

    def test_each_check_has_its_error(self):
        developer = ("--developer", "3f1c9a52-example-developer")
        calculator = "org.example.calculator"
        cases = {
            "BadPackageID": self.package("a", "nodots", "1.0"),
            "BadPackageVersion": self.package("b", "org.example.a", "one"),
            "BadPackageArchitecture": self.package("c", "org.example.a", "1", "--architecture", "pdp11"),
            "DeveloperMismatch": self.package("d", calculator, "9.0", "--developer", "x"),
            "DowngradeAttempt": self.package("e", calculator, "1.1.9", *developer),
            "SamePackageIsInstalled": self.package("f", calculator, "1.2.0", *developer),
            "FileNotFound": self.file("missing"),
            "BadPackageFileFormat": self.file("g", b"\xff\x00garbage"),
        }
        for name, path in cases.items():
            with self.subTest(name):
                refused, message = self.refusal(path)
                self.assertEqual(refused, name)
                self.assertEqual(dict(errors())[name], message)

    def test_a_directory_or_a_fifo_is_refused_without_blocking(self):
        fifo = self.file("fifo")
        os.mkfifo(fifo)
        for path in (self.path, fifo):
            self.assertEqual(self.refusal(path)[0], "BadPackageFileFormat")


class Faults(SimulatorTest):
    def test_only_the_nth_call_fails(self):
        output = self.script("k FailCall Start 2 org.example.Odd 'some text'; d Start org.example.camera;"
                             "d Start org.example.camera; d Start org.example.camera").splitlines()
        self.assertEqual(output[1:], ["()", "Error: GDBus.Error:org.example.Odd: some text", "()"])

    def test_every_error_can_be_injected_by_its_short_name(self):
        rows = errors()
        self.assertEqual(len(rows), 31)
        calls = "".join(f"k FailCall Install 1 {name} '' >/dev/null; d Install x;" for name, _ in rows)
        output = self.script(calls).splitlines()
        self.assertEqual(output, [f"Error: GDBus.Error:org.velmora.KVD.Error.{name}: {message}"
                                  for name, message in rows])

    def test_a_reply_of_any_type(self):
        output = self.script("k SetReply Install '' ; k SetReply Install '(uint32 5, [true])'; d Install x;"
                             "d Install x; d Install x").splitlines()
        self.assertEqual(output[2:4], ["()", "(uint32 5, [true])"])
        self.assertIn("FileNotFound", output[4])

    def test_properties_are_dropped_and_replaced(self):
        output = self.script("k DropProperty VeyraVersion; k SetProperty Architecture '<5>'; d GetAllProperties;"
                             "k RestoreProperty VeyraVersion; d GetAllProperties").splitlines()
        self.assertIn("'Architecture': <5>", output[2])
        self.assertNotIn("VeyraVersion", output[2])
        self.assertIn("VeyraVersion", output[4])

    def test_queued_signals_precede_a_reply_or_an_error(self):
        self.script("""watch_signals; k QueueSignal Start PackageRemoved "('a',)"
            k QueueSignal Start PackageRemoved "(uint32 7,)"; d Start no
            await "$MONITOR" 'uint32 7'; kill $watcher""")
        self.assertEqual([s[:2] for s in self.signals()],
                         [("PackageRemoved", ["a"]), ("PackageRemoved", [])])

    def test_many_signals_at_once(self):
        output = self.script("""watch_signals; k EmitSignal PackageRemoved "('a',)" 100000
            k EmitSignal Done '()' 1; await "$MONITOR" member=Done; kill $watcher
            grep -c member=PackageRemoved "$MONITOR" """).splitlines()
        self.assertEqual(output[-1], "100000")

    def test_a_delayed_reply_arrives_after_its_operation_has_ended(self):
        path = self.package()
        output = self.script(f"""watch_signals; k DelayReply Install 1500
            d Install {quote(path)} >{quote(self.file("reply"))} & call=$!; await "$MONITOR" 'int32 100'
            wc -c <{quote(self.file("reply"))}; wait $call; wc -l <{quote(self.file("reply"))}; kill $watcher""").split()
        self.assertEqual(output[-2:], ["0", "1"])

    def test_vanish_and_return(self):
        output = self.script("""k Vanish 0; d Start org.example.camera; k Return; d Start org.example.camera
            k Vanish 50; gdbus wait --session --timeout 10 org.velmora.Emporium; d Start org.example.camera
            """).splitlines()
        self.assertIn("ServiceUnknown", output[1])
        self.assertEqual(output[2:], ["()", "()", "()", "()"])

    def test_exit_in_the_middle_of_a_call(self):
        output = self.script("k ExitDuring Start; d Start org.example.camera; d Start org.example.camera")
        self.assertIn("NoReply", output)
        self.assertIn("ServiceUnknown", output)

    def test_lists_change_with_and_without_a_signal(self):
        self.script(f"""watch_signals
            k AddPackage "('a.b','1','s','d',{{'k':<1>}})" false; k AddPackage "('a.b','2','s','d',@a{{sv}} {{}})" true
            k RemovePackage a.b true; k RemovePackage org.example.camera false
            k AddActiveOperation "('u','a.b',7,8,9)" true; k AddCompletedOperation "('v','a.b',0,100,0)" false
            d GetAllProperties >{quote(self.file("after"))}; k Reset; d GetAllProperties >{quote(self.file("reset"))}
            k EmitSignal Done '()' 1; await "$MONITOR" member=Done; kill $watcher""")
        self.assertEqual([(s[0], s[2]) for s in self.signals()],
                         [("PackageUpgraded", []), ("PackageRemoved", []),
                          ("OperationStatusChanged", [7, 8, 9])])
        with open(self.file("after"), encoding="utf-8") as f:
            after = f.read()
        self.assertNotIn("camera", after)
        self.assertIn("'Operations': <[('u', 'a.b', 7, 8, 9)]>", after)
        self.assertIn("'CompletedOperations': <[('v', 'a.b', 0, 100, 0)]>", after)
        with open(self.file("reset"), encoding="utf-8") as f:
            self.assertIn("camera", f.read())

    def test_invalid_requests_are_refused(self):
        for call in ("FailCall Nothing 1 a.b c", "FailCall Install 0 a.b c", "FailCall Install 1 NoSuch ''",
                     "SetReply Install '5'", "SetReply Install '(just nothing,)'", "SetReply Install '(1'",
                     "EmitSignal 1bad '()' 1", "EmitSignalFrom bad a.b C '()' 1", "FailOperation x 0"):
            with self.subTest(call):
                self.assertIn("InvalidArgs", self.script("k " + call))


class Files(SimulatorTest):
    def refused(self, option, content, line, name="input"):
        path = self.file(name, content)
        run = self.simulator(option, path, "--private-bus", "--", "true")
        self.assertEqual(run.returncode, 2, run.stderr)
        self.assertIn(f"{path}:{line}: ", run.stderr)

    def test_the_example_catalogue_is_served(self):
        output = self.script("d GetAllProperties", "--catalogue",
                             os.path.join(SOURCE_DIR, "simulator/example.catalogue"))
        self.assertIn("'Size': <uint64 482133>", output)
        self.assertIn("'com.sample.notes', 0, 101, 28", output)

    def test_a_damaged_catalogue_is_refused(self):
        package = "[Package a.b]\nVersion=1\n"
        for content, line in (("text\n", 1), ("a=b\n", 1), ("[a[b]\n", 1), ("\n[Odd]\n", 2), (package + "Odd=1\n", 3),
                              ("[Package a.b]\n", 1), ("[Package a]\nVersion=1\n", 1),
                              ("[Package a.b]\nVersion=x\n", 2), (package + package, 3),
                              (package + "Data.X=[1,\n", 3),
                              (package + "Data.X=1\nData.Y=[1,\n", 4), (package + "Data.X=just 1\n", 3),
                              (package + "Subgroup=\\q\n", 3), (b"[System]\n\xff", 2), (b"a\x00", 1),
                              ("[Operation u]\nPackage=a\nType=odd\n", 3),
                              ("[Operation u]\nPackage=a\nType=install\nStatus=5\n", 4),
                              ("[Operation u]\nPackage=a\nType=install\nError=99999999999\n", 4)):
            with self.subTest(content):
                self.refused("--catalogue", content, line)

    def test_a_file_that_cannot_be_read_is_refused(self):
        for path, status, reason in ((self.path, 2, "a directory"), ("/proc/self/mem", 1, "Input/output error")):
            for option in ("--catalogue", "--scenario", "--replay"):
                run = self.simulator(option, path, "--private-bus", "--", "true")
                self.assertEqual((run.returncode, run.stderr), (status, f"emporium-simulator: {path}: {reason}\n"))

    def test_a_package_file_with_an_unknown_key_is_refused_and_named(self):
        path = self.file("p.pkg", "[Package]\nId=a.b\nVersion=1\nOdd=1\n")
        run = self.simulator("--private-bus", "--", "bash", "-c", fixture.PRELUDE + f"d Install '{path}'; exit 0")
        self.assertIn("Error.BadPackageFileFormat: ", run.stdout)
        self.assertEqual(run.stderr, f"emporium-simulator: refused a package: {path}:4: unknown key Odd\n")

    def test_a_state_directory_that_cannot_be_created_is_an_error(self):
        run = self.simulator("--state", "/dev/null/x", "--private-bus", "--", "true")
        self.assertEqual((run.returncode, run.stderr),
                         (1, "emporium-simulator: cannot create the state directory /dev/null/x\n"))

    def test_a_scenario_has_the_verbs_of_the_bus(self):
        scenario = self.file("s", "# comment\nFailCall 'Start', 1, 'Internal', ''\nWait 0\n"
                                  "DropProperty 'Packages'\nSetProperty 'Extra', <5>\n")
        output = self.script("d Start org.example.camera; d GetAllProperties", "--scenario", scenario)
        self.assertIn("Internal error occurred", output)
        self.assertIn("'Extra': <5>", output)
        self.assertNotIn("Packages", output)

    def test_a_damaged_scenario_is_refused(self):
        for content, line in (("Odd\n", 1), ("Reset\nReset 1\n", 2), ("Wait 'x'\n", 1),
                              ("\nFailCall 'Odd', 1, 'a.b', ''\n", 2), ("Wait -1\n", 1), (b"\n\xff", 2)):
            with self.subTest(content):
                self.refused("--scenario", content, line)

    def test_a_recording_is_played_back(self):
        package = {"id": "a.b", "version": "1", "developer": "d", "subgroup": "s"}
        operation = {"uuid": "u", "package": "a.b", "type": 0, "status": 100, "error": 0}
        lines = [{"type": "snapshot", "time": "2026-01-01T00:00:00Z", "architecture": "arm", "version": "9",
                  "packages": [], "active": [dict(operation, status=10)], "completed": []},
                 {"type": "event", "offset_ms": 1000, "event": "PackageInstalled", "package": package},
                 {"type": "event", "offset_ms": 2000, "event": "OperationStatusChanged", "operation": operation},
                 {"type": "event", "offset_ms": 90000, "event": "PackageRemoved", "package": package}]
        path = self.file("r", "".join(json.dumps(line) + "\n" for line in lines))
        self.script(f"""watch_signals; d GetAllProperties >{quote(self.file("before"))}
            await "$MONITOR" member=PackageRemoved; kill $watcher""", "--replay", path, "--speed", "100")
        self.assertEqual(self.signals(), [("PackageInstalled", ["a.b", "1", "s", "d"], []),
                                          ("OperationStatusChanged", ["u", "a.b"], [0, 100, 0]),
                                          ("PackageRemoved", ["a.b"], [])])
        with open(self.file("before"), encoding="utf-8") as f:
            self.assertIn("('u', 'a.b', 0, 10, 0)", f.read())

    def test_a_damaged_recording_is_refused(self):
        start = json.dumps({"type": "snapshot", "architecture": "a", "version": "1", "packages": [],
                            "active": [], "completed": []}) + "\n"
        for content, line in (("", 1), ("{\n", 1), ("[]\n", 1), ("5\n", 1), (start + "{}\n", 2),
                              (start + '{"type":"event","offset_ms":-1,"event":"PackageRemoved","package":"a"}', 2),
                              (start + '{"type":"event","offset_ms":1,"event":"Odd"}', 2),
                              (start.replace('"a"', '"\\u0000"'), 1), ("[" * 100000 + "\n", 1), (b"\xff", 1),
                              (start + '{"type":"event","offset_ms":1,"event":"OperationStatusChanged","operation":'
                               '{"uuid":"u","package":"p","type":1e300,"status":0,"error":0}}', 2)):
            with self.subTest(content[:80]):
                self.refused("--replay", content, line)


class Program(SimulatorTest):
    def test_the_exit_status_is_that_of_the_command(self):
        for command, status in ((["sh", "-c", "exit 7"], 7), (["sh", "-c", "kill -9 $$"], 137),
                                (["/no/such/program"], 127)):
            self.assertEqual(self.simulator("--private-bus", "--", *command).returncode, status)

    def test_wrong_usage(self):
        for arguments in (["--odd"], ["odd"], ["--steps", "-1"], ["--speed", "0"],
                          ["--make-package", self.file("x")], ["--packages", "1", "--catalogue", "x"],
                          ["--make-package", "x", "--id", "a.b"], ["--replay", "x", "--state", "y"],
                          ["--replay", "x", "--packages", "1"], ["--replay", "x", "--catalogue", "y"],
                          ["--steps"], ["--odd", "--private-bus", "true"], ["--", "true"],
                          ["--private-bus", ""], ["--private-bus", "--", "", "x"]):
            run = self.simulator(*arguments)
            self.assertEqual((run.returncode, run.stdout), (2, ""), arguments)

    def test_the_command_gets_its_arguments_unchanged(self):
        odd = [b"\xff", "gr\u00fcn".encode(), b"[a,b]", b"%%", b"", b"--", b"--steps", b"--x=", b"{}", b"a b"]
        for separator in (["--"], []):
            run = subprocess.run([SIMULATOR, "--private-bus", *separator, "printf", "<%s>", *odd],
                                 env=self.environment, timeout=300, stdout=subprocess.PIPE, check=False,
                                 preexec_fn=die_with_parent)
            self.assertEqual(run.stdout, b"".join(b"<" + argument + b">" for argument in odd))

    def test_the_value_of_an_option_may_be_anything(self):
        path = self.file("name").encode() + b" \xff[a]"
        self.simulator("--make-package", path, "--id=a.b", "--version", "--", "--subgroup=", "--developer",
                       "[-d]", "--payload", "2")
        with open(path, encoding="utf-8") as f:
            self.assertEqual(f.read().splitlines(),
                             ["[Package]", "Id=a.b", "Version=--", "Architecture=noarch", "Developer=[-d]",
                              "Subgroup=", "PayloadSize=2"])

    def test_no_bus(self):
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + self.file("nothing")
        self.assertEqual(self.simulator().returncode, 3)

    def test_a_temporary_directory_with_any_name(self):
        for name in ("a space", "a&b", "a<b", "100%", "a,b;c=d", "gr\u00fcn", b"\xff\xfe", "l" * 120):
            with self.subTest(name):
                path = os.path.join(os.fsencode(self.path), os.fsencode(name))
                os.mkdir(path)
                self.environment["TMPDIR"] = path
                output = self.script('d Start org.example.camera; echo "$DBUS_SESSION_BUS_ADDRESS"')
                self.assertEqual(output.splitlines()[0], "()", output)
                self.assertEqual(os.listdir(path), [])
                socket = re.match("unix:path=(.*),guid=", output.splitlines()[1]).group(1)
                self.assertFalse(os.path.exists(os.path.dirname(unquote_to_bytes(socket))))

    def test_a_relative_temporary_directory_serves_a_command_that_changes_its_directory(self):
        os.mkdir(self.file("relative"))
        self.environment["TMPDIR"] = "relative"
        run = self.simulator("--private-bus", "--", "sh", "-c", f"cd /; exec gdbus call --session --dest {DAEMON} "
                             f"--object-path /org/velmora/Emporium --method {DAEMON}.Start org.example.camera",
                             cwd=self.path)
        self.assertEqual((run.returncode, run.stdout), (0, "()\n"), run.stderr)
        self.assertEqual(os.listdir(self.file("relative")), [])

    def test_a_temporary_directory_that_does_not_exist_is_named(self):
        self.environment["TMPDIR"] = "/no/such"
        run = self.simulator("--private-bus", "--", "true")
        self.assertEqual((run.returncode, run.stderr), (
            1, "emporium-simulator: cannot create a directory in /no/such: No such file or directory\n"))
        self.environment["TMPDIR"] = ""
        self.assertEqual(self.simulator("--private-bus", "--", "true").returncode, 0)

    def test_a_bus_that_does_not_start_prints_the_reason(self):
        daemon = self.file("dbus-daemon", "#!/bin/sh\necho 'no bus today' >&2\nexit 1\n")
        os.chmod(daemon, 0o700)
        self.environment["PATH"] = self.path + ":" + self.environment["PATH"]
        run = self.simulator("--private-bus", "--", "true")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr,
                         "emporium-simulator: the private bus does not start: no bus today\n")

    def test_the_name_is_taken(self):
        output = self.script(quote(SIMULATOR) + " 2>&1; echo $?")
        self.assertIn("another program owns the bus name", output)
        self.assertTrue(output.endswith("1\n"))

    def test_a_signal_terminates_it_and_its_bus(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with subprocess.Popen([SIMULATOR, "--private-bus", "--", "sh", "-c", "echo go; exec sleep 600"],
                                  env=self.environment, stdout=subprocess.PIPE, text=True,
                                  preexec_fn=die_with_parent) as process:
                self.assertEqual(process.stdout.readline(), "go\n")
                process.send_signal(number)
                self.assertEqual(process.wait(30), 128 + number)

    def test_ready_is_printed_once_the_name_is_owned(self):
        # The outer bus remains without its own simulator.
        output = self.script(f"""k ExitDuring Start >/dev/null; d Start x >/dev/null
            mkfifo {quote(self.file("out"))}; {quote(SIMULATOR)} >{quote(self.file("out"))} & inner=$!
            exec 3<{quote(self.file("out"))}; read line <&3; echo $line; d Start org.example.camera; kill $inner
            wait $inner; echo $?""")
        self.assertEqual(output.split(), ["ready", "()", "0"])

    def test_a_large_catalogue(self):
        output = self.script("d GetAllProperties | grep -o 'org.example.package' | wc -l",
                             "--packages", "20000", "--dictionary-entries", "3")
        self.assertEqual(output.strip(), "20000")

    def test_help_has_examples(self):
        run = self.simulator("--help")
        self.assertEqual(run.returncode, 0)
        self.assertIn("Examples:", run.stdout)


if __name__ == "__main__":
    fixture.main()
