"""An agent that serves, and followers of its stream of counters.

A follower is what a careful consumer would be: it keeps what it was told, resumes with its token and
notes whatever contradicts the contract of docs/STREAM.md as a fault.
"""

import os
import tempfile
import threading
import time

import grpc

import agent_rpc
from agent_process import PATIENCE, Agent
from velo.rpc.v1 import (pbr_counters_pb2, pbr_counters_pb2_grpc, switch_state_pb2,
                         switch_state_pb2_grpc)

Outcome = pbr_counters_pb2.PbrCountersWatchResponse.Opened

def wait_for(condition, what):
    """Waits until `condition()` is true; looks often."""
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"in vain: {what}")
        time.sleep(0.005)


class ServedAgent:
    """An agent on a socket of its own, which counts nothing but what is published to it."""

    def __init__(self, program, *options, socket_dir=None):
        self._dir = None if socket_dir else tempfile.TemporaryDirectory(prefix="velo-agent-")
        self.socket = f"{socket_dir or self._dir.name}/agent.sock"
        self.address = f"unix:{self.socket}"
        self.agent = Agent(program, "--source", "none", *options, listen=self.address)
        self.published = {}  # (policy, class) -> (packets, bytes)
        self.channel = self.connect()
        self._switch = switch_state_pb2_grpc.SwitchStateStub(self.channel)
        agent_rpc.until_serving(self.channel)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.channel.close()
        self.agent.__exit__()
        if self._dir:
            self._dir.cleanup()

    def connect(self, **options):
        """A channel with a connection of its own, for messages of any size."""
        return agent_rpc.channel(self.address, max_receive_message_length=-1, **options)

    def serves(self, channel=None):
        return agent_rpc.health(channel or self.channel) == agent_rpc.SERVING

    def publish(self, changes):
        """`changes`: (policy, class) -> (packets, bytes), or None to remove it. In their order."""
        request = switch_state_pb2.PublishPbrCountersRequest()
        for (policy, name), counters in changes:
            change = request.changes.add()
            if counters is None:
                change.remove_class.policy = policy.encode()
                change.remove_class.class_name = name.encode()
                self.published.pop((policy, name), None)
            else:
                change.set_class.policy = policy.encode()
                change.set_class.class_name = name.encode()
                change.set_class.packets, change.set_class.bytes = counters
                self.published[policy, name] = counters
        self._switch.PublishPbrCounters(request, timeout=PATIENCE)

    def watch(self, token=b"", channel=None, **request):
        """The bare call."""
        stub = pbr_counters_pb2_grpc.PbrCountersStub(channel or self.channel)
        return stub.Watch(
            pbr_counters_pb2.PbrCountersWatchRequest(resume_token=token, **request))


class Follower:
    """Follows the stream on a thread of its own, from one call to the next, until it is closed.

    `pace` is called before each message is taken; it may wait, that makes a slow client.
    """

    def __init__(self, served, name="follower", pace=lambda: None, resume=True):
        self.name = name
        self.counters = {}     # (policy, class) -> (packets, bytes)
        self.names = {}        # short key -> (policy, class), of every key told and not deleted
        self.outcomes = []     # of each call
        self.in_sync = False
        self.messages = self.records = 0
        self.statuses = []     # how each call ended
        self.faults = []
        self._served, self._pace, self._resume = served, pace, resume
        self._spent = set()    # short keys that were deleted
        self._token = b""
        self._call = None
        self._closing = False
        self._lock = threading.Lock()
        self._thread = threading.Thread(target=self._follow)
        self._thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        with self._lock:
            self._closing = True
            if self._call:
                self._call.cancel()
        self._thread.join(PATIENCE)

    def break_call(self):
        """The connection breaks; the follower comes back with its token."""
        with self._lock:
            if self._call:
                self._call.cancel()

    def until(self, condition, what):
        wait_for(lambda: condition(self), f"{self.name}: {what}; {self._describe()}")

    def until_it_knows(self, counters):
        try:
            self.until(lambda f: f.in_sync and f.counters == counters, "it knows what is published")
        except AssertionError as error:
            missing = set(counters.items()) - set(self.counters.items())
            surplus = set(self.counters.items()) - set(counters.items())
            raise AssertionError(f"{error}; {self._describe()}; missing {list(missing)[:5]}, "
                                 f"surplus {list(surplus)[:5]}") from None

    def _describe(self):
        return (f"outcomes {self.outcomes}, statuses {self.statuses}, {self.messages} messages, "
                f"faults {self.faults[:3]}")

    def _follow(self):
        while not self._closing:
            channel = self._served.connect()
            with self._lock:
                if self._closing:
                    break
                self._call = self._served.watch(self._token, channel)
            try:
                for message in self._call:
                    self._take(message)
                    self._pace()
                self.statuses.append(self._call.code().name)
            except grpc.RpcError as error:
                self.statuses.append(error.code().name)
                if error.code() == grpc.StatusCode.UNAVAILABLE:
                    time.sleep(0.01)  # nobody there; not too eager
            finally:
                channel.close()
            if not self._resume:
                break

    def _fault(self, what):
        self.faults.append(what)

    def _take(self, message):
        kind = message.WhichOneof("event")
        if kind == "opened":
            self._opened(message.opened.outcome)
        elif not self.outcomes:
            self._fault(f"{kind} before opened")
        elif kind == "in_sync":
            if self.in_sync:
                self._fault("in sync twice")
            self.in_sync = True
        elif kind == "batch":
            for record in message.batch.records:
                self._record(record)
        else:
            self._fault(f"what is a {kind}?")
        self._token = message.resume_token
        self.messages += 1

    def _opened(self, outcome):
        if outcome == Outcome.OUTCOME_RESUMED:
            if not self._token:
                self._fault("resumed without a token")
        else:
            if bool(self._token) != (outcome == Outcome.OUTCOME_RESET):
                self._fault(f"outcome {outcome}, token {self._token}")
            self.counters, self.names, self._spent, self.in_sync = {}, {}, set(), False
        self.outcomes.append(Outcome.Outcome.Name(outcome).removeprefix("OUTCOME_"))

    def _record(self, record):
        self.records += 1
        short = record.short_key
        told = None
        if record.HasField("long_key"):
            told = (record.long_key.policy.decode(), record.long_key.class_name.decode())
        name = self.names.get(short)
        if short in self._spent:
            self._fault(f"after its deletion: {record}")
        if name is None and told is None:
            self._fault(f"a short key nobody was told about: {record}")
            return
        if name is not None and told is not None:
            self._fault(f"told twice: {name} and {record}")
        if record.deleted:
            if name is None or record.HasField("counters"):
                self._fault(f"what kind of deletion is this? {record}")
            self.names.pop(short, None)
            self._spent.add(short)
            # The class may be back already, under another short key.
            if name not in self.names.values():
                self.counters.pop(name, None)
            return
        self.names[short] = name or told
        self.counters[name or told] = (record.counters.packets, record.counters.bytes)
