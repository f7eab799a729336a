"""Shows objects of the Tarvo library in gdb as what they mean: texts, elements, entries, who holds a lock.

    (gdb) source tarvo_gdb.py

gdb also finds the file by itself where it lies beside the library as libTarvo.so.<version>-gdb.py, in a folder that
`auto-load safe-path` names. `info pretty-printer .* Tarvo` lists the views, `disable pretty-printer .* Tarvo` turns
them off, and `print /r` shows an object without them.

The views need what the debug information of the client's own code says of the types, and nothing of the library's. g++
leaves out classes that have virtual functions in the library, such as the exceptions and the base types, clang does so
with more: gdb then knows them only as "<incomplete type>", and no view is asked. Either the library is built with debug
information, or the client with -femit-class-debug-always (g++) or -fstandalone-debug (clang).

Nothing is called in the program, so that the views work on core files as well. An object that is not constructed, has
been destroyed or was overwritten is shown as far as it can be read, and no view raises an error.
"""

import gdb
import gdb.printing
import gdb.types


class Corrupt(Exception):
    """An object whose members contradict each other."""


class NotDescribed(Exception):
    """An object of a class that the debug information names only."""


def failure(error):
    """What is shown in place of what could not be."""
    if isinstance(error, Corrupt):
        return "<corrupt: %s>" % error
    if isinstance(error, NotDescribed):
        return "<no debug information for %s>" % error
    if isinstance(error, gdb.MemoryError):
        return "<cannot be read: %s>" % error
    return "<cannot be shown: %s>" % error


def plural(count, singular, several):
    return "%d %s" % (count, singular if count == 1 else several)


def template_name(name):
    return (name or "").split("<", 1)[0]


def data_fields(of_type):
    """The fields and base classes that lie in an object."""
    return [field for field in of_type.fields() if hasattr(field, "bitpos")]


def innermost(value):
    """What the layers of an atomic or a fixed array wrap, whatever the standard library calls them."""
    kind = value.type.strip_typedefs()
    while kind.code == gdb.TYPE_CODE_STRUCT:
        fields = data_fields(kind)
        if not fields:
            raise NotDescribed(kind.name)
        value = value[fields[0]]
        kind = value.type.strip_typedefs()
    return value


def derives_from(of_type, name):
    """Whether a class, or one of its base classes, is `name` or made from the template `name`."""
    of_type = of_type.strip_typedefs()
    if template_name(of_type.name) == name:
        return True
    return any(field.is_base_class and derives_from(field.type, name) for field in of_type.fields())


def require_fields(of_type):
    """Raises unless the debug information says what objects of the type consist of."""
    if not of_type.strip_typedefs().fields():
        raise NotDescribed(of_type.name)


def require_base(value, name):
    """The same for the base class `name` of an object."""

    def find(of_type):
        of_type = of_type.strip_typedefs()
        if template_name(of_type.name) == name:
            return of_type
        bases = (find(field.type) for field in of_type.fields() if field.is_base_class)
        return next((base for base in bases if base is not None), None)

    base = find(value.type)
    if base is None:
        raise NotDescribed(name)
    require_fields(base)


def as_dynamic(value):
    """The object as one of its own class, where it can be told, else as it is."""
    try:
        own_type = value.dynamic_type.unqualified()
        static_type = value.type.unqualified()
        if value.address is None or own_type.code != gdb.TYPE_CODE_STRUCT or own_type == static_type:
            return value
        return value.address.cast(static_type.pointer()).cast(own_type.pointer()).dereference()
    except gdb.error:
        return value


def own_fields(value, name):
    """The fields that derived classes add to the class `name`."""
    own_type = value.type.strip_typedefs()
    if template_name(own_type.name) == name:
        return
    for field in data_fields(own_type):
        if field.is_base_class:
            yield from own_fields(value[field], name)
        elif not field.artificial and field.name is not None:
            yield field.name, value[field]


def is_readable(pointer):
    try:
        gdb.selected_inferior().read_memory(int(pointer), 1)
        return True
    except (gdb.error, OverflowError):
        return False


# Texts


LONGEST_TEXT = 0x7FFFFFFE


def units_of(text):
    """The units of a CString, as a pointer or, where they lie in a value that is not in memory, as an array; and their
    number."""
    buffer = text["m_text"]
    units = buffer["_M_dataplus"]["_M_p"]
    length = int(buffer["_M_string_length"])
    in_place = buffer["_M_local_buf"]
    if lies_in_place(buffer):
        capacity = in_place.type.range()[1]
        units = units if buffer.address is not None else in_place
    else:
        capacity = int(buffer["_M_allocated_capacity"])
    if length > LONGEST_TEXT or length > capacity:
        raise Corrupt("%d units in room for %d" % (length, capacity))
    end = units[length] if units.type.code == gdb.TYPE_CODE_ARRAY else (units + length).dereference()
    if int(end) != 0:
        raise Corrupt("no zero behind %s" % plural(length, "unit", "units"))
    return units, length


def lies_in_place(buffer):
    pointer = int(buffer["_M_dataplus"]["_M_p"])
    # The address of an array alone would make gdb allocate memory in the program for one that is not there.
    if buffer.address is not None:
        return pointer == int(buffer["_M_local_buf"].address)
    # What a function returned when gdb called it lay on the stack.
    return abs(pointer - int(gdb.parse_and_eval("(unsigned long long)$sp"))) < 1 << 20


def decoded(units, count):
    """The first units as a text of Python's."""
    if units.type.code == gdb.TYPE_CODE_ARRAY:
        data = b"".join(int(units[i]).to_bytes(2, "little") for i in range(count))
    else:
        data = bytes(gdb.selected_inferior().read_memory(int(units), 2 * count)) if count != 0 else b""
    return data.decode("utf-16-le", "replace")


def encodable(text):
    """The text with escapes for what gdb could not pass on to the terminal."""
    for charset in (gdb.target_charset(), gdb.host_charset()):
        try:
            text = text.encode(charset, "backslashreplace").decode(charset)
        except (LookupError, UnicodeError):
            text = text.encode("ascii", "backslashreplace").decode("ascii")
    return text


def printable(text):
    """The same with escapes for control characters as well."""
    return encodable("".join(c if c.isprintable() else c.encode("unicode_escape").decode("ascii") for c in text))


def short_text(text):
    """A CString for use in a description."""
    units, length = units_of(text)
    limit = gdb.parameter("print elements")
    shown = length if limit is None else min(length, limit)
    return printable(decoded(units, shown)) + ("..." if shown < length else "")


# Views. A view describes an object in `describe` and may have `elements`, both of which may raise.


class View:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            return self.describe()
        except Exception as error:  # gdb would print where in this file it came from
            return failure(error)

    def can_be_described(self):
        try:
            self.describe()
            return True
        except Exception:
            return False


class ContainerView(View):
    hint = "array"

    def display_hint(self):
        return self.hint

    def children(self):
        elements = self.elements()
        while True:
            try:
                child = next(elements)
            except StopIteration:
                return
            except Exception as error:
                # Else the description says it already.
                if self.can_be_described():
                    yield from self.broken_off(failure(error))
                return
            yield child

    def broken_off(self, text):
        yield "", text


class TextView(View):
    def describe(self):
        units, length = units_of(self.value)
        if units.type.code == gdb.TYPE_CODE_ARRAY:
            return encodable(decoded(units, length))
        return units.lazy_string(length=length)

    def display_hint(self):
        # What is shown in place of a text gets no quotes.
        return "string" if self.can_be_described() else None


class CounterView(View):
    def describe(self):
        return innermost(self.value["m_value"])


class SmartPointerView(View):
    """With the object itself where that is one value, else with its address: objects may lead back to each other."""

    def describe(self):
        name = template_name(self.value.type.strip_typedefs().name)
        pointer = self.pointer()
        if pointer is None:
            return name + self.nothing()
        if not is_readable(pointer):
            return "%s to 0x%x <cannot be read>" % (name, int(pointer))
        target = as_dynamic(pointer.dereference())
        return "%s to %s%s" % (name, target.type.unqualified().name, self.count_of(target))

    def pointer(self):
        pointer = self.value["m_object"]
        return pointer if int(pointer) != 0 else None

    def nothing(self):
        return ", empty"

    @staticmethod
    def count_of(target):
        try:
            count = int(innermost(target["m_referenceCount"]))
        except (gdb.error, NotDescribed):
            return ""
        return ", " + plural(count, "reference", "references")

    def children(self):
        try:
            pointer = self.pointer()
            if pointer is None or not is_readable(pointer):
                return
            target = as_dynamic(pointer.dereference())
            is_value = derives_from(target.type, "CkBaseType") or derives_from(target.type, "CkException")
            child = ("*", target) if is_value else ("Get()", target.address)
        except Exception:
            return
        yield child


class WeakPointerView(SmartPointerView):
    def pointer(self):
        target = innermost(self.value["m_reference"]["target"])
        return super().pointer() if int(target) != 0 else None

    def nothing(self):
        return ", empty" if super().pointer() is None else ", expired or reset"


class ArrayView(ContainerView):
    def describe(self):
        name = template_name(self.value.type.strip_typedefs().name)
        count, room = self.checked_counts()
        return "%s of %s, room for %d" % (name, plural(count, "element", "elements"), room)

    def checked_counts(self):
        require_base(self.value, "CkArray")
        data = self.value["m_data"]
        count = int(self.value["m_elementCount"])
        room = int(self.value["m_memoryElementCount"])
        if count > room or (count != 0 and int(data) == 0):
            raise Corrupt("%s in room for %d at 0x%x" % (plural(count, "element", "elements"), room, int(data)))
        if count != 0:
            (data + (count - 1)).dereference().fetch_lazy()
        return count, room

    def elements(self):
        count, _ = self.checked_counts()
        for index in range(count):
            yield "[%d]" % index, (self.value["m_data"] + index).dereference()


class ListView(ContainerView):
    def describe(self):
        count = self.checked_count()
        if count is None:
            return "CkList, not counted" if int(self.value["m_head"]) != 0 else "CkList, not counted, empty"
        return "CkList of " + plural(count, "element", "elements")

    def checked_count(self):
        """The count; None where the list keeps none."""
        head = self.value["m_head"]
        if (int(head) == 0) != (int(self.value["m_tail"]) == 0):
            raise Corrupt("head 0x%x, tail 0x%x" % (int(head), int(self.value["m_tail"])))
        if int(head) != 0:
            require_fields(head.type.target())
            head.dereference().fetch_lazy()
        if int(self.value.type.strip_typedefs().template_argument(1)) & 1 == 0:
            return None
        count = int(self.value["m_count"])
        if (count == 0) != (int(head) == 0):
            raise Corrupt("%s, head 0x%x" % (plural(count, "element", "elements"), int(head)))
        return count

    def elements(self):
        count = self.checked_count()
        node = self.value["m_head"]
        seen = set()
        while int(node) != 0:
            if int(node) in seen:
                raise Corrupt("node 0x%x follows itself" % int(node))
            if len(seen) == count:
                raise Corrupt("more than the %s counted" % plural(count, "element", "elements"))
            following = node.dereference()["next"]
            following.fetch_lazy()
            yield "[%d]" % len(seen), node.dereference()["element"]
            seen.add(int(node))
            node = following
        if count is not None and len(seen) != count:
            raise Corrupt("%d of %d elements" % (len(seen), count))


def associations(map_value):
    """The entries of a map in the order of its own iteration."""
    count = int(map_value["m_count"])
    buckets = innermost(map_value["m_buckets"])
    first, last = buckets.type.strip_typedefs().range()
    seen = 0
    for bucket in range(first, last + 1):
        node = buckets[bucket]
        while int(node) != 0:
            if seen == count:
                raise Corrupt("more than the %s counted" % plural(count, "entry", "entries"))
            require_fields(node.type.target())
            association = node.dereference()
            node = association["next"]
            node.fetch_lazy()
            yield association
            seen += 1
    if seen != count:
        raise Corrupt("%d of %d entries" % (seen, count))


class MapView(ContainerView):
    hint = "map"

    def describe(self):
        next(associations(self.value), None)
        return "CkMap of " + plural(int(self.value["m_count"]), "entry", "entries")

    def elements(self):
        for association in associations(self.value):
            yield "", association["key"]
            yield "", association["value"]

    def broken_off(self, text):
        yield "", "..."
        yield "", text


class SetView(ContainerView):
    def describe(self):
        entries = self.value["m_map"]
        next(associations(entries), None)
        return "CkSet of " + plural(int(entries["m_count"]), "element", "elements")

    def elements(self):
        for index, association in enumerate(associations(self.value["m_map"])):
            yield "[%d]" % index, association["key"]


class BaseTypeView(View):
    def describe(self):
        require_base(self.value, "CkBaseType")
        return self.value["m_value"]

    def children(self):
        try:
            yield from list(own_fields(self.value, "CkBaseType"))
        except Exception:
            return


class ExceptionView(View):
    def describe(self):
        text = self.one(self.value)
        seen = set()
        cause = self.cause_of(self.value)
        limit = gdb.parameter("print elements")
        while cause is not None:
            if int(cause) in seen:
                return text + ", caused by <corrupt: an exception that it caused>"
            if limit is not None and len(seen) == limit:
                return text + ", ..."
            seen.add(int(cause))
            try:
                text += ", caused by " + self.one(cause.dereference())
                cause = self.cause_of(cause.dereference())
            except Exception as error:
                return text + ", caused by " + failure(error)
        return text

    @staticmethod
    def one(value):
        require_base(value, "CkException")
        value = as_dynamic(value)
        place = "%s, line %d" % (short_text(value["m_fileName"]), int(value["m_codeLine"]))
        return "%s at %s, thread %d" % (value.type.unqualified().name, place, int(value["m_threadId"]))

    @staticmethod
    def cause_of(value):
        cause = value["m_history"]["m_object"]
        return cause if int(cause) != 0 else None

    def children(self):
        try:
            yield from list(own_fields(as_dynamic(self.value), "CkException"))
        except Exception:
            return


class CriticalSectionView(View):
    def describe(self):
        owner = int(innermost(self.value["m_owner"]))
        recursion = int(self.value["m_recursionCount"])
        waiting = int(innermost(self.value["m_waiters"])) >> 1  # the lowest bit: one is being woken
        text = "free" if owner == 0 else "held by thread %d%s, recursion %d" % (owner, self.named(owner), recursion)
        return text + (", %s asleep" % plural(waiting, "thread", "threads") if waiting > 0 else "")

    @staticmethod
    def named(owner):
        for thread in gdb.selected_inferior().threads():
            if owner in thread.ptid[1:]:
                return " (%d in gdb)" % thread.num
        return ""


# Events. Elsewhere than on Linux the kernel keeps to itself what a handle means, and shows no such bits in it.


MANUAL_EVENT_BIT = 1 << 32
AUTO_EVENT_BIT = 1 << 33


class Slot:
    """An entry in the library's table of kernel objects, as far as events need it."""

    SIZE = 64
    COUNT = 1 << 22
    SIGNALS = 0x7FFFFFFF
    QUEUED = 1 << 31
    OPEN = 1 << 32
    GENERATIONS = ~((1 << 34) - 1) & 0xFFFFFFFFFFFFFFFF
    MANUAL_EVENT, AUTO_EVENT, DUPLICATE = 1, 2, 5

    def __init__(self, address):
        data = bytes(gdb.selected_inferior().read_memory(address, self.SIZE))
        self.word = int.from_bytes(data[0:8], "little")
        self.kind = int.from_bytes(data[8:12], "little")
        self.target = int.from_bytes(data[16:24], "little")
        self.target_generation = int.from_bytes(data[24:32], "little")

    @classmethod
    def of_handle(cls, table, handle):
        """The slot that an open handle names; None for any other number."""
        low = handle & 0xFFFFFFFF
        if low % 4 != 0 or not 1 <= low // 4 <= cls.COUNT:
            return None
        slot = cls(table + (low // 4 - 1) * cls.SIZE)
        expected = (handle & cls.GENERATIONS) | cls.OPEN
        return slot if slot.word & (cls.GENERATIONS | cls.OPEN) == expected else None


class EventView(View):
    def describe(self):
        handle = int(self.value["m_handle"]) & 0xFFFFFFFFFFFFFFFF
        if handle == 0:
            return "CkEvent without a handle"
        return "CkEvent 0x%x%s" % (handle, self.state_of(handle))

    def state_of(self, handle):
        table = self.slot_table()
        if table is None:
            return self.kind_of(handle)
        slot = Slot.of_handle(table, handle)
        if slot is not None and slot.kind == Slot.DUPLICATE:
            generation = slot.target_generation
            slot = Slot(slot.target)
            if slot.word & Slot.GENERATIONS != generation:
                slot = None
        if slot is None:
            return ", not an open handle"
        if slot.kind not in (Slot.MANUAL_EVENT, Slot.AUTO_EVENT):
            return ", not an event"
        reset = ", manual reset" if slot.kind == Slot.MANUAL_EVENT else ", auto-reset"
        state = ", set" if slot.word & Slot.SIGNALS != 0 else ", not set"
        return reset + state + (", waited for" if slot.word & Slot.QUEUED != 0 else "")

    @staticmethod
    def kind_of(handle):
        if handle & MANUAL_EVENT_BIT:
            return ", manual reset"
        return ", auto-reset" if handle & AUTO_EVENT_BIT else ""

    @staticmethod
    def slot_table():
        """The address of the table; None where the symbol was stripped, or there is no such thing."""
        try:
            return int(gdb.parse_and_eval("(unsigned long long)&'tarvo::kernel::g_slots'"))
        except gdb.error:
            return None


# Finding the view of an object


VIEWS = {
    "CString": TextView,
    "CkSmartPointer": SmartPointerView,
    "CkWeakPointer": WeakPointerView,
    "CkArray": ArrayView,
    "CkArrayManaged": ArrayView,
    "CkList": ListView,
    "CkMap": MapView,
    "CkSet": SetView,
    "CkAtomicCounter": CounterView,
    "CkEvent": EventView,
    "CkCriticalSection": CriticalSectionView,
}

# Those of a class and of all that derive from it.
VIEWS_OF_FAMILIES = {
    "CkException": ExceptionView,
    "CkBaseType": BaseTypeView,
}


class SubPrinter:
    def __init__(self, name):
        self.name = name
        self.enabled = True


class TarvoPrinter(gdb.printing.PrettyPrinter):
    def __init__(self):
        names = list(VIEWS) + list(VIEWS_OF_FAMILIES)
        super().__init__("Tarvo", [SubPrinter(name) for name in sorted(names)])

    def __call__(self, value):
        try:
            return self.view_of(value)
        except Exception:  # no view is better than none of any object
            return None

    def view_of(self, value):
        if value.type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
            value = value.referenced_value()
        kind = gdb.types.get_basic_type(value.type)
        if kind.code != gdb.TYPE_CODE_STRUCT or kind.name is None:
            return None
        enabled = {printer.name for printer in self.subprinters if printer.enabled}
        name = template_name(kind.name)
        if name in VIEWS and name in enabled:
            return VIEWS[name](value)
        for family, view in VIEWS_OF_FAMILIES.items():
            if family in enabled and derives_from(kind, family):
                return view(value)
        return None


gdb.printing.register_pretty_printer(gdb.current_objfile(), TarvoPrinter(), replace=True)
