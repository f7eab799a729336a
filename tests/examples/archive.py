"""Tests tarvo-archive: archive.py [--thorough] [--only TEST,...] PROGRAM [ARGUMENT...]

Archives are made and read here as well as by the program, see archiveformat.py; those of earlier versions lie in
tests/fixtures. Everything happens in a folder of its
own and under relative names, as the program may see the folder under another path.
"""

import contextlib
import gzip
import os
import pathlib
import re
import resource
import signal
import socket
import stat
import struct
import subprocess
import sys
import tempfile
import threading
import time

import archiveformat as form

PROGRAM = []
THOROUGH = False  # every value of every byte, and how much memory is taken: not with sanitizers, not through Wine
WINDOWS = False

FIXTURES = pathlib.Path(__file__).resolve().parents[1] / "fixtures"

DONE, FAILED, DAMAGED, INTERRUPTED = 0, 1, 2, 130

# What is said of a damaged archive: the record, the class of the exception and its error code.
DAMAGE = re.compile(r"tarvo-archive: (?P<name>[^:]+): record (?P<number>\d+) \((?P<kind>[^()]+)\) at byte \d+: "
                    r"(?P<exception>\w+), error [0-9a-f]{3} [0-9a-f]{3}\.[0-9a-f]{3,}(: .+)?")


def start(*arguments, **options):
    options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
    return subprocess.Popen(PROGRAM + list(arguments), **options)


def run(*arguments, code=DONE, **options):
    """Runs the program, expects the exit code, and returns what it printed and what it noted."""
    process = start(*arguments, **options)
    output, errors = process.communicate(timeout=120)
    output = (output or b"").decode()
    errors = (errors or b"").decode()
    assert process.returncode == code, f"{arguments}: {process.returncode} instead of {code}\n{output}{errors}"
    return output, errors


def fails(*arguments, says, code=FAILED, **options):
    """Expects the program to fail with one line that contains these words."""
    output, errors = run(*arguments, code=code, **options)
    assert says in errors and len(errors.splitlines()) == 1, f"{arguments}: {errors!r} instead of {says!r}"
    return errors


def write(path, data=b""):
    pathlib.Path(path).parent.mkdir(parents=True, exist_ok=True)
    pathlib.Path(path).write_bytes(data)


def entries(path):
    return form.read(pathlib.Path(path).read_bytes())


def names(folder="."):
    return sorted(os.listdir(folder))


def is_pending(name):
    return name.endswith(".part")


def pattern(size):
    return bytes(i * 7 % 251 for i in range(997)) * (size // 997 + 1)


# Times that every system can keep, and a tree that looks the same everywhere.
TIME = 1_600_000_000 * 10**9 + 123_456_700
PLAIN = [
    form.folder("tree", time=TIME),
    form.file("tree/a", b"a", time=TIME + 10**9),
    form.folder("tree/b", time=TIME),
    form.file("tree/b/empty", b"", time=TIME),
    form.folder("tree/b/none", time=TIME),
    form.file("tree/large", pattern(2500000)[:2500000], time=TIME),
    form.file("tree/part", pattern(1048576)[:1048576], time=TIME),
    form.folder("tree/\u0436", time=TIME),
    form.file("tree/\u0436/\u65e5\u672c\u8a9e", b"x" * 300, time=TIME),
    form.file("tree/\u0436/\U0001f600", b"astral", time=TIME),
    form.file("tree/\u0436/\uffee", b"behind it in code points as well", time=-TIME if not WINDOWS else TIME),
]
# By UTF-16 units a character beyond them comes before the last of them.
PLAIN.sort(key=lambda entry: [part.encode("utf-16-be") for part in entry.path.split("/")])


def test_archives_go_there_and_back():
    data = form.write(PLAIN)
    write("made.tva", data)
    run("verify", "made.tva")
    run("unpack", "made.tva", "out")
    for entry in PLAIN:
        path = pathlib.Path("out") / entry.path
        assert path.is_dir() == (entry.kind == "ArchiveFolder"), entry
        assert path.stat().st_mtime_ns == entry.time, entry
        assert not path.is_file() or path.read_bytes() == entry.contents, entry
    run("pack", "../packed.tva", "tree", cwd="out")
    assert pathlib.Path("packed.tva").read_bytes() == data
    # By another path to the same.
    run("pack", "packed.tva", "./out/../out/tree/")
    assert [entry.path for entry in entries("packed.tva")] == ["out/" + entry.path for entry in PLAIN]
    run("pack", "../packed.tva", ".", cwd="out")
    assert pathlib.Path("packed.tva").read_bytes() == data


# What tests/fixtures holds of each version.
STORED = [
    form.folder("tree", time=TIME),
    form.file("tree/a", b"a", time=TIME + 10**9),
    form.folder("tree/b", time=TIME),
    form.file("tree/b/empty", b"", time=TIME),
    form.file("tree/b/run", b"#!", 0o755, -TIME),
    form.link("tree/link", "b/run", time=TIME),
    form.folder("tree/none", 0o700, TIME),
    form.file("tree/repeated", b"\xa5" * 1500, time=TIME),
    form.folder("tree/\u0436", time=TIME),
    form.file("tree/\u0436/\u65e5\u672c\u8a9e", b"x" * 300, 0o600, TIME),
    form.file("tree/\u0436/\U0001f600", b"astral", 0o444, TIME),
]
STORED_LARGE = [form.file("large", bytes((2 << 20) + 5), time=TIME)]


def expect_unpacked(entry, path):
    status = path.lstat()
    if entry.kind == "ArchiveLink":
        assert os.readlink(path) == entry.target and status.st_mtime_ns == entry.time, entry
        return
    assert path.is_dir() == (entry.kind == "ArchiveFolder"), entry
    assert path.is_dir() or path.read_bytes() == entry.contents, entry
    # What the system below Wine can't keep: permissions, and times before 1970.
    assert WINDOWS or stat.S_IMODE(status.st_mode) == entry.permissions, entry
    assert status.st_mtime_ns == entry.time or (WINDOWS and entry.time < 0), entry


def test_archives_of_every_version_are_read():
    versions = sorted(path.parent for path in FIXTURES.glob("*/archive.tva"))
    assert versions and versions[0].name == "0.1", versions
    for version in versions:
        for name, data, stored in [
                ("archive.tva", (version / "archive.tva").read_bytes(), STORED),
                ("large.tva", gzip.decompress((version / "large.tva.gz").read_bytes()), STORED_LARGE)]:
            assert form.read(data) == stored, (version, name)
            write(name, data)
            run("verify", name)
            run("unpack", name, version.name)
            for entry in stored:
                path = pathlib.Path(version.name) / entry.path
                if entry.kind != "ArchiveLink" or not WINDOWS:
                    expect_unpacked(entry, path)


def test_list_shows_what_is_there():
    write("made.tva", form.write([
        form.folder("tree", 0o751), form.file("tree/\u0436", b"12345", 0o604, TIME), form.file("b", time=-1),
        form.file("odd\n\\\x1b\udc80\ud800"), form.link("l", "to/\u65e5"),
        form.file("later", time=253402300800 * 10**9)]))
    output, errors = run("list", "made.tva")
    assert errors == "" and output.splitlines() == [
        "drwxr-x--x            0 1970-01-01 00:00:00 tree",
        "-rw----r--            5 2020-09-13 12:26:40 tree/\u0436",
        "-rw-r--r--            0 1969-12-31 23:59:59 b",
        "-rw-r--r--            0 1970-01-01 00:00:00 odd\\x0A\\x5C\\x1B\\x80\\uD800",
        "lrwxrwxrwx            0 1970-01-01 00:00:00 l -> to/\u65e5",
        "-rw-r--r--            0 10000-01-01 00:00:00 later"], output
    assert run("list", "--quiet", "made.tva") == ("", "")


def test_help_and_usage():
    general, _ = run("--help")
    for command in "pack", "list", "verify", "unpack":
        assert command in general
        output, _ = run(command, "--help")
        assert output.startswith("tarvo-archive " + command) and "130" in output and "--quiet" in output
    output, _ = run("--version")
    assert re.fullmatch(r"tarvo-archive \d+\.\d+\.\d+\n", output)
    fails(says="no command is given")
    fails("pak", says='there is no command "pak"')
    fails("pack", "a.tva", says="too few arguments")
    fails("list", "a.tva", "b.tva", says="too many arguments")
    fails("list", "--force", "a.tva", says='there is no option "--force"')
    fails("verify", "--filter", says="without an expression")
    fails("verify", "", says="a path is empty")
    write("a.tva", form.write([]))
    fails("verify", "-v", "--filter", "(", "a.tva", says="the expression of --filter is none")
    write("-d", b"x")
    run("pack", "b.tva", "--", "-d")
    assert [entry.path for entry in entries("b.tva")] == ["-d"]


def test_what_is_said():
    write("f", b"123")
    output, errors = run("pack", "a.tva", "f")
    assert re.fullmatch(r"a\.tva: 1 entry packed, \d+ bytes in [\d']+ms\n", output) and errors == "", (output, errors)
    for arguments in ("pack", "a.tva", "f"), ("verify", "a.tva"), ("unpack", "a.tva", "out"):
        assert run(*arguments, "-q") == ("", "")
    data = bytearray(pathlib.Path("a.tva").read_bytes())
    data[-1] ^= 1
    write("a.tva", data)
    output, errors = run("verify", "-v", "a.tva", code=DAMAGED)
    raised = re.findall(r"^tarvo-archive: raised (\w+) at archive\\\w+\(\d+\)$", errors, re.MULTILINE)
    assert raised and len(raised) == len(errors.splitlines()) - 1, errors
    _, errors = run("verify", "-v", "--filter=NoSuch", "a.tva", code=DAMAGED)
    assert "raised" not in errors, errors
    # The library's own exceptions are reported like the program's.
    front = form.record(form.HEADER, form.text("Tarvo archive") + b"\1\0")
    write("a.tva", front + bytes(50))
    _, errors = run("verify", "-v", "--filter", "^CkExceptionStream$", "a.tva", code=DAMAGED)
    assert re.search(r"^tarvo-archive: raised CkExceptionStream at tarvo\\streams\\ckstreamreadbinary\(\d+\)$", errors,
                     re.MULTILINE), errors
    fails("verify", "nix.tva", says="nix.tva: can't be opened")
    fails("verify", ".", says="is a folder")
    # One that can't be verified keeps none of the others from it.
    write("good.tva", form.write([]))
    output, errors = run("verify", "nix.tva", "good.tva", "a.tva", code=DAMAGED)
    assert "good.tva: 0 entries verified" in output and len(errors.splitlines()) == 2


def damages(data, every_change):
    """The archive with each thing wrong that can be wrong with one byte, and without each of its ends."""
    for i, byte in enumerate(data):
        for value in range(256) if every_change else {byte ^ (1 << bit) for bit in range(8)} | {0, 255}:
            if value != byte:
                yield data[:i] + bytes([value]) + data[i + 1:]
    for size in range(len(data)):
        yield data[:size]
    yield data + b"\0"
    yield data + data


def verify_damaged(batch):
    """Each archive of a batch has to be refused, each with its line."""
    for i, data in enumerate(batch):
        with open(f"d{i}", "wb", buffering=0) as damaged:
            damaged.write(data)
    _, errors = run("verify", "-q", *(f"d{i}" for i in range(len(batch))), code=DAMAGED)
    lines = errors.splitlines()
    assert len(lines) == len(batch)
    for i, line in enumerate(lines):
        match = DAMAGE.fullmatch(line)
        assert match and match["name"] == f"d{i}", line
    return {DAMAGE.fullmatch(line)["kind"] for line in lines}


def test_every_damage_is_refused():
    data = form.write([form.file("a", b"xyz", time=TIME), form.link("l", "a")])
    write("good.tva", data)
    run("verify", "good.tva")
    batch, kinds = [], set()
    for damaged in damages(data, THOROUGH):
        batch.append(damaged)
        if len(batch) == 4000:
            kinds |= verify_damaged(batch)
            batch = []
    kinds |= verify_damaged(batch)
    assert kinds == {"header", "entry or trailer", "contents of a"}, kinds
    # The other commands look just as closely.
    for i in range(0, len(data), 37):
        damaged = data[:i] + bytes([data[i] ^ 64]) + data[i + 1:]
        write("bad.tva", damaged)
        _, errors = run("unpack", "bad.tva", "out", code=DAMAGED)
        assert DAMAGE.fullmatch(errors.strip()) and not os.path.exists("out"), errors


def refused(data, says, command=("verify", "made.tva")):
    write("made.tva", data)
    errors = fails(*command, says=says, code=DAMAGED)
    assert DAMAGE.fullmatch(errors.strip()), errors
    return errors


def test_wrong_records_with_right_checksums_are_refused():
    entry = form.entry_payload(form.file("a", b"12"))
    contents = form.record(form.CONTENTS, form.contents_payload(b"12"))

    def archive(*records):
        return form.finish(form.header() + b"".join(records), 1)

    write("made.tva", archive(form.record(form.ENTRY, entry), contents))
    run("verify", "made.tva")
    refused(form.finish(form.header(2), 0), "CkExceptionWrongFileVersion")
    refused(form.finish(form.header(0), 0), "no such version")
    refused(form.finish(form.record(form.HEADER, form.text("Other archive") + b"\1\0\0\0"), 0), "this is no archive")
    refused(form.finish(b"", 0), "this is no archive")
    refused(archive(contents), "neither an entry nor the trailer")
    refused(archive(form.header()), "neither an entry nor the trailer")
    refused(archive(form.record(form.ENTRY, entry)), "the contents of the file should follow")
    refused(archive(form.record(form.ENTRY, entry[:-3])), "CkExceptionStream")
    refused(archive(form.record(form.ENTRY, entry + b"\0"), contents), "more in the record")
    refused(archive(form.record(form.ENTRY, entry.replace(form.text("ArchiveFile"), form.text("ArchiveNone")))),
            "no such class")
    # A class that can be made by its name, but is no entry.
    refused(archive(form.record(form.ENTRY, form.text("CkInt32") + bytes(4))), "no such class")
    refused(archive(form.record(form.ENTRY, entry.replace(struct.pack("<Q", 2), struct.pack("<Q", 1 << 59)))),
            "ends within the contents")
    refused(archive(form.record(form.ENTRY, entry.replace(struct.pack("<Q", 2), struct.pack("<Q", 2**64 - 1)))),
            "no file is that large")
    refused(archive(form.record(form.ENTRY, entry.replace(form.text("a"), form.text("a\0b"))), contents), "a text")
    refused(archive(form.record(form.ENTRY, entry.replace(form.text("a"), b"\xff\xfe\xff\xff\1\0a\0")), contents),
            "a text")
    refused(archive(form.record(form.ENTRY, entry.replace(form.text("a"), form.text("")))), "a text")
    for array in (struct.pack("<IIII", 0xFFFFFFFF, 1, 0x7FFFFFFF, 1), struct.pack("<IIII", 0xFFFFFFFF, 1, 1, 2),
                  struct.pack("<IIII", 0xFFFFFFFF, 2, 2, 1), struct.pack("<IIII", 0xFFFFFFFF, 0, 2, 1),
                  struct.pack("<IIII", 2, 1, 2, 1)):
        refused(archive(form.record(form.ENTRY, entry), form.record(form.CONTENTS, array + b"12")), "contents of a")
    refused(form.finish(form.header() + form.entry_records(form.file("a", b"12")), 2), "another number of entries")
    good = form.write([form.file("a", b"12")])
    front, rest = good[:-33], struct.unpack("<IQQI", good[-28:-4])
    refused(front + form.record(form.TRAILER, struct.pack("<IQQI", 1, 1, rest[2] + 1, rest[3])), "another size")
    refused(front + form.record(form.TRAILER, struct.pack("<IQQI", 1, 1, rest[2], rest[3] ^ 1)),
            "other records than the archive was made of")
    refused(good + b"x", "behind the trailer")
    # Damage in the contents in front comes before that of the trailer.
    wrong = bytearray(form.write([form.file("a", b"12"), form.file("b", b"34")]))
    wrong[wrong.index(b"12")] ^= 1
    wrong[-1] ^= 1
    assert "contents of a" in refused(wrong, "record 2")


def test_nothing_is_unpacked_elsewhere():
    os.mkdir("out")
    for path in "/abs", "../up", "a/../../up", "a/..", "..", ".", "a//b", "a/", "/", "./a":
        refused(form.write([form.file("good"), form.file(path, b"x")]), "leads out of the folder",
                ("unpack", "made.tva", "out"))
        assert names("out") == [] and names() == ["made.tva", "out"]
    refused(form.write([form.link("l", ".."), form.file("l/x", b"x")]), "leads through a link",
            ("unpack", "made.tva", "out"))
    assert names("out") == []
    if WINDOWS:
        for path in "C:x", "a\\..\\..\\up", "a*b", "nul", "com1.txt", "dot.", "a:b":
            write("made.tva", form.write([form.file(path)]))
            fails("unpack", "made.tva", "out", says="no file can have that name here")
        return
    os.mkdir("elsewhere")
    os.symlink("../elsewhere", "out/l")
    write("made.tva", form.write([form.folder("l"), form.file("l/x", b"x")]))
    for options in (), ("--force",):
        run("unpack", *options, "made.tva", "out", code=FAILED)
        assert names("elsewhere") == []
    # A link in the place of a file is replaced, not followed.
    write("elsewhere/f", b"old")
    os.symlink("../elsewhere/f", "out/f")
    write("made.tva", form.write([form.file("f", b"new")]))
    fails("unpack", "made.tva", "out", says="is there already")
    run("unpack", "--force", "made.tva", "out")
    assert pathlib.Path("elsewhere/f").read_bytes() == b"old" and not os.path.islink("out/f")


def test_nothing_is_overwritten_without_force():
    write("made.tva", form.write([form.folder("d"), form.file("d/a", b"new"), form.file("b", b"new")]))
    write("out/b", b"old")
    fails("unpack", "made.tva", "out", says="out/b: is there already; --force replaces it")
    assert names("out") == ["b"] and pathlib.Path("out/b").read_bytes() == b"old"
    run("unpack", "--force", "made.tva", "out")
    assert pathlib.Path("out/b").read_bytes() == b"new" and pathlib.Path("out/d/a").read_bytes() == b"new"
    # A folder is no obstacle to one of the same name, but to a file.
    write("made.tva", form.write([form.folder("d"), form.file("d/c", b"new")]))
    run("unpack", "made.tva", "out")
    assert names("out/d") == ["a", "c"]
    write("made.tva", form.write([form.file("d", b"new")]))
    run("unpack", "--force", "made.tva", "out", code=FAILED)
    assert names("out") == ["b", "d"] and names("out/d") == ["a", "c"]


def test_the_old_archive_stays_until_the_new_one_is_complete():
    write("f", b"1")
    write("a.tva", b"old")
    fails("pack", "a.tva", "f", "nix", says="nix: can't be examined")
    assert pathlib.Path("a.tva").read_bytes() == b"old" and names() == ["a.tva", "f"]
    run("pack", "a.tva", "f")
    assert len(entries("a.tva")) == 1 and names() == ["a.tva", "f"]
    os.mkdir("folder")
    fails("pack", "folder", "f", says="is there already, and not a file")
    fails("pack", "nix/a.tva", "f", says="nix: can't be opened")
    for twice in ("f", "f"), ("folder", "./folder/"), (".", "f"), ("folder", "f", "folder/../f"):
        fails("pack", "b.tva", *twice, says="would be in the archive twice")
    assert names() == ["a.tva", "f", "folder"]


def test_the_archive_itself_is_passed_over():
    write("f", b"1")
    write("a.tva", b"old")
    for _ in range(2):
        _, errors = run("pack", "a.tva", ".")
        assert [entry.path for entry in entries("a.tva")] == ["f"] and "a.tva: is the archive" in errors, errors


def test_many_files_in_order():
    for i in range(3000):
        write(f"many/{i % 7}/{i}", b"%d" % i * (i % 50))
    run("pack", "a.tva", "many")
    found = entries("a.tva")
    paths = [entry.path for entry in found]
    assert len(paths) == 3008 and paths == sorted(paths, key=lambda path: path.split("/"))
    for entry in found:
        number = entry.path.split("/")[-1]
        assert entry.kind == "ArchiveFolder" or entry.contents == number.encode() * (int(number) % 50)
    run("unpack", "a.tva", "out")
    run("pack", "../b.tva", "many", cwd="out")
    assert pathlib.Path("a.tva").read_bytes() == pathlib.Path("b.tva").read_bytes()


def linux_test_what_only_linux_has():
    os.mkdir("t")
    write(os.fsdecode(b"t/n\xff\xc3\xa4"), b"bytes")
    write("t/run", b"#!")
    os.chmod("t/run", 0o4711)
    os.symlink("nowhere/\u65e5", "t/link")
    os.utime("t/link", ns=(0, TIME + 89), follow_symlinks=False)
    os.utime("t/run", ns=(0, -TIME))
    write("t/closed/inside", b"x")
    os.chmod("t/closed", 0o500)
    os.mkfifo("t/pipe")
    server = socket.socket(socket.AF_UNIX)
    server.bind("t/socket")
    with server:
        _, errors = run("pack", "a.tva", "t")
    assert sorted(errors.splitlines()) == [
        f"tarvo-archive: t/{name}: is no file, folder or link, and passed over" for name in ("pipe", "socket")], errors
    found = {entry.path: entry for entry in entries("a.tva")}
    assert sorted(found) == ["t", "t/closed", "t/closed/inside", "t/link", "t/n\udcff\u00e4", "t/run"]
    run("unpack", "a.tva", "out")
    assert pathlib.Path(os.fsdecode(b"out/t/n\xff\xc3\xa4")).read_bytes() == b"bytes"
    assert os.readlink("out/t/link") == "nowhere/\u65e5" and os.lstat("out/t/link").st_mtime_ns == TIME + 89
    status = os.lstat("out/t/run")
    assert stat.S_IMODE(status.st_mode) == 0o711 and status.st_mtime_ns == -TIME
    assert stat.S_IMODE(os.lstat("out/t/closed").st_mode) == 0o500
    assert os.lstat("out/t").st_mtime_ns == os.lstat("t").st_mtime_ns
    # A link is stored as one even where it has been named, but leads on to what is named within it.
    os.symlink("t", "to")
    run("pack", "b.tva", "to")
    assert [entry.kind for entry in entries("b.tva")] == ["ArchiveLink"]
    run("pack", "b.tva", "to/run")
    assert [entry.path for entry in entries("b.tva")] == ["to/run"]
    for path in "t/closed", "out/t/closed":
        os.chmod(path, 0o700)


def linux_test_files_that_cannot_be_read():
    # A file that is longer than the system says, and one whose first byte can't be read.
    for path, says in ("/proc/cpuinfo", "has changed while it was read"), ("/proc/self/mem", "can't be read"):
        write("a.tva", b"old")
        fails("pack", "a.tva", path, says=f"{path}: ")
        assert says in fails("pack", "a.tva", path, says=says)
        assert pathlib.Path("a.tva").read_bytes() == b"old" and names() == ["a.tva"]


def linux_test_a_file_that_shrinks():
    write("f", pattern(200_000_000))
    process = start("pack", "--no-flush", "a.tva", "f")
    while process.poll() is None and not any(is_pending(name) and os.stat(name).st_size for name in names()):
        time.sleep(0.001)
    os.truncate("f", 100)
    _, errors = process.communicate()
    # On a machine where it was packed by then there is nothing to see.
    if process.returncode != DONE:
        assert process.returncode == FAILED and b"f: the file has changed while it was read" in errors, errors
        assert names() == ["f"]


def limit_file_size():
    resource.setrlimit(resource.RLIMIT_FSIZE, (3_000_000, 3_000_000))


def linux_test_a_full_disk():
    write("f", pattern(5_000_000))
    write("a.tva", b"old")
    fails("pack", "a.tva", "f", says="a.tva: can't be written", preexec_fn=limit_file_size)
    assert pathlib.Path("a.tva").read_bytes() == b"old" and names() == ["a.tva", "f"]
    run("pack", "a.tva", "f")
    fails("unpack", "a.tva", "out", says="out/f: can't be written", preexec_fn=limit_file_size)
    assert names("out") == []
    if os.path.exists("/dev/full"):
        with open("/dev/full", "wb") as full:
            fails("list", "a.tva", says="standard output can't be written", stdout=full)


def linux_test_interrupted():
    # Large enough not to be ready before the signal, and of holes, so that reading them takes no disk.
    with open("huge", "wb") as huge:
        huge.truncate(1 << 40)
    write("a.tva", b"old")
    for number in signal.SIGINT, signal.SIGTERM:
        process = start("pack", "--no-flush", "a.tva", "huge")
        while not any(is_pending(name) and os.stat(name).st_size for name in names()):
            assert process.poll() is None
            time.sleep(0.001)
        process.send_signal(number)
        _, errors = process.communicate(timeout=60)
        assert process.returncode == INTERRUPTED and errors == b"tarvo-archive: interrupted\n", errors
        assert pathlib.Path("a.tva").read_bytes() == b"old" and names() == ["a.tva", "huge"]


def linux_test_memory():
    if not THOROUGH:
        return
    with open("holes", "wb") as holes:
        holes.truncate(1 << 28)
    for arguments in ("pack", "--no-flush", "a.tva", "holes"), ("verify", "a.tva"), ("unpack", "a.tva", "out"):
        process = start(*arguments, stdout=subprocess.DEVNULL)
        most = 0
        while process.poll() is None:
            # The system keeps the peak, which is gone with the process.
            status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
            found = re.search(r"^VmHWM:\s*(\d+) kB", status, re.MULTILINE)
            most = max(most, int(found[1]) if found else 0)
            time.sleep(0.002)
        process.stderr.close()
        assert process.returncode == DONE and 0 < most < 64 << 10, (arguments, most)


def linux_test_progress_on_a_terminal():
    write("f", pattern(3_000_000))
    run("pack", "a.tva", "f")
    for arguments, bar in [(("pack", "b.tva", "f"), False), (("verify", "a.tva"), True),
                           (("unpack", "a.tva", "o"), True)]:
        shown = run_on_terminal(arguments)
        assert re.search(r"(pack|verify)ing .*\d (bytes|[KMG]iB), \d.* ([KMG]iB|bytes)/s", shown), shown
        assert not bar or re.search(r"verifying \[[#.]{30}\] ", shown), shown
        assert shown.endswith("\r\x1b[K"), shown
        assert run_on_terminal((*arguments, "--quiet", *(["--force"] if arguments[0] == "unpack" else []))) == ""


def run_on_terminal(arguments):
    master, slave = os.openpty()
    shown = []

    def collect():
        with contextlib.suppress(OSError):
            while data := os.read(master, 4096):
                shown.append(data)

    collector = threading.Thread(target=collect)
    collector.start()
    run(*arguments, stderr=slave)
    os.close(slave)
    collector.join()
    os.close(master)
    return b"".join(shown).decode()


def main(arguments):
    global PROGRAM, THOROUGH, WINDOWS
    only = []
    while arguments[0].startswith("--"):
        option = arguments.pop(0)
        if option == "--only":
            only = arguments.pop(0).split(",")
        THOROUGH = THOROUGH or option == "--thorough"
    PROGRAM = arguments
    WINDOWS = PROGRAM[-1].endswith(".exe")
    os.umask(0o022)
    names = [name for name in globals() if name.startswith("test_") or (name.startswith("linux_test_") and not WINDOWS)]
    assert set(only) <= set(names), f"there is no {' or '.join(set(only) - set(names))}"
    for name in only or names:
        begin = time.monotonic()
        with tempfile.TemporaryDirectory() as folder:
            os.chdir(folder)
            globals()[name]()
            os.chdir("/")
        print(f"{name}: {time.monotonic() - begin:.1f} s", flush=True)


main(sys.argv[1:])
