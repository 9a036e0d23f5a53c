"""The lldb command "vx", which shows the state of Vx in a process or core file.

    vx locks [all]    the locks that the library knows: owner, depth, waiting threads, deadlocks
    vx names          the named objects
    vx pools          the demand on the object pools
    vx shutdown       the shutdown callbacks in order, and the one that runs

vx_lldb.py loads it together with the formatters. It only reads memory. vx_inspect.py has what it
shares with gdb's commands.
"""

import struct

import lldb
import vx_inspect

# What the kernel leaves in rax of a thread that is stopped while a system call sleeps. lldb does
# not show which call it is; only the futex call has a lock's word as its first argument.
RESTART_CODES = (-512, -513, -514, -516)


class Debugger(vx_inspect.Debugger):
    """A target, as vx_inspect.py uses it."""

    def __init__(self, target):
        self.target, self.process = target, target.GetProcess()

    def read(self, address, size):
        if size == 0:
            return b""
        error = lldb.SBError()
        data = self.process.ReadMemory(address, size, error)
        if error.Fail():  # constants are in the program's files, not in a core file
            place = self.target.ResolveLoadAddress(address)
            error = lldb.SBError()
            data = self.target.ReadMemory(place, size, error) if place.GetSection() else None
        if error.Fail() or data is None or len(data) != size:
            raise vx_inspect.Unreadable("cannot read memory at %#x" % address)
        return data

    def addresses_of(self, symbol):
        addresses = [found.GetSymbol().GetStartAddress().GetLoadAddress(self.target)
                     for found in self.target.FindSymbols(symbol)]
        # A library that only refers to the symbol has no address for it.
        return [address for address in addresses if address != lldb.LLDB_INVALID_ADDRESS]

    def module_of(self, address):
        module = self.target.ResolveLoadAddress(address).GetModule()
        return module.GetFileSpec().fullpath if module.IsValid() else None

    def symbol_at(self, address):
        symbol = self.target.ResolveLoadAddress(address).GetSymbol()
        return symbol.GetName() if symbol.IsValid() else None

    def demangled(self, symbol):
        output = lldb.SBCommandReturnObject()
        interpreter = self.target.GetDebugger().GetCommandInterpreter()
        interpreter.HandleCommand("language cplusplus demangle " + symbol, output)
        return (output.GetOutput() or symbol).strip()

    def threads(self):
        found = []
        for thread in self.process:
            identifier, frame = thread.GetThreadID(), thread.GetFrameAtIndex(0)
            result = frame.FindRegister("rax").GetValueAsSigned()
            futex = frame.FindRegister("rdi").GetValueAsUnsigned()
            name = thread.GetName()
            label = "thread %d (LWP %d%s)" % (thread.GetIndexID(), identifier,
                                              " '%s'" % name if name else "")
            found.append(vx_inspect.Thread(identifier, label,
                                           futex if result in RESTART_CODES else None))
        return sorted(found, key=lambda thread: thread.identifier)


COMMANDS = {
    "locks": lambda roots, rest: vx_inspect.locks(roots, rest == ["all"]),
    "names": lambda roots, rest: vx_inspect.names(roots),
    "pools": lambda roots, rest: vx_inspect.pools(roots),
    "shutdown": lambda roots, rest: vx_inspect.shutdown(roots),
}


class Command:
    """lldb's command "vx"."""

    def __init__(self, debugger, _):
        pass

    def __call__(self, debugger, argument, context, result):
        words = argument.split()
        if not words or words[0] not in COMMANDS:
            return result.SetError("expected 'vx locks', 'vx names', 'vx pools' or 'vx shutdown'")
        if not context.GetProcess().IsValid():
            return result.SetError("there is no process: attach to one, or load a core file")
        try:
            roots = vx_inspect.Roots(Debugger(context.GetTarget()))
            for line in COMMANDS[words[0]](roots, words[1:]):
                result.AppendMessage(line)
        except (vx_inspect.Unreadable, struct.error) as problem:
            result.SetError("vx: %s" % problem)

    def get_short_help(self):
        return "Show the state of Vx: locks [all], names, pools, shutdown."

    def get_long_help(self):
        return __doc__
