# SPDX-License-Identifier: BSD-3-Clause
"""Checks every #include of the sources against the arrows of the architecture.

usage: check_includes.py DIRECTORY [--sample]

Prints each include that is not allowed, and exits 1 if there is one. With --sample, the directory
marks those lines itself, and the check must find exactly these.
"""
import pathlib
import re
import sys

PUBLIC_COMMON = ["<common/"]
PUBLIC = ["<emporium/"] + PUBLIC_COMMON
COMMON = ['"common/'] + PUBLIC_COMMON
SEAM = ['"dbus/idbus_proxy.h', '"dbus/properties.h']
GLIB = ["<glib", "<gio/"]

# What the files of a folder may include. The first entry that matches a file counts.
ARROWS = {
    "include/common/": PUBLIC_COMMON,
    "include/emporium/": PUBLIC,
    "src/common/": COMMON + ["<boost/"],
    "src/model/": ['"model/', "<boost/"] + COMMON + PUBLIC,
    "src/dbus/idbus_proxy.h": SEAM + PUBLIC + ["<boost/"],
    "src/dbus/properties.": SEAM + ['"model/'] + PUBLIC,
    "src/dbus/dbus_connection.cpp": ['"dbus/', "<sdbus-c++/"] + COMMON + GLIB,
    "src/dbus/": ['"dbus/', "<sdbus-c++/", '"model/'] + COMMON + PUBLIC,
    "src/client/": ['"client/', '"model/', "<boost/", "<appdir.h"] + SEAM + COMMON + PUBLIC,
    "platform/": ['"appdir.h', '"common/fs/file_name.h'],
    "text/": GLIB,
    "simulator/": ['"text/', '"common/errors/', '"common/log/', '"common/fs/file_descriptor.h',
                   '"dbus/contract.h', "<CLI/", "<nlohmann/"] + PUBLIC_COMMON + GLIB,
    "testing/include/": PUBLIC,
    "testing/": ['"simulator/bus/private_', '"simulator/faults/control_contract.h',
                 '"simulator/glib_ptr.h', '"common/fs/file_descriptor.h', "<emporium/testing/"] + GLIB,
    "emporiumctl/": ['"emporiumctl/', '"text/', "<CLI/", "<nlohmann/"] + PUBLIC + GLIB,
}
# The includes that are checked. All others are from the system, the C++ library or the same folder.
TARGET = re.compile(r"""\s*\#\s*include\s*
    (?:["<](?:client|common|dbus|model|emporium|emporiumctl|simulator|testing|text)/|["<]appdir\.h|
    <(?:sdbus|systemd|glib|gio|boost|CLI|nlohmann))""", re.VERBOSE)


def includes(root, name):
    for number, line in enumerate((root / name).read_text(encoding="utf-8").splitlines(), 1):
        if TARGET.match(line):
            yield f"{name}:{number}: {line}", re.search('["<].*', line)[0]


def main():
    root, sample = pathlib.Path(sys.argv[1]), "--sample" in sys.argv
    bad, marked = [], []
    for place in ("include", "src", "platform", "text", "simulator", "emporiumctl", "testing"):
        for path in sorted((root / place).rglob("*.h")) + sorted((root / place).rglob("*.cpp")):
            name = path.relative_to(root).as_posix()
            allowed = [arrows for start, arrows in ARROWS.items() if name.startswith(start)]
            for line, target in includes(root, name):
                if not allowed or not target.startswith((*allowed[0], f'"{place}/')):
                    bad.append(line)
                if "// not allowed" in line:
                    marked.append(line)
    wrong = set(bad) ^ set(marked) if sample else bad
    print("\n".join(sorted(wrong)) or "every include follows the arrows")
    return 1 if wrong or sample and not bad else 0


sys.exit(main())
