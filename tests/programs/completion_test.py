# SPDX-License-Identifier: BSD-3-Clause
"""The completions of emporiumctl, run by their shells."""

import os
import pty
import re
import select
import shutil
import subprocess
import time
import unittest

from program_fixture import CTL, DEADLINE, SOURCE_DIR, ProgramTest, main

BASH = """. "$1"; shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
"_${1//-/_}"
printf '%s\\n' "${COMPREPLY[@]}" """


class ShellTest:
    """Completes with the functions of the shells: the common part of the tests of both programs."""

    simulator_options = ["--step-ms", "100000"]
    program = None
    directory_of_completions = None
    lines = ()

    def setUp(self):
        super().setUp()
        self.completions = os.path.join(SOURCE_DIR, self.directory_of_completions)
        self.environment["PATH"] = f"{os.path.dirname(CTL)}:{os.environ['PATH']}"
        for name in ("XDG_CONFIG_HOME", "XDG_DATA_HOME"):
            self.environment[name] = self.directory.name

    def run_shell(self, *arguments):
        run = subprocess.run(arguments, env=self.environment, cwd=self.directory.name,
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=DEADLINE,
                             text=True, check=False)
        return run.stdout.splitlines()

    def bash(self, *words):
        return self.run_shell("bash", "-c", BASH, "bash", f"{self.completions}/{self.program}", self.program,
                              *words)

    def fish(self, line):
        script = "source $argv[1]; complete -C $argv[2]"
        lines = self.run_shell("fish", "--no-config", "-c", script,
                               f"{self.completions}/{self.program}.fish", f"{self.program} {line}")
        # Newer versions also offer words that have the letters in this order, with others between them.
        apart = re.compile(".*?".join(map(re.escape, line.split(" ")[-1])))
        offered = [text.split("\t")[0] for text in lines]
        return [text for text in offered if text.startswith(line.split(" ")[-1]) or not apart.search(text)]

    def check(self, complete):
        """Completes lines, of which the last word is incomplete."""
        for line, wanted in self.lines:
            with self.subTest(line=line):
                complete(line, wanted)

    def check_offered(self, offered, line, wanted):
        self.assertIn(wanted, offered)
        last = line.split(" ")[-1]
        self.assertEqual([text for text in offered if not text.startswith(last)], [])

    def check_bash(self):
        self.check(lambda line, wanted: self.check_offered(self.bash(*line.split(" ")), line, wanted))

    @unittest.skipUnless(shutil.which("fish"), "there is no fish")
    def test_fish_completes(self):
        self.check(lambda line, wanted: self.check_offered(self.fish(line), line, wanted))

    @unittest.skipUnless(shutil.which("zsh"), "there is no zsh")
    def test_zsh_completes(self):
        def complete(line, wanted):
            # Control-U empties the line.
            shell.write(f"\x15{self.program} {line}\t")
            shell.until(wanted)

        shell = Zsh(self)
        try:
            self.check(complete)
        finally:
            shell.close()


class ControlCompletionTest(ShellTest, ProgramTest):
    program = "emporiumctl"
    directory_of_completions = "emporiumctl/completions"

    def setUp(self):
        super().setUp()
        self.start_daemon()
        uuid = self.succeeds("remove", "--no-wait", "com.sample.weather").strip()
        self.package()
        self.lines = (("ope", "operations"),
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
                      (f"wait {uuid[:8]}", uuid),
                      ("watch --times", "--timestamps"),
                      ("status --wa", "--wait"),
                      ("record --fo", "--force"),
                      ("remove --no", "--no-wait"),
                      ("list --no", "--no-header"),
                      ("operations --sort pack", "package"),
                      ("--qui", "--quiet"),
                      ("--verb", "--verbose"),
                      ("--ho", "--host"),
                      ("errors FileC", "FileConflict"),
                      ("install ne", "new.pkg"),
                      ("record ne", "new.pkg"))

    def test_bash_completes(self):
        self.check_bash()

    def test_bash_offers_what_can_follow(self):
        self.assertIn("com.sample.notes", self.bash("remove", ""))
        self.assertEqual(self.bash("--color", "=", "nev"), ["never"])
        self.assertEqual(self.bash("list", "com"), [""])


class SimulatorCompletionTest(ShellTest, ProgramTest):
    program = "emporium-simulator"
    directory_of_completions = "simulator/completions"
    lines = (("--private-h", "--private-home"),
             ("--keep", "--keep-cache"),
             ("--verb", "--verbose"),
             ("--che", "--check"),
             ("--pau", "--paused"),
             ("--catalogue ne", "new.pkg"),
             ("--scenario ne", "new.pkg"),
             ("--replay ne", "new.pkg"),
             ("--make-package ne", "new.pkg"),
             ("--state fold", "folder/"),
             ("ct", "ctl"),
             ("ctl WaitForCa", "WaitForCall"),
             ("ctl FailCall Ins", "Install"),
             ("--private-bus -- unam", "uname"),
             ("--step-ms 5 --private-bus -- unam", "uname"),
             ("--private-bus --private-home -- unam", "uname"),
             ("--private-bus -- cat ne", "new.pkg"))

    def setUp(self):
        super().setUp()
        self.package()
        os.mkdir(self.file("folder"))

    def test_bash_completes(self):
        # bash itself appends the slash to a directory.
        self.lines = [(line, wanted.rstrip("/")) for line, wanted in self.lines]
        self.check_bash()


class Zsh:
    """An interactive zsh on a terminal: its completion runs only there."""

    def __init__(self, test):
        self.test = test
        pid, self.terminal = pty.fork()
        if pid == 0:
            os.chdir(test.directory.name)
            os.execvpe("zsh", ["zsh", "-f", "-i"], dict(test.environment, TERM="dumb", COLUMNS="300",
                                                        COMPLETIONS=test.completions))
        self.pid = pid
        self.text = ""
        self.write("PS1='> '; LISTMAX=9999; fpath=($COMPLETIONS $fpath); autoload -Uz compinit; "
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
