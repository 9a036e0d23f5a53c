"""Prints the values that GdbPrintersTest.cpp names, and compares: gdb --batch -x THIS PROGRAM."""

import os
import re

import gdb

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "GdbPrintersTest.cpp")
EXPECTATION = re.compile(r"\s*//> (.+?): (.*)\n")


def printed(expression):
    try:
        output = gdb.execute("print " + expression, to_string=True).strip()
    except gdb.error as error:
        return "gdb: %s" % error
    return re.sub(r"^\$\d+ = (\(const [^)]*&\) @0x[0-9a-f]+: )?", "", output)


def main():
    for command in ("set width 0", "set print pretty off", "set print object off",
                    "set may-call-functions off", "break lookHere", "run", "up"):
        gdb.execute(command, to_string=True)
    checked = wrong = 0
    with open(SOURCE, encoding="utf-8") as source:
        expectations = [match.groups() for match in map(EXPECTATION.match, source) if match]
    for expression, expected in expectations:
        output = printed(expression)
        checked += 1
        if not re.fullmatch(".*".join(map(re.escape, expected.split("…"))), output):
            wrong += 1
            print("print %s\n  printed:  %s\n  expected: %s" % (expression, output, expected))
    print("%d values, %d printed wrong" % (checked, wrong))
    gdb.execute("kill")
    gdb.execute("quit %d" % (1 if wrong or not checked else 0))


try:
    main()
except Exception as failure:  # after a failed script gdb would go on and exit with 0
    print("gdb: %s: %s" % (type(failure).__name__, failure))
    gdb.execute("quit 2")
