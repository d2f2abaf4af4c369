# SPDX-License-Identifier: BSD-3-Clause
"""What emporiumctl prints can be trusted."""

import json
import os
import re
import signal
import time

import jsonschema

from program_fixture import SOURCE_DIR, ProgramTest, main, until

NOTES = "com.sample.notes"


def closing(*descriptors):
    def close():
        for descriptor in descriptors:
            os.close(descriptor)
    return close


class WritingTest(ProgramTest):
    def full(self, *arguments):
        with open("/dev/full", "wb") as full:
            return self.ctl(*arguments, stdout=full)

    def test_a_closed_standard_output_is_reported(self):
        self.start_daemon()
        run = self.ctl("list", stdout=None, preexec_fn=closing(1))
        self.assertEqual(run.returncode, 1)
        self.assertIn("emporiumctl: cannot write to standard output: Bad file descriptor",
                      run.stderr)

    def test_closed_descriptors_redirect_nothing_into_another_one(self):
        self.start_daemon()
        run = self.ctl("list", stdout=None, preexec_fn=closing(0, 1))
        self.assertEqual(run.returncode, 1, run.stderr)
        run = self.ctl("list", stderr=None, preexec_fn=closing(2))
        self.assertEqual(run.returncode, 0)
        self.assertEqual(len(run.stdout.splitlines()), 7)
        run = self.ctl("info", "unknown", stderr=None, preexec_fn=closing(0, 2))
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        path = self.file("recording")
        program = self.start("record", path, preexec_fn=closing(1, 2), stdout=None, stderr=None)
        until(lambda: self.content(path))
        self.emit("PackageRemoved", f"('{NOTES}',)")
        until(lambda: "PackageRemoved" in self.content(path))
        program.signal(signal.SIGINT)
        self.assertEqual(program.status(), 0)
        with open(path, encoding="utf-8") as file:
            self.assertEqual(len([json.loads(line) for line in file]), 2)

    def test_a_full_disk_is_reported(self):
        self.start_daemon()
        for arguments in (["list"], ["list", "--json"], ["status"], ["errors"], ["--help"],
                          ["--version"], ["remove", NOTES], ["record", "-"]):
            with self.subTest(arguments=arguments):
                run = self.full(*arguments)
                self.assertEqual(run.returncode, 1)
                self.assertRegex(run.stderr, "emporiumctl: cannot write .*No space left on device")
        run = self.ctl("record", "/dev/full")
        self.assertEqual(run.returncode, 1)
        self.assertIn("cannot write /dev/full: No space left on device", run.stderr)

    def test_watch_stops_at_the_first_line_that_cannot_be_written(self):
        self.start_daemon()
        with open("/dev/full", "wb") as full:
            program = self.start("watch", stdout=full)
        self.until_called("GetAllProperties")
        self.emit("PackageRemoved", f"('{NOTES}',)")
        self.assertEqual(program.status(), 1)
        self.assertIn("No space left on device", program.errors())

    def test_a_closed_pipe_is_reported_where_the_signal_is_ignored(self):
        self.start_daemon()
        reader, writer = os.pipe()
        os.close(reader)
        run = self.ctl("list", stdout=writer, restore_signals=False,
                       preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN))
        os.close(writer)
        self.assertEqual(run.returncode, 1)
        self.assertIn("Broken pipe", run.stderr)


class RefusalTest(ProgramTest):
    def test_a_refusal_names_its_target_and_keeps_no_other_from_being_worked_on(self):
        self.start_daemon()
        good = self.package()
        missing = self.file("missing.pkg")
        run = self.ctl("install", missing, "", b"\xff.pkg", self.file("x" * 5000), good)
        self.assertEqual(run.returncode, 1)
        self.assertIn(f"emporiumctl: {missing}: FileNotFound: ", run.stderr)
        self.assertIn("emporiumctl: '': InvalidArguments: ", run.stderr)
        self.assertIn("emporiumctl: \\xff.pkg: InvalidArguments: ", run.stderr)
        self.assertEqual(len(run.stderr.splitlines()), 4, run.stderr)
        self.assertRegex(run.stdout, f"install {re.escape(good)} has the UUID [0-9a-f-]{{36}}\n")
        self.assertIn("install org.example.new: succeeded", run.stdout)

    def test_a_refusal_without_waiting_fails_and_prints_the_other_uuids(self):
        self.start_daemon()
        run = self.ctl("remove", "--no-wait", "unknown", NOTES)
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stdout, "^[0-9a-f-]{36}\n$")
        self.assertIn("unknown: PackageNotExist: The package does not exist", run.stderr)

    def test_one_failure_of_two_fails(self):
        self.start_daemon()
        self.tell("FailOperation", NOTES, 28)
        for targets in ([NOTES, "com.sample.weather"], ["org.example.camera"]):
            run = self.ctl("remove", *targets)
            self.assertEqual(run.returncode, 1 if NOTES in targets else 0, run.stdout)
        self.assertIn("succeeded", run.stdout)

    def test_an_unknown_error_code_keeps_its_number(self):
        self.start_daemon()
        self.tell("FailOperation", NOTES, 99)
        run = self.ctl("remove", NOTES)
        self.assertEqual(run.returncode, 1)
        self.assertIn("failed (unknown error 99)", run.stdout)

    def test_the_daemon_s_other_errors_keep_their_names(self):
        self.start_daemon()
        self.tell("FailCall", "Remove", 1, "org.freedesktop.DBus.Error.AccessDenied", "no")
        run = self.ctl("remove", NOTES)
        self.assertEqual(run.returncode, 1)
        self.assertIn(f"{NOTES}: org.freedesktop.DBus.Error.AccessDenied: no", run.stderr)


class AnswerTest(ProgramTest):
    def test_an_answer_that_cannot_be_used_is_not_an_absent_daemon(self):
        self.start_daemon()
        for verb, arguments, text in (
                ("DropProperty", ["Packages"], "Couldn't parse Packages property"),
                ("SetProperty", ["VeyraVersion", "<5>"], ""),
                ("FailCall", ["GetAllProperties", 1, "org.freedesktop.DBus.Error.AccessDenied",
                              "not you"], "AccessDenied: not you")):
            with self.subTest(verb=verb):
                self.tell(verb, *arguments)
                run = self.ctl("list")
                self.assertEqual(run.returncode, 1, run.stderr)
                self.assertIn("the answer of the application-store daemon cannot be used (",
                              run.stderr)
                self.assertIn(text, run.stderr)
                self.tell("Reset")

    def test_an_empty_architecture_is_reported_and_the_rest_shown(self):
        self.start_daemon()
        self.tell("SetProperty", "Architecture", "<''>")
        run = self.ctl("list")
        self.assertEqual(run.returncode, 0)
        self.assertEqual(len(run.stdout.splitlines()), 7)
        self.assertIn("reports an empty architecture", run.stderr)

    def test_log_lines_of_the_library_are_shown_on_demand(self):
        self.start_daemon()
        del self.environment["VEYRA_APP_ID"]
        run = self.ctl("list")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        run = self.ctl("list", "--verbose")
        self.assertIn("emporiumctl: [W] Failed to get application ID", run.stderr)
        self.assertEqual(len(run.stdout.splitlines()), 7)

    def test_a_missing_daemon_and_a_missing_bus_are_told_apart(self):
        self.start_daemon()
        self.tell("Vanish", 0)
        run = self.ctl("list")
        self.assertEqual((run.returncode, run.stdout), (3, ""))
        self.assertIn("the application-store daemon does not answer", run.stderr)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent"
        run = self.ctl("list")
        self.assertEqual((run.returncode, run.stdout), (3, ""))
        self.assertIn("there is no session bus (", run.stderr)


class SchemaTest(ProgramTest):
    """Every document is checked against the installed schema."""

    @classmethod
    def setUpClass(cls):
        with open(os.path.join(SOURCE_DIR, "data/emporiumctl.schema.json"), encoding="utf-8") as file:
            cls.schema = json.load(file)
        jsonschema.Draft202012Validator.check_schema(cls.schema)

    def check(self, kind, line):
        document = json.loads(line)
        if not (isinstance(document, dict) and "error" in document and "event" not in document):
            definition = f"#/$defs/output/{kind}"
        else:
            definition = "#/$defs/failure"
        jsonschema.validate(document, {**self.schema, "$ref": definition})
        return document

    def documents(self, kind, *arguments, status=0):
        run = self.ctl("--json", *arguments)
        self.assertEqual(run.returncode, status, run.stdout + run.stderr)
        lines = run.stdout.splitlines()
        self.assertTrue(lines, f"no document of {arguments}")
        return [self.check(kind, line) for line in lines]

    def test_the_output_of_every_command_conforms(self):
        self.start_daemon()
        package = self.package()
        for kind, *arguments in (["list"], ["info", NOTES], ["operations"], ["status"], ["errors"],
                                 ["errors", "FileConflict"], ["start", NOTES], ["restart", NOTES],
                                 ["install", package], ["remove", "org.example.new"],
                                 ["operations"]):
            with self.subTest(command=kind):
                self.documents(kind, kind, *arguments)
        uuid = json.loads(self.succeeds("operations", "--json"))[0]["uuid"]
        self.assertEqual(self.documents("wait", "wait", uuid)[0]["operation"]["status"], 100)

    def test_failures_are_documents_too(self):
        self.start_daemon()
        error = self.documents("info", "info", "unknown", status=1)[0]["error"]
        self.assertEqual(error["message"], "No package with id unknown found")
        for command in ("start", "restart"):
            error = self.documents(command, command, "unknown", status=1)[0]["error"]
            self.assertEqual(error, {"code": 10, "name": "PackageNotExist", "target": "unknown",
                                     "message": "The package does not exist"})
        self.documents("errors", "errors", "4", status=1)
        self.tell("Vanish", 0)
        self.documents("list", "list", status=3)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent"
        self.documents("status", "status", status=3)

    def test_every_outcome_of_an_operation_is_a_document(self):
        self.start_daemon()
        self.tell("FailOperation", "com.sample.weather", 28)
        events = self.documents("remove", "remove", "unknown", NOTES, "com.sample.weather", status=1)
        refused, *created = events[:3]
        self.assertEqual(refused, {"event": "Refused", "target": "unknown", "code": 10,
                                   "name": "PackageNotExist",
                                   "message": "The package does not exist"})
        self.assertEqual([(event["event"], event["target"]) for event in created],
                         [("Created", NOTES), ("Created", "com.sample.weather")])
        ends = {event["operation"]["package"]: event["operation"]["error"] for event in events[3:]
                if event["operation"]["status"] in (100, 101)}
        self.assertEqual(ends, {NOTES: 0, "com.sample.weather": 28})

    def test_outcomes_without_waiting_are_one_array(self):
        self.start_daemon()
        outcomes, = self.documents("no-wait", "remove", "--no-wait", "unknown", NOTES, status=1)
        self.assertEqual([outcome["event"] for outcome in outcomes], ["Refused", "Created"])

    def test_outcomes_that_are_not_known_conform(self):
        self.start_daemon()
        self.tell("SetReply", "Remove", "(('', 'p', 2, 0, 0),)")
        self.assertEqual(self.documents("remove", "remove", "p", status=4),
                         [{"event": "NotKnown", "target": "p", "uuid": None,
                           "message": "the daemon's reply names no operation"}])
        self.assertEqual(self.documents("wait", "wait", "u", status=4)[0]["uuid"], "u")

    def test_an_interrupted_command_accounts_for_every_target(self):
        self.start_daemon("--step-ms", "100000")
        first = json.loads(self.succeeds("remove", "--no-wait", "--json", NOTES))[0]["uuid"]
        self.tell("DelayReply", "Remove", 100000)
        program = self.start("--json", "remove", "com.sample.weather", "org.example.camera")
        self.until_called("Remove", 2)
        program.signal(signal.SIGTERM)
        self.ends(program, 4)
        events = [self.check("remove", line) for line in program.output().splitlines()]
        self.assertEqual([event["event"] for event in events], ["NotKnown", "NotRequested"])
        program = self.start("--json", "wait", first)
        program.until_output("\n")
        program.signal(signal.SIGTERM)
        self.ends(program, 4)
        events = [self.check("wait", line) for line in program.output().splitlines()]
        self.assertEqual(events[-1], {"event": "Continues", "uuid": first, "target": first})

    def followed(self, kind, *arguments):
        """What a command prints about an event of each form."""
        program = self.start(*arguments)
        if kind == "record":
            program.until_output("snapshot")  # which an earlier signal would change
        else:
            self.until_called("GetAllProperties")
        self.emit("PackageInstalled", "(('a', '1', 's', 'c', @a{sv} {}),)")
        self.emit("PackageRemoved", "('a',)")
        self.emit("OperationStatusChanged", "(('u', 'p', 0, 101, 8),)")
        self.tell("Vanish", 0)
        program.until_output("DaemonVanished")
        self.tell("Return")
        program.until_output("DaemonAppeared")
        program.signal(signal.SIGINT)
        self.ends(program, 0)
        return [self.check(kind, line) for line in program.output().splitlines()]

    def test_events_conform(self):
        for option in ([], ["--timestamps"]):
            self.start_daemon()
            events = self.followed("watch", "--json", "watch", *option)
            self.assertEqual(len(events), 5)
            self.assertEqual(all("time" in event for event in events), bool(option))

    def test_recordings_conform(self):
        for option in ([], ["--json"]):
            self.start_daemon()
            lines = self.followed("record", "record", "-", *option)
            self.assertEqual([line["type"] for line in lines], ["snapshot"] + 5 * ["event"])

    def test_every_command_without_a_daemon_prints_an_error(self):
        self.start_daemon()
        self.tell("Vanish", 0)
        without_bus = dict(self.environment, DBUS_SESSION_BUS_ADDRESS="unix:path=/nonexistent")
        for self.environment in (self.environment, without_bus):
            for arguments in (["list"], ["info", "a"], ["operations"], ["install", "a"], ["upgrade", "a"],
                              ["remove", "a"], ["remove", "--no-wait", "a"], ["wait", "a"], ["start", "a"],
                              ["restart", "a"], ["watch"], ["status"], ["record", self.file("recording")]):
                with self.subTest(arguments=arguments):
                    document, = self.documents(arguments[0], *arguments, status=3)
                    self.assertEqual(list(document), ["error"])

    def test_a_recording_that_cannot_be_written_is_an_error_document(self):
        self.start_daemon()
        document, = self.documents("record", "record", "/no/such/file", status=1)
        self.assertIn("cannot write /no/such/file", document["error"]["message"])

    def test_json_escapes_what_is_not_printable(self):
        self.start_daemon()
        self.tell("AddPackage", "('a\\u007f\\u009b\\u202eü', '1', 's', 'c', @a{sv} {})", "false")
        text = self.succeeds("list", "--json", "--filter", "ü")
        self.assertIn('"id":"a\\u007f\\u009b\\u202eü"', text)
        self.assertEqual(json.loads(text)[0]["id"], "a\x7f\x9b\u202eü")


class RecordingTest(ProgramTest):
    def recording(self, path):
        with open(path, encoding="utf-8") as file:
            return [json.loads(line) for line in file]

    def test_offsets_are_milliseconds(self):
        self.start_daemon()
        path = self.file("recording")
        begin = time.monotonic()
        program = self.start("record", path)
        until(lambda: self.content(path))
        self.emit("PackageInstalled", "(('a', '1', 's', 'c', @a{sv} {}),)")
        until(lambda: len(self.recording(path)) == 2)
        first = time.monotonic()
        time.sleep(0.05)
        second = time.monotonic()
        self.emit("PackageInstalled", "(('a', '1', 's', 'c', @a{sv} {}),)", 2)
        until(lambda: len(self.recording(path)) == 4)
        end = time.monotonic()
        program.signal(signal.SIGINT)
        self.ends(program, 0)
        offsets = [line["offset_ms"] for line in self.recording(path)[1:]]
        self.assertEqual(offsets, sorted(offsets))
        # However long each step takes, the events were sent before the first time and after the second.
        self.assertGreater(offsets[1] - offsets[0], (second - first) * 1000 - 1)
        self.assertLess(offsets[-1], (end - begin) * 1000)

    def test_a_file_is_replaced_by_force_only(self):
        self.start_daemon()
        path = self.file("recording", "precious")
        run = self.ctl("record", path)
        self.assertEqual(run.returncode, 1)
        self.assertIn(f"cannot write {path}: it exists; --force replaces it", run.stderr)
        with open(path, encoding="utf-8") as file:
            self.assertEqual(file.read(), "precious")
        program = self.start("record", "--force", path)
        until(lambda: "snapshot" in self.content(path))
        program.signal(signal.SIGINT)
        self.ends(program, 0)
        self.assertEqual(self.recording(path)[0]["type"], "snapshot")

    def test_the_standard_output_can_be_recorded(self):
        self.start_daemon()
        program = self.start("record", "-")
        program.until_output("snapshot.*\n")
        self.emit("PackageRemoved", f"('{NOTES}',)")
        program.until_output("PackageRemoved.*\n")
        program.signal(signal.SIGTERM)
        self.ends(program, 0)
        self.assertEqual([json.loads(line)["type"] for line in program.output().splitlines()],
                         ["snapshot", "event"])


main()
