"""Real clients of velo-agent, of all characters: after whatever they do the agent still serves, and
every live client knows what is published."""

import argparse
import os
import random
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import grpc

from agent_process import PATIENCE
from stream_follower import Follower, ServedAgent, wait_for
from velo.rpc.v1 import (bgp_link_weights_pb2, bgp_link_weights_pb2_grpc, fib_overrides_pb2,
                         fib_overrides_pb2_grpc, introspection_pb2, introspection_pb2_grpc,
                         switch_state_pb2, switch_state_pb2_grpc)

PROGRAM = None
SEED = random.SystemRandom().randrange(1 << 32)


class Traffic:
    """Random changes of a small population: counters go up, classes come and go."""

    def __init__(self, served, policies=20, classes=50):
        self._served, self._random = served, random.Random(SEED)
        self._names = [(f"p{p}", f"c{c}") for p in range(policies) for c in range(classes)]

    def publish_all(self):
        self._served.publish([(name, (1, 1)) for name in self._names])

    def publish(self, count):
        changes = []
        for name in self._random.choices(self._names, k=count):
            gone = self._random.random() < 0.1
            changes.append((name, None if gone else (self._random.randrange(1, 1 << 40),
                                                     self._random.randrange(1, 1 << 50))))
        self._served.publish(changes)


class RpcTest(unittest.TestCase):
    def setUp(self):
        print(f"seed {SEED}", file=sys.stderr)

    def still_serves(self, served, *followers):
        """The agent is as it should be, and everybody knows what is published."""
        served.publish([(("last", f"{time.monotonic_ns()}"), (7, 7))])
        self.assertTrue(served.serves())
        with Follower(served, "newcomer") as newcomer:
            newcomer.until_it_knows(served.published)
            self.assertEqual(newcomer.faults, [])
        for follower in followers:
            follower.until_it_knows(served.published)
            self.assertEqual(follower.faults, [], follower.name)


class Clients(RpcTest):
    def test_ten_clients_of_different_speed_one_stuck_and_one_killed_all_learn_the_same(self):
        with ServedAgent(PROGRAM) as served:
            traffic = Traffic(served)
            traffic.publish_all()
            stuck = served.watch(channel=served.connect())  # and never takes anything
            paces = [lambda ms=ms: ms and time.sleep(ms / 1000) for ms in
                     (0, 0, 0, 1, 2, 5, 10, 20)]
            followers = [Follower(served, f"follower {n}", pace) for n, pace in enumerate(paces)]
            with subprocess.Popen([sys.executable, __file__, "--follow", served.address],
                                  stdout=subprocess.PIPE) as victim:
                victim.stdout.readline()  # in mid-stream
                for _ in range(30):
                    traffic.publish(200)
                victim.send_signal(signal.SIGKILL)
            for _ in range(30):
                traffic.publish(200)
            self.still_serves(served, *followers)
            for follower in followers:
                self.assertEqual(follower.outcomes, ["SNAPSHOT"])
                follower.close()
            stuck.cancel()

    def test_a_client_that_takes_nothing_is_closed_with_a_reason(self):
        with ServedAgent(PROGRAM, "--stall-time", "300") as served:
            traffic = Traffic(served, policies=100, classes=200)
            traffic.publish_all()
            # It takes in little by itself: a connection's windows grow with what went over it.
            narrow = {"http2.bdp_probe": 0, "http2.lookahead_bytes": 1024}
            call = served.watch(channel=served.connect(**narrow))
            with Follower(served) as follower:
                follower.until_it_knows(served.published)
                introspection = introspection_pb2_grpc.IntrospectionStub(served.channel)

                def stalled():
                    traffic.publish(2000)
                    clients = introspection.ListClients(
                        introspection_pb2.ListClientsRequest(), timeout=PATIENCE).clients
                    away = introspection_pb2.ListClientsResponse.STATE_AWAY
                    return any(client.state == away for client in clients)

                wait_for(stalled, "the stuck client is closed")
                with self.assertRaises(grpc.RpcError) as ended:
                    for _ in call:
                        pass
                self.assertEqual(ended.exception.code(), grpc.StatusCode.RESOURCE_EXHAUSTED)
                self.assertIn("nothing was taken for 300 ms", ended.exception.details())
                self.still_serves(served, follower)

    def test_a_client_that_comes_back_in_time_goes_on_where_it_was(self):
        with ServedAgent(PROGRAM) as served:
            traffic = Traffic(served)
            traffic.publish_all()
            with Follower(served) as follower:
                follower.until_it_knows(served.published)
                for _ in range(20):
                    calls = len(follower.outcomes)
                    follower.break_call()
                    traffic.publish(300)
                    follower.until(lambda f: len(f.outcomes) > calls, "it is back")
                follower.until_it_knows(served.published)
                self.assertEqual(follower.outcomes[0], "SNAPSHOT")
                self.assertEqual(set(follower.outcomes[1:]), {"RESUMED"})
                self.still_serves(served, follower)

    def test_a_client_that_breaks_in_its_snapshot_gets_the_rest_of_it(self):
        with ServedAgent(PROGRAM) as served:
            Traffic(served, policies=100, classes=100).publish_all()
            first_messages = threading.Semaphore(3)
            with Follower(served, pace=lambda: first_messages.acquire(timeout=PATIENCE)) as follower:
                follower.until(lambda f: f.messages >= 2, "it has begun")
                follower.break_call()
                first_messages.release(1 << 20)
                follower.until_it_knows(served.published)
                self.assertEqual(follower.outcomes, ["SNAPSHOT", "RESUMED"])
                self.still_serves(served, follower)

    def test_a_client_that_comes_back_too_late_begins_anew(self):
        with ServedAgent(PROGRAM, "--resume-time", "1") as served:
            traffic = Traffic(served)
            traffic.publish_all()
            introspection = introspection_pb2_grpc.IntrospectionStub(served.channel)

            def forgotten():
                clients = introspection.ListClients(introspection_pb2.ListClientsRequest(),
                                                    timeout=PATIENCE).clients
                pbr = introspection_pb2.ListClientsResponse.STREAM_PBR_COUNTERS
                return not [client for client in clients if client.stream == pbr]

            call = served.watch()
            token = next(call).resume_token
            call.cancel()
            wait_for(forgotten, "the agent forgets the client")
            opened = next(served.watch(token)).opened
            self.assertEqual(opened.Outcome.Name(opened.outcome), "OUTCOME_RESET")
            self.still_serves(served)

    def test_a_token_that_the_agent_never_gave_is_a_reset(self):
        with ServedAgent(PROGRAM) as served:
            for token in (b"x", b"\0" * 24, os.urandom(24), os.urandom(4000)):
                opened = next(served.watch(token)).opened
                self.assertEqual(opened.Outcome.Name(opened.outcome), "OUTCOME_RESET")
            self.still_serves(served)

    def test_the_agent_may_be_killed_and_started_again_under_a_client(self):
        with tempfile.TemporaryDirectory() as directory:
            with ServedAgent(PROGRAM, socket_dir=directory) as served:
                Traffic(served).publish_all()
                with Follower(served) as follower:
                    follower.until_it_knows(served.published)
                    served.agent.send(signal.SIGKILL)
                    served.agent.wait()
                    with ServedAgent(PROGRAM, socket_dir=directory) as successor:
                        successor.publish([(("p0", "c0"), (5, 6))])
                        follower.until_it_knows(successor.published)
                        self.assertEqual(follower.outcomes, ["SNAPSHOT", "RESET"])
                        self.still_serves(successor, follower)

    def test_at_shutdown_everything_pending_is_told_and_the_status_invites_to_return(self):
        with ServedAgent(PROGRAM) as served:
            traffic = Traffic(served)
            traffic.publish_all()
            with Follower(served, resume=False) as follower:
                follower.until_it_knows(served.published)
                traffic.publish(2000)
                self.assertEqual(served.agent.ends_on(signal.SIGTERM), 0)
                follower.until(lambda f: f.statuses, "the call ends")
                self.assertEqual(follower.statuses, ["UNAVAILABLE"])
                self.assertEqual(follower.counters, served.published)
                self.assertEqual(follower.faults, [])

    def test_thousands_of_clients_come_and_go(self):
        with ServedAgent(PROGRAM, "--resume-time", "1") as served:
            Traffic(served, policies=2, classes=5).publish_all()
            with Follower(served) as follower:
                for n in range(2000):
                    call = served.watch()
                    if n % 2:
                        next(call)
                    call.cancel()
                for _ in range(200):
                    with served.connect() as channel:
                        self.assertTrue(served.serves(channel))
                self.still_serves(served, follower)


class BadInput(RpcTest):
    def refused(self, call, request, code=grpc.StatusCode.INVALID_ARGUMENT):
        with self.assertRaises(grpc.RpcError) as refusal:
            call(request, timeout=PATIENCE)
        self.assertEqual(refusal.exception.code(), code, refusal.exception.details())
        return refusal.exception.details()

    def test_garbage_on_the_socket_harms_nobody(self):
        with ServedAgent(PROGRAM) as served, Follower(served) as follower:
            dice = random.Random(SEED)
            preface = b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"
            for n in range(100):
                with socket.socket(socket.AF_UNIX) as line:
                    line.connect(served.socket)
                    try:
                        line.sendall((preface if n % 2 else b"") +
                                     dice.randbytes(dice.randrange(1, 5000)))
                    except OSError:
                        pass  # it hung up on us; so it may
            self.still_serves(served, follower)

    def test_bytes_that_are_no_request_are_refused(self):
        with ServedAgent(PROGRAM) as served, Follower(served) as follower:
            for method in ("SwitchState/PublishPbrCounters", "FibOverrides/Set", "PbrCounters/Get"):
                call = served.channel.unary_unary(f"/velo.rpc.v1.{method}")
                # That is how gRPC says it of a request that it cannot read.
                self.refused(call, b"\xff\xff\xff", grpc.StatusCode.UNIMPLEMENTED)
            self.still_serves(served, follower)

    def test_a_message_that_is_too_large_is_refused(self):
        with ServedAgent(PROGRAM) as served, Follower(served) as follower:
            switch = switch_state_pb2_grpc.SwitchStateStub(served.channel)
            request = switch_state_pb2.PublishPbrCountersRequest()
            request.changes.add().set_class.policy = b"x" * (64 << 20)
            self.refused(switch.PublishPbrCounters, request, grpc.StatusCode.RESOURCE_EXHAUSTED)
            self.still_serves(served, follower)

    def test_values_that_mean_nothing_are_refused_by_name_and_nothing_is_done(self):
        with ServedAgent(PROGRAM) as served, Follower(served) as follower:
            switch = switch_state_pb2_grpc.SwitchStateStub(served.channel)
            overrides = fib_overrides_pb2_grpc.FibOverridesStub(served.channel)

            request = switch_state_pb2.PublishMplsRoutesRequest()
            request.changes.add().set_route.label = 16
            request.changes[0].set_route.state = 77
            self.assertIn("changes[0]", self.refused(switch.PublishMplsRoutes, request))
            request.changes[0].set_route.state = 1
            request.changes.add().set_route.label = 1 << 20
            self.assertIn("changes[1]", self.refused(switch.PublishMplsRoutes, request))

            request = switch_state_pb2.PublishPbrCountersRequest()
            request.changes.add().set_class.policy = b"p"
            request.changes[0].set_class.class_name = b"c"
            request.changes.add()
            self.assertIn("changes[1]", self.refused(switch.PublishPbrCounters, request))

            good = fib_overrides_pb2.FibOverride(
                matcher={"prefix": "10.0.0.0/8", "via": {"next_hop": "192.0.2.1"}}, weight=3)
            for prefix, next_hop in (("10.0.0.1/8", "192.0.2.1"), ("10.0.0.0/8", "192.0.2.256"),
                                     ("10.0.0.0", "192.0.2.1"), ("10.0.0.0/8", "224.0.0.1"),
                                     ("10.0.0.0/8", "2001:db8:::1")):
                bad = fib_overrides_pb2.FibOverride(
                    matcher={"prefix": prefix, "via": {"next_hop": next_hop}}, weight=3)
                text = self.refused(overrides.Set, fib_overrides_pb2.FibOverridesSetRequest(
                    overrides=[good, bad]))
                self.assertIn("overrides[1]", text)
            listed = overrides.List(fib_overrides_pb2.FibOverridesListRequest(), timeout=PATIENCE)
            self.assertEqual(len(listed.overrides), 0)
            self.assertEqual(served.published, {})
            self.still_serves(served, follower)

    def test_a_resync_that_breaks_removes_nothing(self):
        with ServedAgent(PROGRAM) as served:
            weights = bgp_link_weights_pb2_grpc.BgpLinkWeightsStub(served.channel)
            weight = bgp_link_weights_pb2.BgpLinkWeight
            weights.Set(bgp_link_weights_pb2.BgpLinkWeightsSetRequest(
                weights=[weight(interface_id=n, weight=n) for n in range(1, 101)]), timeout=PATIENCE)

            def listed():
                page = weights.List(bgp_link_weights_pb2.BgpLinkWeightsListRequest(),
                                    timeout=PATIENCE)
                return {entry.interface_id: entry.weight for entry in page.weights}

            reached, over = threading.Event(), threading.Event()

            def half():
                yield bgp_link_weights_pb2.BgpLinkWeightsResyncRequest(
                    weights=[weight(interface_id=1, weight=1000)])
                reached.set()
                over.wait(PATIENCE)

            call = weights.Resync.future(half())
            self.assertTrue(reached.wait(PATIENCE))
            wait_for(lambda: listed()[1] == 1000, "what was sent is set")
            call.cancel()
            over.set()
            self.assertEqual(listed(), {n: 1000 if n == 1 else n for n in range(1, 101)})

            def again():
                # The agent may have yet to hear that the first one broke.
                request = bgp_link_weights_pb2.BgpLinkWeightsResyncRequest(
                    weights=[weight(interface_id=2, weight=2)])
                try:
                    return weights.Resync(iter([request]), timeout=PATIENCE)
                except grpc.RpcError as error:
                    self.assertEqual(error.code(), grpc.StatusCode.ABORTED)
                    return None

            answers = []
            wait_for(lambda: answers.append(again()) or answers[-1], "a resync of its own")
            self.assertEqual((answers[-1].set, answers[-1].deleted), (1, 99))
            self.assertEqual(listed(), {2: 2})
            self.still_serves(served)


def follow(address):
    """What the victim is: says a word with each message, until it is killed."""
    from velo.rpc.v1 import pbr_counters_pb2, pbr_counters_pb2_grpc
    stub = pbr_counters_pb2_grpc.PbrCountersStub(grpc.insecure_channel(address))
    for message in stub.Watch(pbr_counters_pb2.PbrCountersWatchRequest()):
        print(message.WhichOneof("event"), flush=True)
        time.sleep(0.005)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--agent")
    parser.add_argument("--follow")
    parser.add_argument("--seed", type=int)
    arguments, rest = parser.parse_known_args()
    if arguments.follow:
        follow(arguments.follow)
    PROGRAM = arguments.agent
    SEED = arguments.seed if arguments.seed is not None else SEED
    unittest.main(argv=[sys.argv[0], *rest])
