"""Turns benchmark results into a table, and into the pages below docs.

usage: report.py [--write DOCS-FOLDER] LIBRARY-FOLDER RESULTS...
       report.py --index DOCS-FOLDER

RESULTS are files of Google Benchmark (.json) and of bench-memory (.tsv). Prints the table. With
--write also writes benchmarks/PROCESSOR.md with its chart and its figures (.svg, .json), and
benchmarks.md, which compares the processors; --index writes only the latter, from those figures.
"""
import datetime
import glob
import json
import math
import os
import random
import re
import statistics
import subprocess
import sys
from xml.sax.saxutils import escape

OURS = "Vx"
FLOOR = "floor: "
DARK_SCHEME = (
    '<style>@media (prefers-color-scheme: dark) { [fill="white"] { fill: #17191d }'
    ' text { fill: #d7dde4 } [fill="#555"] { fill: #9aa5b1 } [stroke="#ddd"] { stroke: #343941 }'
    ' [stroke="#333"], [stroke="#222"] { stroke: #d7dde4 } }</style>')
NO_RIVAL = re.compile("UTF-16|^Vx,")  # half the bytes; Vx itself under other conditions


class Times:
    """The repetitions of one benchmark, in nanoseconds or another unit."""

    def __init__(self, repetitions, rates=None, unit="ns"):
        self.repetitions = repetitions
        self.median = statistics.median(repetitions)
        self.rate = statistics.median(rates) if rates else None
        self.unit = unit

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


class Results:
    """What all result files hold together."""

    def __init__(self, paths):
        self.context = {}
        self.rows, self.curves = [], []  # announced: the fields after their kind, in order
        self.times = {}                  # benchmark -> Times
        self.wrong = []
        for path in paths:
            if os.path.getsize(path) == 0:  # no benchmark of the family matched
                continue
            with open(path, encoding="utf-8") as file:
                if path.endswith(".tsv"):
                    self.add_figures([line.rstrip("\n").split("\t") for line in file])
                else:
                    self.add_benchmarks(json.load(file))

    def add_figures(self, lines):
        samples = {}
        for kind, *fields in lines:
            if kind == "row":
                if fields not in self.rows:
                    self.rows.append(fields)
            else:
                name, value, unit = fields
                samples.setdefault((name, unit), []).append(float(value))
        for (name, unit), values in samples.items():
            self.times[name] = Times(values, unit=unit)

    def add_benchmarks(self, data):
        context = data["context"]
        self.context = self.context or context
        for kind, found in (("row", self.rows), ("curve", self.curves)):
            for key in sorted(k for k in context if re.fullmatch(kind + r"\d+", k)):
                found.append(context[key].split("\t"))
        samples, rates = {}, {}
        for run in data["benchmarks"]:
            if run.get("run_type") == "aggregate":
                continue
            name = run["run_name"]
            if run.get("error_occurred"):
                self.wrong.append(f"{name}: {run['error_message']}")
                continue
            scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]
            # Processor time excludes other programs. Benchmarks of several processes, and those
            # that show how threads hinder each other, use wall-clock time.
            wall = name.endswith("/real_time") or "/real_time/" in name
            time = run["real_time"] if wall else run["cpu_time"]
            samples.setdefault(name, []).append(time * scale)
            if "bytes_per_second" in run:
                rates.setdefault(name, []).append(run["bytes_per_second"] / 1e9)
        for name, values in samples.items():
            self.times[name] = Times(values, rates.get(name))


def split(name):
    row, _, who = name.partition(" @ ")
    return row, who.split("/")[0]


def fastest(times):
    return min(times, key=lambda who: times[who].median, default=None)


def rows(results):
    found = {}
    for name, times in results.times.items():
        row, who = split(name)
        found.setdefault(row, {})[who] = times
    for row, factor, against in results.rows:
        times = found.get(row)
        if not times or OURS not in times:
            continue
        ours = times[OURS]
        floors = {who.removeprefix(FLOOR): times[who] for who in times if who.startswith(FLOOR)}
        peers = {who: times[who] for who in times if who != OURS and not who.startswith(FLOOR)}
        best = fastest({who: peers[who] for who in peers if not NO_RIVAL.search(who)})
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


def scaled(value, units):
    for unit, scale in units:
        if value >= scale:
            return f"{value / scale:.3g} {unit}"
    return f"{value / units[-1][1]:.3g} {units[-1][0]}"


def quantity(value, unit="ns"):
    if unit == "ns":
        return scaled(value, (("s", 1e9), ("ms", 1e6), ("us", 1e3), ("ns", 1)))
    if unit == "bytes":
        return scaled(value, (("MB", 1e6), ("bytes", 1)))
    return f"{value:.3g} {unit}"


def measured(times):
    return quantity(times.median, times.unit) + (f" ({times.rate:.3g} GB/s)" if times.rate else "")


def goal_text(row):
    if row["goal"] is None:
        return "", ""
    other = row["rival"] != row["best"]
    whom = f" of {row['rival']}" if other else ""
    return f"{row['goal']:.2f}{whom}", verdict(row) + (f", {row['towards']}" if other else "")


def floor_text(row):
    return "; ".join(f"{name} {measured(floor)}: {ratio}"
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
            "; ".join(f"{who} {quantity(times.median, times.unit)}" for who, times in others),
        ])
    return lines


def curves(results):
    found = {}
    for name, times in results.times.items():
        row, _ = split(name)
        size = int(name.partition(" @ ")[2].split("/")[0].split(":")[0]) if row.startswith("growth") else 0
        found.setdefault(row, []).append((size, times.median))
    lines = [["Operation", "Expected growth", "Cost by size", "Steepest step"]]
    for row, expected in results.curves:
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
            ", ".join(f"{size:,}: {quantity(time)}" for size, time in points),
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


def processor():
    """The processor's name and a short one for files. Virtual machines hide the exact name, so the
    latter has the family and the model as well."""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        fields = dict(re.split(r"\s*:\s*", line.strip(), maxsplit=1)
                      for line in file.read().split("\n\n")[0].splitlines())
    name = fields.get("model name", "unknown")
    words = re.sub(r"\(R\)|\(TM\)|\b(CPU|Processor)\b|@.*|\d+-Core", "", name, flags=re.I)
    numbers = [fields.get(key, "0") for key in ("cpu family", "model")]
    slug = "-".join(re.findall(r"[a-z0-9]+", words.lower()) + numbers)
    return f"{name}, family {numbers[0]}, model {numbers[1]}", slug


def picture(all_rows):
    """A bar chart of the ratios to the best peer, on a logarithmic scale."""
    drawn = [row for row in all_rows if row["ratio"]]
    left, width, height, step = 430, 420, 16, 20
    low, high = math.log(1 / 32), math.log(8)

    def x(ratio):
        place = (min(max(math.log(ratio), low), high) - low) / (high - low)
        return left + place * width

    bottom = 50 + step * len(drawn)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + width + 70}" height="{bottom + 20}"'
        ' font-family="sans-serif" font-size="12">',
        DARK_SCHEME,
        '<rect width="100%" height="100%" fill="white"/>',
        '<text x="10" y="20" font-size="15">Vx divided by the best peer'
        " (shorter is better; the mark is the goal)</text>",
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


def bullets(lines):
    return "\n".join(f"- {line}" for line in lines) or "None."


def document(results, all_rows, growth, size_lines, name, slug):
    context = results.context
    lost = [row for row in all_rows if row["ratio"] and row["ratio"].value > 1.005]
    short = [row for row in all_rows if verdict(row) in ("no", "unsure")]
    text = [
        f"# Benchmarks: {name}",
        "",
        "Generated by `./dev bench`; [Benchmarks](../benchmarks.md) compares processors and says how"
        " these figures are measured.",
        "",
        f"- Machine: {name}, {context['num_cpus']} processors at {context['mhz_per_cpu']} MHz",
        f"- Compiler and flags: {context['compiler']}, `{context['flags']}`",
        f"- Date: {datetime.date.today().isoformat()}",
        f"- Peers: {context['peers'].rstrip(', ')}, and the C++ library and libc",
        f"- Peers not installed: {context['missing'].rstrip(', ') or 'none'}",
        f"- Load average at the start: {', '.join(str(round(x, 1)) for x in context['load_avg'])}",
        "",
        "## Rows that miss their goal",
        "",
        bullets(f"{row['row']}: {row['towards']} of {row['rival']}, goal {row['goal']:.2f}"
                + (f"; floor {floor_text(row)}" if row["floors"] else "") for row in short),
        "",
        "## Rows that a peer wins",
        "",
        bullets(f"{row['row']}: {row['ratio']} of {row['best']}" for row in lost),
        "",
        "## All rows",
        "",
        f"![Vx divided by the best peer]({slug}.svg)",
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


def figures(all_rows, name):
    """What the index needs of one processor's results, and the medians for other programs."""
    return {
        "processor": name,
        "date": datetime.date.today().isoformat(),
        "rows": [{
            "row": row["row"],
            "goal": row["goal"],
            "rival": row["rival"],
            "towards": row["towards"] and round(row["towards"].value, 3),
            "met": verdict(row),
            "best": row["best"],
            "ratio": row["ratio"] and round(row["ratio"].value, 3),
            "unit": row["ours"].unit,
            "medians": {who: float(f"{times.median:.4g}")
                        for who, times in {OURS: row["ours"], **row["peers"]}.items()},
        } for row in all_rows],
    }


def compared(rows_of, slugs, wanted):
    """A table with a line for each wanted row, the worst first, and a column for each processor."""
    lines = [["Operation", "Goal", *slugs]]
    found = {}
    for slug in slugs:
        for row in rows_of[slug]:
            found.setdefault(row["row"], {})[slug] = row

    def excess(row):
        return (row["towards"] / row["goal"] if row["goal"] and row["towards"] else 0,
                row["ratio"] or 0)

    for name, by_slug in sorted(found.items(), key=lambda item: max(map(excess, item[1].values())),
                                reverse=True):
        if not wanted(list(by_slug.values())):
            continue
        goal = next((row["goal"] for row in by_slug.values() if row["goal"]), None)
        cells = []
        for slug in slugs:
            row = by_slug.get(slug)
            which = ("towards", "rival") if row and row["goal"] else ("ratio", "best")
            if not row:
                cells.append("")
            elif not row[which[0]]:
                cells.append(quantity(row["medians"][OURS], row["unit"]))
            else:
                unsure = ", unsure" if row["met"] == "unsure" else ""
                cells.append(f"{row[which[0]]:.2f} of {row[which[1]]}{unsure}")
        lines.append([name, f"{goal:.2f}" if goal else "", *cells])
    return markdown(lines) if len(lines) > 1 else "None."


def write_index(docs):
    """Writes benchmarks.md from the figures in benchmarks/."""
    found = {}
    for path in sorted(glob.glob(os.path.join(docs, "benchmarks", "*.json"))):
        with open(path, encoding="utf-8") as file:
            found[os.path.splitext(os.path.basename(path))[0]] = json.load(file)
    rows_of = {slug: each["rows"] for slug, each in found.items()}

    def misses(of_row):
        return any(row["met"] in ("no", "unsure") for row in of_row)

    def lost(of_row):
        return any((row["ratio"] or 0) > 1.005 for row in of_row)

    sections = [
        ("Rows that miss their goal", misses),
        ("Rows within their goal, or without one, that a peer wins",
         lambda of_row: lost(of_row) and not misses(of_row)),
        ("All other rows", lambda of_row: not lost(of_row) and not misses(of_row)),
    ]
    text = ["# Benchmarks", "", "Generated by `./dev bench`; the remarks are in `bench/notes.md`.",
            "Each processor has a page with all peers, intervals, growth and sizes:", ""]
    text += [f"- [{each['processor']}](benchmarks/{slug}.md), measured on {each['date']}"
             for slug, each in found.items()]
    text += ["", "A cell is the time or memory of Vx divided by that of the peer the goal names, or of the best",
             "peer where there is no goal. Below 1 Vx wins. Rows that fall short come first."]
    for title, wanted in sections:
        text += ["", f"## {title}", "", compared(rows_of, list(found), wanted)]
    text += ["", "## Method and remarks", "", notes().strip(), ""]
    with open(os.path.join(docs, "benchmarks.md"), "w", encoding="utf-8") as file:
        file.write("\n".join(text))


def write_pages(docs, results, all_rows, growth, size_lines):
    name, slug = processor()
    pages = {
        "md": document(results, all_rows, growth, size_lines, name, slug),
        "svg": picture(all_rows),
        "json": json.dumps(figures(all_rows, name), indent=1) + "\n",
    }
    os.makedirs(os.path.join(docs, "benchmarks"), exist_ok=True)
    for kind, text in pages.items():
        with open(os.path.join(docs, "benchmarks", f"{slug}.{kind}"), "w", encoding="utf-8") as file:
            file.write(text)
    write_index(docs)


def main():
    arguments = sys.argv[1:]
    if arguments[:1] == ["--index"]:
        write_index(arguments[1])
        return
    docs = None
    if arguments[:1] == ["--write"]:
        docs, arguments = arguments[1], arguments[2:]
    libraries, *paths = arguments
    results = Results(paths)
    all_rows = list(rows(results))
    growth = curves(results)
    for lines in (table(all_rows), growth):
        widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]) - 1)]
        if len(lines) > 1:
            for line in lines:
                print("  ".join([cell.ljust(w) for cell, w in zip(line, widths)] + line[-1:]))
            print()
    if docs and not results.wrong:
        write_pages(docs, results, all_rows, growth, sizes(libraries))
    if results.context.get("missing"):
        print("not installed:", results.context["missing"].rstrip(", "))
    for line in results.wrong:
        print("wrong answer:", line)
    sys.exit(1 if results.wrong else 0)


main()
