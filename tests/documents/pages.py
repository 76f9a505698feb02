"""What the tests of the documents share: the tree, its pages, and how a page is read."""

import os
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]

_FENCE = re.compile(r"^ {0,3}(`{3,}|~{3,})\s*([\w+-]*)")
_HEADING = re.compile(r"^ {0,3}#{1,6}\s+(.*?)\s*#*\s*$")
_EXAMPLE = re.compile(r"^<!-- from (\S+) -->$")


def files(*suffixes, below=("",), root=ROOT):
    """Files of the tree with one of the suffixes, below the directories named; no build output."""
    found = []
    for directory in below:
        for path, directories, names in os.walk(root / directory):
            directories[:] = sorted(
                name for name in directories if name != "build" and not name.startswith(".")
            )
            found += [pathlib.Path(path, name) for name in sorted(names) if name.endswith(suffixes)]
    return found


class Block:
    """A fenced block: where it begins, its language, its text, and the example it is taken from."""

    def __init__(self, line, language, example):
        self.line, self.language, self.example, self.text = line, language, example, ""


class Page:
    """A Markdown page, split into prose (code blocks and code spans blanked) and fenced blocks."""

    def __init__(self, path):
        self.path = pathlib.Path(path)
        self.text = self.path.read_text(encoding="utf-8")
        self.blocks, self.headings, self.prose = [], [], []
        self._read()

    def _read(self):
        block, fence, last = None, "", ""
        for number, line in enumerate(self.text.splitlines(), 1):
            opening = _FENCE.match(line)
            if block is not None:
                if line.strip().startswith(fence) and not line.strip().strip(fence[0]):
                    block = None
                else:
                    block.text += line + "\n"
                self.prose.append("")
            elif opening:
                fence = opening.group(1)
                example = _EXAMPLE.match(last)
                block = Block(number, opening.group(2), example and example.group(1))
                self.blocks.append(block)
                self.prose.append("")
            else:
                heading = _HEADING.match(line)
                if heading:
                    self.headings.append(heading.group(1))
                self.prose.append("" if line.startswith("    ") else line)
            if line.strip():
                last = line.strip()

    def anchors(self):
        """The anchors that a reader's browser gives to the headings."""
        anchors, seen = set(), {}
        for heading in self.headings:
            text = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", heading)
            text = re.sub(r"[^\w\- ]", "", text.lower()).replace(" ", "-")
            count = seen.get(text, 0)
            seen[text] = count + 1
            anchors.add(text if count == 0 else f"{text}-{count}")
        anchors.update(re.findall(r'<a (?:id|name)="([^"]+)"', self.text))
        return anchors

    def table_rows(self):
        """The cells of each row of each table, without the rules between head and body."""
        for line in self.text.splitlines():
            if line.startswith("|") and not re.match(r"^\|[\s:|-]+\|$", line):
                yield [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]


def pages(root=ROOT):
    return [Page(path) for path in files(".md", root=root)]


_TOKEN = re.compile(
    r'//[^\n]*|/\*.*?\*/'  # comments
    r"|'(?:[^'\\\n]|\\.)'"  # characters
    r'|R"(\w*)\((?P<raw>.*?)\)\1"'
    r'|"(?P<text>(?:[^"\\\n]|\\.)*)"',
    re.S,
)


def literals(source):
    """The string literals of a C++ source, those that stand one behind the other put together."""
    joined, last_end = [], None
    for token in _TOKEN.finditer(source):
        text = token["text"] if token["raw"] is None else token["raw"]
        if text is None:
            continue
        text = text.replace('\\"', '"').replace("\\n", "\n")
        if last_end is not None and not source[last_end : token.start()].strip():
            joined[-1] += text
        else:
            joined.append(text)
        last_end = token.end()
    return joined
