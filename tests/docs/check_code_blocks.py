#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Compiles and runs the code blocks of a document or a man page, in their order, in one directory.

A block in Markdown has a language:
  cpp    code with #include is compiled as it is, other code as the body of a function that has a
         `connection` and an `operation`
  sh     run by bash, with the library and the programs of the build installed; it must succeed
  text   what the preceding sh block must print
  json   must be valid, as one document or with a document in each line
A comment before a block says more: `<!-- file: NAME -->` writes the block into that file,
`<!-- on a private bus -->` runs it there, `<!-- not run: REASON -->` leaves it out.

In a man page, an example that begins with #include is a program, and each line of one that begins with a
program of ours is a command, which is run on a private bus, with a package file app.pkg.
"""
import argparse
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import textwrap

BLOCK = re.compile(r"(?:^ *<!-- (file: |not run: |on a private bus)(.*?) -->\n)?^ *```(\w*)\n(.*?)^ *```$",
                   re.MULTILINE | re.DOTALL)
FRAGMENT = """
#include <emporium/emporium.h>
#include <glib.h>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>
void Fragment(Emporium::DaemonConnection connection, Emporium::Operation operation)
{
"""

NOT_RUN = {" watch": "ends with Ctrl-C", " --host": "needs another machine"}


class Failed(Exception):
    """A block is not what the document says."""


def on_a_private_bus(commands):
    return f"emporium-simulator --step-ms 0 --private-bus -- bash -eu -c {shlex.quote(commands)}"


class Checker:
    def __init__(self, build, compiler, directory):
        self.directory = pathlib.Path(directory, "documents")
        self.directory.mkdir()
        installed = pathlib.Path(directory, "installed")
        self.compiler = compiler
        self.environment = dict(os.environ)
        # By component, which has its own manifest: the one of the user's real installation must stay.
        self.run(["cmake", "--install", build, "--component", "emporium", "--prefix", installed])
        library = next(installed.rglob("libemporium.so")).parent
        self.environment.update({
            "PATH": f"{installed / 'bin'}{os.pathsep}{os.environ['PATH']}",
            "PKG_CONFIG_PATH": str(library / "pkgconfig"), "LD_LIBRARY_PATH": str(library),
            "HOME": directory, "XDG_CACHE_HOME": f"{directory}/cache", "LC_ALL": "C.UTF-8",
            "VEYRA_APP_ID": "org.example.documents"})
        self.printed = ""
        self.flags = shlex.split(self.run(["pkg-config", "--cflags", "emporium", "glib-2.0"]))

    def run(self, command, text=None):
        done = subprocess.run(command, input=text, cwd=self.directory, env=self.environment,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              errors="surrogateescape", timeout=120, check=False)
        if done.returncode != 0:
            raise Failed(f"{shlex.join(map(str, command))} ended with {done.returncode}\n{text or ''}"
                         f"{done.stdout}{done.stderr}")
        return done.stdout

    def cpp(self, code):
        if "#include" not in code:
            code = FRAGMENT + code + "}\n"
        self.run([self.compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", "-Wno-unused",
                  "-Wno-unused-parameter",
                  "-fsyntax-only", "-x", "c++", *self.flags, "-"], code)

    def sh(self, code):
        self.printed = self.run(["bash", "-eu", "-c", code])

    def text(self, code):
        if self.printed != code:
            raise Failed(f"printed was\n{self.printed}instead of\n{code}")

    @staticmethod
    def json(code):
        try:
            json.loads(code)
        except json.JSONDecodeError:
            for line in code.splitlines():
                json.loads(line)

    def markdown(self, content):
        tried = 0
        for comment, text, language, code in BLOCK.findall(content):
            code = textwrap.dedent(code)
            if comment == "not run: ":
                print(f"left out ({text}): {code.splitlines()[0]}")
                continue
            if comment == "file: ":
                (self.directory / text).write_text(code, encoding="utf-8")
            if comment == "on a private bus":
                code = on_a_private_bus(code)
            if language in ("cpp", "sh", "text", "json"):
                getattr(self, language)(code)
                tried += 1
            elif language:
                raise Failed(f"a block of {language} needs a comment that says why it is not run")
        return tried

    def page(self, content):
        tried = 0
        self.sh("emporium-simulator --make-package app.pkg --id org.example.app --version 1.0")
        for block in re.findall(r"^\.(?:EX|nf)\n((?:emporium|#include).*?)^\.(?:EE|fi)$", content,
                                re.MULTILINE | re.DOTALL):
            for roff, plain in ((r"\-", "-"), (r"\(aq", "'"), (r"\(dq", '"'), (r"\(rs", "\\")):
                block = block.replace(roff, plain)
            if block.startswith("#include"):
                self.cpp(block)
                tried += 1
                continue
            for line in block.splitlines():
                self.command(line)
                tried += 1
        return tried

    def command(self, line):
        for part, reason in NOT_RUN.items():
            if part in line:
                print(f"left out ({reason}): {line}")
                return
        self.sh(line if "--private-bus" in line else on_a_private_bus(line))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("compiler")
    parser.add_argument("document", type=pathlib.Path)
    options = parser.parse_args()
    content = options.document.read_text(encoding="utf-8")
    # Not in TMPDIR, whose path may have spaces: at them, the shell splits what pkg-config prints.
    with tempfile.TemporaryDirectory(dir="/tmp") as directory:
        checker = Checker(options.build, options.compiler, directory)
        try:
            is_page = options.document.suffix != ".md"
            tried = checker.page(content) if is_page else checker.markdown(content)
        except Failed as reason:
            sys.exit(f"{options.document.name}: {reason}")
    print(f"{options.document.name}: {tried} blocks")


if __name__ == "__main__":
    main()
