# Vexmoor's types in gdb: views and arrays with their elements, records with their keys read, and a sorter in one line.
#
#     (gdb) source share/vexmoor/debug/vexmoor_gdb.py
#
# A shared library that is installed below gdb's auto-load folder brings them along.
import math
import re
import struct

import gdb
import gdb.printing


def float_of(bits):
    return struct.unpack("<f", struct.pack("<I", bits & 0xFFFFFFFF))[0]


def number(value):
    return "%.7g" % value


def count_of(count, what):
    return "%d %s%s" % (count, what, "" if count == 1 else "s")


def name_of(names, value):
    return names[value] if 0 <= value < len(names) else "unknown %d" % value


class Elements:
    """Elements that lie a stride apart. A stride of 0 has one, however often it counts."""

    def __init__(self, data, count, stride):
        self.data = data
        self.count = count
        self.stride = stride

    def children(self):
        pointer = self.data.type
        address = int(self.data)
        for i in range(self.count if self.stride != 0 else min(self.count, 1)):
            element = gdb.Value(address + i * self.stride).cast(pointer)
            yield "[%d]" % i, element.dereference()

    def display_hint(self):
        return "array"

    def describe(self):
        if self.count == 0:
            return "empty"
        if int(self.data) == 0:
            return "null, but %s" % count_of(self.count, "element")
        return "%s at 0x%x" % (count_of(self.count, "element"), int(self.data))


class MemoryView(Elements):
    def __init__(self, view):
        super().__init__(view["m_Data"], int(view["m_Count"]), view.type.strip_typedefs().template_argument(0).sizeof)

    to_string = Elements.describe


class StridedMemoryView(Elements):
    def __init__(self, view):
        element = view.type.strip_typedefs().template_argument(0)
        storage = view["m_Storage"]
        super().__init__(
            storage["m_RawDataPtr"].cast(element.pointer()), int(storage["m_Count"]), int(storage["m_Stride"]))
        self.size = element.sizeof

    def to_string(self):
        if self.count == 0:
            return self.describe()
        if self.stride == 0:
            return self.describe() + ", all the same one"
        return self.describe() + (", packed" if self.stride == self.size else ", %d bytes apart" % self.stride)


class Array(Elements):
    def __init__(self, array):
        elementType = array.type.strip_typedefs().template_argument(0)
        super().__init__(array["m_Data"], int(array["m_Count"]), elementType.sizeof)
        self.capacity = int(array["m_MaxCount"])

    def to_string(self):
        return "%s, room for %d" % (self.describe(), self.capacity)


class Vector:
    def __init__(self, vector):
        self.axes = vector["m_Axes"]

    def to_string(self):
        first, last = self.axes.type.range()
        return "(%s)" % ", ".join(number(float(self.axes[i])) for i in range(first, last + 1))


class Lanes:
    """Four lanes, as floats and as the integers that they may be."""

    def __init__(self, lanes):
        values = lanes["m_Lanes"]
        floats = values.cast(gdb.lookup_type("float").vector(3))
        self.floats = [float(floats[i]) for i in range(4)]
        integers = values.cast(gdb.lookup_type("unsigned int").vector(3))
        self.integers = [int(integers[i]) for i in range(4)]

    def to_string(self):
        return "(%s), as integers (%s)" % (
            ", ".join(map(number, self.floats)), ", ".join("0x%08x" % i for i in self.integers))


class Record:
    """A key says nothing of what it was made from: it is read as either."""

    def __init__(self, record):
        self.key = int(record["m_Depth"])
        self.index = int(record["m_Index"])

    def to_string(self):
        return "index %d, %s" % (self.index, self.readings())

    def readings(self):
        if self.key & 0x80000000 == 0:
            value = float_of(~self.key)
            if math.isnan(value):
                return "value nan"
            return "value %s, or distance %s where particles are disabled" % (number(value), number(math.sqrt(-value)))
        value = float_of(self.key ^ 0x80000000)
        squared = float_of(~self.key)
        if math.isnan(squared):
            return "distance nan or value %s" % number(value)
        return "distance %s (squared %s) or value %s" % (number(math.sqrt(squared)), number(squared), number(value))


class Sorter:
    INDEX_TYPES = ("no output", "16-bit", "32-bit")
    SORT_TYPES = ("no input", "by position", "by value")
    GEOMETRY_TYPES = (
        "no geometry", "one pattern", "one pattern and an index list", "one pattern, an index list and sorted quads",
        "a pattern per page")

    def __init__(self, sorter):
        self.sorter = sorter
        self.index_type = int(sorter["m_IndexType"])
        self.sort_type = int(sorter["m_SortType"])
        self.geometry_type = int(sorter["m_GeometryType"])

    def to_string(self):
        return "%s; %s; %s" % (self.input(), self.geometry(), self.output())

    def input(self):
        if self.sort_type == 0:
            return self.SORT_TYPES[0]
        pages = int(self.sorter["m_InRenderedParticleCounts"]["m_Storage"]["m_Count"])
        particles = int(self.sorter["m_ParticleCount"])
        return "%s, %s in %s" % (
            name_of(self.SORT_TYPES, self.sort_type), count_of(particles, "particle"), count_of(pages, "page"))

    def geometry(self):
        name = name_of(self.GEOMETRY_TYPES, self.geometry_type)
        if self.geometry_type == 4:
            return "%s, %d indices" % (name, int(self.sorter["m_IndexCount_fromBB"]))
        if self.geometry_type == 0:
            return name
        return "%s of %d indices" % (name, int(self.sorter["m_IndexPattern"]["m_Count"]))

    def output(self):
        if self.index_type == 0:
            return self.INDEX_TYPES[0]
        return "room for %d %s indices, vertex count %d" % (
            int(self.sorter["m_IndexCount"]), name_of(self.INDEX_TYPES, self.index_type),
            int(self.sorter["m_VertexCount"]))

    def members(self):
        if self.index_type != 0:
            yield "m_OutIndices16" if self.index_type == 1 else "m_OutIndices32"
        if self.sort_type != 0:
            yield "m_InPositions" if self.sort_type == 1 else "m_InSortKeys"
            yield "m_InEnableds"
            yield "m_InRenderedParticleCounts"
            if self.sort_type == 1 or self.geometry_type == 3:
                yield "m_CameraPosition"
        if self.geometry_type in (1, 2, 3):
            yield "m_IndexPattern"
        if self.geometry_type in (1, 3):
            yield "m_PrimiteVertexCount"
        if self.geometry_type in (2, 3):
            yield "m_IndexList"
        if self.geometry_type == 3:
            yield "m_QuadCenters"
        if self.geometry_type == 4:
            yield "m_IndexPatternCollection"
            yield "m_PrimiteVertexCountCollection"

    def children(self):
        return ((name, self.sorter[name]) for name in self.members())


PRINTERS = (
    ("TMemoryView<.*>", MemoryView),
    ("TStridedMemoryView<.*>", StridedMemoryView),
    ("TArray<.*>", Array),
    ("TVector<.*>", Vector),
    ("Float4", Lanes),
    ("SIndexAndDepth", Record),
    ("CTriangleSorter", Sorter),
)


def register(objfile):
    printers = gdb.printing.RegexpCollectionPrettyPrinter("Vexmoor")
    for name, printer in PRINTERS:
        printers.add_printer(re.sub("<.*", "", name), "^Vexmoor::%s$" % name, printer)
    gdb.printing.register_pretty_printer(objfile, printers, replace=True)


register(gdb.current_objfile())
