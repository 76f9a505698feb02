"""CHANGELOG.md begins with the version that is built."""

import re
import unittest

from pages import ROOT, Page


class Changelog(unittest.TestCase):
    def test_it_begins_with_this_version(self):
        build = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
        version = re.search(r"project\(kavrel VERSION ([\d.]+)", build).group(1)
        headings = Page(ROOT / "CHANGELOG.md").headings
        versions = [heading for heading in headings if re.match(r"\[\d", heading)]
        self.assertTrue(versions[0].startswith(f"[{version}] - "), versions[0])


if __name__ == "__main__":
    unittest.main()
