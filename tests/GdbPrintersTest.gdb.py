"""Prints values in gdb and compares: run as gdb --batch -x THIS PROGRAM."""

import re

import gdb

# Function, then expression and what gdb prints for it; a compiled expression must match
# the whole, a text must be the whole.
EXPECTED = {
    "strings": (
        ("none", '"" (length 0, sharers 0)'),
        ("name", '"clip" (length 4, sharers 2)'),
        ("&name", re.compile(r"\(const LightweightString<char> \*\) 0x[0-9a-f]+")),
        ("zeros", r'"a\000b\000" (length 4, sharers 1)'),
        ("utf8", '"Zürich €" (length 11, sharers 1)'),
        ("broken", r'"x\377y" (length 3, sharers 1)'),
        ("large", "'a' <repeats 200 times>... (length 300000, sharers 1)"),
        ("wide", 'L"Zürich 🎬" (length 8, sharers 1)'),
        ("zeroed.object", '"" (length 0, sharers 0)'),
        ("garbage.object", re.compile("<(unreadable|damaged): .*>")),
        ("cut", "<damaged: no terminator>"),
    ),
    "pointers": (
        ("nobody", "Vx::Ptr<(anonymous namespace)::Clip> (empty)"),
        ("clip", re.compile(r"Vx::Ptr<.*Clip> \(count 2, the object's counter\) = "
                            r"\{object = 0x[0-9a-f]+\}")),
        ("base", re.compile(r"Vx::Ptr<iObject> \(count 2, the object's counter\) = .*")),
        ("*clip.object", re.compile(r".*frames = 25.*")),
        ("counter", re.compile(r"Vx::Ptr<.*Counter> \(count 1, a counter of its own\) = .*")),
        ("garbage.object", re.compile("<unreadable: .*> = .*")),
    ),
    "documents": (
        ("pair", '"rate" = "25" (form 0)'),
        ("comment", '"; note" (form 0, no pair)'),
        ("unsplit", '"a=b" (form 1, not split)'),
        ("changed", '"a" = "c" (form 2, text is stale)'),
        ("odd", "<damaged: form 9>"),
        ("nothing", "VxIniFile without a path (0 sections, case-sensitive)"),
        ("ini", 'VxIniFile L"editor.ini" (8 sections, case-blind) = {'
                '["@@@ANONYMOUS_SECTION_RESERVED_NAME@@@"] = {"; note" (form 0, no pair)}, '
                '["Audio"] = {"gain" = "-3" (form 0)}, ["Empty"] = no pairs, '
                '["Keys"] = no pairs, ["Many" (the first 200 of 250)] = '
                '{"rate" = "25" (form 0) <repeats 200 times>}, ["Paths"] = no pairs, ["Titles"] = no pairs, '
                '["Video"] = {"rate" = "25" (form 0), "; note" (form 0, no pair)}}'),
        ("zeroed.object", "VxIniFile without a path (0 sections, case-blind)"),
        ("garbage.object", re.compile("<.*>")),
        ("section", 'at "Audio" (1 pair)'),
        ("nothing.getSectionIterator()", "at the end"),
        ("nowhere", "at the end"),
        ("list", 'LightweightVector (2 items, sharers 2) = '
                 '{"rate" = "25" (form 0), "; note" (form 0, no pair)}'),
        ("empty", "LightweightVector (0 items, sharers 1)"),
        ("many", re.compile(r"LightweightVector \(250 items, sharers 1\) = "
                            r"\{0, 1, 2, .*, 199\.\.\.\}")),
        ("rawList.object", re.compile("<unreadable: .*>")),
    ),
    "identifiers": (
        ("id", "{0123abcd-4567-89ef-0123-456789abcdef}"),
        ("noId", "{00000000-0000-0000-0000-000000000000} (invalid)"),
        ("noFormat", '"0" (no format)'),
        ("standard", '"25" (standard)'),
        ("custom", '"1080p5994" (custom)'),
    ),
    "locks": (
        ("free", "CriticalSection (free)"),
        ("named", 'CriticalSection "cache" (free)'),
        ("held", re.compile(r'CriticalSection "index" \(owner thread 1 \(LWP \d+\), depth 2\)')),
        ("garbage.object", re.compile("<unreadable: .*>")),
    ),
    "exceptions": (
        ("logic", r'Vx::Exception::LogicError "Not \"yet\"!" at ole/Vx/VxIniFile(305), no stack'),
        ("runtime", 'Vx::Exception::RuntimeError "out of frames" at ole/Vx/Example(7), 2 frames'
                    ' = {[0] = "inner+0x10", [1] = "outer+0x20"}'),
        ("garbage.object", re.compile("<unreadable: .*>")),
    ),
}


def check(expression, expected):
    try:
        printed = gdb.execute("print " + expression, to_string=True).strip()
    except gdb.error as error:
        printed = "gdb: %s" % error
    printed = re.sub(r"^\$\d+ = (\(const [^)]*&\) @0x[0-9a-f]+: )?", "", printed)
    right = expected.fullmatch(printed) if hasattr(expected, "fullmatch") else printed == expected
    if right:
        return True
    wanted = getattr(expected, "pattern", expected)
    print("print %s\n  printed:  %s\n  expected: %s" % (expression, printed, wanted))
    return False


def main():
    gdb.execute("set width 0")
    gdb.execute("set print pretty off")
    gdb.execute("set print object off")
    gdb.execute("break lookHere", to_string=True)
    gdb.execute("run", to_string=True)
    checked = wrong = 0
    for _ in EXPECTED:
        gdb.execute("up", to_string=True)
        function = gdb.selected_frame().name().split("(")[0]
        for expression, expected in EXPECTED[function]:
            checked += 1
            wrong += not check(expression, expected)
        gdb.execute("continue", to_string=True)
    print("%d values, %d printed wrong" % (checked, wrong))
    gdb.execute("quit %d" % (1 if wrong or not checked else 0))


try:
    main()
except Exception as failure:  # gdb goes on after a failed script and answers 0
    print("gdb: %s: %s" % (type(failure).__name__, failure))
    gdb.execute("quit 2")
