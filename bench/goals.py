"""Compares the library's figures with goals."""

import json

from peers import PEERS, PLACEMENTS
from report import number

OWN = "cvtp"
FIGURES = {
    "ratio": "ratio to raw",
    "cpu_ratio": "CPU, ratio to raw",
    "p50_us": "p50, µs",
    "kib": "KiB per connection",
}
HEADINGS = ["workload", "placement", "figure", "goal", "libcvtp", "reached", "best other"]


def read(path):
    return json.loads(path.read_text())


def rows_for(goal, summary):
    placements = [goal["placement"]] if goal["placement"] else list(PLACEMENTS)
    for placement in placements:
        rows = summary.get(placement, {}).get(goal["workload"])
        if rows:
            return rows
    return {}


def best_other(goal, rows):
    """The best of those that are neither this library nor the raw socket."""
    figure = goal["figure"]
    others = [(row[figure], name) for name, row in rows.items() if name not in (OWN, "raw") and figure in row]
    if not others:
        return "-"
    value, name = max(others) if "least" in goal else min(others)
    return f"{number(value)} ({PEERS[name].label})"


def compare(goals, summary):
    """Lines of a table with those goals whose figure was measured, and how many of them were missed."""
    lines = [HEADINGS]
    missed = 0
    for goal in goals:
        rows = rows_for(goal, summary)
        value = rows.get(OWN, {}).get(goal["figure"])
        if value is None:
            continue
        reached = value >= goal["least"] if "least" in goal else value <= goal["most"]
        missed += not reached
        wanted = f"at least {number(goal['least'])}" if "least" in goal else f"at most {number(goal['most'])}"
        lines.append([goal["workload"], goal["placement"] or "-", FIGURES[goal["figure"]], wanted, number(value),
                      "yes" if reached else "no", best_other(goal, rows)])
    return lines, missed
