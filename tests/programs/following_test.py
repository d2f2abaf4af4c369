# SPDX-License-Identifier: BSD-3-Clause
"""emporiumctl never waits for something that cannot come."""

import json
import os
import re
import signal
import subprocess

from program_fixture import ProgramTest, main, until

UUID = r"[0-9a-f]{8}-[0-9a-f-]{27}"
NOTES = "com.sample.notes"


class WaitingBase(ProgramTest):
    # No operation ends by itself.
    simulator_options = ["--step-ms", "100000"]

    def start_removal(self, *options):
        """A program that waits for an operation, and the operation's UUID."""
        program = self.start("remove", NOTES, *options)
        uuid = program.until_output(UUID)[0]
        return program, uuid

    def end_operation(self, uuid, status=100, error=0):
        self.emit("OperationStatusChanged", f"(('{uuid}', '{NOTES}', 2, {status}, {error}),)")

    def vanish(self, program):
        self.tell("Vanish", 0)
        program.until_error("the application-store daemon has vanished")


class WaitingTest(WaitingBase):
    def test_a_daemon_that_returns_with_the_operation_is_followed_to_its_end(self):
        self.start_daemon()
        program, uuid = self.start_removal()
        self.vanish(program)
        self.tell("Return")
        program.until_error("is back")
        self.until_called("GetAllProperties", 2)
        self.end_operation(uuid)
        self.ends(program, 0)
        self.assertIn(f"remove {NOTES}: succeeded", program.output())

    def test_an_operation_that_ended_while_the_daemon_was_away_is_reported(self):
        for status, error, wanted in ((100, 0, 0), (101, 28, 1)):
            with self.subTest(status=status):
                self.start_daemon()
                program, uuid = self.start_removal()
                self.vanish(program)
                self.tell("AddCompletedOperation", f"('{uuid}', '{NOTES}', 2, {status}, {error})",
                          "false")
                self.tell("Return")
                self.ends(program, wanted)
                self.assertRegex(program.output(), "succeeded|failed \\(FileConflict")

    def test_the_outcome_of_an_operation_that_a_new_daemon_does_not_know_is_not_known(self):
        self.start_daemon()
        program, uuid = self.start_removal()
        self.vanish(program)
        self.tell("Reset")
        self.tell("Return")
        self.ends(program, 4)
        self.assertIn(f"{NOTES}: the outcome is not known ({uuid}): the daemon does not know",
                      program.errors())

    def test_a_daemon_that_does_not_return_is_waited_for_until_the_time_out(self):
        self.start_daemon()
        program, uuid = self.start_removal("--timeout", "3", "--json")
        self.tell("Vanish", 0)
        self.ends(program, 4)
        events = [json.loads(line) for line in program.output().splitlines()]
        self.assertIn({"event": "DaemonVanished"}, events)
        self.assertEqual(events[-1], {"event": "NotKnown", "target": NOTES, "uuid": uuid,
                                      "message": "the time-out of 3 s has expired"})

    def test_a_lost_bus_ends_every_waiting_command(self):
        for arguments in (["remove", NOTES], ["watch"], ["record", self.file("recording")]):
            with self.subTest(arguments=arguments):
                self.start_daemon()
                program = self.start(*arguments)
                self.until_called("GetAllProperties")
                if arguments[0] == "remove":
                    program.until_output(UUID)
                self.kill_bus()
                self.ends(program, 3)
                self.assertIn("the bus is lost", program.errors())

    def test_a_reply_that_already_says_the_end_ends_the_waiting(self):
        self.start_daemon()
        self.tell("SetReply", "Remove", "(('u', 'p', 2, 100, 0),)")
        self.assertIn("remove p: succeeded", self.succeeds("remove", "p"))
        self.tell("SetReply", "Remove", "(('v', 'p', 2, 101, 28),)")
        run = self.ctl("remove", "p")
        self.assertEqual(run.returncode, 1)
        self.assertIn("failed (FileConflict", run.stdout)

    def test_a_reply_without_a_uuid_cannot_be_followed(self):
        self.start_daemon()
        for body in ("(('', 'p', 2, 0, 0),)", "()"):
            self.tell("SetReply", "Remove", body)
            run = self.ctl("remove", "p")
            self.assertEqual(run.returncode, 4)
            self.assertIn("p: the outcome is not known: the daemon's reply names no operation",
                          run.stderr)

    def test_the_operation_of_a_call_without_a_reply_is_found_in_a_new_snapshot(self):
        self.start_daemon()
        self.environment["SYSTEMD_BUS_TIMEOUT"] = "1"
        self.tell("DelayReply", "Remove", 100000)
        program, uuid = self.start_removal()
        self.end_operation(uuid)
        self.ends(program, 0)

    def test_without_waiting_the_operation_of_a_call_without_a_reply_is_found_too(self):
        self.start_daemon()
        self.environment["SYSTEMD_BUS_TIMEOUT"] = "1"
        self.tell("DelayReply", "Remove", 100000)
        self.assertRegex(self.succeeds("remove", NOTES, "--no-wait"), UUID)

    def test_an_operation_of_another_kind_is_not_that_of_a_call_without_a_reply(self):
        self.start_daemon()
        self.environment["SYSTEMD_BUS_TIMEOUT"] = "1"
        self.tell("DelayReply", "Remove", 100000)
        self.tell("FailCall", "Remove", 1, "FileConflict", "")
        program = self.start("remove", NOTES)
        self.until_called("Remove")
        self.tell("AddActiveOperation", f"('u', '{NOTES}', 0, 40, 0)", "false")
        self.ends(program, 4)
        self.assertIn(f"{NOTES}: the outcome is not known: the daemon has not replied", program.errors())

    def test_an_operation_that_one_of_two_calls_without_a_reply_created_is_followed_for_neither(self):
        self.start_daemon()
        self.environment["SYSTEMD_BUS_TIMEOUT"] = "1"
        self.tell("DelayReply", "Install", 100000)
        for number in (1, 2):
            self.tell("FailCall", "Install", number, "FileConflict", "")
        program = self.start("install", self.package("a.pkg"), self.package("b.pkg"))
        self.until_called("Install", 2)
        self.tell("AddActiveOperation", "('u', 'org.example.new', 0, 40, 0)", "false")
        self.ends(program, 4)
        self.assertEqual(program.errors().count("the outcome is not known: the daemon has not replied"), 2)

    def test_the_outcome_of_a_call_without_a_reply_is_not_known_otherwise(self):
        self.start_daemon()
        self.environment["SYSTEMD_BUS_TIMEOUT"] = "1"
        self.tell("DelayReply", "Remove", 100000)
        self.tell("FailCall", "Remove", 1, "FileConflict", "")
        run = self.ctl("remove", NOTES)
        self.assertEqual(run.returncode, 4, run.stderr)
        self.assertIn(f"{NOTES}: the outcome is not known: the daemon has not replied", run.stderr)
        self.tell("DelayReply", "Start", 100000)
        run = self.ctl("start", NOTES)
        self.assertEqual(run.returncode, 4, run.stderr)
        self.assertIn("the outcome is not known", run.stderr)

    def test_a_daemon_that_dies_during_a_call_leaves_the_outcome_unknown(self):
        for command in ("remove", "start"):
            with self.subTest(command=command):
                self.start_daemon()
                self.tell("ExitDuring", command.capitalize())
                run = self.ctl(command, NOTES, env=self.other_waits(10))
                self.assertEqual(run.returncode, 4, run.stderr)
                self.assertIn(f"{NOTES}: the outcome is not known", run.stderr)

    def test_a_daemon_that_does_not_return_is_given_30_seconds_by_default(self):
        self.start_daemon()
        program = self.start("remove", NOTES, env=self.other_waits(1))
        uuid = program.until_output(UUID)[0]
        self.tell("Vanish", 0)
        self.ends(program, 4)
        self.assertIn(f"{NOTES}: the outcome is not known ({uuid}): the daemon has not returned within 30 s",
                      program.errors())
        self.assertEqual(self.content(self.file("seconds")), "30")


class InterruptionTest(WaitingBase):
    def test_signals_end_a_blocking_call_with_the_documented_status(self):
        self.start_daemon()
        for method, arguments in (("GetAllProperties", ["list"]), ("Start", ["start", NOTES]),
                                  ("Remove", ["remove", NOTES, "com.sample.weather"])):
            self.tell("DelayReply", method, 100000)
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                with self.subTest(method=method, number=number):
                    before = self.calls(method)
                    program = self.start(*arguments)
                    self.until_called(method, before + 1)
                    program.signal(number)
                    self.ends(program, 4)
                    self.assertIn("interrupted", program.errors())
            self.tell("DelayReply", method, 0)
        self.assertIn("com.sample.weather: not requested", program.errors())

    def test_the_time_out_covers_calls(self):
        self.start_daemon()
        self.tell("DelayReply", "GetAllProperties", 100000)
        run = self.ctl("list", "--timeout", "1")
        self.assertEqual(run.returncode, 4)
        self.assertIn("the time-out of 1 s has expired before the daemon answered", run.stderr)

    def test_an_interrupted_call_keeps_the_cached_operations(self):
        self.start_daemon()
        self.tell("AddCompletedOperation", "('kept', 'p', 0, 100, 0)", "false")
        self.succeeds("operations")
        self.tell("Reset")
        self.tell("DelayReply", "Start", 100000)
        program = self.start("start", NOTES)
        self.until_called("Start")
        program.signal(signal.SIGTERM)
        self.ends(program, 4)
        self.assertIn("kept", self.succeeds("operations"))

    def test_signals_end_the_waiting_and_the_operation_goes_on(self):
        self.start_daemon()
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number=number):
                program, uuid = self.start_removal()
                program.signal(number)
                self.ends(program, 4)
                self.assertIn(f"The operation continues: {uuid}", program.output())

    def test_sighup_is_ignored_under_nohup(self):
        self.start_daemon()
        program = self.start("remove", NOTES, preexec_fn=lambda: signal.signal(signal.SIGHUP,
                                                                               signal.SIG_IGN))
        uuid = program.until_output(UUID)[0]
        program.signal(signal.SIGHUP)
        self.end_operation(uuid)
        self.ends(program, 0)

    def test_a_second_ctrl_c_ends_the_program_at_once(self):
        self.start_daemon()
        program = self.start("watch", stdout=self.full_pipe(), env=self.other_waits(1000000))
        self.until_called("GetAllProperties")
        self.emit("OperationStatusChanged", "(('u', 'p', 0, 50, 0),)")
        self.until_blocked(program)
        program.signal(signal.SIGINT)
        self.assertRaises(subprocess.TimeoutExpired, program.process.wait, 0.5)
        program.signal(signal.SIGINT)
        self.ends(program, 4)

    def test_a_second_ctrl_c_ends_a_report_that_blocks(self):
        self.start_daemon()
        self.tell("DelayReply", "GetAllProperties", 100000)
        program = self.start("--json", "list", stdout=self.full_pipe(), env=self.other_waits(1000000))
        self.until_called("GetAllProperties")
        program.signal(signal.SIGINT)
        self.until_blocked(program)
        program.signal(signal.SIGINT)
        self.ends(program, 4)

    def test_an_interrupted_program_does_not_wait_long_for_a_reader(self):
        self.start_daemon()
        program = self.start("list", stdout=self.full_pipe(), env=self.other_waits(10))
        self.until_blocked(program)
        program.signal(signal.SIGTERM)
        self.ends(program, 4)
        program = self.start("list", "--timeout", "1", stdout=self.full_pipe(), env=self.other_waits(10))
        self.ends(program, 4)

    def test_a_named_pipe_that_nobody_reads_can_be_interrupted(self):
        self.start_daemon()
        path = self.file("pipe")
        os.mkfifo(path)
        program = self.start("record", path)
        self.until_blocked(program)
        program.signal(signal.SIGTERM)
        self.ends(program, 4)
        self.assertIn(f"cannot write {path}: interrupted", program.errors())
        run = self.ctl("record", path, "--timeout", "1")
        self.assertEqual(run.returncode, 4)
        self.assertIn(f"cannot write {path}: the time-out of 1 s has expired", run.stderr)

    def until_blocked(self, program):
        until(lambda: any(map(self.is_blocked, self.threads(program))), "a blocked call")

    def threads(self, program):
        directory = f"/proc/{program.process.pid}/task"
        return [os.path.join(directory, thread) for thread in os.listdir(directory)]

    def is_blocked(self, thread):
        """True in a write to standard output, or while a named pipe is opened."""
        try:
            with open(f"{thread}/wchan", encoding="ascii") as file:
                channel = file.read()
            if re.search("pipe_w|wait_for_partner|fifo_open", channel):
                return True
            with open(f"{thread}/syscall", encoding="ascii") as file:
                return re.match(r"(1|64) 0x1 ", file.read()) is not None
        except OSError:
            return False


class EventsTest(ProgramTest):
    def test_watch_tells_when_the_daemon_vanishes_and_appears(self):
        self.start_daemon()
        text = self.start("watch")
        document = self.start("watch", "--json")
        self.until_called("GetAllProperties", 2)
        self.tell("Vanish", 0)
        text.until_output("DaemonVanished\n")
        document.until_output("DaemonVanished.*\n")
        self.tell("RemovePackage", NOTES, "false")
        self.tell("Return")
        text.until_output("DaemonAppeared\n")
        document.until_output("DaemonAppeared.*\n")
        for program in (text, document):
            program.signal(signal.SIGINT)
            self.ends(program, 0)
        self.assertEqual(text.output(), "DaemonVanished\nDaemonAppeared\n")
        vanished, appeared = map(json.loads, document.output().splitlines())
        self.assertEqual(vanished, {"event": "DaemonVanished"})
        ids = [package["id"] for package in appeared["snapshot"]["packages"]]
        self.assertIn("com.sample.weather", ids)
        self.assertNotIn(NOTES, ids)

    def test_watch_tells_why_a_daemon_that_appears_cannot_be_read(self):
        self.start_daemon()
        program = self.start("watch", "--json")
        self.until_called("GetAllProperties")
        self.tell("Vanish", 0)
        program.until_output("DaemonVanished.*\n")
        self.tell("SetProperty", "Operations", "<5>")
        self.tell("Return")
        program.until_output("DaemonAppeared.*\n")
        program.signal(signal.SIGINT)
        self.ends(program, 0)
        appeared = json.loads(program.output().splitlines()[1])
        self.assertEqual(set(appeared), {"event", "error"})
        self.assertIn("the answer of the application-store daemon cannot be used",
                      appeared["error"]["message"])

    def test_a_recording_has_the_snapshot_of_a_daemon_that_returns(self):
        self.start_daemon()
        path = self.file("recording")
        program = self.start("record", path)
        until(lambda: self.content(path))
        self.tell("Vanish", 0)
        until(lambda: "DaemonVanished" in self.content(path))
        self.tell("Return")
        until(lambda: "DaemonAppeared" in self.content(path))
        program.signal(signal.SIGINT)
        self.ends(program, 0)
        with open(path, encoding="utf-8") as file:
            lines = [json.loads(line) for line in file]
        self.assertEqual([line.get("event") for line in lines],
                         [None, "DaemonVanished", "DaemonAppeared"])
        self.assertEqual(len(lines[2]["snapshot"]["packages"]), len(lines[0]["packages"]))

    def test_a_daemon_that_vanishes_while_it_answers_is_recorded(self):
        self.start_daemon()
        path = self.file("recording")
        self.tell("DelayReply", "GetAllProperties", 1000)
        program = self.start("record", path)
        self.until_called("GetAllProperties")
        self.tell("Vanish", 0)
        until(lambda: "DaemonVanished" in self.content(path))
        program.signal(signal.SIGINT)
        self.ends(program, 0)


main()
