"""filter.py FILE: prints a header or a guide in the form that Doxygen expects.

In a guide, code between backticks that has a quote in it gets two backticks, and a `%`
before a word is doubled: Doxygen takes the one for the end of a quotation, the other for an escape. In a header:
- The first comment of a header describes the file.
- A line of a docstring that starts with a label ("Thread safety: any thread.") becomes a paragraph
  with a title; one that starts with a number ("0: everything.") becomes a list item.
- A declaration directly below a documented one, without an empty line between them, shares its
  docstring.
- Explicit instantiations are removed, and so is what has no docstring of these: destructors, copy
  operations, defaulted and deleted functions, overrides, comparison operators, names that mean the
  same in every container of the standard library, and definitions of template members.
"""

import re
import sys

OPENS_BODY = re.compile(r'((template *<.*> *)?(class|struct|enum|namespace)\b|extern "C")[^;]*$')
ENUMERATOR = re.compile(r"\w+( = \w+)?,$")
SAYS_ALL = re.compile("|".join((
    r"= (default|delete);$", r"\boverride\b", r"^ *(VX_API |virtual )?~", r"^template .*>::\w+\(",
    r"\boperator *([=!<>]=|<|>|<=>)\(", r"\boperator=\(const ", r"\b(\w+)\(const \4(<\w+>)?& ?\w*\)",
    r"\busing ((value|size|difference|element)_type|(const_)?(iterator|reference)) =",
    r"\b(begin|end|size|empty)\(\)")))
DECLARES_NOTHING = re.compile(r"[}#)]|(public|private|protected):|static_assert|friend\b|return\b")

LABEL = re.compile(r"( *///) ([A-Z][a-z]+(?: [a-z]+){0,2}): +(.*)")
NUMBERED = re.compile(r"( *///) +(\d[\d, and]*): +(.*)")


def formatted(words, line):
    """Formats a line of a docstring, given the lines before it."""
    # Escapes what Doxygen would take for a command or the end of a comment.
    if not line.strip().startswith("///     "):
        line = line.replace(r"'\n'", r"'\\n'")
    line = re.sub(r"/\*\w+=\*/", "", line)
    label, numbered = LABEL.match(line), NUMBERED.match(line)
    if label and words:
        prefix, title, text = label.groups()
        if re.match(r"[a-z-]+([ ,;.]|: )", text):
            text = text[0].upper() + text[1:]
        return ["%s \\par %s" % (prefix, title), "%s %s" % (prefix, text)]
    if numbered:
        return ["%s - %s: %s" % numbered.groups()]
    return [line]


def depth_of(code):
    return sum(code.count(c) for c in "({") - sum(code.count(c) for c in ")}")


def statements(lines):
    """Yields ("other", lines), ("doc", lines) and ("code", lines) in order."""
    pending, depth = [], 0
    for line, following in zip(lines, lines[1:] + [""]):
        bare = line.strip()
        if not pending and (not bare or bare.startswith(("//", "#"))):
            yield ("doc" if re.match(r"///(?!<)", bare) else "other"), [line]
            continue
        code = re.sub(r"//.*", "", bare).strip()
        if not pending and (OPENS_BODY.match(code) or DECLARES_NOTHING.match(code)):
            yield "other", [line]
            continue
        pending.append(line)
        depth += depth_of(code)
        ended = code.endswith((";", "}")) and following.strip() != "{" or ENUMERATOR.match(code)
        if depth <= 0 and ended:
            yield "code", pending
            pending, depth = [], 0
    yield "other", pending


def print_guide(lines):
    fenced = False
    for line in lines:
        fenced ^= line.startswith("```")
        if not fenced and not line.startswith("    "):
            line = re.sub(r"(?<!`)`([^`]+)`(?!`)", lambda code: re.sub(r"%(?=\w)", "%%", code[0]), line)
            line = re.sub(r"(?<!`)`([^`]*'[^`]*)`(?!`)", r"``\1``", line)
        print(line)


def print_header(lines):
    about = re.match(r"// \S+ - (.)(.*)", lines[0]) if lines else None
    if about:
        lines[0] = "/// \\brief " + about[1].upper() + about[2]
        for i in range(1, len(lines)):
            if not lines[i].startswith("//"):
                break
            lines[i] = "/" + lines[i]
        print("/// \\file")

    words, fresh = [], False
    for kind, text in statements(lines):
        first = text[0].strip() if text else ""
        if kind == "doc":
            words = words if fresh else []
            text = formatted(words, text[0])
            words = words + text
            fresh = True
        elif kind == "other":
            words, fresh = [], False
        elif first.startswith("extern template"):
            text = [""] * len(text)
        elif not words and SAYS_ALL.search(" ".join(text)):
            text = [""] * len(text)
        else:
            if words and not fresh and "///<" not in text[-1]:
                text = words + text
            fresh = False
        print("\n".join(text))


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        lines = file.read().splitlines()
    if sys.argv[1].endswith(".md"):
        print_guide(lines)
    else:
        print_header(lines)


main()
