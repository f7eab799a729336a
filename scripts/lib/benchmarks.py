"""What the names and the results of Google Benchmark mean here; for the scripts in the folder above.

benchmarks.py SET PROGRAM FILTER prints a regular expression for the benchmarks of a set that match the filter. The sets
are `targets` (the groups of which benchmarks/targets.json speaks), `curves` (all others) and `smoke` (all, each at the
smallest of its sizes alone).

A benchmark is named group/subject, with arguments and settings behind that. The subject "tarvo" is ours, and so are
those that begin with it; all others are peers.
"""

import collections
import json
import pathlib
import statistics
import subprocess
import sys

OURS = "tarvo"
ROOT = pathlib.Path(__file__).resolve().parents[2]
TARGETS = ROOT / "benchmarks" / "targets.json"
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}

# Parts that Google Benchmark adds to a name to say how it measured.
SETTINGS = ("repeats:", "iterations:", "min_time:", "min_warmup_time:")
CLOCKS = ("real_time", "process_time", "manual_time")

# The row without its settings, so that a change of those leaves it comparable. `wall` says whether wall time counts.
Row = collections.namedtuple("Row", "group subject variant wall")
Times = collections.namedtuple("Times", "wall cpu")


def parse_name(name):
    parts = name.split("/")
    rest = [part for part in parts[2:] if not part.startswith(SETTINGS)]
    wall = "real_time" in rest or "manual_time" in rest
    variant = "/".join(part for part in rest if part not in CLOCKS)
    return Row(parts[0], parts[1] if len(parts) > 1 else "", variant, wall)


def title(row):
    """The name of the group, with the variant where there is one."""
    return f"{row.group}/{row.variant}" if row.variant else row.group


def counted(row, times):
    return times.wall if row.wall else times.cpu


def read_targets():
    return json.loads(TARGETS.read_text())


def list_names(program, pattern="."):
    """The full names of the benchmarks that match the regular expression."""
    command = [str(program), "--benchmark_list_tests", f"--benchmark_filter={pattern}"]
    result = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"{program} does not list its benchmarks")
    return [name for name in result.stdout.splitlines() if "/" in name]


def exactly(names):
    """A regular expression for these names alone."""
    escaped = ("".join("\\" + sign if sign in ".^$*+?()[]{}|\\" else sign for sign in name) for name in names)
    return "^(" + "|".join(escaped) + ")$"


def read_times(results):
    """{row: times}, the medians of the repetitions in nanoseconds, in the order of the program."""
    runs = {}
    for run in sorted(results["benchmarks"], key=lambda run: (run["family_index"], run["per_family_instance_index"])):
        if run.get("error_occurred"):
            sys.exit(f"{run['name']} failed: {run.get('error_message', 'no reason given')}")
        if run["run_type"] == "iteration":
            unit = NANOSECONDS[run["time_unit"]]
            times = Times(run["real_time"] * unit, run["cpu_time"] * unit)
            runs.setdefault(parse_name(run["run_name"]), []).append(times)
    return {row: Times(*map(statistics.median, zip(*times))) for row, times in runs.items()}


def print_table(rows, left, file=None):
    """The first row is the heading; `left` are the columns that are not figures."""
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    for row in rows:
        cells = (cell.ljust(width) if column in left else cell.rjust(width)
                 for column, (cell, width) in enumerate(zip(row, widths)))
        print("  ".join(cells).rstrip(), file=file)


def smallest(rows):
    """Of those that differ in nothing but a number, the one with the least."""
    least = {}
    for row in rows:
        size = int(row.variant) if row.variant.isdigit() else 0
        key = row.group, row.subject, row.variant if size == 0 else ""
        if key not in least or size < least[key][0]:
            least[key] = (size, row)
    return {row for _, row in least.values()}


def names_of_set(kind, program, pattern):
    rows = {name: parse_name(name) for name in list_names(program, pattern)}
    if kind == "smoke":
        kept = smallest(rows.values())
    else:
        groups = {key.partition("/")[0] for key in read_targets()}
        kept = {row for row in rows.values() if (row.group in groups) == (kind == "targets")}
    return [name for name, row in rows.items() if row in kept]


def main(arguments):
    if len(arguments) != 3 or arguments[0] not in ("targets", "curves", "smoke"):
        sys.exit(__doc__)
    names = names_of_set(*arguments)
    if not names:
        other = {"targets": "; scripts/bench --curves has those without a target",
                 "curves": "; scripts/bench has those with a target"}.get(arguments[0], "")
        sys.exit(f"no benchmark matches '{arguments[2]}'{other}")
    print(exactly(names))


if __name__ == "__main__":
    main(sys.argv[1:])
