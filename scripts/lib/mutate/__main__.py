"""Plants faults in the sources, one at a time, and says which of them the tests find.

The faults are drawn from the seed and all of them built at once, each behind a switch, in a copy of the tree: the
sources stay as they are. Then the tests run for each of them. Everything lies in build/mutate: the reports, and after
an interruption what is known so far.
"""

import argparse
import json
import random
import signal
import sys
import time

from mutate import judge, plant, report, selftest, suites

STATE = plant.WORK / "state.json"
VERDICTS = plant.WORK / "verdicts.jsonl"


def say(message):
    print(f"[{time.strftime('%H:%M:%S')}] {message}", flush=True)


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("areas", metavar="AREA", nargs="*", help=f"any of {', '.join(plant.AREAS)}; all without one")
    parser.add_argument("--seed", type=int, help="which faults are drawn; random and printed by default")
    parser.add_argument("--count", type=int, default=60, help="faults for each area, 60 by default")
    parser.add_argument("--jobs", type=int, default=3, help="faults that are tested at the same time, 3 by default: "
                        "many tests wait; the compiler runs in as many processes, but for one")
    parser.add_argument("--list", action="store_true", help="shows what would be drawn, and builds nothing")
    parser.add_argument("--resume", action="store_true", help="goes on where the last run was interrupted")
    parser.add_argument("--self-test", action="store_true", help="tries the planter on a small program, in seconds")
    parser.add_argument("--markdown", action="store_true", help="prints the tables of docs/reliability.md from the "
                        "reports that are there, and brings the reports up to date with tests/equivalentfaults.json")
    options = parser.parse_args()
    if unknown := set(options.areas) - set(plant.AREAS):
        parser.error(f"there is no area {', '.join(sorted(unknown))}; there are {', '.join(plant.AREAS)}")
    return options


def as_entry(fault):
    site = fault.site
    return {"number": fault.number, "area": fault.area, "file": site.file, "line": site.line, "kind": site.kind,
            "source": site.source, "change": site.change}


def leaks_are_found():
    """The leak check traces its own process, which a container may forbid."""
    source = plant.WORK / "probe.cpp"
    source.write_text("int main() { return 0; }\n")
    plant.must(["g++", "-fsanitize=address", source, "-o", plant.WORK / "probe"])
    return plant.run(["env", "ASAN_OPTIONS=detect_leaks=1", plant.WORK / "probe"]).returncode == 0


def show_list(drawn, count):
    for area, found in drawn.items():
        for site in found[:count]:
            print(f"{site.file}:{site.line}: {site.kind}: {site.change}")


def begin(options):
    """A new run: its faults are built and noted."""
    seed = options.seed if options.seed is not None else random.SystemRandom().randrange(1, 10**6)
    areas = options.areas or list(plant.AREAS)
    say(f"seed {seed}")
    planted = plant.plant(areas, options.count, seed, max(1, options.jobs - 1), say)
    state = {"seed": seed, "areas": areas, "faults": [as_entry(fault) for area in areas for fault in planted[area]]}
    STATE.write_text(json.dumps(state, indent=1))
    VERDICTS.write_text("")
    return state


def read_verdicts():
    return {verdict["number"]: verdict for verdict in map(json.loads, VERDICTS.read_text().splitlines())}


class Task:
    """A fault as its trial needs it."""

    def __init__(self, entry):
        self.number = entry["number"]
        self.area = entry["area"]


def finish(area, state, verdicts, bench):
    reasons = report.equivalents()
    entries = [{**entry, **verdicts[entry["number"]], "reason": report.reason_of(entry, reasons)}
               for entry in state["faults"] if entry["area"] == area]
    cases = [case for suite in bench.suites for case in judge.cases_of_area(area, suite)]
    result = {"area": area, "seed": state["seed"], "cases": cases, "faults": entries}
    report.write(result)
    print(report.text(result))
    report.check_equivalents(area, entries)


def test(state, jobs):
    bench = judge.Judge(jobs, leaks_are_found(), say)
    say("all tests run without a fault")
    if not bench.check_without():
        sys.exit("mutate: tests fail without any fault; nothing can be said of the faults")
    verdicts = read_verdicts()
    with VERDICTS.open("a") as log:
        for area in state["areas"]:
            open_ones = [Task(entry) for entry in state["faults"]
                         if entry["area"] == area and entry["number"] not in verdicts]
            say(f"{area}: {len(open_ones)} faults are tried; '!' is one that no test finds")
            for verdict in bench.judge_all(open_ones):
                verdicts[verdict["number"]] = verdict
                log.write(json.dumps(verdict) + "\n")
                log.flush()
                print("." if verdict["tests"] else "!", end="", flush=True)
            print()
            finish(area, state, verdicts, bench)
    say("done")


def end(*_):
    suites.ending.set()
    raise KeyboardInterrupt


def main():
    signal.signal(signal.SIGINT, end)
    signal.signal(signal.SIGTERM, end)
    options = arguments()
    if options.markdown:
        print(report.markdown(), end="")
    elif options.self_test:
        selftest.main()
    elif options.list:
        seed = options.seed if options.seed is not None else random.SystemRandom().randrange(1, 10**6)
        show_list(plant.plant(options.areas or list(plant.AREAS), 0, seed, options.jobs, say), options.count)
    elif options.resume:
        if not STATE.exists():
            sys.exit("mutate: there is no run to go on with")
        test(json.loads(STATE.read_text()), options.jobs)
    else:
        test(begin(options), options.jobs)


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit("mutate: interrupted; scripts/mutate --resume goes on once the faults are built")
