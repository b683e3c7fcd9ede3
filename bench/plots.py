"""Draws what was measured, as SVG without the help of any package."""

import math
from html import escape

from peers import PEERS, PLACEMENTS, WORKLOADS, unit_of
from report import LIMIT, number

OWN = "cvtp"
WIDTH = 760
LABELS = 110
VALUES = 70
ROW = 20
BAR = 13
HEAD = 34
GAP = 16
FONT = "font-family='system-ui, sans-serif'"
INK, FAINT, GRID = "#222222", "#666666", "#dddddd"
COLOURS = {OWN: "#1f6fb2", LIMIT: "#888888"}
OTHERS = "#b9c6d3"


def colour_of(name):
    return COLOURS.get(name, OTHERS)


def text(x, y, content, size=12, anchor="start", fill=INK, weight="normal"):
    # The white edge keeps it readable on a line.
    return (
        f"<text x='{x:.1f}' y='{y:.1f}' {FONT} font-size='{size}' text-anchor='{anchor}' fill='{fill}' "
        f"font-weight='{weight}' paint-order='stroke' stroke='white' stroke-width='3'>{escape(content)}</text>"
    )


def line(x1, y1, x2, y2, colour, width=1.0, dashes=""):
    dashed = f" stroke-dasharray='{dashes}'" if dashes else ""
    return (
        f"<line x1='{x1:.1f}' y1='{y1:.1f}' x2='{x2:.1f}' y2='{y2:.1f}' stroke='{colour}' "
        f"stroke-width='{width}'{dashed}/>"
    )


def peer_label(name, y):
    weight = "bold" if name == OWN else "normal"
    return text(LABELS - 8, y + BAR - 2, PEERS[name].label, anchor="end", weight=weight)


def page(title, panels):
    """Puts panels, each a height and its elements, below each other."""
    parts = [text(8, 22, title, size=15, weight="bold")]
    y = HEAD
    for height, elements in panels:
        parts.append(f"<g transform='translate(0 {y})'>{''.join(elements)}</g>")
        y += height + GAP
    return (
        f"<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {WIDTH} {y}' width='{WIDTH}' height='{y}'>"
        f"<rect width='{WIDTH}' height='{y}' fill='white'/>" + "\n".join(parts) + "</svg>\n"
    )


def bars(title, values, mark=None):
    """One bar for each name, the longest first unless the caller has put them otherwise."""
    space = WIDTH - LABELS - VALUES
    most = max([*values.values(), mark or 0]) or 1
    elements = [text(8, 14, title, size=13)]
    y = 24
    if mark:
        x = LABELS + mark / most * space
        elements.append(line(x, 20, x, y + ROW * len(values), INK, dashes="3 3"))
    for name, value in values.items():
        length = max(1.0, value / most * space)
        elements.append(peer_label(name, y))
        elements.append(
            f"<rect x='{LABELS}' y='{y}' width='{length:.1f}' height='{BAR}' fill='{colour_of(name)}'/>"
        )
        elements.append(text(LABELS + length + 5, y + BAR - 2, number(value), size=11, fill=FAINT))
        y += ROW
    return y, elements


def spans(title, values):
    """For each name p50, p99 and p99.9 on a scale on which each power of ten is as wide."""
    space = WIDTH - LABELS - VALUES
    low = math.floor(math.log10(max(0.01, min(row["p50_us"] for row in values.values()))))
    high = math.ceil(math.log10(max(row["p999_us"] for row in values.values()) * 1.001))

    def place(value):
        return LABELS + (math.log10(max(value, 0.01)) - low) / (high - low) * space

    bottom = 24 + ROW * len(values)
    elements = [text(8, 14, title, size=13)]
    for power in range(low, high + 1):
        x = place(10**power)
        elements.append(line(x, 20, x, bottom, GRID))
        elements.append(text(x, bottom + 12, f"{10**power:,g} µs", size=10, anchor="middle", fill=FAINT))
    y = 24
    for name, row in values.items():
        middle = y + BAR / 2
        points = [place(row[key]) for key in ("p50_us", "p99_us", "p999_us")]
        colour = colour_of(name)
        elements.append(peer_label(name, y))
        elements.append(line(points[0], middle, points[2], middle, colour, width=2))
        for x, radius, fill in zip(points, (5, 4, 2.5), (colour, "white", colour)):
            elements.append(
                f"<circle cx='{x:.1f}' cy='{middle:.1f}' r='{radius}' fill='{fill}' stroke='{colour}' "
                f"stroke-width='2'/>"
            )
        y += ROW
    return bottom + 18, elements


def present(rows, key, falling=True):
    """The names that have such a figure, sorted by it."""
    chosen = {name: row for name, row in rows.items() if key in row}
    return dict(sorted(chosen.items(), key=lambda item: item[1][key], reverse=falling))


def ratio_plot(placement, workloads):
    panels = []
    for workload, rows in workloads.items():
        chosen = {name: row["ratio"] for name, row in present(rows, "ratio").items() if name != LIMIT}
        if chosen and workload != "W7":
            panels.append(bars(f"{workload}: {WORKLOADS[workload]}", chosen, mark=1.0))
    return page(f"Ratio to a raw socket (the broken line), {PLACEMENTS[placement]}; more is better", panels)


def cpu_plot(placement, workloads):
    panels = []
    for workload, rows in workloads.items():
        chosen = {name: row["cpu_us"] for name, row in present(rows, "cpu_us", falling=False).items()}
        if chosen and workload != "W7":
            panels.append(bars(f"{workload}: {WORKLOADS[workload]}; µs for each {unit_of(workload)}", chosen))
    return page(f"Processor time of both processes, {PLACEMENTS[placement]}; less is better", panels)


def latency_plot(placement, workloads):
    panels = []
    for workload in ("W1", "W2", "W3", "W6"):
        chosen = present(workloads.get(workload, {}), "p50_us", falling=False)
        if chosen:
            panels.append(spans(f"{workload}: {WORKLOADS[workload]}", chosen))
    return page(f"p50 (large), p99 (hollow) and p99.9 (small), {PLACEMENTS[placement]}; less is better", panels)


def memory_plot(rows):
    chosen = {name: row["kib"] for name, row in present(rows, "kib", falling=False).items()}
    title = "W7: KiB of the server's memory for each of 1,000 idle connections; less is better"
    return page(title, [bars("", chosen)])


def draw(summary):
    """SVG texts by file name."""
    plots = {}
    for placement, workloads in summary.items():
        timed = [workload for workload in workloads if workload != "W7"]
        if any("ratio" in row for workload in timed for row in workloads[workload].values()):
            plots[f"ratio-{placement}.svg"] = ratio_plot(placement, workloads)
        if timed:
            plots[f"cpu-{placement}.svg"] = cpu_plot(placement, workloads)
            plots[f"latency-{placement}.svg"] = latency_plot(placement, workloads)
        if "W7" in workloads:
            plots["memory.svg"] = memory_plot(workloads["W7"])
    return plots
