"""The archives of tarvo-archive, read and written after docs/archive-format.md without a line of its code."""

import struct
import zlib

HEADER, ENTRY, CONTENTS, TRAILER = 1, 2, 3, 4
MAXIMUM_CONTENTS = 1 << 20
MAXIMUM_PAYLOAD = MAXIMUM_CONTENTS + 16


class Entry:
    """`kind` is the name of the class; `contents` is for files, `target` for links."""

    def __init__(self, kind, path, permissions, time=0, contents=b"", target=""):
        self.kind = kind
        self.path = path
        self.permissions = permissions
        self.time = time  # nanoseconds since 1970
        self.contents = contents
        self.target = target

    def __eq__(self, other):
        return vars(self) == vars(other)

    def __repr__(self):
        return f"{self.kind} {self.path!r} {self.permissions:o} {self.time} {len(self.contents)} bytes {self.target!r}"


def file(path, contents=b"", permissions=0o644, time=0):
    return Entry("ArchiveFile", path, permissions, time, contents)


def folder(path, permissions=0o755, time=0):
    return Entry("ArchiveFolder", path, permissions, time)


def link(path, target, permissions=0o777, time=0):
    return Entry("ArchiveLink", path, permissions, time, target=target)


# Names are strings as Python has them for files: a byte that is not UTF-8 is the surrogate that the format has for it.

def text(value):
    units = value.encode("utf-16-le", "surrogatepass")
    count = len(units) // 2
    if count < 255:
        return b"\xff\xfe\xff" + struct.pack("<B", count) + units
    if count < 65534:
        return b"\xff\xfe\xff\xff" + struct.pack("<H", count) + units
    return b"\xff\xfe\xff\xff\xff\xff" + struct.pack("<I", count) + units


def record(kind, payload):
    data = struct.pack("<BI", kind, len(payload)) + payload
    return data + struct.pack("<I", zlib.crc32(data))


def header(version=1):
    return record(HEADER, text("Tarvo archive") + struct.pack("<I", version))


def entry_payload(entry):
    payload = text(entry.kind) + struct.pack("<I", 1) + text(entry.path)
    payload += struct.pack("<IqI", entry.permissions, entry.time // 10**9, entry.time % 10**9)
    if entry.kind == "ArchiveFile":
        payload += struct.pack("<IQ", 1, len(entry.contents))
    if entry.kind == "ArchiveLink":
        payload += struct.pack("<I", 1) + text(entry.target)
    return payload


def contents_payload(data):
    return struct.pack("<IIII", 0xFFFFFFFF, 1, len(data), 1) + data


def entry_records(entry):
    parts = [record(ENTRY, entry_payload(entry))]
    for start in range(0, len(entry.contents), MAXIMUM_CONTENTS):
        parts.append(record(CONTENTS, contents_payload(entry.contents[start:start + MAXIMUM_CONTENTS])))
    return b"".join(parts)


def checksum_of_checksums(data):
    """For whole records."""
    checksum = position = 0
    while position < len(data):
        position += 5 + struct.unpack_from("<I", data, position + 1)[0] + 4
        checksum = zlib.crc32(data[position - 4:position], checksum)
    return checksum


def finish(front, entries):
    """Adds the trailer that belongs to these records."""
    return front + record(TRAILER, struct.pack("<IQQI", 1, entries, len(front), checksum_of_checksums(front)))


def write(entries):
    return finish(header() + b"".join(map(entry_records, entries)), len(entries))


class Reader:
    def __init__(self, data):
        self.data = data
        self.position = 0

    def take(self, size):
        assert size <= len(self.data) - self.position, "ends early"
        self.position += size
        return self.data[self.position - size:self.position]

    def numbers(self, codes):
        return struct.unpack("<" + codes, self.take(struct.calcsize("<" + codes)))

    def text(self):
        assert self.take(3) == b"\xff\xfe\xff", "no text"
        count, = self.numbers("B")
        if count == 0xFF:
            count, = self.numbers("H")
            assert count >= 0xFF, "header too wide"
            if count == 0xFFFF:
                count, = self.numbers("I")
                assert count >= 65534, "header too wide"
        units = self.take(2 * count)
        value = units.decode("utf-16-le", "surrogatepass")
        assert value and "\0" not in value, "not a text of the format"
        return value

    def version(self):
        assert self.numbers("I") == (1,), "version"

    def end(self):
        assert self.position == len(self.data), "more than there should be"

    def record(self):
        start = self.position
        kind, length = self.numbers("BI")
        assert HEADER <= kind <= TRAILER and length <= MAXIMUM_PAYLOAD, "no record"
        payload = self.take(length)
        summed = self.data[start:self.position]
        assert self.numbers("I") == (zlib.crc32(summed),), "checksum of a record"
        return kind, Reader(payload)

    def entry(self, payload):
        kind = payload.text()
        payload.version()
        path = payload.text()
        assert all(part not in ("", ".", "..") for part in path.split("/")), "path"
        permissions, seconds, nanoseconds = payload.numbers("IqI")
        assert permissions <= 0o7777 and nanoseconds < 10**9
        entry = Entry(kind, path, permissions, seconds * 10**9 + nanoseconds)
        if kind == "ArchiveFile":
            payload.version()
            size, = payload.numbers("Q")
            entry.contents = b"".join(self.contents(size))
        elif kind == "ArchiveLink":
            payload.version()
            entry.target = payload.text()
        else:
            assert kind == "ArchiveFolder", "class"
        payload.end()
        return entry

    def contents(self, size):
        while size:
            part = min(size, MAXIMUM_CONTENTS)
            kind, payload = self.record()
            assert kind == CONTENTS, "no contents"
            assert payload.numbers("IIII") == (0xFFFFFFFF, 1, part, 1), "array"
            yield payload.take(part)
            payload.end()
            size -= part


def read(data):
    """The entries of an archive, every byte of which is checked."""
    reader = Reader(data)
    kind, payload = reader.record()
    assert kind == HEADER and payload.text() == "Tarvo archive", "header"
    payload.version()
    payload.end()
    entries = []
    while True:
        start = reader.position
        kind, payload = reader.record()
        if kind != ENTRY:
            break
        entries.append(reader.entry(payload))
    assert kind == TRAILER, "no trailer"
    payload.version()
    assert payload.numbers("QQI") == (len(entries), start, checksum_of_checksums(data[:start])), "trailer"
    payload.end()
    reader.end()
    return entries
