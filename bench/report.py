"""Turns benchmark results into a table, a document and a chart.

usage: report.py RESULTS.json LIBRARY-FOLDER [--write DOCS-FOLDER]

Prints the table. With --write also writes benchmarks.md and benchmarks.svg.
"""
import datetime
import json
import math
import os
import random
import statistics
import subprocess
import sys
from xml.sax.saxutils import escape

OURS = "Vx"
FLOOR = "floor: "


class Times:
    """The repetitions of one benchmark, in nanoseconds."""

    def __init__(self, repetitions, rates):
        self.repetitions = repetitions
        self.median = statistics.median(repetitions)
        self.rate = statistics.median(rates) if rates else None

    def resampled(self, dice):
        return statistics.median(dice.choices(self.repetitions, k=len(self.repetitions)))


class Ratio:
    """One median divided by another, with its 95 % confidence interval (bootstrap)."""

    def __init__(self, ours, theirs):
        self.value = ours.median / theirs.median
        dice = random.Random(1)
        draws = sorted(ours.resampled(dice) / theirs.resampled(dice) for _ in range(1000))
        self.low, self.high = draws[25], draws[-26]

    def __str__(self):
        return f"{self.value:.2f} ({self.low:.2f} to {self.high:.2f})"


def load(path):
    with open(path, encoding="utf-8") as file:
        data = json.load(file)
    samples = {}  # benchmark -> times of its repetitions in nanoseconds
    rates = {}
    wrong = []
    for run in data["benchmarks"]:
        if run.get("run_type") == "aggregate":
            continue
        name = run["run_name"]
        if run.get("error_occurred"):
            wrong.append(f"{name}: {run['error_message']}")
            continue
        scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
        # Processor time excludes other programs. Benchmarks of several threads or processes use
        # wall-clock time.
        wall = name.endswith("/real_time") or "/real_time/" in name
        time = run["real_time"] if wall else run["cpu_time"]
        samples.setdefault(name, []).append(time * scale)
        if "bytes_per_second" in run:
            rates.setdefault(name, []).append(run["bytes_per_second"] / 1e9)
    times = {name: Times(values, rates.get(name)) for name, values in samples.items()}
    return data["context"], times, wrong


def split(name):
    row, _, who = name.partition(" @ ")
    return row, who.split("/")[0]


def announced(context, kind):
    for key in sorted(k for k in context if k.startswith(kind) and k[len(kind):].isdigit()):
        yield context[key].split("\t")


def fastest(times):
    return min(times, key=lambda who: times[who].median, default=None)


def rows(context, all_times):
    found = {}
    for name, times in all_times.items():
        row, who = split(name)
        found.setdefault(row, {})[who] = times
    for row, factor, against in announced(context, "row"):
        times = found.get(row)
        if not times or OURS not in times:
            continue
        ours = times[OURS]
        floors = {who.removeprefix(FLOOR): times[who] for who in times if who.startswith(FLOOR)}
        peers = {who: times[who] for who in times if who != OURS and not who.startswith(FLOOR)}
        best = fastest({who: peers[who] for who in peers if "UTF-16" not in who})
        named = against.split("|") if against else list(peers)
        rival = fastest({who: peers[who] for who in named if who in peers})
        goal = float(factor)
        yield {
            "row": row,
            "ours": ours,
            "peers": peers,
            "best": best,
            "ratio": Ratio(ours, peers[best]) if best else None,
            "goal": goal or None,
            "rival": rival,
            "towards": Ratio(ours, peers[rival]) if rival else None,
            "floors": {name: (floor, Ratio(ours, floor)) for name, floor in floors.items()},
        }


def verdict(row):
    """Whether the goal is met; "unsure" if it lies inside the confidence interval."""
    if not row["goal"] or not row["rival"]:
        return ""
    goal = row["goal"] * 1.005
    if row["towards"].value <= goal:
        return "yes"
    return "unsure" if row["towards"].low <= goal else "no"


def duration(nanoseconds):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= scale:
            return f"{nanoseconds / scale:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def measured(times):
    return duration(times.median) + (f" ({times.rate:.3g} GB/s)" if times.rate else "")


def goal_text(row):
    if row["goal"] is None:
        return "", ""
    other = row["rival"] != row["best"]
    whom = f" of {row['rival']}" if other else ""
    return f"{row['goal']:.2f}{whom}", verdict(row) + (f", {row['towards']}" if other else "")


def floor_text(row):
    return "; ".join(f"{name} {duration(floor.median)}: {ratio}"
                     for name, (floor, ratio) in row["floors"].items())


def table(all_rows):
    lines = [["Operation", "Vx", "Best peer", "Ratio", "Goal", "Met", "Floor", "All peers"]]
    for row in all_rows:
        others = sorted(row["peers"].items(), key=lambda item: item[1].median)
        best = row["best"]
        lines.append([
            row["row"],
            measured(row["ours"]),
            f"{best} {measured(row['peers'][best])}" if best else "",
            str(row["ratio"]) if best else "",
            *goal_text(row),
            floor_text(row),
            "; ".join(f"{who} {duration(times.median)}" for who, times in others),
        ])
    return lines


def curves(context, all_times):
    found = {}
    for name, times in all_times.items():
        row, _ = split(name)
        size = int(name.partition(" @ ")[2].split("/")[0].split(":")[0]) if row.startswith("growth") else 0
        found.setdefault(row, []).append((size, times.median))
    lines = [["Operation", "Expected growth", "Cost by size", "Steepest step"]]
    for row, expected in announced(context, "curve"):
        points = sorted(found.get(row, []))
        if not points:
            continue
        steps = [
            math.log(after[1] / before[1]) / math.log(after[0] / before[0])
            for before, after in zip(points, points[1:])
        ]
        lines.append([
            row.removeprefix("growth: "),
            expected,
            ", ".join(f"{size:,}: {duration(time)}" for size, time in points),
            f"n^{max(steps):.2f}" if steps else "",
        ])
    return lines


def markdown(lines):
    def line(cells):
        return "| " + " | ".join(cell.replace("|", "/") for cell in cells) + " |"

    return "\n".join([line(lines[0]), "|" + "---|" * len(lines[0])] + [line(x) for x in lines[1:]])


def sizes(folder):
    lines = [["Library", "Text", "Data", "Relocations", "Symbolic", "Needs"]]
    for name in ("libVx.so", "libOS.so", "libVxIPP.so"):
        path = next((os.path.join(base, name) for base, _, files in os.walk(folder)
                     if name in files), None)
        if path is None:
            continue
        run = lambda *command: subprocess.run(command, capture_output=True, text=True, check=True).stdout
        text, data = run("size", path).splitlines()[1].split()[:2]
        relocations = [x for x in run("readelf", "-rW", path).splitlines() if " R_X86_64_" in x]
        relative = [x for x in relocations if "R_X86_64_RELATIVE" in x]
        needs = [x.split("[")[1].rstrip("]") for x in run("readelf", "-dW", path).splitlines()
                 if "(NEEDED)" in x]
        lines.append([name, f"{int(text):,}", f"{int(data):,}", str(len(relocations)),
                      str(len(relocations) - len(relative)), ", ".join(needs)])
    return lines


def machine(context):
    model = "unknown processor"
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    return f"{model}, {context['num_cpus']} processors at {context['mhz_per_cpu']} MHz"


def picture(all_rows):
    """A bar chart of the ratios to the best peer, on a logarithmic scale."""
    drawn = [row for row in all_rows if row["ratio"] and not row["row"].startswith("allocation")]
    left, width, height, step = 370, 420, 16, 20
    low, high = math.log(1 / 32), math.log(8)

    def x(ratio):
        place = (min(max(math.log(ratio), low), high) - low) / (high - low)
        return left + place * width

    bottom = 50 + step * len(drawn)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 70}" height="{bottom + 20}"'
        ' font-family="sans-serif" font-size="12">',
        '<rect width="100%" height="100%" fill="white"/>',
        '<text x="10" y="20" font-size="15">Time of Vx divided by that of the best peer'
        " (shorter is faster; the mark is the goal)</text>",
    ]
    for power in range(-5, 4):
        mark = 2.0 ** power
        label = f"{mark:g}" if power >= 0 else f"1/{2 ** -power}"
        colour = "#333" if power == 0 else "#ddd"
        parts.append(f'<line x1="{x(mark):.1f}" x2="{x(mark):.1f}" y1="44" y2="{bottom}" stroke="{colour}"/>')
        parts.append(f'<text x="{x(mark):.1f}" y="40" text-anchor="middle" fill="#555">{label}</text>')
    for i, row in enumerate(drawn):
        top = 50 + i * step
        ratio = row["ratio"].value
        colour = "#4a8f5c" if ratio <= 1 else "#b8453f" if verdict(row) == "no" else "#c7883c"
        if row["goal"] is None:
            colour = "#8a93a0"
        start, end = sorted((x(1), x(ratio)))
        parts.append(f'<text x="{left - 8}" y="{top + 12}" text-anchor="end">{escape(row["row"])}</text>')
        parts.append(f'<rect x="{start:.1f}" y="{top}" width="{max(end - start, 1):.1f}" height="{height}" fill="{colour}"/>')
        if row["goal"]:
            goal = row["goal"] * row["peers"][row["rival"]].median / row["peers"][row["best"]].median
            parts.append(f'<line x1="{x(goal):.1f}" x2="{x(goal):.1f}" y1="{top - 1}" y2="{top + height + 1}" stroke="#222" stroke-width="2"/>')
        parts.append(f'<text x="{left + width + 8}" y="{top + 12}">{ratio:.2f}</text>')
    return "\n".join(parts + ["</svg>", ""])


def notes():
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "notes.md")
    with open(path, encoding="utf-8") as file:
        return file.read()


def document(context, all_rows, growth, size_lines):
    lost = [row for row in all_rows if row["ratio"] and row["ratio"].value > 1.005
            and not row["row"].startswith("allocation")]
    short = [row for row in all_rows if verdict(row) in ("no", "unsure")]
    text = [
        "# Benchmarks",
        "",
        "Generated by `./dev bench`; the remarks are in `bench/notes.md`.",
        "",
        f"- Machine: {machine(context)}",
        f"- Compiler and flags: {context['compiler']}, `{context['flags']}`",
        f"- Date: {datetime.date.today().isoformat()}",
        f"- Peers: {context['peers'].rstrip(', ')}, and the C++ library and libc",
        f"- Peers not installed: {context['missing'].rstrip(', ') or 'none'}",
        f"- Load average at the start: {', '.join(str(round(x, 1)) for x in context['load_avg'])}",
        "",
        notes().strip(),
        "",
        "## Rows that a peer wins",
        "",
        "\n".join(f"- {row['row']}: {row['ratio']} of {row['best']}" for row in lost) or "None.",
        "",
        "## Rows that miss their goal",
        "",
        "\n".join(f"- {row['row']}: {row['towards']} of {row['rival']}, goal {row['goal']:.2f}"
                  + (f"; floor {floor_text(row)}" if row["floors"] else "") for row in short) or "None.",
        "",
        "## All rows",
        "",
        "![Time of Vx divided by that of the best peer](benchmarks.svg)",
        "",
        markdown(table(all_rows)),
        "",
        "## Growth",
        "",
        "The steepest step is the largest exponent between neighbouring sizes: 1 is linear, 0 constant.",
        "",
        markdown(growth),
        "",
        "## Sizes",
        "",
        markdown(size_lines),
        "",
    ]
    return "\n".join(text)


def main():
    results, libraries = sys.argv[1:3]
    context, times, wrong = load(results)
    all_rows = list(rows(context, times))
    growth = curves(context, times)
    for lines in (table(all_rows), growth):
        widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]) - 1)]
        if len(lines) > 1:
            for line in lines:
                print("  ".join([cell.ljust(w) for cell, w in zip(line, widths)] + line[-1:]))
            print()
    if "--write" in sys.argv and not wrong:
        folder = sys.argv[sys.argv.index("--write") + 1]
        size_lines = sizes(libraries)
        with open(os.path.join(folder, "benchmarks.md"), "w", encoding="utf-8") as file:
            file.write(document(context, all_rows, growth, size_lines))
        with open(os.path.join(folder, "benchmarks.svg"), "w", encoding="utf-8") as file:
            file.write(picture(all_rows))
    if context["missing"]:
        print("not installed:", context["missing"].rstrip(", "))
    for line in wrong:
        print("wrong answer:", line)
    sys.exit(1 if wrong else 0)


main()
