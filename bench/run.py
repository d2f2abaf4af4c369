#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Compares the library with its peers; prints the tables, and after a full run writes the results
into the repository.

All measurements are interleaved: each round runs every peer once, in random order, so that a machine
that becomes slower for a while affects all of them; raw sd-bus and the library always run one right
after the other. A ratio is the median of the ratios within the rounds; the spread is half the distance
between the quartiles, in per cent of the median.
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
import time

import report
from bus import Bus, Feeder, run
from results import BASE, LIBRARY, PEERS, PLAIN_FILES, Results, Row

DECODERS = {
    BASE: "DecodeProperties",
    LIBRARY: "Emporium::Decoder::ReadProperties(sdbus::Message&)",
}


class Bench:
    """All measurements on the bus, in the order in which they are printed."""

    def __init__(self, programs, bus, feeder, quick):
        self.programs = programs
        self.bus = bus
        self.feeder = feeder
        self.quick = quick
        self.peers = [peer for peer in PEERS if os.path.exists(self.program("peer-" + peer))]
        self.random = random.Random(20261121)
        self.results = Results()

    def program(self, name):
        return os.path.join(self.programs, name)

    def add(self, key, name, value, *row):
        self.results.peers.setdefault(key, Row(*row)).add(name, value)

    def turns(self, rounds):
        """The peers of all rounds, each round in random order. The two that the marks compare are
        always adjacent."""
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
        task = f"call and decode, {packages:,} packages, {entries} entries"
        size = f"/{packages}/{entries}"
        for name in self.turns(rounds):
            opened, *loaded = self.peer(name, "load", 5)
            if opened["packages"] != packages:
                raise SystemExit(f"{name} has {opened['packages']} packages, not {packages}")
            wall = statistics.median(load["load_wall"] for load in loaded)
            processor = statistics.median(load["load_processor"] for load in loaded)
            self.add("load" + size, name, wall / 1e6, task, "ms")
            self.add("load processor" + size, name, processor / 1e6, task, "ms", "processor time")
            self.add("memory" + size, name, opened["peak_memory"] / 1024, task, "MiB",
                     "peak memory of the process")
            self.add("own memory" + size, name, opened["peak_own_memory"] / 1024, task, "MiB",
                     "memory not mapped from files")

    def signals(self, packages, count, rounds):
        say(f"{count:,} signals, {packages:,} packages")
        self.feeder.command("packages", packages, 4)
        self.feeder.command("flood", 0)
        task = f"{count:,} signals to a subscriber, {packages:,} packages, processor time"
        for name in self.turns(rounds):
            reported = self.peer(name, "signals", count,
                             when_ready=lambda _: self.feeder.command("flood", count))[-1]
            if reported["received"] != count:
                raise SystemExit(f"{name} has received {reported['received']} of {count} signals")
            self.add(f"signals/{packages}", name, reported["signals_processor"] / 1e6, task, "ms")

    def calls(self, count, rounds):
        say(f"{count:,} calls of Start")
        self.feeder.command("packages", 100, 4)
        task = "round trip of Start"
        for name in self.turns(rounds):
            reported = self.peer(name, "calls", count)[-1]
            self.add("call", name, reported["call_wall"] / 1e3, task, "µs")
            self.add("call processor", name, reported["call_processor"] / 1e3, task, "µs",
                     "processor time")

    def start_up(self, rounds):
        say("start-up")
        self.feeder.command("packages", 200, 4)
        task = "start-up to the first answered query, 200 packages, four subscriptions"
        for name in self.turns(rounds):
            reported = self.peer(name, "start-up", "org.example.package-150")[-1]
            if reported["version"] != "1.20.3":
                raise SystemExit(f"{name} has answered {reported['version']}")
            self.add("start", name, reported["start_wall"] / 1e6, task, "ms")
            self.add("start processor", name, reported["start_processor"] / 1e6, task, "ms",
                     "processor time")
            self.add("open", name, reported["open_wall"] / 1e6, task, "ms",
                     "connecting and the initial load")
        self.dynamic_linking(task, min(rounds, 21))

    def dynamic_linking(self, task, rounds):
        """The cost of the dynamic linker before main(), from its own statistics."""
        environment = self.bus.environment | {"LD_DEBUG": "statistics"}
        for name in self.turns(rounds):
            reported = subprocess.run([self.program("peer-" + name)], env=environment,
                                  capture_output=True, text=True, check=False).stderr

            def number(pattern):
                return int(re.search(pattern + r"\D*(\d+)", reported).group(1))

            cycles = number("total startup time in dynamic loader:")
            relocations = (number(r"\bnumber of relocations:")
                           + number("number of relative relocations:"))
            self.add("linking", name, cycles / 1e3, task, "kilocycles", "the dynamic linker")
            self.add("relocations", name, relocations, task, "", "relocations")

    def exits(self, place, parent, completed, rounds):
        """Times a process from start to exit, in the steady state: the daemon reports the completed
        operations that the previous process has stored."""
        say(f"start to exit, {completed} completed operations, {place}")
        self.feeder.command("packages", 200, 4, completed)
        row = Row(f"start to exit, {completed} completed operations, {place}", "ms")
        self.results.exits[f"{completed}/{place}"] = row
        with Bus.directory_in(parent) as directory:
            stored = {LIBRARY: os.path.join(directory, self.bus.environment["VEYRA_APP_ID"],
                                            "emporium-api", "completed-operations"),
                      PLAIN_FILES: os.path.join(directory, "plain")}
            commands = {name: [self.program("peer-" + name), "exit", "200"]
                        for name in (BASE, LIBRARY)}
            self.until_exit(commands[LIBRARY], directory)
            size = max((entry.stat().st_size for entry in os.scandir(stored[LIBRARY])), default=0)
            commands[PLAIN_FILES] = [self.program("plain-files"), stored[PLAIN_FILES],
                                     str(completed), str(size)]
            self.until_exit(commands[PLAIN_FILES], directory)
            for name in self.orders(commands, rounds):
                row.add(name, self.until_exit(commands[name], directory) / 1e6)
                if name in stored and len(os.listdir(stored[name])) != completed:
                    raise SystemExit(f"{name} has not stored {completed} completed operations")

    def orders(self, names, rounds):
        for _ in range(rounds):
            yield from self.random.sample(list(names), len(names))

    def until_exit(self, command, directory):
        environment = self.bus.environment | {"XDG_CACHE_HOME": directory}
        started = time.monotonic_ns()
        subprocess.run(command, env=environment, stdout=subprocess.DEVNULL, check=True)
        return time.monotonic_ns() - started

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
        task = f"decode, {packages:,} packages, {entries} entries, instructions"
        for name in DECODERS:
            self.add(f"decode/{packages}/{entries}", name,
                     self.instructions(name, "load", 0, decoder=True) / 1e6, task, "millions")

    def step_instructions(self, key, task, command, few, many, packages=100, entries=4):
        """The instructions of one step, computed from two runs of different length."""
        say("instructions: " + task)
        self.feeder.command("packages", packages, entries)
        for name in self.peers:
            counts = [self.instructions(
                name, command, count,
                when_ready=lambda _, n=count: self.feeder.command("flood", n))
                for count in (few, many)]
            self.add(key, name, (counts[1] - counts[0]) / (many - few) / 1e3,
                     task + ", instructions", "thousands")

    def memory_by_file(self, packages, entries):
        """The resident memory after the load, in KiB: {peer: {file: size}}."""
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
            raise SystemExit("a reply beyond the protocol's limits was accepted")
        return "".join(log).strip()


# The measurements in one process: key, task, unit, the benchmark and the one it is compared with.
IN_PROCESS = [
    ("scan/50", "lookup at 50 / a plain scan", "ns", "FindInIndex/50", "FindByScan/50"),
    ("scan/100", "lookup at 100 / a plain scan", "ns", "FindInIndex/100", "FindByScan/100"),
    ("GetPackage/10000", "GetPackage of a hundred IDs at 10,000 / at 100", "ns",
     "GetPackageOfAHundred/10000", "GetPackageOfAHundred/100"),
    ("GetPackage/100000", "GetPackage of a hundred IDs at 100,000 / at 100", "ns",
     "GetPackageOfAHundred/100000", "GetPackageOfAHundred/100"),
    ("upgraded/100000", "a package upgraded at 100,000 / at 100", "ns",
     "PackageUpgraded/100000", "PackageUpgraded/100"),
    ("reinstalled/100000", "a package removed and installed at 100,000 / at 100", "ns",
     "PackageRemovedAndInstalled/100000", "PackageRemovedAndInstalled/100"),
    ("operation/100000", "an operation changed at 100,000 / at 100", "ns",
     "OperationChanged/100000", "OperationChanged/100"),
    ("GetPackage of all/100000", "GetPackage of every package in turn at 100,000 / at 100",
     "ns", "GetPackageOfAll/100000", "GetPackageOfAll/100"),
    ("map of all/100000", "the same in a std::unordered_map", "ns",
     "FindAllInMap/100000", "FindAllInMap/100"),
    ("list/100", "GetPackageList at 100 / the copy of a vector", "µs",
     "GetPackageList/100", "CopyVector/100"),
    ("list/10000", "GetPackageList at 10,000 / the copy of a vector", "µs",
     "GetPackageList/10000", "CopyVector/10000"),
    ("filtered list/10000", "GetPackageList with a filter at 10,000 / std::copy_if", "µs",
     "GetPackageListFiltered/10000", "CopyVectorFiltered/10000"),
    ("decode/10000", "decode 10,000 packages / maps of variants", "ms",
     "DecodeReply/10000", "DecodeVariants/10000"),
    ("cache/10000", "cache of 10,000 operations / plain files", "ms",
     "WriteAndReadCache/10000", "WriteAndReadPlainFiles/10000"),
]
NANOSECONDS = {"ns": 1.0, "µs": 1e3, "ms": 1e6}
MEMORY = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None


def in_process_rows(program, bus, *arguments):
    """The rows of IN_PROCESS, measured by the benchmark program with these options."""
    say("in one process")
    # The cache's files are in memory: on a disk, the cost of thousands of new files depends mostly on
    # how many were removed in the last minutes.
    with Bus.directory_in(MEMORY) as directory:
        result = subprocess.run(
            [program, "--benchmark_format=json", "--benchmark_enable_random_interleaving=true",
             *arguments],
            env=bus.environment | {"XDG_CACHE_HOME": os.path.join(directory, "in-process")},
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True).stdout
    times = {}
    for benchmark in json.loads(result)["benchmarks"]:
        if benchmark.get("error_occurred"):
            raise SystemExit(f"{benchmark['run_name']}: {benchmark['error_message']}")
        if benchmark["run_type"] == "iteration":
            name = benchmark["run_name"].removesuffix("/real_time")
            unit = benchmark["time_unit"].replace("us", "µs")
            times.setdefault(name, []).append(benchmark["real_time"] * NANOSECONDS[unit])
    rows = {}
    for key, task, unit, measured, base in IN_PROCESS:
        rows[key] = Row(task, unit, base="base")
        for column, name in (("base", base), ("measured", measured)):
            for nanoseconds in times[name]:
                rows[key].add(column, nanoseconds / NANOSECONDS[unit])
    return rows


def resident_by_file(pid):
    sizes = {}
    with open(f"/proc/{pid}/smaps", encoding="utf-8") as file:
        for line in file:
            mapping = re.match(r"[0-9a-f]+-[0-9a-f]+ \S+ \S+ \S+ \d+\s*(.*)", line)
            if mapping:
                path = mapping.group(1)
                # Drops the version, and gives the programs of all peers one name.
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


def filesystem(path):
    """The type of the file system that holds this path."""
    with open("/proc/self/mounts", encoding="utf-8") as file:
        mounts = [line.split()[1:3] for line in file]
    above = [mount for mount in mounts
             if os.path.commonpath([os.path.realpath(path), mount[0]]) == mount[0]]
    return max(above, key=lambda mount: len(mount[0]))[1]


def machine(programs):
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = re.findall(r"^model name\s*: (.*)$", file.read(), re.M)
    return {"date": str(datetime.date.today()),
            "processor": f"{len(models)} × {models[0]}" if models else platform.machine(),
            "system": f"Linux {platform.release().partition('-')[0]}",
            "disk": filesystem(programs)}


def measure(bench, programs, bus):
    quick = bench.quick
    loads = [(200, 4, 5), (1000, 4, 5), (10_000, 0, 5), (10_000, 4, 7), (10_000, 16, 3)]
    if not quick:
        loads = [
            (packages, entries, rounds)
            for packages, rounds in ((100, 9), (1000, 9), (10_000, 9), (100_000, 2))
            for entries in (0, 4, 16) if (packages, entries) != (100_000, 16)]
    for packages, entries, rounds in loads:
        bench.load(packages, entries, rounds)
    for entries in (4, 16) if quick else (0, 4, 16):
        bench.decode_instructions(1000, entries)
    for packages in (100, 10_000):
        bench.signals(packages, 20_000 if quick else 100_000, 5 if quick else 9)
    bench.calls(2000 if quick else 10_000, 15)
    bench.start_up(11 if quick else 31)
    if not quick:
        bench.step_instructions(
            "load instructions/1000/4", "call, decode and drop, 1,000 packages, 4 entries",
            "load", 1, 3, 1000, 4)
        bench.step_instructions("signal instructions", "signal", "signals", 500, 1500)
        bench.step_instructions("call instructions", "round trip of Start", "calls", 500, 1500)
    for place, parent in (("in memory", MEMORY), ("on the disk", programs)):
        if parent:
            for completed in (0, 20, 100):
                bench.exits(place, parent, completed, 7 if quick else 21)
    bench.results.in_process = in_process_rows(
        os.path.join(programs, "in-process"), bus,
        f"--benchmark_repetitions={3 if quick else 9}",
        f"--benchmark_min_time={0.02 if quick else 0.1}")
    if not quick:
        bench.results.resident = bench.memory_by_file(10_000, 4)
        bench.results.refusal = bench.beyond_the_protocol()
    bench.results.machine = machine(programs)
    return bench.results


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("programs", help="the directory with the built benchmarks")
    parser.add_argument("--quick", action="store_true",
                        help="fewer sizes and rounds, ends within three minutes, writes no files")
    options = parser.parse_args()
    if not options.quick and report.why_no_chart():
        parser.error(report.why_no_chart())
    programs = os.path.abspath(options.programs)
    with Bus() as bus, Feeder(os.path.join(programs, "feeder"), bus) as feeder:
        results = measure(Bench(programs, bus, feeder, options.quick), programs, bus)
    print(report.tables(results))
    if not options.quick:
        report.write(results)


if __name__ == "__main__":
    main()
