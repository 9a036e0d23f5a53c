"""GuideTest.py PAGE... -- COMPILER OPTION...: checks the programs and links of guides.

Compiles and runs the programs of a page in a temporary folder, in order. The fenced blocks mean:

    ```ini NAME      creates file NAME
    ```cpp           a program that exits with 0; without main() it is ignored
    ```sh            commands among the source tree's folders; the program above is ./program
    ```text          the output of the program above; another block, that of its next run
    ```text NAME     the current content of file NAME, except for line endings
    ```gdb           commands for gdb on the program above; the next ```text is gdb's output

A program without a ```text block prints nothing. In a ```text block "…" matches any characters of
a line, and a line of only "…" any number of lines.

In a table `| Does not compile | Write |` the code on the left of each row does not compile below the
last ```cpp block without main(), and that on the right does. Under another heading than "Does not
compile" only the right is checked.

Links to files must have a target.
"""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

SOURCES = Path(__file__).resolve().parent.parent
FENCE = re.compile(r"^```(\w*)(?: ([^\n]*))?\n(.*?)^```$", re.MULTILINE | re.DOTALL)
TABLE = re.compile(r"^\| ([^|\n]+) \| Write \|\n\|[-|]+\|\n((?:\|.*\n)+)", re.MULTILINE)
LINK = re.compile(r"\]\(([^)#\s]+)(?:#[^)]*)?\)")


class Wrong(Exception):
    pass


def matcher(expected):
    """A pattern for a whole ```text block."""
    lines = []
    for line in expected.splitlines():
        if line == "…":
            lines.append(r"(?:.*\n)*?")
        else:
            lines.append(".*".join(re.escape(part) for part in line.split("…")) + r"\n")
    return re.compile("".join(lines))


def compare(what, actual, expected):
    if actual and not actual.endswith("\n"):
        actual += "\n"
    if not matcher(expected).fullmatch(actual):
        raise Wrong("%s, expected:\n%s\nbut it is:\n%s" % (what, expected, actual))


class Page:
    def __init__(self, folder, compile_command):
        self.folder = Path(folder)
        self.compile_command = compile_command
        self.program = None
        self.command = None  # prints the next ```text block
        self.programs = 0
        for part in ("ole", "examples"):
            self.folder.joinpath(part).symlink_to(SOURCES / part)
        self.folder.joinpath("build").mkdir()
        self.folder.joinpath("build/release").symlink_to(Path.cwd().parent)
        # The platform's folders are inside the temporary one.
        self.environment = dict(os.environ, HOME=folder, LC_ALL="C.UTF-8", TMPDIR=folder,
                                XDG_CONFIG_HOME=folder + "/config", XDG_DATA_HOME=folder + "/data")

    def build(self, source):
        self.finish()
        self.programs += 1
        self.program = "./program%d" % self.programs
        Path(self.folder, "program.cpp").write_text(source, encoding="utf-8")
        compiler, *options = self.compile_command
        done = subprocess.run([compiler, "program.cpp", "-o", self.program, *options],
                              cwd=self.folder, capture_output=True, check=False)
        if done.returncode != 0:
            raise Wrong("program %d:\n%s" % (self.programs, done.stderr.decode()))
        self.command = [self.program]

    def run(self, expected):
        if self.program is None and self.command is None:
            raise Wrong("no program above this output:\n" + expected)
        command = self.command or [self.program]
        self.command = None
        done = subprocess.run(command, cwd=self.folder, env=self.environment, timeout=60,
                              stdin=subprocess.DEVNULL, capture_output=True, check=False)
        name = " ".join(command)
        compare(name + " printed", done.stdout.decode(), expected)
        if done.stderr or done.returncode != 0:
            raise Wrong("%s: exit status %d\n%s" % (name, done.returncode, done.stderr.decode()))

    def debug(self, typed):
        settings = ("set auto-load safe-path /", "set width 0", "set disable-randomization off")
        commands = [("-iex", line) for line in settings]
        commands += [("-ex", line) for line in typed.splitlines()]
        # Without a server gdb neither asks for one nor says so.
        self.command = ["env", "-u", "DEBUGINFOD_URLS", "gdb", "--batch", "-q", "-nx",
                        *sum(commands, ()), self.program]

    def shell(self, typed):
        if self.command != [self.program]:
            self.finish()
        program = Path(self.folder, "program")
        program.unlink(missing_ok=True)
        if self.program is not None:
            program.symlink_to(self.program)
        self.command = ["sh", "-ec", typed]

    def failing(self, declarations, statements):
        """Returns those of the statements that do not compile."""
        source = declarations + "".join("void row%d() { %s; }\n" % row
                                        for row in enumerate(statements))
        Path(self.folder, "rows.cpp").write_text(source, encoding="utf-8")
        compiler, *options = self.compile_command
        done = subprocess.run([compiler, "-fsyntax-only", *options, "-w", "rows.cpp"],
                              cwd=self.folder, capture_output=True, check=False)
        lines = set(re.findall(r"^rows\.cpp:(\d+):", done.stderr.decode(), re.MULTILINE))
        first = declarations.count("\n") + 1
        return [code for number, code in enumerate(statements, first) if str(number) in lines]

    def table(self, declarations, heading, rows):
        cells = [row.strip("| ").split(" | ") for row in rows.splitlines()]
        left, right = ([re.search("`([^`]+)`", row[i])[1] for row in cells] for i in (0, -1))
        wrong = self.failing(declarations, right)
        if wrong:
            raise Wrong("does not compile: " + "; ".join(wrong))
        if heading == "Does not compile":
            wrong = sorted(set(left) - set(self.failing(declarations, left)))
            if wrong:
                raise Wrong("compiles: " + "; ".join(wrong))

    def finish(self):
        """Runs a program without a ```text block."""
        if self.command is not None:
            self.run("")

    def block(self, language, name, content):
        if language == "cpp" and re.search(r"^int main\(", content, re.MULTILINE):
            self.build(content)
        elif language == "sh":
            self.shell(content)
        elif language == "gdb":
            self.debug(content)
        elif language == "text" and name:
            self.finish()
            text = Path(self.folder, name).read_bytes().decode().replace("\r\n", "\n")
            compare(name + " holds", text, content)
        elif language == "text":
            self.run(content)
        elif name:
            Path(self.folder, name).write_text(content, encoding="utf-8")


def check(path, compile_command):
    text = path.read_text(encoding="utf-8")
    for target in LINK.findall(FENCE.sub("", text)):
        if "://" not in target and not (path.parent / target).exists():
            raise Wrong("no such file: " + target)
    with tempfile.TemporaryDirectory() as folder:
        page = Page(folder, compile_command)
        for language, name, content in FENCE.findall(text):
            page.block(language, name, content)
        page.finish()
        for table in TABLE.finditer(text):
            blocks = FENCE.findall(text[:table.start()])
            page.table([code for language, _, code in blocks
                        if language == "cpp" and "int main(" not in code][-1], *table.groups())
    print("%s: %d programs" % (path.name, page.programs))


def main():
    arguments = sys.argv[1:]
    separator = arguments.index("--")
    failures = 0
    for name in arguments[:separator]:
        try:
            check(Path(name), arguments[separator + 1:])
        except (Wrong, OSError, subprocess.SubprocessError) as problem:
            print("%s: %s" % (name, problem))
            failures += 1
    sys.exit(1 if failures else 0)


main()
