"""links.py HTML-FOLDER: reports dead links and anchors, summaries that end in a colon, markup that
Doxygen shows as text, and code of the guides that it changed.
"""

import html
import html.parser
import pathlib
import re
import sys
import urllib.parse

ADDRESSES = {"a": "href", "link": "href", "script": "src", "img": "src", "object": "data",
             "iframe": "src", "area": "href"}
SUMMARY = re.compile(r'<td class="(?:mdescRight|desc)"[^>]*>(.*?)(?:<a href="[^"]*">More\.\.\.</a>)?'
                     r"\s*(?:<br />\s*)?</td>", re.S)


class Page(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.anchors, self.links = set(), []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        for name in ("id", "name"):
            self.anchors.add(attributes.get(name))
        address = attributes.get(ADDRESSES.get(tag))
        if address is not None:
            self.links.append(address)


def visible(markup):
    return " ".join(html.unescape(re.sub(r"<[^>]+>", "", markup)).split())


def changed_code(texts):
    """Yields each piece of code in a guide that its page does not show."""
    for source in [*pathlib.Path(".").glob("*.md"), *sorted(pathlib.Path("docs").glob("*.md"))]:
        name = "md_" + re.sub(r"[/-]", "_", str(source)[:-3]) + ".html"
        page = texts["index.html" if source.name == "README.md" else name]
        shown = visible(page)
        pieces = {visible(code) for code in re.findall(r"<code[^>]*>(.*?)</code>", page, re.S)}
        text = source.read_text(encoding="utf-8")
        fences = re.compile(r"^```[^\n]*\n(.*?)^```", re.S | re.M)
        lines = [line for block in fences.findall(text) for line in block.splitlines()]
        prose = re.sub(r"^    .*", "", fences.sub("", text), flags=re.M)
        spans = re.findall(r"(?<!`)`([^`]+)`(?!`)", prose)
        yield from ((name, code) for code in lines if " ".join(code.split()) not in shown)
        yield from ((name, code) for code in spans if " ".join(code.split()) not in pieces)


def main():
    folder = pathlib.Path(sys.argv[1])
    texts = {p.name: p.read_text(encoding="utf-8") for p in sorted(folder.glob("*.html"))}
    pages = {name: Page(text) for name, text in texts.items()}
    faults, count = [], 0
    index = (folder / "search-index.js").read_text(encoding="utf-8")
    found = re.findall(r'", "([^"]*\.html[^"]*)", "', index)
    links = [("search-index.js", address) for address in found]
    links += [(name, address) for name, page in pages.items() for address in page.links]
    for name, address in links:
        url = urllib.parse.urlsplit(address)
        if url.scheme:
            if url.scheme not in ("https", "http", "data", "javascript", "mailto"):
                faults.append(f"{name}: '{address}' is a link of an unknown kind")
            continue
        count += 1
        target = urllib.parse.unquote(url.path) or name
        if not (folder / target).is_file():
            faults.append(f"{name}: '{address}' leads to no file")
        elif url.fragment and target in pages and \
                urllib.parse.unquote(url.fragment) not in pages[target].anchors:
            faults.append(f"{name}: '{address}' leads to no anchor")
    for name, text in texts.items():
        for summary in SUMMARY.findall(text):
            words = visible(summary)
            if words.endswith(":"):
                faults.append(f"{name}: the summary '{words}' ends in a colon")
        prose = re.sub(r'<(code|pre)\b.*?</\1>|<div class="line">.*?</div>', "", text, flags=re.S)
        for rest in re.findall(r"[^<>]*(?:`|\\ilinebr|&lt;/t[dr]&gt;)[^<>]*", prose):
            faults.append(f"{name}: markup shows in '{rest.strip()[:80]}'")
    for name, code in changed_code(texts):
        faults.append(f"{name}: does not show the code '{code}'")
    if count < 1000 or len(found) < 500:
        faults.append(f"only {count} links and {len(found)} rows of the index were found")
    if faults:
        sys.exit("\n".join(sorted(set(faults))))
    print(f"{count} links and anchors in {len(pages)} pages, none dead")


main()
