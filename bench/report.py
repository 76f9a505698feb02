#!/usr/bin/python3
"""Turns the rows of two runs of the benchmarks into one table, results.md and a plot a family.

    report.py FIRST.jsonl [SECOND.jsonl] --output DIRECTORY [--limits limits.json]

Each line of a run is one row (table.h writes them). Figures are those of the first run; the second
one says how far they move by themselves.
"""
import argparse
import collections
import json
import os
import pathlib
import platform
import subprocess
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "kavrel"})  # text stays text, names stay
import matplotlib.pyplot as plt  # noqa: E402  (the backend comes first)
from matplotlib import ticker  # noqa: E402

KINDS = {"ours": "", "limit": "limit", "peer": "peer"}
COLOURS = {"ours": "#1f5fa8", "limit": "#9a9a9a", "peer": "#d08a2e"}
FAMILIES = ["command", "state", "plugin", "window", "loading", "log"]
# The programs and libraries that are measured beside this project, as Debian calls them.
PACKAGES = ["libglib2.0-0", "libsystemd0", "dbus-daemon", "libgrpc++1.51", "libcapnp-0.9.2", "liblmdb0",
            "libsqlite3-0", "redis-server", "dconf-service", "weston", "libefl-all-dev"]
FLAT = 1.5  # a cost is flat when no figure is more than so many times the first
STRAIGHT = 0.3  # and straight when no figure is further from the line than this part of itself


def key_of(row):
    return row["family"], row["table"], row["row"], row.get("size")


def read_rows(path):
    """The rows of one run by key_of; the order of the file is kept."""
    rows = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            row = json.loads(line)
            row.setdefault("family", "other")
            rows[key_of(row)] = row
    return rows


def number(value):
    if value is None:
        return ""
    if value == 0:
        return "0"
    if abs(value) >= 1000:
        return f"{value:,.0f}"
    return f"{value:.1f}" if abs(value) >= 100 else f"{value:.2f}"


def movement(first, second):
    """How far the second run is from the first, as text."""
    if second is None or not first.get("p50") or not second.get("p50"):
        return ""
    return f"{(second['p50'] / first['p50'] - 1) * 100:+.0f} %"


def title_of(row):
    size = row.get("size")
    return row["row"] if size is None else f"{row['row']}, {size:.0f}"


def tables_of(rows):
    """(family, table) -> its rows, families in their usual order."""
    tables = collections.OrderedDict()
    for (family, table, _, _), row in rows.items():
        tables.setdefault((family, table), []).append(row)
    order = {family: place for place, family in enumerate(FAMILIES)}
    return sorted(tables.items(), key=lambda item: order.get(item[0][0], len(order)))


def reference_of(rows, row):
    """What a row is compared with: what it says, else the table's first limit, of the same size."""
    for other in rows:
        wanted = other["row"] == row["reference"] if "reference" in row else other["kind"] == "limit"
        if wanted and other.get("size") == row.get("size") and other.get("p50"):
            return other
    return None


def cells_of(rows, row, second):
    """What the table says of a row."""
    if "missing" in row:
        return [title_of(row), KINDS[row["kind"]], "not measured: " + row["missing"], "", "", "", ""]
    reference = reference_of(rows, row)
    ratio = ""
    if reference is not None and reference is not row and row.get("p50"):
        ratio = f"{row['p50'] / reference['p50']:.2f}"
    return [title_of(row), KINDS[row["kind"]], number(row.get("p50")), ratio, number(row.get("p99")),
            number(row.get("processor")), movement(row, second)]


# ---- What is demanded


class Limits:
    """The ratios that this project wants to keep, from limits.json, and what became of them."""

    def __init__(self, path, rows):
        with open(path, encoding="utf-8") as file:
            known = json.load(file)
        self.explanations = known["growth"]
        self.results = [result for limit in known["limits"] if (result := self.check(limit, rows))]

    @staticmethod
    def find(rows, limit, name):
        for (_, table, row, size), found in rows.items():
            if table == limit["table"] and row == name and size == limit.get("size"):
                return found
        return None

    @classmethod
    def allowed(cls, rows, limit, metric):
        """(what is compared with, its figure); the figure is None when it was not measured."""
        if limit["than"] == "every peer":
            peers = [row for (_, table, _, _), row in rows.items()
                     if table == limit["table"] and row["kind"] == "peer" and row.get(metric)]
            return "every peer", min((row[metric] for row in peers), default=None)
        names = limit["than"]
        if isinstance(names, (int, float)):
            return "", names
        found = [cls.find(rows, limit, name) for name in names]
        if any(row is None or row.get(metric) is None for row in found):
            return " + ".join(names), None
        return " + ".join(names), sum(row[metric] for row in found)

    @classmethod
    def check(cls, limit, rows):
        metric = limit.get("metric", "p50")
        row = cls.find(rows, limit, limit["row"])
        if not any(table == limit["table"] for (_, table, _, _) in rows):
            return None  # that family was not measured
        name, figure = cls.allowed(rows, limit, metric)
        ours = row.get(metric) if row else None
        result = {"table": limit["table"], "row": limit["row"], "metric": metric, "than": name,
                  "at_most": limit["at_most"], "size": limit.get("size"), "ours": ours, "theirs": figure}
        if ours is None or figure is None:
            result["verdict"] = "not measured"
        else:
            result["ratio"] = ours / figure if figure else float("inf") if ours else 0
            kept = result["ratio"] <= limit["at_most"]
            result["verdict"] = "ok" if kept else "missed"
        return result


def limit_cells(result):
    size = "" if result["size"] is None else f", {result['size']}"
    than = f"{result['at_most']:g} x {result['than']}" if result["than"] else f"{number(result['theirs'])}"
    ratio = f"{result['ratio']:.2f}" if "ratio" in result else ""
    return [f"{result['table']}: {result['row']}{size}", result["metric"], than, number(result["ours"]),
            number(result["theirs"]), ratio, result["verdict"]]


# ---- Growth


def growth_of(rows, figure="p50"):
    """(family, table, row, kind) -> [(size, figure)] of what grows."""
    lines = collections.OrderedDict()
    for (family, table, name, size), row in rows.items():
        if size is not None and row.get(figure):
            lines.setdefault((family, table, name, row["kind"]), []).append((size, row[figure]))
    return {key: sorted(points) for key, points in lines.items() if len(points) > 2}


def shape_of(points):
    """flat, straight, or neither."""
    costs = [cost for _, cost in points]
    if max(costs) <= FLAT * costs[0]:
        return "flat"
    # The line through the first and the last point is the one that matters: what the next one costs.
    (first_size, first_cost), (last_size, last_cost) = points[0], points[-1]
    slope = (last_cost - first_cost) / (last_size - first_size)
    line = [first_cost + slope * (size - first_size) for size, _ in points]
    if all(abs(cost - wanted) <= STRAIGHT * max(cost, wanted) for cost, wanted in zip(costs, line)):
        return f"straight, {slope:.3g} us each"
    return "below a straight line" if costs[len(costs) // 2] < line[len(line) // 2] else "bent"


# ---- Output


def print_columns(heads, lines):
    print(f"{heads[0]:<56.56} {heads[1]:<6} " + " ".join(f"{head:>11}" for head in heads[2:]))
    for cells in lines:
        if cells[2].startswith("not measured"):
            print(f"{cells[0]:<56.56} {cells[1]:<6} {cells[2]}")
            continue
        print(f"{cells[0]:<56.56} {cells[1]:<6} " + " ".join(f"{cell:>11}" for cell in cells[2:]))


def markdown_table(heads, lines):
    rows = ["| " + " | ".join(heads) + " |", "|" + "|".join(["---"] + ["---:"] * (len(heads) - 1)) + "|"]
    rows += ["| " + " | ".join(str(cell).replace("|", "\\|") for cell in cells) + " |" for cells in lines]
    return "\n".join(rows)


def heads_of(rows):
    unit = rows[0]["unit"]
    return ["", "", f"p50 {unit}" if unit != "a second" else unit, "to limit", f"p99 {unit}" if unit != "a second" else "",
            "CPU us", "2nd run"]


def installed_version(package):
    query = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True,
                           check=False)
    return query.stdout if query.returncode == 0 and query.stdout else "not installed"


def machine():
    """What the figures were taken on."""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = [line.split(":", 1)[1].strip() for line in file if line.startswith("model name")]
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True, check=False).stdout
    return [f"{platform.system()} {platform.release()}, {os.cpu_count()} cores, {models[0] if models else 'unknown processor'}",
            compiler.splitlines()[0] if compiler else "no compiler"]


def versions():
    return [f"{package} {installed_version(package)}" for package in PACKAGES]


def plot_bars(axis, table, rows):
    shown = [row for row in rows if row.get("p50")]
    figures = [row["p50"] for row in shown]
    bars = axis.barh([title_of(row) for row in shown], figures, color=[COLOURS[row["kind"]] for row in shown])
    axis.bar_label(bars, labels=[number(figure) for figure in figures], fontsize=6, padding=2)
    axis.invert_yaxis()
    axis.set_xscale("log")
    axis.set_xlim(min(figures) / 3, max(figures) * 2)
    axis.xaxis.set_minor_formatter(ticker.NullFormatter())
    axis.set_title(table, fontsize=9, loc="left")
    axis.set_xlabel(shown[0]["unit"] if shown else "", fontsize=7)
    axis.tick_params(labelsize=7)


def plot_lines(axis, table, lines):
    styles = collections.defaultdict(lambda: iter(["-o", "--s", ":^", "-.v"]))
    for (_, _, name, kind), points in lines:
        sizes, costs = zip(*points)
        axis.plot(sizes, costs, next(styles[kind]), label=name, linewidth=2 if kind == "ours" else 1,
                  color=COLOURS[kind], markersize=4)
    axis.set_xscale("log")
    axis.set_yscale("log")
    axis.set_title(table, fontsize=9, loc="left")
    axis.set_ylabel("us", fontsize=7)
    axis.tick_params(labelsize=7)
    axis.legend(fontsize=6)


def plot_family(family, tables, growth, output):
    """One picture: a panel a table, bars or - where something grows - lines."""
    panels = [(table, rows) for (of, table), rows in tables if of == family and any(row.get("p50") for row in rows)]
    if not panels:
        return False
    heights = [max(1.2, 0.25 * len(rows)) if rows[0].get("size") is None else 2.6 for _, rows in panels]
    figure, axes = plt.subplots(len(panels), 1, figsize=(9, sum(heights) + 0.7 * len(panels)), squeeze=False,
                                gridspec_kw={"height_ratios": heights})
    for axis, (table, rows) in zip(axes[:, 0], panels):
        lines = [(key, points) for key, points in growth["p50"].items() if key[:2] == (family, table)]
        if lines:
            plot_lines(axis, table, lines)
        else:
            plot_bars(axis, table, rows)
    figure.tight_layout()
    figure.savefig(output / f"{family}.svg", metadata={"Date": None})
    plt.close(figure)
    return True


def growth_cells(growth, explanations):
    """What becomes of each cost: judged by processor time, which moves least, where it is known."""
    lines = []
    for key, points in growth["p50"].items():
        _, table, name, kind = key
        if kind != "ours":
            continue
        shape = shape_of(growth["processor"].get(key, points))
        why = "" if shape == "flat" else explanations.get(table, "")
        figures = ", ".join(f"{size:.0f}: {number(cost)}" for size, cost in points)
        lines.append([f"{table}: {name}", shape, figures, why])
    return lines


LIMIT_HEADS = ["", "figure", "at most", "ours", "theirs", "ratio", ""]


def print_report(tables, second, limits, growth):
    for line in machine():
        print(line)
    for (family, table), rows in tables:
        heads = heads_of(rows)
        heads[0] = f"[{family}] {table}"
        print()
        print_columns(heads, [cells_of(rows, row, second.get(key_of(row)))
                              for row in rows])
    print("\nGrowth")
    for cells in growth_cells(growth, limits.explanations):
        print(f"{cells[0]:<80.80} {cells[1]}\n    {cells[2]}" + (f"\n    {cells[3]}" if cells[3] else ""))
    print("\nWanted")
    for result in limits.results:
        cells = limit_cells(result)
        print(f"{cells[6]:<12} {cells[0]} ({cells[1]}): {cells[3]}, at most {cells[2]} = {cells[4]}, ratio {cells[5]}")


def markdown_report(tables, second, limits, growth, pictures):
    text = ["# What it costs", "",
            "Written by `scripts/bench`. Rows of a table were measured in turns in one run: medians over its rounds, in "
            "microseconds where nothing else stands; *limit* is what ours is made of, *peer* what a program could take "
            "instead. *CPU us* is the processor time of all processes together, each time. *2nd run* says how far a second "
            "run's median was from the first.", "", *(f"- {line}" for line in machine()), "- " + ", ".join(versions()), "",
            "## Wanted", "", markdown_table(LIMIT_HEADS, [limit_cells(result) for result in limits.results]), "",
            "## Growth", "",
            markdown_table(["", "shape", "p50 us by size", "why"], growth_cells(growth, limits.explanations))]
    family_before = None
    for (family, table), rows in tables:
        if family != family_before:
            text += ["", f"## {family}", ""] + ([f"![{family}]({family}.svg)"] if family in pictures else [])
            family_before = family
        cells = [cells_of(rows, row, second.get(key_of(row))) for row in rows]
        text += ["", f"### {table}", "", markdown_table(heads_of(rows), cells)]
    return "\n".join(text) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("runs", nargs="+", type=pathlib.Path, help="rows of one or two runs")
    parser.add_argument("--output", type=pathlib.Path, help="where results.md and the plots go")
    parser.add_argument("--limits", type=pathlib.Path, default=pathlib.Path(__file__).with_name("limits.json"))
    arguments = parser.parse_args()
    first = read_rows(arguments.runs[0])
    second = read_rows(arguments.runs[1]) if len(arguments.runs) > 1 else {}
    tables = tables_of(first)
    limits = Limits(arguments.limits, first)
    growth = {figure: growth_of(first, figure) for figure in ("p50", "processor")}
    print_report(tables, second, limits, growth)
    if arguments.output:
        families = sorted({family for (family, _), _ in tables})
        pictures = {family for family in families if plot_family(family, tables, growth, arguments.output)}
        (arguments.output / "results.md").write_text(markdown_report(tables, second, limits, growth, pictures),
                                                     encoding="utf-8")
    return 1 if any("missing" in row and row["kind"] == "ours" for row in first.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
