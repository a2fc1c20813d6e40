"""Everything the comparison runs against, made for it on loopback and gone with it: agents, one SSH
server with throw-away keys, the bare server, connections kept open by SSH masters."""

import contextlib
import os
import select
import shutil
import socket
import subprocess
import tempfile
import time

from costs import Failed, finish

SSHD = "/usr/sbin/sshd"
# What the peers run at a time; kelsh and the bare client make as many connections at a time.
FANOUT = 64
PACKAGES = {
    "/usr/bin/pdsh": "pdsh",
    "/usr/bin/clush": "clustershell",
    "/usr/bin/parallel-ssh": "pssh",
    SSHD: "openssh-server",
    "/usr/bin/ssh": "openssh-client",
}
POLICY = "/usr/sbin/policy-rc.d"


def install_peers():
    """Installs what is missing. The system's own SSH server must not be started by that."""
    missing = sorted(package for path, package in PACKAGES.items() if not os.path.exists(path))
    if not missing:
        return
    prefix = [] if os.geteuid() == 0 else ["sudo"]
    if prefix and not shutil.which("sudo"):
        raise Failed(f"needs root to install: {' '.join(missing)}")
    print(f"Installing {' '.join(missing)}", flush=True)
    own_policy = not os.path.exists(POLICY)
    if own_policy:
        subprocess.run(prefix + ["sh", "-c", f"printf '#!/bin/sh\\nexit 101\\n' >{POLICY}; "
                                 f"chmod 755 {POLICY}"], check=True)
    try:
        subprocess.run(prefix + ["env", "DEBIAN_FRONTEND=noninteractive", "apt-get", "install",
                                 "-q", "-y", "--no-install-recommends"] + missing,
                       check=True, stdout=subprocess.DEVNULL)
    finally:
        if own_policy:
            subprocess.run(prefix + ["rm", "-f", POLICY], check=True)


def write(path, text, mode=0o600):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, mode)
    return path


class Cluster:
    """Local agents on SUBNET.x.y; stopped by leaving the context."""

    def __init__(self, root, build, directory, count, subnet, port):
        self.root, self.directory, self.count = root, directory, count
        self.subnet, self.port = subnet, port
        self.home = os.path.join(directory, "kelsh")
        self.kelsh = os.path.join(build, "bin/kelsh")
        self.script = os.path.join(root, "scripts/local-cluster")
        self.build = build

    def __enter__(self):
        try:
            status, said = finish(
                [self.script, "start", "--nodes", str(self.count), "--dir", self.directory,
                 "--build", self.build, "--subnet", self.subnet, "--port", str(self.port)], 300)
            if status != 0:
                raise Failed(said)
        except BaseException:
            self._stop()
            raise
        return self

    def __exit__(self, *_):
        self._stop()

    def _stop(self):
        if os.path.exists(os.path.join(self.directory, "cluster")):
            subprocess.run([self.script, "stop", "--dir", self.directory], timeout=120,
                           stdout=subprocess.DEVNULL, check=False)

    def ip(self, index):
        return f"{self.subnet}.{(index + 1) >> 8}.{(index + 1) & 255}"

    def ips(self, count):
        return [self.ip(index) for index in range(count)]

    def agent_pid(self, index):
        with open(f"{self.directory}/nodes/node_{index:04d}/pid", encoding="ascii") as file:
            return int(file.read().split()[0])

    def env(self):
        return dict(os.environ, KELSH_PATH=self.home)

    def node_file(self, name, count, more=()):
        """A node file with the first nodes, and others at (ip, port); the group "all" is all of
        them. At its start the shell asks every node of its file, so a smaller file it must be."""
        with open(os.path.join(self.home, "node.cfg"), encoding="ascii") as file:
            lines = [line for line in file.read().split("[group]")[0].splitlines() if "=" in line]
        lines = lines[:count]
        lines += [f"other_{i:04d}=02:01:00:00:{i >> 8:02X}:{i & 255:02X},{ip}:{port}"
                  for i, (ip, port) in enumerate(more)]
        names = [line.split("=")[0] for line in lines]
        groups = []
        # A line of the file has its limit, so groups of groups.
        for level in "ab":
            made = [f"{level}{i // 24}=" + ",".join(names[i:i + 24])
                    for i in range(0, len(names), 24)]
            groups += made
            names = [line.split("=")[0] for line in made]
        text = "\n".join(["[node]"] + lines + ["[group]"] + groups + ["all=" + ",".join(names)])
        write(os.path.join(self.home, name), text + "\n")
        return name

    def add_command(self, name, line):
        """A command "bench NAME" of the shell."""
        path = os.path.join(self.home, "cmd.cfg")
        with open(path, "a+", encoding="utf-8") as file:
            file.seek(0)
            if "\nname=bench\n" not in file.read():
                file.write("\n[cmdset]\nname=bench\ndescription=Of the comparison\n")
            file.write(f"\n[cmd]\nname={name}\ndescription=Of the comparison\ntype=SCRIPT\n"
                       f"destination=SLAVE\ncmd={line}\n")


class SshServer:
    """One SSH server on all addresses of the loopback interface, and on no other interface. Knows
    the options of the clients: "default", "curve25519" and "warm" are their variants."""

    def __init__(self, directory, port, dead_subnet, dead_port):
        self.directory, self.port = directory, port
        for name in ("m", "home"):
            os.makedirs(os.path.join(directory, name))
        for key in ("host", "user"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f",
                            os.path.join(directory, key)], check=True)
        shutil.copy(f"{directory}/user.pub", f"{directory}/authorized")
        self.config = write(f"{directory}/server", "\n".join([
            # A domain of the routing table is an interface here: "lo".
            f"Port {port}", "ListenAddress 0.0.0.0 rdomain lo", f"HostKey {directory}/host",
            f"AuthorizedKeysFile {directory}/authorized", "StrictModes no", "UsePAM no",
            "PasswordAuthentication no", "PermitRootLogin prohibit-password",
            # A home without start-up files: bash reads them for every command that sshd runs, and
            # what an account's own do is not the cost of ssh.
            f"SetEnv HOME={directory}/home",
            "MaxStartups 5000:30:5000", "MaxSessions 1000", "PidFile none", "LogLevel ERROR", ""]))
        common = [f"Host {dead_subnet}.*", f"  Port {dead_port}", "Host *", f"  Port {port}",
                  f"  IdentityFile {directory}/user", "  IdentitiesOnly yes", "  BatchMode yes",
                  "  StrictHostKeyChecking no", "  UserKnownHostsFile /dev/null",
                  "  GlobalKnownHostsFile /dev/null", "  LogLevel ERROR", "  ConnectTimeout 30"]
        curve = common + ["  KexAlgorithms curve25519-sha256"]
        warm = curve + [f"  ControlPath {directory}/m/%h"]
        self.configs = {
            variant: write(f"{directory}/{variant}", "\n".join(lines) + "\n")
            for variant, lines in (("default", common), ("curve25519", curve), ("warm", warm))}
        self.masters = {}
        self.process = None

    def __enter__(self):
        os.makedirs("/run/sshd", exist_ok=True)
        self.process = subprocess.Popen([SSHD, "-D", "-f", self.config, "-E",
                                         f"{self.directory}/log"], stdin=subprocess.DEVNULL)
        try:
            self._await()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        processes = [*self.masters.values(), *([self.process] if self.process else [])]
        for process in processes:
            process.terminate()
        for process in processes:
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self.masters = {}

    def _await(self):
        for _ in range(100):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            if self.process.poll() is not None:
                break
            time.sleep(0.1)
        with open(f"{self.directory}/log", encoding="utf-8", errors="replace") as file:
            raise Failed(f"sshd does not listen: {file.read().strip()}")

    def ssh(self, variant, ip, *command):
        return ["ssh", "-F", self.configs[variant], ip, *command]

    def keep_connected(self, ips):
        """Connections through which the variant "warm" runs; they stay until the server ends."""
        missing = [ip for ip in ips if ip not in self.masters]
        for start in range(0, len(missing), FANOUT):
            batch = missing[start:start + FANOUT]
            for ip in batch:
                self.masters[ip] = subprocess.Popen(
                    ["ssh", "-F", self.configs["warm"], "-M", "-N", ip], stdin=subprocess.DEVNULL,
                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            deadline = time.monotonic() + 60
            while not all(os.path.exists(f"{self.directory}/m/{ip}") for ip in batch):
                if time.monotonic() > deadline:
                    raise Failed("the connections of ssh do not come up")
                time.sleep(0.02)

    def master_pids(self, ips):
        return [self.masters[ip].pid for ip in ips]

    def pdsh(self, variant, ips, line, *options):
        return ["pdsh", "-R", "ssh", "-S", "-f", str(FANOUT), *options, "-w", ",".join(ips), line]

    def clush(self, variant, ips, line):
        return ["clush", "-S", "-f", str(FANOUT), "-o", f"-F {self.configs[variant]}", "-w",
                ",".join(ips), line]

    def pssh(self, variant, ips, line):
        hosts = write(f"{self.directory}/hosts", "\n".join(ips) + "\n")
        return ["parallel-ssh", "-p", str(FANOUT), "-t", "0", "-h", hosts, "-x",
                f"-F {self.configs[variant]}", line]

    def env(self, variant):
        return dict(os.environ, PDSH_SSH_ARGS_APPEND=f"-F {self.configs[variant]}")


class FloorServer:
    """The bare server on the addresses of a cluster."""

    def __init__(self, tools, cluster, port):
        self.tools, self.cluster, self.port = tools, cluster, port

    def __enter__(self):
        self.process = subprocess.Popen(
            [self.tools["floor"], "server", *self._where(self.cluster.count)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        try:
            # It may not say anything at all.
            ready, _, _ = select.select([self.process.stdout], [], [], 120)
            if not ready or self.process.stdout.readline() != b"ready\n":
                raise Failed("the bare server does not come up")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.stdout.close()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def _where(self, count):
        return ["--cluster", self.cluster.directory, "--nodes", str(count), "--port",
                str(self.port)]

    def client(self, mode, count, *options):
        return [self.tools["floor"], "client", mode, *self._where(count), *options]


class DeadNodes:
    """Addresses that do not do what they should: "refusing" has no listener, "silent" accepts and
    never says a word, "black hole" drops what wants to connect, since its queue is full."""

    def __init__(self, kind, subnet, port, count):
        self.kind = kind
        self.addresses = [(f"{subnet}.0.{i + 1}", port) for i in range(count)]

    def __enter__(self):
        self.stack = contextlib.ExitStack()
        with self.stack:
            if self.kind != "refusing":
                for address in self.addresses:
                    self._listen(address)
            self.stack = self.stack.pop_all()
        return self

    def _listen(self, address):
        listener = self.stack.enter_context(socket.socket())
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind(address)
        # The kernel accepts for a program that never does.
        listener.listen(0 if self.kind == "black hole" else 64)
        if self.kind != "black hole":
            return
        for _ in range(4):
            filler = self.stack.enter_context(socket.socket())
            filler.setblocking(False)
            filler.connect_ex(address)

    def __exit__(self, *_):
        self.stack.close()


def work_directory(parent="/dev/shm"):
    """In memory: no disk is compared here. A short name: sockets lie in it."""
    return tempfile.mkdtemp(prefix="kelsh-peers.", dir=parent)
