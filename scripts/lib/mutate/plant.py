"""Faults are drawn, written into a copy of the tree, and built: all of them at once, each behind its number."""

import collections
import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys

from mutate import sites

KIT = pathlib.Path(__file__).resolve().parent
ROOT = KIT.parents[2]
WORK = ROOT / "build" / "mutate"
TREE = WORK / "tree"
BUILD = WORK / "build"

# The folders of the areas. Files that are not compiled here are left out.
AREAS = {"threads": "tarvo/threads", "core": "tarvo/core", "containers": "tarvo/containers",
         "streams": "tarvo/streams", "platform": "tarvo/platform", "system": "tarvo/system",
         "examples/archive": "examples/archive"}

# Kinds are drawn first, then a place, so that the most frequent kind does not outweigh the others. On x86 a weaker
# memory order is seldom to be noticed, and what guards another condition is rare.
WEIGHTS = {"order": 0.5, "swap": 0.5}

# Drawn beyond what is asked for, in the place of those that do not compile.
SPARE = 1.25

Fault = collections.namedtuple("Fault", "number area site")

FLAGS = ["-O1", "-w", "-Wno-narrowing", "-Werror=vla", "-include", str(WORK / "planted.h")]
OPTIONS_FOR_CLANG = ("-D", "-I", "-isystem", "-std", "-fsanitize")


def run(command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                          stdin=subprocess.DEVNULL, **options)


def must(command):
    result = run(command)
    if result.returncode != 0:
        sys.exit(f"mutate: this failed: {' '.join(map(str, command))}\n{result.stdout[-4000:]}")


def write_if_other(path, data):
    if not path.exists() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def copy_tree():
    """The files that git knows, or would take, as they are now."""
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                            check=True, stdout=subprocess.PIPE).stdout.decode().split("\0")
    wanted = {name for name in listed if name and (ROOT / name).is_file()}
    for name in wanted:
        write_if_other(TREE / name, (ROOT / name).read_bytes())
        shutil.copymode(ROOT / name, TREE / name)
    for path in [path for path in TREE.rglob("*") if path.is_file()]:
        if str(path.relative_to(TREE)) not in wanted:
            path.unlink()


def configure():
    WORK.mkdir(parents=True, exist_ok=True)
    write_if_other(WORK / "planted.h", (KIT / "planted.h").read_bytes())
    must(["g++", "-shared", "-fPIC", "-O1", KIT / "planted.cpp", "-o", WORK / "libtarvofault.so"])
    must(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
          "-DCMAKE_CXX_FLAGS_DEBUG=" + " ".join(FLAGS), "-DCMAKE_C_FLAGS_DEBUG=-O1",
          "-DTARVO_SANITIZE=address,undefined", "-DTARVO_WERROR=OFF", "-DTARVO_BUILD_TESTS=ON",
          "-DTARVO_BUILD_EXAMPLES=ON", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
          f"-DCMAKE_CXX_STANDARD_LIBRARIES=-L{WORK} -ltarvofault -Wl,-rpath,{WORK}"])


def compile_commands(folder):
    """The files of the folder that are compiled here, each with the arguments that libclang needs."""
    commands = []
    for entry in json.loads((BUILD / "compile_commands.json").read_text()):
        name = sites.relative(TREE, entry["file"])
        if name and name.startswith(folder + "/"):
            words = entry["command"].split()
            pairs = zip(words, words[1:])
            arguments = [word for word in words if word.startswith(OPTIONS_FOR_CLANG)]
            arguments += [text for word, path in pairs if word == "-isystem" for text in (path,)]
            commands.append((entry["file"], arguments + ["-include", str(WORK / "planted.h")]))
    return commands


def find_sites(area, workers):
    folder = AREAS[area]
    commands = compile_commands(folder)
    units = {sites.relative(TREE, path) for path, _ in commands}
    headers = {str(path.relative_to(TREE)) for path in (TREE / folder).rglob("*.h")}
    found, unread = sites.find(TREE, commands, units | headers, workers)
    # Headers that no source of the area includes are read by themselves.
    alone = [name for name in unread if "windows" not in name]
    if alone:
        arguments = commands[0][1] + ["-x", "c++"]
        more, _ = sites.find(TREE, [(str(TREE / name), arguments) for name in alone], set(alone), workers)
        found = sorted(found + more)
    return found


def draw(found, seed, area):
    """All sites in the order in which the seed draws them: a kind first, then one of its places, once each."""
    chance = random.Random(f"{seed} {area}")
    places = collections.defaultdict(dict)
    for site in found:
        places[site.kind].setdefault((site.file, site.start, site.end), []).append(site)
    pools = {kind: list(places[kind].values()) for kind in sites.KINDS if places[kind]}
    drawn = []
    while pools:
        kinds = list(pools)
        kind = chance.choices(kinds, [WEIGHTS.get(kind, 1) for kind in kinds])[0]
        place = pools[kind].pop(chance.randrange(len(pools[kind])))
        if not pools[kind]:
            del pools[kind]
        drawn.append(chance.choice(place))
    return drawn


# Writing them.

def switch(fault, inner):
    site = fault.site
    planted = f"tarvo_planted{'_constant' if site.constant else ''}({fault.number})"
    if site.form == sites.DELETION:
        return f"({planted} ? (void)0 : (void)({inner}))"
    if site.form == sites.NEGATION:
        return f"({planted} != static_cast<bool>({inner}))"
    return f"({planted} ? ({site.text}) : ({inner}))"


def render(data, start, end, faults):
    """The text between the offsets with the faults in it, which lie within one another or apart."""
    pieces = []
    position = start
    # Of those in the same place, what has no value is outside.
    rest = sorted(faults, key=lambda fault: (fault.site.start, -fault.site.end, fault.site.form != sites.DELETION,
                                             fault.number))
    while rest:
        outer, rest = rest[0], rest[1:]
        inside = [fault for fault in rest if fault.site.end <= outer.site.end]
        rest = [fault for fault in rest if fault.site.end > outer.site.end]
        pieces.append(data[position:outer.site.start].decode())
        pieces.append(switch(outer, render(data, outer.site.start, outer.site.end, inside)))
        position = outer.site.end
    pieces.append(data[position:end].decode())
    return "".join(pieces)


def write(faults, files):
    """Every one of the files with its faults, or as it was."""
    by_file = collections.defaultdict(list)
    for fault in faults:
        by_file[fault.site.file].append(fault)
    for name in files:
        data = (ROOT / name).read_bytes()
        write_if_other(TREE / name, render(data, 0, len(data), by_file[name]).encode())


# Building them.

def culprits(output, faults):
    """The faults in the lines that the compiler complains of, or else in those from which it got there."""
    by_line = collections.defaultdict(set)
    for fault in faults:
        first = (ROOT / fault.site.file).read_bytes()[:fault.site.start].count(b"\n") + 1
        last = (ROOT / fault.site.file).read_bytes()[:fault.site.end].count(b"\n") + 1
        for line in range(first, last + 1):
            by_line[fault.site.file, line].add(fault)
    found = set()
    context = set()
    blamed = set()
    for line in output.split("\n"):
        # Paths may be relative to the build folder.
        place = re.search(r"([^\s:]+\.(?:h|cpp)):(\d+):", line)
        if not place:
            continue
        name = sites.relative(TREE, os.path.join(BUILD, place[1]))
        here = by_line.get((name, int(place[2])), set())
        if re.search(r": (fatal )?error: ", line):
            found |= here or context
            blamed.add((name, int(place[2])))
            context = set()
        else:
            context |= here
            # What the compiler notes after an error may be its reason.
            found |= here if ": note: " in line else set()
    return found or nearest(blamed, faults)


def nearest(blamed, faults):
    """In each file the fault nearest to an error: initialisers of members make trouble where a constructor stands."""
    found = set()
    for name, line in blamed:
        here = [fault for fault in faults if fault.site.file == name]
        found |= {min(here, key=lambda fault: abs(fault.site.line - line))} if here else set()
    return found


def build(jobs):
    return run(["nice", "-n", "5", "cmake", "--build", str(BUILD), "--parallel", str(jobs), "--", "-k", "0"])


def plant(areas, count, seed, jobs, say):
    """Draws, writes and builds; {area: its faults in the order of their draw}. Numbers are unique, beginning with 1."""
    copy_tree()
    configure()
    drawn = {}
    for area in areas:
        found = find_sites(area, jobs)
        drawn[area] = draw(found, seed, area)
        say(f"{area}: {len(found)} faults can be planted")
    return drawn if count == 0 else build_drawn(drawn, count, jobs, say)


def build_drawn(drawn, count, jobs, say):
    files = {site.file for found in drawn.values() for site in found}
    waiting = {area: collections.deque(found) for area, found in drawn.items()}
    planted = {area: [] for area in drawn}
    number = 0
    for round_number in range(1, 21):
        for area, faults in planted.items():
            wanted = int(count * SPARE) + 2 if round_number == 1 else max(count, len(faults))
            while len(faults) < wanted and waiting[area]:
                number += 1
                faults.append(Fault(number, area, waiting[area].popleft()))
        every = [fault for faults in planted.values() for fault in faults]
        write(every, files)
        say(f"build {round_number} with {len(every)} faults")
        result = build(jobs)
        if result.returncode == 0:
            return {area: faults[:count] for area, faults in planted.items()}
        bad = culprits(result.stdout, every)
        if not bad:
            (WORK / "build.log").write_text(result.stdout)
            sys.exit(f"mutate: the build fails, and not by a fault; see {WORK / 'build.log'}")
        say(f"{len(bad)} of them do not compile and are taken out")
        planted = {area: [fault for fault in faults if fault not in bad] for area, faults in planted.items()}
    sys.exit("mutate: the build does not come to an end")
