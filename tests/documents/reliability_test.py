"""docs/reliability.md promises nothing that no test keeps, and no figure that is not the code's.

Its tables have three columns: the promise, its figures, and the tests that keep it. A figure is
followed by the name of the constant, or of the environment variable, that sets it, or by words that
say whose it is:  64 (`kMaxClients`); 25 s (GIO's own).  Where two rooms use one name the file comes
first: `bounds.h/kMaxNameLength`. The one table whose first head is "who" has a test in each other cell."""

import re
import unittest

from pages import ROOT, Page, files

SOURCES = ("src", "platform", "apps", "tools")

_DEFINITION = re.compile(
    r"\bconstexpr\s+(?P<type>[\w:<> ]+?)\s+(?P<name>k[A-Z]\w*)\s*"
    r"(?:=\s*(?P<value>[^;]+)|\{(?P<braces>[^{};]*)\}|\((?P<parentheses>[^();]*)\))\s*;"
)
_VARIABLE = re.compile(r'EnvironmentNumber\(\s*"(?P<name>KAVREL_\w+)",\s*(?P<value>[\d\']+)')
_TEST = re.compile(r"\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)")
_BUILT_TEST = re.compile(r"\badd_test\(\s*NAME\s+([\w.]+)")
_FIGURE = re.compile(r"(?P<number>[\d,]+(?:\.\d+)?)(?: (?P<unit>[A-Za-z]+))? \((?:`(?P<source>[^`]+)`|[^()`]+)\)$")

# Everything is compared in bytes and in milliseconds.
_UNITS = {None: 1, "bytes": 1, "KiB": 1 << 10, "MiB": 1 << 20, "GiB": 1 << 30, "ms": 1, "s": 1000, "us": 0.001}
_NAMES = {"Ms": 1, "Millis": 1, "Us": 0.001, "Micros": 0.001, "Seconds": 1000}
_DURATIONS = {"microseconds": 0.001, "milliseconds": 1, "seconds": 1000}


class Constants:
    """The numbers that the sources name: {name: {file name: value}}."""

    def __init__(self, sources):
        self._texts, self._values = {}, {}
        for file, text in sources:
            for found in _DEFINITION.finditer(text):
                value = found["value"] or found["braces"] or found["parentheses"] or ""
                self._texts.setdefault(found["name"], {})[file] = (found["type"], value)
            for found in _VARIABLE.finditer(text):
                self._texts.setdefault(found["name"], {})[file] = ("", found["value"])

    def values(self, name):
        """All values under that name; empty when no source defines it."""
        file, _, name = name.rpartition("/")
        places = self._texts.get(name, {})
        return {self._value(name, *text) for at, text in places.items() if file in ("", at)}

    def _value(self, name, kind, text):
        factor = 1
        for duration, milliseconds in _DURATIONS.items():
            if re.search(rf"\b{duration}\b", f"{kind} {text}"):
                factor = milliseconds
        for ending, milliseconds in _NAMES.items():
            if name.endswith(ending):
                factor = milliseconds
        text = re.sub(r"(?:std::chrono::)?(?:micro|milli)?seconds|std::size_t", "", text)
        text = re.sub(r"\bk[A-Z]\w*", lambda other: str(self._only(other.group())), text)
        text = re.sub(r"(?<=\d)(?:[uUlL]+\b|'(?=\d))", "", text).replace("{", "(").replace("}", ")")
        if not re.fullmatch(r"[\d.\s()*/+<>-]+", text):
            return None
        return eval(text) * factor  # nothing but numbers and operators

    def _only(self, name):
        values = self.values(name)
        return values.pop() if len(values) == 1 else "?"


def figure_faults(cell, constants):
    faults = []
    for figure in filter(None, (part.strip() for part in cell.split(";"))):
        found = _FIGURE.match(figure)
        if not found or found["unit"] not in _UNITS:
            faults.append(f"{figure}: not a figure with its source")
        elif found["source"]:
            number = float(found["number"].replace(",", "")) * _UNITS[found["unit"]]
            values = constants.values(found["source"])
            if len(values) != 1 or None in values:
                faults.append(f"{figure}: the sources give {sorted(map(str, values)) or 'no such name'}")
            elif abs(values.pop() - number) > 1e-9:
                faults.append(f"{figure}: the code says {constants.values(found['source'])}")
    return faults


def row_faults(cells, constants, tests):
    if len(cells) != 3:
        return [f"{cells[0]}: {len(cells)} cells"]
    promise, figures, kept_by = cells
    faults = figure_faults(figures, constants)
    if re.search(r"\d", re.sub(r"`[^`]*`", "", promise)):
        faults.append(f"{promise}: its figure belongs in the second column")
    names = re.findall(r"`([^`]+)`", kept_by)
    if not names:
        faults.append(f"{promise}: kept by no test")
    return faults + [f"{name}: no such test" for name in names if name not in tests]


def tests_of(text):
    return {f"{suite}.{test}" for suite, test in _TEST.findall(text)} | set(_BUILT_TEST.findall(text))


def all_tests():
    found = set()
    for path in files(".cpp", ".h", "CMakeLists.txt", below=("tests", "platform", "fuzz")):
        found |= tests_of(path.read_text(encoding="utf-8"))
    return found


def tables():
    """{first head: rows} of all tables of the page."""
    found, rows = {}, []
    for cells in Page(ROOT / "docs/reliability.md").table_rows():
        if cells[0] in ("promise", "what stays so, and the way out", "who"):
            rows = found.setdefault(cells[0], [])
        else:
            rows.append(cells)
    return found


def promises():
    return [cells for head, rows in tables().items() if head != "who" for cells in rows]


def victim_faults(cells, tests):
    """Of a row that names who is killed and stopped."""
    faults = [f"{cells[0]}: {cell} names no test" for cell in cells[1:] if "`" not in cell]
    return faults + [f"{name}: no such test" for cell in cells[1:] for name in re.findall(r"`([^`]+)`", cell)
                     if name not in tests]


class Reliability(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tests = all_tests()
        cls.constants = Constants(
            (path.name, path.read_text(encoding="utf-8"))
            for path in files(".cpp", ".h", below=SOURCES)
            if "tests" not in path.relative_to(ROOT).parts
        )

    def test_every_promise_is_kept_and_every_figure_is_the_codes(self):
        faults = [f for cells in promises() for f in row_faults(cells, self.constants, self.tests)]
        self.assertEqual([], faults)

    def test_whoever_is_killed_or_stopped_has_a_test(self):
        rows = tables()["who"]
        self.assertGreater(len(rows), 6)
        self.assertEqual([], [f for cells in rows for f in victim_faults(cells, self.tests)])
        self.assertEqual(1, len(victim_faults(["who", "`Suite.Test`", ""], {"Suite.Test"})))
        self.assertEqual(1, len(victim_faults(["who", "`Suite.Test`", "`No.Test`"], {"Suite.Test"})))

    def test_the_page_promises_something(self):
        rows = promises()
        self.assertGreater(len(rows), 100)
        self.assertGreater(sum("(`" in cells[1] for cells in rows), 30)

    def test_constants_are_read(self):
        constants = Constants([
            ("a.h", "inline constexpr std::size_t kA = std::size_t{64} << 20;\n"
                    "static constexpr int kB = 4 * kA - 1'000;\n"
                    "constexpr std::chrono::microseconds kRest{50};\n"
                    "constexpr auto kLimit = std::chrono::seconds(25);\n"
                    "constexpr std::int64_t kPauseUs = 7'000;\n"
                    "constexpr int kSame = 1;\nconstexpr Color kRed(Mix(1));"),
            ("b.h", "constexpr int kSame = 2; auto c = EnvironmentNumber(\"KAVREL_C\", 10'000, 1, 2);"),
        ])
        self.assertEqual({64 << 20}, constants.values("kA"))
        self.assertEqual({4 * (64 << 20) - 1000}, constants.values("kB"))
        self.assertEqual({0.05}, constants.values("kRest"))
        self.assertEqual({25000}, constants.values("kLimit"))
        self.assertEqual({7}, constants.values("kPauseUs"))
        self.assertEqual({1, 2}, constants.values("kSame"))
        self.assertEqual({2}, constants.values("b.h/kSame"))
        self.assertEqual({10000}, constants.values("KAVREL_C"))
        self.assertEqual(set(), constants.values("kNone"))

    def test_faults_are_found(self):
        constants = Constants([("a.h", "constexpr int kA = 5;\nconstexpr int kBMs = 100;")])
        tests = tests_of("TEST_F(Suite, Test) {\nadd_test(NAME built.test\n")
        good = [
            ["ends", "5 (`kA`); 0.1 s (`kBMs`); 25 s (the bus's own)", "`Suite.Test`, `built.test`"],
            ["ends", "", "`Suite.Test`"],
        ]
        bad = [
            ["ends", "6 (`kA`)", "`Suite.Test`"],
            ["ends", "5 (`kC`)", "`Suite.Test`"],
            ["ends", "5", "`Suite.Test`"],
            ["ends after 5", "", "`Suite.Test`"],
            ["ends", "", "`Suite.Other`"],
            ["ends", "", "people"],
            ["ends", "5 (`kA`)"],
        ]
        self.assertEqual([], [f for cells in good for f in row_faults(cells, constants, tests)])
        self.assertEqual([1] * len(bad), [len(row_faults(cells, constants, tests)) for cells in bad])


if __name__ == "__main__":
    unittest.main()
