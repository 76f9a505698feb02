"""Every relative link of every page leads to a file of the tree, and to a heading in it."""

import pathlib
import re
import tempfile
import unittest
import urllib.parse

from pages import ROOT, Page, pages

_SPAN = re.compile(r"`[^`]*`")
_LINKS = (
    re.compile(r"\[(?:[^\[\]]|\[[^\]]*\]\([^)]*\)|!\[[^\]]*\]\([^)]*\))*\]\(\s*<?([^)\s>]+)>?[^)]*\)"),
    re.compile(r"!\[[^\]]*\]\(\s*<?([^)\s>]+)>?[^)]*\)"),
    re.compile(r"^\s*\[[^\]]+\]:\s+(\S+)", re.M),
    re.compile(r'<(?:img|a|source)\b[^>]*\b(?:src|href|srcset)="([^"]+)"'),
)
_ELSEWHERE = re.compile(r"^[a-z][a-z0-9+.-]*:")


def links(page):
    text = _SPAN.sub(lambda span: " " * len(span.group()), "\n".join(page.prose))
    return {link for pattern in _LINKS for link in pattern.findall(text)}


def fault(page, link, root):
    """Why a link leads nowhere; nothing when it is good or leads out of the tree."""
    if _ELSEWHERE.match(link):
        return None
    path, _, anchor = link.partition("#")
    target = page.path
    if path:
        target = (page.path.parent / urllib.parse.unquote(path)).resolve()
        if not target.is_relative_to(root) or not target.exists():
            return f"{link}: no such file"
    if not anchor:
        return None
    if target.suffix != ".md":
        return f"{link}: only headings of pages can be linked to"
    if anchor not in Page(target).anchors():
        return f"{link}: no such heading"
    return None


def faults(root):
    found = []
    for page in pages(root):
        for link in sorted(links(page)):
            if problem := fault(page, link, root):
                found.append(f"{page.path.relative_to(root)}: {problem}")
    return found


class Links(unittest.TestCase):
    def test_every_link_leads_somewhere(self):
        self.assertEqual([], faults(ROOT))

    def test_the_pages_have_links(self):
        self.assertGreater(sum(len(links(page)) for page in pages()), 50)

    def test_dead_links_are_found(self):
        with tempfile.TemporaryDirectory() as directory:
            root = pathlib.Path(directory).resolve()
            (root / "other.md").write_text("# A `b` heading\n## Again\n## Again\n")
            (root / "page.md").write_text(
                "[good](other.md#a-b-heading) [again](other.md#again-1) [out](https://x.test/)\n"
                "[dead](none.md) [wrong](other.md#none) ![picture](none.png) `[code](none)`\n"
                "[out of the tree](../..) <img src=\"none.svg\">\n"
                "```\n[in code](none.md)\n```\n"
            )
            self.assertEqual(
                ["../..", "none.md", "none.png", "none.svg", "other.md#none"],
                [line.split(": ")[1] for line in faults(root)],
            )


if __name__ == "__main__":
    unittest.main()
