"""velo-agent on the counters of the running kernel: real rules, real packets.

Runs itself again in a network namespace of its own, so that it needs no rule of the machine and
changes none. Where no namespace can be created it says why and is skipped (exit code 77).
"""

import argparse
import json
import os
import signal
import subprocess
import sys
import tempfile
import unittest

from agent_process import Agent, run

SKIPPED = 77
PROGRAM = None
FAILING = None

RULES = """
table inet pbr {
   counter web/http { }
   counter web/icmp { }
   counter plain { }
   chain output {
      type filter hook output priority 0
      icmp type echo-request counter name "web/icmp"
      icmp type echo-request counter comment "echo class"
      icmp type echo-reply counter comment "reply"
      ip ttl 0-255 icmp type echo-request counter comment "both"
      icmp type echo-reply counter comment "both"
      counter
   }
   chain input {
      type filter hook input priority 0
      icmp type echo-request counter comment "echo class"
   }
}
"""

# One ping of 56 bytes is 84 bytes on the wire of the loop.
PING = 84


def nft(commands):
    subprocess.run(["nft", "-f", "-"], input=commands.encode(), stdout=subprocess.DEVNULL, check=True)


def ping(count):
    subprocess.run(["ping", "-q", "-c", str(count), "-i", "0.002", "-s", "56", "127.0.0.1"],
                   stdout=subprocess.DEVNULL, check=True)


def kernel(family="inet", table="pbr"):
    """What the kernel counts now, by (policy, class), as the nft program tells it."""
    listing = subprocess.run(["nft", "-j", "list", "table", family, table],
                             stdout=subprocess.PIPE, check=True).stdout
    counters = {}

    def add(name, counter):
        packets, size = counters.get(name, (0, 0))
        counters[name] = (packets + counter["packets"], size + counter["bytes"])

    for entry in json.loads(listing)["nftables"]:
        if "counter" in entry and "/" in entry["counter"]["name"]:
            add(tuple(entry["counter"]["name"].split("/", 1)), entry["counter"])
        if "comment" in entry.get("rule", {}):
            for statement in entry["rule"]["expr"]:
                if isinstance(statement.get("counter"), dict):
                    add((entry["rule"]["chain"], entry["rule"]["comment"]), statement["counter"])
    return counters


class Kernel(unittest.TestCase):
    def setUp(self):
        nft("flush ruleset" + RULES)

    def agent(self, interval=20):
        return Agent(PROGRAM, "--source", "nftables", "--table", "inet/pbr",
                     "--interval", str(interval))

    def agrees(self, agent):
        """Nothing moves any more: what the consumer knows must become what the kernel counts."""
        agent.until(lambda a: a.counters == kernel(), "the consumer knew what the kernel counts")
        self.assertEqual(agent.faults, [])

    def test_what_the_consumer_knows_is_what_the_kernel_counts(self):
        with self.agent() as agent:
            self.agrees(agent)
            for round_ in (1, 2, 3):
                ping(10)
                self.agrees(agent)
                sent = 10 * round_
                self.assertEqual(agent.counters, {
                    ("web", "http"): (0, 0),
                    ("web", "icmp"): (sent, PING * sent),
                    ("output", "echo class"): (sent, PING * sent),
                    ("output", "reply"): (sent, PING * sent),
                    ("output", "both"): (2 * sent, 2 * PING * sent),
                    ("input", "echo class"): (sent, PING * sent)})
            self.assertEqual(sorted(agent.names), [1, 2, 3, 4, 5, 6], "told once, for ever")
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertEqual(agent.complaints, [])
            print(f"\nkernel and consumer agree on {kernel()}", file=sys.stderr)

    def test_counters_that_moved_before_the_start_are_told_too(self):
        ping(7)
        with self.agent() as agent:
            self.agrees(agent)
            self.assertEqual(agent.counters[("web", "icmp")], (7, 7 * PING))

    def test_packets_while_it_reads_are_all_told_in_the_end(self):
        with self.agent(interval=1) as agent:
            ping(500)
            self.agrees(agent)
            self.assertEqual(agent.counters[("output", "both")], (1000, 1000 * PING))

    def test_a_counter_that_goes_backwards_is_passed_on_as_it_is(self):
        with self.agent() as agent:
            ping(5)
            self.agrees(agent)
            nft("reset counter inet pbr web/icmp")
            self.agrees(agent)
            self.assertEqual(agent.counters[("web", "icmp")], (0, 0))
            self.assertEqual(len(agent.names), 6, "it kept its key")

    def test_counters_beyond_2_to_63_stay_exact(self):
        nft("add counter inet pbr big/one { packets 18446744073709551615 bytes 9223372036854775808 }")
        with self.agent() as agent:
            agent.until(lambda a: ("big", "one") in a.counters, "the counter was told")
            self.assertEqual(agent.counters[("big", "one")], (2**64 - 1, 2**63))

    def test_a_vanished_counter_removes_its_class_and_comes_back_under_a_new_key(self):
        with self.agent() as agent:
            self.agrees(agent)
            old = {name: short for short, name in agent.known.items()}[("web", "http")]
            nft("delete counter inet pbr web/http")
            self.agrees(agent)
            self.assertNotIn(("web", "http"), agent.counters)
            self.assertNotIn(old, agent.known)
            nft("add counter inet pbr web/http")
            self.agrees(agent)
            new = {name: short for short, name in agent.known.items()}[("web", "http")]
            self.assertGreater(new, 6, "a short key is never used again")

    def test_rules_that_vanish_remove_their_class_when_the_last_one_goes(self):
        with self.agent() as agent:
            ping(3)
            self.agrees(agent)
            nft("flush chain inet pbr input")
            self.agrees(agent)
            self.assertNotIn(("input", "echo class"), agent.counters)

    def test_a_vanished_table_removes_everything_and_is_no_error(self):
        with self.agent() as agent:
            ping(3)
            self.agrees(agent)
            nft("delete table inet pbr")
            agent.until(lambda a: not a.counters and not a.known, "everything was gone")
            nft(RULES)
            self.agrees(agent)
            self.assertEqual(len(agent.counters), 6)
            self.assertTrue(all(short > 6 for short in agent.known), agent.known)
            self.assertEqual(agent.events("source-error"), [])
            misnamed = 'the counter "plain" is not called POLICY/CLASS and is passed over'
            self.assertEqual([note["what"] for note in agent.events("note")],
                             [misnamed, "no table inet/pbr in this network namespace: "
                              "its policy maps go until it is back", "the table is back", misnamed])
            self.assertEqual(agent.ends_on(), 0)

    def test_names_with_odd_bytes_arrive_as_they_are(self):
        nft('add rule inet pbr output counter comment "caf\u00e9 \t/ x"')
        with self.agent() as agent:
            self.agrees(agent)
            self.assertIn(("output", "caf\u00e9 \t/ x"), agent.counters)

    def test_a_counter_that_is_not_called_policy_slash_class_is_noted_once(self):
        with self.agent() as agent:
            for _ in range(3):
                ping(1)
                self.agrees(agent)
            self.assertEqual([note["what"] for note in agent.events("note")],
                             ['the counter "plain" is not called POLICY/CLASS and is passed over'])

    def test_thousands_of_rules_agree_too(self):
        nft("add chain inet pbr many; add rule inet pbr output icmp type echo-request jump many")
        # What one transaction may hold is bounded where we are not root.
        for first in range(0, 3000, 200):
            nft("".join(f'add rule inet pbr many ip daddr 127.0.0.1 counter comment "class {n}"\n'
                        for n in range(first, first + 200)))
        with self.agent() as agent:
            ping(2)
            self.agrees(agent)
            self.assertEqual(agent.counters[("many", "class 2999")], (2, 2 * PING))


class RunTimeFailures(unittest.TestCase):
    """libnftables fails while a file exists, by a library that is loaded before it."""

    def setUp(self):
        nft("flush ruleset" + RULES)
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.trouble = os.path.join(folder.name, "trouble")

    def agent(self):
        preloaded = ":".join(filter(None, [FAILING, os.environ.get("LD_PRELOAD")]))
        asan = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
        return Agent(PROGRAM, "--source", "nftables", "--table", "inet/pbr", "--interval", "20",
                     env={"LD_PRELOAD": preloaded, "FAIL_WHILE": self.trouble,
                          "ASAN_OPTIONS": asan})

    def test_a_failure_is_told_with_growing_waits_and_loses_nothing(self):
        with self.agent() as agent:
            ping(2)
            agent.until(lambda a: a.counters == kernel(), "the consumer knew what the kernel counts")
            known = dict(agent.known)
            with open(self.trouble, "w", encoding="ascii") as trouble:
                trouble.write("the kernel is out of breath")
            agent.until(lambda a: len(a.events("source-error")) >= 4, "four failures were told")
            self.assertEqual([e["retry_in_ms"] for e in agent.events("source-error")][:4],
                             [20, 40, 80, 160])
            self.assertEqual(agent.events("source-error")[0]["what"], "the kernel is out of breath")
            ping(3)
            os.unlink(self.trouble)
            agent.until(lambda a: a.events("source-recovered"), "it recovered")
            agent.until(lambda a: a.counters == kernel(), "the consumer knew what the kernel counts")
            self.assertEqual(agent.counters[("web", "icmp")], (5, 5 * PING))
            self.assertEqual((agent.known, agent.faults), (known, []))
            self.assertEqual(agent.ends_on(), 0)

    def test_a_signal_ends_it_during_a_long_wait_too(self):
        with self.agent() as agent:
            agent.until(lambda a: a.counters, "anything was told")
            with open(self.trouble, "w", encoding="ascii") as trouble:
                trouble.write("no")
            agent.until(lambda a: len(a.events("source-error")) >= 5, "five failures were told")
            self.assertEqual(agent.ends_on(signal.SIGINT), 0)


class StartUpFailures(unittest.TestCase):
    def setUp(self):
        nft("flush ruleset" + RULES)

    def refused(self, *options, prefix=(), code=1, **how):
        command = [*prefix, PROGRAM, "--listen", "none", "--source", "nftables", *options]
        got, output, complaints = run(*command, **how)
        self.assertEqual((got, output, len(complaints)), (code, b"", 1), complaints)
        return complaints[0]

    def test_a_missing_table_is_named_beside_those_that_are_there(self):
        nft("add table inet other")
        self.assertEqual(self.refused("--table", "inet/nosuch"),
                         "velo-agent: no table inet/nosuch in this network namespace: "
                         "there is inet/pbr, inet/other")
        self.assertEqual(self.refused("--table", "ip/pbr"),
                         "velo-agent: no table ip/pbr in this network namespace: "
                         "there is none of family ip (nft add table ip pbr)")

    def test_a_table_name_is_never_a_command(self):
        self.assertIn("no table inet/pbr; flush ruleset",
                      self.refused("--table", "inet/pbr; flush ruleset"))
        self.assertIn("pbr", subprocess.run(["nft", "list", "tables"], stdout=subprocess.PIPE,
                                            check=True).stdout.decode())

    def test_an_unknown_family_is_answered_with_the_known_ones(self):
        self.assertEqual(self.refused("--table", "foo/pbr", code=2),
                         'velo-agent: --table: unknown family "foo": '
                         'FAMILY is one of ip, ip6, inet, arp, bridge, netdev')

    def test_without_the_capability_it_says_which(self):
        self.assertEqual(
            self.refused("--table", "inet/pbr",
                         prefix=("setpriv", "--bounding-set", "-net_admin",
                                 "--inh-caps", "-net_admin")),
            "velo-agent: no permission to read table inet/pbr: run velo-agent as root or with "
            "CAP_NET_ADMIN (Operation not permitted)")

    def test_a_failing_libnftables_is_named_with_its_reason(self):
        with tempfile.NamedTemporaryFile("w", suffix=".trouble") as trouble:
            trouble.write("out of breath")
            trouble.flush()
            asan = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
            self.assertEqual(
                self.refused("--table", "inet/pbr",
                             env={**os.environ, "LD_PRELOAD": FAILING, "FAIL_WHILE": trouble.name,
                                  "ASAN_OPTIONS": asan}),
                'velo-agent: cannot read table inet/pbr: out of breath; '
                '"nft list table inet pbr" would have to work here')


def in_a_namespace():
    """Runs this script again where it may do as it likes, or says why that cannot be."""
    unshare = ["unshare", "--net"] if os.geteuid() == 0 else ["unshare", "--net", "--map-root-user"]
    attempt = subprocess.run([*unshare, "ip", "link", "set", "lo", "up"], capture_output=True,
                             check=False)
    if attempt.returncode != 0:
        print(f"skipped: no network namespace can be created here "
              f"({attempt.stderr.decode().strip()})")
        return SKIPPED
    script = 'ip link set lo up && exec "$@"'
    return subprocess.run([*unshare, "sh", "-c", script, "sh", sys.executable, *sys.argv,
                           "--inside"], check=False).returncode


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--agent", required=True)
    parser.add_argument("--failing-nftables", required=True)
    parser.add_argument("--inside", action="store_true")
    arguments, rest = parser.parse_known_args()
    if not arguments.inside:
        sys.exit(in_a_namespace())
    PROGRAM = arguments.agent
    FAILING = arguments.failing_nftables
    unittest.main(argv=[sys.argv[0], *rest])
