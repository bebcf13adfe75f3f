"""Fails if a page below the folder links to a file or a place in one that does not exist.

usage: check_links.py FOLDER
"""

import sys
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit


class Page(HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.anchors = [], set()
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value:
                self.links.append(value)
            elif name == "id" or (name == "name" and tag == "a"):
                self.anchors.add(value)


def main(folder):
    pages = {path.resolve(): Page(path) for path in Path(folder).rglob("*.html")}
    if not pages:
        sys.exit(f"no pages in {folder}")
    broken = []
    for path, page in pages.items():
        for link in page.links:
            url = urlsplit(link)
            if url.scheme or url.netloc:
                continue
            target = (path.parent / unquote(url.path)).resolve() if url.path else path
            if not target.is_file():
                broken.append(f"{path.name}: {link}: no such file")
            elif url.fragment == "nested-classes":
                pass  # Doxygen names this list even where all that it would hold is private
            elif url.fragment and target in pages and unquote(url.fragment) not in pages[target].anchors:
                broken.append(f"{path.name}: {link}: no such place")
    if broken:
        sys.exit("\n".join(sorted(set(broken))))


main(sys.argv[1])
