"""gdb commands that show the state of Vx in a process or core file.

    info vx locks       the locks that the library knows: owner, depth, waiting threads, deadlocks
    info vx names       the named objects
    info vx pools       the demand on the object pools
    info vx shutdown    the shutdown callbacks in order, and the one that runs

They only read memory, and need neither debug information nor the pretty printers. vx_inspect.py, in
the same folder, has what they share with lldb's.
"""

import os
import struct
import sys

import gdb

# Not __file__, which is another's if a script made gdb load this one.
sys.path.insert(0, os.path.dirname(os.path.abspath(sys._getframe().f_code.co_filename)))
import vx_inspect

FUTEX_CALL = 202


class Debugger(vx_inspect.Debugger):
    """The selected inferior, as vx_inspect.py uses it."""

    def read(self, address, size):
        try:
            return gdb.selected_inferior().read_memory(address, size).tobytes() if size else b""
        except (gdb.MemoryError, OverflowError):
            raise vx_inspect.Unreadable("cannot read memory at %#x" % address)

    def addresses_of(self, symbol):
        try:
            return [int(gdb.parse_and_eval("(unsigned long)&" + symbol))]
        except gdb.error:
            return []

    def module_of(self, address):
        return gdb.solib_name(address)

    def symbol_at(self, address):
        shown = gdb.execute("info symbol %#x" % address, to_string=True).strip()
        return None if shown.startswith("No symbol") else shown.split(" in section")[0]

    def demangled(self, symbol):
        return gdb.execute("demangle -l c++ -- " + symbol, to_string=True).strip()

    def threads(self):
        found = []
        selected = gdb.selected_thread()
        frame = gdb.selected_frame() if selected is not None and selected.is_valid() else None
        try:
            for thread in gdb.selected_inferior().threads():
                thread.switch()
                innermost = gdb.newest_frame()
                futex = None
                if int(innermost.read_register("orig_rax")) == FUTEX_CALL:
                    futex = int(innermost.read_register("rdi")) & 0xFFFFFFFFFFFFFFFF
                found.append(vx_inspect.Thread(thread.ptid[1], "thread %d (LWP %d%s)" % (
                    thread.num, thread.ptid[1], " '%s'" % thread.name if thread.name else ""),
                    futex))
        finally:
            if selected is not None:
                selected.switch()
                frame.select()
        return sorted(found, key=lambda thread: thread.identifier)


class InfoVx(gdb.Command):
    """State of Vx: locks, names, pools, shutdown."""

    def __init__(self):
        super().__init__("info vx", gdb.COMMAND_STATUS, gdb.COMPLETE_NONE, True)


class Command(gdb.Command):
    """Prints lines, and reports what cannot be read in one."""

    def __init__(self, name):
        super().__init__("info vx " + name, gdb.COMMAND_STATUS)

    def invoke(self, argument, from_tty):
        try:
            for line in self.lines(vx_inspect.Roots(Debugger()), argument):
                print(line)
        except (vx_inspect.Unreadable, gdb.error, struct.error) as problem:
            raise gdb.GdbError("info vx: %s" % problem)


class InfoLocks(Command):
    """Locks that the library knows: owner, depth, waiting threads. Deadlocks come first.

Usage: info vx locks [all]
Without "all", leaves out free locks."""

    def lines(self, roots, argument):
        return vx_inspect.locks(roots, argument == "all")


class InfoNames(Command):
    """Named objects: type, name, object, lock."""

    def lines(self, roots, argument):
        return vx_inspect.names(roots)


class InfoPools(Command):
    """Object pools: in use, most in use, peak demand per second."""

    def lines(self, roots, argument):
        return vx_inspect.pools(roots)


class InfoShutdown(Command):
    """Shutdown callbacks in order, with what they call, and the one that runs."""

    def lines(self, roots, argument):
        return vx_inspect.shutdown(roots)


InfoVx()
for command, name in ((InfoLocks, "locks"), (InfoNames, "names"), (InfoPools, "pools"),
                      (InfoShutdown, "shutdown")):
    command(name)
