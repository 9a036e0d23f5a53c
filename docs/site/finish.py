"""finish.py HTML-FOLDER TAG-FILE: completes the pages that Doxygen wrote.

- Sections of guides get addresses made of their titles ("#sharing"), which stay the same when a
  section is added before them.
- Every page gets the side bar: guides in the order of the table in docs/index.md, reference, project.
- search-index.js lists each section of each guide with its text, and each public name.
"""

import html
import html.parser
import json
import pathlib
import re
import sys
import xml.etree.ElementTree

PROJECT = ("md_CHANGELOG.html", "md_CONTRIBUTING.html", "md_SECURITY.html")
LISTS = (("annotated.html", "Classes"), ("files.html", "Headers"), ("namespaces.html", "Namespaces"))
SECTION = re.compile(r'<h([123])(?: class="groupheader")?><a (?:class="anchor" )?id="([^"]+)"[^>]*>'
                     r"</a>\s*(.*?)</h\1>", re.S)


def plain(markup):
    return " ".join(html.unescape(re.sub(r"<[^>]+>", "", markup)).split())


def slug(title):
    return re.sub(r"[^\w\- ]", "", title.lower()).strip().replace(" ", "-")


class Page:
    def __init__(self, path):
        self.name, self.text = path.name, path.read_text(encoding="utf-8")
        title = re.search(r'<div class="title">(.*?)</div>', self.text, re.S)
        self.title = re.sub(r" (Class|Struct|Namespace|File)( Template)? Reference.*", "",
                            plain(title[1])) if title else "Vx"

    def name_sections(self):
        """Names the sections after their titles. Returns the new address of each old one."""
        names, taken = {}, set()
        for _, anchor, title in SECTION.findall(self.text):
            if anchor.startswith("autotoc_"):
                name = base = slug(plain(title))
                count = 0
                while name in taken:
                    count += 1
                    name = f"{base}-{count}"
                taken.add(name)
                names[anchor] = name
        return names

    def contents(self):
        return self.text[self.text.index('<div class="contents">'):self.text.index("</main>")]

    def sections(self):
        """Yields address, title, level and markup of the page's start and of each section."""
        contents = self.contents()
        starts = list(SECTION.finditer(contents))
        ends = [m.start() for m in starts] + [len(contents)]
        yield self.name, self.title, 0, contents[:ends[0]]
        for start, end in zip(starts, ends[1:]):
            level, anchor, title = start.groups()
            yield f"{self.name}#{anchor}", plain(title), int(level), contents[start.end():end]


def link(page, title, current, inner=""):
    here = ' aria-current="page"' if current else ""
    # A long name may break before a word of it.
    title = re.sub(r"(?<=[a-z]{3})(?=[A-Z])|(?<=::)", "<wbr>", html.escape(title))
    return f'<li><a href="{page}"{here}>{title}</a>{inner}</li>'


def side_bar(page, guides, pages, compounds):
    def sections():
        found = [s for s in page.sections() if 0 < s[2] < 3]
        top = min((s[2] for s in found), default=0)
        items = [link(address, title, False) for address, title, level, _ in found if level == top]
        return f'<ul class="sections">{"".join(items)}</ul>' if items else ""

    def entry(name, title):
        current = name == page.name
        return link(name, title, current, sections() if current else "")

    def group(title, items):
        return f"<h2>{title}</h2><ul>{''.join(items)}</ul>"

    lists = []
    for name, title in LISTS:
        members = compounds[name]
        current = name == page.name or page.name in members
        inner = "".join(entry(*m) for m in sorted(members.items(), key=lambda m: m[1].lower()))
        lists.append(link(name, title, name == page.name, f"<ul>{inner}</ul>" if current else ""))
    return (f"<ul>{entry('index.html', 'Overview')}</ul>" +
            group("Guides", [entry(g, pages[g].title) for g in guides]) +
            group("Reference", lists) +
            group("Project", [entry(p, pages[p].title) for p in PROJECT]))


def public_names(tags):
    """Yields name, owner, address and arguments of every documented name."""
    seen = set()
    for compound in tags.iter("compound"):
        owner = compound.findtext("name")
        if compound.get("kind") in ("class", "struct", "namespace"):
            yield owner, compound.get("kind"), compound.findtext("filename"), ""
        for member in compound.iter("member"):
            address = member.findtext("anchorfile", "") + "#" + member.findtext("anchor", "")
            if address not in seen and len(address) > 1:
                seen.add(address)
                yield (member.findtext("name"), owner, address,
                       member.findtext("type", "") + " … " + member.findtext("arglist", ""))


def summaries(pages):
    """Maps the address of each member to the first paragraph of its docstring."""
    found = {}
    for page in pages.values():
        for part in page.text.split('<a id="')[1:]:
            text = re.search(r'<div class="memdoc">\s*<p\s?>(.*?)</p>', part, re.S)
            if text:
                found[page.name + "#" + part.split('"')[0]] = plain(text[1])
    return found


def search_index(guides, pages, tags):
    rows = []
    for name in ["index.html", *guides, *PROJECT]:
        page = pages[name]
        for address, title, _, markup in page.sections():
            rows.append(["Guides", title, "" if title == page.title else page.title, address,
                         plain(markup.replace("</div>", " </div>").replace("</td>", " </td>"))])
    about = summaries(pages)
    for name, owner, address, arguments in public_names(tags):
        rows.append(["Reference", name, owner, address, about.get(address, arguments)])
    return rows


def main():
    folder = pathlib.Path(sys.argv[1])
    tags = xml.etree.ElementTree.parse(sys.argv[2]).getroot()
    pages = {path.name: Page(path) for path in sorted(folder.glob("*.html"))}

    names = {name: page.name_sections() for name, page in pages.items()}
    for page in pages.values():
        def renamed(match):
            target, anchor = match[2] or page.name, match[3]
            return f'{match[1]}{match[2]}{"#" if match[1] == "href=" + chr(34) else ""}' + \
                names.get(target, {}).get(anchor, anchor)
        page.text = re.sub(r'(href=")([^"#]*)#(autotoc_md\d+)', renamed, page.text)
        page.text = re.sub(r'(id=")()(autotoc_md\d+)', renamed, page.text)
        # Doxygen takes the library's name for the namespace.
        if page.name.startswith(("md_", "index.")):
            page.text = re.sub(r'<a class="el" href="namespaceVx\.html"[^>]*>Vx</a>(?!::)', "Vx",
                               page.text)
        # A picture shrinks with the page, and has the colours of the page's scheme.
        page.text = re.sub(r'<object type="image/svg\+xml" data="([^"]+)"[^>]*></object>'
                           r'(\s*<div class="caption">\s*([^<]*)</div>)?', lambda match:
                           '<img src="%s" alt="%s"/>%s' % (
                               match[1], (match[3] or "").strip(), match[2] or ""), page.text)
        page.text = re.sub(r"<code>(.*?)</code>", lambda match: match[0] if len(plain(match[1])) > 24
                           else f'<code class="short">{match[1]}</code>', page.text, flags=re.S)
        # Doxygen leaves links to a section of another guide as they are in the source.
        page.text = re.sub(r'href="(?:docs/)?([\w-]+)\.md#', lambda match: 'href="md_docs_%s.html#' %
                           match[1].replace("-", "_"), page.text)

    pages["index.html"].title, pages["md_docs_index.html"].title = "Overview", "All guides"
    guides = list(dict.fromkeys(re.findall(r'href="(md_docs_\w+\.html)"',
                                           pages["md_docs_index.html"].contents())))
    guides.insert(0, "md_docs_index.html")
    unlisted = [p for p in pages if p.startswith("md_") and p not in guides and p not in PROJECT
                and "benchmarks_" not in p]
    if unlisted:
        sys.exit("docs/index.md does not list " + ", ".join(unlisted))

    compounds = {
        "annotated.html": {c.findtext("filename"): c.findtext("name") for c in tags.iter("compound")
                           if c.get("kind") in ("class", "struct")},
        "files.html": {c.findtext("filename"): c.findtext("name") for c in tags.iter("compound")
                       if c.get("kind") == "file"},
        "namespaces.html": {c.findtext("filename"): c.findtext("name")
                            for c in tags.iter("compound") if c.get("kind") == "namespace"}}
    for page in pages.values():
        page.text = page.text.replace("</nav>", side_bar(page, guides, pages, compounds) + "</nav>")
        # The side bar lists the sections; Doxygen's list has links to sections that are not there.
        page.text = re.sub(r'<div class="summary">.*?</div>', "", page.text, flags=re.S)
        (folder / page.name).write_text(page.text, encoding="utf-8")

    rows = ",\n".join(json.dumps(row, ensure_ascii=False)
                      for row in search_index(guides, pages, tags))
    (folder / "search-index.js").write_text(f"const searchIndex = [\n{rows}\n];\n", "utf-8")


main()
