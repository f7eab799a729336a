"""The tests of a build with planted faults, and how one run of them goes.

A suite is a program that runs one or more tests, its cases, of which it says as it runs how each one goes. It can be
told which to run.
"""

import collections
import json
import os
import pathlib
import re
import resource
import selectors
import shutil
import signal
import subprocess
import threading
import time

from mutate import plant

# A case may take this many times as long as without a fault, and some seconds more.
PATIENCE = 5
GRACE = 10

MOST_OUTPUT = 8 << 20
MOST_MEMORY = 4 << 30
MOST_ON_DISK = 2 << 30

# What a run of some cases gave: why each one that failed did, how long each took, which were left when it broke off,
# and the last that was printed.
Result = collections.namedtuple("Result", "failures durations left output")

# Set when the script is to end: every program is then ended as well.
ending = threading.Event()

# The program's own end, where leaks are looked for, is no case that has a name.
AT_THE_END = "at its end"


def below_watch(command):
    """The command that tests/support/watch.py is given: here the judge sets the limits."""
    places = [place for place, word in enumerate(command) if word.endswith("/support/watch.py")]
    command = command[places[0] + 1:] if places else command
    return command[2:] if command[0] == "--processor" else command


class Suite:
    """A program with one case, itself."""

    def __init__(self, entry):
        properties = {item["name"]: item["value"] for item in entry.get("properties", [])}
        self.name = entry["name"]
        self.command = below_watch(entry["command"])
        self.folder = properties["WORKING_DIRECTORY"]
        self.environment = dict(pair.split("=", 1) for pair in properties.get("ENVIRONMENT", []))
        self.cases = [self.name]
        self.files = {}

    def with_cases(self, cases):
        return self.command

    def read(self, line, cases):
        """What a line of output says: nothing, ("begin", case), ("good", case) or ("bad", case, why)."""
        return None

    def ended(self, code, cases):
        """The case that a failing end belongs to when none is running."""
        return self.name

    def first(self, cases):
        return self.name


class GoogleTests(Suite):
    def __init__(self, entry):
        super().__init__(entry)
        self.command = [word for word in self.command if not word.startswith("--gtest_output")]
        listing = plant.WORK / "tests.json"
        plant.must([*self.command, "--gtest_list_tests", f"--gtest_output=json:{listing}"])
        self.cases = []
        for suite in json.loads(listing.read_text())["testsuites"]:
            for case in suite["testsuite"]:
                name = f"{suite['name']}.{case['name']}"
                if "DISABLED_" in name:
                    continue
                self.cases.append(name)
                self.files[name] = plant.sites.relative(plant.TREE, os.path.join(plant.BUILD, case["file"]))

    def with_cases(self, cases):
        return [*self.command, "--gtest_filter=" + ":".join(cases)]

    def read(self, line, cases):
        # What a test prints may stand before it.
        found = re.search(r"\[ +(RUN|OK|FAILED|SKIPPED) +\] ([\w/.]+)", line)
        if not found or found[2] not in cases:
            return None
        if found[1] == "RUN":
            return "begin", found[2]
        return ("bad", found[2], "fails") if found[1] == "FAILED" else ("good", found[2])

    def ended(self, code, cases):
        return AT_THE_END

    def first(self, cases):
        return None


class ArchiveTests(Suite):
    """A script that says of each test that it went well, in their order, and ends with the first that fails."""

    def __init__(self, entry):
        super().__init__(entry)
        script = pathlib.Path(self.command[1]).read_text()
        self.cases = re.findall(r"^def ((?:linux_)?test_\w+)\(\)", script, re.MULTILINE)

    def with_cases(self, cases):
        return [*self.command[:2], "--only", ",".join(cases), *self.command[2:]]

    def read(self, line, cases):
        found = re.match(r"(\w+): [\d.]+ s$", line)
        return ("good", found[1]) if found and found[1] in cases else None

    def first(self, cases):
        return cases[0]


def all_suites():
    listed = plant.run(["ctest", "--test-dir", str(plant.BUILD), "--show-only=json-v1"])
    suites = []
    for entry in json.loads(listed.stdout[listed.stdout.index("{"):])["tests"]:
        kind = {"tarvo_tests": GoogleTests, "tarvo_archive": ArchiveTests}.get(entry["name"], Suite)
        suites.append(kind(entry))
        if entry["name"] == "tarvo_stress":
            suites[-1].command = [*suites[-1].command, "5"]  # seconds
    return suites


class Worker:
    """A copy of the programs, so that runs at the same time share no folder, and an environment."""

    def __init__(self, number, leaks):
        self.bin = plant.WORK / f"worker{number}" / "bin"
        self.temporary = plant.WORK / f"worker{number}" / "tmp"
        shutil.rmtree(self.bin, ignore_errors=True)
        shutil.copytree(plant.BUILD / "bin", self.bin, symlinks=True)
        self.environment = {name: value for name, value in os.environ.items() if not name.startswith("TARVO_")}
        self.environment |= {
            "ASAN_OPTIONS": f"detect_leaks={int(leaks)}:allocator_may_return_null=1",
            "UBSAN_OPTIONS": "print_stacktrace=0", "TMPDIR": str(self.temporary)}

    def here(self, text):
        return text.replace(str(plant.BUILD / "bin"), str(self.bin))

    def start(self, suite, cases, fault, reached):
        shutil.rmtree(self.temporary, ignore_errors=True)
        self.temporary.mkdir(parents=True)
        environment = self.environment | suite.environment
        if fault:
            environment["TARVO_FAULT"] = str(fault)
        if reached:
            environment["TARVO_FAULT_REACHED"] = str(reached)
        return subprocess.Popen([self.here(word) for word in suite.with_cases(cases)], cwd=self.here(suite.folder),
                                env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, start_new_session=True, preexec_fn=without_core_files)

    def run(self, suite, cases, usual, fault=0, reached=None):
        """One run; `usual` says how long a case takes."""
        run = Run(self.start(suite, cases, fault, reached), self.temporary, suite, cases, usual)
        try:
            return run.follow()
        finally:
            run.end()
            shutil.rmtree(self.temporary, ignore_errors=True)


def without_core_files():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def memory_of_group(group):
    """Bytes that the processes of the group have in memory."""
    pages = 0
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            fields = (folder / "stat").read_text().rpartition(")")[2].split()
            pages += int(fields[21]) if int(fields[2]) == group else 0
        except (OSError, IndexError):
            continue
    return pages * resource.getpagesize()


def taken_on_disk(folder):
    """Bytes; a file with holes takes less than it is long."""
    blocks = 0
    for parent, _, names in os.walk(folder):
        for name in names:
            try:
                blocks += os.lstat(os.path.join(parent, name)).st_blocks
            except OSError:
                continue
    return 512 * blocks


class Run:
    """What a started program says and takes."""

    def __init__(self, process, folder, suite, cases, usual):
        self.process = process
        self.folder = folder
        self.suite = suite
        self.cases = cases
        self.usual = usual
        self.current = suite.first(cases)
        self.began = time.monotonic()
        self.done = []
        self.failures = {}
        self.durations = {}
        self.size = 0
        self.last = b""
        self.rest = b""

    def end(self):
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.stdout.close()
        self.process.wait()

    def follow(self):
        stopped = self.collect()
        if stopped is None:
            code = self.process.wait()
            if code != 0 and not (self.current is None and self.failures):
                why = f"signal {signal.Signals(-code).name}" if code < 0 else f"exit code {code}"
                self.finish(self.current or self.suite.ended(code, self.cases), why)
            elif code == 0 and self.current is not None and self.current not in self.done:
                self.finish(self.current, None)
        else:
            self.finish(self.current or self.suite.ended(None, self.cases), stopped)
        left = [case for case in self.cases if case not in self.done]
        return Result(self.failures, self.durations, left, self.last.decode(errors="replace"))

    def collect(self):
        """Reads until the output ends; why the program has to be stopped, or None."""
        selector = selectors.DefaultSelector()
        selector.register(self.process.stdout, selectors.EVENT_READ)
        looked = time.monotonic()
        before = looked
        while True:
            if selector.select(0.5):
                data = os.read(self.process.stdout.fileno(), 1 << 16)
                if not data:
                    return None
                self.take(data)
            elif self.process.poll() is not None:
                return None  # a child of it still has the pipe
            if ending.is_set():
                raise KeyboardInterrupt
            now = time.monotonic()
            # Whoever stops the script for a while stops the programs, too.
            self.began += max(0, now - before - 5)
            before = now
            usual = self.usual.get(self.current, 0) if self.current else 0
            if now - self.began > PATIENCE * usual + GRACE:
                return "takes too long"
            if self.size > MOST_OUTPUT:
                return "writes too much"
            if now - looked > 0.5:
                looked = now
                if memory_of_group(self.process.pid) > MOST_MEMORY:
                    return "takes too much memory"
                if taken_on_disk(self.folder) > MOST_ON_DISK:
                    return "takes too much of the disk"

    def take(self, data):
        self.size += len(data)
        self.last = (self.last + data)[-4000:]
        *lines, self.rest = (self.rest + data).split(b"\n")
        for line in lines:
            said = self.suite.read(line.decode(errors="replace"), self.cases)
            if not said:
                continue
            if said[0] == "begin":
                self.current = said[1]
                self.began = time.monotonic()
            elif said[1] not in self.done:
                self.finish(said[1], said[2] if said[0] == "bad" else None)

    def finish(self, case, why):
        now = time.monotonic()
        self.durations[case] = now - self.began
        self.began = now
        self.done.append(case)
        if why:
            self.failures[case] = why
        following = [other for other in self.cases if other not in self.done]
        self.current = self.suite.first(following) if following else None
