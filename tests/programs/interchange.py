"""Exchanges stored values with the program `interchange`: interchange.py PROGRAM [ARGUMENT...]

Decodes what the program stores and encodes values for it to read. This is the format as it is described, without a line
of the library: numbers are little-endian without tags or padding, float and double IEEE 754, a text is a header and its
UTF-16 units, an object here the name of its class and its value, and an array a mark, a version, a count, the width of
an element and the elements. What tests/fixtures holds of each version is read by both.
"""

import math
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

FIXTURES = pathlib.Path(__file__).resolve().parents[1] / "fixtures"

# The struct code of each class that holds a number.
NUMBERS = {
    "CkBool": "B", "CkInt8": "b", "CkInt16": "h", "CkInt32": "i", "CkLong": "i", "CkInt64": "q", "CkUInt8": "B",
    "CkUInt16": "H", "CkUInt32": "I", "CkULong": "I", "CkUInt64": "Q", "CkFloat32": "f", "CkFloat64": "d",
    "CkChar": "B",
}

TEXT_LENGTHS = [0, 1, 127, 128, 254, 255, 256, 65533, 65534, 65535, 70000]


def text_of(length):
    """The units of a text that the program knows, too."""
    return [1 + i * 31 % 65535 for i in range(length)]


def element(i, width, seed):
    return 0x0123456789ABCDEF * seed * (i + 1) % 2 ** (8 * width)


class Reader:
    def __init__(self, data):
        self.data = data
        self.position = 0

    def number(self, code):
        value, = struct.unpack_from("<" + code, self.data, self.position)
        self.position += struct.calcsize("<" + code)
        return value

    def text_length(self):
        """Accepts only the header that a writer must choose for the length."""
        assert self.number("B") == 0xFF and self.number("H") == 0xFFFE, "not a wide text"
        length = self.number("B")
        if length < 0xFF:
            return length
        length = self.number("H")
        if length < 0xFFFE:
            assert length >= 0xFF, "header too wide"
            return length
        assert length == 0xFFFF, "65534 stands in 32 bits"
        length = self.number("I")
        assert 0xFFFE <= length < 0xFFFFFFFF, "header too wide"
        return length

    def text(self):
        return [self.number("H") for _ in range(self.text_length())]

    def name(self):
        return "".join(map(chr, self.text()))

    def object(self):
        name = self.name()
        if name == "Branch":
            assert self.number("I") == 1, "version"
            text, count = self.text(), self.number("I")
            return name, text, [self.object() for _ in range(count)]
        return name, self.text() if name == "CkString" else self.number(NUMBERS[name])

    def array(self, width, code=None):
        assert self.number("I") == 0xFFFFFFFF, "no mark"
        assert self.number("I") == 1, "version"
        count = self.number("I")
        assert self.number("I") == width, "width"
        return [self.number(code or {1: "B", 2: "H", 4: "I", 8: "Q"}[width]) for _ in range(count)]


def check(data):
    """The values that the program writes."""
    numbers = [
        ("CkBool", 1), ("CkBool", 0), ("CkInt8", -128), ("CkInt16", -12345), ("CkInt32", -1234567890),
        ("CkLong", -2147483648), ("CkInt64", -1234567890123456789), ("CkUInt8", 254), ("CkUInt16", 54321),
        ("CkUInt32", 3456789012), ("CkULong", 4294967295), ("CkUInt64", 12345678901234567890),
        ("CkFloat32", -0.15625), ("CkFloat64", 1e-310), ("CkFloat64", -math.inf), ("CkChar", ord("z")),
    ]
    reader = Reader(data)
    for expected in numbers + [("CkString", text_of(length)) for length in TEXT_LENGTHS]:
        found = reader.object()
        assert found == expected, f"{expected[0]} before byte {reader.position}"
    for width, count in [(1, 0), (1, 300), (1, 3), (2, 5), (2, 5), (4, 7), (4, 7), (8, 9), (8, 0)]:
        found = reader.array(width)
        assert found == [element(i, width, 1) for i in range(count)], f"array before byte {reader.position}"
    assert reader.position == len(data), "more than expected"


# The least, the greatest, and for floats the least of normal size and the least at all, as bytes.
FLOATS = {
    "f": ["ffff7fff", "ffff7f7f", "00008000", "01000000", "00000080", "000080ff"],
    "d": ["ffffffffffffefff", "ffffffffffffef7f", "0000000000001000", "0100000000000000", "0000000000000080",
          "000000000000f0ff"],
}


def extremes(code):
    """What is stored of each type: the least, 0, 1 and the greatest."""
    if code == "?":
        return [0, 0, 1, 1]
    if code in FLOATS:
        least, greatest = (struct.unpack("<" + code, bytes.fromhex(number))[0] for number in FLOATS[code][:2])
        return [least, 0.0, 1.0, greatest]
    bits = 8 * struct.calcsize("<" + code)
    return [0, 0, 1, 2**bits - 1] if code.isupper() else [-2**(bits - 1), 0, 1, 2**(bits - 1) - 1]


def utf16(value):
    data = value.encode("utf-16-le")
    return list(struct.unpack(f"<{len(data) // 2}H", data))


def check_fixture(data):
    """The values that the program stores for later versions."""
    reader = Reader(data)
    for code in "?bBbhHiIiIqQfd":
        assert [reader.number(code) for _ in range(4)] == extremes(code), f"values before byte {reader.position}"
    for name, code in [("CkBool", "?"), ("CkInt8", "b"), ("CkInt16", "h"), ("CkInt32", "i"), ("CkLong", "i"),
                       ("CkInt64", "q"), ("CkUInt8", "B"), ("CkUInt16", "H"), ("CkUInt32", "I"), ("CkULong", "I"),
                       ("CkUInt64", "Q"), ("CkFloat32", "f"), ("CkFloat64", "d"), ("CkChar", "b")]:
        expected = [value % 256 if name == "CkChar" else value for value in extremes(code)]
        assert [reader.object() for _ in range(4)] == [(name, value) for value in expected], name
    for name, code in ("CkFloat32", "f"), ("CkFloat64", "d"):
        size = struct.calcsize("<" + code)
        for number in (FLOATS[code][i] for i in (4, 2, 3, 5)):
            assert reader.name() == name
            reader.position += size
            assert data[reader.position - size:reader.position].hex() == number, f"before byte {reader.position}"
    for length in 0, 1, 254, 255, 256:
        assert reader.object() == ("CkString", text_of(length)), f"text of {length}"
    assert reader.object() == ("CkString", utf16("narrow"))
    assert reader.object() == ("CkString", utf16("\u00e4 \u65e5\u672c\u8a9e \U0001f600"))
    assert reader.text() == utf16("\u0436")
    for width, code, expected in [
            (1, "B", []), (1, "B", [0, 127, 128, 255]), (2, "h", [-32768, -1, 0, 32767]),
            (4, "i", [-2**31, 0, 2**31 - 1]), (8, "Q", [0, 2**64 - 1]), (8, "d", [-0.15625, sys.float_info.max])]:
        assert reader.array(width, code) == expected, f"array before byte {reader.position}"
    assert reader.object() == ("Branch", utf16("root"), [
        ("CkInt16", -2), ("Branch", [], []),
        ("Branch", utf16("inner \u0436"), [("CkString", utf16("leaf")), ("CkFloat64", -0.15625),
                                           ("Branch", utf16("innermost"), [("CkBool", 1)])])])
    assert reader.position == len(data), "more than expected"


def units(values):
    return struct.pack(f"<{len(values)}H", *values)


def header(length, form=None):
    """In the form that the length needs, or a wider one: its length field in that many bytes."""
    if form is None:
        form = 1 if length < 255 else 2 if length < 65534 else 4
    marks = {1: b"", 2: b"\xff", 4: b"\xff\xff\xff", 8: b"\xff" * 7}
    return b"\xff\xfe\xff" + marks[form] + length.to_bytes(form, "little")


def text(values, form=None):
    return header(len(values), form) + units(values)


def named(name):
    return text([ord(letter) for letter in name])


def array(width, count, version=True):
    data = struct.pack("<II", 0xFFFFFFFF, 1) if version else b""
    data += struct.pack("<II", count, width)
    return data + b"".join(element(i, width, 2).to_bytes(width, "little") for i in range(count))


def make():
    """The values that the program expects."""
    numbers = [
        ("CkBool", 0), ("CkBool", 2), ("CkInt8", 127), ("CkInt16", 23456), ("CkInt32", 2109876543), ("CkLong", -2),
        ("CkInt64", 8765432109876543210), ("CkUInt8", 129), ("CkUInt16", 0xFFFE), ("CkUInt32", 2345678901),
        ("CkULong", 4294967294), ("CkUInt64", 9876543210987654321), ("CkFloat32", 16777216.0),
        ("CkFloat64", -1.0 / 3), ("CkFloat64", sys.float_info.max), ("CkChar", 0xE4),
    ]
    texts = [text(text_of(length)) for length in TEXT_LENGTHS]
    texts += [text(text_of(3), 2), text(text_of(4), 4), text(text_of(5), 8), text(text_of(65534), 2)]
    texts += [text(text_of(2) + [0, 65])]
    arrays = [(1, 0), (1, 400), (1, 4), (2, 6), (2, 6), (4, 8), (4, 8), (8, 1), (8, 1)]
    arrays_without_version = [(1, 2), (2, 0), (8, 3)]
    return b"".join(
        [named(name) + struct.pack("<" + NUMBERS[name], value) for name, value in numbers]
        + [named("CkString") + stored for stored in texts]
        + [array(width, count) for width, count in arrays]
        + [array(width, count, version=False) for width, count in arrays_without_version])


def main(program):
    # By bare names in a folder of their own, which the program may see under another path.
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(program + ["write", "program.bin"], cwd=folder, check=True)
        check((pathlib.Path(folder) / "program.bin").read_bytes())
        (pathlib.Path(folder) / "script.bin").write_bytes(make())
        subprocess.run(program + ["read", "script.bin"], cwd=folder, check=True)
        versions = sorted(path.parent for path in FIXTURES.glob("*/records.bin"))
        assert versions and versions[0].name == "0.1", versions
        for version in versions:
            check_fixture((version / "records.bin").read_bytes())
            shutil.copy(version / "records.bin", folder)
            subprocess.run(program + ["restore", "records.bin"], cwd=folder, check=True)
            subprocess.run(program + ["describe", "described.txt"], cwd=folder, check=True)
            described = (pathlib.Path(folder) / "described.txt").read_text(encoding="utf-8")
            assert described == (version / "descriptions.txt").read_text(encoding="utf-8"), described


main(sys.argv[1:])
