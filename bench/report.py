#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Writes the results of a run: JSON and tables into bench/results/, the chart, and the marks in
docs/performance.md. As a program, writes the tables, the chart and the marks again, from the results
of the last run, or with --check only compares."""

import argparse
import os
import shutil
import subprocess
import sys
from statistics import median

from marks import marks
from results import BASE, LIBRARY, PEERS, PLAIN_FILES, Results, spread

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
JSON = "bench/results/latest.json"
TABLES = "bench/results/latest.md"
CHART = "docs/performance.svg"
PAGE = "docs/performance.md"

BEGIN = "<!-- Written by scripts/bench, as is everything up to the next comment. -->\n"
END = "<!-- End of what scripts/bench writes. -->\n"
NO_RUN = "\nThere are no results yet: run `scripts/bench`.\n\n"

COLUMNS = PEERS | {PLAIN_FILES: "plain files written once"}

# The tasks of the chart: the key of a row, and its label in two lines.
CHARTED = [
    ("load processor/10000/4", "load 10,000 × 4", "processor"),
    ("load processor/10000/16", "load 10,000 × 16", "processor"),
    ("own memory/10000/4", "load 10,000 × 4", "memory"),
    ("own memory/10000/16", "load 10,000 × 16", "memory"),
    ("signals/10000", "signals", "processor"),
    ("call processor", "call of Start", "processor"),
    ("start", "start-up", "time"),
]


def significant(value):
    """Three digits: no result is more precise."""
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def plus_minus(values):
    percent = spread(values)
    return "" if percent is None else f" ±{percent:.0f}%"


def cell(row, column):
    values = row.values.get(column)
    if not values:
        return "-"
    text = significant(median(values)) + plus_minus(values)
    if column != row.base and row.base in row.values:
        text += f" = {row.ratio(column):.2f}"
    return text


def table(header, lines):
    return "".join("| " + " | ".join(line) + " |\n"
                   for line in [header, ["---"] * len(header), *lines])


def rows_table(title, rows, columns):
    """Rows of one task are adjacent; only the first has the full name."""
    lines = []
    task = None
    for row in rows:
        name = f"- {row.part}" if row.part and row.task == task else row.name
        task = row.task
        lines.append([name, row.unit, *[cell(row, column) for column in columns]])
    return table([title, "unit", *columns.values()], lines)


def peers_table(results):
    present = {column for row in results.peers.values() for column in row.values}
    return rows_table("task", results.peers.values(),
                      {name: text for name, text in PEERS.items() if name in present})


def exits_table(results):
    return rows_table("from the start of a process to its exit", results.exits.values(),
                      {name: COLUMNS[name] for name in (BASE, LIBRARY, PLAIN_FILES)})


def in_process_table(results):
    return rows_table("in one process", results.in_process.values(),
                      {"base": "compared with", "measured": "library"})


def marks_table(results):
    def line(mark):
        percent = "" if mark.spread is None else f" ±{mark.spread:.0f}%"
        return [mark.task, f"at {'least' if mark.least else 'most'} {mark.limit}",
                f"{mark.ratio:.2f}{percent}", "met" if mark.met else "missed"]

    return table(["mark", "limit", "measured", ""], [line(mark) for mark in marks(results)])


def resident_table(results):
    """The files whose resident sizes differ, in KiB."""
    def sizes(file):
        return [results.resident[name].get(file, 0) for name in (BASE, LIBRARY)]

    files = sorted({file for peer in results.resident.values() for file in peer},
                   key=lambda file: sizes(file)[0] - sizes(file)[1])
    return table(["resident after the load, 10,000 packages, 4 entries, KiB", PEERS[BASE],
                  PEERS[LIBRARY]],
                 [[file, *map(str, sizes(file))] for file in files
                  if abs(sizes(file)[0] - sizes(file)[1]) >= 32])


def heading(results):
    about = results.machine
    return (f"{about['date']}, {about['processor']}, {about['system']}, the build tree on "
            f"{about['disk']}.")


def tables(results):
    parts = [heading(results) + f" Each cell: median ±spread = ratio to {PEERS[BASE]}, or to the "
             "column that it is compared with.\n",
             marks_table(results), peers_table(results), exits_table(results),
             in_process_table(results)]
    if results.resident:
        parts.append(resident_table(results))
    if results.refusal:
        parts.append("100,000 packages with 16 entries, more than the 64 MiB that the protocol "
                     f"allows in one array:\n\n```\n{results.refusal}\n```\n")
    return "\n".join(parts)


def tables_file(results):
    return ("<!-- SPDX-License-Identifier: BSD-3-Clause -->\n# The last full run\n\n"
            "Written by `scripts/bench`; [docs/performance.md](../../docs/performance.md) says what "
            "it means.\n\n" + tables(results))


def marks_section(results):
    return f"\n{heading(results)}\n\n{marks_table(results)}\n"


def with_section(page, section):
    """The page with the text between the two comments replaced."""
    before, rest = page.split(BEGIN)
    _, after = rest.split(END)
    return before + BEGIN + section + END + after


def why_no_chart():
    return None if shutil.which("gnuplot") else "gnuplot, which draws the chart, is not installed"


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def chart_program(results):
    """The numbers as gnuplot variables and data blocks, followed by chart.gnuplot."""
    tasks = [(results.peers[key], *label) for key, *label in CHARTED]
    names = [name for name in PEERS if name != BASE
             and all(name in row.values for row, *_ in tasks)]
    lines = ["$ratios << END"]
    for number, name in enumerate(names):
        lines.append(quoted(COLUMNS[name]))
        lines += [f"{position} {number} {row.ratio(name):.4f}"
                  for position, (row, *_) in enumerate(tasks)]
        lines += ["", ""]
    ticks = ", ".join(f'{quoted(first)}."\\n".{quoted(second)} {position}'
                      for position, (_, first, second) in enumerate(tasks))
    lines += ["END", f"tasks = {len(tasks)}", f"peers = {len(names)}",
              f"caption = {quoted(heading(results))}", f"set xtics ({ticks})"]
    with open(os.path.join(ROOT, "bench", "chart.gnuplot"), encoding="utf-8") as file:
        return "\n".join(lines) + "\n" + file.read()


def chart(results):
    """The chart as SVG."""
    svg = subprocess.run(["gnuplot", "-"], input=chart_program(results), capture_output=True,
                         text=True, encoding="utf-8", check=True).stdout
    first, rest = svg.split("\n", 1)
    return f"{first}\n<!-- SPDX-License-Identifier: BSD-3-Clause -->\n{rest}"


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def documents(results, root):
    """The text of every document that a run writes, except the chart: {name: text}."""
    page = read(os.path.join(root, PAGE))
    if results is None:
        return {PAGE: with_section(page, NO_RUN)}
    return {JSON: results.to_json(marks(results)), TABLES: tables_file(results),
            PAGE: with_section(page, marks_section(results))}


def write(results, root=ROOT):
    texts = documents(results, root) | {CHART: chart(results)}
    os.makedirs(os.path.join(root, "bench/results"), exist_ok=True)
    for name, text in texts.items():
        with open(os.path.join(root, name), "w", encoding="utf-8") as file:
            file.write(text)
    print("written: " + ", ".join(texts), file=sys.stderr)


def last_run(root=ROOT):
    path = os.path.join(root, JSON)
    return Results.from_json(read(path)) if os.path.exists(path) else None


def differences(root=ROOT):
    """The documents that differ from the results of the last run."""
    results = last_run(root)
    wrong = [name for name, text in documents(results, root).items()
             if not os.path.exists(os.path.join(root, name))
             or read(os.path.join(root, name)) != text]
    drawn = os.path.join(root, CHART)
    # Only the caption is compared: another version of gnuplot draws other curves.
    if results and not (os.path.exists(drawn) and heading(results) in read(drawn)):
        wrong.append(CHART)
    return wrong


def main():
    parser = argparse.ArgumentParser(description=__doc__.split(". ", 1)[1])
    parser.add_argument("--check", action="store_true",
                        help="write nothing; fail if a document differs from the results")
    if parser.parse_args().check:
        wrong = differences()
        if wrong:
            sys.exit("these differ from the results of the last run: " + ", ".join(wrong))
    elif last_run() is None:
        sys.exit(f"there are no results in {JSON}: run scripts/bench")
    elif why_no_chart():
        sys.exit(why_no_chart())
    else:
        write(last_run())


if __name__ == "__main__":
    main()
