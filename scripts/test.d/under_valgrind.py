#!/usr/bin/env python3
"""Runs a test program under valgrind, which looks for what is lost, what is read before it is written
and descriptors left open. Ends with 1, and valgrind's report, when it finds anything.

    under_valgrind.py BUILD_DIRECTORY PROGRAM

Without PROGRAM it prints those for which this has a meaning."""

import pathlib
import re
import subprocess
import sys

SUPPRESSIONS = pathlib.Path(__file__).resolve().parents[2] / "tests/support/valgrind.supp"

# Left out are cases that need what valgrind has not: pidfds, with which the other tests wait for child
# processes, and a real time of its own. Descriptors left open count where nothing is meant to be open
# to the end of the process, as the store and raised events are.
PROGRAMS = {  # program: (cases, whether descriptors count)
    "command_client_test": ("*", True),
    "command_service_test": ("*", True),
    "state_test": ("*-*DeathTest*", False),
    "channel_unit_test": ("*", True),
    "rpc_port_conformance_test": ("*", False),
    "vconf_conformance_test": ("*", False),
    "lwipc_test": ("WaitTest.*:ObstacleTest.*", False),
    "dlog_test": ("Format.*", True),
}
FAILED = 99
LIMIT_SECONDS = 60 * 60


def descriptors_left_open(output):
    """Those that the program itself opened. The one of GLib's default main context is nobody's to close."""
    found = re.split(r"^==\d+== Open (?:file descriptor|AF_\w+ socket) (\d+):", output, flags=re.MULTILINE)[1:]
    blocks = zip(found[::2], (text.split("== \n")[0] for text in found[1::2]))
    foreign = re.compile(r"<inherited from parent>|g_main_context_default")
    return [number for number, block in blocks if int(number) > 2 and not foreign.search(block)]


def run(build, program):
    cases, descriptors_count = PROGRAMS[program]
    done = subprocess.run(
        ["valgrind", "--quiet", "--track-fds=yes", "--leak-check=full", "--errors-for-leak-kinds=definite",
         "--show-leak-kinds=definite", "--child-silent-after-fork=yes", f"--suppressions={SUPPRESSIONS}",
         f"--error-exitcode={FAILED}", f"{build}/tests/{program}", f"--gtest_filter={cases}"],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        timeout=LIMIT_SECONDS, text=True, errors="replace",
    )
    ran = re.search(r"(\d+) tests? from \d+ test suites? ran", done.stdout)
    left_open = descriptors_count and descriptors_left_open(done.stdout)
    if done.returncode == 0 and ran and not left_open:
        print(f"{ran.group(1)} tests")
        return 0
    print(done.stdout)
    if left_open:
        print(f"left open: {', '.join(left_open)}")
    return 1


def main():
    if len(sys.argv) < 3:
        print("\n".join(PROGRAMS))
        return 0
    return run(sys.argv[1], sys.argv[2])


if __name__ == "__main__":
    sys.exit(main())
