"""Lets gdb show the objects of the program `views` with the printers, and compares: views.py SCRIPT NATVIS PROGRAM

In what is expected, {at} stands for an address, {n} for a number that no test knows, {own} and {other} for the ids of
the program's threads.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
import natvis  # noqa: E402

MARK = "@@@"
SKIPPED = 77  # what ctest takes for a test that cannot run here

TEXTS = [
    ("texts.empty", 'u""'),
    ("texts.shortText", 'u"Grüße"'),
    ("texts.longText", 'u"longer than what lies in the object"'),
    ("texts.withZero", r'u"a\000b"'),
    ("makeText(0)", '""'),
    ("makeText(7)", '"xxxxxxx"'),
    ("makeText(9)", 'u"xxxxxxxxx"'),
    ("texts.quoted", r'u"\"\n😀"'),
]

POINTERS = [
    ("pointers.empty", "CkSmartPointer, empty"),
    ("pointers.shared", "CkSmartPointer to (anonymous namespace)::FurtherLink, 2 references = {Get() = {at}}"),
    ("pointers.number", "CkSmartPointer to CkInt32, 2 references = {* = 7}"),
    ("pointers.base", "CkSmartPointer to CkInt32, 2 references = {* = 7}"),
    ("pointers.never", "CkWeakPointer, empty"),
    ("pointers.alive", "CkWeakPointer to (anonymous namespace)::FurtherLink, 2 references = {Get() = {at}}"),
    ("pointers.expired", "CkWeakPointer, expired or reset"),
]

ARRAYS = [
    ("arrays.empty", "CkArray of 0 elements, room for 0"),
    ("arrays.numbers", "CkArray of 5 elements, room for 8 = {10, 11, 12, 13, 14}"),
    (
        "arrays.managed",
        "CkArrayManaged of 2 elements, room for 2 = "
        "{CkSmartPointer, empty, CkSmartPointer to CkInt32, 1 reference = {* = 2}}",
    ),
]

LISTS = [
    ("lists.empty", "CkList of 0 elements"),
    ("lists.words", 'CkList of 3 elements = {u"one", u"two", u"three"}'),
    ("lists.single", "CkList of 3 elements = {1, 2, 3}"),
    ("lists.uncounted", "CkList, not counted = {1, 2, 3}"),
    ("lists.endless", "CkList, not counted = {1, 2, 3, <corrupt: node {at} follows itself>}"),
    ("lists.broken", "CkList, not counted = {1, 2, <cannot be read: Cannot access memory at address 0x10>}"),
]

MAPS = [
    ("maps.empty", "CkMap of 0 entries"),
    ("maps.ages", 'CkMap of 2 entries = {[u"Ada"] = 36, [u"Karl"] = 77}'),
    ("maps.odd", "CkSet of 2 elements = {1, 48}"),
    ("maps.none", "CkSet of 0 elements"),
]

EVENTS = [
    ("events.manual", "CkEvent {at}, manual reset, not set"),
    ("events.manualSet", "CkEvent {at}, manual reset, set"),
    ("events.autoReset", "CkEvent {at}, auto-reset, not set"),
    ("events.autoSet", "CkEvent {at}, auto-reset, set"),
    ("events.copy", "CkEvent {at}, manual reset, set"),
    ("events.closed.object", "CkEvent {at}, not an open handle"),
    ("events.autoSet", "CkEvent {at}, auto-reset, set"),  # looking has not reset it
    ("mayEnd", r"CkEvent {at}, manual reset, not set, waited for|CkEvent {at}, manual reset, not set"),
]

PLAIN = r"CkException at app\main, line 10, thread {own}"
CAUSED = r"CkExceptionStream at app\main, line 20, thread {own}, caused by " + PLAIN
FILE_ERROR = r"(anonymous namespace)::FileError at app\files, line 40, thread {own}, caused by " + CAUSED
EXCEPTIONS = [
    ("exceptions.plain", PLAIN),
    ("exceptions.caused", CAUSED),
    (
        "exceptions.standard",
        r"CkExceptionCondition at app\main, line 30, thread {own}, caused by "
        r"CkException at app\naïve, line 1, thread {own}, caused by "
        r"CkException at std::exception (why), line 0, thread {own}",
    ),
    ("exceptions.own", FILE_ERROR + ' = {level = 3, m_name = u"a.txt"}'),
    ("exceptions.ofOwn", r"CkExceptionStream at app\main, line 50, thread {own}, caused by " + FILE_ERROR),
    ("exceptions.reference", FILE_ERROR + ' = {level = 3, m_name = u"a.txt"}'),
    ("*exceptions.pointer", CAUSED),
]

NUMBERS = [
    ("counters.down", "-3"),
    ("counters.up", "4000000000"),
    ("baseTypes.boolean", "true"),
    ("baseTypes.number", "-5"),
    ("baseTypes.unsignedNumber", "5"),
    ("baseTypes.large", "-5000000000"),
    ("baseTypes.unsignedLarge", "18000000000000000000"),
    ("baseTypes.real", "0.5"),
    ("baseTypes.text", 'u"Straße"'),
    ("baseTypes.unnamed", "-2"),
    ("baseTypes.own", "40 = {unit = 12}"),
]

SECTIONS = [
    ("sections.free", "free"),
    ("sections.mine", "held by thread {own} (1 in gdb), recursion 2"),
    ("sections.wanted", "held by thread {own} (1 in gdb), recursion 1, 2 threads asleep"),
    ("sections.other", "held by thread {other} (2 in gdb), recursion 1"),
]

# Objects that are no more than bytes.
UNREADABLE = "<cannot be read: Cannot access memory at address {at}>"
UNMADE = [
    ("zeros.text.object", UNREADABLE),
    ("zeros.smart.object", "CkSmartPointer, empty"),
    ("zeros.weak.object", "CkWeakPointer, empty"),
    ("zeros.array.object", "CkArray of 0 elements, room for 0"),
    ("zeros.managed.object", "CkArrayManaged of 0 elements, room for 0"),
    ("zeros.list.object", "CkList of 0 elements"),
    ("zeros.uncounted.object", "CkList, not counted, empty"),
    ("zeros.map.object", "CkMap of 0 entries"),
    ("zeros.set.object", "CkSet of 0 elements"),
    ("zeros.event.object", "CkEvent without a handle"),
    ("zeros.exception.object", UNREADABLE),
    ("zeros.number.object", "0"),
    ("zeros.wideText.object", UNREADABLE),
    ("zeros.section.object", "free"),
    ("overwritten.text.object", "<corrupt: 14829735431805717965 units in room for 14829735431805717965>"),
    ("overwritten.smart.object", "CkSmartPointer to 0xcdcdcdcdcdcdcdcd <cannot be read>"),
    ("overwritten.weak.object", "CkWeakPointer to 0xcdcdcdcdcdcdcdcd <cannot be read>"),
    ("overwritten.array.object", UNREADABLE),
    ("overwritten.managed.object", UNREADABLE),
    ("overwritten.list.object", UNREADABLE),
    ("overwritten.uncounted.object", UNREADABLE),
    ("overwritten.map.object", UNREADABLE),
    ("overwritten.set.object", UNREADABLE),
    ("overwritten.event.object", "CkEvent 0xcdcdcdcdcdcdcdcd, not an open handle"),
    ("overwritten.exception.object", "<corrupt: 14829735431805717965 units in room for 14829735431805717965>"),
    ("overwritten.number.object", "-842150451"),
    ("overwritten.wideText.object", "<corrupt: 14829735431805717965 units in room for 14829735431805717965>"),
    ("overwritten.section.object", "held by thread 3452816845, recursion -842150451"),
    ("ones.text.object", "<corrupt: 18446744073709551615 units in room for 18446744073709551615>"),
    ("ones.array.object", UNREADABLE),
    ("ones.list.object", UNREADABLE),
    ("ones.map.object", UNREADABLE),
    ("ones.event.object", "CkEvent 0xffffffffffffffff, not an open handle"),
]

# With `set print elements 4`.
LIMITED = [
    ("texts.longText", 'u"long"...'),
    ("arrays.numbers", "CkArray of 5 elements, room for 8 = {10, 11, 12, 13...}"),
    ("lists.words", 'CkList of 3 elements = {u"one", u"two", u"thre"...}'),
    ("maps.squares", "CkMap of 100 entries = {[{n}] = {n}, [{n}] = {n}...}"),
    ("exceptions.plain", "CkException at app\\..., line 10, thread {own}"),
]

# Where the terminal takes ASCII alone.
ASCII = [
    (
        "exceptions.standard.m_history",
        r"CkSmartPointer to CkException, 1 reference = {* = CkException at app\na\xefve, line 1, thread {own}, "
        "caused by CkException at std::exception (why), line 0, thread {own}}",
    ),
    ("texts.longText", 'u"longer than what lies in the object"'),
    ("makeText(2)", '"xx"'),
]

# With `set print elements unlimited`.
UNLIMITED = [
    ("texts.longText", 'u"longer than what lies in the object"'),
    ("lists.endless", "CkList, not counted = {1, 2, 3, <corrupt: node {at} follows itself>}"),
    ("maps.squares", "CkMap of 100 entries = {" + ", ".join(["[{n}] = {n}"] * 100) + "}"),
    ("exceptions.caused", CAUSED),
]

# What is changed in an object, and how it is then shown.
DAMAGED = [
    ("texts.shortText.m_text._M_string_length = 9", "texts.shortText", "<corrupt: 9 units in room for 7>"),
    ("texts.shortText.m_text._M_string_length = 1", "texts.shortText", "<corrupt: no zero behind 1 unit>"),
    (
        "arrays.numbers.m_elementCount = 9",
        "arrays.numbers",
        "<corrupt: 9 elements in room for 8 at {at}>",
    ),
    ("arrays.managed.m_data = 0", "arrays.managed", "<corrupt: 2 elements in room for 2 at 0x0>"),
    (
        "lists.single.m_count = 2",
        "lists.single",
        "CkList of 2 elements = {1, 2, <corrupt: more than the 2 elements counted>}",
    ),
    ("lists.single.m_count = 4", "lists.single", "CkList of 4 elements = {1, 2, 3, <corrupt: 3 of 4 elements>}"),
    ("lists.single.m_count = 0", "lists.single", "<corrupt: 0 elements, head {at}>"),
    ("lists.words.m_tail = 0", "lists.words", "<corrupt: head {at}, tail 0x0>"),
    (
        "maps.ages.m_count = 1",
        "maps.ages",
        'CkMap of 1 entry = {[u"Ada"] = 36, [...] = <corrupt: more than the 1 entry counted>}',
    ),
    ("maps.odd.m_map.m_count = 3", "maps.odd", "CkSet of 3 elements = {1, 48, <corrupt: 2 of 3 entries>}"),
    ("events.manual.m_handle = 4 * 4194304 + 4", "events.manual", "CkEvent 0x1000004, not an open handle"),
    (
        "exceptions.caused.m_history.m_object = &exceptions.caused",
        "exceptions.caused",
        r"CkExceptionStream at app\main, line 20, thread {own}, caused by CkExceptionStream at app\main, line 20, "
        "thread {own}, caused by <corrupt: an exception that it caused>",
    ),
    (
        "exceptions.caused.m_history.m_object = 16",
        "exceptions.caused",
        r"CkExceptionStream at app\main, line 20, thread {own}, caused by "
        "<cannot be read: Cannot access memory at address {at}>",
    ),
]


def run_gdb(program, commands):
    """The sections of what gdb prints, one for each mark."""
    gdb = shutil.which("gdb")
    if gdb is None:
        sys.exit("gdb is not installed: the debugger views cannot be tested without it")
    with tempfile.NamedTemporaryFile("w", suffix=".gdb", encoding="utf-8") as script:
        script.write("\n".join(commands))
        script.flush()
        # Nothing but the views prints: neither the user's settings nor the printers of the standard library.
        arguments = ["-nx", "-q", "-batch", "-iex", "set auto-load off", "-iex", "set debuginfod enabled off"]
        found = subprocess.run(
            [gdb, *arguments, "-x", script.name, program],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            encoding="utf-8",
            errors="replace",
            env={**os.environ, "LC_ALL": "C.UTF-8"},
            timeout=240,
        )
    sections = found.stdout.split(MARK + "\n")
    if len(sections) < 3:
        if "ptrace" in found.stderr and "not permitted" in found.stderr:
            print("a container or another debugger keeps gdb from tracing programs here")
            sys.exit(SKIPPED)
        sys.exit(f"gdb did not come to the objects:\n{found.stdout}\n{found.stderr}")
    return sections, found.stderr


def pattern(expected, threads):
    text = re.escape(expected).replace(re.escape("{at}"), "0x[0-9a-f]+").replace(re.escape("{n}"), "[0-9]+")
    for name, number in threads.items():
        text = text.replace(re.escape("{%s}" % name), number)
    return text.replace(r"\|", "|")


def show_commands(rows, command="print"):
    for expression, _ in rows:
        yield f"echo {MARK}\\n"
        yield f"{command} {expression}"


def damage_commands():
    for change, expression, _ in DAMAGED:
        yield f"set var {change}"
        yield from show_commands([(expression, None)])


def main():
    script, natvis_file, program = sys.argv[1:]
    rows = TEXTS + POINTERS + ARRAYS + LISTS + MAPS + EVENTS + EXCEPTIONS + NUMBERS + SECTIONS + UNMADE
    paths = natvis.paths_of_samples(natvis_file)
    commands = [
        "set width 0",
        "set disable-randomization off",
        "break stopHere",
        "run",
        "up",
        f"source {script}",
        f"echo {MARK}\\n",
        'python print(*[t.ptid[1] for t in sorted(gdb.selected_inferior().threads(), key=lambda t: t.num)])',
        *show_commands(rows),
        "set print elements 4",
        *show_commands(LIMITED),
        "set print elements unlimited",
        *show_commands(UNLIMITED),
        "set print elements 200",
        "set target-charset ASCII",
        *show_commands(ASCII),
        "set target-charset auto",
        *show_commands(paths, "whatis"),
        *damage_commands(),
    ]
    sections, errors = run_gdb(program, commands)
    numbers = sections[1].split()
    threads = {"own": numbers[0], "other": numbers[1]}
    rows = rows + LIMITED + UNLIMITED + ASCII + paths + [row[1:] for row in DAMAGED]
    failures = []
    for (expression, expected), found in zip(rows, sections[2:]):
        # The number that gdb gives to each value.
        shown = re.sub(r"^\$[0-9]+ = ", "", found.rstrip("\n"))
        if expected is not None and re.fullmatch(pattern(expected, threads), shown) is None:
            failures.append(f"{expression}\n    shown:    {shown}\n    expected: {expected}")
    if len(sections) != len(rows) + 2:
        failures.append(f"gdb ended at {rows[len(sections) - 3][0]}")
    for word in ("Python Exception", "Traceback", "Error occurred"):
        if word in errors:
            failures.append("a view has raised an error")
    if failures:
        sys.exit("\n".join(failures) + "\n\nerrors of gdb:\n" + errors)
    print(f"{len(rows)} views as expected")


main()
