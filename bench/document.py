"""Makes docs/performance.md of a run."""

import shlex
import textwrap

import report
from peers import PEERS, PLACEMENTS, WORKLOADS

HEAD = """# Performance

This page is made by `scripts/bench --document`; it is not written by hand, and holds one run.

Client and server are two processes on one machine. The limit is a raw Unix domain socket with a head of 16 bytes:
what a peer reaches is told as its ratio to the raw socket, taken within each round, and the median over the rounds is
what counts. On one core everything is bound to the processor, and this alone ranks the software; unpinned is how it is
used, and there the system's way to wake a sleeping process decides. CPU is the processor time of both processes
together for each operation, and "CPU to raw" its ratio to that of the raw socket. The percentiles are those of single
operations as the client sees them; with one-way messages (W5) that is how long it takes to hand one over.
"""

NOTES = {
    "W4": "nng, sd-bus, Thrift and ZeroMQ have no streams: it is a row of one-way messages of 64 KiB there.",
    "W5": "The time ends when the server has received all. ZeroMQ sends several messages with one system call. HTTP "
    "has no one-way messages: with Boost.Beast these are messages of a WebSocket.",
    "W6": "The raw socket's server answers in the thread that accepts, which can serve one client at a time.",
    "W7": "Each connection has had one request. Memory is what of the server is resident; what the kernel needs is not "
    "in it. No process is bound to a core.",
}


def table(lines):
    """A table of Markdown; figures to the right."""
    rule = ["---"] + ["---:"] * (len(lines[0]) - 1)
    return "\n".join("| " + " | ".join(line) + " |" for line in [lines[0], rule, *lines[1:]])


# Options that have a path, which says nothing to others.
PATHS = ("--output", "--build-folder", "--goals")


def command_of(run):
    kept = []
    skip = False
    for argument in run["arguments"]:
        is_value = skip and not argument.startswith("--")
        skip = argument in PATHS
        if not is_value and argument.partition("=")[0] not in PATHS:
            kept.append(argument)
    return shlex.join(["scripts/bench", *kept])


def machine_lines(run):
    machine = run["machine"]
    kind = "virtual " if machine["virtual"] else ""
    packages = ", ".join(f"{name} {version}" for name, version in machine["packages"].items())
    packages = textwrap.fill(f"- Packages: {packages}", 116, subsequent_indent="  ", break_on_hyphens=False)
    lines = [
        f"- {machine['processors']} {kind}processors, {machine['processor']}; {machine['memory_gib']} GiB of memory",
        f"- {machine['system']}, Linux {machine['kernel']}; {machine['compiler']}; all built with -O2",
        packages,
        f"- Measured {run['began']} at revision {machine['revision'] or 'unknown'}; the load before was "
        f"{machine['load_before']:.1f}",
        f"- {run['rounds']} rounds of {run['seconds']:g} s for each measurement",
    ]
    if run["hogs"]:
        lines.append(f"- Beside it ran {run['hogs']} processes that did nothing but need a processor")
    return "\n".join(lines)


def workload_section(placement, workload, rows):
    parts = [f"### {workload}: {WORKLOADS[workload]}", table(report.table_of(workload, rows))]
    if workload in NOTES:
        parts.append(NOTES[workload])
    return parts


def placement_section(placement, workloads, plots, folder):
    parts = [f"## {PLACEMENTS[placement][0].upper()}{PLACEMENTS[placement][1:]}"]
    titles = {"ratio": "Ratio to a raw socket", "cpu": "Processor time", "latency": "Percentiles"}
    for kind, title in titles.items():
        name = f"{kind}-{placement}.svg"
        if name in plots:
            parts.append(f"![{title}]({folder}/{name})")
    for workload, rows in workloads.items():
        if workload != "W7":
            parts += workload_section(placement, workload, rows)
    return parts


def memory_section(rows, folder):
    return ["## Memory", f"![Memory]({folder}/memory.svg)", *workload_section(None, "W7", rows)]


def make(run, summary, plots, goal_lines, folder):
    """The text of the page. `folder` is where the plots are, as seen from it."""
    parts = [HEAD.strip(), "## The run", machine_lines(run), "```\n" + command_of(run) + "\n```"]
    left_out = [PEERS[name].label for name in run["left_out"]]
    if left_out:
        parts.append("Left out, because a package was missing: " + ", ".join(left_out) + ".")
    if len(goal_lines) > 1:
        parts += ["## Goals", table(goal_lines)]
    for placement, workloads in summary.items():
        parts += placement_section(placement, workloads, plots, folder)
    for workloads in summary.values():
        if "W7" in workloads:
            parts += memory_section(workloads["W7"], folder)
    return "\n\n".join(parts) + "\n"
