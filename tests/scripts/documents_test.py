#!/usr/bin/env python3
"""Types what README.md and the guides say, in their order, with the programs of this build.

Usage: documents_test.py SOURCE_DIR BINARY_DIR [TEST...]

What differs from the words of the documents, and why:
- Lines of README.md that install packages, build, or run the demo and the tests are left out: the build
  at hand stands in for theirs.
- The local cluster gets addresses and a directory of the test's own, since others may have the usual ones.
- The machines of the guides are directories; ssh, systemd and /opt are played by small programs.
- Blocks with apt-get need the packages, and the block that flashes asks at a terminal: scripts/package-test
  types those.
"""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import types
import unittest

SOURCE_DIR, BINARY_DIR = sys.argv.pop(1), sys.argv.pop(1)
MARK = "==== documents_test: next step"
# In README.md; see above.
LEFT_OUT = re.compile(r"(scripts/(demo|test|install-deps)|cmake) ?")
ATTEMPTS = 20


def read(path):
    with open(os.path.join(SOURCE_DIR, path), encoding="utf-8") as file:
        return file.read()


def indented_blocks(text):
    """The code blocks that are set in by four blanks, each as its lines."""
    block, blocks = [], []
    for line in text.splitlines() + ["end"]:
        if line.startswith("    "):
            block.append(line[4:])
        elif block:
            blocks.append(block)
            block = []
    return blocks


def fenced_blocks(text):
    """(the words behind the fence, the heading above, the block's text) of each fenced block."""
    found, heading, inside, block = [], "", None, []
    for line in text.splitlines():
        if inside is None and line.startswith("#"):
            heading = line.lstrip("# ")
        elif inside is None and line.startswith("```"):
            inside, block = line[3:], []
        elif inside is not None and line == "```":
            found.append((inside, heading, "\n".join(block) + "\n"))
            inside = None
        elif inside is not None:
            block.append(line)
    return found


def without_chance(lines):
    """Without times, which differ from run to run, and without empty lines."""
    return [re.sub(r"\(\d+ms\)", "(ms)", line) for line in lines if line.strip()]


def free_subnet(attempt):
    return f"127.{2 + (os.getpid() + attempt * 37) % 250}", 20000 + (os.getpid() + attempt) % 12000


def run_bash(script, environment=None, directory=None):
    return subprocess.run(["bash", "-euo", "pipefail", "-c", script], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                          env=environment, cwd=directory)


class Directory(unittest.TestCase):
    """A directory of the test's own."""

    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="kelsh-documents.")
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)

    def path(self, *names):
        return os.path.join(self.directory, *names)

    def write(self, path, text, mode=0o644):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, mode)


class Lab(Directory):
    """A tree as somebody has it who has built it as README.md says, and a cluster."""

    def setUp(self):
        super().setUp()
        self.tree, self.lab = self.path("tree"), self.path("lab")
        for name in ("scripts", "packaging"):
            shutil.copytree(os.path.join(SOURCE_DIR, name), os.path.join(self.tree, name))
        shutil.copy(os.path.join(SOURCE_DIR, "CMakeLists.txt"), self.tree)
        os.symlink(BINARY_DIR, os.path.join(self.tree, "build"))
        self.addCleanup(self.local_cluster, "stop")

    def local_cluster(self, command, *options):
        return subprocess.run([os.path.join(self.tree, "scripts/local-cluster"), command, "--dir",
                               self.lab, *options], stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)

    def start(self, nodes):
        for attempt in range(ATTEMPTS):
            subnet, port = free_subnet(attempt)
            run = self.local_cluster("start", "--nodes", str(nodes), "--subnet", subnet, "--port",
                                     str(port))
            if run.returncode == 0 or "is taken by another program" not in run.stdout:
                break
        self.assertEqual(0, run.returncode, run.stdout)


class Readme(Lab):
    def steps(self):
        """(command, the output shown or None), in order."""
        steps = []
        for block in indented_blocks(read("README.md")):
            shown = block[0].startswith("$ ")
            for line in block:
                line = line.replace("/tmp/lab", self.lab)
                if not shown:
                    steps.append((line, None))
                elif line.startswith("$ "):
                    steps.append((line[2:], []))
                else:
                    steps[-1][1].append(line)
        return [step for step in steps if not LEFT_OUT.match(step[0])]

    def test_does_what_its_lines_say_in_their_order(self):
        steps = self.steps()
        # Fewer would mean that the blocks are no longer found.
        self.assertGreaterEqual(len(steps), 8)
        for attempt in range(ATTEMPTS):
            subnet, port = free_subnet(attempt)
            script = ""
            for command, _ in steps:
                command = command.replace("local-cluster start",
                                          f"local-cluster start --subnet {subnet} --port {port}")
                script += f"echo '{MARK}'\n{command}\n"
            environment = dict(os.environ)
            environment.pop("KELSH_PATH", None)
            run = run_bash(script, environment, self.tree)
            if run.returncode == 0 or "is taken by another program" not in run.stdout:
                break
        self.assertEqual(0, run.returncode, run.stdout)
        outputs = run.stdout.split(MARK + "\n")[1:]
        self.assertEqual(len(steps), len(outputs), run.stdout)
        for (command, expected), output in zip(steps, outputs):
            if expected is not None:
                self.assertEqual(without_chance(expected), without_chance(output.splitlines()),
                                 command)

    def test_says_which_build_runs(self):
        self.start(1)
        self.local_cluster("stop")
        run = self.local_cluster("start")
        self.assertIn(f"Of the builds here {self.tree}/build is the newest", run.stdout)

    def test_of_several_builds_the_newest_runs(self):
        shutil.rmtree(self.lab, ignore_errors=True)
        os.unlink(os.path.join(self.tree, "build"))
        for age, build in ((100, "build"), (300, "build/dev"), (200, "build/release")):
            for program in ("kelnode", "kelpack"):
                path = os.path.join(self.tree, build, "bin", program)
                self.write(path, "#!/bin/sh\nexit 1\n", 0o755)
                os.utime(path, (age, age))
        run = self.local_cluster("start", "--nodes", "1", "--subnet", "127.251")
        self.assertNotEqual(0, run.returncode)
        self.assertIn(f"{self.tree}/build/dev is the newest", run.stdout)

    def test_names_every_folder_of_the_tree(self):
        text = read("README.md")
        for folder in subprocess.run(["git", "-C", SOURCE_DIR, "ls-files", "-z"], check=True,
                                     stdout=subprocess.PIPE, text=True).stdout.split("\0"):
            folder = folder.split("/")[0] + "/"
            if os.path.isdir(os.path.join(SOURCE_DIR, folder)) and folder not in (".ci/", "cmake/"):
                self.assertIn("`" + folder, text)


class WritingCommands(Lab):
    def test_its_commands_are_in_order_and_run(self):
        self.start(2)
        blocks = fenced_blocks(read("docs/writing-commands.md"))
        text = "".join(block for words, _, block in blocks if not words)
        self.assertIn("[cmdset]", text)
        self.write(self.path("lab/kelsh/cmd.cfg"), text)
        environment = dict(os.environ, KELSH_PATH=self.path("lab/kelsh"),
                           PATH=BINARY_DIR + "/bin:" + os.environ["PATH"])
        typed = [block for words, _, block in blocks if words == "sh master"]
        self.assertTrue(typed)
        for block in typed:
            run = run_bash(block, environment)
            self.assertEqual(0, run.returncode, block + run.stdout)
        run = run_bash("kelsh-lint", environment)
        self.assertEqual((0, ""), (run.returncode, run.stdout))


def literals():
    """Every text of the shell's sources, those in several pieces put together."""
    text = ""
    for name in subprocess.run(["git", "-C", SOURCE_DIR, "ls-files", "src/*.cpp"], check=True,
                               stdout=subprocess.PIPE, text=True).stdout.split():
        text += read(name)
    text = re.sub(r'"\s*\n\s*"', "", text)
    return {found.replace('\\"', '"').replace("\\n", "") for found in
            re.findall(r'"((?:[^"\\\n]|\\.)*)"', text)}


class Contributing(unittest.TestCase):
    def test_its_table_has_every_room_and_its_classes_live_there(self):
        rows = re.findall(r"^\| (`[^|]*`) \| [^|]* \| (`[^|]*`) \|$", read("CONTRIBUTING.md"), re.M)
        named = set()
        for rooms, classes in rows:
            folders = re.findall("`([^`]+)`", rooms)
            named.update(folders)
            if len(folders) == 1:
                for name in re.findall("`([^`]+)`", classes):
                    self.assertTrue(os.path.exists(f"{SOURCE_DIR}/{folders[0]}/{name}.h"),
                                    f"{folders[0]}/{name}.h")
        rooms = {os.path.dirname(path) for path in
                 subprocess.run(["git", "-C", SOURCE_DIR, "ls-files", "runtime/*.h", "src/*.h",
                                 "agent/*.h"], check=True, stdout=subprocess.PIPE,
                                text=True).stdout.split()}
        self.assertEqual(rooms | {"launcher", "tools"}, named)


class Links(unittest.TestCase):
    def test_lead_to_files_and_headings_that_exist(self):
        pages = subprocess.run(["git", "-C", SOURCE_DIR, "ls-files", "*.md"], check=True,
                               stdout=subprocess.PIPE, text=True).stdout.split()
        self.assertIn("README.md", pages)
        for page in pages:
            for link in re.findall(r"\]\(([^)\s]+)\)", read(page)):
                if "://" in link:
                    continue
                name, _, heading = link.partition("#")
                path = os.path.normpath(os.path.join(os.path.dirname(page), name)) if name else page
                self.assertTrue(os.path.exists(os.path.join(SOURCE_DIR, path)), f"{page}: {link}")
                if heading:
                    headings = [re.sub(r"[^\w -]", "", line.lstrip("# ").lower()).replace(" ", "-")
                                for line in read(path).splitlines() if line.startswith("#")]
                    self.assertIn(heading, headings, page)


class Compatibility(unittest.TestCase):
    def test_its_odd_texts_are_those_of_the_shell(self):
        page = read("docs/compatibility.md")
        rows = page.split("## Texts that look like mistakes")[1].split("\n## ")[0]
        # Each from a quote behind a blank or a bar to one before a blank, a comma or a bar.
        texts = re.findall(r'(?<=[ |])"(.+?)"(?= \*|, | \||, |\s\.\.\.)', rows)
        self.assertGreaterEqual(len(texts), 12)
        everything = "\0".join(literals())
        for text in texts:
            self.assertIn(re.sub(r"\\(.)", r"\1", text), everything)


class Performance(unittest.TestCase):
    def test_its_table_is_what_the_results_say(self):
        page = read("docs/performance.md").split("<!-- figures:begin -->")[1]
        rows = [row.strip("| ").split(" | ") for row in page.split("<!-- figures:end -->")[0]
                .splitlines() if row.startswith("| ")][1:]
        self.assertGreaterEqual(len(rows), 10)
        results = read("bench/results/peers.md")
        for what, ours, others in rows:
            self.assertIn(f"| {what} | {ours}", results)
            for other in others.split("; "):
                name, median = re.fullmatch(r"(.+?) ([\d.,]+ \w+)( \(ratio.*)?", other).groups()[:2]
                self.assertRegex(results, f"{re.escape(what)} .*{re.escape(name)} \\| {median}")

    def test_the_benchmark_writes_that_table(self):
        sys.path.insert(0, os.path.join(SOURCE_DIR, "bench/peerbench"))
        sys.dont_write_bytecode = True
        import report  # pylint: disable=import-outside-toplevel

        def figure(median):
            return types.SimpleNamespace(median=median, values=[median])

        table = report.short_table([report.Row("a command", "ms", figure(10), "pdsh", figure(700), 60),
                                    report.Row("a command", "ms", figure(10), "bare TLS", figure(4),
                                               1.5, least_gain=False),
                                    report.Row("a file", "ms", figure(20), "scp", figure(15), None)])
        self.assertEqual("| What | kelsh | The others |\n|---|---|---|\n"
                         "| a command | 10.0 ms | pdsh 700 ms; bare TLS 4.00 ms "
                         "(ratio 2.50×, wanted ≤ 1.5×) |\n"
                         "| a file | 20.0 ms | scp 15.0 ms |", table)


SCP = r"""#!/bin/bash
set -euo pipefail
target=${!#}
case ${target#*@} in
    192.168.10.1:*) machine=node01 ;;
    192.168.10.2:*) machine=node02 ;;
    *) exit 1 ;;
esac
exec cp -- "${@:1:$#-1}" "$WORLD/$machine${target#*:}"
"""

SYSTEMCTL = r"""#!/bin/bash
set -euo pipefail
case $* in
    "enable --now kelnode")
        export KELNODE_PATH=$WORLD/$MACHINE/opt/kelnode
        mkfifo "$WORLD/$MACHINE/ready"
        "$BUILD/bin/kelnode" --ready-fd 3 3<>"$WORLD/$MACHINE/ready" </dev/null \
            >"$WORLD/$MACHINE/said" 2>&1 &
        echo $! >"$WORLD/$MACHINE/pid"
        read -r -t 60 _ <>"$WORLD/$MACHINE/ready"
        ;;
    "reload kelnode") kill -HUP "$(<"$WORLD/$MACHINE/pid")" ;;
    *)
        echo "systemctl: what is $*?" >&2
        exit 1
        ;;
esac
"""


class Guides(Directory):
    """The machines of the guides, each a directory with an /opt and a /root of its own."""

    def setUp(self):
        super().setUp()
        self.subnet = free_subnet(0)[0]
        self.write(self.path("bin/scp"), SCP, 0o755)
        self.write(self.path("bin/systemctl"), SYSTEMCTL, 0o755)
        for program, source in (("kelsh", "bin/kelsh"), ("kelsh-lint", "bin/kelsh-lint"),
                                ("kelpack", "bin/kelpack"), ("kelnode", "bin/kelnode")):
            os.symlink(os.path.join(BINARY_DIR, source), self.path("bin", program))
        os.symlink(os.path.join(SOURCE_DIR, "scripts/kelsh-pki"), self.path("bin/kelsh-pki"))
        packaging = os.path.join(SOURCE_DIR, "packaging")
        for node in ("node01", "node02"):
            for name in ("opt/kelnode/tools", "root"):
                os.makedirs(self.path(node, name))
            shutil.copy(os.path.join(packaging, "kelnode.cfg"), self.path(node, "opt/kelnode"))
        for name in ("opt/kelsh/ssl", "opt/kelsh/cmdexedump", "root"):
            os.makedirs(self.path("master", name))
        for name in ("cmd.cfg", "ssl_master.cfg", "log4cxx.properties"):
            self.write(self.path("master/opt/kelsh", name),
                       self.translate("master", read("packaging/" + name)))
        self.addCleanup(self.end_agents)

    def end_agents(self):
        for node in ("node01", "node02"):
            try:
                with open(self.path(node, "pid"), encoding="utf-8") as file:
                    os.kill(int(file.read()), signal.SIGTERM)
            except (OSError, ValueError):
                pass

    def translate(self, machine, text):
        """Names of files and addresses become those of the directory and of this machine."""
        text = re.sub(r"(?<![:\w])/(opt|root)\b", self.path(machine) + r"/\1", text)
        return re.sub(r"(?<!@)192\.168\.10\.", self.subnet + ".10.", text)

    def follow(self, document):
        """Types the blocks up to the heading "Removing"; returns how many."""
        count = 0
        for words, heading, block in fenced_blocks(read(document)):
            if heading == "Removing":
                break
            if not words.startswith("sh ") or "apt-get" in block or "r3biosfw flash" in block:
                continue
            for machine in words.split()[1:]:
                environment = {
                    "PATH": self.path("bin") + ":" + os.environ["PATH"], "HOME": self.directory,
                    "WORLD": self.directory, "MACHINE": machine, "BUILD": BINARY_DIR,
                    "KELSH_PATH": self.path("master/opt/kelsh"),
                    "KELNODE_PATH": self.path(machine, "opt/kelnode")}
                environment.update({name: value for name, value in os.environ.items()
                                    if name.endswith("SAN_OPTIONS")})
                run = run_bash(self.translate(machine, block), environment,
                               self.path(machine, "root"))
                self.assertEqual(0, run.returncode, f"{document}, on {machine}:\n{block}\n"
                                 + run.stdout)
            count += 1
        return count

    def test_lead_to_a_cluster_that_answers_and_keep_it_running(self):
        self.assertGreaterEqual(self.follow("docs/getting-started.md"), 5)
        self.assertGreaterEqual(self.follow("docs/operating.md"), 3)


if __name__ == "__main__":
    unittest.main()
