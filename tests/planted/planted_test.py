"""Each bug of tests/planted still fits the tree, and what must catch it is there."""

import pathlib
import re
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUGS = sorted((ROOT / "tests/planted").glob("*.patch"))

_PROGRAM = re.compile(r"\bkavrel_test\(\s*(\w+)|\bvconf_test\(\s*(\w+)")
_SUITE = re.compile(r"\b(?:TEST(?:_F|_P)?|INSTANTIATE_TEST_SUITE_P)\(\s*(\w+),\s*(\w+)")


def texts(*patterns):
    for below in ("tests", "platform", "testing", "fuzz"):
        for pattern in patterns:
            for path in (ROOT / below).rglob(pattern):
                yield path.read_text(encoding="utf-8")


def programs():
    """Names of test programs, and the patterns of those that are made in a loop."""
    found = {"soak"}
    for text in texts("CMakeLists.txt"):
        found |= {one or other for one, other in _PROGRAM.findall(text)}
        for variable, values, body in re.findall(r"foreach\((\w+) ([^)]*)\)(.*?)endforeach", text, re.S):
            for name in re.findall(r"kavrel_test\(\s*(\S+)", body):
                found |= {name.replace(f"${{{variable}}}", value) for value in values.split()}
    return found


def cases():
    found = set()
    for text in texts("*.cpp", "*.h"):
        found |= {(suite, test) for suite, test in _SUITE.findall(text)}
        # An alias of a fixture is a suite of its own, which TEST_F names.
    return {f"{suite}.{test}" for suite, test in found}


def fault(patch, known_programs, known_cases):
    """What is wrong with a planted bug; nothing when it is as it should be."""
    head = patch.read_text(encoding="utf-8").partition("\n--- ")[0]
    runs = re.findall(r"^Run: (\S+) (\S+)$", head, re.M)
    if not runs or not head.splitlines()[0].strip():
        return "does not say what is wrong and what runs"
    for program, cases in runs:
        if program not in known_programs:
            return f"no program {program}"
        names = [] if program == "soak" else cases.split(":")
        for name in names:
            wanted = re.compile(re.escape(re.sub(r"^\w+/|/[\w*]+$", "", name)).replace(r"\*", ".*"))
            if not any(wanted.fullmatch(case) for case in known_cases):
                return f"no test case {name}"
    with patch.open(encoding="utf-8") as difference:
        done = subprocess.run(
            ["patch", "--strip=1", "--dry-run", "--force", "--reject-file=-", "--directory", ROOT],
            stdin=difference, capture_output=True, text=True)
    return done.stdout if done.returncode != 0 else None


class Planted(unittest.TestCase):
    def test_all_fit_the_tree(self):
        known_programs, known_cases = programs(), cases()
        faults = {bug.name: fault(bug, known_programs, known_cases) for bug in BUGS}
        self.assertEqual({}, {name: text for name, text in faults.items() if text})

    def test_there_are_some(self):
        self.assertGreater(len(BUGS), 20)


if __name__ == "__main__":
    unittest.main()
