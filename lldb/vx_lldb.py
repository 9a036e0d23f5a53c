"""Formatters for lldb: show what Vx objects contain (vx_formatters.py). Also loads the command "vx"
(vx_commands.py).

Load them at lldb's prompt or in ~/.lldbinit:

    command script import /path/to/vx/lldb/vx_lldb.py           # the source tree
    command script import PREFIX/share/vx/lldb/vx_lldb.py       # an installation

They only read memory and call no function of the program, so they work on core files and in
broken processes. An object that is not valid (not yet constructed, destroyed, overwritten) is
shown as such, in angle brackets.
"""

import os
import sys

import lldb

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(HERE, "..", "gdb")]  # installed; in the source tree
import vx_commands
import vx_formatters as vx


def stripped(lldb_type):
    """Returns the type without references, const and typedefs."""
    return lldb_type.GetDereferencedType().GetCanonicalType().GetUnqualifiedType() \
        if lldb_type.IsReferenceType() else lldb_type.GetCanonicalType().GetUnqualifiedType()


class Type:
    def __init__(self, lldb_type, origin):
        self.raw, self.origin = stripped(lldb_type), origin
        self.name, self.size = self.raw.GetName(), self.raw.GetByteSize()

    def at(self, address):
        return Value(self.origin.CreateValueFromAddress("at", address, self.raw))


def complete(raw):
    """Returns a value, or what a reference refers to, with its members. g++ describes a class with
    virtual functions only where the first of them is defined, which may be the library; lldb looks
    no further than the program."""
    address = raw.GetLoadAddress()
    if raw.GetType().IsReferenceType():
        address = raw.GetValueAsUnsigned()
    raw_type = stripped(raw.GetType())
    if raw_type.GetNumberOfFields() == 0 and raw_type.GetNumberOfDirectBaseClasses() == 0 and \
            raw_type.GetTypeClass() in (lldb.eTypeClassClass, lldb.eTypeClassStruct):
        for found in raw.GetTarget().FindTypes(raw_type.GetName()):
            if found.GetNumberOfFields() or found.GetNumberOfDirectBaseClasses():
                raw = raw.CreateValueFromAddress("complete", address, found)
                raw.SetPreferSyntheticValue(False)
                return raw
    return raw.Dereference() if raw.GetType().IsReferenceType() else raw


class Value:
    """An SBValue, as vx_formatters.py uses it."""

    def __init__(self, raw):
        self.raw = complete(raw.GetNonSyntheticValue())

    def __getitem__(self, name):
        member = self.raw.GetChildMemberWithName(name)
        if not member.IsValid():
            raise vx.Damaged("no member " + name)
        return Value(member)

    def __int__(self):
        error = lldb.SBError()
        if self.raw.GetType().GetCanonicalType().GetTypeFlags() & lldb.eTypeIsSigned:
            number = self.raw.GetValueAsSigned(error)
        else:
            number = self.raw.GetValueAsUnsigned(error)
        if error.Fail():
            raise vx.Unreadable(error.GetCString())
        return number

    @property
    def address(self):
        return self.raw.GetLoadAddress()

    @property
    def type_name(self):
        return stripped(self.raw.GetType()).GetName()

    def target(self):
        return Value(self.raw.Dereference())

    def read(self, address, size):
        if size == 0:
            return b""
        error = lldb.SBError()
        data = self.raw.GetProcess().ReadMemory(address, size, error)
        if error.Fail():  # constants are in the program's files, not in a core file
            target = self.raw.GetTarget()
            error = lldb.SBError()
            data = target.ReadMemory(lldb.SBAddress(address, target), size, error)
        if error.Fail() or data is None or len(data) != size:
            raise vx.Unreadable(error.GetCString() or "cannot read 0x%x" % address)
        return data

    def template_argument(self, index):
        return Type(stripped(self.raw.GetType()).GetTemplateArgumentType(index), self.raw)

    def pointer_type(self):
        return Type(stripped(self.raw.GetType()).GetPointeeType(), self.raw)


def shown(raw):
    value = Value(raw)
    for _, pattern, formatter in vx.FORMATTERS:
        if pattern.match(value.type_name):
            return formatter(value)
    return vx.Shown("<no formatter for %s>" % value.type_name)


def summary(raw, _):
    return shown(raw).text


class Children:
    """What lldb shows below a value."""

    def __init__(self, raw, _):
        self.raw, self.children = raw, []

    def update(self):
        self.children = []
        value = shown(self.raw)
        try:
            for name, child in value.children:
                self.children.append(self.made("[%s]" % name if value.kind == "map" else name, child))
        except (vx.Damaged, vx.Unreadable):
            pass  # the children before the damage are shown
        return False

    def made(self, name, child):
        if not isinstance(child, Value):
            child = child.value
        raw = child.raw
        if raw.GetType().IsPointerType():
            return self.raw.CreateValueFromData(name, raw.GetData(), raw.GetType())
        return self.raw.CreateValueFromAddress(name, raw.GetLoadAddress(), raw.GetType())

    def num_children(self):
        return len(self.children)

    def get_child_at_index(self, index):
        return self.children[index] if index < len(self.children) else None

    def get_child_index(self, name):
        return next((i for i, child in enumerate(self.children) if child.GetName() == name), -1)

    def has_children(self):
        return bool(self.children)


def __lldb_init_module(debugger, _):
    def shown_elements():
        """The smaller of lldb's limits for characters and for items."""
        return min(int(lldb.SBDebugger.GetInternalVariableValue(
            "target." + name, debugger.GetInstanceName()).GetStringAtIndex(0))
            for name in ("max-string-summary-length", "max-children-count"))

    def thread_name(identifier):
        """Returns lldb's number and the system's identifier of a thread."""
        thread = debugger.GetSelectedTarget().GetProcess().GetThreadByID(identifier)
        if thread.IsValid():
            return "thread %d (LWP %d)" % (thread.GetIndexID(), identifier)
        return "LWP %d" % identifier

    vx.settings.thread_name = thread_name
    vx.settings.shown_elements = shown_elements
    for _, pattern, _ in vx.FORMATTERS:
        options = '-w Vx -p -x "%s"' % pattern.pattern
        debugger.HandleCommand("type summary add -e -F %s.summary %s" % (__name__, options))
        debugger.HandleCommand("type synthetic add -l %s.Children %s" % (__name__, options))
    debugger.HandleCommand("type category enable Vx")
    debugger.HandleCommand("command script add -c %s.vx_commands.Command vx" % __name__)
