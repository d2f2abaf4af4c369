# SPDX-License-Identifier: BSD-3-Clause
"""The limits that the library must meet, and the values that a run has measured for them."""

import statistics

from results import LIBRARY, spread

DECODE = 0.90
LOAD = 1.0
OWN_MEMORY = 1.05
START_UP = 1.25
GDBUS = 2.5
FLAT = 2.0

# A thousand times as many packages: work that grows with the list would cost a thousand times as much,
# the misses in the processor's caches cost less than twice as much.
FLAT_ROWS = ("GetPackage/100000", "upgraded/100000", "reinstalled/100000", "operation/100000")


class Mark:
    """One limit and the ratio that was measured."""

    def __init__(self, task, limit, ratios, least=False):
        self.task = task
        self.limit = limit
        self.least = least
        self.ratio = statistics.median(ratios)
        self.spread = spread(ratios)

    @property
    def met(self):
        return self.ratio >= self.limit if self.least else self.ratio <= self.limit

    def to_json(self):
        return {"task": self.task, "at least" if self.least else "at most": self.limit,
                "measured": round(self.ratio, 3), "met": self.met}


def gdbus_rows(results):
    """The processor time of loads, signals and calls, and the memory of the loads that have a mark.
    Small loads are left out: most of their time is the cache's directory, which no other peer has."""
    def is_large_load(key):
        return key.startswith("load processor/") and int(key.split("/")[1]) >= 1000

    return [row for key, row in results.peers.items()
            if is_large_load(key)
            or key.startswith(("own memory/10000/", "signals/", "call processor"))]


def marks(results):
    def to_base(key, limit):
        row = results.peers[key]
        return Mark(row.name, limit, row.ratios(LIBRARY))

    found = [to_base("decode/1000/16", DECODE)]
    found += [to_base(f"load processor/10000/{entries}", LOAD) for entries in (4, 16)]
    found += [to_base(f"own memory/10000/{entries}", OWN_MEMORY) for entries in (0, 4, 16)]
    found.append(to_base("start", START_UP))
    for key in FLAT_ROWS:
        row = results.in_process[key]
        found.append(Mark(row.name, FLAT, row.ratios("measured")))
    rows = gdbus_rows(results)
    closest = min(rows, key=lambda row: row.ratio("gdbus", LIBRARY))
    found.append(Mark(f"GDBus by hand compared with libemporium, the closest of {len(rows)} rows "
                      f"({closest.name})", GDBUS, closest.ratios("gdbus", LIBRARY), least=True))
    return found
