"""The code that the pages show is code that is built: a block that is said to come from an example
stands in it word for word, and the tutorials show no other."""

import pathlib
import tempfile
import unittest

from pages import ROOT, Page, pages

CODE = ("c", "cpp", "c++", "cmake")


def must_name_example(path, root):
    """README and tutorials are what people copy from."""
    return path == root / "README.md" or path.name.startswith("tutorial-")


def faults(root):
    found = []
    for page in pages(root):
        for block in page.blocks:
            where = f"{page.path.relative_to(root)}:{block.line}"
            if block.example is None:
                if block.language in CODE and must_name_example(page.path, root):
                    found.append(f"{where}: code that no example holds")
                continue
            example = root / block.example
            if not example.is_file():
                found.append(f"{where}: {block.example} is missing")
            elif "\n" + block.text not in "\n" + example.read_text(encoding="utf-8"):
                found.append(f"{where}: differs from {block.example}")
    return found


def left_out(page, root):
    """Lines of programs that a page shows in parts, and that are in no part: who follows the page
    would miss them."""
    shown = {}
    for block in page.blocks:
        if block.example and pathlib.PurePath(block.example).stem == "main":
            shown.setdefault(block.example, []).extend(block.text.splitlines())
    missing = []
    for example, lines in shown.items():
        parts = iter(line for line in lines if line.strip())
        part = next(parts, None)
        for line in (root / example).read_text(encoding="utf-8").splitlines():
            if line == part:
                part = next(parts, None)
            elif line.strip():
                missing.append(f"{page.path.name}: {example}: {line}")
    return missing


class Snippets(unittest.TestCase):
    def test_code_is_that_of_the_examples(self):
        self.assertEqual([], faults(ROOT))

    def test_the_pages_show_code(self):
        shown = [block for page in pages() for block in page.blocks if block.example]
        self.assertGreater(len(shown), 5)

    def test_tutorials_show_whole_programs(self):
        tutorials = [page for page in pages() if page.path.name.startswith("tutorial-")]
        self.assertGreater(len(tutorials), 1)
        for page in tutorials:
            self.assertEqual([], left_out(page, ROOT))

    def test_lines_that_are_left_out_are_found(self):
        with tempfile.TemporaryDirectory() as directory:
            root = pathlib.Path(directory)
            (root / "main.c").write_text("int a;\n\nint b;\nint c;\n")
            (root / "page.md").write_text(
                "<!-- from main.c -->\n```c\nint a;\n```\n<!-- from main.c -->\n```c\nint c;\n```\n"
            )
            found = left_out(Page(root / "page.md"), root)
            self.assertEqual(["page.md: main.c: int b;"], found)

    def test_differences_are_found(self):
        with tempfile.TemporaryDirectory() as directory:
            root = pathlib.Path(directory)
            (root / "a.cpp").write_text("int a;\nint b;\nint c;\n")
            (root / "README.md").write_text(
                "<!-- from a.cpp -->\n```cpp\nint b;\nint c;\n```\n"
                "<!-- from a.cpp -->\n```cpp\nint a;\nint c;\n```\n"
                "<!-- from b.cpp -->\n```cpp\nint a;\n```\n"
                "text\n```cpp\nint a;\n```\n```sh\nls\n```\n"
                "<!-- from a.cpp -->\n```cpp\nnt a;\n```\n"
            )
            self.assertEqual([7, 12, 16, 23], [int(f.split(":")[1]) for f in faults(root)])


if __name__ == "__main__":
    unittest.main()
