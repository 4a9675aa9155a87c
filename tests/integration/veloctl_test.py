"""veloctl against velo-agent, both as programs: what people type, and what comes of it."""

import argparse
import contextlib
import json
import os
import pty
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from agent_process import PATIENCE, Agent, run
from certificates import for_localhost, self_signed

AGENT = None
VELOCTL = None


class Lines:
    """A veloctl that goes on, line by line."""

    def __init__(self, *command):
        self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL,
                                         stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        # Whoever waits for a line in vain is woken up by the end of the program.
        self._watchdog = threading.Timer(PATIENCE, self._process.kill)
        self._watchdog.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._watchdog.cancel()
        if self._process.poll() is None:
            self._process.kill()
        self._process.wait()
        self._process.stdout.close()
        self._process.stderr.close()

    def until(self, condition):
        """The next line, parsed, for which `condition` holds."""
        for text in self._process.stdout:
            line = json.loads(text)
            if condition(line):
                return line
        raise AssertionError(f"ended in vain: {self._process.stderr.read()}")

    def event(self, kind):
        return self.until(lambda line: line["event"] == kind)

    def ends_on(self, number):
        self._process.send_signal(number)
        code = self._process.wait(PATIENCE)
        return code, self._process.stderr.read()


class Veloctl(unittest.TestCase):
    """Has an agent without a source of its own, and a directory."""

    OPTIONS = ()

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name
        self.address = "unix:" + self.path("agent.sock")
        self.agent = self.started(*self.OPTIONS)

    def path(self, name):
        return os.path.join(self.directory, name)

    def file(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path(name)

    def started(self, *options):
        """An agent that clients can use."""
        agent = Agent(AGENT, "--source", "none", *options, listen=self.address)
        self.addCleanup(agent.__exit__, None, None, None)
        self.wait_until_ready()
        return agent

    def wait_until_ready(self, *options):
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            code, out, _ = self.veloctl("show", "status", "--format", "json", *options)
            if code == 0 and json.loads(out)["ready"]:
                return
        raise AssertionError("the agent never became ready")

    def veloctl(self, *arguments, **how):
        """Exit code, output, lines on standard error."""
        return run(VELOCTL, "--agent", self.address, *arguments, **how)

    def output(self, *arguments):
        """Of a run that went well."""
        code, out, complaints = self.veloctl(*arguments)
        self.assertEqual((code, complaints), (0, []), arguments)
        return out.decode()

    def answer(self, *arguments):
        return json.loads(self.output(*arguments, "--format", "json"))

    def refused(self, code, *arguments):
        ended, out, complaints = self.veloctl(*arguments)
        self.assertEqual((ended, out), (code, b""), complaints)
        self.assertEqual(len(complaints), 1, complaints)
        return complaints[0]

    def following(self, *arguments):
        return Lines(VELOCTL, "--agent", self.address, "--format", "json", *arguments)


class Counters(Veloctl):
    def test_what_is_published_can_be_got_and_removed(self):
        self.assertEqual(self.output("publish", "pbr", "set", "web", "http", "12", "1008"),
                         "1 published\n")
        self.assertEqual(self.output("get", "web", "http"), "1 web http: 12 packets, 1008 bytes\n")
        self.assertEqual(self.answer("get", "--short-key", "1")["counters"],
                         {"packets": 12, "bytes": 1008})
        self.output("publish", "pbr", "remove", "web", "http")
        self.assertIn("(NOT_FOUND)", self.refused(1, "get", "web", "http"))

    def test_a_file_of_changes_is_watched_until_all_is_known(self):
        changes = "".join(json.dumps({"set_class": {"policy": f"p{n % 10}", "class_name": f"c{n}",
                                                    "packets": n, "bytes": 84 * n}}) + "\n"
                          for n in range(2500))
        self.assertEqual(self.output("publish", "pbr", "from", self.file("changes", changes)),
                         "2500 published\n")
        lines = [json.loads(line) for line in
                 self.output("watch", "pbr", "--until-sync", "--format", "json").splitlines()]
        self.assertEqual(lines[0], {"event": "opened", "outcome": "snapshot"})
        self.assertEqual(lines[-1], {"event": "in_sync"})
        records = [line for line in lines if line["event"] == "record"]
        self.assertEqual({(r["long_key"]["policy"], r["long_key"]["class"]): r["data"]["packets"]
                          for r in records},
                         {(f"p{n % 10}", f"c{n}"): n for n in range(2500)})

    def test_names_are_bytes(self):
        self.output("publish", "pbr", "set", b"p\xff", "c\n", "1", "2")
        self.assertEqual(self.output("get", b"p\xff", "c\n"),
                         "1 p\\xff c\\x0a: 1 packets, 2 bytes\n")
        self.assertEqual(self.answer("get", b"p\xff", "c\n")["long_key"]["policy_hex"], "70ff")

    def test_changes_are_watched_as_they_come_and_a_signal_ends_it(self):
        with self.following("watch", "pbr") as watch:
            watch.event("in_sync")
            self.output("publish", "pbr", "set", "web", "http", "12", "1008")
            self.assertEqual(watch.event("record")["data"], {"packets": 12, "bytes": 1008})
            self.output("publish", "pbr", "remove", "web")
            self.assertTrue(watch.event("record")["deleted"])
            self.assertEqual(watch.ends_on(signal.SIGINT), (0, b""))

    def test_a_watch_outlives_its_agent(self):
        self.output("publish", "pbr", "set", "web", "http", "12", "1008")
        with self.following("watch", "pbr") as watch:
            watch.event("in_sync")
            self.agent.send(signal.SIGKILL)
            watch.event("interrupted")
            self.agent.wait()
            self.started()
            self.assertEqual(watch.event("opened")["outcome"], "reset")
            watch.event("in_sync")
            self.output("publish", "pbr", "set", "web", "dns", "1", "2")
            self.assertEqual(watch.event("record")["long_key"]["class"], "dns")
            self.assertEqual(watch.ends_on(signal.SIGTERM), (0, b""))

    def test_on_a_terminal_there_is_a_live_table(self):
        self.output("publish", "pbr", "set", "web", "http", "12", "1008")
        ours, theirs = pty.openpty()
        with subprocess.Popen([VELOCTL, "--agent", self.address, "watch", "pbr", "--interval",
                               "100"], stdin=subprocess.DEVNULL, stdout=theirs,
                              stderr=subprocess.PIPE) as watch:
            os.close(theirs)
            watchdog = threading.Timer(PATIENCE, watch.kill)
            watchdog.start()
            drawn = b""
            with contextlib.suppress(OSError):  # the end of a terminal
                while not (b"in sync" in drawn and b"http" in drawn.split(b"in sync")[-1]):
                    drawn += os.read(ours, 65536)
            watchdog.cancel()
            watch.send_signal(signal.SIGINT)
            _, complaints = watch.communicate(timeout=PATIENCE)
            os.close(ours)
        self.assertEqual((watch.returncode, complaints), (0, b""))
        self.assertIn(b"PACKETS/S", drawn)


class Routes(Veloctl):
    def test_a_route_is_told_when_its_group_has_a_name(self):
        with self.following("watch", "mpls") as watch:
            watch.event("opened")
            self.output("publish", "mpls", "set", "16", "--group", "7")
            parked = self.answer("show", "parked")["parked"]
            self.assertEqual([(p["nexthop_group_id"], p["routes"]) for p in parked], [(7, 1)])
            self.output("publish", "nhg", "set", "7", "to-spine")
            route = watch.event("route")
            self.assertEqual((route["label"], route["nexthop_group_id"],
                              route["nexthop_group_name"]), (16, 7, "to-spine"))
            self.assertEqual(self.answer("show", "parked")["parked"], [])
            self.assertEqual(watch.ends_on(signal.SIGINT), (0, b""))


class Configuration(Veloctl):
    def test_weights_are_set_listed_resynced_and_deleted(self):
        self.assertEqual(self.output("weights", "set", "7=30", "8=40", "9=50"), "3 set\n")
        wanted = self.file("weights", json.dumps({"weights": [{"interface_id": 8, "weight": 41},
                                                              {"interface_id": 9, "weight": 50}]}))
        self.assertEqual(self.answer("resync", "weights", "--from", wanted, "--dry-run"),
                         {"delete": [{"interface_id": 7, "weight": 30}],
                          "set": [{"interface_id": 8, "weight": 41}],
                          "keep": [{"interface_id": 9, "weight": 50}]})
        self.assertEqual(len(self.answer("weights", "list")["weights"]), 3)
        self.assertEqual(self.output("resync", "weights", "--from", wanted), "2 set, 1 deleted\n")
        self.assertEqual(self.answer("weights", "list"),
                         {"weights": [{"interface_id": 8, "weight": 41},
                                      {"interface_id": 9, "weight": 50}]})
        self.assertEqual(self.output("weights", "delete", "8", "7"), "1 deleted\n")

    def test_many_weights_are_listed_and_set_again(self):
        many = {"weights": [{"interface_id": n, "weight": n % 7} for n in range(3500)]}
        self.output("weights", "set", "--from", self.file("many", json.dumps(many)))
        listed = self.output("weights", "list", "--format", "json")
        self.assertEqual(json.loads(listed), many)
        again = self.file("again", listed)
        self.assertTrue(self.output("weights", "resync", "--from", again, "--dry-run")
                        .endswith("0 to delete, 0 to set, 3500 to keep; nothing has been changed\n"))

    def test_overrides_are_set_listed_resynced_and_deleted(self):
        self.output("overrides", "set", "--prefix", "2001:DB8:0::/32", "--next-hop",
                    "2001:DB8::0001", "--weight", "0")
        self.output("overrides", "set", "--vrf", "red", "--interface", "7", "--labels", "16,17",
                    "--to-next-hop", "192.0.2.9")
        listed = self.output("overrides", "list", "--format", "json")
        self.assertEqual(len(json.loads(listed)["overrides"]), 2)
        wanted = self.file("wanted", '{"overrides":[{"matcher":{"prefix":"2001:DB8:0::/32",'
                           '"via":{"next_hop":"2001:DB8::0001"}},"weight":0}]}')
        plan = self.answer("overrides", "resync", "--from", wanted, "--dry-run")
        self.assertEqual([len(plan[what]) for what in ("delete", "set", "keep")], [1, 0, 1])
        self.assertEqual(plan["delete"][0]["matcher"]["vrf"], "red")
        self.assertEqual(self.output("overrides", "list", "--format", "json"), listed)
        self.assertEqual(self.output("overrides", "resync", "--from", wanted), "1 set, 1 deleted\n")
        again = self.file("again", listed)
        self.output("overrides", "set", "--from", again)
        self.assertEqual(self.output("overrides", "list", "--format", "json"), listed)
        self.assertEqual(self.output("overrides", "delete", "--vrf", "red", "--interface", "7",
                                     "--labels", "16,17"), "1 deleted\n")

    def test_the_default_weight_is_shown_and_set(self):
        self.assertEqual(self.output("overrides", "default-weight"), "never set\n")
        self.output("overrides", "default-weight", "5")
        self.assertEqual(self.output("overrides", "default-weight"), "5\n")

    def test_the_agent_says_what_is_wrong_with_an_override(self):
        complaint = self.refused(1, "overrides", "set", "--next-hop", "192.0.2", "--weight", "1")
        self.assertIn("overrides[0]", complaint)
        self.assertTrue(complaint.endswith("(INVALID_ARGUMENT)"), complaint)


class Insight(Veloctl):
    def test_the_agent_is_shown_from_all_sides(self):
        status = self.answer("show", "status")
        self.assertTrue(status["ready"])
        self.assertTrue(status["mounts"])
        self.assertTrue(all(mount["present"] for mount in status["mounts"]))
        self.assertEqual(self.answer("show", "backlog")["backlog"], 0)
        self.assertTrue(self.answer("show", "tasks")["tasks"])
        with self.following("watch", "pbr") as watch:
            watch.event("in_sync")
            clients = self.answer("show", "clients")["clients"]
            self.assertIn(("pbr_counters", "in_sync"), [(c["stream"], c["state"]) for c in clients])
        for what in ("status", "backlog", "tasks", "clients", "parked"):
            self.assertTrue(self.output("show", what))


class Tls(Veloctl):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.server, server_key = for_localhost(directory.name, "server")
        self.client, self.client_key = self_signed(directory.name, "client")
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        self.address = f"localhost:{port}"
        agent = Agent(AGENT, "--source", "none", "--tls-cert", self.server, "--tls-key", server_key,
                      "--tls-client-ca", self.client, listen=f"127.0.0.1:{port}")
        self.addCleanup(agent.__exit__, None, None, None)

    def test_agent_and_client_know_each_other_by_their_certificates(self):
        trusted = ("--ca", self.server, "--cert", self.client, "--key", self.client_key)
        self.wait_until_ready(*trusted)
        self.assertTrue(self.output("show", "status", *trusted))
        for untrusted in ((), ("--ca", self.server), ("--ca", self.client, *trusted[2:])):
            with self.subTest(options=untrusted):
                self.assertIn("is not available",
                              self.refused(3, "show", "status", *untrusted))


class Recording(Veloctl):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.recording = os.path.join(directory.name, "recording")
        self.OPTIONS = ("--record", self.recording)
        super().setUp()

    def counters(self):
        lines = self.output("watch", "pbr", "--until-sync", "--format", "json").splitlines()
        return {(r["long_key"]["policy"], r["long_key"]["class"]): r["data"]
                for r in map(json.loads, lines) if r["event"] == "record"}

    def recorded(self):
        for n in range(5):
            self.output("publish", "pbr", "set", "web", f"c{n}", str(n), str(84 * n))
        self.output("publish", "pbr", "remove", "web", "c3")
        counters = self.counters()
        self.assertEqual(len(counters), 4)
        self.assertEqual(self.agent.ends_on(signal.SIGTERM), 0)
        return counters

    def test_what_was_recorded_is_the_same_when_replayed(self):
        counters = self.recorded()
        self.started()
        self.assertEqual(self.output("replay", self.recording, "--speed", "max"),
                         "6 batches replayed\n")
        self.assertEqual(self.counters(), counters)

    def test_a_recording_that_was_cut_off_is_refused_whole(self):
        self.recorded()
        with open(self.recording, "rb+") as file:
            file.truncate(os.path.getsize(self.recording) - 1)
        self.started()
        self.assertIn("it is damaged or cut off in entry 6", self.refused(2, "replay",
                                                                          self.recording))
        self.assertEqual(self.counters(), {})


class Shell(unittest.TestCase):
    def completed(self, *words):
        """What bash offers for the last of `words`."""
        script = (f'eval "$( {VELOCTL} completion bash )"; COMP_WORDS=( "$@" ); '
                  'COMP_CWORD=$(( $# - 1 )); _veloctl; printf "%s\\n" "${COMPREPLY[@]}"')
        code, out, complaints = run("bash", "-c", script, "bash", "veloctl", *words)
        self.assertEqual((code, complaints), (0, []))
        return out.decode().split()

    def test_subcommands_are_completed(self):
        self.assertEqual(self.completed("w"), ["watch", "weights"])
        self.assertEqual(self.completed("show", "c"), ["clients"])
        self.assertEqual(self.completed("--agent", "show", "sh"), ["show"])
        self.assertEqual(self.completed("publish", "mpls", "r"), ["remove"])

    def test_options_and_their_choices_are_completed(self):
        self.assertEqual(self.completed("watch", "pbr", "--u"), ["--until-sync"])
        self.assertEqual(self.completed("watch", "pbr", "--fo"), ["--format"])
        self.assertEqual(self.completed("--format", ""), ["text", "json"])
        self.assertEqual(self.completed("watch", "mpls", "--u"), [])
        self.assertEqual(self.completed("weights", "set", "--from", "x"), [])

    def test_what_only_the_shell_needs_is_not_listed(self):
        _, out, _ = run(VELOCTL, "--help")
        self.assertNotIn(b"completion", out)


class Alone(unittest.TestCase):
    def test_without_an_agent_there_is_an_exit_code_of_its_own(self):
        with tempfile.TemporaryDirectory() as directory:
            code, out, complaints = run(VELOCTL, "--agent", f"unix:{directory}/none", "show",
                                        "status")
        self.assertEqual((code, out, len(complaints)), (3, b"", 1))

    def test_a_full_disk_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([VELOCTL, "--help"], stdout=full, stderr=subprocess.PIPE,
                                  timeout=PATIENCE, check=False)
        self.assertEqual((done.returncode, done.stderr),
                         (1, b"veloctl: cannot write to standard output\n"))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--agent", required=True)
    parser.add_argument("--veloctl", required=True)
    given, rest = parser.parse_known_args()
    AGENT, VELOCTL = given.agent, given.veloctl
    unittest.main(argv=[sys.argv[0], *rest])
