"""Runs one measurement: a server and a client as processes of their own."""

import contextlib
import json
import os
import select
import shutil
import subprocess
import tempfile
import time

from peers import IDLE_CONNECTIONS

READY_SECONDS = 20
# What a measurement may take beyond its own time, before it counts as stuck.
EXTRA_SECONDS = 60
EXIT_NOT_OFFERED = 3


class Failed(Exception):
    """A measurement that brought nothing."""


class Stuck(Failed):
    """A measurement that did not end in time."""


class NotOffered(Exception):
    """The peer has no such thing as the workload asks for."""


def pin_to(core):
    """What a new process does first: stay on one core, or (None) not."""

    def pin():
        if core is not None:
            os.sched_setaffinity(0, {core})

    return pin


def await_ready(server, errors):
    """Waits for the line that a server writes once clients may connect."""
    readable, _, _ = select.select([server.stdout], [], [], READY_SECONDS)
    if not readable:
        raise Stuck(f"the server was not ready within {READY_SECONDS} s")
    if server.stdout.readline().strip() != "ready":
        raise Failed("the server did not start: " + last_line(errors))


def last_line(errors):
    errors.seek(0)
    lines = errors.read().strip().splitlines()
    return lines[-1] if lines else "it said nothing"


def end(process):
    """Tells a process to end by closing its input, and ends it if it does not."""
    with contextlib.suppress(BrokenPipeError):
        process.stdin.close()
    try:
        process.wait(timeout=2)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
    process.stdout.close()


@contextlib.contextmanager
def running_server(command, core):
    with tempfile.TemporaryFile("w+") as errors:
        server = subprocess.Popen(
            command,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=errors,
            text=True,
            preexec_fn=pin_to(core),
        )
        try:
            await_ready(server, errors)
            yield server
        finally:
            end(server)


def run_client(command, core, seconds):
    try:
        client = subprocess.run(
            command,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=seconds + EXTRA_SECONDS,
            preexec_fn=pin_to(core),
            check=False,
        )
    except subprocess.TimeoutExpired as error:
        raise Stuck(f"the client did not end within {error.timeout:.0f} s") from error
    lines = client.stderr.strip().splitlines()
    reason = lines[-1] if lines else f"the client ended with {client.returncode}"
    if client.returncode == EXIT_NOT_OFFERED:
        raise NotOffered(reason)
    if client.returncode != 0:
        raise Failed(reason)
    return json.loads(client.stdout)


def figures(brought):
    """What a client brought, for each operation: times in microseconds, memory in KiB."""
    operations = brought["operations"]

    def each(nanoseconds):
        return nanoseconds / operations / 1000

    return {
        "per_second": operations / brought["nanoseconds"] * 1e9,
        "operations": operations,
        "cpu_us": each(brought["client_cpu"] + brought["server_cpu"]),
        "client_cpu_us": each(brought["client_cpu"]),
        "server_cpu_us": each(brought["server_cpu"]),
        "p50_us": brought["p50"] / 1000,
        "p99_us": brought["p99"] / 1000,
        "p999_us": brought["p999"] / 1000,
        "kib": (brought["kib_after"] - brought["kib_before"]) / IDLE_CONNECTIONS,
        "server_kib": brought["kib_after"],
        "threads": brought["threads_after"],
    }


def measure(program, workload, seconds, cores):
    """The figures of one measurement, with server and client each on its core. Raises Failed, Stuck or NotOffered."""
    server_core, client_core = cores
    folder = tempfile.mkdtemp(prefix="bench-")
    try:
        address = os.path.join(folder, "p")
        with running_server([program, "server", address, workload], server_core) as server:
            command = [program, "client", address, workload, str(seconds), str(server.pid)]
            return figures(run_client(command, client_core, seconds))
    finally:
        shutil.rmtree(folder, ignore_errors=True)


@contextlib.contextmanager
def hogs(count, cores):
    """So many processes that do nothing but need a processor, on those of server and client in turn."""
    running = []
    try:
        for number in range(count):
            # The shell ends by itself when this process is gone and its parent is another.
            loop = f"while [ -d /proc/{os.getpid()} ]; do i=0; while [ $i -lt 100000 ]; do i=$((i + 1)); done; done"
            running.append(
                subprocess.Popen(["/bin/sh", "-c", loop], stdin=subprocess.DEVNULL, preexec_fn=pin_to(cores[number % 2]))
            )
        if running:
            time.sleep(0.2)
        yield
    finally:
        for hog in running:
            hog.kill()
            hog.wait()
