"""docs/environment.md names every environment variable that the sources look at, and no other."""

import json
import re
import unittest

from pages import ROOT, Page, files, literals

SOURCES = ("src", "platform", "apps", "tools", "bench", "tests")

# These set what the programs under test and their libraries look at.
TRIALS = {"tests", "bench"}

# Makes up variables for its own children.
NOT_LOOKED_AT = {"child_process_test.cpp"}

# A field of the journal's records.
NOT_VARIABLES = {"KAVREL_TAG"}

_OURS = re.compile(r"(?:KAVREL|XDG)_[A-Z][A-Z0-9_]*")
_CALL = re.compile(
    r'\b(?:(?:secure_)?getenv|(?:un)?setenv|Environment|EnvironmentNumber|IsSet)\(\s*"(\w+)"'
)


def variables_of_code(text):
    found = set(_CALL.findall(text))
    found |= {literal for literal in literals(text) if _OURS.fullmatch(literal)}
    return found - NOT_VARIABLES


def variables_of_sources():
    found = {}
    for path in files(".cpp", ".h", ".c", below=SOURCES):
        if path.name in NOT_LOOKED_AT:
            continue
        names = variables_of_code(path.read_text(encoding="utf-8"))
        if TRIALS & set(path.relative_to(ROOT).parts):
            names = {name for name in names if name.startswith("KAVREL_")}
        for name in names:
            found.setdefault(name, path.relative_to(ROOT))
    return found


def variables_of_page():
    page = Page(ROOT / "docs/environment.md")
    names = set()
    for cells in page.table_rows():
        names |= set(re.findall(r"`([A-Z][A-Z0-9_]+)`", cells[0]))
    return names


class Environment(unittest.TestCase):
    def test_every_variable_is_in_the_table(self):
        known = variables_of_page()
        missing = {n: str(p) for n, p in variables_of_sources().items() if n not in known}
        self.assertEqual({}, missing, "docs/environment.md does not name these variables")

    def test_the_table_names_no_other(self):
        ours = {name for name in variables_of_page() if name.startswith("KAVREL_")}
        self.assertEqual(set(), ours - set(variables_of_sources()))

    def test_variables_are_found(self):
        code = """
          auto a = std::getenv("HOME"); kavrel_platform::EnvironmentNumber( "KAVREL_A", 1);
          constexpr const char* kB = "KAVREL_B";  // "KAVREL_COMMENT"
          Log("KAVREL_C is wrong"); ::setenv("ELM_D", "", 1); Field("KAVREL_TAG");
        """
        self.assertEqual({"HOME", "KAVREL_A", "KAVREL_B", "ELM_D"}, variables_of_code(code))


class Build(unittest.TestCase):
    """CONTRIBUTING.md names every option and preset of the build, and no other."""

    def options(self):
        found = set()
        for path in files("CMakeLists.txt", ".cmake"):
            text = path.read_text(encoding="utf-8")
            found |= set(re.findall(r"^\s*option\((KAVREL_\w+)", text, re.M))
            found |= set(re.findall(r"^\s*set\((KAVREL_\w+)[^)]*?\bCACHE\b", text, re.M))
        return found

    def test_every_option_is_in_the_table(self):
        page = Page(ROOT / "CONTRIBUTING.md")
        named = set()
        for cells in page.table_rows():
            named |= set(re.findall(r"`(KAVREL_\w+)`", cells[0]))
        self.assertEqual(self.options(), named)

    def test_every_preset_is_in_the_table(self):
        presets = json.loads((ROOT / "CMakePresets.json").read_text(encoding="utf-8"))
        wanted = {p["name"] for p in presets["configurePresets"] if not p.get("hidden")}
        named, head = set(), ""
        for cells in Page(ROOT / "CONTRIBUTING.md").table_rows():
            head = cells[0] if "`" not in cells[0] else head
            if head == "preset":
                named |= set(re.findall(r"`([\w-]+)`", cells[0]))
        self.assertEqual(wanted, named)


if __name__ == "__main__":
    unittest.main()
