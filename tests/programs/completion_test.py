# SPDX-License-Identifier: BSD-3-Clause
"""The completions of emporiumctl, run by their shells."""

import os
import pty
import select
import shutil
import subprocess
import time
import unittest

from program_fixture import CTL, DEADLINE, SOURCE_DIR, ProgramTest, main

COMPLETIONS = os.path.join(SOURCE_DIR, "emporiumctl/completions")
BASH = """. "$1"; shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_emporiumctl
printf '%s\\n' "${COMPREPLY[@]}" """


class CompletionTest(ProgramTest):
    simulator_options = ["--step-ms", "100000"]

    def setUp(self):
        super().setUp()
        self.environment["PATH"] = f"{os.path.dirname(CTL)}:{os.environ['PATH']}"
        for name in ("XDG_CONFIG_HOME", "XDG_DATA_HOME"):
            self.environment[name] = self.directory.name
        self.start_daemon()
        self.uuid = self.succeeds("remove", "--no-wait", "com.sample.weather").strip()
        self.package()

    def run_shell(self, *arguments):
        run = subprocess.run(arguments, env=self.environment, cwd=self.directory.name,
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=DEADLINE,
                             text=True, check=False)
        return run.stdout.splitlines()

    def bash(self, *words):
        return self.run_shell("bash", "-c", BASH, "bash", f"{COMPLETIONS}/emporiumctl", *words)

    def fish(self, line):
        script = "source $argv[1]; complete -C $argv[2]"
        lines = self.run_shell("fish", "--no-config", "-c", script,
                               f"{COMPLETIONS}/emporiumctl.fish", line)
        return [text.split("\t")[0] for text in lines]

    def check(self, complete):
        """Completes lines, of which the last word is incomplete, with the function of a shell."""
        for line, wanted in (("ope", "operations"),
                             ("list --dev", "--developer"),
                             ("--json operations --comp", "--completed"),
                             ("--timeout 5 rec", "record"),
                             ("list --columns vers", "version"),
                             ("--color al", "always"),
                             ("remove com.sample.n", "com.sample.notes"),
                             ("info com.sample.n", "com.sample.notes"),
                             ("start com.sample.n", "com.sample.notes"),
                             ("restart com.sample.n", "com.sample.notes"),
                             ("watch --package com.sample.n", "com.sample.notes"),
                             ("watch --event DaemonV", "DaemonVanished"),
                             (f"wait {self.uuid[:8]}", self.uuid),
                             ("errors FileC", "FileConflict"),
                             ("install ne", "new.pkg"),
                             ("record ne", "new.pkg")):
            with self.subTest(line=line):
                complete(line, wanted)

    def test_bash_completes(self):
        self.check(lambda line, wanted: self.assertIn(
            wanted, self.bash("emporiumctl", *line.split(" "))))

    def test_bash_offers_what_can_follow(self):
        self.assertIn("com.sample.notes", self.bash("emporiumctl", "remove", ""))
        self.assertEqual(self.bash("emporiumctl", "--color", "=", "nev"), ["never"])
        self.assertEqual(self.bash("emporiumctl", "list", "com"), [""])

    @unittest.skipUnless(shutil.which("fish"), "there is no fish")
    def test_fish_completes(self):
        self.check(lambda line, wanted: self.assertIn(wanted, self.fish(f"emporiumctl {line}")))

    @unittest.skipUnless(shutil.which("zsh"), "there is no zsh")
    def test_zsh_completes(self):
        def complete(line, wanted):
            # Control-U empties the line.
            shell.write(f"\x15emporiumctl {line}\t")
            shell.until(wanted)

        shell = Zsh(self)
        try:
            self.check(complete)
        finally:
            shell.close()


class Zsh:
    """An interactive zsh on a terminal: its completion runs only there."""

    def __init__(self, test):
        self.test = test
        pid, self.terminal = pty.fork()
        if pid == 0:
            os.chdir(test.directory.name)
            os.execvpe("zsh", ["zsh", "-f", "-i"], dict(test.environment, TERM="dumb", COLUMNS="300"))
        self.pid = pid
        self.text = ""
        self.write(f"PS1='> '; LISTMAX=9999; fpath=({COMPLETIONS} $fpath); autoload -Uz compinit; "
                   "compinit -D -u; print -r begin''s\n")
        self.until("begins")

    def write(self, text):
        self.text = ""
        os.write(self.terminal, text.encode())

    def until(self, wanted):
        end = time.monotonic() + DEADLINE
        while wanted not in self.text:
            self.test.assertLess(time.monotonic(), end, f"no {wanted!r} in {self.text!r}")
            if select.select([self.terminal], [], [], 0.1)[0]:
                piece = os.read(self.terminal, 65536).decode(errors="replace")
                self.text += piece.replace("\a", "")

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.pid, 0)


main()
