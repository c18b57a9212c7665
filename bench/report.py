"""Prints the tables of what bench/run measured; with --doc also writes them into
doc/performance.md, between its markers, and the chart doc/performance.svg.

Exit status 1 when a ratio misses its "must"; not with --try.
"""

import argparse
import json
import re
import statistics
import subprocess
import sys
from pathlib import Path

DOC = Path("doc/performance.md")
CHART = Path("doc/performance.svg")
WORKLOADS = ("W1", "W2")
STORES = ("libyang", "libxml2", "pugixml", "SQLite")
PACKAGES = ("libyang2", "libxml2", "libpugixml1v5", "libsqlite3-0", "libexpat1", "libc6",
            "libstdc++6")
TEXT_BOUND = 49004  # bytes

# What is divided by what, the rows it is read from, whether more is better, and for both workloads
# what must be reached and what is near the limit. Where more is better the rows' ratio, which has
# the library above, is turned over.
GOALS = (
    ("BKDRHash / plain byte loop", ("hash/byte loop",), False, (0.65, 0.70), (0.40, 0.50)),
    ("lookup by full name / unordered_map", ("lookup/unordered_map",), False,
     (1.5, 2.2), (1.1, 1.4)),
    ("best store / lookup by full name", [f"lookup/{s}" for s in STORES], True, (7, 4), (11, 6.5)),
    ("best store / changed write by name", [f"write/{s}" for s in STORES], True,
     (3.5, 3.5), (5.5, 5)),
    ("whole load / bare expat", ("load/expat",), False, (1.9, 2.0), (1.6, 1.75)),
    ("libyang's parse / whole load", ("load/libyang",), True, (3.3, 2.2), (4.2, 2.7)),
    ("save into memory / pugixml's save", ("save/pugixml",), False, (0.5, 0.8), (0.25, 0.35)),
    ("build / unordered_map's inserts", ("build/unordered_map",), False, (1.3, 1.0), (0.65, 0.60)),
)
TEXT_GOAL = (1.0, 0.6)
MISSED = "MISSED"


def table(header, rows):
    """A Markdown table, its columns as wide as their widest cell."""
    cells = [header, *rows]
    widths = [max(len(str(row[i])) for row in cells) for i in range(len(header))]

    def line(row):
        return "| " + " | ".join(str(c).ljust(w) for c, w in zip(row, widths)) + " |"

    return [line(header), "|" + "|".join("-" * (w + 2) for w in widths) + "|", *map(line, rows)]


def number(value):
    """Three digits that mean something, and no exponent."""
    if value >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def reached(values, more, must, near):
    def all_reach(bounds):
        return all(v >= b if more else v <= b for v, b in zip(values, bounds))

    return "near the limit" if all_reach(near) else "met" if all_reach(must) else MISSED


def ratio_of(rows, names, more):
    """The ratio of the first row; of several stores that of the one that comes closest."""
    ratios = {name: rows[name]["library/reference"] for name in names}
    name = max(ratios, key=ratios.get)
    store = f" ({name.split('/')[1]})" if len(names) > 1 else ""
    return (1 / ratios[name] if more else ratios[name]), store


def goal_rows(results, text):
    lines = []
    for title, names, more, must, near in GOALS:
        found = [ratio_of(results[w], names, more) for w in WORKLOADS]
        sign = ">=" if more else "<="
        lines.append((title, *(number(value) + store for value, store in found),
                      f"{sign} {must[0]} / {must[1]}", f"{sign} {near[0]} / {near[1]}",
                      reached([value for value, _ in found], more, must, near)))
    share = text / TEXT_BOUND
    must, near = TEXT_GOAL
    lines.append((f"text of the stripped -Os library, {text:,} bytes / {TEXT_BOUND:,}",
                  number(share), "", f"<= {must}", f"<= {near}",
                  reached([share], False, [must], [near])))
    return lines


def by_name(paths):
    """The rows by name; of those measured several times, the one whose ratio is in the middle."""
    rows = {}
    for path in sorted(paths):
        for row in json.loads(path.read_text())["benchmarks"]:
            rows.setdefault(re.sub("/iterations.*", "", row["name"]), []).append(row)
    return {name: sorted(several, key=lambda row: row.get("library/reference", 0))[len(several) // 2]
            for name, several in rows.items()}


def all_rows(results):
    lines = []
    for workload in WORKLOADS:
        for name, row in results[workload].items():
            what, reference = name.split("/")
            lines.append((workload, what, reference, number(row["library"]),
                          number(row["reference"]), f"{row['library/reference']:.3f}"))
    return lines


def instance_rows(costs):
    operations = ("add", "delete the newest", "delete one in the middle", "delete the oldest",
                  "write by unique id")
    counts = sorted({int(name.split("/")[1]) for name in costs if name.startswith("add/")})
    return [(operation, *(number(costs[f"{operation}/{n}"]["ns"]) for n in counts))
            for operation in operations], counts


def tree_rows(costs):
    lines = []
    for name, row in costs.items():
        what, over = name.split("/")
        if over in WORKLOADS:
            whole = row["ns"] * row["items"] / 1e6
            lines.append((what, over, f"{row['items']:,.0f}", number(row["ns"]), number(whole)))
    return lines


def start_rows(folder):
    """What was stored, and the medians of each step: a line of a name, a tab and milliseconds."""
    steps = {}
    for path in folder.glob("startup.*"):
        stored, *lines = path.read_text().splitlines()
        for name, milliseconds in (line.split("\t") for line in lines if "\t" in line):
            steps.setdefault(name, []).append(float(milliseconds))
    return stored, [(name, number(statistics.median(values))) for name, values in steps.items()]


def fields(path):
    return [line.split() for line in path.read_text().splitlines()]


def heap_rows(folder):
    lines = []
    for path in sorted(folder.glob("*.heap"), reverse=True):
        for workload, parameters, nodes, size in fields(path):
            lines.append((path.stem, workload, parameters, nodes, f"{int(size):,}",
                          round(int(size) / int(parameters))))
    return lines


def instruction_rows(folder, parameters):
    lines = []
    for path in sorted(folder.glob("*.instructions"), reverse=True):
        counts = dict(fields(path))
        lines.append((path.stem, *(round(int(c) / parameters) for c in counts.values())))
    return lines


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def workload(rows):
    row = next(iter(rows.values()))
    return (f"{row['parameters']:.0f} parameters, {row['nodes']:.0f} nodes, "
            f"{row['document']:,.0f} bytes of document")


def machine(results):
    lscpu = {entry["field"]: entry["data"] for entry in json.loads(output("lscpu", "-J"))["lscpu"]}
    versions = output("dpkg-query", "-W", "-f", "${Package} ${Version}, ", *PACKAGES)
    caches = ", ".join(f"{field.split()[0]} {size}" for field, size in lscpu.items()
                       if field.endswith("cache:"))
    compiler = output("gcc", "--version").splitlines()[0]
    return [
        f"- {lscpu['Model name:']}, {lscpu['CPU(s):']} processors; {caches}",
        f"- Linux {output('uname', '-r').strip()}; {compiler}, Release (-O3)",
        f"- {versions.rstrip(', ')}",
        *(f"- {w}: {workload(results[w])}" for w in WORKLOADS),
    ]


def sections(folder, results, goals):
    costs = by_name([folder / "costs.json"])
    instances, counts = instance_rows(costs)
    stored, start = start_rows(folder)
    parameters = next(iter(results["W1"].values()))["parameters"]
    return {
        "machine": machine(results),
        "goals": table(("measured / reference", *WORKLOADS, "must", "near the limit", "reached"),
                       goals),
        "rows": table(("", "measured", "reference", "library, ns", "reference, ns",
                       "library / reference"), all_rows(results)),
        "instances": table(("ns, with n instances", *(f"n = {n}" for n in counts)), instances),
        "tree": table(("", "", "items", "ns an item", "ms in all"), tree_rows(costs)),
        "start": [stored + ":", "", *table(("step", "ms"), start)],
        "heap": table(("", "", "parameters", "nodes", "bytes", "bytes a parameter"),
                      heap_rows(folder)),
        "instructions": table(("W1, a parameter", "lookup", "load", "save", "build"),
                              instruction_rows(folder, parameters)),
    }


def write_doc(made):
    text = DOC.read_text()
    for name, lines in made.items():
        begin, end = f"<!-- {name}: written by bench/run --doc -->\n", f"<!-- end of {name} -->"
        pattern = re.escape(begin) + ".*?" + re.escape(end)
        body = begin + "\n" + "\n".join(lines) + "\n\n" + end
        text, found = re.subn(pattern, lambda _: body, text, flags=re.DOTALL)
        if found != 1:
            sys.exit(f"{DOC}: no place for the table '{name}'")
    DOC.write_text(text)


def write_chart(results):
    import pygal
    from pygal.style import Style

    style = Style(background="white", plot_background="white", foreground="#333",
                  foreground_strong="#000", foreground_subtle="#999",
                  colors=("#1f6fb4", "#d98324"), font_family="sans-serif")
    bars = [(f"{w} {name}", row) for w in reversed(WORKLOADS)
            for name, row in reversed(results[w].items())]
    chart = pygal.HorizontalBar(
        style=style, logarithmic=True, js=[], no_prefix=True,
        width=1000, height=24 * len(bars) + 120,
        title="Nanoseconds for each parameter (build: for each node); less is better",
        legend_at_bottom=True, spacing=4, truncate_label=-1, zero=0.5, range=(0.5, 10_000))
    chart.y_labels = [1, 10, 100, 1000, 10_000]
    chart.x_labels = [name for name, _ in bars]
    chart.add("the library", [round(row["library"], 2) for _, row in bars])
    chart.add("the reference", [round(row["reference"], 2) for _, row in bars])
    CHART.write_text(chart.render(is_unicode=True))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--doc", action="store_true")
    parser.add_argument("--try", dest="judge", action="store_false")
    parser.add_argument("folder", type=Path, help="where the results lie")
    options = parser.parse_args()
    named = by_name(options.folder.glob("compare.*.json"))
    results = {w: {name[3:]: row for name, row in named.items() if name.startswith(w)}
               for w in WORKLOADS}
    goals = goal_rows(results, int((options.folder / "text").read_text()))
    made = sections(options.folder, results, goals)
    for lines in made.values():
        print("\n".join(lines) + "\n")
    if options.doc:
        write_doc(made)
        write_chart(results)
    return 1 if options.judge and any(goal[-1] == MISSED for goal in goals) else 0


if __name__ == "__main__":
    sys.exit(main())
