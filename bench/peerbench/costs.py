"""What a command costs: one run by itself, commands in a shell that stays, processes that stay."""

import contextlib
import dataclasses
import json
import os
import pty
import select
import signal
import statistics
import subprocess
import time

PROMPT = b"]$ "
TICKS = os.sysconf("SC_CLK_TCK")


class Failed(Exception):
    """A run that did not do what it was measured for: its figures would mean nothing."""


@dataclasses.dataclass
class Cost:
    wall_ms: float
    cpu_ms: float
    # Of the largest process; and of the whole tree, where that was asked for.
    peak_kib: float = 0
    tree_kib: float = 0


class Spread:
    """Of one figure over the rounds: the median, and how far the others are from it."""

    def __init__(self, values):
        self.values = sorted(values)
        self.median = statistics.median(self.values)
        self.least = self.values[0]
        self.most = self.values[-1]


def run(tools, command, env=None, limit=120, memory=False, output="/dev/null", statuses=(0,)):
    """Runs a command under bench_measure. Its output is left in the file; returns its Cost."""
    measured = [tools["measure"], "--limit", str(limit), "--output", output]
    if memory:
        measured.append("--memory")
    status, said = finish(measured + ["--"] + command, limit + 30, env)
    if status != 0:
        raise Failed(f"bench_measure: {said}")
    found = json.loads(said)
    if found["timed_out"]:
        raise Failed(f"{command[0]} did not end within {limit} s")
    if statuses and found["status"] not in statuses:
        raise Failed(f"{command[0]} ended with status {found['status']}: {tail_of(output)}")
    return Cost(found["wall_ms"], found["cpu_ms"], found["peak_kib"], found["tree_kib"])


def finish(command, limit, env=None):
    """Runs a script that tidies up when it is told to end, as it is when this program is, or when its
    time is over. Returns its status and what it said."""
    with subprocess.Popen(command, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT) as process:
        try:
            said, _ = process.communicate(timeout=limit)
        except BaseException:
            process.terminate()
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.communicate(timeout=60)
            process.kill()
            raise
    return process.returncode, said.decode(errors="replace").strip()


def tail_of(path, size=300):
    if path == "/dev/null":
        return ""
    with open(path, "rb") as file:
        return file.read()[-size:].decode(errors="replace").strip()


def repeated(command, limit=120, output=subprocess.DEVNULL):
    """Runs bench_floor, which reports once for each time. Returns these reports as dictionaries."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.PIPE,
                          timeout=limit)
    text = done.stderr.decode(errors="replace")
    if done.returncode != 0:
        raise Failed(f"{os.path.basename(command[0])} failed: {text.strip()[-300:]}")
    return [json.loads(line) for line in text.splitlines()]


def cpu_clock_ms(pid):
    """Processor time of one process and all threads it ever had, without its children; the clock
    that clock_getcpuclockid(3) names."""
    return time.clock_gettime((~pid << 3) | 2) * 1000


def cpu_clocks_ms(pids):
    return sum(cpu_clock_ms(pid) for pid in pids)


class CpuAccount:
    """Processor time of a process and of all it starts, to be used with "with". The kernel accounts
    for it in a control group; where none can be made, it is that of the process and of the
    descendants that were reaped, in steps of a tick, which misses a little. "way" says which."""

    # Where a group is made, the file with the usage, and how many of its units are a millisecond.
    GROUPS = (("/sys/fs/cgroup/cpuacct", "cpuacct.usage", 1e6),
              ("/sys/fs/cgroup/cpu,cpuacct", "cpuacct.usage", 1e6),
              ("/sys/fs/cgroup", "cpu.stat", 1e3))

    def __init__(self, pid):
        self.pid = pid
        self.directory = self.usage_file = None
        self.unit, self.way = 1.0, "/proc"

    def __enter__(self):
        for parent, usage_file, unit in self.GROUPS:
            if not os.path.exists(f"{parent}/cgroup.procs"):
                continue
            directory = f"{parent}/kelsh-peers.{os.getpid()}.{self.pid}"
            try:
                os.mkdir(directory)
            except OSError:
                continue
            self.directory, self.unit, self.way = directory, unit, "control group"
            self.usage_file = f"{directory}/{usage_file}"
            self.home = self._home_of(parent)
            try:
                self._move(self.pid, directory)
                self.used_ms()
                break
            except (OSError, ValueError, IndexError):
                self.__exit__()
                self.directory, self.way = None, "/proc"
        return self

    def __exit__(self, *_):
        if not self.directory:
            return
        # A group that has processes can not be removed.
        for _ in range(50):
            with open(f"{self.directory}/cgroup.procs", encoding="ascii") as file:
                for pid in file.read().split():
                    with contextlib.suppress(OSError):
                        self._move(int(pid), self.home)
            with contextlib.suppress(OSError):
                os.rmdir(self.directory)
                return
            time.sleep(0.1)

    def _home_of(self, parent):
        """The group that the process was in."""
        with open(f"/proc/{self.pid}/cgroup", encoding="ascii") as file:
            for line in file:
                _, controllers, path = line.rstrip("\n").split(":", 2)
                if "cpuacct" in controllers.split(",") or controllers == "" and \
                        parent == "/sys/fs/cgroup":
                    return parent + path
        return parent

    @staticmethod
    def _move(pid, directory):
        with open(f"{directory}/cgroup.procs", "w", encoding="ascii") as file:
            file.write(str(pid))

    def used_ms(self):
        if not self.directory:
            with open(f"/proc/{self.pid}/stat", encoding="utf-8", errors="replace") as file:
                fields = file.read().rsplit(") ", 1)[1].split()
            return sum(int(field) for field in fields[11:15]) * 1000 / TICKS
        with open(self.usage_file, encoding="ascii") as file:
            # Either nothing but the number, or "usage_usec" and the number first.
            return int(file.readline().split()[-1]) / self.unit


def tree_of(root):
    """The process and its descendants."""
    parents = {}
    for name in os.listdir("/proc"):
        if name.isdigit():
            try:
                with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as file:
                    parents[int(name)] = int(file.read().rsplit(") ", 1)[1].split()[1])
            except (FileNotFoundError, ProcessLookupError):
                continue
    found = [root]
    for pid in found:
        found += [child for child, parent in parents.items() if parent == pid]
    return found


def pss_kib(pids):
    total = 0
    for pid in pids:
        try:
            with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
                total += next(int(line.split()[1]) for line in file if line.startswith("Pss:"))
        except (FileNotFoundError, ProcessLookupError, StopIteration):
            continue
    return total


def loopback_bytes():
    with open("/proc/net/dev", encoding="ascii") as file:
        line = next(line for line in file if line.strip().startswith("lo:"))
    return int(line.split(":")[1].split()[8])


class Shell:
    """An interactive kelsh on a terminal of its own, to be used with "with"."""

    def __init__(self, kelsh, home, node_file, limit=60):
        self.limit = limit
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.environ.update(KELSH_PATH=home, TERM="xterm")
            try:
                os.execv(kelsh, ["kelsh", "-cfg", node_file])
            finally:
                os._exit(127)
        try:
            self._read_to_prompt()
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def command(self, line):
        """Types a line; returns what was shown until the next prompt, and its Cost."""
        cpu = cpu_clock_ms(self.pid)
        start = time.monotonic()
        os.write(self.fd, line.encode() + b"\r")
        text = self._read_to_prompt()
        wall = (time.monotonic() - start) * 1000
        return text, Cost(wall, cpu_clock_ms(self.pid) - cpu)

    def _read_to_prompt(self):
        text = bytearray()
        deadline = time.monotonic() + self.limit
        while not text.endswith(PROMPT):
            ready, _, _ = select.select([self.fd], [], [], max(0, deadline - time.monotonic()))
            try:
                piece = os.read(self.fd, 65536) if ready else b""
            except OSError:
                piece = b""
            if not piece:
                raise Failed(f"the shell shows no prompt: {bytes(text[-300:])!r}")
            # An editor may ask the terminal where the cursor stands.
            if b"\x1b[6n" in piece:
                os.write(self.fd, b"\x1b[24;1R")
            text += piece
        return text.decode(errors="replace")

    def close(self):
        if self.pid == 0:
            return
        os.close(self.fd)
        # Without a terminal it ends by itself.
        for _ in range(50):
            if os.waitpid(self.pid, os.WNOHANG)[0] != 0:
                break
            time.sleep(0.1)
        else:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        self.pid = 0
