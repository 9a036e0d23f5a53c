"""What libVx.so keeps in a process or core file: shared by the commands for gdb and lldb.

It follows the same roots as `vx inspect`: the descriptors that libVx.so and libOS.so export. It
only reads memory, and needs neither debug information nor the formatters.

A front end implements Debugger and prints the lines that locks(), names(), pools() and shutdown()
yield. What cannot be read raises Unreadable.
"""

import re
import struct

MOST_ITEMS = 1 << 20
LONGEST_STRING = 1 << 16
LOCK_TYPE = "15CriticalSection"
NAMESPACE_TYPE = "N2Vx21NamedObjectsNamespaceE"
FUNCTION_CALLBACK_TYPE = "N8Shutdown16FunctionCallbackE"
# What calls the callable of a std::function, whose type is the last argument.
INVOKER = re.compile(r"std::_Function_handler<void \([^,]*\), (.*)>::_M_invoke\(.*\)")


class Unreadable(Exception):
    """The process does not contain what was looked for."""


class Thread:
    """A thread: the kernel's identifier, the debugger's name of it, and the address of the word on
    which it sleeps, or None."""

    def __init__(self, identifier, label, futex):
        self.identifier, self.label, self.futex = identifier, label, futex


class Debugger:
    """What a front end knows of the process."""

    def read(self, address, size):
        """Returns bytes of the process. Raises Unreadable."""
        raise NotImplementedError

    def addresses_of(self, symbol):
        """Returns the addresses of the exported objects with this name."""
        raise NotImplementedError

    def module_of(self, address):
        """Returns the path of the module that contains an address, or None."""
        raise NotImplementedError

    def symbol_at(self, address):
        """Returns the name of the function or object that contains an address, or None."""
        raise NotImplementedError

    def demangled(self, symbol):
        """Returns the C++ notation of a symbol, or the symbol itself."""
        raise NotImplementedError

    def threads(self):
        """Returns every Thread, ordered by its identifier."""
        raise NotImplementedError

    def word(self, address):
        return self.number(address, "<Q")

    def number(self, address, form="<I"):
        return struct.unpack(form, self.read(address, struct.calcsize(form)))[0]

    def c_string(self, address):
        """Returns the characters before a NUL. Reads pieces that do not cross a page."""
        text = b""
        while len(text) < LONGEST_STRING:
            piece = self.read(address, 64 - address % 64)
            text += piece
            address += len(piece)
            if b"\0" in piece:
                return text[:text.index(b"\0")].decode("utf-8", "replace")
        raise Unreadable("the string at %#x has no end" % address)


class Table:
    """A table of a descriptor. Members are named in order: "*name" is an address, others are
    numbers of 32 bits."""

    def __init__(self, debugger, address, layout):
        names = layout.split()
        form = "<" + "".join("Q" if name[0] == "*" else "I" for name in names)
        if debugger.number(address) < struct.calcsize(form):
            raise Unreadable("the library is of another version than these commands")
        values = struct.unpack(form, debugger.read(address, struct.calcsize(form)))
        for name, value in zip(names, values):
            setattr(self, name.lstrip("*"), value)


LOCKS = ("size repInSection *self platformLock entryCount ownerThread name blockInString"
         " dataInBlock lengthInBlock capacityInBlock standardLibrary")
NAMES = "size entries *global_ namespaceLock namespaceName object lock typeName objectName"
SHUTDOWN = ("size lockInList *status *list_ *progress itemsInList priority sequence callback"
            " function")
POOLS = ("size recordInLogger *stack nextInNode loggerInNode name inUse maxInUse peakDemand"
         " peakTime peakWallTime")
PLATFORM_LOCKS = "size lockSize *self recursion owner futex threadIdBits"


class Roots:
    """The tables that the descriptors refer to."""

    def __init__(self, debugger):
        self.debugger = debugger
        library = self.find("Vx_inspectDescriptor", b"Vx library 1\n")
        if library is None:
            raise Unreadable("libVx.so is not loaded, or is older than these commands")
        tables = struct.unpack("<5Q", debugger.read(library + 56, 40))
        self.locks = Table(debugger, tables[0], LOCKS)
        self.names = Table(debugger, tables[1], NAMES)
        self.shutdown = Table(debugger, tables[2], SHUTDOWN)
        self.pools = Table(debugger, tables[4], POOLS)
        if self.locks.standardLibrary != 1:
            raise Unreadable("the library was built with an unknown C++ standard library")
        platform = self.find("Vx_inspectPlatform", b"Vx platform 1\n")
        self.platform = None
        if platform is not None:
            self.platform = Table(debugger, debugger.word(platform + 32), PLATFORM_LOCKS)
            self.platform_file = debugger.module_of(platform)

    def find(self, symbol, magic):
        for address in self.debugger.addresses_of(symbol):
            start = self.debugger.read(address, 32)
            if not start.startswith(magic) or struct.unpack("<Q", start[24:])[0] != address:
                continue  # a copy
            if struct.unpack("<I", start[16:20])[0] != 1:
                raise Unreadable("%s is of another version than these commands" % symbol)
            return address
        return None

    def text(self, string):
        """The characters of a LightweightString."""
        block = self.debugger.word(string + self.locks.blockInString)
        if block == 0:
            return ""
        length = self.debugger.number(block + self.locks.lengthInBlock)
        capacity = self.debugger.number(block + self.locks.capacityInBlock)
        if not length < capacity or length > LONGEST_STRING:
            raise Unreadable("damaged string at %#x" % string)
        characters = self.debugger.word(block + self.locks.dataInBlock)
        return self.debugger.read(characters, length).decode("utf-8", "replace")

    def is_platform_lock(self, address):
        try:
            table = self.debugger.word(address)
        except Unreadable:
            return False
        return self.platform is not None and self.debugger.module_of(table) == self.platform_file


class Lock:
    """A CriticalSection, or a lock of the platform that a thread waits for."""

    def __init__(self, name, platform_lock, roots):
        self.name, self.platform_lock = name, platform_lock
        self.owner = self.depth = 0
        self.futex = None
        if roots.is_platform_lock(platform_lock):
            self.futex = platform_lock + roots.platform.futex

    @classmethod
    def of_section(cls, roots, address, name):
        read, layout = roots.debugger, roots.locks
        rep = read.word(address + layout.repInSection)
        lock = cls(roots.text(rep + layout.name) or name, read.word(rep + layout.platformLock),
                   roots)
        lock.depth = read.number(rep + layout.entryCount)
        lock.owner = read.number(rep + layout.ownerThread)
        return lock

    @classmethod
    def of_platform(cls, roots, address):
        read, layout = roots.debugger, roots.platform
        lock = cls("lock at %#x" % address, address, roots)
        number = read.word(address + layout.owner)
        if number != 0:
            lock.owner = number & ((1 << layout.threadIdBits) - 1)
            lock.depth = read.number(address + layout.recursion) + 1
        return lock


class Entry:
    """An entry of a namespace; lock is an address."""

    def __init__(self, roots, address):
        layout = roots.names
        self.type_name = roots.text(address + layout.typeName)
        self.name = roots.text(address + layout.objectName)
        self.object = roots.debugger.word(address + layout.object)
        self.lock = address + layout.lock


def entries_of(roots, space):
    """Yields each Entry of a namespace, in order."""
    read = roots.debugger
    head = space + roots.names.entries
    before, node = head, read.word(head)
    for _ in range(MOST_ITEMS):
        if node == head:
            return
        if read.word(node + 8) != before:
            break
        yield Entry(roots, read.word(node + 16))
        before, node = node, read.word(node)
    raise Unreadable("the list of named objects is damaged")


def namespaces(roots):
    """Yields the address, the name and the entries of the global namespace, and of those that are
    published in one of them."""
    found = [roots.debugger.word(roots.names.global_)]
    for space in found:
        if space == 0:
            continue
        entries = list(entries_of(roots, space))
        yield space, roots.text(space + roots.names.namespaceName), entries
        found += [entry.object for entry in entries
                  if entry.type_name == NAMESPACE_TYPE and entry.object not in found]


def all_locks(roots, threads):
    """Returns every lock that the library or a waiting thread leads to, once."""
    places = []
    for space, space_name, entries in namespaces(roots):
        places.append((space + roots.names.namespaceLock, "namespace " + space_name))
        for entry in entries:
            places.append((entry.lock, entry.name))
            if entry.type_name == LOCK_TYPE and entry.object != 0:
                places.append((entry.object, entry.name))
    places.append((roots.shutdown.list_ + roots.shutdown.lockInList, "shutdown list"))
    found = {}
    for address, name in places:
        lock = Lock.of_section(roots, address, name)
        found.setdefault(lock.platform_lock, lock)
    for thread in threads:
        address = (thread.futex or 0) - (roots.platform.futex if roots.platform else 0)
        if address > 0 and address not in found and roots.is_platform_lock(address):
            found[address] = Lock.of_platform(roots, address)
    return list(found.values())


def deadlocks(found, threads):
    """Yields cycles as lists of (the thread's identifier, the lock it waits for)."""
    lock_of = {lock.futex: lock for lock in found if lock.futex is not None}
    wants = {thread.identifier: lock_of[thread.futex] for thread in threads
             if thread.futex in lock_of}
    seen = set()
    for start in sorted(wants):
        path = []
        thread = start
        while thread in wants and thread not in seen:
            seen.add(thread)
            path.append((thread, wants[thread]))
            thread = wants[thread].owner
        identifiers = [step[0] for step in path]
        if thread in identifiers:
            yield path[identifiers.index(thread):]


def table(rows):
    """Yields the lines of a table whose first row is its heading."""
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        yield "  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip()


def owner_text(owner, labels):
    if owner == 0:
        return "-"
    return labels.get(owner, "LWP %d (ended)" % owner)


def locks(roots, all_of_them=False):
    """Yields deadlocks as sentences, then the locks that are held or waited for."""
    threads = roots.debugger.threads()
    labels = {thread.identifier: thread.label for thread in threads}
    found = all_locks(roots, threads)
    for cycle in deadlocks(found, threads):
        steps = []
        for i, (thread, lock) in enumerate(cycle):
            held = cycle[i - 1][1]  # what the one before waits for
            steps.append("%s holds '%s' and waits for '%s'" % (labels[thread], held.name,
                                                              lock.name))
        yield "DEADLOCK: " + "; ".join(steps)
    rows = [("LOCK", "OWNER", "DEPTH", "WAITING")]
    for lock in found:
        waiting = [thread.label for thread in threads
                   if thread.futex is not None and thread.futex == lock.futex]
        if lock.owner == 0 and not waiting and not all_of_them:
            continue
        rows.append(("'%s'" % lock.name, owner_text(lock.owner, labels), str(lock.depth),
                     ", ".join(waiting) or ("-" if lock.futex is not None else "unknown")))
    if len(rows) > 1:
        yield from table(rows)
    else:
        yield "1 lock, free" if len(found) == 1 else "%d locks, all free" % len(found)


def names(roots):
    """Yields the named objects: type, name, object, owner of the lock."""
    labels = {thread.identifier: thread.label for thread in roots.debugger.threads()}
    rows = [("NAMESPACE", "TYPE", "NAME", "OBJECT", "LOCK")]
    for _, space_name, entries in namespaces(roots):
        for entry in entries:
            owner = Lock.of_section(roots, entry.lock, entry.name).owner
            # Debuggers demangle symbols, and types only as part of one.
            symbol = roots.debugger.demangled("_ZTI" + entry.type_name)
            shown = symbol.split("typeinfo for ", 1)[-1]
            rows.append((space_name, entry.type_name if shown == symbol else shown,
                         "'%s'" % entry.name, "%#x" % entry.object if entry.object else "none",
                         owner_text(owner, labels) if owner else "free"))
    if all(row[0] == "GLOBAL" for row in rows[1:]):
        rows = [row[1:] for row in rows]
    if len(rows) > 1:
        yield from table(rows)
    else:
        yield "no named objects"


def pools(roots):
    """Yields the object pools: in use, most in use, peak demand per second."""
    read, layout = roots.debugger, roots.pools
    rows = [("POOL", "IN USE", "MOST IN USE", "PEAK/S")]
    node = read.word(layout.stack)
    for _ in range(MOST_ITEMS):
        if node == 0:
            break
        logger = read.word(node + layout.loggerInNode)
        if logger != 0:
            record = read.word(logger + layout.recordInLogger)
            rows.append((read.c_string(read.word(record + layout.name)),
                         str(read.number(record + layout.inUse, "<i")),
                         str(read.number(record + layout.maxInUse, "<i")),
                         "%.2f" % (1000 * read.number(record + layout.peakDemand, "<d"))))
        node = read.word(node + layout.nextInNode)
    else:
        raise Unreadable("the list of pools has no end")
    if len(rows) > 1:
        yield from table(rows)
    else:
        yield "no pools"


STATES = ("running", "first pass of the shutdown", "final pass of the shutdown")


def shutdown(roots):
    """Yields the state, and the callbacks in order with what they call."""
    read, layout = roots.debugger, roots.shutdown
    due, running = struct.unpack("<2Q", read.read(layout.progress, 16))
    status = read.number(layout.status)
    if status > 2:
        raise Unreadable("the state of the shutdown is damaged")
    ended = status == 2 and read.number(layout.progress + 16) == 1
    yield "ended" if ended else STATES[status]
    items = list(items_of(read, due)) if due else []
    items += items_of(read, layout.list_ + layout.itemsInList)
    if running and running not in items:
        items.insert(0, running)
    rows = [("PRIORITY", "FUNCTION", "STATE")]
    for item in items:
        rows.append((str(read.number(item + layout.priority)),
                     function_of(roots, read.word(item + layout.callback)),
                     "RUNNING" if item == running else ""))
    if len(rows) > 1:
        yield from table(rows)


def items_of(read, tree):
    """Yields the addresses of a std::set's values in order, like libstdc++ walks it."""
    header = tree + 8
    count = read.word(tree + 40)
    if count > MOST_ITEMS:
        raise Unreadable("the shutdown list is damaged")
    path, node = [], read.word(header + 8)
    for _ in range(count):
        while node != 0:
            path.append(node)
            if len(path) > 64:
                raise Unreadable("the shutdown list is damaged")
            node = read.word(node + 16)
        if not path:
            raise Unreadable("the shutdown list is damaged")
        node = path.pop()
        yield node + 32
        node = read.word(node + 24)


def function_of(roots, callback):
    """The name of what a callback calls."""
    if callback == 0:
        return "null"
    read = roots.debugger
    virtual_table = read.word(callback)
    type_name = read.c_string(read.word(read.word(virtual_table - 8) + 8))
    if type_name != FUNCTION_CALLBACK_TYPE:
        execute = read.word(virtual_table + 16)
        return read.symbol_at(execute) or "%#x" % execute
    function = callback + roots.shutdown.function
    for _ in range(2):
        stored, invoker = read.word(function), read.word(function + 24)
        plain = read.symbol_at(stored)
        if plain is not None:
            return plain
        # The library wraps functions without arguments.
        if "libVx.so" not in (read.module_of(invoker) or ""):
            break
        function = stored
    name = read.symbol_at(invoker)
    callable_type = INVOKER.fullmatch(name or "")
    return callable_type[1] if callable_type else name or "%#x" % invoker
