"""Pretty printers for gdb: show what Vx objects contain.

If the library is installed below /usr, gdb loads them automatically together with libVx.so.
Otherwise load them at gdb's prompt or in ~/.gdbinit:

    source gdb/vx_printers.py                               # from the source tree
    add-auto-load-safe-path BUILD/ole/Vx                    # the copy beside the library
    add-auto-load-scripts-directory PREFIX/share/gdb/auto-load    # another prefix, and the
    add-auto-load-safe-path PREFIX/share/gdb/auto-load            # permission to load from it

They only read memory and call no function of the program, so they work on core files and in
broken processes. An object that is not valid (not yet constructed, destroyed, overwritten) is
shown as such, in angle brackets.
"""

import functools

import gdb
import gdb.printing

# Sizes in the binary interface, which are fixed.
BLOCK_HEADER = 24  # LightweightString::Impl
RB_NODE_HEADER = 32  # std::_Rb_tree_node_base
# gdb rejects values larger than its max-value-size, by default 64 KiB.
MOST_BYTES = 60000
# A longer list is assumed to be uninitialised memory.
MOST_ITEMS = 1 << 26


class Damaged(Exception):
    """The memory does not contain a valid object."""


def shown_elements():
    """Returns how many characters or items gdb's user wants to see, or None for all."""
    limit = gdb.parameter("print elements")
    return limit if limit else None


def stripped(gdb_type):
    """Returns the type without references, const and typedefs."""
    if gdb_type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        gdb_type = gdb_type.target()
    return gdb_type.unqualified().strip_typedefs()


def member(value, *names):
    """Returns the first member of the class that has one of these names."""
    fields = {field.name for field in stripped(value.type).fields()}
    for name in names:
        if name in fields:
            return value[name]
    raise Damaged("no member " + names[0])


def array_at(address, item_type, count):
    """Returns the items at an address as one array, which gdb prints with their own printers."""
    return address.cast(item_type.array(count - 1).pointer()).dereference()


def limited(count, item_size):
    """Returns how many of count items the user wants to see and gdb can hold."""
    most = max(1, MOST_BYTES // max(1, item_size))
    wanted = shown_elements()
    return min(count, most if wanted is None else min(wanted, most))


class Text:
    """The contents of a LightweightString, validated."""

    def __init__(self, value):
        handle = value["impl_"]
        block = handle["object"]
        self.length = 0
        self.sharers = 0
        self.quoted = '""'
        self.plain = ""
        if int(block) == 0:
            if int(handle["count"]) != 0:
                raise Damaged("a count without a block")
            return
        self.length = int(block["length"])
        self.sharers = int(block["refCount"])
        capacity = int(block["capacity"])
        data = block["data"]
        if int(data) != int(block) + BLOCK_HEADER:
            raise Damaged("the characters do not follow their header")
        if int(handle["count"]) != int(block["refCount"].address):
            raise Damaged("the count is not the block's")
        if not self.length < capacity:
            raise Damaged("length %d in %d slots" % (self.length, capacity))
        if self.sharers == 0:
            raise Damaged("freed, or never counted")
        if int((data + self.length).dereference()) != 0:
            raise Damaged("no terminator")
        self.read(data)

    def read(self, data):
        item = stripped(stripped(data.type).target())
        shown = limited(self.length, item.sizeof)
        # With the terminator, because gdb omits exactly one 0 at the end.
        whole = shown == self.length
        chars = array_at(data, item, shown + whole)
        self.quoted = chars.format_string(max_elements=0, symbols=False)
        if not whole:
            self.quoted += "..."
        prefix = 1 if item.sizeof == 1 else 2  # the wide quote is L"
        simple = self.quoted.endswith('"') and "<repeats" not in self.quoted
        self.plain = self.quoted[prefix:-1] if simple else self.quoted


def narrow_or_none(value):
    """Returns a NUL-terminated string as gdb prints it, or None for null."""
    if int(value) == 0:
        return None
    int(value.dereference())  # raises an error, which format_string would only put into its result
    return value.format_string(symbols=False, address=False)


def guarded(method):
    """Turns every failure of to_string into its result, so that users see no Python stack."""

    @functools.wraps(method)
    def safe(self, *args):
        try:
            return method(self, *args)
        except Damaged as damage:
            return "<damaged: %s>" % damage
        except gdb.MemoryError as error:
            return "<unreadable: %s>" % error
        except (gdb.error, RuntimeError, ValueError, OverflowError, TypeError) as error:
            return "<not shown: %s>" % error

    return safe


def guarded_children(method):
    """The same for children: returns those before the first that cannot be read."""

    @functools.wraps(method)
    def safe(self):
        children = []
        try:
            for child in method(self):
                children.append(child)
        except (Damaged, gdb.error, RuntimeError, ValueError, OverflowError, TypeError):
            pass  # to_string has reported it
        return iter(children)

    return safe


class StringPrinter:
    """LightweightString: "clip" (length 4, sharers 1)"""

    def __init__(self, value):
        self.value = value

    @guarded
    def to_string(self):
        text = Text(self.value)
        return "%s (length %d, sharers %d)" % (text.quoted, text.length, text.sharers)


class PtrPrinter:
    """Vx::Ptr: the number of holders, the place of the count, and the object."""

    def __init__(self, value):
        self.value = value
        self.target = stripped(value.type).template_argument(0)

    @guarded
    def to_string(self):
        count = self.value["count"]
        title = "Vx::Ptr<%s>" % self.target
        if int(self.value["object"]) == 0:
            if int(count) != 0:
                raise Damaged("a count without an object")
            return title + " (empty)"
        external = "External" in str(stripped(self.value.type).template_argument(2))
        holders = int(count.dereference())
        place = "a counter of its own" if external else "the object's counter"
        return "%s (count %d, %s)" % (title, holders, place)

    @guarded_children
    def children(self):
        if int(self.value["object"]) != 0:
            yield "object", self.value["object"]


def describe_pair(value):
    form = int(value["form"])
    if form not in (0, 1, 2):
        raise Damaged("form %d" % form)
    if form == 1:
        return Text(value["text"]).quoted + " (form 1, not split)"
    name, content = Text(value["name"]), Text(value["value"])
    if form == 0 and name.length == 0 and content.length == 0:
        return Text(value["text"]).quoted + " (form 0, no pair)"
    note = "form 2, text is stale" if form == 2 else "form 0"
    return "%s = %s (%s)" % (name.quoted, content.quoted, note)


class PairPrinter:
    """Vx::AttribValuePair: the members that are valid in its form."""

    def __init__(self, value):
        self.value = value

    @guarded
    def to_string(self):
        return describe_pair(self.value)


class StdVector:
    """The items of a std::vector, which may be shown without the C++ library's printers."""

    def __init__(self, value):
        store = value["_M_impl"]
        self.start = store["_M_start"]
        self.item = stripped(stripped(self.start.type).target())
        begin, end = int(self.start), int(store["_M_finish"])
        room = int(store["_M_end_of_storage"])
        if not begin <= end <= room or (end - begin) % self.item.sizeof != 0:
            raise Damaged("not a vector")
        self.size = (end - begin) // self.item.sizeof
        if self.size > MOST_ITEMS:
            raise Damaged("%d items" % self.size)

        self.shown = limited(self.size, self.item.sizeof)

    def as_array(self):
        return array_at(self.start, self.item, self.shown)

    def items(self):
        # One item more than wanted makes gdb print that there are more.
        for i in range(min(self.size, self.shown + 1)):
            yield "[%d]" % i, (self.start + i).dereference()


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
    node = header["_M_left"]
    for _ in range(limited(count, 1)):
        if int(node) == int(header.address) or int(node) == 0:
            raise Damaged("the map ends early")
        yield int(node) + RB_NODE_HEADER
        node = next_node(node, count)


def next_node(node, count):
    # A red-black tree of n nodes is less than 2 log2(n + 1) deep.
    steps = 2 * (count + 1).bit_length() + 2
    if int(node["_M_right"]) != 0:
        node = node["_M_right"]
        while int(node["_M_left"]) != 0:
            node = node["_M_left"]
            steps -= 1
            if steps < 0:
                raise Damaged("not a tree")
        return node
    parent = node["_M_parent"]
    while int(node) == int(parent["_M_right"]):
        node, parent = parent, parent["_M_parent"]
        steps -= 1
        if steps < 0:
            raise Damaged("not a tree")
    # In a tree of one node the header's right child is that node.
    return parent if int(node["_M_right"]) != int(parent) else node


class DocumentPrinter:
    """VxIniFile: its path, and its sections as a map from names to pairs."""

    def __init__(self, value):
        self.value = value
        self.sections = value["sections"]

    @guarded
    def to_string(self):
        path = Text(self.value["path"])
        count = map_size(self.sections)
        for _ in map_nodes(self.sections):
            pass  # raises Damaged if it is not a map
        case = "case-sensitive" if self.value["sectionNameCaseSensitive"] else "case-blind"
        place = path.quoted if path.length else "without a path"
        noun = "section" if count == 1 else "sections"
        return "VxIniFile %s (%d %s, %s)" % (place, count, noun, case)

    @guarded_children
    def children(self):
        map_type = stripped(self.sections.type)
        key_type, list_type = map_type.template_argument(0), map_type.template_argument(1)
        for i, address in enumerate(map_nodes(self.sections)):
            name = gdb.Value(address).cast(key_type.pointer()).dereference()
            pairs = gdb.Value(address + key_type.sizeof).cast(list_type.pointer()).dereference()
            vector = StdVector(pairs)
            title = Text(name).quoted
            if vector.shown < vector.size:
                title += " (the first %d of %d)" % (vector.shown, vector.size)
            yield "name%d" % i, title
            yield "pairs%d" % i, vector.as_array() if vector.size else "no pairs"

    def display_hint(self):
        return "map"


class SectionIteratorPrinter:
    """VxIniFile's iterators: the section they refer to."""

    def __init__(self, value):
        self.value = value

    @guarded
    def to_string(self):
        position = self.value["position_"]
        node = int(position["_M_node"])
        if node == int(self.value["end_"]["_M_node"]):
            return "at the end"
        section = stripped(stripped(position.type).template_argument(0))
        pair = gdb.Value(node + RB_NODE_HEADER).cast(section.pointer()).dereference()
        count = StdVector(pair["second"]).size
        return "at %s (%d %s)" % (Text(pair["first"]).quoted, count,
                                  "pair" if count == 1 else "pairs")


class VectorPrinter:
    """LightweightVector: its items, and the number of handles that share them."""

    def __init__(self, value):
        self.value = value

    def items(self):
        handle = member(self.value, "items_")
        if int(handle["object"]) == 0:
            raise Damaged("a handle without a vector")
        return handle, StdVector(handle["object"].dereference())

    @guarded
    def to_string(self):
        handle, vector = self.items()
        noun = "item" if vector.size == 1 else "items"
        return "LightweightVector (%d %s, sharers %d)" % (
            vector.size, noun, int(handle["count"].dereference()))

    @guarded_children
    def children(self):
        return self.items()[1].items()

    def display_hint(self):
        return "array"


class UuidPrinter:
    """Vx::UUID and SimpleUUID: {0123abcd-4567-89ef-0123-456789abcdef}"""

    ORDER = (3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15)

    def __init__(self, value):
        self.value = value

    @guarded
    def to_string(self):
        stored = member(self.value, "bytes_", "bytes")
        digits = "".join("%02x" % int(stored[i]) for i in self.ORDER)
        text = "-".join((digits[:8], digits[8:12], digits[12:16], digits[16:20], digits[20:]))
        return "{%s}%s" % (text, "" if digits.strip("0") else " (invalid)")


class FormatUidPrinter:
    """Vx::Image::FormatUID: its text, and the kind of format."""

    def __init__(self, value):
        self.value = value

    @guarded
    def to_string(self):
        text = Text(member(self.value, "text_", "text"))
        if text.length == 0 or text.plain == "0":
            return "%s (no format)" % text.quoted
        return "%s (%s)" % (text.quoted, "custom" if text.length > 4 else "standard")


def thread_name(identifier):
    """Returns gdb's number and the system's identifier of a thread."""
    for thread in gdb.selected_inferior().threads():
        if thread.ptid[1] == identifier:
            return "thread %d (LWP %d)" % (thread.num, identifier)
    return "LWP %d" % identifier


class LockPrinter:
    """CriticalSection: its name, its owner and the depth of nesting."""

    def __init__(self, value):
        self.value = value

    @guarded
    def to_string(self):
        rep = member(self.value, "rep_")["object"]
        if int(rep) == 0:
            return "CriticalSection (without a lock)"
        name = Text(rep["name"])
        title = "CriticalSection" + (" " + name.quoted if name.length else "")
        depth, owner = int(rep["entryCount"]), int(rep["ownerThread"])
        if depth == 0 and owner == 0:
            return title + " (free)"
        return "%s (owner %s, depth %d)" % (title, thread_name(owner), depth)


class ExceptionPrinter:
    """Vx::Exception: its message, place and call stack."""

    def __init__(self, value):
        self.value = value

    @guarded
    def to_string(self):
        kind = narrow_or_none(self.value["typeName"])
        kind = kind.strip('"') if kind else "Base"
        message = narrow_or_none(self.value["message"]) or "without a message"
        place = (narrow_or_none(self.value["file"]) or "?").strip('"')
        frames = StdVector(self.value["callStack"]).size
        stack = "%d frames" % frames if frames else "no stack"
        return "Vx::Exception::%s %s at %s(%d), %s" % (
            kind, message, place, int(self.value["line"]), stack)

    @guarded_children
    def children(self):
        for index, frame in StdVector(self.value["callStack"]).items():
            yield index, Text(frame).quoted

    def display_hint(self):
        return None


def build_printers():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("Vx")
    for name, pattern, printer in (
        ("LightweightString", r"^LightweightString<(char|wchar_t)>$", StringPrinter),
        ("Ptr", r"^Vx::Ptr<.*>$", PtrPrinter),
        ("AttribValuePair", r"^Vx::AttribValuePair$", PairPrinter),
        ("VxIniFile", r"^VxIniFile$", DocumentPrinter),
        ("SectionIterator", r"^VxIniFile::(Const)?SectionIterator$", SectionIteratorPrinter),
        ("LightweightVector", r"^LightweightVector<.*>$", VectorPrinter),
        ("UUID", r"^(Vx::UUID|SimpleUUID)$", UuidPrinter),
        ("FormatUID", r"^Vx::Image::FormatUID$", FormatUidPrinter),
        ("CriticalSection", r"^CriticalSection$", LockPrinter),
        ("Exception", r"^Vx::Exception::(Base|RuntimeError|LogicError)$", ExceptionPrinter),
    ):
        printers.add_printer(name, pattern, printer)
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), build_printers(), replace=True)
