#!/usr/bin/env python3
"""Tests of the examples of the tour.

tour.py run SOURCE COMMAND...      Runs the command; it must print what the end of the source says.
tour.py quotes DOCUMENT FOLDER     Every source of the folder must stand in the document, exactly as it is.
tour.py update DOCUMENT FOLDER     Puts the sources as they are into the document, where it quotes them.
"""

import difflib
import pathlib
import re
import subprocess
import sys

# A link to a source and below it the whole source.
QUOTE = re.compile(
    r"^(?P<link>\[`(?P<name>[^`\n]+)`\]\([^)\n]*/(?P=name)\))\n\n```cpp\n(?P<text>.*?)^```$", re.MULTILINE | re.DOTALL
)


def difference(expected, actual, expected_name, actual_name):
    lines = difflib.unified_diff(
        expected.splitlines(), actual.splitlines(), expected_name, actual_name, lineterm=""
    )
    return "\n".join(lines)


def expected_output(source):
    """The lines of the comment that ends a source and begins with "Prints:"."""
    _, found, comment = source.read_text(encoding="utf-8").partition("\n// Prints:\n")
    lines = comment.splitlines()
    if not found or not lines or not all(line.startswith("//   ") for line in lines):
        sys.exit(f"{source}: no comment at the end says what it prints")
    return "".join(line.removeprefix("//   ") + "\n" for line in lines)


def run(source, *command):
    expected = expected_output(pathlib.Path(source))
    result = subprocess.run(command, capture_output=True, text=True, encoding="utf-8", timeout=240)
    actual = result.stdout.expandtabs(4)  # Sources have no tabs.
    if result.returncode != 0 or actual != expected:
        print(result.stderr, end="")
        print(difference(expected, actual, source, "output"))
        sys.exit(f"{command[-1]}: exit code {result.returncode}")


def quotes(document, folder):
    text = pathlib.Path(document).read_text(encoding="utf-8")
    sources = sorted(path for path in pathlib.Path(folder).iterdir() if path.suffix in (".cpp", ".h"))
    quoted = {match["name"]: match["text"] for match in QUOTE.finditer(text)}
    errors = []
    for source in sources:
        if source.name not in quoted:
            errors.append(f"{source.name} is not quoted")
        elif quoted[source.name] != source.read_text(encoding="utf-8"):
            errors.append(difference(quoted[source.name], source.read_text(encoding="utf-8"), document, str(source)))
    listings = text.count("```cpp\n")
    if not sources or listings != len(sources):
        errors.append(f"{listings} listings, {len(sources)} sources")
    if errors:
        errors.append(f"{sys.argv[0]} update {document} {folder} puts the sources into the document")
        sys.exit("\n".join(errors))


def update(document, folder):
    def quote(match):
        source = pathlib.Path(folder) / match["name"]
        return f"{match['link']}\n\n```cpp\n{source.read_text(encoding='utf-8')}```"

    path = pathlib.Path(document)
    path.write_text(QUOTE.sub(quote, path.read_text(encoding="utf-8")), encoding="utf-8")


def main():
    commands = {"run": run, "quotes": quotes, "update": update}
    if len(sys.argv) < 4 or sys.argv[1] not in commands:
        sys.exit(__doc__)
    commands[sys.argv[1]](*sys.argv[2:])


if __name__ == "__main__":
    main()
