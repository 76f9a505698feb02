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


class Snippets(unittest.TestCase):
    def test_code_is_that_of_the_examples(self):
        self.assertEqual([], faults(ROOT))

    def test_the_pages_show_code(self):
        shown = [block for page in pages() for block in page.blocks if block.example]
        self.assertGreater(len(shown), 5)

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
