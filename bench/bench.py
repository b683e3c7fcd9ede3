"""Measures the library and its peers side by side. Started by scripts/bench, which has the help."""

import argparse
import json
import os
import subprocess
import sys
from datetime import datetime, timezone
from pathlib import Path

import document
import goals
import machine
import measuring
import plots
import report
from peers import PEERS, PLACEMENTS, USUAL_PLACEMENTS, WORKLOADS

ROOT = Path(__file__).resolve().parent.parent


class Stop(Exception):
    """Something that the user must know, and that ends the program."""


def chooser(known):
    """Reads a list of names that are separated by commas."""

    def choose(text):
        names = [name for name in text.split(",") if name]
        for name in names:
            if name not in known:
                raise argparse.ArgumentTypeError(f"there is no {name}; there are {', '.join(known)}")
        return list(dict.fromkeys(names))

    return choose


def positive(kind):
    def read(text):
        value = kind(text)
        if value <= 0:
            raise argparse.ArgumentTypeError(f"{text} is not above 0")
        return value

    # What argparse calls it when it is none.
    read.__name__ = "number"
    return read


def parse(arguments):
    parser = argparse.ArgumentParser(
        prog="scripts/bench",
        description="Measures this library and others of its kind, with a raw socket as the limit. Client and server "
        "are processes of their own. In each round all peers are measured one after another; what counts is the "
        "median, over the rounds, of the ratio to the raw socket of the same round. Writes results.txt, "
        "results.json and plots (SVG).",
        epilog="Environment variables for the library: CVTP_BENCH_BUFFER_SIZE sets the option BUFFER_SIZE on both "
        "sides; CVTP_BENCH_SHARED_CLIENT, if set, lets all connections of a process share one client.",
    )
    add = parser.add_argument
    add("--peers", type=chooser(PEERS), default=list(PEERS), help="default: " + ",".join(PEERS) + "; raw is always one")
    add("--workloads", type=chooser(WORKLOADS), default=list(WORKLOADS), help="default: " + ",".join(WORKLOADS))
    add("--placements", type=chooser(PLACEMENTS), default=USUAL_PLACEMENTS,
        help=f"default: {','.join(USUAL_PLACEMENTS)}; there is two-cores as well")
    add("--rounds", type=positive(int), help="default: 6; with --quick 1")
    add("--seconds", type=positive(float), help="for each measurement; default: 1, with --quick 0.2")
    add("--quick", action="store_true", help="only see whether all works; the figures mean little")
    add("--core", type=int, help="the core of the server, where it has one; default: the last that this process may use")
    add("--hogs", type=int, default=0, metavar="N", help="let N processes that need a processor run beside")
    add("--output", type=Path, default=Path("build/bench/results"), metavar="FOLDER",
        help="default: build/bench/results")
    add("--build-folder", type=Path, default=Path("build/bench"), metavar="FOLDER", help="default: build/bench")
    add("--no-build", action="store_true", help="take the programs as they are")
    add("--goals", type=Path, nargs="?", const=ROOT / "bench/goals.json", metavar="FILE",
        help="compare with the goals in a file, by default bench/goals.json; ends with 1 if one is missed")
    add("--document", action="store_true", help="write docs/performance.md and its plots")
    add("--from", type=Path, dest="source", metavar="FILE",
        help="measure nothing; make all that is written again of the results.json of an earlier run")
    add("--micro", action="store_true", help="run the small benchmarks of single steps of the library, only")
    options = parser.parse_args(arguments)
    # Without the limit there would be no ratios.
    options.peers = list(dict.fromkeys(["raw", *options.peers]))
    options.rounds = options.rounds or (1 if options.quick else 6)
    options.seconds = options.seconds or (0.2 if options.quick else 1.0)
    usable = sorted(os.sched_getaffinity(0))
    if options.core is None:
        options.core = usable[-1]
    elif options.core not in usable:
        parser.error(f"argument --core: this process may use {', '.join(map(str, usable))}")
    if "two-cores" in options.placements and len(usable) < 2:
        parser.error("argument --placements: this process may use one core only")
    options.cores = {
        "one-core": (options.core, options.core),
        "unpinned": (None, None),
        "two-cores": (options.core, usable[0] if usable[0] != options.core else usable[-1]),
    }
    if options.hogs < 0:
        parser.error("argument --hogs: must not be below 0")
    for file in (options.goals, options.source):
        if file and not file.exists():
            parser.error(f"there is no file {file}")
    return options


def build(options, target):
    """Builds the programs of the chosen peers; what cannot be built for lack of a package is left out."""
    if target == "peers" and any(PEERS[name].packages for name in options.peers):
        # Those of the peers that cannot be had are left out later.
        subprocess.run([ROOT / "scripts/install-packages", "bench-peers"], check=False)
    print("Building", file=sys.stderr)
    folder = str(options.build_folder)
    commands = [
        ["cmake", "-S", str(ROOT / "bench"), "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
         "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG", "-DBENCH_PEERS=" + ";".join(options.peers)],
        ["cmake", "--build", folder, "--target", target],
    ]
    for command in commands:
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            sys.stderr.write(done.stdout)
            raise Stop("the build failed")


def program_of(options, name):
    return options.build_folder / f"bench_{name}"


def available(options):
    """The chosen peers whose programs are there."""
    present = []
    for name in options.peers:
        if program_of(options, name).exists():
            present.append(name)
        else:
            needs = ", ".join(PEERS[name].packages)
            print(f"{PEERS[name].label} is left out: it was not built. It needs {needs or 'a build'}.", file=sys.stderr)
    if not present:
        raise Stop("there is nothing to measure")
    return present


def plan(options, peers):
    """Each measurement, in the order in which they are made. The first of a round changes from round to round."""
    for placement in options.placements:
        for workload in options.workloads:
            if workload == "W7" and placement != options.placements[0]:
                continue  # Memory does not depend on where a process runs.
            for number in range(options.rounds):
                turn = number % len(peers)
                for name in peers[turn:] + peers[:turn]:
                    yield {"placement": placement, "workload": workload, "round": number + 1, "peer": name}


def show(result, rounds):
    place = f"{result['placement']:8} {result['workload']} round {result['round']}/{rounds} {result['peer']:8}"
    if "figures" not in result:
        print(f"{place} - {result['missing']}", file=sys.stderr)
    elif result["workload"] == "W7":
        print(f"{place} {result['figures']['kib']:12.1f} KiB", file=sys.stderr)
    else:
        print(f"{place} {result['figures']['per_second']:12,.1f}/s", file=sys.stderr)


def cores_of(options, result):
    """The cores of server and client. None for memory: a thousand idle threads of a peer that each look around every
    few milliseconds keep one core busy, and the client could not connect."""
    return (None, None) if result["workload"] == "W7" else options.cores[result["placement"]]


def measure_all(options, peers):
    results = []
    missing = {}
    stuck = set()
    for result in plan(options, peers):
        key = (result["workload"], result["peer"])
        cores = cores_of(options, result)
        try:
            if key in missing:
                continue
            if (*key, result["placement"]) in stuck:
                raise measuring.Failed("not tried again, since it did not end before")
            with measuring.hogs(options.hogs, cores):
                program = str(program_of(options, result["peer"]))
                result["figures"] = measuring.measure(program, result["workload"], options.seconds, cores)
        except measuring.NotOffered as reason:
            result["missing"] = missing[key] = str(reason)
        except measuring.Stuck as reason:
            # Each further attempt would cost a minute and more. Without the limit there would be no ratios.
            if result["peer"] != "raw":
                stuck.add((*key, result["placement"]))
            result["missing"] = f"failed: {reason}"
        except measuring.Failed as reason:
            result["missing"] = f"failed: {reason}"
        results.append(result)
        show(result, options.rounds)
    return results


def write(options, run):
    """Writes all that is made of a run. Returns how many goals were missed."""
    summary = report.summarise(run["results"])
    drawn = plots.draw(summary)
    goal_lines, missed = goals.compare(goals.read(options.goals), summary) if options.goals else ([], 0)
    text = report.text_report(summary)
    if len(goal_lines) > 1:
        text += "\n\nGoals\n" + report.as_text(goal_lines)
    save(options.output / "results.json", json.dumps({**run, "summary": summary}, indent=1) + "\n")
    save(options.output / "results.txt", text + "\n")
    for name, plot in drawn.items():
        save(options.output / name, plot)
    print(text)
    print(f"\nThis and more is in {options.output}", file=sys.stderr)
    if options.document:
        for name, plot in drawn.items():
            save(ROOT / "docs/performance" / name, plot)
        page = document.make(run, summary, drawn, goal_lines, "performance")
        save(ROOT / "docs/performance.md", page)
    return missed


def save(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def new_run(options):
    if not options.no_build:
        build(options, "peers")
    present = available(options)
    return {
        "began": datetime.now(timezone.utc).strftime("%Y-%m-%d %H:%M UTC"),
        "arguments": options.arguments,
        "rounds": options.rounds,
        "seconds": options.seconds,
        "hogs": options.hogs,
        "left_out": [name for name in options.peers if name not in present],
        "machine": machine.describe(ROOT, present),
        "results": measure_all(options, present),
    }


def run_micro(options):
    if not options.no_build:
        build(options, "bench_micro")
    program = options.build_folder / "bench_micro"
    if not program.exists():
        raise Stop(f"there is no {program}")
    raise SystemExit(subprocess.run([program], check=False).returncode)


def main(arguments):
    options = parse(arguments)
    options.arguments = arguments
    if options.micro:
        run_micro(options)
    run = json.loads(options.source.read_text()) if options.source else new_run(options)
    missed = write(options, run)
    failed = sum(1 for result in run["results"] if result.get("missing", "").startswith("failed"))
    if failed:
        raise Stop(f"{failed} measurements failed")
    if missed:
        raise Stop(f"{missed} goals were missed")


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except Stop as reason:
        sys.exit(f"scripts/bench: {reason}")
    except KeyboardInterrupt:
        sys.exit(130)
