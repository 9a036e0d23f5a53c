"""Completion of vx in bash, zsh and fish as a user sees it: types a line, presses Tab and reads the
line. What vx offers at each place is tested in VxToolTest; this tests the shells' quoting.

    VxCompletionTest.py FOLDER-OF-VX FOLDER-OF-SOURCES
"""
import fcntl, os, pty, re, select, shlex, struct, subprocess, sys, tempfile, termios, time

VX, SOURCES = map(os.path.abspath, sys.argv[1:])
CONTENT = "top=1\n[Video In]\nrate=1\n[We're $5: a=b]\nx\"y=1\n"

# A line, and the last word after Tab; the same word as before where nothing fits.
ROWS = [
    ("vx se", "settings"),
    ("vx --color never ini che", "check"),
    ("vx --color=al", "--color=always"),
    ("vx ini check --explain quo", "quoted-value"),
    ("vx ini show --case", "--case-sensitive"),
    (r"vx ini show a\ ", "a b.ini"),
    (r"vx ini show a\ b.ini vi", "Video In"),
    ("vx ini show 'a b.ini' vi", "Video In"),
    ('vx ini get "a b.ini" "VI', "Video In"),
    ("vx ini get 'a b.ini' 'vi", "Video In"),
    ("vx ini get ~/a*b.ini vi", "vi"),
    (r"vx ini get ~/a\ b.ini vi", "Video In"),
    (r"vx ini get -c a\ b.ini vi", "vi"),
    (r"vx ini get a\ b.ini We", "We're $5: a=b"),
    (r"vx ini get a\ b.ini 'We", "We're $5: a=b"),
    (r"vx ini get a\ b.ini We\'re\ \$5:", "We're $5: a=b"),
    (r"vx ini get a\ b.ini We\'re\ \$5:\ a=", "We're $5: a=b"),
    (r"vx ini set a\ b.ini Video\ In RA", "RA"),
    (r"vx ini set a\ b.ini video\ in ra", "rate"),
    (r"vx ini unset a\ b.ini " + "\"We're \\$5: a=b\" x", 'x"y'),
    (r"vx ini get none.ini vi", "vi"),
    ("true; vx inspect dead", "deadlocks"),
]

BASH = """source '{sources}/vx.bash'
PS1='ready> '
bind 'set bell-style none'
bind 'set enable-bracketed-paste off'
bind -x '"\\C-g": printf "\\nLINE<%s>\\n" "$READLINE_LINE"'
"""
ZSH = """fpath=('{home}' $fpath)
autoload -Uz compinit
compinit -u -D
PS1='ready> '
unsetopt prompt_cr prompt_sp list_beep beep auto_list auto_menu
bindkey -e
show() {{ zle -I; print -r -- "LINE<$BUFFER>" }}
zle -N show
bindkey '^G' show
"""


class Terminal:
    """A shell in a terminal."""

    def __init__(self, command, environment, folder):
        self.seen = ""
        self.process, self.descriptor = pty.fork()
        if self.process == 0:
            os.chdir(folder)
            os.execvpe(command[0], command, environment)
        fcntl.ioctl(self.descriptor, termios.TIOCSWINSZ, struct.pack("HHHH", 50, 400, 0, 0))
        self.wait("ready> ")

    def wait(self, pattern):
        deadline = time.monotonic() + 60  # only a broken shell takes so long
        while not (found := re.search(pattern, self.seen, re.DOTALL)):
            if not select.select([self.descriptor], [], [], deadline - time.monotonic())[0]:
                sys.exit(f"no {pattern!r} in {self.seen!r}")
            try:
                self.seen += os.read(self.descriptor, 65536).decode(errors="replace")
            except OSError:
                sys.exit(f"the shell ended: {self.seen!r}")
        self.seen = self.seen[found.end():]
        return found

    def line(self, keys):
        """The line after some keys. ^G prints it; the width avoids line breaks."""
        os.write(self.descriptor, (keys + "\x07").encode())
        found = self.wait(r"LINE<([^\r\n]*)>\r").group(1)
        self.wait("ready> ")  # until then the terminal itself may act on ^U
        return found

    def close(self):
        os.close(self.descriptor)
        os.waitpid(self.process, 0)


def last_word(line):
    for end in ("", "'", '"'):
        try:
            return shlex.split(line + end)[-1]
        except ValueError:
            pass
    return line


def main():
    faults = 0

    def check(shell, line, wanted, found):
        nonlocal faults
        if wanted != found:
            print(f"{shell}: {line}: {found!r} instead of {wanted!r}")
            faults += 1

    with tempfile.TemporaryDirectory() as home:
        environment = {"HOME": home, "ZDOTDIR": home, "TERM": "xterm", "LC_ALL": "C.UTF-8",
                       "PATH": VX + ":" + os.environ["PATH"]}
        for name, text in (("a b.ini", CONTENT), ("bashrc", BASH), (".zshrc", ZSH)):
            with open(os.path.join(home, name), "w") as file:
                file.write(text if name == "a b.ini" else text.format(home=home, sources=SOURCES))
        os.symlink(SOURCES + "/vx.zsh", os.path.join(home, "_vx"))
        for shell, command in (("bash", ["bash", "--noprofile", "--rcfile", home + "/bashrc", "-i"]),
                               ("zsh", ["zsh", "-i"])):
            terminal = Terminal(command, environment, home)
            for line, wanted in ROWS:
                check(shell, line, wanted, last_word(terminal.line(line + "\t")))
                assert terminal.line("\x15") == ""
            terminal.close()
        for line, wanted in ROWS:
            if last_word(line) == wanted:
                continue  # fish itself ignores case
            found = subprocess.run(
                ["fish", "--no-config", "-c", 'source "$argv[1]/vx.fish"; complete -C "$argv[2]"',
                 SOURCES, line], capture_output=True, text=True, env=environment, cwd=home)
            words = {word.split("\t")[0] for word in found.stdout.splitlines()}
            check("fish", line, {wanted}, words)
    sys.exit(faults != 0)


main()
