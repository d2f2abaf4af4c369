# SPDX-License-Identifier: BSD-3-Clause
"""Runs the real emporium-simulator on private buses."""

import os
import re
import subprocess
import sys
import tempfile
import unittest

sys.path.append(os.path.join(os.path.dirname(__file__), "../support"))
from children import die_with_parent  # noqa: E402

SIMULATOR = os.environ["EMPORIUM_SIMULATOR"]
SOURCE_DIR = os.environ["EMPORIUM_SOURCE_DIR"]
DAEMON = "org.velmora.Emporium"
CONTROL = "org.velmora.Emporium.Simulator"

PRELUDE = """
d() { m=$1; shift; gdbus call --timeout 200 --session --dest org.velmora.Emporium \
  --object-path /org/velmora/Emporium --method org.velmora.Emporium.$m "$@" 2>&1; }
k() { m=$1; shift; gdbus call --timeout 200 --session --dest org.velmora.Emporium.Simulator \
  --object-path /org/velmora/Emporium/Simulator --method org.velmora.Emporium.Simulator.$m "$@" 2>&1; }
# Waits for the text in a file.
await() { end=$((SECONDS + 240)); until grep -q -- "$2" "$1"; do
  [ $SECONDS -lt $end ] || { echo "no $2"; exit 9; }; sleep 0.02; done; }
# Writes the signals of the daemon to the file $MONITOR; returns once it receives them.
watch_signals() { dbus-monitor --session "interface='org.velmora.Emporium',type='signal'" >"$MONITOR" 2>&1 &
  watcher=$!; while sleep 0.02; do k EmitSignalFrom / org.velmora.Emporium Ready '()' 1 >/dev/null
  grep -q 'member=Ready' "$MONITOR" && return 0; done; }
# Writes every message on the bus to the file $MONITOR; returns once it receives them.
watch_messages() { dbus-monitor --session >"$MONITOR" 2>&1 & watcher=$!
  for i in $(seq 10000); do k EmitSignalFrom / org.velmora.Emporium Ready '()' 1 >/dev/null
  grep -q 'member=Ready' "$MONITOR" && return 0; sleep 0.02; done; echo "no messages"; exit 9; }
"""


def errors():
    """The names and messages of the error table, in its order."""
    with open(os.path.join(SOURCE_DIR, "src/common/errors/error_table.cpp"), encoding="utf-8") as f:
        text = f.read()
    rows = re.findall(r'ERROR_ROW\((\w+),((?:\s*"[^"]*")+)\)', text)
    return [(name, "".join(re.findall(r'"([^"]*)"', message))) for name, message in rows]


class SimulatorTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.path = self.directory.name
        # Without G_SLICE, older versions of GLib hide their own leaks from the leak sanitizer.
        self.environment = dict(os.environ, TMPDIR=self.path, MONITOR=self.file("monitor"), LC_ALL="C",
                                G_SLICE="always-malloc")
        for name in ("DBUS_SESSION_BUS_ADDRESS", "LANGUAGE"):
            self.environment.pop(name, None)

    def tearDown(self):
        left = [name for name in os.listdir(self.path) if name.startswith("emporium-bus")]
        self.directory.cleanup()
        self.assertEqual(left, [], "a private bus was left behind")

    def file(self, name, content=None):
        path = os.path.join(self.path, name)
        if content is not None:
            with open(path, "wb") as f:
                f.write(content if isinstance(content, bytes) else content.encode())
        return path

    def simulator(self, *arguments, **options):
        options.setdefault("preexec_fn", die_with_parent)
        return subprocess.run([SIMULATOR, *arguments], env=self.environment, timeout=300,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              check=False, **options)

    def script(self, text, *options):
        """The output of a shell script on a private bus."""
        run = self.simulator("--step-ms", "0", *options, "--private-bus", "--", "bash", "-c",
                             PRELUDE + text + "\nexit 0\n")
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        return run.stdout

    def package(self, name="p.pkg", package_id="org.example.clock", version="1.0", *more):
        path = self.file(name)
        run = self.simulator("--make-package", path, "--id", package_id, "--version", version, *more)
        self.assertEqual(run.returncode, 0, run.stderr)
        return path

    def signals(self):
        """The name, the texts and the numbers of each signal that was recorded."""
        with open(self.file("monitor"), encoding="utf-8") as f:
            text = f.read()
        blocks = [block for block in re.split(r"^(?=\S)", text, flags=re.M)
                  if block.startswith("signal ")]
        result = []
        for block in blocks:
            member = re.search(r"member=(\w+)", block).group(1)
            numbers = [int(n) for n in re.findall(r"int32 (\d+)", block)]
            strings = re.findall(r'string "([^"]*)"', block)
            if member not in ("Ready", "Done", "NameAcquired", "NameLost"):
                result.append((member, strings, numbers))
        return result


def main():
    unittest.main(argv=[sys.argv[0], "-v", *sys.argv[1:]])
