#!/usr/bin/env python3
"""What one master would do with 10,000 and 100,000 nodes, calculated from measured figures and from
the limits in the code. Prints two tables in Markdown.

Usage: bench/scale.py [--masters N] [--cores N] [--gbit N] [--dead SHARE] [PEERS.JSON]

PEERS.JSON is what bench/peers leaves in the build directory (default: build/release/peers.json)."""

import argparse
import dataclasses
import json
import math
import os
import re
import statistics

COUNTS = (1_000, 10_000, 100_000)
IMAGE_MIB = 16

# Limits in the code: Dialer, SSLClient and ConnectGate in runtime/client, src/config/NodeAgentQuery.h.
CONNECTS_AT_ONCE = 64
CONNECT_LIMIT_S = 3.0
SECOND_LIMIT_S = 0.2
TURN_S = 0.5
START_TURN_S = 0.025
# Of the system: how many pieces of memory may be mapped, of which a thread's stack and the guard
# beside it are two; the descriptors that a process of Debian may have; neighbours on one network.
MAX_MAPS = 65_530
MAPS_PER_THREAD = 2
MAX_DESCRIPTORS = 524_288
MAX_NEIGHBOURS = 1_024


@dataclasses.dataclass
class Constants:
    """Measured. Each per node, beside a fixed part where it matters."""

    first_fixed_ms: float
    first_cpu_ms: float
    next_cpu_ms: float
    connect_ms: float
    fixed_mib: float
    thread_kib: float
    first_bytes: float
    next_bytes: float
    file_mib_per_cpu_s: float

    @classmethod
    def measured(cls, found):
        first_fixed, first = line(found, "kelsh", "cpu_ms")
        _, following = line(found, "kelsh, next command", "cpu_ms")
        fixed_kib, thread_kib = line(found, "kelsh", "peak_kib")
        counts = sorted(found["wire_bytes"], key=int)
        wire = found["wire_bytes"][counts[-1]]
        return cls(first_fixed, first, following,
                   median(found, "bare TLS", min(points(found, "bare TLS")), "wall_ms"),
                   fixed_kib / 1024, thread_kib, wire["kelsh"], wire["kelsh, next command"],
                   file_rate(found))


def points(found, name):
    return sorted(int(count) for count in found["sweep"][name])


def median(found, name, count, field):
    return statistics.median(cost[field] for cost in found["sweep"][name][str(count)])


def line(found, name, field):
    """(what it is without nodes, what every node adds), by the largest run and one that is large
    enough not to be all fixed part."""
    counts = points(found, name)
    big = counts[-1]
    small = max([count for count in counts if count * 8 <= big] or counts[:1])
    low, high = median(found, name, small, field), median(found, name, big, field)
    each = max((high - low) / (big - small), 0) if big > small else high / big
    return max(low - each * small, 0), each


def file_rate(found):
    """MiB that one processor of the client sends to many nodes in a second; 0 when files were not
    measured."""
    total = 0
    for row in found["transfer"].splitlines():
        title = re.fullmatch(r"(\d+) MiB, (\d+) nodes", row)
        if title:
            total = int(title[1]) * int(title[2])
        sent = re.match(r"\s*kelsh save file\s.*?([\d.]+) ms CPU", row)
        if sent and total and float(sent[1]) > 0:
            return total / (float(sent[1]) / 1000)
    return 0


@dataclasses.dataclass
class Master:
    """One master's share of the nodes."""

    constants: Constants
    nodes: int
    cores: int
    gbit: float
    dead_share: float

    def dead(self):
        return math.ceil(self.nodes * self.dead_share)

    def on_wire_s(self, per_node):
        return self.nodes * per_node * 8 / (self.gbit * 1e9)

    def connects_s(self):
        """So many connections at a time, each as long as one takes to be made."""
        return self.nodes / CONNECTS_AT_ONCE * self.constants.connect_ms / 1000

    def first_s(self):
        cpu = self.nodes * self.constants.first_cpu_ms / 1000 / self.cores
        return self.constants.first_fixed_ms / 1000 + max(
            cpu, self.connects_s(), self.on_wire_s(self.constants.first_bytes))

    def next_s(self):
        cpu = self.nodes * self.constants.next_cpu_ms / 1000 / self.cores
        return max(cpu, self.on_wire_s(self.constants.next_bytes))

    def dead_at_start_s(self):
        """The check at the start turns to others while a silent node is being dialled."""
        line_s = self.dead() / CONNECTS_AT_ONCE * START_TURN_S
        return line_s + CONNECT_LIMIT_S if self.dead() else 0

    def dead_at_command_s(self):
        """A silent node holds its place in the line for a turn only, and nobody waits in line for
        longer than the limit."""
        line_s = self.dead() / CONNECTS_AT_ONCE * TURN_S
        waited_s = min(line_s, CONNECT_LIMIT_S) + CONNECT_LIMIT_S
        return waited_s + SECOND_LIMIT_S if self.dead() else 0

    def memory_mib(self):
        return self.constants.fixed_mib + self.nodes * self.constants.thread_kib / 1024

    def image_s(self):
        rate = self.constants.file_mib_per_cpu_s
        cpu = self.nodes * IMAGE_MIB / rate / self.cores if rate else 0
        return max(cpu, self.on_wire_s(IMAGE_MIB * 1048576))


def seconds(value):
    if value >= 120:
        return f"{value / 60:.0f} min"
    return f"{value:.1f} s" if value >= 1 else f"{value * 1000:.0f} ms"


def mib(value):
    return f"{value / 1024:.1f} GiB" if value >= 1024 else f"{value:.0f} MiB"


def against(value, limit):
    return f"{value:,}" if value <= limit else f"**{value:,}, above {limit:,}**"


def constants_table(constants):
    rows = [
        ("first command: processor time per node, and fixed",
         f"{constants.first_cpu_ms:.2f} ms, {constants.first_fixed_ms:.0f} ms"),
        ("next command in the same shell: processor time per node",
         f"{constants.next_cpu_ms:.2f} ms"),
        ("one connection, one line, one answer, nothing else running",
         f"{constants.connect_ms:.1f} ms"),
        ("memory per node while it runs, and fixed",
         f"{constants.thread_kib:.0f} KiB, {constants.fixed_mib:.0f} MiB"),
        ("bytes on the wire per node, both ways: first command, next command",
         f"{constants.first_bytes:,.0f}, {constants.next_bytes:,.0f}")]
    if constants.file_mib_per_cpu_s:
        rows.append(("file content that one processor of the master sends",
                     f"{constants.file_mib_per_cpu_s:,.0f} MiB/s"))
    return markdown(["Measured", ""], rows)


def masters_table(masters):
    """masters: [(title, Master)]."""
    rows = [
        ("first command of a shell, all nodes well", lambda m: seconds(m.first_s())),
        ("the next one", lambda m: seconds(m.next_s())),
        ("what silent nodes add at the start", lambda m: seconds(m.dead_at_start_s())),
        ("and to every command", lambda m: seconds(m.dead_at_command_s())),
        ("memory", lambda m: mib(m.memory_mib())),
        ("threads", lambda m: against(m.nodes, MAX_MAPS // MAPS_PER_THREAD)),
        ("descriptors", lambda m: against(m.nodes, MAX_DESCRIPTORS)),
        ("neighbours, if all are on one network", lambda m: against(m.nodes, MAX_NEIGHBOURS)),
        ("bytes of a first command", lambda m: mib(m.nodes * m.constants.first_bytes / 1048576)),
        (f"a file of {IMAGE_MIB} MiB to every node", lambda m: seconds(m.image_s()))]
    return markdown(["Nodes"] + [title for title, _ in masters],
                    [[what] + [show(master) for _, master in masters] for what, show in rows])


def markdown(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def tables(constants, masters=16, cores=16, gbit=10.0, dead_share=0.01):
    columns = [(f"{count:,}", Master(constants, count, cores, gbit, dead_share))
               for count in COUNTS]
    share = math.ceil(COUNTS[-1] / masters)
    columns.append((f"{COUNTS[-1]:,} on {masters} masters",
                    Master(constants, share, cores, gbit, dead_share)))
    return "\n".join([
        constants_table(constants), "",
        f"One master with {cores} processors and {gbit:g} Gbit/s, {dead_share:.0%} of the nodes "
        "silent; the last column is each of several:", "", masters_table(columns)])


def main():
    root = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("file", nargs="?", default=os.path.join(root, "build/release/peers.json"))
    parser.add_argument("--masters", type=int, default=16)
    parser.add_argument("--cores", type=int, default=16)
    parser.add_argument("--gbit", type=float, default=10.0)
    parser.add_argument("--dead", type=float, default=0.01)
    options = parser.parse_args()
    with open(options.file, encoding="utf-8") as file:
        found = json.load(file)
    if "kelsh" not in found["sweep"]:
        parser.error(f"{options.file} is of a run without the part \"sweep\"")
    print(tables(Constants.measured(found), options.masters, options.cores, options.gbit,
                 options.dead))


if __name__ == "__main__":
    main()
