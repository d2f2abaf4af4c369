#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Checks that docs/errors.md and the header describe every code as `emporiumctl errors` prints it."""
import json
import pathlib
import re
import subprocess
import sys

source, ctl = pathlib.Path(sys.argv[1]), sys.argv[2]
printed = subprocess.run([ctl, "--json", "errors"], check=True, stdout=subprocess.PIPE, text=True)
expected = {(row["code"], row["name"], row["message"]) for row in json.loads(printed.stdout)}

document = (source / "docs/errors.md").read_text(encoding="utf-8")
table = {(int(code), name, message)
         for code, name, message in re.findall(r"^\| (\d+) \| `(\w+)` \| (.*?) \| \S", document, re.M)}

header = (source / "include/common/error.h").read_text(encoding="utf-8")
comments = {(int(code), name, " ".join(comment.replace("///", "").split()).rstrip("."))
            for comment, name, code in re.findall(r"((?:^    /// .*\n)+)    (\w+) = (\d+),$", header, re.M)}

for name, found in (("docs/errors.md", table), ("include/common/error.h", comments)):
    if found != expected:
        sys.exit(f"{name} differs from the error model: {sorted(found ^ expected)}")
print(f"{len(expected)} codes")
