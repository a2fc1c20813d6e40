"""The comparisons, one function each. They take a Bench, add rows and figures to it, and raise
Failed when something did not do what it was measured for."""

import contextlib
import itertools
import os
import re
import struct
import subprocess
import time

import costs
from costs import Cost, Failed, Shell, Spread
from lab import DeadNodes, FloorServer
from report import Row

BULK_BYTES = 22_000_000
BULK_NODES = 16
DEAD_NODES = 32
IDLE_SESSIONS = 16
TRUE = "tools true -g all"
TRUE_IN_SHELL = "tools/true -g all"


def middle(found):
    """Of the costs of one round: the median of each figure."""
    return Cost(Spread([cost.wall_ms for cost in found]).median,
                Spread([cost.cpu_ms for cost in found]).median,
                max(cost.peak_kib for cost in found), max(cost.tree_kib for cost in found))


def take_turns(bench, runs, rounds, most_seconds):
    """Calls each of the functions once a round, beginning with another one each time, so that
    whatever else the machine does meets all of them. One that has taken so many seconds already
    (for all, or {name: seconds}) is left out of further rounds. One that fails is reported and left
    out. Returns {name: [Cost]}."""
    if not isinstance(most_seconds, dict):
        most_seconds = dict.fromkeys(runs, most_seconds)
    found = {name: [] for name in runs}
    spent = dict.fromkeys(runs, 0.0)
    failed = set()
    order = list(runs)
    for _ in range(rounds):
        for name in order:
            if name in failed or spent[name] > most_seconds[name]:
                continue
            start = time.monotonic()
            try:
                found[name].append(runs[name]())
            except (Failed, subprocess.SubprocessError) as fault:
                failed.add(name)
                bench.fail(f"{name}: {fault}")
            spent[name] += time.monotonic() - start
        order = order[1:] + order[:1]
    return {name: costs_ for name, costs_ in found.items() if costs_ and name not in failed}


def wall(found):
    return Spread([cost.wall_ms for cost in found])


def cpu(found, count=1):
    return Spread([cost.cpu_ms / count for cost in found])


def check_blocks(text, count, failures=0):
    """Every node has its block, and as many as expected tell of a failure."""
    blocks = len(re.findall(r"^\[(?:node|other)_\d+\] \(\d+ms\)\s*$", text, re.MULTILINE))
    failed = text.count("ExitCode:")
    if blocks != count or failed != failures:
        raise Failed(f"kelsh shows {blocks} of {count} nodes, {failed} failures: {text[-300:]}")


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def kelsh(bench, cluster, node_file, count, line=TRUE, failures=0, memory=False, check=True):
    """One kelsh for one command."""
    output = bench.file("kelsh.out")
    cost = costs.run(bench.tools, [cluster.kelsh, "-cfg", node_file, *line.split()],
                     env=cluster.env(), output=output, memory=memory,
                     statuses=(0, 2, 5) if failures else (0,))
    if check:
        check_blocks(read(output), count, failures)
    return cost


def in_shell(shell, count, failures=0, times=3):
    found = []
    for _ in range(times):
        text, cost = shell.command(TRUE_IN_SHELL)
        check_blocks(text, count, failures)
        found.append(cost)
    return middle(found)


def peer(bench, ssh, variant, command, ips=(), expected="", memory=False):
    """One of the others for one command. Kept connections are the client's too: their processor time
    counts."""
    output = bench.file("peer.out")
    kept = ssh.master_pids(ips) if variant == "warm" else []
    before = costs.cpu_clocks_ms(kept)
    cost = costs.run(bench.tools, command, env=ssh.env(variant), output=output, memory=memory)
    cost.cpu_ms += costs.cpu_clocks_ms(kept) - before
    said = read(output)
    if command[0] == "parallel-ssh":
        if said.count("[SUCCESS]") != len(ips):
            raise Failed(f"parallel-ssh did not reach all: {said[-300:]}")
    elif said.strip() != expected:
        raise Failed(f"{command[0]} said: {said[-300:]}")
    return cost


def floor_times(floor, mode, count, times=4):
    """The bare client in one process: the first time makes the connections or sessions."""
    reports = costs.repeated(floor.client(mode, count, "--repeat", str(times)))[1:]
    if mode == "resumed" and any(report["resumed"] != count for report in reports):
        raise Failed("not all connections of the bare client were resumed")
    return middle([Cost(r["wall_ms"], r["cpu_ms"], r["peak_kib"]) for r in reports])


# ---- over the number of nodes -------------------------------------------------------------------

def series_of(bench, cluster, ssh, floor, count, stack):
    """{name: function that runs it once} on so many nodes."""
    node_file = cluster.node_file(f"bench_{count}.cfg", count)
    ips = cluster.ips(count)
    ssh.keep_connected(ips)
    shell = stack.enter_context(Shell(cluster.kelsh, cluster.home, node_file))
    in_shell(shell, count, times=1)
    runs = {
        "kelsh": lambda: kelsh(bench, cluster, node_file, count),
        "kelsh, next command": lambda: in_shell(shell, count),
        "bare TLS": lambda: costs.run(bench.tools, floor.client("cold", count)),
        "bare TLS, resumed": lambda: floor_times(floor, "resumed", count),
        "bare TLS, kept connections": lambda: floor_times(floor, "open", count),
    }
    makers = {"pdsh": ssh.pdsh}
    # More nodes than that would take the others minutes, and their ssh is the same.
    if count <= bench.main:
        makers.update(clush=ssh.clush, pssh=ssh.pssh)
    titles = {"default": "", "curve25519": ", curve25519", "warm": ", kept connections"}
    for (tool, make), (variant, title) in itertools.product(makers.items(), titles.items()):
        command = make(variant, ips, "true")
        runs[tool + title] = lambda v=variant, c=command: peer(bench, ssh, v, c, ips)
    return runs


def patience(bench, runs, count):
    """How long each may take at one number of nodes: longest where targets are set, so that there are
    at least three rounds of it; not long for slow ones that are there to be looked at."""
    share = {"pdsh": 1.5 if count <= bench.main else 0.4, "clush": 0.4, "pssh": 0.4}
    return {name: bench.most_seconds * share.get(name.split(",")[0], 1) for name in runs}


def sweep(bench, cluster, ssh, floor):
    """All of them, for each number of nodes."""
    for count in bench.counts:
        bench.say(f"{count} nodes")
        with contextlib.ExitStack() as stack:
            runs = series_of(bench, cluster, ssh, floor, count, stack)
            found = take_turns(bench, runs, bench.rounds, patience(bench, runs, count))
            if count == bench.main:
                memory_of_trees(bench, cluster, ssh, floor, count)
            bytes_on_the_wire(bench, cluster, count, runs)
        for name, costs_ in found.items():
            bench.sweep.setdefault(name, {})[count] = costs_
    sweep_rows(bench)


def memory_of_trees(bench, cluster, ssh, floor, count):
    """In a run of its own: sampling takes processor time."""
    runs = {
        "kelsh": lambda: kelsh(bench, cluster, f"bench_{count}.cfg", count, memory=True),
        "bare TLS": lambda: costs.run(bench.tools, floor.client("cold", count), memory=True),
        "pdsh, curve25519": lambda: peer(bench, ssh, "curve25519", ssh.pdsh(
            "curve25519", cluster.ips(count), "true"), memory=True),
        "clush, curve25519": lambda: peer(bench, ssh, "curve25519", ssh.clush(
            "curve25519", cluster.ips(count), "true"), memory=True),
    }
    for name, found in take_turns(bench, runs, 1, 120).items():
        bench.tree_mib[name] = found[0].tree_kib / 1024


def bytes_on_the_wire(bench, cluster, count, runs):
    """Both directions, with the headers of TCP and IP; nothing else may use the loopback device."""
    found = {}
    for name in ("kelsh", "kelsh, next command"):
        before = costs.loopback_bytes()
        runs[name]()
        # The second one runs three commands.
        found[name] = (costs.loopback_bytes() - before) / count / (1 if name == "kelsh" else 3)
    bench.wire_bytes[count] = found


def sweep_rows(bench):
    def of(name, count):
        return bench.sweep.get(name, {}).get(count)

    n = bench.main
    big = max(bench.counts)
    for name, what, figure, unit, targets in (
            ("kelsh", "one command, CPU per node", lambda f: cpu(f, n), "ms",
             (("pdsh", 40, True), ("pdsh, curve25519", 6.5, True), ("bare TLS", 1.4, False))),
            ("kelsh", "one command, time", wall, "ms",
             (("pdsh", 16, True), ("pdsh, curve25519", 5, True), ("bare TLS", 1.3, False))),
            ("kelsh, next command", "next command, CPU per node", lambda f: cpu(f, n), "ms",
             (("pdsh, kept connections", 60, True),
              ("bare TLS, kept connections", 1.5, False))),
            ("kelsh, next command", "next command, time", wall, "ms",
             (("pdsh, kept connections", 7, True),
              ("bare TLS, kept connections", 1.5, False)))):
        for other, target, gain in targets:
            if of(name, n) and of(other, n):
                bench.add(Row(f"{n} nodes: {what}", unit, figure(of(name, n)), other,
                              figure(of(other, n)), target, gain))
    if of("kelsh", big) and of("bare TLS", big):
        peak = [Spread([cost.peak_kib / 1024 for cost in of(name, big)])
                for name in ("kelsh", "bare TLS")]
        bench.add(Row(f"{big} nodes: peak memory", "MiB", peak[0], "bare TLS", peak[1], 1.3,
                      False))


# ---- much output --------------------------------------------------------------------------------

def bulk(bench, cluster, ssh, floor):
    count = min(BULK_NODES, cluster.count)
    line = b"%07d a line of output as a diagnostic program writes it, with some words..\n"
    size = BULK_BYTES // count
    text = b"".join(line % i for i in range(size // len(line % 0) + 1))
    path = bench.file("lines")
    with open(path, "wb") as file:
        file.write(text)
    cluster.add_command("lines", f"cat {path}")
    node_file = cluster.node_file("bulk.cfg", count)
    ips = cluster.ips(count)
    output = bench.file("bulk.out")

    def complete(cost):
        got = os.path.getsize(output)
        if got < len(text) * count:
            raise Failed(f"only {got} of {len(text) * count} bytes have come")
        return cost

    def shown(command, env=None):
        return lambda: complete(costs.run(bench.tools, command, env=env, output=output))

    found = take_turns(bench, {
        "kelsh": shown([cluster.kelsh, "-cfg", node_file, "bench", "lines", "-g", "all"],
                       cluster.env()),
        "bare TLS": shown(floor.client("cold", count, "--line", f"cat {path}")),
        "pdsh, curve25519": shown(ssh.pdsh("curve25519", ips, f"cat {path}"),
                                  ssh.env("curve25519")),
    }, bench.rounds, bench.most_seconds)
    what = f"{len(text) * count / 1e6:.0f} MB of output from {count} nodes"
    for other, target, gain in (("pdsh, curve25519", 8, True), ("bare TLS", 1.3, False)):
        if "kelsh" in found and other in found:
            bench.add(Row(what, "ms", wall(found["kelsh"]), other, wall(found[other]),
                          target, gain))
    for path in (path, output):
        os.remove(path)


# ---- dead nodes ---------------------------------------------------------------------------------

def dead(bench, cluster, ssh):
    live = min(DEAD_NODES, cluster.count)
    for kind in ("refusing", "silent", "black hole"):
        bench.say(f"{live} of {2 * live} nodes {kind}")
        with DeadNodes(kind, bench.dead_subnet, bench.dead_port, live) as nodes:
            dead_of(bench, cluster, ssh, kind, nodes.addresses, live)


def dead_of(bench, cluster, ssh, kind, addresses, live):
    node_file = cluster.node_file(f"dead_{kind.replace(' ', '_')}.cfg", live, addresses)
    command = ssh.pdsh("curve25519", cluster.ips(live) + [ip for ip, _ in addresses], "echo up",
                       "-t", "3", "-u", "5")
    output = bench.file("dead.out")

    def with_pdsh():
        cost = costs.run(bench.tools, command, env=ssh.env("curve25519"), output=output,
                         statuses=None)
        up = len(re.findall(r": up$", read(output), re.MULTILINE))
        if up != live:
            raise Failed(f"pdsh reached {up} of {live} nodes: {read(output)[-300:]}")
        return cost

    with Shell(cluster.kelsh, cluster.home, node_file) as shell:
        found = take_turns(bench, {
            "kelsh": lambda: kelsh(bench, cluster, node_file, 2 * live, failures=live),
            "next": lambda: in_shell(shell, 2 * live, failures=live, times=1),
            "pdsh": with_pdsh,
        }, min(bench.rounds, 2), bench.most_seconds)
    for name, what in (("kelsh", "one command with its start"), ("next", "next command")):
        if name in found and "pdsh" in found:
            bench.add(Row(f"{live} of {2 * live} nodes {kind}: {what}", "ms",
                          wall(found[name]), "pdsh -t 3 -u 5", wall(found["pdsh"]), 1,
                          False))


# ---- the agent ----------------------------------------------------------------------------------

def agent(bench, cluster, ssh):
    """One agent by itself: a thousand on one machine share the pages of their program, which the
    agents of a thousand machines do not."""
    pid, sshd = cluster.agent_pid(0), ssh.process.pid
    idle = [Spread([costs.pss_kib(costs.tree_of(one)) / 1024]) for one in (pid, sshd)]
    bench.add(Row("agent: memory (PSS), idle", "MiB", idle[0], "sshd", idle[1], 2))
    sessions = [Spread([each / 1024]) for each in memory_per_session(cluster, ssh, pid, sshd)]
    bench.add(Row("agent: memory (PSS) per idle session", "MiB", sessions[0], "sshd",
                  sessions[1], 2))
    cpu_of_agent(bench, cluster, ssh, pid, sshd)


def cpu_of_agent(bench, cluster, ssh, pid, sshd):
    """Of the listener, the session and the job; on the other side of sshd and what it starts."""
    times = bench.agent_runs
    node_file = cluster.node_file("one.cfg", 1)
    command = ssh.ssh("curve25519", cluster.ip(0), "true")

    def per_command(account, run):
        before = account.used_ms()
        for _ in range(times):
            run()
        # What serves a command ends a moment after its client.
        time.sleep(0.3)
        return Cost(0, (account.used_ms() - before) / times)

    with costs.CpuAccount(pid) as ours, costs.CpuAccount(sshd) as other:
        found = take_turns(bench, {
            "kelsh": lambda: per_command(ours, lambda: kelsh(bench, cluster, node_file, 1)),
            "sshd": lambda: per_command(other, lambda: costs.run(bench.tools, command)),
        }, min(bench.rounds, 3), 60)
        way = ours.way
    if len(found) == 2:
        bench.add(Row(f"agent: CPU per command, all of it ({way})", "ms", cpu(found["kelsh"]),
                      "sshd, curve25519", cpu(found["sshd"]), 4))


def memory_per_session(cluster, ssh, pid, sshd):
    """KiB that the process tree grows by for each, of the agent and of sshd."""
    grown = []
    before = [costs.pss_kib(costs.tree_of(one)) for one in (pid, sshd)]
    with contextlib.ExitStack() as stack:
        idle_sessions(cluster, stack)
        grown.append(costs.pss_kib(costs.tree_of(pid)))
    # These stay, as the kept connections of the first nodes.
    ssh.keep_connected([cluster.ip(i) for i in range(IDLE_SESSIONS)])
    grown.append(costs.pss_kib(costs.tree_of(sshd)))
    return [(after - first) / IDLE_SESSIONS for after, first in zip(grown, before)]


def idle_sessions(cluster, stack):
    """Sessions that have been greeted, have answered one question and now wait for the next."""
    # Not earlier: the pages of the library that this program uses too would be counted by half.
    import socket
    import ssl
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.minimum_version = ssl.TLSVersion.TLSv1_3
    context.load_cert_chain(f"{cluster.home}/ssl/master.crt", f"{cluster.home}/ssl/master.key")
    context.load_verify_locations(f"{cluster.directory}/pki/ca.crt")
    context.set_alpn_protocols(["kelsh/1"])
    context.set_ecdh_curve("prime256v1")
    build, user = b"bench", b"bench"
    hello = struct.pack(f">HI{len(build)}sI{len(user)}sI", 1, len(build), build, len(user), user, 0)
    for _ in range(IDLE_SESSIONS):
        plain = stack.enter_context(socket.create_connection((cluster.ip(0), cluster.port), 10))
        link = stack.enter_context(context.wrap_socket(plain, server_hostname=cluster.ip(0)))
        answer_of(link, 0x01)
        link.sendall(struct.pack(">IBBH", len(hello), 0x02, 0, 0) + hello
                     + struct.pack(">IBBH", 0, 0x15, 0, 0))
        answer_of(link, 0x25)


def answer_of(link, expected):
    """Reads one frame of that type."""
    def exactly(size):
        got = b""
        while len(got) < size:
            piece = link.recv(size - len(got))
            if not piece:
                raise Failed("the agent closed an idle session")
            got += piece
        return got
    length, kind = struct.unpack(">IBxxx", exactly(8))
    exactly(length)
    if kind != expected:
        raise Failed(f"the agent answered with frame {kind:#x}")


# ---- starting, files ----------------------------------------------------------------------------

def start(bench, cluster):
    """The program without any node, beside nothing but its libraries."""
    node_file = "none.cfg"
    with open(os.path.join(cluster.home, node_file), "w", encoding="ascii") as file:
        file.write("[node]\n[group]\n")
    libraries = [set(re.findall(r"^\s*(\S+)", subprocess.run(
        ["ldd", program], check=True, stdout=subprocess.PIPE).stdout.decode(), re.MULTILINE))
        for program in (cluster.kelsh, bench.tools["empty"])]
    if libraries[0] - {"libkelsh.so"} != libraries[1]:
        bench.fail(f"bench_empty loads other libraries than kelsh: {libraries[0] ^ libraries[1]}")
    empty = [bench.tools["empty"]]
    found = take_turns(bench, {
        "kelsh": lambda: kelsh(bench, cluster, node_file, 0, "list node", check=False),
        "empty": lambda: costs.run(bench.tools, empty),
    }, 10 * bench.rounds, 60)
    bench.add(Row("\"list node\" without nodes: time", "ms", wall(found["kelsh"]),
                  "empty program, same libraries", wall(found["empty"]), 2, False))


def transfer(bench, cluster):
    """bench/transfer measures the files; here its words are read, and the bare client is added."""
    work = bench.file("transfer")
    os.mkdir(work)
    sizes = bench.transfer
    command = [os.path.join(bench.root, "bench/transfer"), "--build", bench.build, "--dir", work,
               "--runs", str(min(bench.rounds, 2))]
    for option, value in sizes.items():
        command += [f"--{option}", str(value)]
    status, text = costs.finish(command, 400, dict(os.environ, SUBNET=bench.other_subnet,
                                                   SSH_PORT=str(bench.other_port)))
    bench.transfer_text = text
    if status != 0:
        raise Failed(f"bench/transfer: {text[-500:]}")
    many = f"{sizes['each']} MiB to {sizes['nodes']} nodes"
    for what, ours, other, target in (
            (f"{sizes['single']} MiB to a node", "kelsh save file", "scp to the node", 2),
            (f"{sizes['single']} MiB from a node", "kelsh get file", "scp from the node", 2),
            (many, "kelsh save file", "clush --copy", 5),
            (many.replace("to", "from"), "kelsh get file", "clush --rcopy", None)):
        # The single file comes first, then the many nodes.
        place = 0 if "a node" in what else 1
        figures = [re.findall(rf"^ +{re.escape(name)} +(\d+) ms", text, re.MULTILINE)
                   for name in (ours, other)]
        if len(figures[0]) < 2 or not figures[1]:
            raise Failed(f"bench/transfer does not speak of \"{ours}\" and \"{other}\": {text}")
        bench.add(Row(what, "ms", Spread([float(figures[0][place])]), other,
                      Spread([float(figures[1][0])]), target))
        if place == 0:
            bench.bare_files.append((what, float(figures[0][0]), other.split()[1]))
    with FloorServer(bench.tools, cluster, bench.floor_port) as floor:
        bare_files(bench, floor, sizes["single"])


def bare_files(bench, floor, mib):
    source, copy = bench.file("file"), bench.file("copy")
    with open(source, "wb") as file:
        for _ in range(mib):
            file.write(os.urandom(1 << 20))
    for what, ours, direction in bench.bare_files:
        mode = {"to": "put", "from": "get"}[direction]
        found = [costs.repeated(floor.client(mode, 1, "--from", source, "--to", copy))[0]["wall_ms"]
                 for _ in range(min(bench.rounds, 2))]
        bench.add(Row(what, "ms", Spread([ours]), "bare TLS, no flush, no digest",
                      Spread([min(found)]), None, False))
    os.remove(source)
    os.remove(copy)
