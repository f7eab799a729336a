"""Compares what `tarvo-info` prints with what Python knows of the machine: info.py HEADER PROGRAM [ARGUMENT...]

HEADER is the one that states the version."""

import json
import os
import pathlib
import re
import socket
import subprocess
import sys

version_header, *program = sys.argv[1:]
is_windows = program[-1].endswith(".exe")


def run(*arguments, expected=0, output=subprocess.PIPE):
    """What the program wrote, to its output and as messages."""
    found = subprocess.run([*program, *arguments], stdout=output, stderr=subprocess.PIPE)
    errors = found.stderr.decode("utf-8", "replace")
    assert found.returncode == expected, f"{arguments}: exit code {found.returncode}\n{errors}"
    return (found.stdout or b"").decode("utf-8").replace("\r\n", "\n"), errors


def version():
    text = pathlib.Path(version_header).read_text(encoding="utf-8")
    return ".".join(re.search(rf"TARVO_VERSION_{part} (\d+)", text)[1] for part in ("MAJOR", "MINOR", "PATCH"))


def text_of(value):
    """A value of the JSON form as the text form has it."""
    if value is None:
        return "unknown"
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, list):
        return ", ".join(value) or "none"
    return str(value)


def values_of(report):
    """The values of a JSON report in their order, as text."""
    for section in report.values():
        for thing in section if isinstance(section, list) else [section]:
            yield from map(text_of, thing.values())


def check_machine(machine):
    name = socket.gethostname()
    if is_windows:
        assert machine["name"].lower() == name[:15].lower(), machine["name"]
        processors = os.cpu_count()
    else:
        assert machine["name"] == name, machine["name"]
        processors = len(os.sched_getaffinity(0))
        memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
        assert machine["physicalMemory"] == memory, (machine["physicalMemory"], memory)
    assert machine["processors"] == processors, (machine["processors"], processors)
    assert machine["operatingSystem"].endswith(" 64-Bit"), machine["operatingSystem"]
    assert machine["virtualMemory"] > 2**40, machine["virtualMemory"]


def check_types(types):
    by_name = {record["name"]: record for record in types}
    assert len(by_name) == len(types)
    for name, bases, can_be_made in [
        ("CkException", [], False),
        ("CkExceptionStream", ["CkException"], False),
        ("CkISerializable", [], False),
        ("CkLong", ["CkBaseType"], True),
        ("CkString", ["CkBaseType"], True),
    ]:
        expected = {"name": name, "isRegistered": True, "bases": bases, "canBeMade": can_be_made}
        assert by_name[name] == expected, by_name[name]
    for record in types:
        assert record["isRegistered"], record
        assert all(base in by_name for base in record["bases"]), record


def check_singletons(singletons):
    by_name = {record["name"]: record for record in singletons}
    assert set(by_name) == {
        "CkPerformanceCounter",
        "CkLogListenerManager",
        "CkThreadPool",
        "CkDiagnosticsInterface",
    }
    assert by_name["CkPerformanceCounter"]["ticksPerSecond"] >= 1000
    # Nothing here has asked for tasks, and who only looks makes none.
    assert by_name["CkThreadPool"]["exists"] is False


def check_both_forms():
    """Both forms say the same, but for the speed, which is measured each time."""
    text, errors = run()
    assert errors == "", errors
    report = json.loads(run("--json")[0])
    assert list(report) == ["library", "machine", "types", "singletons"]
    assert report["library"]["version"] == version()
    check_machine(report["machine"])
    check_types(report["types"])
    check_singletons(report["singletons"])

    lines = [line for line in text.splitlines() if line.startswith(" ")]
    shown = [re.split(r" {2,}", line.strip(), maxsplit=1) for line in lines]
    in_json = list(values_of(report))
    assert len(shown) == len(in_json), (len(shown), len(in_json))
    for (label, value), expected in zip(shown, in_json):
        if label == "speed in MHz":
            assert (value == "unknown") == (expected == "unknown"), (value, expected)
            assert value == "unknown" or 100 < int(value) < 20000, value
        else:
            assert value == expected, (label, value, expected)


def check_named_types():
    """Names that JSON must escape come back as they were given."""
    names = ["CkInt16", "None", "", 'quote " and \\ and \x7f']
    if not is_windows:
        names += ["line\nfeed\ttab\x01", "Grüße \U0001F600", "\x1b[31m"]
    plain = json.loads(run("--json")[0])["types"]
    arguments = [argument for name in names for argument in ("--type", name)]
    added = json.loads(run("--json", *arguments)[0])["types"][len(plain) :]
    assert [record["name"] for record in added] == names, added
    assert [record["isRegistered"] for record in added] == [True] + [False] * (len(names) - 1), added


def check_arguments():
    text, _ = run("--help")
    assert text.startswith("Usage: tarvo-info") and all(word in text for word in ("--json", "--type", "--version"))
    assert max(map(len, text.splitlines())) <= 80, text
    assert run("--json", "--help")[0] == text
    assert run("--version")[0] == f"tarvo-info {version()}\n"
    for arguments, message in [(["--xml"], "unknown argument '--xml'"), (["--type"], "--type needs a name")]:
        output, errors = run(*arguments, expected=2)
        assert output == "" and message in errors, (arguments, output, errors)


def check_full_disk():
    with open("/dev/full", "wb") as full:
        _, errors = run("--json", expected=1, output=full)
    assert "the output cannot be written" in errors, errors


check_both_forms()
check_named_types()
check_arguments()
if not is_windows:
    check_full_disk()
