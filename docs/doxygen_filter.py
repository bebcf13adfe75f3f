"""Doxygen's view of a page: links that work among the files of the repository work in the site too.

Headings get the names that links to them use; links to pages and headers become references; a link
to a file that the site does not hold keeps its text only. Dead links stay, and are found in the site.

usage: doxygen_filter.py PAGE
"""

import os
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent


def label(page, heading):
    name = re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")
    return f"{page.stem.lower()}-{name}"


def reference(page, text, link):
    if re.match(r"[a-z]+:", link):
        return f"[{text}]({link})"
    path, _, fragment = link.partition("#")
    target = Path(os.path.normpath(page.parent / path)) if path else page
    if target.suffix == ".md":
        if fragment:
            return f"[{text}](@ref {label(target, fragment.replace('-', ' '))})"
        return f"[{text}]({link})"
    if target.suffix == ".h" and target.is_relative_to(ROOT / "alg_factory"):
        return f"[{text}](@ref {target.name})"
    return text if target.exists() else f"[{text}]({link})"


def main(page):
    in_code = False
    for line in page.read_text(encoding="utf-8").splitlines():
        if line.startswith("```"):
            in_code = not in_code
        elif not in_code:
            line = re.sub(r"\[([^\]]+)\]\(([^)\s]+)\)",
                          lambda m: reference(page, m.group(1), m.group(2)), line)
            heading = re.match(r"##+ (.*)", line)
            if heading:
                line += f" {{#{label(page, heading.group(1))}}}"
        print(line)


main(Path(sys.argv[1]).resolve())
