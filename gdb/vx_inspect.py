"""gdb commands that show the state of Vx in a process or core file.

    info vx locks       the locks that the library knows: owner, depth, waiting threads, deadlocks
    info vx names       the named objects of the global namespace
    info vx pools       the demand on the object pools
    info vx shutdown    the shutdown callbacks in order, and the one that runs

They follow the same roots as `vx inspect`: the descriptors that libVx.so and libOS.so export. They
only read memory, and need neither debug information nor the pretty printers.
"""

import struct

import gdb

VX_MOST_ITEMS = 1 << 20
VX_FUTEX_CALL = 202


class VxUnreadable(Exception):
    """The process does not contain what was looked for."""


def vx_bytes(address, size):
    try:
        return gdb.selected_inferior().read_memory(address, size).tobytes()
    except gdb.MemoryError:
        raise VxUnreadable("cannot read memory at %#x" % address)


def vx_word(address):
    return struct.unpack("<Q", vx_bytes(address, 8))[0]


def vx_number(address, form="<I"):
    return struct.unpack(form, vx_bytes(address, struct.calcsize(form)))[0]


class VxTable:
    """A table of the descriptor. Members are named in order; "P" is an address, "I" a number."""

    def __init__(self, address, layout):
        form = "<" + "".join(kind for _, kind in layout)
        size = vx_number(address)
        if size < struct.calcsize(form):
            raise VxUnreadable("the library is of another version than these commands")
        values = struct.unpack(form, vx_bytes(address, struct.calcsize(form)))
        for (name, _), value in zip(layout, values):
            setattr(self, name, value)


def vx_layout(text):
    """Parses "size repInSection *self": a star marks an address."""
    return [(word.lstrip("*"), "Q" if word[0] == "*" else "I") for word in text.split()]


VX_LOCKS = vx_layout(
    "size repInSection *self platformLock entryCount ownerThread name blockInString dataInBlock"
    " lengthInBlock capacityInBlock standardLibrary")
VX_NAMES = vx_layout(
    "size entries *global_ namespaceLock namespaceName object lock typeName objectName")
VX_SHUTDOWN = vx_layout(
    "size lockInList *status *list_ *progress itemsInList priority sequence callback function")
VX_POOLS = vx_layout(
    "size recordInLogger *stack nextInNode loggerInNode name inUse maxInUse peakDemand peakTime"
    " peakWallTime")
VX_PLATFORM_LOCKS = vx_layout("size lockSize *self recursion owner futex threadIdBits")


class VxRoots:
    """The tables that the descriptors refer to."""

    def __init__(self):
        library = self.find("Vx_inspectDescriptor", b"Vx library 1")
        if library is None:
            raise VxUnreadable("libVx.so is not loaded, or is older than these commands")
        tables = struct.unpack("<5Q", vx_bytes(library + 56, 40))
        self.locks = VxTable(tables[0], VX_LOCKS)
        self.names = VxTable(tables[1], VX_NAMES)
        self.shutdown = VxTable(tables[2], VX_SHUTDOWN)
        self.pools = VxTable(tables[4], VX_POOLS)
        platform = self.find("Vx_inspectPlatform", b"Vx platform 1")
        self.platform = None
        if platform is not None:
            self.platform = VxTable(vx_word(platform + 32), VX_PLATFORM_LOCKS)
            self.platform_file = gdb.solib_name(platform)

    @staticmethod
    def find(symbol, magic):
        try:
            address = int(gdb.parse_and_eval("(unsigned long)&" + symbol))
        except gdb.error:
            return None
        start = vx_bytes(address, 32)
        if not start.startswith(magic) or struct.unpack("<I", start[16:20])[0] != 1:
            raise VxUnreadable("%s is of another version than these commands" % symbol)
        return address

    def text(self, address):
        block = vx_word(address + self.locks.blockInString)
        if block == 0:
            return ""
        length = vx_number(block + self.locks.lengthInBlock)
        if not length < vx_number(block + self.locks.capacityInBlock) or length > 1 << 16:
            raise VxUnreadable("damaged string at %#x" % address)
        return vx_bytes(vx_word(block + self.locks.dataInBlock), length).decode("utf-8", "replace")


class VxLock:
    """A CriticalSection at an address."""

    def __init__(self, roots, address, name):
        rep = vx_word(address + roots.locks.repInSection)
        self.name = roots.text(rep + roots.locks.name) or name
        self.depth = vx_number(rep + roots.locks.entryCount)
        self.owner = vx_number(rep + roots.locks.ownerThread)
        self.platform_lock = vx_word(rep + roots.locks.platformLock)
        self.futex = None
        table = vx_word(self.platform_lock)
        if roots.platform is not None and gdb.solib_name(table) == roots.platform_file:
            self.futex = self.platform_lock + roots.platform.futex


def vx_entries(roots):
    """Yields the type, the name, the object and the lock's address of each entry."""
    space = vx_word(roots.names.global_)
    if space == 0:
        return
    head = space + roots.names.entries
    before, node = head, vx_word(head)
    for _ in range(VX_MOST_ITEMS):
        if node == head:
            return
        if vx_word(node + 8) != before:
            break
        entry = vx_word(node + 16)
        yield (roots.text(entry + roots.names.typeName), roots.text(entry + roots.names.objectName),
               vx_word(entry + roots.names.object), entry + roots.names.lock)
        before, node = node, vx_word(node)
    raise VxUnreadable("the list of named objects is damaged")


def vx_locks(roots):
    """Returns every lock that the library knows, once."""
    places = []
    space = vx_word(roots.names.global_)
    if space != 0:
        places.append((space + roots.names.namespaceLock, "namespace GLOBAL"))
        for type_name, name, address, lock in vx_entries(roots):
            places.append((lock, name))
            if type_name == "15CriticalSection" and address != 0:
                places.append((address, name))
    places.append((roots.shutdown.list_ + roots.shutdown.lockInList, "shutdown list"))
    found = {}
    for address, name in places:
        lock = VxLock(roots, address, name)
        found.setdefault(lock.platform_lock, lock)
    return list(found.values())


def vx_waiting_threads():
    """Returns the futex that each waiting thread sleeps on, and the names of all threads."""
    waiting, names = {}, {}
    selected = gdb.selected_thread()
    frame = gdb.selected_frame() if selected is not None and selected.is_valid() else None
    try:
        for thread in gdb.selected_inferior().threads():
            thread.switch()
            identifier = thread.ptid[1]
            names[identifier] = "thread %d (LWP %d%s)" % (
                thread.num, identifier, " '%s'" % thread.name if thread.name else "")
            innermost = gdb.newest_frame()
            if int(innermost.read_register("orig_rax")) == VX_FUTEX_CALL:
                waiting[identifier] = int(innermost.read_register("rdi")) & 0xFFFFFFFFFFFFFFFF
    finally:
        if selected is not None:
            selected.switch()
            frame.select()
    return waiting, names


def vx_deadlocks(locks, waiting):
    """Yields cycles as lists of (thread, the lock it waits for)."""
    lock_of = {lock.futex: lock for lock in locks if lock.futex is not None}
    wants = {thread: lock_of[futex] for thread, futex in waiting.items() if futex in lock_of}
    seen = set()
    for start in sorted(wants):
        path = []
        thread = start
        while thread in wants and thread not in seen:
            seen.add(thread)
            path.append((thread, wants[thread]))
            thread = wants[thread].owner
        threads = [step[0] for step in path]
        if thread in threads:
            yield path[threads.index(thread):]


def vx_print_rows(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


class VxCommand(gdb.Command):
    """Reports what cannot be read in one line."""

    def __init__(self, name):
        super().__init__("info vx " + name, gdb.COMMAND_STATUS)

    def invoke(self, argument, from_tty):
        try:
            self.show(VxRoots(), argument)
        except (VxUnreadable, gdb.error, struct.error) as problem:
            raise gdb.GdbError("info vx: %s" % problem)


class VxInfo(gdb.Command):
    """State of Vx: locks, names, pools, shutdown."""

    def __init__(self):
        super().__init__("info vx", gdb.COMMAND_STATUS, gdb.COMPLETE_NONE, True)


class VxInfoLocks(VxCommand):
    """Locks that the library knows: owner, depth, waiting threads. Deadlocks come first.

Usage: info vx locks [all]
Without "all", leaves out free locks."""

    def show(self, roots, argument):
        locks = vx_locks(roots)
        waiting, names = vx_waiting_threads()
        for cycle in vx_deadlocks(locks, waiting):
            steps = []
            for i, (thread, lock) in enumerate(cycle):
                held = cycle[i - 1][1]  # what the one before waits for
                steps.append("%s holds '%s' and waits for '%s'" % (names[thread], held.name,
                                                                  lock.name))
            print("DEADLOCK: " + "; ".join(steps))
        rows = [("LOCK", "OWNER", "DEPTH", "WAITING")]
        for lock in locks:
            sleepers = [names[thread] for thread, futex in sorted(waiting.items())
                        if futex == lock.futex]
            if lock.owner == 0 and not sleepers and argument != "all":
                continue
            owner = "-"
            if lock.owner != 0:
                owner = names.get(lock.owner, "LWP %d (ended)" % lock.owner)
            rows.append(("'%s'" % lock.name, owner, str(lock.depth), ", ".join(sleepers) or
                         ("-" if lock.futex is not None else "unknown")))
        if len(rows) > 1:
            vx_print_rows(rows)
        else:
            print("%d locks, all free" % len(locks))


class VxInfoNames(VxCommand):
    """Named objects of the global namespace: type, name, object, lock."""

    def show(self, roots, argument):
        rows = [("TYPE", "NAME", "OBJECT", "LOCK")]
        for type_name, name, address, lock in vx_entries(roots):
            owner = VxLock(roots, lock, name).owner
            # gdb demangles symbols, and types only as part of one.
            symbol = gdb.execute("demangle -l c++ -- _ZTI" + type_name, to_string=True).strip()
            shown = symbol[len("typeinfo for "):] if symbol.startswith("typeinfo for ") else type_name
            rows.append((shown, "'%s'" % name, "%#x" % address if address else "none",
                         "LWP %d" % owner if owner else "free"))
        if len(rows) > 1:
            vx_print_rows(rows)
        else:
            print("no named objects")


class VxInfoPools(VxCommand):
    """Object pools: in use, most in use, peak demand per second."""

    def show(self, roots, argument):
        layout = roots.pools
        rows = [("POOL", "IN USE", "MOST IN USE", "PEAK/S")]
        node = vx_word(layout.stack)
        for _ in range(VX_MOST_ITEMS):
            if node == 0:
                break
            logger = vx_word(node + layout.loggerInNode)
            if logger != 0:
                record = vx_word(logger + layout.recordInLogger)
                name = gdb.Value(vx_word(record + layout.name)).cast(
                    gdb.lookup_type("char").pointer()).string(errors="replace")
                rows.append((name, str(vx_number(record + layout.inUse, "<i")),
                             str(vx_number(record + layout.maxInUse, "<i")),
                             "%.2f" % (1000 * vx_number(record + layout.peakDemand, "<d"))))
            node = vx_word(node + layout.nextInNode)
        else:
            raise VxUnreadable("the list of pools has no end")
        if len(rows) > 1:
            vx_print_rows(rows)
        else:
            print("no pools")


class VxInfoShutdown(VxCommand):
    """Shutdown callbacks in order, with what they call, and the one that runs."""

    STATES = ("running", "first pass of the shutdown", "final pass of the shutdown")

    def show(self, roots, argument):
        layout = roots.shutdown
        due, running = struct.unpack("<2Q", vx_bytes(layout.progress, 16))
        status = vx_number(layout.status)
        if status > 2:
            raise VxUnreadable("the state of the shutdown is damaged")
        ended = status == 2 and vx_number(layout.progress + 16) == 1
        print("ended" if ended else self.STATES[status])
        items = list(self.items(due)) if due else []
        items += self.items(layout.list_ + layout.itemsInList)
        if running and running not in items:
            items.insert(0, running)
        rows = [("PRIORITY", "FUNCTION", "STATE")]
        for item in items:
            rows.append((str(vx_number(item + layout.priority)),
                         self.function(vx_word(item + layout.callback), layout),
                         "RUNNING" if item == running else ""))
        if len(rows) > 1:
            vx_print_rows(rows)

    @staticmethod
    def items(tree):
        """Yields the addresses of a std::set's values in order, like libstdc++ walks it."""
        header = tree + 8
        count = vx_word(tree + 40)
        if count > VX_MOST_ITEMS:
            raise VxUnreadable("the shutdown list is damaged")
        path, node = [], vx_word(header + 8)
        for _ in range(count):
            while node != 0:
                path.append(node)
                if len(path) > 64:
                    raise VxUnreadable("the shutdown list is damaged")
                node = vx_word(node + 16)
            if not path:
                raise VxUnreadable("the shutdown list is damaged")
            node = path.pop()
            yield node + 32
            node = vx_word(node + 24)

    @staticmethod
    def symbol(address):
        shown = gdb.execute("info symbol %#x" % address, to_string=True).strip()
        return None if shown.startswith("No symbol") else shown.split(" in section")[0]

    def function(self, callback, layout):
        if callback == 0:
            return "null"
        kind = self.symbol(vx_word(callback)) or ""
        if "Shutdown::FunctionCallback" not in kind:
            return self.symbol(vx_word(vx_word(callback) + 16)) or kind or "unknown"
        function = callback + layout.function
        for _ in range(2):
            stored, invoker = vx_word(function), vx_word(function + 24)
            plain = self.symbol(stored)
            if plain is not None:
                return plain
            if not gdb.solib_name(invoker) or "libVx.so" not in gdb.solib_name(invoker):
                break
            function = stored  # the library's wrapper around a function without arguments
        return self.symbol(invoker) or "%#x" % invoker


VxInfo()
for vx_command, vx_name in ((VxInfoLocks, "locks"), (VxInfoNames, "names"), (VxInfoPools, "pools"),
                            (VxInfoShutdown, "shutdown")):
    vx_command(vx_name)
