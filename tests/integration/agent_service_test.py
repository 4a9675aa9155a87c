"""velo-agent as a service: what those see who run it and watch over it."""

import argparse
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest
import urllib.request

from agent_process import PATIENCE, Agent, run

PROGRAM = None
SYSTEMD = None

QUIET = ("--policies", "2", "--classes", "3", "--rate", "0")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Directory(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def file(self, name, text=None):
        path = os.path.join(self.directory, name)
        if text is not None:
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        return path


class Metrics(Directory):
    def fetch(self, address):
        with urllib.request.urlopen(f"http://{address}/metrics", timeout=PATIENCE) as answer:
            self.assertTrue(answer.headers["Content-Type"].startswith("text/plain"))
            return answer.read().decode()

    def parsed(self, text):
        """name -> (type, {labels: value}); whatever is no metric is a fault."""
        families = {}
        for line in text.splitlines():
            comment = re.fullmatch(r"# (HELP|TYPE) (\w+) (.+)", line)
            if comment:
                if comment[1] == "TYPE":
                    self.assertNotIn(comment[2], families)
                    families[comment[2]] = (comment[3], {})
                continue
            value = re.fullmatch(r'(\w+)(?:\{((?:\w+="[^"]*",?)*)\})? (\S+)', line)
            self.assertIsNotNone(value, line)
            # A summary, which the exposer has of itself, has two more names.
            name = value[1] if value[1] in families else re.sub("_(count|sum)$", "", value[1])
            if families[name][0] == "summary":
                continue
            values = families[name][1]
            self.assertNotIn(value[2], values)
            values[value[2]] = float(value[3])
        return families

    def test_they_can_be_parsed_and_are_those_of_the_agent(self):
        address = f"127.0.0.1:{free_port()}"
        with Agent(PROGRAM, *QUIET, "--metrics", address,
                   listen=f"unix:{self.directory}/s") as agent:
            agent.until(lambda a: len(a.counters) == 6, "6 classes were told")
            families = self.parsed(self.fetch(address))
            self.assertEqual(families["velo_agent_pbr_short_keys"], ("gauge", {None: 6}))
            self.assertEqual(families["velo_agent_pbr_short_keys_assigned_total"],
                             ("counter", {None: 6}))
            self.assertEqual(families["velo_agent_ready"], ("gauge", {None: 1}))
            self.assertEqual(families["velo_agent_connections"], ("gauge", {None: 0}))
            self.assertEqual(families["velo_agent_loop_answering"], ("gauge", {None: 1}))
            self.assertEqual(
                families["velo_agent_task_work_items_total"][1]['task="CounterTreeWriter"'], 6)
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertEqual(agent.complaints, [])

    def test_a_port_that_is_taken_is_an_error_at_the_start(self):
        with socket.socket() as other:
            other.bind(("127.0.0.1", 0))
            other.listen()
            address = f"127.0.0.1:{other.getsockname()[1]}"
            self.assertEqual(
                run(PROGRAM, "--listen", "none", "--metrics", address),
                (1, b"", [f"velo-agent: cannot serve metrics at {address}: the port is taken, or "
                          "this machine has no such address"]))


class Configuration(Directory):
    def test_a_file_says_the_same_as_the_command_line(self):
        config = self.file("velo.conf", "# ours\npolicies = 2\nclasses = 3\nrate = 0\n"
                                        f"listen = unix:{self.directory}/agent.sock\n")
        with Agent(PROGRAM, "--config", config, listen=None) as agent:
            agent.until(lambda a: len(a.counters) == 6, "6 classes were told")
            self.assertIn("agent.sock", os.listdir(self.directory))
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertEqual(agent.complaints, [])

    def test_an_error_names_file_and_line(self):
        config = self.file("velo.conf", "policies = 2\nclasses = none\n")
        self.assertEqual(run(PROGRAM, "--config", config),
                         (2, b"", [f'velo-agent: {config}:2: --classes: "none" is not a number from '
                                   '1 to 10000000']))

    def test_the_example_can_be_used_as_it_is_and_every_line_that_it_offers(self):
        example = os.path.join(SYSTEMD, "velo-agent.conf")
        with open(example, encoding="utf-8") as file:
            lines = file.read().splitlines()
        listen = ("--listen", f"unix:{self.directory}/agent.sock")
        self.assertEqual(run(PROGRAM, "--config", example, "--duration", "1", *listen)[0], 0)
        offered = [line[2:] for line in lines if re.match(r"# [a-z-]+ = ", line)]
        self.assertGreater(len(offered), 10)
        help_text = " ".join(run(PROGRAM, "--help")[1].decode().split())
        for name, value in re.findall(r"^# ([a-z-]+) = (\d+)$", "\n".join(lines), re.MULTILINE):
            with self.subTest(default=name):
                self.assertRegex(help_text, rf"--{name} [^()]*\({value}\)")
        for line in offered:
            with self.subTest(line=line):
                config = self.file("one.conf", line)
                _, _, complaints = run(PROGRAM, "--config", config, "--listen", "none",
                                       "--duration", "1")
                # What it needs besides may be missing, but it is right in itself.
                self.assertNotRegex("".join(complaints), "unknown option|is not")


def entries_of(path):
    """The entries of a recording; half a one is a fault."""
    with open(path, "rb") as file:
        content = file.read()
    entries = []
    at = 0
    while at < len(content):
        size = shift = 0
        while True:
            byte = content[at]
            at += 1
            size |= (byte & 0x7f) << shift
            shift += 7
            if not byte & 0x80:
                break
        assert at + size <= len(content), "half an entry"
        entries.append(content[at:at + size])
        at += size
    return entries


class Recording(Directory):
    def test_what_a_source_publishes_is_written_down(self):
        path = self.file("recording")
        with Agent(PROGRAM, *QUIET, "--record", path) as agent:
            agent.until(lambda a: len(a.counters) == 6, "6 classes were told")
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertEqual(agent.complaints, [])
        header, *batches = entries_of(path)
        version = run(PROGRAM, "--version")[1].split()[1]
        self.assertIn(version, header)
        everything = b"".join(batches)
        for name in (b"policy0", b"policy1", b"class0", b"class1", b"class2"):
            self.assertIn(name, everything)

    def test_a_full_disk_is_told_and_stops_nothing(self):
        with Agent(PROGRAM, "--policies", "2", "--classes", "3", "--rate", "1000",
                   "--record", "/dev/full") as agent:
            agent.until(lambda a: a.events("note"), "it was told")
            self.assertEqual(agent.events("note")[0]["what"],
                             "recording to /dev/full has ended: No space left on device; what was "
                             "recorded before can be replayed")
            records = len(agent.events("record"))
            agent.until(lambda a: len(a.events("record")) > records + 100, "it went on")
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertEqual(len(agent.events("note")), 1)

    def test_without_lines_it_is_told_on_standard_error(self):
        with Agent(PROGRAM, *QUIET, "--format", "none", "--record", "/dev/full") as agent:
            agent.until(lambda a: a.complaints, "it was told")
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertEqual(agent.complaints,
                             ["!! recording to /dev/full has ended: No space left on device; what "
                              "was recorded before can be replayed"])
            self.assertEqual(agent.lines, [])

    def test_a_file_that_cannot_be_made_is_an_error_at_the_start(self):
        path = self.file("missing/recording")
        self.assertEqual(run(PROGRAM, "--listen", "none", "--record", path),
                         (1, b"", [f"velo-agent: cannot record to {path}: "
                                   "No such file or directory"]))


class ServiceManager(Directory):
    def test_it_is_told_when_the_agent_is_ready_lives_and_ends(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.settimeout(PATIENCE)
            manager.bind(self.file("notify"))
            with Agent(PROGRAM, *QUIET, env={"NOTIFY_SOCKET": self.file("notify"),
                                             "WATCHDOG_USEC": "20000"}) as agent:
                def told():
                    return manager.recv(4096).decode().split("\n")[0]

                self.assertEqual(told(), "READY=1")
                for _ in range(3):
                    self.assertEqual(told(), "WATCHDOG=1")
                agent.send(signal.SIGTERM)
                while (last := told()) == "WATCHDOG=1":
                    pass
                self.assertEqual(last, "STOPPING=1")
                self.assertEqual(agent.wait(), 0)
                self.assertEqual(agent.complaints, [])

    @unittest.skipUnless(shutil.which("systemd-analyze"), "there is no systemd-analyze")
    def test_the_unit_is_well_formed(self):
        with open(os.path.join(SYSTEMD, "velo-agent.service"), encoding="utf-8") as file:
            unit = file.read()
        self.assertIn("/usr/bin/velo-agent ", unit)
        # The program need not be installed, nor its manual.
        unit = unit.replace("/usr/bin/velo-agent ", f"{os.path.abspath(PROGRAM)} ")
        path = self.file("velo-agent.service", unit)
        verified = subprocess.run(["systemd-analyze", "verify", "--man=no", path],
                                  capture_output=True, timeout=PATIENCE, check=False)
        self.assertEqual((verified.returncode, verified.stderr), (0, b""))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--agent", required=True)
    parser.add_argument("--systemd", required=True)
    arguments, rest = parser.parse_known_args()
    PROGRAM = arguments.agent
    SYSTEMD = arguments.systemd
    unittest.main(argv=[sys.argv[0], *rest])
