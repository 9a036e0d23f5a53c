"""Prints the values that GdbPrintersTest.cpp names, and compares: gdb --batch -x THIS PROGRAM."""

import os
import re

import gdb

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "GdbPrintersTest.cpp")
EXPECTATION = re.compile(r"\s*//> (.+?): (.*)\n")
STOP = re.compile(r"\s+lookHere\(\);\n")


def printed(expression):
    try:
        output = gdb.execute("print " + expression, to_string=True).strip()
    except gdb.error as error:
        return "gdb: %s" % error
    return re.sub(r"^\$\d+ = (\(const [^)]*&\) @0x[0-9a-f]+: )?", "", output)


def main():
    for command in ("set width 0", "set print pretty off", "set print object off",
                    "set may-call-functions off", "break lookHere"):
        gdb.execute(command, to_string=True)
    with open(SOURCE, encoding="utf-8") as source:
        lines = source.readlines()
    checked = wrong = 0
    expectations = []  # before the next stop
    move = "run"
    for line in lines:
        match = EXPECTATION.match(line)
        if match:
            expectations.append(match.groups())
        if not STOP.match(line):
            continue
        gdb.execute(move, to_string=True)
        gdb.execute("up", to_string=True)
        move = "continue"
        for expression, expected in expectations:
            output = printed(expression)
            checked += 1
            if not re.fullmatch(".*".join(map(re.escape, expected.split("…"))), output):
                wrong += 1
                print("print %s\n  printed:  %s\n  expected: %s" % (expression, output, expected))
        expectations = []
    wrong += len(expectations)  # no stop follows them
    print("%d values, %d printed wrong" % (checked, wrong))
    gdb.execute("kill")
    gdb.execute("quit %d" % (1 if wrong or not checked else 0))


try:
    main()
except Exception as failure:  # after a failed script gdb would go on and exit with 0
    print("gdb: %s: %s" % (type(failure).__name__, failure))
    gdb.execute("quit 2")
