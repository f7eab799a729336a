"""Checks that the natvis file is well-formed, and that the classes and members that it names exist in the public
headers: natvis.py NATVIS HEADERS

No debugger here reads such a file. But `paths_of_samples` gives what it says of members to the test of the other
debugger views, which lets gdb evaluate it.
"""

import pathlib
import re
import sys
import xml.etree.ElementTree

NAMESPACE = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"
IDENTIFIER = r"[A-Za-z_]\w*"
PATH = re.compile(rf"(?<![\w.>]){IDENTIFIER}(?:(?:\.|->|\[\d+\]\)?->|\[\d+\]\)?\.){IDENTIFIER})*")

# The elements whose text is an expression.
EXPRESSIONS = {"StringView", "SmartPointer", "Item", "ExpandedItem", "Size", "ValuePointer", "HeadPointer", "Exec"}
NODE_EXPRESSIONS = {"NextPointer", "ValueNode"}

# Objects of the program `views`, one for each class.
SAMPLES = {
    "CString": "texts.shortText",
    "CkSmartPointer": "pointers.number",
    "CkWeakPointer": "pointers.alive",
    "CkArray": "arrays.numbers",
    "CkArrayManaged": "arrays.managed",
    "CkList": "lists.words",
    "CkMap": "maps.ages",
    "CkSet": "maps.odd",
    "CkAtomicCounter": "counters.up",
    "CkEvent": "events.manual",
    "CkException": "exceptions.own",
    "CkBaseType": "baseTypes.number",
    "CkCriticalSection": "sections.mine",
}


def embedded(text):
    """The expressions in braces of a description, in which doubled braces stand for themselves."""
    return re.findall(r"\{([^{}]+)\}", text.replace("{{", " ").replace("}}", " "))


def without_format(expression):
    return re.sub(r",(\[.*\])?\w*$", lambda match: " " + (match[1] or ""), expression)


def expressions_of(view):
    """The expressions in a Type element, those of variables replaced by what they begin with."""
    variables = {v.get("Name"): v.get("InitialValue") for v in view.iter(NAMESPACE + "Variable")}
    found = list(variables.values())
    for element in view.iter():
        name = element.tag.removeprefix(NAMESPACE)
        text = (element.text or "").strip()
        found += [element.get("Condition", "")] + embedded(element.get("Name", ""))
        if name == "DisplayString":
            found += embedded(text)
        elif name in EXPRESSIONS:
            found.append(text)
        elif name in NODE_EXPRESSIONS:
            found.append("m_head->" + text)
    for variable, initial in variables.items():
        found = [re.sub(rf"\b{variable}\b", initial, expression) for expression in found]
    return [without_format(expression) for expression in found]


def paths_of(view):
    """The members, and members of members, that a Type element names."""
    paths = {path[0] for expression in expressions_of(view) for path in PATH.finditer(expression)}
    return sorted(paths - {"nullptr", "sizeof"})


def views_of(natvis):
    """The classes of the file with their Type elements."""
    root = xml.etree.ElementTree.parse(natvis).getroot()
    assert root.tag == NAMESPACE + "AutoVisualizer", root.tag
    for view in root.iter(NAMESPACE + "Type"):
        for element in [view, *view.iter(NAMESPACE + "AlternativeType")]:
            yield element.get("Name").split("<")[0], view


def paths_of_samples(natvis):
    """Expressions for a debugger with an object of each class; what they show is not said."""
    return [
        (f"{SAMPLES[name]}.{path}", None) for name, view in views_of(natvis) for path in paths_of(view)
    ]


def main():
    natvis, headers = sys.argv[1:]
    text = "\n".join(path.read_text(encoding="utf-8") for path in sorted(pathlib.Path(headers).rglob("*.h")))
    failures = []
    names = []
    for name, view in views_of(natvis):
        names.append(name)
        if re.search(rf"\b(?:class|struct)(?: TARVO_API)? {name}\b[^;{{}}]*\{{", text) is None:
            failures.append(f"no header defines {name}")
        if not paths_of(view):
            failures.append(f"{name} shows no member")
        for member in {m for path in paths_of(view) for m in re.findall(IDENTIFIER, path)}:
            if not member.startswith("_M_") and re.search(rf"\b{member}\b *(?:;|=|\{{|\[)", text) is None:
                failures.append(f"{name}: no header declares {member}")
    failures += [f"no view of {name}" for name in SAMPLES if name not in names]
    if failures:
        sys.exit("\n".join(failures))
    print(f"{len(names)} classes, all members declared")


if __name__ == "__main__":
    main()
