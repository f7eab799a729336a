"""Whether the tests find a fault: those of its area first, all of them, then the others until one finds it."""

import concurrent.futures
import queue

from mutate import plant, suites

# A program that crashes or hangs is started again for the cases behind, so often.
RESTARTS = 3

# Cases that are run again without the fault.
MOST_CONFIRMED = 10

# Where so few cases find a fault, they have to find it twice, and get so many attempts.
FEW = 2
ATTEMPTS = 3


def cases_of_area(area, suite):
    if area == "examples/archive":
        return suite.cases if isinstance(suite, suites.ArchiveTests) else []
    folder = "tests/" + area + "/"
    return [case for case in suite.cases if (suite.files.get(case) or "").startswith(folder)]


class Judge:
    def __init__(self, jobs, leaks, say):
        self.suites = suites.all_suites()
        self.jobs = jobs
        self.say = say
        self.usual = {}
        self.reached = {}
        self.workers = queue.SimpleQueue()
        for number in range(jobs):
            self.workers.put(suites.Worker(number, leaks))

    # Without a fault.

    def check_without(self):
        """All tests, by every worker at the same time; false if one fails. Learns how long they take."""
        maps = {}
        for suite in self.suites:
            maps[suite.name] = plant.WORK / f"reached-{suite.name}"
            maps[suite.name].write_bytes(bytes(1 << 16))
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            fine = list(pool.map(lambda _: self.all_once(maps), range(self.jobs)))
        self.reached = {name: path.read_bytes() for name, path in maps.items()}
        return all(fine)

    def all_once(self, maps):
        worker = self.workers.get()
        try:
            return all([self.is_fine(worker, suite, maps[suite.name]) for suite in self.suites])
        finally:
            self.workers.put(worker)

    def is_fine(self, worker, suite, reached):
        """Whether the cases pass. A machine under load may let one fail; it has to pass when it is run again."""
        cases = suite.cases
        for _ in range(2):
            # Nothing is known of them so far.
            result = worker.run(suite, cases, {case: 60 for case in cases}, reached=reached)
            for case, seconds in result.durations.items():
                self.usual[case] = max(seconds, self.usual.get(case, 0))
            if not result.failures:
                return True
            for case, why in result.failures.items():
                self.say(f"without any fault, {case}: {why}\n{result.output}")
            cases = [case for case in suite.cases if case in result.failures or case in result.left] or cases
        return False

    # With one.

    def judge(self, fault):
        """What is known of the fault after its runs, as it is stored."""
        worker = self.workers.get()
        try:
            return Trial(self, worker, fault).go()
        finally:
            self.workers.put(worker)

    def judge_all(self, faults):
        """Their verdicts, as they come."""
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            jobs = [pool.submit(self.judge, fault) for fault in faults]
            try:
                for job in concurrent.futures.as_completed(jobs):
                    yield job.result()
            finally:
                for job in jobs:
                    job.cancel()


class Trial:
    """One fault and the tests."""

    def __init__(self, judge, worker, fault):
        self.judge = judge
        self.worker = worker
        self.fault = fault
        self.tests = []
        self.flaky = []
        self.once = []

    def go(self):
        rest = []
        for suite in self.judge.suites:
            own = cases_of_area(self.fault.area, suite)
            if own:
                self.try_cases(suite, own)
            other = [case for case in suite.cases if case not in own]
            if other:
                rest.append((suite, other))
        rest.sort(key=lambda item: (not isinstance(item[0], suites.GoogleTests),
                                    sum(self.judge.usual.get(case, 0) for case in item[1])))
        for suite, cases in rest:
            # A program that does not come to the place without the fault does not come to it with it either.
            if not self.tests and self.reaches(suite):
                self.try_cases(suite, cases)
        reached = any(self.reaches(suite) for suite in self.judge.suites)
        return {"number": self.fault.number, "tests": self.tests, "flaky": self.flaky, "once": self.once,
                "reached": reached}

    def reaches(self, suite):
        return self.judge.reached[suite.name][self.fault.number] != 0

    def run(self, suite, cases, with_fault=True):
        return self.worker.run(suite, cases, self.judge.usual, self.fault.number if with_fault else 0)

    def failures(self, suite, cases):
        """Of all the cases, as far as the restarts go."""
        failures = {}
        for _ in range(1 + RESTARTS):
            result = self.run(suite, cases)
            failures |= result.failures
            if not result.left or not result.failures:
                break
            cases = result.left
        return failures

    def try_cases(self, suite, cases):
        failures = self.failures(suite, cases)
        if not failures:
            return
        again = [case for case in failures if case in suite.cases][:MOST_CONFIRMED] or cases
        flaky = self.run(suite, again, with_fault=False).failures
        self.flaky += sorted(flaky)
        found = {case: why for case, why in failures.items() if case not in flaky}
        if 0 < len(found) <= FEW and not self.is_repeated(suite, again):
            self.once += sorted(found)
            return
        self.tests += [[case if case in suite.cases else f"{suite.name} {case}", why] for case, why in found.items()]

    def is_repeated(self, suite, cases):
        return any(self.run(suite, cases).failures for _ in range(ATTEMPTS))
