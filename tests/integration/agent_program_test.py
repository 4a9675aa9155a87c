"""velo-agent as a program: its options, its formats, how it ends. Needs nothing of the kernel."""

import argparse
import json
import os
import signal
import subprocess
import sys
import unittest

from agent_process import PATIENCE, Agent, run

PROGRAM = None

# For those that are started by hand.
UNSERVED = ("--listen", "none")


class Options(unittest.TestCase):
    def refused(self, *options):
        """The one line on standard error of a program that refused its options."""
        code, output, complaints = run(PROGRAM, *options)
        self.assertEqual(code, 2)
        self.assertEqual(output, b"")
        self.assertEqual(len(complaints), 1, complaints)
        return complaints[0]

    def test_a_wrong_option_is_one_line_that_says_what_would_be_right(self):
        self.assertEqual(self.refused("--rate", "fast"),
                         'velo-agent: --rate: "fast" is not a number from 0 to 10000000')
        self.assertEqual(self.refused("--source", "nftables", "--table", "ipx/t"),
                         'velo-agent: --table: unknown family "ipx": '
                         'FAMILY is one of ip, ip6, inet, arp, bridge, netdev')

    def test_odd_bytes_in_an_option_cannot_break_the_line(self):
        self.assertEqual(self.refused("--rate", b"1\n\xff"),
                         'velo-agent: --rate: "1\\x0a\\xff" is not a number from 0 to 10000000')

    def test_help_and_version_are_answered_on_standard_output(self):
        for option, begin in (("--help", b"Streams policy-based-routing counters"),
                              ("--version", b"velo-agent ")):
            code, output, complaints = run(PROGRAM, option)
            self.assertEqual((code, complaints), (0, []))
            self.assertTrue(output.startswith(begin), output)


class Synthetic(unittest.TestCase):
    def test_the_whole_population_is_told_with_its_long_keys(self):
        with Agent(PROGRAM, "--policies", "20", "--classes", "30", "--rate", "0") as agent:
            agent.until(lambda a: len(a.counters) == 600, "600 classes were told")
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertEqual(agent.faults, [])
            self.assertEqual(agent.counters,
                             {(f"policy{p}", f"class{c}"): (0, 0)
                              for p in range(20) for c in range(30)})
            self.assertEqual(sorted(agent.known), list(range(1, 601)))

    def test_under_churn_the_stream_stays_consistent(self):
        with Agent(PROGRAM, "--policies", "5", "--classes", "8", "--rate", "20000", "--churn", "40",
                   "--max-records", "20000") as agent:
            self.assertEqual(agent.wait(), 0)
            self.assertEqual(agent.faults, [])
            records = agent.events("record")
            self.assertEqual(len(records), 20000)
            self.assertGreater(sum(r["deleted"] for r in records), 100)
            self.assertEqual(sum(p["records"] for p in agent.events("push")), 20000)

    def test_a_run_ends_when_its_time_is_over(self):
        with Agent(PROGRAM, "--duration", "1") as agent:
            self.assertEqual(agent.wait(), 0)
            self.assertEqual(agent.complaints, [])

    def test_text_is_for_people(self):
        code, output, complaints = run(PROGRAM, *UNSERVED, "--policies", "1", "--classes", "2",
                                       "--rate", "0", "--format", "text", "--max-records", "2")
        self.assertEqual((code, complaints), (0, []))
        lines = output.decode().splitlines()
        self.assertEqual(sum(line.endswith(": 0 packets, 0 bytes (new)") for line in lines), 2)
        self.assertTrue(lines[-1].startswith("-- "), lines)


class End(unittest.TestCase):
    def test_signals_end_it_cleanly(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with Agent(PROGRAM) as agent:
                agent.until(lambda a: a.counters, "anything was told")
                self.assertEqual(agent.ends_on(number), 0)
                self.assertEqual(agent.complaints, [])
                self.assertEqual(agent.lines[-1]["event"], "push", "nothing is cut off")

    def test_a_reader_that_leaves_ends_it_with_a_reason(self):
        reading, writing = os.pipe()
        with subprocess.Popen([PROGRAM, *UNSERVED, "--rate", "1000"], stdout=writing,
                              stderr=subprocess.PIPE) as agent:
            os.close(writing)
            self.assertTrue(json.loads(os.read(reading, 65536).splitlines()[0]))
            os.close(reading)
            _, complaints = agent.communicate(timeout=PATIENCE)
            self.assertEqual(agent.returncode, 1)
            self.assertEqual(complaints.decode().splitlines(),
                             ["velo-agent: cannot write to standard output: Broken pipe"])

    def test_a_full_disk_ends_it_with_a_reason(self):
        with open("/dev/full", "wb") as full:
            agent = subprocess.run([PROGRAM, *UNSERVED], stdout=full, stderr=subprocess.PIPE,
                                   timeout=PATIENCE, check=False)
        self.assertEqual(agent.returncode, 1)
        self.assertEqual(agent.stderr.decode().splitlines(),
                         ["velo-agent: cannot write to standard output: No space left on device"])

    def test_a_reader_that_sleeps_cannot_keep_it_from_ending(self):
        reading, writing = os.pipe()
        with subprocess.Popen([PROGRAM, *UNSERVED, "--policies", "1000", "--classes", "100"],
                              stdout=writing, stderr=subprocess.PIPE) as agent:
            os.close(writing)
            # Once it has written, it goes on to fill the pipe: the population is far larger.
            self.assertTrue(os.read(reading, 1))
            agent.send_signal(signal.SIGTERM)
            _, complaints = agent.communicate(timeout=PATIENCE)
            os.close(reading)
            self.assertEqual((agent.returncode, complaints), (0, b""))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--agent", required=True)
    arguments, rest = parser.parse_known_args()
    PROGRAM = arguments.agent
    unittest.main(argv=[sys.argv[0], *rest])
