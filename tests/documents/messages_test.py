"""The texts that docs/troubleshooting.md explains are texts that the programs really print."""

import re
import unittest

from pages import ROOT, Page, files, literals

SOURCES = ("src", "platform", "apps", "tools", "examples")

_PLACE_HOLDER = re.compile(r"<[^<>]*>")
_SPAN = re.compile(r"`([^`]+)`")


def texts_of_page(page):
    """The code spans of the headings: each is one text, with <...> for what changes in it."""
    return [span for heading in page.headings for span in _SPAN.findall(heading)]


def pieces(text):
    return [piece for piece in _PLACE_HOLDER.split(text) if piece.strip()]


def is_printed(text, sources):
    """Whether one source has all the fixed pieces of the text in its literals."""
    wanted = pieces(text)
    return any(all(any(p in literal for literal in source) for p in wanted) for source in sources)


class Messages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.sources = [
            literals(path.read_text(encoding="utf-8"))
            for path in files(".cpp", ".h", ".c", below=SOURCES)
            if "tests" not in path.relative_to(ROOT).parts
        ]
        cls.texts = texts_of_page(Page(ROOT / "docs/troubleshooting.md"))

    def test_every_text_is_printed_somewhere(self):
        self.assertEqual([], [text for text in self.texts if not is_printed(text, self.sources)])

    def test_texts_say_something(self):
        short = [text for text in self.texts if max(map(len, pieces(text)), default=0) < 8]
        self.assertEqual([], short)

    def test_the_page_has_texts(self):
        self.assertGreater(len(self.texts), 30)

    def test_a_text_that_nobody_prints_is_found(self):
        source = [literals('Log("cannot open %s: " "%s\\n", a); Print("not" + b + " here"); // "no"')]
        self.assertTrue(is_printed("cannot open <file>: <reason>", source))
        self.assertTrue(is_printed("not <name> here", source))
        self.assertFalse(is_printed("cannot close <file>", source))
        self.assertFalse(is_printed("no", [literals('// "no"\n')]))


if __name__ == "__main__":
    unittest.main()
