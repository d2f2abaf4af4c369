# SPDX-License-Identifier: BSD-3-Clause
"""Checks that each installed file belongs to one package, the same one in debian/ and in the RPM.

usage: check_files.py SOURCE_DIR BUILD_DIR

scripts/package finds that too, but takes minutes. A new file needs a line in debian/*.install and in
packaging/libemporium.spec.
"""
import fnmatch
import pathlib
import re
import subprocess
import sys
import tempfile

# The directories that the RPM names with macros, as in debian/*.install.
MACROS = {
    "%{_bindir}": "usr/bin",
    "%{_datadir}": "usr/share",
    "%{_includedir}": "usr/include",
    "%{_libdir}": "usr/lib/*",
    "%{_mandir}": "usr/share/man",
    "%{soversion}": "0",
}
DEBIAN_NAMES = {"": "libemporium0", "devel": "libemporium-dev", "doc": "libemporium-doc"}


def installed_files(build_dir):
    """Every file, under the name that it has in a package of Debian."""
    with tempfile.TemporaryDirectory() as prefix:
        subprocess.run(
            ["cmake", "--install", build_dir, "--component", "emporium", "--prefix", prefix],
            check=True, stdout=subprocess.DEVNULL)
        paths = [path for path in pathlib.Path(prefix).rglob("*") if not path.is_dir()]
        for path in sorted(paths):
            name = "usr/" + str(path.relative_to(prefix))
            if not re.match("usr/lib(64)?/[a-z0-9_]+-linux-", name):
                name = re.sub("^usr/lib(64)?/", "usr/lib/ARCHITECTURE/", name)
            yield name.replace("/zsh/site-functions/", "/zsh/vendor-completions/")


def debian_patterns(source_dir):
    for file in sorted((source_dir / "debian").glob("*.install")):
        for line in file.read_text().splitlines():
            words = line.split()
            if len(words) == 1 and not line.startswith("#"):  # two are a file of the source and its place
                yield file.stem, words[0]


def rpm_patterns(source_dir):
    package = None
    for line in (source_dir / "packaging/libemporium.spec").read_text().splitlines():
        if line.startswith("%files"):
            name = line.split()[1:]
            package = name[1] if name[:1] == ["-n"] else DEBIAN_NAMES["".join(name)]
        elif line == "%changelog":
            package = None
        elif package and line.startswith("%{"):
            for macro, place in MACROS.items():
                line = line.replace(macro, place)
            yield package, line.replace("/zsh/site-functions/", "/zsh/vendor-completions/")


def packages_of(name, patterns):
    return sorted({package for package, pattern in patterns
                   if fnmatch.fnmatchcase(name, pattern) or fnmatch.fnmatchcase(name, pattern + "/*")})


def main():
    source_dir = pathlib.Path(sys.argv[1])
    families = {"debian/*.install": list(debian_patterns(source_dir)),
                "libemporium.spec": list(rpm_patterns(source_dir))}
    files = list(installed_files(sys.argv[2]))
    wrong = 0
    for name in files:
        found = {family: packages_of(name, patterns) for family, patterns in families.items()}
        if not all(len(packages) == 1 for packages in found.values()) or len(
                {packages[0] for packages in found.values()}) != 1:
            wrong += 1
            print(f"{name}: " + "; ".join(
                f"in {family}: {', '.join(packages) or 'in no package'}"
                for family, packages in found.items()))
    if len(files) < 20:
        print(f"only {len(files)} files are installed")
        wrong += 1
    if not wrong:
        print(f"{len(files)} files, each in the same package of both families")
    return 1 if wrong else 0


sys.exit(main())
