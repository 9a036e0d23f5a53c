"""What Vx objects contain, as text: shared by the front ends for gdb and lldb.

A front end wraps the debugger's values in a class with

    value[name]                   a member, also one of a base class
    int(value)                    a number, or the address that a pointer contains
    value.address                 where the value is
    value.target()                what a pointer points to
    value.read(address, size)     bytes of the process; raises Unreadable
    value.type_name               without const, references and typedefs
    value.template_argument(i)    a type, with name, size and at(address), a value of that type
    value.pointer_type()          the type that a pointer points to

and replaces the two functions of `settings`. Each formatter takes such a value and returns a Shown.

Formatters only read memory, so they work on core files and in broken processes.
"""

import functools
import re
import struct

# Sizes in the binary interface, which are fixed.
BLOCK_HEADER = 24  # LightweightString::Impl
RB_NODE_HEADER = 32  # std::_Rb_tree_node_base
# A longer list is assumed to be uninitialised memory.
MOST_ITEMS = 1 << 26
MOST_CHARACTERS = 60000


class Damaged(Exception):
    """The memory does not contain a valid object."""


class Unreadable(Exception):
    """The memory cannot be read."""


class settings:
    """What a front end knows about its user."""

    # How many characters or items the user wants to see, or None for all.
    shown_elements = staticmethod(lambda: 200)
    # The debugger's name of the thread with a kernel identifier.
    thread_name = staticmethod(lambda identifier: "LWP %d" % identifier)


class Shown:
    """A text, and the parts that the debugger shows below it: pairs of a name and a value, which is
    the debugger's, a Text or an Items. kind is "map", "array" or None."""

    def __init__(self, text, children=(), kind=None):
        self.text, self.children, self.kind = text, children, kind


def guarded(formatter):
    """Turns every failure into the text, so that users see no Python stack."""

    @functools.wraps(formatter)
    def safe(value):
        try:
            return formatter(value)
        except Damaged as damage:
            return Shown("<damaged: %s>" % damage)
        except Unreadable as error:
            return Shown("<unreadable: %s>" % error)
        except Exception as error:  # of the debugger
            return Shown("<not shown: %s>" % error)

    return safe


def limited(count):
    """Returns how many of count items the user wants to see."""
    wanted = settings.shown_elements()
    return min(count, MOST_CHARACTERS if wanted is None else wanted)


# --- Characters

ESCAPES = {'"': '\\"', "\\": "\\\\", "\n": "\\n", "\r": "\\r", "\t": "\\t", "\a": "\\a",
           "\b": "\\b", "\f": "\\f", "\v": "\\v", "\x1b": "\\033"}


def escaped(character):
    """Returns a character as C++ source has it. Bytes that are no UTF-8 come as surrogates."""
    if character in ESCAPES:
        return ESCAPES[character]
    if character.isprintable():
        return character
    if 0xDC80 <= ord(character) <= 0xDCFF:
        return "\\%03o" % (ord(character) - 0xDC00)
    if ord(character) < 0x80:
        return "\\%03o" % ord(character)
    return "\\u%04x" % ord(character)


def quoted_bytes(data):
    return '"%s"' % "".join(map(escaped, data.decode("utf-8", "surrogateescape")))


def quoted_wide(data):
    units = struct.unpack("<%dI" % (len(data) // 4), data)
    return 'L"%s"' % "".join(
        escaped(chr(unit)) if unit < 0xD800 or 0xE000 <= unit < 0x110000 else "\\x%x" % unit
        for unit in units)


def quoted_c_string(value):
    """Returns the NUL-terminated string that a value points to in quotes, or None for null."""
    address = int(value)
    return quoted_bytes(c_string(value, address)) if address else None


def c_string(value, address):
    data = b""
    while b"\0" not in data and len(data) < MOST_CHARACTERS:
        size = min(256, 4096 - (address + len(data)) % 4096)  # never into the next page
        data += value.read(address + len(data), size)
    return data.partition(b"\0")[0]


class Text:
    """The contents of a LightweightString, validated."""

    def __init__(self, value):
        self.value = value
        handle = value["impl_"]
        block = int(handle["object"])
        self.wide = "wchar_t" in value.type_name
        quote = quoted_wide if self.wide else quoted_bytes
        self.length, self.sharers, self.quoted = 0, 0, quote(b"")
        if block == 0:
            if int(handle["count"]) != 0:
                raise Damaged("a count without a block")
            return
        data, self.length, capacity, self.sharers = struct.unpack(
            "<QIII", value.read(block, BLOCK_HEADER - 4))
        if data != block + BLOCK_HEADER:
            raise Damaged("the characters do not follow their header")
        if int(handle["count"]) != block + BLOCK_HEADER - 8:
            raise Damaged("the count is not the block's")
        if not self.length < capacity:
            raise Damaged("length %d in %d slots" % (self.length, capacity))
        if self.sharers == 0:
            raise Damaged("freed, or never counted")
        unit = 4 if self.wide else 1
        if any(value.read(data + self.length * unit, unit)):
            raise Damaged("no terminator")
        shown = limited(self.length)
        self.quoted = quote(value.read(data, shown * unit))
        if shown < self.length:
            self.quoted += "..."


@guarded
def show_string(value):
    """"clip" (length 4, sharers 1)"""
    text = Text(value)
    return Shown("%s (length %d, sharers %d)" % (text.quoted, text.length, text.sharers))


# --- Pointers, pairs, lists

@guarded
def show_pointer(value):
    """The number of holders, the place of the count, and the object."""
    title = "Vx::Ptr<%s>" % value.template_argument(0).name
    if int(value["object"]) == 0:
        if int(value["count"]) != 0:
            raise Damaged("a count without an object")
        return Shown(title + " (empty)")
    external = "External" in value.template_argument(2).name
    holders = struct.unpack("<I", value.read(int(value["count"]), 4))[0]
    place = "a counter of its own" if external else "the object's counter"
    return Shown("%s (count %d, %s)" % (title, holders, place), [("object", value["object"])])


@guarded
def show_pair(value):
    """The members that are valid in the pair's form."""
    form = int(value["form"])
    if form not in (0, 1, 2):
        raise Damaged("form %d" % form)
    if form == 1:
        return Shown(Text(value["text"]).quoted + " (form 1, not split)")
    name, content = Text(value["name"]), Text(value["value"])
    if form == 0 and name.length == 0 and content.length == 0:
        return Shown(Text(value["text"]).quoted + " (form 0, no pair)")
    note = "form 2, text is stale" if form == 2 else "form 0"
    return Shown("%s = %s (%s)" % (name.quoted, content.quoted, note))


class Items:
    """The items of a std::vector, which may be shown without the C++ library's formatters."""

    def __init__(self, value):
        self.value = value
        start = value["_M_impl"]["_M_start"]
        self.item = start.pointer_type()
        self.start, end = int(start), int(value["_M_impl"]["_M_finish"])
        room = int(value["_M_impl"]["_M_end_of_storage"])
        if not self.start <= end <= room or (end - self.start) % self.item.size != 0:
            raise Damaged("not a vector")
        self.size = (end - self.start) // self.item.size
        if self.size > MOST_ITEMS:
            raise Damaged("%d items" % self.size)
        self.shown = limited(self.size)
        if self.size:
            value.read(self.start, 1)

    def pairs(self):
        # One item more than wanted makes the debugger print that there are more.
        for i in range(min(self.size, self.shown + 1)):
            yield "[%d]" % i, self.item.at(self.start + i * self.item.size)


def counted(count, noun):
    return "%d %s%s" % (count, noun, "" if count == 1 else "s")


@guarded
def show_list(value):
    """LightweightVector: its items, and the number of handles that share them."""
    handle = value["items_"]
    if int(handle["object"]) == 0:
        raise Damaged("a handle without a vector")
    sharers = struct.unpack("<I", value.read(int(handle["count"]), 4))[0]
    items = Items(handle["object"].target())
    return Shown("LightweightVector (%s, sharers %d)" % (counted(items.size, "item"), sharers),
                 items.pairs(), "array")


# --- Documents

def map_size(tree_map):
    """Returns the number of items in a std::map."""
    tree = tree_map["_M_t"]["_M_impl"]
    count = int(tree["_M_node_count"])
    if count > MOST_ITEMS or (count == 0) != (int(tree["_M_header"]["_M_parent"]) == 0):
        raise Damaged("not a map of %d items" % count)
    return count


def map_nodes(tree_map):
    """Yields the addresses of a std::map's items in order, as many as the user wants to see: a
    large or broken document takes no longer than a small one."""
    header = tree_map["_M_t"]["_M_impl"]["_M_header"]
    count = map_size(tree_map)
    node = int(header["_M_left"])
    for _ in range(limited(count)):
        if node in (header.address, 0):
            raise Damaged("the map ends early")
        yield node + RB_NODE_HEADER
        node = next_node(header, node, count)


def next_node(reader, node, count):
    def links(at):
        """The parent, the left and the right node."""
        return struct.unpack("<8xQQQ", reader.read(at, RB_NODE_HEADER))

    # A red-black tree of n nodes is less than 2 log2(n + 1) deep.
    steps = 2 * (count + 1).bit_length() + 2
    right = links(node)[2]
    if right != 0:
        node, left = right, links(right)[1]
        while left != 0:
            node, left = left, links(left)[1]
            steps -= 1
            if steps < 0:
                raise Damaged("not a tree")
        return node
    parent = links(node)[0]
    while node == links(parent)[2]:
        node, parent = parent, links(parent)[0]
        steps -= 1
        if steps < 0:
            raise Damaged("not a tree")
    # In a tree of one node the header's right child is that node.
    return parent if links(node)[2] != parent else node


def document_sections(sections):
    key, pairs = sections.template_argument(0), sections.template_argument(1)
    for address in map_nodes(sections):
        items = Items(pairs.at(address + key.size))
        title = Text(key.at(address)).quoted
        if items.shown < items.size:
            title += " (the first %d of %d)" % (items.shown, items.size)
        yield title, items


@guarded
def show_document(value):
    """VxIniFile: its path, and its sections as a map from names to pairs."""
    path, sections = Text(value["path"]), value["sections"]
    count = map_size(sections)
    for _ in map_nodes(sections):
        pass  # raises Damaged if it is not a map
    case = "case-sensitive" if int(value["sectionNameCaseSensitive"]) else "case-blind"
    place = path.quoted if path.length else "without a path"
    return Shown("VxIniFile %s (%s, %s)" % (place, counted(count, "section"), case),
                 document_sections(sections), "map")


@guarded
def show_section_iterator(value):
    """VxIniFile's iterators: the section they refer to."""
    position = value["position_"]
    node = int(position["_M_node"])
    if node == int(value["end_"]["_M_node"]):
        return Shown("at the end")
    section = position.template_argument(0).at(node + RB_NODE_HEADER)
    size = Items(section["second"]).size
    return Shown("at %s (%s)" % (Text(section["first"]).quoted, counted(size, "pair")))


# --- Media

@guarded
def show_uuid(value):
    """{0123abcd-4567-89ef-0123-456789abcdef}"""
    order = (3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15)
    stored = value.read(value.address, 16)
    digits = "".join("%02x" % stored[i] for i in order)
    text = "-".join((digits[:8], digits[8:12], digits[12:16], digits[16:20], digits[20:]))
    return Shown("{%s}%s" % (text, "" if digits.strip("0") else " (invalid)"))


@guarded
def show_format_uid(value):
    """Vx::Image::FormatUID: its text, and the kind of format."""
    text = Text(value["text_"])
    if text.quoted in ('""', '"0"'):
        return Shown("%s (no format)" % text.quoted)
    return Shown("%s (%s)" % (text.quoted, "custom" if text.length > 4 else "standard"))


# The members in the order of the text form; a number stands for itself.
RECORDS = {
    "Core": ("width", "height", "dataFormat", "layout", "bitsPerComponent", "bitsPerPixel",
             "coreDataSet"),
    "BufferFormat": ("orientation", "stride", 1, "bufferFormatDataSet"),
    "Video": ("scanMode", "aspectRatio", "videoFormatUID", "videoDataSet"),
    "VideoSample": ("polarity", "colorimetry", "gamutScaling", "videoSampleDataSet"),
    "VideoSequence": ("frameRate", "videoSequenceDataSet"),
}


@guarded
def show_record(value):
    """A metadata record: its text form, as asString() returns it."""
    kind = value.type_name.split("::")[-2]
    pieces = ["Metadata::" + kind, "1"]
    for member in RECORDS[kind]:
        if member == "videoFormatUID":
            pieces.append(Text(value[member]["text_"]).quoted.strip('"'))
        else:
            number = int(member if isinstance(member, int) else value[member])
            pieces.append(str(number - (1 << 32) if number >= 1 << 31 and member != "width"
                              and member != "height" and member != "stride" else number))
    return Shown('"%s,"' % ",".join(pieces))


# --- Locks, pools, exceptions

@guarded
def show_lock(value):
    """CriticalSection: its name, its owner and the depth of nesting."""
    handle = value["rep_"]["object"]
    if int(handle) == 0:
        return Shown("CriticalSection (without a lock)")
    rep = handle.target()
    name = Text(rep["name"])
    title = "CriticalSection" + (" " + name.quoted if name.length else "")
    depth, owner = int(rep["entryCount"]), int(rep["ownerThread"])
    if depth == 0 and owner == 0:
        return Shown(title + " (free)")
    return Shown("%s (owner %s, depth %d)" % (title, settings.thread_name(owner), depth))


@guarded
def show_pools(value):
    """PooledObjectDebug::gAllLoggers: the pools of the process with their objects in use."""
    node, pools = int(value["head"]), []
    for _ in range(limited(int(value["count"]))):
        if node == 0:
            raise Damaged("the list ends early")
        node, logger = struct.unpack("<QQ", value.read(node, 16))
        if logger == 0:
            pools.append("destroyed")
            continue
        record = struct.unpack("<8xQ", value.read(logger, 16))[0]
        name, in_use, most = struct.unpack("<Qii", value.read(record, 16))
        pools.append("%s (in use %d, at most %d)" % (quoted_bytes(c_string(value, name)), in_use,
                                                     most))
    return Shown(": ".join(filter(None, (counted(int(value["count"]), "pool"), ", ".join(pools)))))


@guarded
def show_exception(value):
    """Vx::Exception: its message, place and call stack."""
    kind = (quoted_c_string(value["typeName"]) or "Base").strip('"')
    message = quoted_c_string(value["message"]) or "without a message"
    place = (quoted_c_string(value["file"]) or "?").strip('"')
    frames = Items(value["callStack"])
    stack = "%d frames" % frames.size if frames.size else "no stack"
    return Shown("Vx::Exception::%s %s at %s(%d), %s" % (kind, message, place, int(value["line"]),
                                                         stack),
                 ((index, Text(frame)) for index, frame in frames.pairs()), "array")


# A name, the types, and their formatter.
FORMATTERS = [(name, re.compile(pattern), formatter) for name, pattern, formatter in (
    ("LightweightString", r"^LightweightString<(char|wchar_t)>$", show_string),
    ("Ptr", r"^Vx::Ptr<.*>$", show_pointer),
    ("AttribValuePair", r"^Vx::AttribValuePair$", show_pair),
    ("VxIniFile", r"^VxIniFile$", show_document),
    ("SectionIterator", r"^VxIniFile::(Const)?SectionIterator$", show_section_iterator),
    ("LightweightVector", r"^LightweightVector<.*>$", show_list),
    ("UUID", r"^(Vx::UUID|SimpleUUID)$", show_uuid),
    ("FormatUID", r"^Vx::Image::FormatUID$", show_format_uid),
    ("Metadata", r"^Vx::Image::(%s)::Data$" % "|".join(RECORDS), show_record),
    ("CriticalSection", r"^CriticalSection$", show_lock),
    ("LoggerStack", r"^Vx::PooledObjectDebug::LoggerStack$", show_pools),
    ("Exception", r"^Vx::Exception::(Base|RuntimeError|LogicError)$", show_exception),
)]
