# SPDX-License-Identifier: BSD-3-Clause
"""Tests applications of libemporium against a simulated daemon, with pytest.

The fixture `emporium_simulator` starts emporium-simulator on a private bus with a home of its own, sets
the environment for the programs that the test starts, and ends everything after the test:

    def test_a_refused_install(emporium_simulator):
        emporium_simulator.fail_call("Install", 1, "FileConflict")
        assert subprocess.run(["my-installer", "clock.pkg"]).returncode == 1

The marker `emporium_simulator_arguments` passes arguments to the simulator:

    @pytest.mark.emporium_simulator_arguments("--packages", "5000")

The simulator is the program that the environment variable EMPORIUM_SIMULATOR names, else the one that
was installed with this file, else the one in PATH. Needs Python 3.9, pytest and python3-gi.
"""

import os
import pathlib
import select
import shutil
import subprocess
import tempfile

import gi
import pytest

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

CONTROL = "org.velmora.Emporium.Simulator"
CONTROL_PATH = "/org/velmora/Emporium/Simulator"
DEADLINE = 90.0

# What the simulator sets for the command that it runs on the private bus.
VARIABLES = ("DBUS_SESSION_BUS_ADDRESS", "HOME", "XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME",
             "XDG_STATE_HOME", "XDG_RUNTIME_DIR")


class SimulatorError(Exception):
    """The simulator is missing or has ended, or it refused a verb. The text says which, and why."""


class DeadlineExceeded(SimulatorError):
    """Raised instead of waiting for ever."""


def find_simulator():
    """The path of the program."""
    named = os.environ.get("EMPORIUM_SIMULATOR")
    installed = pathlib.Path(__file__).resolve().parents[3] / "bin" / "emporium-simulator"
    if named:
        if not os.access(named, os.X_OK):
            raise SimulatorError(f"there is no simulator at {named}, where EMPORIUM_SIMULATOR points")
        return named
    found = shutil.which(str(installed)) or shutil.which("emporium-simulator")
    if found is None:
        raise SimulatorError(f"there is no simulator at {installed} and none in PATH; "
                             "EMPORIUM_SIMULATOR may name one")
    return found


class Simulator:
    """The simulated daemon on a bus of its own, and its control interface.

    Each method that has the name of a verb calls it. docs/simulator.md describes the verbs. A body is a
    tuple of arguments in GVariant text format: "('one',)". Durations are in milliseconds, the deadline is
    in seconds.

    All methods raise SimulatorError if the verb is refused or the simulator does not run, and
    DeadlineExceeded if it does not answer in time. close() ends the bus and removes the home; `with`
    does that by itself.
    """

    def __init__(self, *arguments, deadline=DEADLINE, application_id="org.example.test"):
        self.deadline = deadline
        self._application_id = application_id
        self._errors = tempfile.TemporaryFile()
        # The shell ends, and with it the simulator, when this process closes the pipe or is killed.
        holder = r'env -0; printf "end\0"; exec cat >/dev/null'
        self.program = find_simulator()
        self._process = subprocess.Popen(
            [self.program, "--step-ms", "0", *arguments, "--private-bus", "--private-home", "--", "sh",
             "-c", holder],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self._errors)
        self._connection = None
        try:
            values = self._read_environment()
            #: The environment of an application on the private bus.
            self.environment = {name: values[name] for name in VARIABLES if name in values}
            self.environment["VEYRA_APP_ID"] = application_id
            self._connection = Gio.DBusConnection.new_for_address_sync(
                self.environment["DBUS_SESSION_BUS_ADDRESS"],
                Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
                Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends the simulator and its bus, and removes the home."""
        if self._connection is not None:
            self._connection.close_sync(None)
            self._connection = None
        self._process.stdin.close()
        try:
            self._process.wait(self.deadline)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()

    @property
    def home(self):
        """An empty directory, and the value of HOME."""
        return pathlib.Path(self.environment["HOME"])

    def errors(self):
        """What the simulator has written to its standard error so far."""
        length = os.fstat(self._errors.fileno()).st_size
        return os.pread(self._errors.fileno(), length, 0).decode(errors="replace")

    def package_file(self, package_id, version="1.0"):
        """Writes a package file that can be installed, to the home, and returns its path."""
        path = self.home / f"{package_id}.pkg"
        path.write_text(f"[Package]\nId={package_id}\nVersion={version}\nDeveloper=developer\n"
                        "Subgroup=regular\n", encoding="utf-8")
        return str(path)

    # --- the verbs ---

    def fail_call(self, method, nth, error, message=""):
        """Makes the nth call from now (1: the next) fail. `error` is a name of the error model, its
        number, or any error name of D-Bus. An empty message stands for the usual one."""
        self._call("FailCall", "(suss)", method, nth, str(error), message)

    def delay_reply(self, method, milliseconds):
        """Delays all replies of the method. 0 ends the delay."""
        self._call("DelayReply", "(su)", method, milliseconds)

    def set_reply(self, method, body):
        """Answers the next call with this body, and does nothing else."""
        self._call("SetReply", "(ss)", method, body)

    def queue_signal(self, method, signal, body):
        """Sends the signal just before the method's next reply or error."""
        self._call("QueueSignal", "(sss)", method, signal, body)

    def exit_during(self, method):
        """Leaves the bus during the next call, without a reply. No verb works afterwards."""
        self._call("ExitDuring", "(s)", method)

    def calls(self, method):
        """How often the method was called, and the argument of the last call."""
        return self._call("Calls", "(s)", method)

    def drop_property(self, key):
        """Omits the property from the reply of GetAllProperties."""
        self._call("DropProperty", "(s)", key)

    def set_property(self, key, value):
        """Gives the property any value, in GVariant text format: "5", "'aarch64'"."""
        try:
            parsed = GLib.Variant.parse(None, value, None, None)
        except GLib.Error as error:
            raise SimulatorError(f"not a value in GVariant text format: {value}: "
                                 f"{error.message}") from None
        self._call("SetProperty", "(sv)", key, parsed)

    def restore_property(self, key):
        """Undoes drop_property() and set_property()."""
        self._call("RestoreProperty", "(s)", key)

    def emit_signal(self, signal, body, count=1):
        """Sends the signal this many times. Does not change the lists of the daemon."""
        self._call("EmitSignal", "(ssu)", signal, body, count)

    def emit_signal_from(self, path, interface, signal, body, count=1):
        """The same from another object or interface."""
        self._call("EmitSignalFrom", "(ssssu)", path, interface, signal, body, count)

    def vanish(self, milliseconds=0):
        """Releases the daemon's bus name for this long; 0: until return_()."""
        self._call("Vanish", "(u)", milliseconds)

    def return_(self):
        """Claims the name again."""
        self._call("Return", "()")

    def fail_operation(self, package, error):
        """Ends the next operation on the package (empty: on any) with an error; 28 is FileConflict."""
        self._call("FailOperation", "(si)", package, error)

    def add_package(self, package_id, version="1.0", subgroup="", certificate="", announce=True):
        """Adds or replaces a package and, with `announce`, sends the signal of the change."""
        record = (package_id, version, subgroup, certificate, {})
        self._call("AddPackage", "((ssssa{sv})b)", record, announce)

    def remove_package(self, package_id, announce=True):
        """Removes a package."""
        self._call("RemovePackage", "(sb)", package_id, announce)

    def add_active_operation(self, uuid, package, type_=0, status=0, error=0, announce=True):
        """Adds an operation that makes no progress."""
        self._call("AddActiveOperation", "((ssiii)b)", (uuid, package, type_, status, error), announce)

    def add_completed_operation(self, uuid, package, type_=0, status=100, error=0, announce=True):
        """Adds a completed operation."""
        self._call("AddCompletedOperation", "((ssiii)b)", (uuid, package, type_, status, error),
                   announce)

    def reset(self):
        """Restores lists, faults and counts to those at the start."""
        self._call("Reset", "()")

    def start_replay(self):
        """Starts the replay of a recording (arguments "--replay", FILE, "--paused")."""
        self._call("StartReplay", "()")

    def wait_for_call(self, method, count=1):
        """Waits until the method was called that many times since the start or reset()."""
        self._call("WaitForCall", "(su)", method, count)

    def wait_for_status(self, package, status):
        """Waits until the latest operation on the package (empty: on any) has had the status."""
        self._call("WaitForStatus", "(si)", package, status)

    def wait_for_client(self):
        """Waits until a program that is on the bus has read the properties."""
        self._call("WaitForClient", "()")

    # --- private ---

    def _read_environment(self):
        """The variables that the command on the bus has."""
        data = b""
        descriptor = self._process.stdout.fileno()
        poll = select.poll()
        poll.register(descriptor, select.POLLIN)
        end = GLib.get_monotonic_time() + int(self.deadline * 1e6)
        while not data.endswith(b"\0end\0"):
            left = max(0, end - GLib.get_monotonic_time()) // 1000
            if not poll.poll(left):
                raise DeadlineExceeded(f"the simulator did not start within {self.deadline} s"
                                       f"{self._explanation()}")
            part = os.read(descriptor, 65536)
            if not part:
                status = self._process.wait()
                raise SimulatorError(f"the simulator does not start (exit status {status})"
                                     f"{self._explanation()}")
            data += part
        pairs = (entry.split("=", 1) for entry in os.fsdecode(data).split("\0") if "=" in entry)
        return dict(pairs)

    def _explanation(self):
        errors = self.errors()
        return f"; its standard error:\n{errors}" if errors else ""

    def _call(self, verb, types, *arguments):
        try:
            body = GLib.Variant(types, arguments)
        except (TypeError, OverflowError) as error:
            raise SimulatorError(f"{verb} takes arguments of the types {types}: {error}") from None
        try:
            reply = self._connection.call_sync(
                CONTROL, CONTROL_PATH, CONTROL, verb, body, None, Gio.DBusCallFlags.NO_AUTO_START,
                int(self.deadline * 1000), None)
        except GLib.Error as error:
            raise self._error(verb + body.print_(False), error) from None
        values = reply.unpack()
        return values if values else None

    def _error(self, call, error):
        if error.matches(Gio.io_error_quark(), Gio.IOErrorEnum.TIMED_OUT):
            return DeadlineExceeded(f"{call} was not answered within {self.deadline} s")
        absent = any(error.matches(Gio.dbus_error_quark(), code) for code in (
            Gio.DBusError.SERVICE_UNKNOWN, Gio.DBusError.NAME_HAS_NO_OWNER, Gio.DBusError.NO_REPLY))
        if absent:
            return SimulatorError(f"{call}: the simulator has left the bus{self._explanation()}")
        # Gio.DBusError.strip_remote_error() changes a copy.
        message = error.message.removeprefix(f"GDBus.Error:{Gio.DBusError.get_remote_error(error)}: ")
        return SimulatorError(f"{call} was refused: {message}")


def pytest_configure(config):
    config.addinivalue_line("markers", "emporium_simulator_arguments(*arguments): what "
                            "emporium-simulator is started with")


@pytest.fixture
def emporium_simulator(request, monkeypatch):
    """A simulated daemon on a private bus, in the environment of the test: a Simulator."""
    marker = request.node.get_closest_marker("emporium_simulator_arguments")
    with Simulator(*(marker.args if marker else ())) as simulator:
        for name, value in simulator.environment.items():
            monkeypatch.setenv(name, value)
        yield simulator
