"""velo-agent as a server: where it listens, whom it lets in, and what it survives."""

import argparse
import contextlib
import os
import resource
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import unittest

import grpc

from agent_process import PATIENCE, Agent, run
from agent_rpc import (NOT_SERVING, SERVING, channel, failure_of, health, health_changes, unary,
                       until_serving)
from certificates import for_localhost, self_signed

PROGRAM = None

QUIET = ("--policies", "1", "--classes", "1", "--rate", "0")


class Served(unittest.TestCase):
    """Has a directory for sockets, and starts agents there."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name
        self.path = os.path.join(self.directory, "agent.sock")
        self.address = f"unix:{self.path}"

    def agent(self, *options, address=None, **how):
        return self.entered(Agent(PROGRAM, *QUIET, *options,
                                        listen=address or self.address, **how))

    def channel(self, address=None, credentials=None, **options):
        return self.entered(channel(address or self.address, credentials, **options))

    def serving(self, *options, **how):
        """An agent that is ready, and a channel to it."""
        agent = self.agent(*options, **how)
        to_it = self.channel()
        until_serving(to_it)
        return agent, to_it

    def entered(self, manager):
        self.addCleanup(manager.__exit__, None, None, None)
        return manager.__enter__()

    def refused(self, *options, code=1, **how):
        """The one line on standard error of an agent that does not start."""
        ended, output, complaints = run(PROGRAM, *options, **how)
        self.assertEqual(ended, code, complaints)
        self.assertEqual(output, b"")
        self.assertEqual(len(complaints), 1, complaints)
        return complaints[0]


class Listening(Served):
    def test_only_owner_and_group_may_use_the_socket(self):
        self.serving()
        self.assertEqual(stat.S_IMODE(os.stat(self.path).st_mode), 0o660)

    def test_the_socket_is_gone_after_the_end(self):
        agent, _ = self.serving()
        self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
        self.assertEqual(os.listdir(self.directory), [])

    def test_a_live_agent_keeps_its_socket(self):
        agent, to_it = self.serving()
        self.assertEqual(self.refused("--listen", self.address),
                         f"velo-agent: cannot listen at {self.address}: another server listens "
                         "there; stop it, or choose another path")
        self.assertEqual(health(to_it), SERVING)
        self.assertEqual(agent.ends_on(signal.SIGTERM), 0)

    def test_the_socket_of_an_agent_that_was_killed_is_replaced(self):
        killed, _ = self.serving()
        self.assertEqual(killed.ends_on(signal.SIGKILL), -signal.SIGKILL)
        self.assertTrue(stat.S_ISSOCK(os.stat(self.path).st_mode))
        self.serving()

    def test_a_client_finds_the_agent_that_took_over(self):
        killed, to_it = self.serving()
        killed.ends_on(signal.SIGKILL)
        self.agent()
        until_serving(to_it)

    def test_the_default_that_is_taken_leaves_the_agent_unserved(self):
        env = {"XDG_RUNTIME_DIR": self.directory}
        if os.access("/run/velo-agent", os.W_OK):
            self.skipTest("this machine has /run/velo-agent")
        first = self.entered(Agent(PROGRAM, *QUIET, env=env, listen=None))
        to_it = self.channel(f"unix:{self.directory}/velo-agent.sock")
        until_serving(to_it)
        with Agent(PROGRAM, *QUIET, env=env, listen=None) as second:
            second.until(lambda a: len(a.counters) == 1, "the class was told")
            self.assertEqual(second.ends_on(signal.SIGTERM), 0)
            self.assertEqual(len(second.complaints), 1, second.complaints)
            self.assertIn("no clients are served: cannot listen at", second.complaints[0])
        self.assertEqual(health(to_it), SERVING)
        self.assertEqual(first.ends_on(signal.SIGTERM), 0)

    def test_without_a_default_the_agent_says_that_it_serves_nobody(self):
        if os.access("/run/velo-agent", os.W_OK):
            self.skipTest("this machine has /run/velo-agent")
        with Agent(PROGRAM, *QUIET, env={"XDG_RUNTIME_DIR": ""}, listen=None) as agent:
            agent.until(lambda a: len(a.counters) == 1, "the class was told")
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertIn("no clients are served", "".join(agent.complaints))

    def test_no_listening_when_none_is_asked_for(self):
        with Agent(PROGRAM, *QUIET, env={"XDG_RUNTIME_DIR": self.directory}) as agent:
            agent.until(lambda a: len(a.counters) == 1, "the class was told")
            self.assertEqual(os.listdir(self.directory), [])
            self.assertEqual(agent.ends_on(signal.SIGTERM), 0)
            self.assertEqual(agent.complaints, [])


class Health(Served):
    def test_it_goes_to_serving_and_at_the_end_to_not_serving(self):
        agent = self.agent()
        changes = health_changes(self.channel())
        seen = [next(changes)]
        while seen[-1] != SERVING:
            seen.append(next(changes))
        self.assertIn(seen, ([SERVING], [NOT_SERVING, SERVING]))
        agent.send(signal.SIGTERM)
        self.assertEqual(next(changes), NOT_SERVING)
        changes.cancel()
        self.assertEqual(agent.wait(), 0)

    def test_a_client_without_a_call_does_not_hold_up_the_end(self):
        agent, to_it = self.serving("--drain-time", "600000")
        self.assertEqual(health(to_it), SERVING)
        self.assertEqual(agent.ends_on(signal.SIGTERM), 0)

    def test_the_services_can_be_listed_by_reflection(self):
        _, to_it = self.serving()
        ask = to_it.stream_stream("/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo")
        answer = b"".join(ask(iter([b"\x3a\x00"]), timeout=PATIENCE))  # list_services
        self.assertIn(b"grpc.health.v1.Health", answer)


class Limits(Served):
    def test_an_oversized_message_is_refused_and_the_server_lives_on(self):
        _, to_it = self.serving("--max-message", "4096")
        code, details = failure_of(
            lambda: unary(to_it, "/grpc.health.v1.Health/Check", b"\x0a\x88\x27" + b"x" * 5000))
        self.assertEqual(code, grpc.StatusCode.RESOURCE_EXHAUSTED)
        self.assertIn("4096", details)
        self.assertEqual(health(to_it), SERVING)

    def test_one_connection_too_many_is_refused_and_let_in_once_another_has_gone(self):
        _, first = self.serving("--max-connections", "1")
        second = self.channel()
        code, _ = failure_of(lambda: health(second, wait=False))
        self.assertEqual(code, grpc.StatusCode.UNAVAILABLE)
        self.assertEqual(health(first), SERVING)
        first.close()
        self.assertEqual(health(second), SERVING)

    def test_the_descriptors_of_many_connections_are_seen_to(self):
        agent, _ = self.serving("--max-connections", "500",
                                prefix=("prlimit", "--nofile=64:4000", "--"))
        soft, _ = resource.prlimit(agent.pid, resource.RLIMIT_NOFILE)
        self.assertGreater(soft, 2 * 500)
        with contextlib.ExitStack() as clients:
            for _ in range(300):
                client = clients.enter_context(socket.socket(socket.AF_UNIX))
                client.connect(self.path)
            self.assertEqual(health(self.channel()), SERVING)

    def test_one_call_too_many_of_a_connection_waits_for_its_turn(self):
        _, to_it = self.serving("--max-streams", "1")
        first = health_changes(to_it)
        self.assertEqual(next(first), SERVING)
        waiting = to_it.unary_unary("/grpc.health.v1.Health/Check").future(b"", timeout=PATIENCE)
        self.assertFalse(waiting.done())
        first.cancel()
        self.assertEqual(waiting.result(PATIENCE), SERVING)

    def test_a_client_without_a_sign_of_life_gives_its_place_free(self):
        self.agent("--max-connections", "1", "--keepalive-time", "50", "--keepalive-timeout", "50")
        watching = ("import sys, agent_rpc\n"
                    "for _ in agent_rpc.health_changes(agent_rpc.channel(sys.argv[1])):\n"
                    "   print(flush=True)\n")
        here = os.path.dirname(os.path.abspath(__file__))
        with subprocess.Popen([sys.executable, "-B", "-c", watching, self.address], cwd=here,
                              stdout=subprocess.PIPE) as client:
            self.assertEqual(client.stdout.readline(), b"\n")
            client.send_signal(signal.SIGSTOP)
            until_serving(self.channel())
            client.kill()

    def test_garbage_on_the_socket_harms_nobody(self):
        _, to_it = self.serving()
        for garbage in (b"GET / HTTP/1.1\r\n\r\n", bytes(range(256)) * 100, b"\0" * 10,
                        b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + b"\xff" * 1000):
            with socket.socket(socket.AF_UNIX) as client:
                client.settimeout(PATIENCE)
                client.connect(self.path)
                try:
                    client.sendall(garbage)
                    client.shutdown(socket.SHUT_WR)
                    while client.recv(65536):
                        pass
                except (BrokenPipeError, ConnectionResetError):
                    pass
            self.assertEqual(health(to_it), SERVING)

    def test_thousands_of_connects_leave_nothing_behind(self):
        agent, to_it = self.serving("--max-connections", "20")
        files = f"/proc/{agent.pid}/fd"
        for _ in range(2000):
            with socket.socket(socket.AF_UNIX) as client:
                client.connect(self.path)
        self.assertEqual(health(to_it), SERVING)
        with channel(self.address) as another:
            self.assertEqual(health(another), SERVING)
        self.assertLess(len(os.listdir(files)), 100)


class Tls(Served):
    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(directory.cleanup)
        cls.made = directory.name
        for_localhost(cls.made, "server")
        self_signed(cls.made, "client")
        self_signed(cls.made, "stranger")

    @classmethod
    def file(cls, name):
        return os.path.join(cls.made, name)

    @classmethod
    def pem(cls, name):
        with open(cls.file(name), "rb") as file:
            return file.read()

    def credentials(self, client=None):
        if client is None:
            return grpc.ssl_channel_credentials(self.pem("server.pem"))
        return grpc.ssl_channel_credentials(self.pem("server.pem"), self.pem(f"{client}.key"),
                                            self.pem(f"{client}.pem"))

    def server_files(self):
        return ("--tls-cert", self.file("server.pem"), "--tls-key", self.file("server.key"))

    @staticmethod
    def free_port():
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            return probe.getsockname()[1]

    def test_other_machines_are_let_in_only_with_tls(self):
        self.assertEqual(self.refused("--listen", "0.0.0.0:0"),
                         "velo-agent: cannot listen at 0.0.0.0:0: other machines are let in only "
                         "with TLS; give --tls-cert and --tls-key, or listen at 127.0.0.1")

    def test_on_loopback_tcp_needs_no_tls(self):
        address = f"127.0.0.1:{self.free_port()}"
        self.agent(address=address)
        until_serving(self.channel(address))

    def test_with_tls_a_client_that_knows_the_authority_is_served(self):
        port = self.free_port()
        self.agent(*self.server_files(), address=f"0.0.0.0:{port}")
        until_serving(self.channel(f"localhost:{port}", self.credentials()))

    def test_with_tls_a_client_without_is_not_served(self):
        port = self.free_port()
        self.agent(*self.server_files(), address=f"127.0.0.1:{port}")
        until_serving(self.channel(f"localhost:{port}", self.credentials()))
        code, _ = failure_of(lambda: health(self.channel(f"localhost:{port}"), wait=False))
        self.assertEqual(code, grpc.StatusCode.UNAVAILABLE)

    def test_mutual_tls_refuses_a_client_without_the_right_certificate(self):
        port = self.free_port()
        self.agent(*self.server_files(), "--tls-client-ca", self.file("client.pem"),
                   address=f"127.0.0.1:{port}")
        until_serving(self.channel(f"localhost:{port}", self.credentials("client")))
        for wrong in (None, "stranger"):
            with self.subTest(certificate=wrong):
                channel_ = self.channel(f"localhost:{port}", self.credentials(wrong))
                code, _ = failure_of(lambda: health(channel_, wait=False))
                self.assertEqual(code, grpc.StatusCode.UNAVAILABLE)

    def test_files_that_cannot_be_used_are_named(self):
        missing = self.file("missing.pem")
        self.assertEqual(
            self.refused("--listen", "127.0.0.1:0", "--tls-cert", missing,
                         "--tls-key", self.file("server.key")),
            f"velo-agent: cannot read {missing}: No such file or directory")
        self.assertIn(
            "server.pem holds no private key in PEM form",
            self.refused("--listen", "127.0.0.1:0", "--tls-cert", self.file("server.pem"),
                         "--tls-key", self.file("server.pem")))

    def test_a_key_of_another_certificate_is_refused(self):
        self.assertIn(
            "do not belong together",
            self.refused("--listen", "127.0.0.1:0", "--tls-cert", self.file("server.pem"),
                         "--tls-key", self.file("client.key")))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--agent", required=True)
    arguments, rest = parser.parse_known_args()
    PROGRAM = arguments.agent
    unittest.main(argv=[sys.argv[0], *rest])
