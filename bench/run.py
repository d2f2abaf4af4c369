#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Measures the library beside its peers and prints one table.

Everything is interleaved: in each round every peer has its turn, in an order that changes, so that
a machine that grows slower for a while does so for all; raw sd-bus and the library are neighbours.
A ratio is the median of the ratios within the rounds; the spread is half the distance between the
quartiles, in per cent of the median.
"""

import argparse
import datetime
import json
import os
import platform
import random
import re
import statistics
import subprocess
import sys

from bus import Bus, Feeder, run

BASE = "sd-bus"
LIBRARY = "library"
PEERS = {
    BASE: "raw sd-bus",
    LIBRARY: "libemporium",
    "sdbus-cpp": "obvious sdbus-c++",
    "gdbus": "GDBus by hand",
    "gdbus-generated": "GDBus generated",
    "qtdbus": "QtDBus",
}
DECODERS = {
    BASE: "DecodeProperties",
    LIBRARY: "Emporium::Decoder::ReadProperties(sdbus::Message&)",
}


def significant(value):
    """Three digits, which is more than any of this is steady to."""
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def spread(values):
    """Half the distance between the quartiles, in per cent of the median."""
    median = statistics.median(values)
    quartiles = statistics.quantiles(values, n=4, method="inclusive")
    return 50 * (quartiles[2] - quartiles[0]) / median


def plus_minus(values):
    """Nothing for what is not measured often enough to have a spread."""
    return f" ±{spread(values):.0f}%" if len(values) > 2 else ""


class Row:
    """One work, measured for some of the peers; a value for each round."""

    def __init__(self, work, unit, divisor=1.0):
        self.work = work
        self.unit = unit
        self.divisor = divisor
        self.values = {}

    def add(self, peer, value):
        self.values.setdefault(peer, []).append(value / self.divisor)

    def ratios(self, peer, base=BASE):
        pairs = zip(self.values[peer], self.values[base])
        return [value / other for value, other in pairs]

    def ratio(self, peer, base=BASE):
        return statistics.median(self.ratios(peer, base))

    def cell(self, peer, base=BASE):
        values = self.values.get(peer)
        if not values:
            return "-"
        text = significant(statistics.median(values)) + plus_minus(values)
        if peer != base and self.values.get(base):
            text += f" = {self.ratio(peer, base):.2f}"
        return text


class Bench:
    """All that is measured, in the order in which it is printed."""

    def __init__(self, programs, bus, feeder, quick):
        self.programs = programs
        self.bus = bus
        self.feeder = feeder
        self.quick = quick
        self.peers = [peer for peer in PEERS if os.path.exists(self.program("peer-" + peer))]
        self.random = random.Random(20261121)
        self.rows = {}

    def program(self, name):
        return os.path.join(self.programs, name)

    def row(self, key, work, unit, divisor=1.0):
        return self.rows.setdefault(key, Row(work, unit, divisor))

    def turns(self, rounds):
        """The peers of all rounds, each round in an order of its own. The two that the marks compare
        come one right after the other."""
        for _ in range(rounds):
            pair = [BASE, LIBRARY]
            self.random.shuffle(pair)
            order = [peer for peer in self.peers if peer not in pair]
            self.random.shuffle(order)
            place = self.random.randint(0, len(order))
            yield from order[:place] + pair + order[place:]

    def peer(self, name, *arguments, **options):
        return run(self.program("peer-" + name), self.bus, *arguments, **options)

    def load(self, packages, entries, rounds):
        say(f"initial load, {packages:,} packages, {entries} entries")
        self.feeder.command("packages", packages, entries)
        what = f"{packages:,} packages, {entries} entries"
        for name in self.turns(rounds):
            opened, *loaded = self.peer(name, "load", 5)
            if opened["packages"] != packages:
                raise SystemExit(f"{name} has {opened['packages']} packages, not {packages}")
            key = (packages, entries)
            self.row(("load", *key), "call and decode, " + what, "ms", 1e6).add(
                name, statistics.median(load["load_wall"] for load in loaded))
            self.row(("load processor", *key), "- thereof processor time", "ms", 1e6).add(
                name, statistics.median(load["load_processor"] for load in loaded))
            self.row(("memory", *key), "- peak memory of the process", "MiB", 1024).add(
                name, opened["peak_memory"])
            self.row(("own memory", *key), "- thereof not mapped from files", "MiB", 1024).add(
                name, opened["peak_own_memory"])

    def signals(self, packages, count, rounds):
        say(f"{count:,} signals, {packages:,} packages")
        self.feeder.command("packages", packages, 4)
        self.feeder.command("flood", 0)
        for name in self.turns(rounds):
            told = self.peer(name, "signals", count,
                             when_ready=lambda _: self.feeder.command("flood", count))[-1]
            if told["received"] != count:
                raise SystemExit(f"{name} has received {told['received']} of {count} signals")
            what = f"{count:,} signals to a subscriber, {packages:,} packages"
            self.row(("signals", packages), what + ", processor time", "ms", 1e6).add(
                name, told["signals_processor"])

    def calls(self, count, rounds):
        say(f"{count:,} calls of Start")
        self.feeder.command("packages", 100, 4)
        for name in self.turns(rounds):
            told = self.peer(name, "calls", count)[-1]
            self.row("call processor", "round trip of Start, processor time", "µs", 1e3).add(
                name, told["call_processor"])
            self.row("call", "- from call to return", "µs", 1e3).add(name, told["call_wall"])

    def start_up(self, rounds):
        say("start-up")
        self.feeder.command("packages", 200, 4)
        for name in self.turns(rounds):
            told = self.peer(name, "start-up", "org.example.package-150")[-1]
            if told["version"] != "1.20.3":
                raise SystemExit(f"{name} has answered {told['version']}")
            what = "start-up to the first answered query, 200 packages, four subscriptions"
            self.row("start", what, "ms", 1e6).add(name, told["start_wall"])
            self.row("start processor", "- thereof processor time", "ms", 1e6).add(
                name, told["start_processor"])
            self.row("open", "- thereof connecting and the initial load", "ms", 1e6).add(
                name, told["open_wall"])

    def loading(self, rounds):
        """What the dynamic linker does before main(), as it tells itself."""
        say("dynamic linking")
        environment = self.bus.environment | {"LD_DEBUG": "statistics"}
        for name in self.turns(rounds):
            told = subprocess.run([self.program("peer-" + name)], env=environment,
                                  capture_output=True, text=True, check=False).stderr

            def number(pattern):
                return int(re.search(pattern + r"\D*(\d+)", told).group(1))

            self.row("linking", "- thereof in the dynamic linker", "kilocycles", 1e3).add(
                name, number("total startup time in dynamic loader:"))
            self.row("relocations", "- relocations, of symbols and relative", "").add(
                name, number(r"\bnumber of relocations:")
                + number("number of relative relocations:"))

    def instructions(self, name, *arguments, decoder=False, **options):
        output = os.path.join(self.bus.directory.name, "callgrind.out")
        wrapper = ["valgrind", "--tool=callgrind", "--callgrind-out-file=" + output]
        if decoder:
            wrapper.append("--toggle-collect=" + DECODERS[name])
        self.peer(name, *arguments, wrapper=wrapper, **options)
        with open(output, encoding="utf-8") as file:
            return int(re.search(r"^(?:summary|totals): (\d+)", file.read(), re.M).group(1))

    def decode_instructions(self, packages, entries):
        say(f"instructions of decoding, {packages:,} packages, {entries} entries")
        self.feeder.command("packages", packages, entries)
        what = f"decode, {packages:,} packages, {entries} entries, instructions"
        for name in DECODERS:
            self.row(("decode", packages, entries), what, "millions", 1e6).add(
                name, self.instructions(name, "load", 0, decoder=True))

    def step_instructions(self, key, work, task, few, many, packages=100, entries=4):
        """Of one step, from two runs of different length."""
        say("instructions: " + work)
        self.feeder.command("packages", packages, entries)
        for name in self.peers:
            counts = [self.instructions(
                name, task, count, when_ready=lambda _, n=count: self.feeder.command("flood", n))
                for count in (few, many)]
            self.row(key, work + ", instructions", "thousands", 1e3).add(
                name, (counts[1] - counts[0]) / (many - few))

    def memory_by_file(self, packages, entries):
        """What is resident after the load, in KiB: {peer: {file: size}}."""
        say("memory by file")
        self.feeder.command("packages", packages, entries)
        sizes = {}

        def look(name, pid):
            sizes[name] = resident_by_file(pid)
            self.feeder.command("flood", 1)

        for name in (BASE, LIBRARY):
            self.peer(name, "signals", 1, when_ready=lambda pid, n=name: look(n, pid))
        return sizes

    def beyond_the_protocol(self):
        say("more than the protocol allows in one array")
        self.feeder.command("packages", 100_000, 16)
        log = []
        opened = self.peer(LIBRARY, "load", 0, log=log)[0]
        if opened["packages"] != 0:
            raise SystemExit("a reply beyond the protocol's limits was taken")
        return "".join(log).strip()


# What is measured in one process: the work, its unit, the benchmark, and the one it is compared to.
IN_PROCESS = [
    ("lookup at 50, beside a plain scan", "ns", "FindInIndex/50", "FindByScan/50"),
    ("lookup at 100, beside a plain scan", "ns", "FindInIndex/100", "FindByScan/100"),
    ("GetPackage at 10,000, beside 100", "ns",
     "GetPackageOfAHundred/10000", "GetPackageOfAHundred/100"),
    ("GetPackage at 100,000, beside 100", "ns",
     "GetPackageOfAHundred/100000", "GetPackageOfAHundred/100"),
    ("GetPackage of every package in turn at 100,000, beside 100", "ns",
     "GetPackageOfAll/100000", "GetPackageOfAll/100"),
    ("the same in a std::unordered_map, beside 100", "ns",
     "FindAllInMap/100000", "FindAllInMap/100"),
    ("a package upgraded at 100,000, beside 100", "ns",
     "PackageUpgraded/100000", "PackageUpgraded/100"),
    ("a package removed and installed at 100,000, beside 100", "ns",
     "PackageRemovedAndInstalled/100000", "PackageRemovedAndInstalled/100"),
    ("an operation changed at 100,000, beside 100", "ns",
     "OperationChanged/100000", "OperationChanged/100"),
    ("GetPackageList at 100, beside the copy of a vector", "µs",
     "GetPackageList/100", "CopyVector/100"),
    ("GetPackageList at 10,000, beside the copy of a vector", "µs",
     "GetPackageList/10000", "CopyVector/10000"),
    ("GetPackageList with a filter at 10,000, beside std::copy_if", "µs",
     "GetPackageListFiltered/10000", "CopyVectorFiltered/10000"),
    ("decode 10,000 packages, beside maps of variants", "ms",
     "DecodeReply/10000", "DecodeVariants/10000"),
    ("cache of 10,000 operations, beside plain files", "ms",
     "WriteAndReadCache/10000", "WriteAndReadPlainFiles/10000"),
]
NANOSECONDS = {"ns": 1.0, "µs": 1e3, "ms": 1e6}


def in_process_rows(program, bus, quick):
    """The rows of IN_PROCESS: {work: row}."""
    say("in one process")
    # The cache's files are in memory: on a disk, what thousands of new files cost depends on how
    # many were removed in the last minutes, more than on who makes them.
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with Bus.directory_in(memory) as directory:
        result = subprocess.run(
            [program, "--benchmark_format=json",
             "--benchmark_enable_random_interleaving=true",
             f"--benchmark_repetitions={3 if quick else 9}",
             f"--benchmark_min_time={0.02 if quick else 0.1}"],
            env=bus.environment | {"XDG_CACHE_HOME": os.path.join(directory, "in-process")},
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True).stdout
    times = {}
    for benchmark in json.loads(result)["benchmarks"]:
        if benchmark["run_type"] == "iteration":
            name = benchmark["run_name"].removesuffix("/real_time")
            unit = benchmark["time_unit"].replace("us", "µs")
            times.setdefault(name, []).append(benchmark["real_time"] * NANOSECONDS[unit])
    rows = {}
    for work, unit, measured, base in IN_PROCESS:
        rows[work] = Row(work, unit, NANOSECONDS[unit])
        for column, name in (("measured", measured), ("base", base)):
            for time in times[name]:
                rows[work].add(column, time)
    return rows


def resident_by_file(pid):
    sizes = {}
    with open(f"/proc/{pid}/smaps", encoding="utf-8") as file:
        for line in file:
            mapping = re.match(r"[0-9a-f]+-[0-9a-f]+ \S+ \S+ \S+ \d+\s*(.*)", line)
            if mapping:
                path = mapping.group(1)
                # Not the version, and one name for the program itself.
                name = re.sub(r"\.so\b.*", "", os.path.basename(path))
                if not path.startswith("/"):
                    name = "(its own)"
                elif name.startswith("peer-"):
                    name = "(the program)"
            elif line.startswith("Rss:"):
                sizes[name] = sizes.get(name, 0) + int(line.split()[1])
    return sizes


def say(what):
    print("  " + what, file=sys.stderr, flush=True)


def print_table(header, lines):
    print("| " + " | ".join(header) + " |")
    print("|" + "---|" * len(header))
    for line in lines:
        print("| " + " | ".join(line) + " |")
    print()


def print_results(bench):
    names = [peer for peer in bench.peers if peer != BASE]
    print_table(
        ["work", "unit", PEERS[BASE], *[PEERS[name] for name in names]],
        [[row.work, row.unit, *[row.cell(name) for name in [BASE, *names]]]
         for row in bench.rows.values()])


def print_marks(bench, in_process):
    """What the library set itself, and where it is."""
    def add(work, limit, row, peer, base, least=False):
        ratio = row.ratio(peer, base)
        met = ratio >= limit if least else ratio <= limit
        lines.append([work, f"at {'least' if least else 'most'} {limit}",
                      f"{ratio:.2f}" + plus_minus(row.ratios(peer, base)),
                      "met" if met else "missed"])

    def at_most(limit, key):
        row = bench.rows[key]
        work = row.work
        if work.startswith("- "):  # belongs to a row above
            work = f"{work[2:]}, {key[1]:,} packages, {key[2]} entries"
        marked.append((work, row))
        add(work, limit, row, LIBRARY, BASE)

    lines = []
    marked = []
    at_most(0.85, ("decode", 1000, 4))
    for entries in (4, 16):
        at_most(1.0, ("load", 10_000, entries))
    for entries in (4, 16):
        at_most(1.1, ("memory", 10_000, entries))
    for packages in (100, 10_000):
        at_most(1.15, ("signals", packages))
    at_most(1.15, "call processor")
    at_most(1.25, "start")

    for peers, limit in ((("gdbus", "gdbus-generated"), 2.0), (("qtdbus",), 1.0)):
        measured = [(work, row, peer) for work, row in marked for peer in peers
                    if row.values.get(peer)]
        if measured:
            work, row, peer = min(measured, key=lambda one: one[1].ratio(one[2], LIBRARY))
            add(f"{PEERS[peer]} beside libemporium, the closest of these rows: {work}",
                limit, row, peer, LIBRARY, least=True)

    for work, limit in (("GetPackage at 100,000, beside 100", 1.5),
                        ("lookup at 50, beside a plain scan", 1.0),
                        ("cache of 10,000 operations, beside plain files", 2.0)):
        add(work, limit, in_process[work], "measured", "base")
    print_table(["mark", "limit", "measured", ""], lines)


def print_memory(sizes):
    """The files that make a difference, in KiB."""
    def row(file):
        return [sizes[name].get(file, 0) for name in (BASE, LIBRARY)]

    files = sorted({file for peer in sizes.values() for file in peer},
                   key=lambda file: row(file)[0] - row(file)[1])
    print_table(["resident after the load, 10,000 packages, 4 entries, KiB", PEERS[BASE],
                 PEERS[LIBRARY]],
                [[file, *map(str, row(file))] for file in files
                 if abs(row(file)[0] - row(file)[1]) >= 32])


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = re.findall(r"^model name\s*: (.*)$", file.read(), re.M)
    return f"{len(models)} × {models[0]}" if models else platform.machine()


def measure(bench, programs, bus):
    quick = bench.quick
    loads = [(200, 4, 5), (1000, 4, 5), (10_000, 4, 7), (10_000, 16, 3)] if quick else [
        (packages, entries, rounds)
        for packages, rounds in ((100, 21), (200, 21), (1000, 15), (10_000, 11), (100_000, 3))
        for entries in (0, 4, 16) if (packages, entries) != (100_000, 16)]
    for packages, entries, rounds in loads:
        bench.load(packages, entries, rounds)
    for entries in (4,) if quick else (0, 4, 16):
        bench.decode_instructions(1000, entries)
    for packages in (100, 10_000):
        bench.signals(packages, 20_000 if quick else 100_000, 5 if quick else 9)
    bench.calls(2000 if quick else 10_000, 15)
    bench.start_up(11 if quick else 51)
    bench.loading(5 if quick else 21)
    if not quick:
        for entries in (0, 4, 16):
            bench.step_instructions(
                ("load instructions", entries),
                f"call, decode and drop, 1,000 packages, {entries} entries",
                "load", 1, 3, 1000, entries)
        bench.step_instructions("signal instructions", "signal", "signals", 500, 1500)
        bench.step_instructions("call instructions", "round trip of Start", "calls", 500, 1500)
    in_process = in_process_rows(os.path.join(programs, "in-process"), bus, quick)
    if quick:
        return in_process, None, None
    return in_process, bench.memory_by_file(10_000, 4), bench.beyond_the_protocol()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("programs", help="the directory with the built benchmarks")
    parser.add_argument("--quick", action="store_true",
                        help="fewer sizes and fewer rounds: ends within three minutes")
    options = parser.parse_args()
    with Bus() as bus, Feeder(os.path.join(options.programs, "feeder"), bus) as feeder:
        bench = Bench(options.programs, bus, feeder, options.quick)
        in_process, memory, refusal = measure(bench, options.programs, bus)

    print(f"{datetime.date.today()}, {processor()}, "
          f"Linux {platform.release().partition('-')[0]}; each cell: "
          f"median ±spread = ratio to {PEERS[BASE]}\n")
    print_results(bench)
    print_table(["in one process", "unit", "compared to", "library"],
                [[row.work, row.unit, row.cell("base", "base"), row.cell("measured", "base")]
                 for row in in_process.values()])
    print_marks(bench, in_process)
    if memory is not None:
        print_memory(memory)
    if refusal is not None:
        print("100,000 packages with 16 entries, more than the 64 MiB that the protocol allows "
              f"in one array:\n\n{refusal}")


if __name__ == "__main__":
    main()
