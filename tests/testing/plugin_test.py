# SPDX-License-Identifier: BSD-3-Clause
"""Tests the pytest plugin with pytest itself."""

import os
import pathlib
import re
import runpy
import shutil
import subprocess
import sys

import emporium_pytest
import pytest
from emporium_pytest import DeadlineExceeded, Simulator, SimulatorError

CTL = os.environ["EMPORIUMCTL"]
SOURCE_DIR = pathlib.Path(os.environ["EMPORIUM_SOURCE_DIR"])


def ctl(*arguments):
    return subprocess.run([CTL, *arguments], text=True, timeout=200, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def test_a_program_is_on_the_private_bus_and_in_its_home(emporium_simulator):
    assert ctl("info", "com.sample.notes").returncode == 0
    emporium_simulator.wait_for_call("GetAllProperties")
    assert os.environ["HOME"] == str(emporium_simulator.home)
    assert os.environ["VEYRA_APP_ID"] == "org.example.test"
    assert os.environ["XDG_CACHE_HOME"].startswith(str(emporium_simulator.home))


def test_a_program_that_stays_is_awaited(emporium_simulator):
    with subprocess.Popen([CTL, "watch"], stdout=subprocess.DEVNULL) as program:
        emporium_simulator.wait_for_client()
        program.terminate()


def test_an_install_succeeds(emporium_simulator):
    run = ctl("install", emporium_simulator.package_file("org.example.clock", "2.5"))
    assert run.returncode == 0, run.stdout
    emporium_simulator.wait_for_status("org.example.clock", 100)
    assert emporium_simulator.calls("Install")[0] == 1


def test_a_call_fails_with_the_error(emporium_simulator):
    emporium_simulator.fail_call("Install", 1, "FileConflict")
    run = ctl("install", emporium_simulator.package_file("org.example.clock"))
    assert run.returncode == 1
    assert "FileConflict" in run.stdout


def test_an_operation_fails_with_the_error(emporium_simulator):
    emporium_simulator.fail_operation("org.example.clock", 28)
    run = ctl("install", emporium_simulator.package_file("org.example.clock"))
    assert run.returncode == 1
    assert "FileConflict" in run.stdout


@pytest.mark.emporium_simulator_arguments("--packages", "2")
def test_the_marker_passes_arguments(emporium_simulator):
    assert "org.example.package1" in ctl("list").stdout


def test_a_refused_verb_is_reported_with_its_reason(emporium_simulator):
    with pytest.raises(SimulatorError, match="was refused: the first call is number 1"):
        emporium_simulator.fail_call("Install", 0, "FileConflict")
    with pytest.raises(SimulatorError, match="DelayReply takes arguments of the types"):
        emporium_simulator.delay_reply("Install", "soon")
    with pytest.raises(SimulatorError, match="not a value in GVariant text format"):
        emporium_simulator.set_property("Packages", "]")


def test_a_simulator_that_left_the_bus_is_reported(emporium_simulator):
    emporium_simulator.exit_during("Start")
    assert ctl("start", "com.sample.notes").returncode != 0
    with pytest.raises(SimulatorError, match="the simulator has left the bus"):
        emporium_simulator.reset()


def test_what_does_not_happen_is_awaited_until_the_deadline():
    with Simulator() as simulator:
        simulator.deadline = 0.1
        with pytest.raises(DeadlineExceeded, match="was not answered within 0.1 s"):
            simulator.wait_for_call("Install", 2)
        simulator.deadline = emporium_pytest.DEADLINE


def test_arguments_that_are_refused_are_reported_with_the_message_of_the_program():
    with pytest.raises(SimulatorError, match=r"(?s)exit status 2.*unknown option --stepz"):
        Simulator("--stepz", "1")


def test_a_missing_simulator_is_named(monkeypatch):
    monkeypatch.setenv("EMPORIUM_SIMULATOR", "/nowhere")
    with pytest.raises(SimulatorError, match="no simulator at /nowhere"):
        Simulator()
    monkeypatch.delenv("EMPORIUM_SIMULATOR")
    monkeypatch.setenv("PATH", "/nonexistent")
    with pytest.raises(SimulatorError, match="no simulator at .* and none in PATH"):
        Simulator()


def test_the_simulator_of_the_same_installation_is_preferred_to_that_in_path(tmp_path, monkeypatch):
    plugin = tmp_path / "usr/share/emporium/python/emporium_pytest.py"
    installed = tmp_path / "usr/bin/emporium-simulator"
    other = tmp_path / "other/emporium-simulator"
    for file in (plugin, installed, other):
        file.parent.mkdir(parents=True)
        shutil.copy(emporium_pytest.__file__, file)
        file.chmod(0o755)
    monkeypatch.delenv("EMPORIUM_SIMULATOR")
    monkeypatch.setenv("PATH", str(other.parent))
    find_simulator = runpy.run_path(str(plugin))["find_simulator"]
    assert find_simulator() == str(installed)
    installed.unlink()
    assert find_simulator() == str(other)


def test_the_end_leaves_nothing_behind():
    with Simulator() as simulator:
        home = simulator.home
        assert home.is_dir()
    assert not home.exists()


def test_a_test_that_is_killed_leaves_no_simulator(tmp_path):
    script = tmp_path / "killed.py"
    script.write_text("import emporium_pytest, os, sys\n"
                      "simulator = emporium_pytest.Simulator()\n"
                      "print(simulator.home, flush=True)\n"
                      "os.kill(os.getpid(), 9)\n", encoding="utf-8")
    # The output ends when the last process that holds it has ended: standard error is inherited.
    run = subprocess.run([sys.executable, "-B", str(script)], stdout=subprocess.PIPE, text=True,
                         timeout=100, check=False)
    home = pathlib.Path(run.stdout.strip())
    while home.exists():  # until the test's own time-out
        pass


def test_every_verb_has_a_method(tmp_path):
    recording = tmp_path / "recording"
    recording.write_text('{"type":"snapshot","time":"2026-01-31T12:00:00Z","architecture":"a",'
                         '"version":"5","packages":[],"active":[],"completed":[]}\n', encoding="utf-8")
    with Simulator("--verbose", "--replay", str(recording), "--paused") as simulator:
        simulator.delay_reply("Remove", 1)
        simulator.fail_call("Install", 1, 28, "a message")
        simulator.set_reply("Start", "()")
        simulator.queue_signal("Restart", "PackageRemoved", "('one',)")
        simulator.calls("GetAllProperties")
        simulator.drop_property("Architecture")
        simulator.set_property("Operations", "5")
        simulator.restore_property("Operations")
        simulator.emit_signal("PackageRemoved", "('one',)")
        simulator.emit_signal_from("/", "a.b", "Signal", "()")
        simulator.vanish(3600000)
        simulator.return_()
        simulator.fail_operation("", 28)
        simulator.add_package("a.b")
        simulator.remove_package("a.b")
        simulator.add_active_operation("u", "a.b")
        simulator.add_completed_operation("u", "a.b")
        simulator.start_replay()
        simulator.exit_during("Start")
        simulator.reset()
        called = set(re.findall(r"verb (\w+)", simulator.errors()))
    xml = (SOURCE_DIR / "data/org.velmora.Emporium.Simulator.xml").read_text(encoding="utf-8")
    verbs = set(re.findall(r'<method name="(\w+)"', xml))
    assert called | {"WaitForCall", "WaitForStatus", "WaitForClient"} == verbs
