"""The agent's RPC server as a client sees it that nobody here wrote: Debian's grpcio.

Health is asked for without a generated module: its messages are a single small number.
"""

import time

import grpc

from agent_process import PATIENCE

UNKNOWN, SERVING, NOT_SERVING = b"", b"\x08\x01", b"\x08\x02"


def channel(address, credentials=None, **options):
    """A channel that connects anew at once, and never waits longer than that."""
    settings = [("grpc.initial_reconnect_backoff_ms", 10), ("grpc.max_reconnect_backoff_ms", 100),
                ("grpc.use_local_subchannel_pool", 1),
                *((f"grpc.{name}", value) for name, value in options.items())]
    if credentials:
        return grpc.secure_channel(address, credentials, settings)
    return grpc.insecure_channel(address, settings)


def unary(on, method, request=b"", *, wait=True, timeout=PATIENCE):
    return on.unary_unary(method)(request, timeout=timeout, wait_for_ready=wait)


def health(on, *, wait=True):
    return unary(on, "/grpc.health.v1.Health/Check", wait=wait)


def health_changes(on):
    """Every state of the agent's health from now on, the first at once."""
    return on.unary_stream("/grpc.health.v1.Health/Watch")(b"", timeout=PATIENCE,
                                                           wait_for_ready=True)


def until_serving(on):
    """Also over the end of the agent that the channel was connected to."""
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        changes = health_changes(on)
        try:
            if SERVING in changes:
                return
        except grpc.RpcError as error:
            if error.code() != grpc.StatusCode.UNAVAILABLE:
                raise
        finally:
            changes.cancel()
    raise AssertionError("never SERVING")


def failure_of(call):
    """The status of a call that must fail."""
    try:
        call()
    except grpc.RpcError as error:
        return error.code(), error.details()
    raise AssertionError("the call did not fail")
