"""Pretty printers for gdb: show what Vx objects contain (vx_formatters.py, in the same folder).

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

import os
import sys

import gdb
import gdb.printing

# Not __file__, which is another's if a script made gdb load this one.
sys.path.insert(0, os.path.dirname(os.path.abspath(sys._getframe().f_code.co_filename)))
import vx_formatters as vx
import vx_info  # the commands "info vx"

# gdb rejects values larger than its max-value-size, by default 64 KiB.
MOST_BYTES = 60000


def stripped(gdb_type):
    """Returns the type without references, const and typedefs."""
    if gdb_type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        gdb_type = gdb_type.target()
    return gdb_type.unqualified().strip_typedefs()


class Type:
    def __init__(self, gdb_type):
        self.raw = stripped(gdb_type)
        self.name, self.size = str(self.raw), self.raw.sizeof

    def at(self, address):
        return Value(gdb.Value(address).cast(self.raw.pointer()).dereference())


class Value:
    """A gdb.Value, as vx_formatters.py uses it."""

    def __init__(self, raw):
        self.raw = raw

    def __getitem__(self, name):
        return Value(self.raw[name])

    def __int__(self):
        return read(lambda: int(self.raw))

    @property
    def address(self):
        return int(self.raw.address)

    @property
    def type_name(self):
        return str(stripped(self.raw.type))

    def target(self):
        return Value(self.raw.dereference())

    def read(self, address, size):
        return read(lambda: gdb.selected_inferior().read_memory(address, size).tobytes())

    def template_argument(self, index):
        return Type(stripped(self.raw.type).template_argument(index))

    def pointer_type(self):
        return Type(stripped(self.raw.type).target())


def read(access):
    try:
        return access()
    except (gdb.MemoryError, OverflowError) as error:
        raise vx.Unreadable(error) from error


def as_array(items):
    """Returns the items as one array, which gdb prints with their own printers."""
    shown = max(1, min(items.shown, MOST_BYTES // items.item.size))
    array = items.item.raw.array(shown - 1)
    return gdb.Value(items.start).cast(array.pointer()).dereference()


class Printer:
    def __init__(self, shown):
        self.shown = shown

    def to_string(self):
        return self.shown.text

    def display_hint(self):
        return self.shown.kind

    def children(self):
        number = 0
        try:
            for name, child in self.shown.children:
                if isinstance(child, vx.Items):
                    child = as_array(child) if child.size else "no pairs"
                else:
                    child = child.quoted if isinstance(child, vx.Text) else child.raw
                if self.shown.kind == "map":
                    yield "name%d" % number, name
                    name = "value%d" % number
                yield name, child
                number += 1
        except (vx.Damaged, vx.Unreadable, gdb.error):
            yield "damaged", "<damaged>"


class Collection(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("Vx", [gdb.printing.SubPrettyPrinter(name)
                                for name, _, _ in vx.FORMATTERS])

    def __call__(self, raw):
        name = stripped(raw.type).tag
        for sub, (_, pattern, formatter) in zip(self.subprinters, vx.FORMATTERS):
            if name is not None and sub.enabled and pattern.match(name):
                return Printer(formatter(Value(raw)))
        return None


def shown_elements():
    return gdb.parameter("print elements") or None


def thread_name(identifier):
    """Returns gdb's number and the system's identifier of a thread."""
    for thread in gdb.selected_inferior().threads():
        if thread.ptid[1] == identifier:
            return "thread %d (LWP %d)" % (thread.num, identifier)
    return "LWP %d" % identifier


vx.settings.shown_elements = shown_elements
vx.settings.thread_name = thread_name
gdb.printing.register_pretty_printer(gdb.current_objfile(), Collection(), replace=True)
