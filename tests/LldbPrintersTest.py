"""LldbPrintersTest.py PROGRAM FORMATTERS: compares what lldb shows of the values that
GdbPrintersTest.cpp names. Runs itself in lldb, which has the module that this needs. Exits with 77
if there is no lldb 14 or newer."""

import glob
import itertools
import os
import re
import shutil
import subprocess
import sys

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "GdbPrintersTest.cpp")
EXPECTATION = re.compile(r"\s*//> (.+?): (.*)\n")
STOP = re.compile(r"\s+lookHere\(\);\n")
MOST = 200  # as in gdb


def rendered(value):
    """Writes a value as gdb does."""
    is_vector = value.GetTypeName().startswith("std::vector<")
    text = None if is_vector else value.GetSummary() or value.GetValue()
    count = value.GetNumChildren() if is_vector or value.IsSynthetic() else 0
    if count == 0:
        return text or "no pairs"
    parts = []
    for i in range(min(count, MOST)):
        child = value.GetChildAtIndex(i)
        index = re.fullmatch(r"\[\d+\]", child.GetName())
        parts.append(rendered(child) if index else "%s = %s" % (child.GetName(), rendered(child)))
    groups = [(part, len(list(group))) for part, group in itertools.groupby(parts)]
    body = ", ".join("%s <repeats %d times>" % (part, times) if times > 10
                     else ", ".join([part] * times) for part, times in groups)
    body = "{%s%s}" % (body, "..." if count > MOST and not is_vector else "")
    return "%s = %s" % (text, body) if text else body


def test(debugger, program, formatters):
    debugger.SetAsync(False)
    for command in ("command script import " + formatters,
                    "settings set target.disable-aslr false",
                    "settings set target.max-string-summary-length %d" % MOST,
                    "settings set target.max-children-count %d" % MOST):
        debugger.HandleCommand(command)
    target = debugger.CreateTarget(program)
    target.BreakpointCreateByName("lookHere")
    process = target.LaunchSimple(None, None, os.getcwd())
    with open(SOURCE, encoding="utf-8") as source:
        lines = source.readlines()
    checked = wrong = 0
    expectations = []  # before the next stop
    for line in lines:
        match = EXPECTATION.match(line)
        if match and match[1][0] not in "&*":
            expectations.append(match.groups())
        if not STOP.match(line):
            continue
        frame = process.GetSelectedThread().GetFrameAtIndex(1)
        for expression, expected in expectations:
            value = frame.GetValueForVariablePath(expression)
            if not value.IsValid():
                value = target.FindFirstGlobalVariable(expression)
            output = rendered(value)
            # lldb 19 gives up by itself on an object that was never constructed.
            if expected.startswith("<unreadable"):
                output = output.replace("<incomplete type>", "<unreadable: type>")
            checked += 1
            if not re.fullmatch(".*".join(map(re.escape, expected.split("…"))), output):
                wrong += 1
                print("%s\n  shown:    %s\n  expected: %s" % (expression, output, expected))
        expectations = []
        process.Continue()
    process.Kill()
    print("%d values, %d shown wrong" % (checked, wrong))
    return 1 if wrong or not checked else 0


def __lldb_init_module(debugger, _):
    try:
        status = test(debugger, os.environ["PROGRAM"], os.environ["FORMATTERS"])
    except Exception as failure:  # after a failed script lldb would exit with 0
        print("lldb: %s: %s" % (type(failure).__name__, failure))
        status = 2
    sys.stdout.flush()
    os._exit(status)


if __name__ == "__main__":
    if not shutil.which("lldb"):
        print("skipped: lldb is not installed")
        sys.exit(77)
    version = subprocess.run(["lldb", "--version"], capture_output=True, text=True).stdout
    if int(re.search(r"version (\d+)", version)[1]) < 14:
        print("skipped: too old: " + version)
        sys.exit(77)
    # Debian's lldb 14 does not find its own module, and searches PATH for its Python.
    modules = ":".join(glob.glob("/usr/lib/llvm-*/lib/python3.*/dist-packages"))
    os.environ.update(PROGRAM=sys.argv[1], FORMATTERS=sys.argv[2], PYTHONPATH=modules,
                      PATH="/usr/bin:/bin", LC_ALL="C.UTF-8")
    os.execlp("lldb", "lldb", "--no-lldbinit", "--batch", "-o",
              "command script import " + os.path.abspath(__file__))
