# SPDX-License-Identifier: BSD-3-Clause
"""The results of a run: rows of measured values, what is computed from them, and their JSON form."""

import json
import statistics

BASE = "sd-bus"
LIBRARY = "library"
PLAIN_FILES = "plain-files"
PEERS = {
    BASE: "raw sd-bus",
    LIBRARY: "libemporium",
    "sdbus-cpp": "obvious sdbus-c++",
    "gdbus": "GDBus by hand",
    "gdbus-generated": "GDBus generated",
    "qtdbus": "QtDBus",
}


def spread(values):
    """Half the distance between the quartiles, in per cent of the median; None if there are too few
    values for a spread."""
    if len(values) < 3:
        return None
    quartiles = statistics.quantiles(values, n=4, method="inclusive")
    return 50 * (quartiles[2] - quartiles[0]) / statistics.median(values)


def shortened(value):
    """Six digits: more than any measurement here is accurate to."""
    return None if value is None else float(f"{value:.6g}")


class Row:
    """One task, or a part of it, measured in several columns (peers, or ways to do it); one value
    for each round."""

    def __init__(self, task, unit, part="", base=BASE):
        self.task = task
        self.part = part
        self.unit = unit
        self.base = base
        self.values = {}

    @property
    def name(self):
        return f"{self.task}: {self.part}" if self.part else self.task

    def add(self, column, value):
        self.values.setdefault(column, []).append(shortened(value))

    def median(self, column):
        return statistics.median(self.values[column])

    def ratios(self, column, base=None):
        """The ratios of the values to those of another column in the same round."""
        pairs = zip(self.values[column], self.values[base or self.base])
        return [value / other for value, other in pairs]

    def ratio(self, column, base=None):
        return statistics.median(self.ratios(column, base))

    def to_json(self):
        """The values and, for readers that do not compute, the results computed from them."""
        row = {"task": self.task, "part": self.part, "unit": self.unit, "base": self.base,
               "columns": {}}
        for column, values in self.values.items():
            row["columns"][column] = {
                "median": shortened(self.median(column)), "spread": shortened(spread(values)),
                "values": values}
            if column != self.base and self.base in self.values:
                ratios = self.ratios(column)
                row["columns"][column] |= {"ratio": shortened(statistics.median(ratios)),
                                           "ratio spread": shortened(spread(ratios))}
        return row

    @classmethod
    def from_json(cls, row):
        result = cls(row["task"], row["unit"], row["part"], row["base"])
        result.values = {name: column["values"] for name, column in row["columns"].items()}
        return result


class Results:
    """One run. The marks and the chart find a row by its key."""

    TABLES = ("peers", "exits", "in_process")

    def __init__(self, machine=None):
        self.machine = machine or {}  # also holds the date
        self.peers = {}
        self.exits = {}
        self.in_process = {}
        self.resident = {}  # KiB by peer and file
        self.refusal = None

    def to_json(self, marks):
        """Text with one line for each row, so that a difference between two runs is readable."""
        def lines(table):
            rows = [f'  {json.dumps(key)}: {json.dumps(row.to_json(), ensure_ascii=False)}'
                    for key, row in table.items()]
            return "{\n" + ",\n".join(rows) + "\n}"

        parts = {"SPDX-License-Identifier": json.dumps("BSD-3-Clause"),
                 "machine": json.dumps(self.machine, ensure_ascii=False)}
        parts |= {name: lines(getattr(self, name)) for name in self.TABLES}
        parts["resident"] = json.dumps(self.resident)
        parts["refusal"] = json.dumps(self.refusal)
        parts["marks"] = "[\n" + ",\n".join(
            "  " + json.dumps(mark.to_json(), ensure_ascii=False) for mark in marks) + "\n]"
        return "{\n" + ",\n".join(f"{json.dumps(name)}: {part}"
                                  for name, part in parts.items()) + "\n}\n"

    @classmethod
    def from_json(cls, text):
        parts = json.loads(text)
        results = cls(parts["machine"])
        for name in cls.TABLES:
            setattr(results, name, {key: Row.from_json(row) for key, row in parts[name].items()})
        results.resident = parts["resident"]
        results.refusal = parts["refusal"]
        return results
