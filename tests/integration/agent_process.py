"""velo-agent as a test sees it: a program to start, lines to follow, and an end.

Nothing here sleeps: every wait is for a line or for the end of the program, with a deadline that
only a broken program reaches.
"""

import json
import os
import signal
import subprocess
import threading
import time

# What a broken program costs; generous, for instrumented builds on a busy machine.
PATIENCE = 60


class Agent:
    """One run. Follows the JSON lines and keeps what a consumer of the stream would know.

    Serves nobody unless it is told where; `listen=None` leaves that to the agent.
    """

    def __init__(self, program, *options, env=None, prefix=(), listen="none"):
        serving = () if listen is None else ("--listen", listen)
        self._process = subprocess.Popen(
            [*prefix, program, *serving, *options],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env={**os.environ, **(env or {})})
        self._changed = threading.Condition()
        self._ended = False
        self.lines = []
        self.counters = {}  # (policy, class) -> (packets, bytes)
        self.names = {}     # short key -> (policy, class), for every key ever told
        self.known = {}     # short key -> (policy, class), for those that are there
        self.complaints = []
        self.faults = []    # what no consumer should have to see
        self._threads = [threading.Thread(target=self._follow),
                         threading.Thread(target=self._listen)]
        for thread in self._threads:
            thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self._process.poll() is None:
            self._process.kill()
        self._process.wait()
        for thread in self._threads:
            thread.join()
        self._process.stdout.close()
        self._process.stderr.close()

    @property
    def pid(self):
        return self._process.pid

    def send(self, number):
        self._process.send_signal(number)

    def wait(self):
        """The exit code, once the program has ended and everything it wrote has been seen."""
        code = self._process.wait(PATIENCE)
        for thread in self._threads:
            thread.join(PATIENCE)
        return code

    def ends_on(self, number=signal.SIGTERM):
        self.send(number)
        return self.wait()

    def until(self, condition, what):
        """Waits until `condition(self)` holds; it is looked at after every line, also of complaints."""
        deadline = time.monotonic() + PATIENCE
        with self._changed:
            while not condition(self):
                left = deadline - time.monotonic()
                if left <= 0 or self._ended:
                    raise AssertionError(
                        f"{self._end() if self._ended else 'in vain'} before {what}\n"
                        f"counters: {self.counters}\nlast lines: {self.lines[-20:]}\n"
                        f"standard error: {self.complaints}")
                self._changed.wait(left)

    def _end(self):
        return f"the agent ended with code {self._process.wait(PATIENCE)}"

    def events(self, kind):
        return [line for line in self.lines if line["event"] == kind]

    def _follow(self):
        for text in self._process.stdout:
            if not text.endswith(b"\n"):
                break  # killed in the middle of a line
            line = json.loads(text)
            with self._changed:
                self.lines.append(line)
                if line["event"] == "record":
                    self._take(line)
                self._changed.notify_all()
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def _listen(self):
        for text in self._process.stderr:
            with self._changed:
                self.complaints.append(text.decode(errors="backslashreplace").rstrip("\n"))
                self._changed.notify_all()

    def _take(self, record):
        """What a consumer does with a record; whatever does not fit together is a fault."""
        short = record["short_key"]
        flags = record["flags"]
        name = self.names.get(short)
        if "long_key" in record:
            long_key = record["long_key"]
            told = (long_key["policy"], long_key["class"])
            if flags["encode_long_key"] and name is not None:
                self.faults.append(f"announced twice: {record}")
            if name is not None and name != told:
                self.faults.append(f"one short key, two long keys: {name} and {record}")
            self.names[short] = name = told
        if name is None:
            self.faults.append(f"a short key nobody was told about: {record}")
            return
        if flags["delete_key"] != record["deleted"] or (record["data"] is None) != record["deleted"]:
            self.faults.append(f"flags, data and deletion disagree: {record}")
        if record["deleted"]:
            self.known.pop(short, None)
            # The class may be back already, under another short key.
            if name not in self.known.values():
                self.counters.pop(name, None)
        else:
            self.known[short] = name
            self.counters[name] = (record["data"]["packets"], record["data"]["bytes"])


def run(program, *options, **how):
    """Runs a program that ends by itself: its exit code, its output, its lines on standard error."""
    done = subprocess.run([program, *options], stdin=subprocess.DEVNULL, capture_output=True,
                          timeout=PATIENCE, check=False, **how)
    return (done.returncode, done.stdout,
            done.stderr.decode(errors="backslashreplace").splitlines())
