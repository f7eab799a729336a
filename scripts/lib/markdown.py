"""Links in the Markdown files of the repository.

markdown.py check FILE...  says which relative links lead nowhere, to no file or no heading, and fails if there are any
markdown.py doxygen FILE   prints the file in a form in which doxygen finds the headings that links name

Both are run in the root of the repository.
"""

import os
import pathlib
import re
import sys

FENCE = re.compile(r"^\s*(```|~~~)")
HEADING = re.compile(r"^(#{1,6})\s+(.*?)\s*#*$")
CODE = re.compile(r"(`+)(?:.+?)\1")
LINK = re.compile(r"(\[(?:[^\[\]]|\[[^\]]*\])*\])\(([^()\s]+)(?:\s+\"[^\"]*\")?\)")
ELSEWHERE = re.compile(r"^[a-z][a-z0-9+.-]*:")


def prose(text):
    """The lines, each with its number and whether it is outside code blocks."""
    fence = None
    for number, line in enumerate(text.split("\n"), 1):
        mark = FENCE.match(line)
        if fence is None and mark:
            fence = mark[1]
            yield number, line, False
        elif fence is not None:
            if mark and mark[1] == fence:
                fence = None
            yield number, line, False
        else:
            yield number, line, True


def name_of(title, names):
    """What a link says to lead to a heading with this title, the next one in its file; `names` counts those before."""
    plain = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", title)
    name = re.sub(r"[^\w\- ]", "", plain.lower()).replace(" ", "-")
    names[name] = names.get(name, -1) + 1
    return name if names[name] == 0 else f"{name}-{names[name]}"


def headings(path):
    names = {}
    found = (HEADING.match(line) for _, line, outside in prose(path.read_text(encoding="utf-8")) if outside)
    return {name_of(heading[2], names) for heading in found if heading}


def without_code(line):
    return CODE.sub(lambda code: " " * len(code[0]), line)


def links(path):
    """Number of the line and target of each relative link."""
    for number, line, outside in prose(path.read_text(encoding="utf-8")):
        for link in LINK.finditer(without_code(line)) if outside else ():
            if not ELSEWHERE.match(link[2]):
                yield number, link[2]


def resolve(path, target):
    """The file that a link leads to, relative to the root, and the heading, empty for none."""
    file, _, heading = target.partition("#")
    if not file:
        return path, heading
    return pathlib.Path(os.path.normpath(path.parent / file)), heading


def check(paths):
    broken = 0
    count = 0
    for path in paths:
        for number, target in links(path):
            count += 1
            file, heading = resolve(path, target)
            if file.is_absolute() or file.parts[:1] == ("..",) or not file.exists():
                reason = "there is no such file"
            elif heading and (file.suffix != ".md" or heading not in headings(file)):
                reason = "there is no such heading"
            else:
                continue
            print(f"{path}:{number}: the link to {target} leads nowhere: {reason}", file=sys.stderr)
            broken += 1
    print(f"links: {count} in {len(paths)} files, {broken} of them broken")
    return 1 if broken else 0


def page(path):
    """A name for doxygen, which has one space of names for all files."""
    return re.sub(r"\W", "-", str(path.with_suffix("")))


def to_doxygen(path):
    def convert(link):
        in_code = any(code.start() < link.start() < code.end() for code in CODE.finditer(link.string))
        if in_code or ELSEWHERE.match(link[2]):
            return link[0]
        file, heading = resolve(path, link[2])
        if file.suffix != ".md" or not file.exists():
            return link[1][1:-1]  # no page of the reference
        return f"{link[1]}(#{page(file)}{'-' + heading if heading else ''})"

    names = {}
    first = True
    for _, line, outside in prose(path.read_text(encoding="utf-8")):
        heading = HEADING.match(line) if outside else None
        if heading:
            name = name_of(heading[2], names)
            line = f"{line} {{#{page(path)}{'' if first else '-' + name}}}"
            first = False
        elif outside:
            line = LINK.sub(convert, line)
        print(line)


def main(arguments):
    paths = [pathlib.Path(os.path.relpath(argument)) for argument in arguments[1:]]
    if arguments[:1] == ["check"]:
        return check(paths)
    if arguments[:1] == ["doxygen"] and len(paths) == 1:
        return to_doxygen(paths[0])
    sys.exit(__doc__)


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8")
    sys.exit(main(sys.argv[1:]))
