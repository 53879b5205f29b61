#!/usr/bin/env python3
"""Checks that the links of the documents lead to files and headings that exist.

usage: check_links.py ROOT

Looks at the pages of ROOT, docs/ and bench/. A link is [text](target): a file, seen from the page's
folder, a #heading, or both. Links to web pages are not checked.
"""

import pathlib
import re
import sys

CODE = re.compile(r"^```(?s:.*?)^```|^    .*$|`[^`\n]*`", re.MULTILINE)
LINK = re.compile(r"\[[^\]]+\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ +(.+)$", re.MULTILINE)


def anchors(page):
    """The headings of a page as links name them."""
    text = re.sub(r"^```.*?^```", "", page.read_text(encoding="utf-8"),
                  flags=re.MULTILINE | re.DOTALL)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
            for heading in HEADING.findall(text)}


def without_code(text):
    """Code that stands in the text of a link counts as a word."""
    return CODE.sub("code", text)


def broken(root, page, target):
    """What is wrong with a link, or None."""
    if re.match(r"[a-z]+:", target):
        return None
    name, _, anchor = target.partition("#")
    linked = (page.parent / name).resolve() if name else page
    if not linked.exists():
        return "no such file"
    if not linked.is_relative_to(root):
        return "outside the tree"
    if anchor and (linked.suffix != ".md" or anchor not in anchors(linked)):
        return "no such heading"
    return None


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    folders = ("", "docs", "bench", "examples/faults")
    pages = sorted(page for folder in folders for page in (root / folder).glob("*.md"))
    found = []
    links = 0
    for page in pages:
        for target in LINK.findall(without_code(page.read_text(encoding="utf-8"))):
            links += 1
            wrong = broken(root, page, target)
            if wrong:
                found.append(f"{page.relative_to(root)}: {target}: {wrong}")
    if not links:
        found.append(f"no page below {root} has a link")
    print("\n".join(found) if found else f"{links} links of {len(pages)} pages lead somewhere")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
