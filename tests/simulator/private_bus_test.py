# SPDX-License-Identifier: BSD-3-Clause
"""What --private-bus keeps private, and what happens to its processes when they are signalled or killed."""

import contextlib
import errno
import os
import pty
import select
import shlex
import signal
import subprocess
import sys
import time

import fixture
from fixture import SIMULATOR, SimulatorTest, die_with_parent

DEADLINE = 240

# Prints its process ID and the bus's address, and then each signal that it receives; ends after the line
# "end" on standard input. The handlers only write to a pipe, so that no signal is lost or merged.
REPORTER = """
import os, select, signal, sys
read, write = os.pipe()
os.set_blocking(write, False)
for number in (signal.SIGINT, signal.SIGTERM, signal.SIGQUIT):
    signal.signal(number, lambda *_: None)
signal.set_wakeup_fd(write)
print(os.getpid(), os.environ["DBUS_SESSION_BUS_ADDRESS"], flush=True)
while True:
    for ready in select.select([read, 0], [], [])[0]:
        if ready == 0:
            sys.exit(0)
        for number in os.read(read, 100):
            print("signal", number, flush=True)
"""


def wait_until(condition, what):
    deadline = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("never: " + what)
        time.sleep(0.01)


def is_running(process_id):
    try:
        with open(f"/proc/{process_id}/stat", encoding="utf-8") as f:
            return f.read().rpartition(")")[2].split()[0] != "Z"
    except OSError as error:
        if error.errno not in (errno.ENOENT, errno.ESRCH):
            raise
        return False


def children(process_id):
    with open(f"/proc/{process_id}/task/{process_id}/children", encoding="utf-8") as f:
        return [int(child) for child in f.read().split()]


class PrivateDirectories(SimulatorTest):
    def environment_of_command(self, *options):
        self.environment.update(HOME=self.file("user"), XDG_CACHE_HOME=self.file("user-cache"),
                                XDG_DATA_HOME=self.file("user-data"))
        run = self.simulator(*options, "--private-bus", "--", "env", "-0")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return dict(line.split("=", 1) for line in run.stdout.split("\0") if line)

    def test_the_cache_of_the_command_is_private(self):
        seen = self.environment_of_command()
        self.assertTrue(seen["XDG_CACHE_HOME"].startswith(self.file("emporium-bus-")))
        self.assertEqual((seen["HOME"], seen["XDG_DATA_HOME"]), (self.file("user"), self.file("user-data")))

    def test_the_users_cache_can_be_kept(self):
        self.assertEqual(self.environment_of_command("--keep-cache")["XDG_CACHE_HOME"],
                         self.file("user-cache"))

    def test_the_whole_home_can_be_private(self):
        seen = self.environment_of_command("--private-home")
        for name in ("HOME", "XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME",
                     "XDG_RUNTIME_DIR"):
            self.assertTrue(seen[name].startswith(self.file("emporium-bus-")), name)

    def test_private_directories_exist_and_belong_to_the_user_alone(self):
        run = self.simulator("--private-home", "--private-bus", "--", "sh", "-c",
                             'stat -c %a "$HOME" "$XDG_CACHE_HOME" "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR"')
        self.assertEqual(run.stdout.split(), ["700"] * 4)

    def test_one_run_sees_nothing_of_another(self):
        for _ in range(2):
            run = self.simulator("--private-home", "--private-bus", "--", "sh", "-c",
                                 'ls -A "$XDG_CACHE_HOME" "$XDG_DATA_HOME" | grep trace; '
                                 'touch "$XDG_CACHE_HOME/trace" "$XDG_DATA_HOME/trace"')
            self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))

    def test_a_directory_without_write_permission_is_removed_with_the_bus(self):
        command = ["sh", "-c", 'mkdir "$HOME/a" && touch "$HOME/a/b" && chmod 500 "$HOME/a"']
        if os.geteuid() != 0:
            self.assertEqual(self.simulator("--private-home", "--private-bus", "--", *command).returncode, 0)
        else:
            os.chmod(self.path, 0o755)
            self.environment["TMPDIR"] = self.file("other")
            os.mkdir(self.file("other"))
            os.chown(self.file("other"), 65534, 65534)
            run = self.simulator("--private-home", "--private-bus", "--", *command, user=65534, group=65534,
                                 extra_groups=[])
            self.assertEqual(run.returncode, 0, run.stderr)
            self.assertEqual(os.listdir(self.file("other")), [])

    def test_without_a_directory_for_temporary_files_the_usual_one_is_used(self):
        for environment in ({}, {"TMPDIR": ""}):
            self.environment.pop("TMPDIR", None)
            self.environment.update(environment)
            run = self.simulator("--private-bus", "--", "sh", "-c", 'echo "$DBUS_SESSION_BUS_ADDRESS"')
            self.assertEqual((run.returncode, run.stderr), (0, ""))
            self.assertRegex(run.stdout, "^unix:path=/tmp/")
            self.assertFalse(os.path.exists(os.path.dirname(run.stdout.split("=")[1].split(",")[0])))

    def test_without_a_command_the_shell_of_the_user_is_started(self):
        shell = self.file("shell", "#!/bin/sh\necho \"shell $# $DBUS_SESSION_BUS_ADDRESS\"\nexit 7\n")
        os.chmod(shell, 0o700)
        self.environment["SHELL"] = shell
        for arguments in (["--private-bus"], ["--private-bus", "--"]):
            run = self.simulator(*arguments)
            self.assertEqual((run.returncode, run.stderr), (7, ""))
            self.assertRegex(run.stdout, "^shell 0 unix:path=")

    def test_without_a_shell_variable_the_system_shell_is_started(self):
        self.environment.pop("SHELL", None)
        run = self.simulator("--private-bus", input="echo $0\n")
        self.assertEqual((run.returncode, run.stdout), (0, "/bin/sh\n"))


class ProcessesOfABus(SimulatorTest):
    def start(self, command, **options):
        options.setdefault("preexec_fn", die_with_parent)
        process = subprocess.Popen([SIMULATOR, "--private-bus", "--", *command], env=self.environment,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, **options)
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process):
        process.kill()
        process.wait()
        process.stdin.close()
        process.stdout.close()

    def bus_directories(self):
        return [name for name in os.listdir(self.path) if name.startswith("emporium-bus-")]

    def run_again(self):
        self.assertEqual(self.simulator("--private-bus", "--", "true").returncode, 0)

    def test_a_killed_simulator_takes_the_bus_and_the_command_along(self):
        process = self.start([sys.executable, "-c", REPORTER])
        process.stdout.readline()
        family = children(process.pid)
        self.assertEqual(len(family), 2)
        process.kill()
        process.wait()
        for child in family:
            wait_until(lambda child=child: not is_running(child), f"{child} ends")
        self.run_again()

    def test_the_next_run_removes_the_directory_of_a_killed_simulator(self):
        process = self.start([sys.executable, "-c", REPORTER])
        process.stdout.readline()
        self.assertEqual(len(self.bus_directories()), 1)
        process.kill()
        process.wait()
        wait_until(lambda: not self.is_locked(), "the lock of the killed simulator is released")
        self.run_again()
        self.assertEqual(self.bus_directories(), [])

    def is_locked(self):
        lock = self.file(os.path.join(self.bus_directories()[0], "lock"))
        return subprocess.run(["flock", "-n", lock, "true"], check=False).returncode != 0

    def test_the_directory_of_a_running_simulator_is_kept(self):
        process = self.start([sys.executable, "-c", REPORTER])
        address = process.stdout.readline().split()[1]
        directories = self.bus_directories()
        self.run_again()
        self.assertEqual(self.bus_directories(), directories)
        check = subprocess.run(["gdbus", "call", "--address", address, "--dest", fixture.DAEMON, "--object-path",
                                "/org/velmora/Emporium", "--method", fixture.DAEMON + ".Start", "org.example.camera"],
                               stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual(check.stdout, "()\n")
        process.stdin.close()
        self.assertEqual(process.wait(DEADLINE), 0)

    def test_an_empty_directory_of_a_killed_simulator_is_removed_and_no_other(self):
        os.mkdir(self.file("emporium-bus-a1b2c3"))
        os.mkdir(self.file("emporium-bus-longer-name"))
        os.mkdir(self.file("target"))
        os.symlink(self.file("target"), self.file("emporium-bus-a1b2c4"))
        self.file("target/lock", "")
        self.run_again()
        self.assertEqual(sorted(self.bus_directories()), ["emporium-bus-a1b2c4", "emporium-bus-longer-name"])
        self.assertEqual(os.listdir(self.file("target")), ["lock"])
        os.remove(self.file("emporium-bus-a1b2c4"))
        os.rmdir(self.file("emporium-bus-longer-name"))

    def test_a_lost_bus_is_reported_and_the_command_continues(self):
        with open(self.file("errors"), "w+", encoding="utf-8") as errors:
            process = self.start([sys.executable, "-c", REPORTER], stderr=errors)
            command = int(process.stdout.readline().split()[0])
            bus = next(child for child in children(process.pid) if child != command)
            os.kill(bus, signal.SIGKILL)
            wait_until(lambda: os.path.getsize(self.file("errors")), "a message")
            process.stdin.close()
            self.assertEqual(process.wait(DEADLINE), 0)
            errors.seek(0)
            self.assertEqual(errors.read(), "emporium-simulator: the bus is lost\n")

    def test_a_lost_bus_ends_a_simulator_without_a_command(self):
        with subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address=1"], env=self.environment,
                              stdout=subprocess.PIPE, text=True, preexec_fn=die_with_parent) as bus:
            self.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()
            with subprocess.Popen([SIMULATOR], env=self.environment, stdout=subprocess.PIPE, text=True,
                                  stderr=subprocess.PIPE, preexec_fn=die_with_parent) as simulator:
                self.assertEqual(simulator.stdout.readline(), "ready\n")
                bus.kill()
                self.assertEqual(simulator.wait(DEADLINE), 1)
                self.assertEqual(simulator.stderr.read(), "emporium-simulator: the bus is lost\n")

    def test_the_bus_has_its_own_process_group(self):
        process = self.start([sys.executable, "-c", REPORTER])
        command = int(process.stdout.readline().split()[0])
        bus = next(child for child in children(process.pid) if child != command)
        self.assertEqual(os.getpgid(bus), bus)
        self.assertEqual(os.getpgid(command), os.getpgid(process.pid))
        process.stdin.close()
        self.assertEqual(process.wait(DEADLINE), 0)

    def test_a_signal_is_passed_on_once(self):
        process = self.start([sys.executable, "-c", REPORTER])
        process.stdout.readline()
        for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGTERM):
            process.send_signal(number)
            self.assertEqual(process.stdout.readline(), f"signal {int(number)}\n")
        process.stdin.close()
        self.assertEqual(process.stdout.read(), "")
        self.assertEqual(process.wait(DEADLINE), 0)

    def test_a_second_sigterm_kills_a_command_that_ignores_the_first(self):
        process = self.start([sys.executable, "-c", REPORTER])
        process.stdout.readline()
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.stdout.readline(), f"signal {int(signal.SIGTERM)}\n")
        # Two at the same time count as one, so this one is sent until it has an effect.

        def killed():
            process.send_signal(signal.SIGTERM)
            return process.poll() is not None
        wait_until(killed, "the command is killed")
        self.assertEqual(process.returncode, 128 + signal.SIGKILL)

    def test_two_sigterms_at_once_do_not_kill_the_command(self):
        # As timeout(1) sends them.
        process = self.start([sys.executable, "-c", REPORTER])
        process.stdout.readline()
        os.kill(process.pid, signal.SIGSTOP)
        process.send_signal(signal.SIGTERM)
        process.send_signal(signal.SIGTERM)
        os.kill(process.pid, signal.SIGCONT)
        self.assertEqual(process.stdout.readline(), f"signal {int(signal.SIGTERM)}\n")
        process.stdin.close()
        self.assertEqual(process.wait(DEADLINE), 0)

    def test_the_command_ignores_what_the_simulator_was_told_to_ignore(self):
        for number in (signal.SIGPIPE, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number):
                status = subprocess.run(
                    [SIMULATOR, "--private-bus", "--", sys.executable, "-c",
                     f"import signal; print(signal.getsignal({int(number)}) == signal.SIG_IGN, "
                     "signal.pthread_sigmask(signal.SIG_BLOCK, []))"],
                    env=self.environment, stdout=subprocess.PIPE, text=True, check=True, timeout=DEADLINE,
                    restore_signals=False, preexec_fn=lambda n=number: signal.signal(n, signal.SIG_IGN))
                self.assertEqual(status.stdout, "True set()\n")

    def test_a_bus_that_does_not_answer_can_be_interrupted(self):
        daemon = self.file("dbus-daemon", f"#!/bin/sh\necho >{shlex.quote(self.file('started'))}\nexec sleep 600\n")
        os.chmod(daemon, 0o700)
        self.environment["PATH"] = self.path + ":" + self.environment["PATH"]
        process = self.start(["true"], stderr=subprocess.DEVNULL)
        wait_until(lambda: os.path.exists(self.file("started")), "the bus starts")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(DEADLINE), 128 + signal.SIGINT)


class InATerminal(SimulatorTest):
    def start(self, command):
        """Runs the simulator in a terminal of its own; returns its process ID and the terminal."""
        process_id, terminal = pty.fork()
        if process_id == 0:
            os.execve(SIMULATOR, [SIMULATOR, "--private-bus", "--", *command], self.environment)
        self.addCleanup(os.close, terminal) # hangs up, which ends what still runs
        return process_id, terminal

    @staticmethod
    def read_until(terminal, text):
        seen = b""
        while text not in seen:
            part = b""
            if select.select([terminal], [], [], DEADLINE)[0]:
                with contextlib.suppress(OSError): # the last writer is gone
                    part = os.read(terminal, 4096)
            if not part:
                raise AssertionError(f"no {text!r} in {seen!r}")
            seen += part
        return seen

    def status_of(self, process_id):
        return os.waitstatus_to_exitcode(os.waitpid(process_id, 0)[1])

    def test_a_terminal_that_is_closed_ends_an_interactive_shell(self):
        process_id, terminal = pty.fork()
        if process_id == 0:
            os.execve(SIMULATOR, [SIMULATOR, "--private-bus", "--", "bash", "--norc", "-i"], self.environment)
        os.write(terminal, b"echo star''ted; sleep 600\n")
        self.read_until(terminal, b"started")
        os.close(terminal)
        wait_until(lambda: os.waitid(os.P_PID, process_id, os.WEXITED | os.WNOHANG | os.WNOWAIT) is not None,
                   "the simulator ends")
        self.assertEqual(self.status_of(process_id), 128 + signal.SIGHUP)

    def test_ctrl_c_reaches_the_command_once_and_the_bus_lives_on(self):
        # The command calls the bus after Ctrl-C.
        script = REPORTER.replace('print("signal", number, flush=True)', """
            import subprocess
            subprocess.run(["gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path",
                            "/", "--method", "org.freedesktop.DBus.Peer.Ping"], preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN))
            print("received", number, flush=True)""")
        process_id, terminal = self.start([sys.executable, "-c", script])
        self.read_until(terminal, b"unix:path")
        # The simulator sees Ctrl-C after the command: two signals at the same time would be merged.
        os.kill(process_id, signal.SIGSTOP)
        os.write(terminal, b"\x03")
        seen = self.read_until(terminal, b"received 2")
        os.kill(process_id, signal.SIGCONT)
        os.kill(process_id, signal.SIGQUIT)
        seen += self.read_until(terminal, b"received 3")
        os.write(terminal, b"end\n")
        with contextlib.suppress(OSError):
            while part := os.read(terminal, 4096):
                seen += part
        self.assertEqual((seen.count(b"received 2"), seen.count(b"()")), (1, 2))
        self.assertEqual(self.status_of(process_id), 0)

    def test_a_command_that_left_the_process_group_receives_ctrl_c_too(self):
        script = "import os; os.setpgid(0, 0)" + REPORTER
        process_id, terminal = self.start([sys.executable, "-c", script])
        self.read_until(terminal, b"unix:path")
        os.write(terminal, b"\x03")
        self.read_until(terminal, b"signal 2")
        os.kill(process_id, signal.SIGQUIT)
        self.read_until(terminal, b"signal 3")
        os.kill(process_id, signal.SIGTERM)
        self.read_until(terminal, b"signal 15")

        def killed():
            os.kill(process_id, signal.SIGTERM)
            return os.waitid(os.P_PID, process_id, os.WEXITED | os.WNOHANG | os.WNOWAIT) is not None
        wait_until(killed, "the simulator ends")
        self.assertEqual(self.status_of(process_id), 128 + signal.SIGKILL)


if __name__ == "__main__":
    fixture.main()
