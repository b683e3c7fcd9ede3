"""Makes tables of what was measured."""

from statistics import median

from peers import PEERS, PLACEMENTS, STREAM_MIB, WORKLOADS, unit_of

LIMIT = "raw"


def rows_of(results, placement, workload):
    """What each peer did: a dictionary of medians over the rounds, by the name of the peer."""
    rows = {}
    chosen = [r for r in results if r["placement"] == placement and r["workload"] == workload]
    for name in dict.fromkeys(r["peer"] for r in chosen):
        own = [r for r in chosen if r["peer"] == name]
        good = [r for r in own if "figures" in r]
        if good:
            rows[name] = medians(good, chosen)
        else:
            rows[name] = {"missing": own[0]["missing"]}
    return rows


def medians(good, chosen):
    limits = {r["round"]: r["figures"] for r in chosen if r["peer"] == LIMIT and "figures" in r}
    row = {key: median(r["figures"][key] for r in good) for key in good[0]["figures"]}
    row["rounds"] = len(good)
    beside = [(r["figures"], limits[r["round"]]) for r in good if r["round"] in limits]
    if beside:
        ratios = [own["per_second"] / limit["per_second"] for own, limit in beside]
        row["ratio"] = median(ratios)
        row["ratio_least"] = min(ratios)
        row["ratio_most"] = max(ratios)
        row["cpu_ratio"] = median(own["cpu_us"] / limit["cpu_us"] for own, limit in beside)
    return row


def summarise(results):
    """Rows by placement and workload."""
    summary = {}
    for placement in PLACEMENTS:
        for workload in WORKLOADS:
            rows = rows_of(results, placement, workload)
            if rows:
                summary.setdefault(placement, {})[workload] = rows
    return summary


def number(value):
    """Three or four digits, as people write them."""
    if value >= 1000:
        return f"{value:,.0f}"
    if value >= 100:
        return f"{value:.0f}"
    if value >= 10:
        return f"{value:.1f}"
    return f"{value:.2f}"


def optional(row, key):
    return number(row[key]) if key in row else "-"


def columns_of(workload):
    """The headings of a workload's table, and what stands below each."""
    if workload == "W7":
        return {
            "KiB per connection": lambda row: number(row["kib"]),
            "server in all, MiB": lambda row: number(row["server_kib"] / 1024),
            "threads": lambda row: f"{row['threads']:.0f}",
        }
    columns = {
        "ratio to raw": lambda row: optional(row, "ratio"),
        "least - most": lambda row: f"{optional(row, 'ratio_least')} - {optional(row, 'ratio_most')}",
    }
    if workload == "W4":
        columns["MiB/s"] = lambda row: number(row["per_second"] * STREAM_MIB)
    else:
        columns[f"{unit_of(workload)}s/s"] = lambda row: number(row["per_second"])
    return {
        **columns,
        "CPU µs": lambda row: number(row["cpu_us"]),
        "CPU to raw": lambda row: optional(row, "cpu_ratio"),
        "client + server": lambda row: f"{number(row['client_cpu_us'])} + {number(row['server_cpu_us'])}",
        "p50 µs": lambda row: number(row["p50_us"]),
        "p99 µs": lambda row: number(row["p99_us"]),
        "p99.9 µs": lambda row: number(row["p999_us"]),
    }


def order_of(workload, row):
    """Best first, and last those without a result."""
    if "missing" in row:
        return (1, 0)
    if workload == "W7":
        return (0, row["kib"])
    return (0, -row.get("ratio", row["per_second"]))


def table_of(workload, rows):
    """A heading line and the lines below it, as lists of texts."""
    columns = columns_of(workload)
    lines = [["peer", *columns]]
    for name, row in sorted(rows.items(), key=lambda item: order_of(workload, item[1])):
        if "missing" in row:
            lines.append([PEERS[name].label, row["missing"]] + [""] * (len(columns) - 1))
        else:
            lines.append([PEERS[name].label] + [make(row) for make in columns.values()])
    return lines


def as_text(lines):
    # A reason why there is no result may run on across the columns behind it.
    counted = [line for line in lines if any(line[2:])]
    widths = [max(len(line[column]) for line in counted) for column in range(len(lines[0]))]
    widths[0] = max(len(line[0]) for line in lines)
    text = []
    for line in lines:
        cells = [line[0].ljust(widths[0])]
        if any(line[2:]):
            cells += [cell.rjust(width) for cell, width in zip(line[1:], widths[1:])]
        else:
            cells.append(line[1])
        text.append("  ".join(cells).rstrip())
    return "\n".join(text)


def text_report(summary):
    parts = []
    for placement, workloads in summary.items():
        for workload, rows in workloads.items():
            title = f"{workload}: {WORKLOADS[workload]}; {PLACEMENTS[placement]}"
            if workload == "W7":
                title = f"{workload}: {WORKLOADS[workload]}"
            parts.append(title + "\n" + as_text(table_of(workload, rows)))
    return "\n\n".join(parts)
