# SPDX-License-Identifier: BSD-3-Clause
"""What the simulator prints, and where; and its "ctl" command."""

import os
import pty
import signal
import subprocess
from shlex import quote

import fixture
from fixture import SIMULATOR, SimulatorTest


class ControlCommand(SimulatorTest):
    def script(self, text, *options):
        return super().script(f"s() {{ {quote(SIMULATOR)} ctl \"$@\" 2>&1; }}\n" + text, *options)

    def test_verbs_are_called_with_plain_arguments(self):
        output = self.script("""s FailCall Start 1 FileConflict ''; s FailCall Start 2 28 "it's"; d Start x; d Start x
            s SetProperty Odd 5; s SetProperty Even "<'six'>"; d GetAllProperties; s Calls Start
            s AddPackage "('a.b', '1', 's', 'd', {})" true; s RemovePackage a.b false; s Reset; s Calls Start""")
        lines = output.splitlines()
        self.assertIn("FileConflict", lines[0])
        self.assertIn("FileConflict: it's", lines[1])
        self.assertIn("'Odd': <5>", lines[2])
        self.assertIn("'Even': <'six'>", lines[2])
        self.assertEqual(lines[3:], ["2", "x", "0", ""])

    def test_a_missing_last_argument_and_the_name_of_an_error_are_accepted(self):
        output = self.script("""watch_signals; s FailOperation '' FileConflict; s FailOperation '' 3
            d Remove org.example.camera; s WaitForCall Remove; s WaitForStatus org.example.camera 101
            await "$MONITOR" 'int32 28'; kill $watcher; echo done""")
        self.assertTrue(output.endswith("done\n"), output)

    def test_refusals_have_an_exit_status(self):
        output = self.script("s Odd; echo $?; s FailCall Odd 1 Internal ''; echo $?; s Calls; echo $?; s; echo $?;"
                             "s RemovePackage no.such false; echo $?; DBUS_SESSION_BUS_ADDRESS=unix:path=/no s Reset;"
                             "echo $?; s ExitDuring Start; d Start x >/dev/null; s Reset; echo $?")
        self.assertEqual([line for line in output.splitlines() if line.isdigit()],
                         ["2", "2", "2", "2", "1", "3", "3"])
        for line in output.splitlines():
            if not line.isdigit():
                self.assertTrue(line.startswith("emporium-simulator: "), line)

    def test_what_the_bus_does_not_transport_is_refused(self):
        output = self.script("""s EmitSignalFrom path a.b Ready '()' 1; s EmitSignalFrom / odd Ready '()' 1
            s EmitSignal not-a-name '()' 1; s SetProperty Odd 'just 5'""")
        self.assertEqual([line for line in output.splitlines() if "--help" not in line],
                         ["emporium-simulator: not an object path: path", "emporium-simulator: not an interface: odd",
                          "emporium-simulator: not a signal: not-a-name",
                          "emporium-simulator: a value of the type mi cannot be sent on the bus"])

    def test_a_simulator_that_leaves_during_a_call_is_an_absent_one(self):
        output = self.script("""watch_messages; s WaitForClient & client=$!; await "$MONITOR" member=WaitForClient
            s ExitDuring Start; d Start x >/dev/null; wait $client; echo $?; kill $watcher""")
        self.assertEqual(output, "emporium-simulator: the simulator has left the bus\n3\n")


class Output(SimulatorTest):
    def shell(self, script):
        return subprocess.run(["bash", "-c", script, "bash", SIMULATOR, self.path], env=self.environment, timeout=300,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)

    def test_a_run_in_which_nothing_fails_prints_nothing(self):
        run = self.simulator("--private-bus", "--", "bash", "-c", fixture.PRELUDE +
                             "d GetAllProperties >/dev/null; d Start org.example.camera >/dev/null; k Reset >/dev/null")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))

    def test_closed_standard_descriptors_are_occupied(self):
        path = self.file("descriptors")
        command = 'for n in 0 1 2; do readlink "/proc/$PPID/fd/$n"; done >"$1"'
        run = self.shell(f'"$1" --private-bus -- sh -c {quote(command)} sh {quote(path)} <&- >&- 2>&-')
        self.assertEqual(run.returncode, 0)
        with open(path, encoding="utf-8") as file:
            self.assertEqual(file.read(), "/dev/null\n/dev/null\n/dev/null\n")

    def test_a_failed_write_is_reported(self):
        for arguments in ("--help", "--version", "ctl --help"):
            for target in (">/dev/full", ">&-"):
                with self.subTest(arguments + target):
                    run = self.shell(f'"$1" {arguments} {target}')
                    self.assertEqual((run.returncode, run.stdout), (1, ""))
                    self.assertIn("emporium-simulator: cannot write to the standard output", run.stderr)

    def test_a_closed_pipe_with_sigpipe_ignored_is_reported(self):
        read, write = os.pipe()
        os.close(read)
        run = subprocess.run([SIMULATOR, "--help"], env=self.environment, stdout=write, stderr=subprocess.PIPE,
                             text=True, check=False, restore_signals=False,
                             preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN))
        os.close(write)
        self.assertEqual(run.returncode, 1)
        self.assertIn("cannot write", run.stderr)

    def test_ready_that_cannot_be_written_ends_the_simulator(self):
        output = self.script(f"""k ExitDuring Start >/dev/null; d Start x >/dev/null
            {quote(SIMULATOR)} 2>&1 >/dev/full; echo $?""")
        self.assertIn("cannot write to the standard output", output)
        self.assertTrue(output.endswith("\n1\n"))

    def test_closed_standard_descriptors_are_not_used_for_other_files(self):
        for closed in ("<&-", ">&-", "2>&-", "<&- >&- 2>&-"):
            with self.subTest(closed):
                run = self.shell(f'D="$2" "$1" --state "$2/state" --verbose --private-bus -- sh -c "'
                                 'gdbus call --session --dest org.velmora.Emporium --object-path '
                                 '/org/velmora/Emporium --method org.velmora.Emporium.Remove org.example.camera '
                                 f'>\\"\\$D/out\\"; echo text; echo error >&2; echo end >\\"\\$D/end\\"" {closed}')
                with open(self.file("end"), encoding="utf-8") as f:
                    self.assertEqual(f.read(), "end\n")
                self.assertEqual(run.returncode, 0)
                self.assertNotIn("error", run.stdout)
                self.assertNotIn("text", run.stderr)
                with open(self.file("out"), encoding="utf-8") as f:
                    self.assertIn("org.example.camera", f.read())
                with open(self.file("state/state.catalogue"), encoding="utf-8") as f:
                    self.assertTrue(f.read().startswith("[System]"))
                os.remove(self.file("state/state.catalogue"))

    def test_no_text_from_elsewhere_controls_the_terminal(self):
        odd = "\x1b[31m\r\n\x07\x7f\u009b\u202e\u2028\u200b"
        package = self.file("package", "[Package]\nod\x1bd=1\n")
        cases = [self.simulator("--catalogue", odd), self.simulator(odd), self.simulator("--" + odd),
                 self.simulator("--do", odd + " 1"), self.simulator("ctl", odd),
                 self.simulator("--check", "--catalogue", self.file("c", "[Sys\x1btem]\n")),
                 self.simulator("--check", "--replay", self.file("r", '{"type":"\\u001b\\u202e"}\n')),
                 self.simulator("--private-bus", "--", odd),
                 self.simulator("--verbose", "--private-bus", "--", "sh", "-c",
                                "gdbus call --session --dest org.velmora.Emporium --object-path "
                                "/org/velmora/Emporium --method org.velmora.Emporium.Install " + quote(package))]
        cases[-1].returncode = 1
        for run in cases:
            with self.subTest(run.args):
                self.assertNotEqual(run.returncode, 0)
                self.assertIn("emporium-simulator: ", run.stderr)
                for line in run.stderr.split("\n"):
                    for letter in odd.replace("[31m", "").replace("\n", ""):
                        self.assertNotIn(letter, line)

    def test_letters_of_any_language_are_printed_as_they_are(self):
        self.assertIn("gr\u00fcn: ", self.simulator("--catalogue", "gr\u00fcn").stderr)

    def on_terminal(self, locale, *arguments):
        ours, theirs = pty.openpty()
        self.environment["LC_ALL"] = locale
        subprocess.run([SIMULATOR, *arguments], env=self.environment, stdout=theirs, stderr=theirs,
                       timeout=300, check=False)
        os.close(theirs)
        try:
            return os.read(ours, 65536).decode()
        finally:
            os.close(ours)

    def test_a_terminal_shows_the_letters_of_its_locale(self):
        self.assertIn("gr\u00fcn: ", self.on_terminal("C.UTF-8", "--catalogue", "gr\u00fcn"))
        self.assertIn("gr\\u00fcn: ", self.on_terminal("C", "--catalogue", "gr\u00fcn"))

    def test_messages_of_the_system_are_in_the_user_s_language(self):
        self.environment["LANGUAGE"] = "de"
        run = self.simulator("--catalogue", "/no/such")
        self.assertIn("No such file or directory", run.stderr)
        self.environment["LC_ALL"] = "C.UTF-8"
        german = subprocess.run(["ls", "/no/such"], env=self.environment, stderr=subprocess.PIPE, text=True,
                                check=False).stderr.rpartition(": ")[2]
        if "No such file" in german:
            self.skipTest("no translation of the C library is installed")
        run = self.simulator("--catalogue", "/no/such")
        self.assertEqual(run.stderr, "emporium-simulator: /no/such: " + german)

    def test_verbose_prints_calls_replies_and_signals(self):
        run = self.simulator("--verbose", "--do", "EmitSignal 'Odd', '(1,)', 1", "--private-bus", "--", "gdbus", "call",
                             "--session", "--dest", fixture.DAEMON, "--object-path", "/org/velmora/Emporium",
                             "--method", fixture.DAEMON + ".Start", "no.such")
        lines = run.stderr.splitlines()
        for line in ("verb EmitSignal ('Odd', '(1,)', 1)", "signal Odd (1,)", "call Start ('no.such',)",
                     "error org.velmora.KVD.Error.PackageNotExist ('The package does not exist',)"):
            self.assertIn("emporium-simulator: " + line, lines)

    def test_the_name_that_was_probably_meant_is_suggested(self):
        for arguments, name in ((["--catalog", "x"], "--catalogue"), (["--privatebus"], "--private-bus"),
                                (["--stpes=1"], "--steps"), (["ctrl"], "ctl"), (["ctl", "failcall"], "FailCall"),
                                (["--do", "WaitForcal 'Start'"], "WaitForCall")):
            with self.subTest(arguments):
                run = self.simulator(*arguments)
                self.assertEqual(run.returncode, 2)
                self.assertIn(f"; did you mean '{name}'?", run.stderr)
        for arguments in (["--quite-different"], ["odd"], ["ctl", "Odd"], ["--" + "x" * 100]):
            with self.subTest(arguments):
                run = self.simulator(*arguments)
                self.assertEqual(run.returncode, 2)
                self.assertNotIn("did you mean", run.stderr)

    def test_every_line_of_a_message_begins_with_the_name_of_the_program(self):
        for line in self.simulator("--odd").stderr.splitlines():
            self.assertTrue(line.startswith("emporium-simulator: "), line)

    def test_the_version_is_printed(self):
        run = self.simulator("--version")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertRegex(run.stdout, r"^emporium-simulator \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    fixture.main()
