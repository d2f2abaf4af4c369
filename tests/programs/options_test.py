# SPDX-License-Identifier: BSD-3-Clause
"""Options and commands of emporiumctl."""

import os
import re
import shlex
import signal
import stat
import subprocess

from program_fixture import SOURCE_DIR, ProgramTest, main, until

NOTES = "com.sample.notes"


class CommandLineTest(ProgramTest):
    def test_the_version_is_that_of_the_project(self):
        with open(os.path.join(SOURCE_DIR, "CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"VERSION (\d+\.\d+\.\d+)", file.read())[1]
        self.assertEqual(self.succeeds("--version"), f"emporiumctl {version}\n")

    def test_mistyped_names_get_a_suggestion(self):
        for arguments, wanted in ((["isntall", "x"], "there is no command 'isntall'; did you mean 'install'?"),
                                  (["lst"], "did you mean 'list'?"),
                                  (["list", "--josn"], "there is no option '--josn'; did you mean '--json'?"),
                                  (["--timeot=5", "list"], "did you mean '--timeout'?"),
                                  (["list", "--fliter", "x"], "did you mean '--filter'?"),
                                  (["--timeout", "5", "listt"], "did you mean 'list'?"),
                                  (["-v"], "there is no option '-v'"),
                                  (["xyzzy"], "there is no command 'xyzzy' (see")):
            with self.subTest(arguments=arguments):
                run = self.ctl(*arguments)
                self.assertEqual((run.returncode, run.stdout), (2, ""))
                self.assertIn(wanted, run.stderr)
        run = self.ctl("errors", "fileconflct")
        self.assertEqual(run.returncode, 1)
        self.assertIn("there is no error fileconflct; did you mean 'FileConflict'?", run.stderr)

    def test_every_message_begins_with_the_program_s_name(self):
        for arguments in ([], ["info"], ["unknown"], ["list", "--unknown"], ["list", "--sort", "x"],
                          ["--timeout", "-1", "list"], ["--timeout=", "list"], ["list", "--columns="],
                          ["--color", "blue", "list"], ["--host=", "list"], ["watch", "--event", "x"],
                          ["status", "--wait=x"], ["operations", "--active", "--completed"],
                          ["list", "--json", "--no-header"], ["record"], ["wait"], ["status", "--wait="],
                          ["-v"], ["list", "--columns", ""], ["--timeout", "", "list"]):
            with self.subTest(arguments=arguments):
                run = self.ctl(*arguments)
                self.assertEqual((run.returncode, run.stdout), (2, ""), run.stderr)
                self.assertTrue(run.stderr)
                for line in run.stderr.splitlines():
                    self.assertTrue(line.startswith("emporiumctl: "), line)

    def test_an_empty_value_does_not_take_the_next_argument(self):
        self.start_daemon()
        self.assertEqual(len(self.succeeds("list", "--filter=", "--json").splitlines()), 1)
        self.assertEqual(len(self.succeeds("list", "--filter=", "--subgroup=regular")),
                         len(self.succeeds("list", "--subgroup=regular")))
        self.assertEqual(self.ctl("list", "--filter=", "x").returncode, 2)
        run = self.ctl("remove", "--", "--filter=")
        self.assertIn("--filter=: PackageNotExist", run.stderr)


    def test_an_empty_target_is_shown_in_quotes(self):
        self.start_daemon()
        for arguments, status in ((["start", ""], 1), (["remove", ""], 1), (["wait", ""], 4)):
            run = self.ctl(*arguments)
            self.assertEqual(run.returncode, status)
            self.assertIn("emporiumctl: '': ", run.stderr)
        run = self.ctl("record", "")
        self.assertEqual(run.returncode, 1)
        self.assertIn("emporiumctl: cannot write '': No such file or directory", run.stderr)

    def test_an_empty_name_is_not_every_error(self):
        run = self.ctl("errors", "")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertIn("there is no error ''", run.stderr)

    def test_text_that_the_bus_cannot_transport_is_refused(self):
        self.start_daemon()
        for command in ("start", "restart", "remove", "install", "upgrade"):
            run = self.ctl(command, b"\xff")
            self.assertEqual(run.returncode, 1)
            self.assertIn("emporiumctl: \\xff: InvalidArguments: not UTF-8, so the bus cannot transport it",
                          run.stderr)

    def test_without_a_working_directory_a_relative_path_is_refused(self):
        self.start_daemon()
        directory = self.file("gone")
        os.mkdir(directory)
        run = self.ctl("install", "new.pkg", cwd=directory, preexec_fn=lambda: os.rmdir(directory))
        self.assertEqual(run.returncode, 1)
        self.assertIn("new.pkg: InvalidArguments: no working directory: No such file or directory", run.stderr)


class LocaleTest(ProgramTest):
    def test_messages_of_the_system_are_in_the_user_s_language(self):
        self.start_daemon()
        self.environment["LANGUAGE"] = "de"
        german = subprocess.run(["ls", "/no/such"], env=self.environment, stderr=subprocess.PIPE,
                                text=True, check=False).stderr.rpartition(": ")[2]
        if "No such file" in german:
            self.skipTest("no translation of the C library is installed")
        self.assertEqual(self.ctl("record", "/no/such/file").stderr,
                         "emporiumctl: cannot write /no/such/file: " + german)
        self.environment["LC_ALL"] = "C"
        self.assertIn("No such file or directory", self.ctl("record", "/no/such/file").stderr)

    def test_letters_pass_unchanged_in_every_locale(self):
        self.start_daemon()
        self.tell("AddPackage", "('gr\u00fcn', '1', 's', 'c', @a{sv} {})", "false")
        path = self.package("gr\u00fcn.pkg", "org.example.new")
        for locale in ("C", "C.UTF-8"):
            self.environment["LC_ALL"] = locale
            self.assertIn("gr\u00fcn", self.succeeds("list"))
            self.assertIn("gr\u00fcn", self.succeeds("list", "--filter", "\u00fc", "--json"))
            self.assertIn(path, self.succeeds("install", path))
            self.succeeds("remove", "org.example.new")
            self.assertIn("gr\u00fcn: ", self.ctl("start", "nicht gr\u00fcn").stderr)


class ErrorsTest(ProgramTest):
    def test_one_error_is_shown_as_keys_and_values(self):
        wanted = ("Code:     28\nName:     FileConflict\n"
                  "Message:  File conflict found when installing the package\n"
                  "Bus name: org.velmora.KVD.Error.FileConflict\n")
        for name in ("28", "FileConflict", "fileconflict", "ORG.VELMORA.KVD.ERROR.FILECONFLICT"):
            self.assertEqual(self.succeeds("errors", name), wanted)

    def test_all_errors_are_a_table(self):
        lines = self.succeeds("errors").splitlines()
        self.assertEqual(len(lines), 32)
        self.assertTrue(lines[0].startswith("CODE  NAME "))


class TableTest(ProgramTest):
    def test_columns_are_chosen_and_sorted(self):
        self.start_daemon()
        lines = self.succeeds("list", "--columns", "version,id", "--sort", "version").splitlines()
        self.assertRegex(lines[0], "^VERSION +ID$")
        versions = [line.split()[0] for line in lines[1:]]
        self.assertEqual(versions, sorted(versions))
        self.assertEqual(len(versions), 6)

    def test_the_heading_can_be_left_out(self):
        self.start_daemon()
        lines = self.succeeds("list", "--no-header", "--columns=id", "--filter", NOTES)
        self.assertEqual(lines, f"{NOTES}\n")
        self.assertEqual(self.succeeds("list", "--no-header", "--filter", "no such"), "")

    def test_operations_have_the_same_options(self):
        self.start_daemon()
        for package in ("com.sample.weather", NOTES):
            self.succeeds("remove", package)
        self.assertEqual(self.succeeds("operations", "--no-header", "--columns", "package,status",
                                       "--sort", "package"),
                         f"{NOTES}    succeeded\ncom.sample.weather  succeeded\n")

    def test_json_can_be_sorted(self):
        self.start_daemon()
        text = self.succeeds("list", "--json", "--sort", "id")
        ids = re.findall('"id":"([^"]*)"', text)
        self.assertEqual((len(ids), ids), (6, sorted(ids)))


class QuietTest(ProgramTest):
    def test_quiet_prints_failures_only(self):
        self.start_daemon()
        run = self.ctl("remove", "--quiet", NOTES)
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        self.tell("FailOperation", "", 28)
        run = self.ctl("remove", "--quiet", "com.sample.weather", "unknown")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertIn("emporiumctl: remove com.sample.weather: failed (FileConflict", run.stderr)
        self.assertIn("emporiumctl: unknown: PackageNotExist", run.stderr)

    def test_info_shows_each_field(self):
        self.start_daemon()
        self.tell("AddPackage", "('a.b', '1.2', 'group', 'certificate', @a{sv} {})", "false")
        self.assertEqual(self.succeeds("info", "a.b"),
                         "ID:        a.b\nVersion:   1.2\nDeveloper: certificate\nSubgroup:  group\n")

    def test_an_argument_that_ends_like_an_option_with_a_value_stays_whole(self):
        self.start_daemon()
        run = self.ctl("info", "package=")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.tell("AddPackage", "('package=', '1', 's', 'c', @a{sv} {})", "false")
        self.assertIn("ID:        package=\n", self.succeeds("info", "package="))

    def test_quiet_json_has_no_progress(self):
        self.start_daemon()
        lines = self.succeeds("remove", "--quiet", "--json", NOTES).splitlines()
        self.assertEqual(len(lines), 2)
        self.assertIn('"status":100', lines[1])

    def test_results_are_not_progress(self):
        self.start_daemon()
        self.assertEqual(len(self.succeeds("list", "--quiet").splitlines()), 7)
        self.assertRegex(self.succeeds("remove", "--quiet", "--no-wait", NOTES), "^[0-9a-f-]{36}\n$")


class WaitTest(ProgramTest):
    simulator_options = ["--step-ms", "100000"]

    def test_wait_follows_an_operation_that_exists(self):
        self.start_daemon()
        uuids = [self.succeeds("remove", "--no-wait", package).strip()
                 for package in (NOTES, "com.sample.weather")]
        program = self.start("wait", *uuids)
        program.until_output("remove com.sample.weather: ")
        for uuid, status in zip(uuids, (100, 101)):
            self.emit("OperationStatusChanged", f"(('{uuid}', 'p', 2, {status}, 8),)")
        self.ends(program, 1)
        self.assertIn("remove p: failed (DowngradeAttempt", program.output())

    def test_wait_reports_an_operation_that_has_ended(self):
        self.start_daemon()
        self.tell("AddCompletedOperation", "('done', 'p', 0, 100, 0)", "false")
        self.tell("AddCompletedOperation", "('bad', 'p', 0, 101, 28)", "false")
        self.assertIn("install p: succeeded", self.succeeds("wait", "done"))
        self.assertEqual(self.ctl("wait", "done", "bad").returncode, 1)
        run = self.ctl("wait", "unknown", "done")
        self.assertEqual(run.returncode, 4)
        self.assertIn("unknown: the outcome is not known", run.stderr)

    def test_status_waits_for_the_daemon(self):
        self.start_daemon()
        self.tell("Vanish", 0)
        for option in ("--wait", "--wait=60"):
            program = self.start("status", option)
            self.until_waiting()
            self.tell("Return")
            self.ends(program, 0)
            self.assertIn("packages: 6", program.output())
            self.tell("Vanish", 0)

    def test_status_gives_up_after_the_wait(self):
        self.start_daemon()
        self.tell("Vanish", 0)
        run = self.ctl("status", "--wait=1")
        self.assertEqual(run.returncode, 3)
        self.assertIn("has not appeared within 1 s", run.stderr)
        self.assertEqual(self.ctl("status", "--wait", "--timeout", "1").returncode, 4)

    def until_waiting(self):
        """Until the program is on the bus."""
        name = "org.example.programs.KVD.Connection"
        until(lambda: name in self.gdbus("org.freedesktop.DBus", "/",
                                         "org.freedesktop.DBus.ListNames"))


class WatchTest(ProgramTest):
    def watched(self, *options):
        program = self.start("watch", *options)
        self.until_called("GetAllProperties", len(self.running))
        return program

    def test_events_are_selected_and_timed(self):
        self.start_daemon()
        programs = [self.watched(*options) for options in (
            [], ["--package", "a"], ["--package", "a", "--package", "b"],
            ["--event", "PackageRemoved", "--event=PackageInstalled"],
            ["--package", "a", "--event", "OperationStatusChanged", "--timestamps"])]
        for package in ("a", "b", "c"):
            self.emit("PackageInstalled", f"(('{package}', '1', 's', 'c', @a{{sv}} {{}}),)")
            self.emit("OperationStatusChanged", f"(('u', '{package}', 0, 50, 0),)")
        programs[0].until_output("Operation.* c ")
        lines = []
        for program in programs:
            program.signal(signal.SIGINT)
            self.ends(program, 0)
            lines.append(program.output().splitlines())
        self.assertEqual([len(texts) for texts in lines], [6, 2, 4, 3, 1])
        self.assertEqual(lines[1], ["PackageInstalled a 1",
                                    "OperationStatusChanged u install a 50"])
        self.assertRegex(lines[4][0], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ OperationStatusChanged u ")

    def test_the_time_out_is_an_ordinary_end(self):
        self.start_daemon()
        self.assertEqual(self.succeeds("watch", "--timeout", "1"), "")


class HostTest(ProgramTest):
    """A stand-in for ssh runs the bridge on this machine."""

    def setUp(self):
        super().setUp()
        self.start_daemon()
        directory = self.file("bin")
        os.mkdir(directory)
        ssh = self.file("bin/ssh", f"""#!/bin/sh
printf '%s\\n' "$@" >"{self.file('arguments')}"
shift 3
export DBUS_SESSION_BUS_ADDRESS='{self.environment["DBUS_SESSION_BUS_ADDRESS"]}'
exec sh -c "$*" # as the other machine does
""")
        os.chmod(ssh, stat.S_IRWXU)
        self.remote = dict(self.environment, PATH=f"{directory}:{os.environ['PATH']}")
        del self.remote["DBUS_SESSION_BUS_ADDRESS"]

    def on_host(self, *arguments, host="me@far,away"):
        local, self.environment = self.environment, self.remote
        run = self.ctl("--host", host, *arguments)
        self.environment = local
        return run

    def test_every_command_can_use_the_bus_of_another_machine(self):
        run = self.on_host("list")
        self.assertEqual((run.returncode, len(run.stdout.splitlines())), (0, 7), run.stderr)
        self.assertTrue(self.content(self.file("arguments")).startswith(
            "-xT\n--\nme@far,away\nsh\n-c\n'exec systemd-stdio-bridge --user "))
        run = self.on_host("remove", NOTES)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertIn(f"remove {NOTES}: succeeded", run.stdout)
        self.assertNotIn(NOTES, self.succeeds("list"))

    def test_a_host_is_never_an_option_of_ssh(self):
        self.on_host("list", host="-oProxyCommand=false")
        self.assertIn("--\n-oProxyCommand=false\n", self.content(self.file("arguments")))

    def test_paths_are_those_of_the_other_machine(self):
        package = self.package()
        run = self.on_host("install", "new.pkg", package)
        self.assertEqual(run.returncode, 1)
        self.assertIn("new.pkg: InvalidArguments: on another host, the path must be absolute",
                      run.stderr)
        self.assertIn("install org.example.new: succeeded", run.stdout)

    def test_a_host_that_cannot_be_reached_is_a_missing_bus(self):
        self.file("bin/ssh", "#!/bin/sh\nexit 255\n")
        run = self.on_host("list")
        self.assertEqual(run.returncode, 3)
        self.assertIn("there is no session bus", run.stderr)

    def test_ssh_ends_with_the_program(self):
        written = shlex.quote(self.file("ssh"))
        self.file("bin/ssh", f"#!/bin/sh\necho $$ >{written}.new; mv {written}.new {written}; exec sleep 600\n")
        program = self.start("--host", "far", "list", env=self.remote)
        ssh = int(until(lambda: self.content(self.file("ssh"))))
        program.signal(signal.SIGTERM)
        self.ends(program, 4)
        until(lambda: self.has_ended(ssh), "the end of ssh")

    def has_ended(self, process_id):
        state = re.search("State:\t(.)", self.content(f"/proc/{process_id}/status"))
        return state is None or state[1] == "Z"

    def test_a_connection_that_is_cut_is_a_lost_bus(self):
        program = self.start("--host", "far", "watch", env=self.remote)
        self.until_called("GetAllProperties")
        self.kill_bus()
        self.ends(program, 3)


main()
