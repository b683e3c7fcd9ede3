"""Says on what the figures were measured."""

import os
import platform
import subprocess
from pathlib import Path

from peers import PEERS

# The compiler and this library are told apart from packages.
GENERAL = ("g++", "libpoco-dev")


def output_of(*command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
    return done.stdout.strip() if done.returncode == 0 else ""


def field_of(path, name):
    """The value behind `name` in a file of lines such as "name: value" or "name=value"."""
    try:
        lines = Path(path).read_text().splitlines()
    except OSError:
        return ""
    for line in lines:
        key, separator, value = line.replace("=", ":", 1).partition(":")
        if separator and key.strip() == name:
            return value.strip().strip('"')
    return ""


def versions(names):
    wanted = [*GENERAL, *(package for name in names for package in PEERS[name].packages)]
    found = {}
    for package in wanted:
        version = output_of("dpkg-query", "-W", "-f", "${Version}", package)
        if version:
            found[package] = version
    return found


def revision(root):
    commit = output_of("git", "-C", str(root), "rev-parse", "--short=12", "HEAD")
    if commit and output_of("git", "-C", str(root), "status", "--porcelain"):
        commit += ", with changes"
    return commit


def describe(root, names):
    kib = field_of("/proc/meminfo", "MemTotal").split()
    return {
        "processor": field_of("/proc/cpuinfo", "model name") or platform.machine(),
        "processors": len(os.sched_getaffinity(0)),
        "virtual": "hypervisor" in field_of("/proc/cpuinfo", "flags").split(),
        "memory_gib": round(int(kib[0]) / 2**20, 1) if kib else 0,
        "system": field_of("/etc/os-release", "PRETTY_NAME") or platform.system(),
        "kernel": platform.release(),
        "compiler": output_of("c++", "--version").partition("\n")[0],
        "revision": revision(root),
        "packages": versions(names),
        "load_before": os.getloadavg()[0],
    }
