"""Every kavrelctl command that a page tells people to type is one that kavrelctl understands.

    commands_test.py KAVRELCTL
"""

import os
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

from pages import ROOT, pages

KAVRELCTL = os.path.abspath(sys.argv.pop())
WRONG_USAGE = 2

# They run until somebody ends them.
ENDLESS = ("watch", "bus")

_SPAN = re.compile(r"`(kavrelctl [^`]+)`")
_LINE = re.compile(r"^ {4}(?:\$ )?(?:[A-Z_]+=\S+ )*(kavrelctl .*)$", re.M)


def commands(text):
    """The commands as lists of words, without remarks, and without what the shell takes."""
    found = []
    for command in _SPAN.findall(text) + _LINE.findall(text):
        command = re.split(r"\s+#|\s{2,}|\s+[&|>]", command)[0]
        if "<" not in command and "..." not in command:
            found.append(shlex.split(command)[1:])
    return found


def run(words):
    """Runs kavrelctl where no viewer is."""
    with tempfile.TemporaryDirectory() as directory:
        environment = dict(os.environ, KAVREL_RUNTIME_DIR=directory, KAVREL_STATE_DIR=directory)
        return subprocess.run(
            [KAVRELCTL] + words,
            cwd=directory,
            env=environment,
            capture_output=True,
            timeout=60,
        )


def is_understood(words):
    """A single word may only name a command; its help is then another one than that of the tool."""
    if words[0] in ENDLESS:
        words = words + ["--help"]
    code = run(words).returncode
    if code in (0, 1):
        return True
    return code == WRONG_USAGE and len(words) == 1 and run(words + ["--help"]).stdout != run(["--help"]).stdout


class Commands(unittest.TestCase):
    def test_every_command_is_understood(self):
        wrong, seen = [], set()
        for page in pages():
            for words in commands(page.text):
                key = tuple(words)
                if key not in seen and not is_understood(words):
                    wrong.append(f"{page.path.relative_to(ROOT)}: kavrelctl {shlex.join(words)}")
                seen.add(key)
        self.assertEqual([], wrong)
        self.assertGreater(len(seen), 10)

    def test_a_command_that_is_none_is_found(self):
        text = "`kavrelctl frobnicate`\n    kavrelctl call set-window-size 1 2   # too many\n"
        self.assertEqual([["frobnicate"], ["call", "set-window-size", "1", "2"]], commands(text))
        self.assertEqual([False] * 2, [is_understood(words) for words in commands(text)])
        self.assertTrue(is_understood(["keys"]))


if __name__ == "__main__":
    unittest.main()
