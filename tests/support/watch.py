"""Runs a command and ends it when it makes no progress: watch.py COMMAND [ARGUMENT...]

A command makes no progress when none of its processes has used the processor for half a minute, or when one of them has
used twenty seconds of it and neither read nor written anything nor started or ended a thread. A loaded machine makes
neither happen sooner. Before the command is ended, each of its threads is shown with the file that its code comes from.

What Wine itself has to say of Windows programs is kept apart from their output, and shown when the command fails; see
scripts/run-wine.
"""

import contextlib
import ctypes
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

IDLE_SECONDS = 30
SPINNING_SECONDS = 20  # of processor time
ENDING_SECONDS = 8  # the same where a program should have ended at once
SKIPPED = 77
NO_PROGRESS = 124  # as of timeout(1)

SET_CHILD_SUBREAPER = 36  # prctl(2)
PEEK_USER, CONTINUE, DETACH, SEIZE, INTERRUPT = 3, 7, 17, 0x4206, 0x4207  # ptrace(2)
ALL_KINDS_OF_CHILDREN = 0x40000000  # waitpid(2)
INSTRUCTION_POINTER = 16 * 8  # in struct user of x86-64
TICKS = os.sysconf("SC_CLK_TCK")

LIBC = ctypes.CDLL(None, use_errno=True)
LIBC.ptrace.restype = ctypes.c_long
LIBC.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]


class NoProgress(Exception):
    """`files` are those that the code of the busiest thread came from when it was looked at, many times over."""

    def __init__(self, text, files):
        super().__init__(text)
        self.files = files


def status(path):
    """The parent and the processor time of a process or thread that is described there."""
    fields = (path / "stat").read_bytes().rpartition(b")")[2].split()
    if fields[0] in b"ZX":
        raise ProcessLookupError("has ended")
    return int(fields[1]), (int(fields[11]) + int(fields[12])) / TICKS


def processes_of(root):
    """The processor time of a process and of all below it that run, by their numbers."""
    found = {}
    for path in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            found[int(path.name)] = status(path)
    family = {root} & found.keys()
    while more := {number for number, (parent, _) in found.items() if parent in family} - family:
        family |= more
    return {number: found[number][1] for number in family}


def trace(request, thread, address=0, data=0):
    ctypes.set_errno(0)
    result = LIBC.ptrace(request, thread, address, data)
    if ctypes.get_errno() != 0:
        raise OSError(ctypes.get_errno(), "ptrace")
    return result


def stop(thread):
    trace(INTERRUPT, thread)
    for _ in range(1000):
        if os.waitpid(thread, ALL_KINDS_OF_CHILDREN | os.WNOHANG)[0] == thread:
            return
        time.sleep(0.001)
    raise OSError("the thread does not stop")


def file_at(process, address):
    for line in pathlib.Path(f"/proc/{process}/maps").read_text(errors="replace").splitlines():
        begin, end = (int(limit, 16) for limit in line.split()[0].split("-"))
        if begin <= address < end:
            return line.split(maxsplit=5)[5:] or ["memory without a file"]
    return ["no memory"]


def files_of(process, thread, looks):
    """The files that the thread's code comes from; none where the system does not let it be traced."""
    files = set()
    with contextlib.suppress(OSError):
        trace(SEIZE, thread)
        try:
            for _ in range(looks):
                stop(thread)
                files.update(file_at(process, trace(PEEK_USER, thread, INSTRUCTION_POINTER) & (1 << 64) - 1))
                trace(CONTINUE, thread)
                time.sleep(0.01)
        finally:
            with contextlib.suppress(OSError):
                stop(thread)
                trace(DETACH, thread)
    return files


def describe(root):
    """A line for each process and thread, and the files of the busiest thread."""
    lines, busiest = [], (-1, None, None)
    for process in sorted(processes_of(root)):
        with contextlib.suppress(OSError):
            command = pathlib.Path(f"/proc/{process}/cmdline").read_text(errors="replace")
            lines.append(f"process {process}: {' '.join(command.replace(chr(0), ' ').split())[:200]}")
            for thread in sorted(int(path.name) for path in pathlib.Path(f"/proc/{process}/task").iterdir()):
                _, seconds = status(pathlib.Path(f"/proc/{process}/task/{thread}"))
                files = files_of(process, thread, 1)
                lines.append(f"    thread {thread}: {seconds:.2f} s, in {', '.join(files) or 'an unknown file'}")
                busiest = max(busiest, (seconds, process, thread))
    files = files_of(*busiest[1:], 50) if busiest[1] else set()
    lines.append(f"thread {busiest[2]} was seen in {', '.join(sorted(files)) or 'an unknown file'}")
    return "\n".join(lines), files


def end(root):
    """Ends a process that is a child of this one, and all below it."""
    while family := processes_of(root).keys() - {root}:
        for process in family:
            with contextlib.suppress(OSError):
                os.kill(process, signal.SIGKILL)
        time.sleep(0.01)


def work_of(process):
    """What changes when a process does more than to compute: its threads, and how often it has read and written."""
    with contextlib.suppress(OSError):
        counts = re.findall(r"^sysc[rw]: (\d+)$", pathlib.Path(f"/proc/{process}/io").read_text(), re.MULTILINE)
        return sorted(os.listdir(f"/proc/{process}/task")), counts
    return None


class Progress:
    """What the processes of a command were seen to do."""

    def __init__(self, root, limit):
        self.root = root
        self.limit = limit
        self.times = {}
        self.idle = 0  # looks without a change
        self.work = {}  # what each process was seen to do last, and its processor time then

    def look(self):
        """Why there is no progress; None where there is some."""
        before, self.times = self.times, processes_of(self.root)
        self.idle = 0 if self.times != before else self.idle + 1
        if self.idle >= IDLE_SECONDS:
            return f"No process has used the processor for {IDLE_SECONDS} s"
        for process, seconds in self.times.items():
            work = work_of(process)
            if process not in self.work or self.work[process][0] != work:
                self.work[process] = work, seconds
            elif seconds - self.work[process][1] > self.limit:
                return f"Process {process} has used {self.limit} s of the processor for nothing that can be seen"
        return None


def run(command, limit=SPINNING_SECONDS, **options):
    """Runs a command and returns its exit code; raises NoProgress when it makes none."""
    # What loses its parent becomes a child of this process, and can be found.
    LIBC.prctl(SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    started = subprocess.Popen(command, **options)
    progress = Progress(started.pid, limit)
    while True:
        # Seconds are counted here, not by a clock, which goes on while the whole machine stands still.
        with contextlib.suppress(subprocess.TimeoutExpired):
            return started.wait(timeout=1)
        if why := progress.look():
            text, files = describe(started.pid)
            started.kill()
            end(os.getpid())
            started.wait()
            raise NoProgress(f"{why}: {' '.join(command)}\n{text}", files)


def run_to_end(command, code):
    """Runs a program that has to end with this exit code while its threads still run.

    Where it runs through Wine, one case is not the program's: Wine ends the other threads wherever they are, one of
    them now and then within Wine's heap, and then goes without its lock through what that thread was changing.
    """
    for attempts_left in 2, 1, 0:
        try:
            found = run(command, ENDING_SECONDS)
            assert found == code, f"exit code {found}, not {code}"
            return
        except NoProgress as stuck:
            is_heap = len(stuck.files) == 1 and min(stuck.files).endswith("/x86_64-windows/ntdll.dll")
            if not is_heap or attempts_left == 0:
                raise
            print(f"{stuck}\nThat is the heap of Wine; once more", flush=True)


def run_showing_errors(command):
    """The exit code; what Wine had to say is shown unless it is 0."""
    with tempfile.TemporaryDirectory() as folder:
        errors = pathlib.Path(folder) / "wine"
        try:
            code = run(command, env=dict(os.environ, TARVO_WINE_ERRORS=str(errors)))
        except NoProgress as stuck:
            print(stuck, file=sys.stderr)
            code = NO_PROGRESS
        # What sorts the errors out may end a moment later than the program.
        deadline = time.monotonic() + 5
        while processes_of(os.getpid()).keys() - {os.getpid()} and time.monotonic() < deadline:
            time.sleep(0.01)
        said = errors.read_text(errors="replace") if errors.exists() else ""
        if code not in (0, SKIPPED) and said:
            print(f"Wine's errors:\n{said}", file=sys.stderr)
    return code


def main(command):
    code = run_showing_errors(command)
    sys.exit(code if code >= 0 else 128 - code)


if __name__ == "__main__":
    main(sys.argv[1:])
