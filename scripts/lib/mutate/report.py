"""What was found, in words: a report for each area, and the tables of docs/reliability.md."""

import collections
import json
import sys

from mutate import plant

EQUIVALENT = plant.ROOT / "tests" / "equivalentfaults.json"

# Of the faults drawn, one in so many may be listed as changing nothing.
MOST_EQUIVALENT = 10


def equivalents():
    """{(file, source line, change): reason}. Lines have no number, as numbers change."""
    return {(item["file"], item["source"], item["change"]): item["reason"]
            for item in json.loads(EQUIVALENT.read_text())}


def reason_of(entry, reasons):
    return reasons.get((entry["file"], entry["source"], entry["change"]))


def score(entries):
    """(caught, counted): faults that change nothing do not count, unless a test has found them after all."""
    counted = [entry for entry in entries if entry["tests"] or not entry["reason"]]
    return sum(1 for entry in counted if entry["tests"]), len(counted)


def percent(entries):
    caught, counted = score(entries)
    return f"{caught} of {counted}" + (f" ({100 * caught / counted:.0f} %)" if counted else "")


def by_file(entries):
    files = collections.defaultdict(list)
    for entry in entries:
        files[entry["file"]].append(entry)
    return dict(sorted(files.items()))


def outcome(entry):
    if entry["tests"] and entry["reason"]:
        return "CAUGHT, although it is listed as changing nothing"
    if entry["tests"]:
        return "caught"
    if entry["reason"]:
        return "changes nothing: " + entry["reason"]
    return "NOT caught" + ("" if entry["reached"] else ", as no test comes there")


def describe(entry):
    lines = [f"{entry['file']}:{entry['line']}: {entry['kind']}: {outcome(entry)}",
             f"    {entry['source']}", f"    {entry['change']}"]
    lines += [f"    by {test}, which {why}" if " " not in why or why.startswith(("takes", "writes"))
              else f"    by {test}: {why}" for test, why in entry["tests"][:5]]
    if len(entry["tests"]) > 5:
        lines.append(f"    and by {len(entry['tests']) - 5} more")
    lines += [f"    {test} failed, but then without the fault, too" for test in entry["flaky"]]
    lines += [f"    {test} failed once, and then no more with the same fault" for test in entry["once"]]
    return lines


def idle_tests(report):
    """Tests of the area that found nothing, and those that were never the only one to."""
    found = collections.Counter(test for entry in report["faults"] for test, _ in entry["tests"])
    alone = {entry["tests"][0][0] for entry in report["faults"] if len(entry["tests"]) == 1}
    nothing = [test for test in report["cases"] if not found[test]]
    return nothing, [test for test in report["cases"] if found[test] and test not in alone]


def check_equivalents(area, entries):
    listed = [entry for entry in entries if entry["reason"] and not entry["tests"]]
    if len(listed) * MOST_EQUIVALENT > len(entries):
        sys.exit(f"mutate: {len(listed)} of {len(entries)} faults of {area} are listed as changing nothing, "
                 f"more than one in {MOST_EQUIVALENT}")


def text(report):
    entries = report["faults"]
    lines = [f"{report['area']}: {percent(entries)} faults caught; seed {report['seed']}, {len(entries)} drawn", ""]
    lines += [f"  {percent(faults):>18}  {name}" for name, faults in by_file(entries).items()]
    for title, wanted in ("Not caught", False), ("Caught", True):
        lines += ["", title, ""]
        for entry in entries:
            if bool(entry["tests"]) == wanted:
                lines += describe(entry)
    for title, tests in zip(("Tests of the area that found no fault",
                             "Tests of the area that found faults, each of them together with other tests"),
                            idle_tests(report)):
        lines += ["", f"{title}: {len(tests)}", *("    " + test for test in tests)]
    return "\n".join(lines) + "\n"


def path_of(area, suffix):
    return plant.WORK / f"report-{area.replace('/', '-')}.{suffix}"


def write(report):
    path_of(report["area"], "json").write_text(json.dumps(report, indent=1))
    path_of(report["area"], "txt").write_text(text(report))


def stored():
    """The reports that are there, with what is listed as changing nothing today."""
    reports = []
    reasons = equivalents()
    for area in plant.AREAS:
        if path_of(area, "json").exists():
            report = json.loads(path_of(area, "json").read_text())
            for entry in report["faults"]:
                entry["reason"] = reason_of(entry, reasons)
            check_equivalents(area, report["faults"])
            write(report)
            reports.append(report)
    return reports


def cells(entries):
    caught, counted = score(entries)
    equivalent = len(entries) - counted
    unreached = sum(1 for entry in entries if not entry["tests"] and not entry["reason"] and not entry["reached"])
    share = f"{100 * caught / counted:.0f} %" if counted else ""
    return f"{len(entries)} | {equivalent} | {caught} | {counted - caught} | {unreached} | {share} |"


def markdown():
    """The tables of the scores."""
    head = "drawn | change nothing | caught | not caught | of these not reached | score |"
    rule = "---:|---:|---:|---:|---:|---:|"
    reports = stored()
    lines = [f"| area | seed | {head}", f"|---|---:|{rule}"]
    lines += [f"| `{report['area']}` | {report['seed']} | {cells(report['faults'])}" for report in reports]
    everything = [entry for report in reports for entry in report["faults"]]
    lines += [f"| all | | {cells(everything)}", "", f"| file | {head}", f"|---|{rule}"]
    lines += [f"| `{name}` | {cells(entries)}" for name, entries in by_file(everything).items()]
    return "\n".join(lines) + "\n"
