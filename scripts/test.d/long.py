#!/usr/bin/env python3
"""Runs the tests that provoke a fault over and over, as often as a night allows, and tells in a table
how often each was provoked, how many failures there were, how long it took and what was measured.

    long.py BUILD_DIRECTORY [REGULAR_EXPRESSION]

Which tests these are they say themselves: their programs look at KAVREL_TEST_LONG, and each notes in
its XML output how often it provoked its fault. Beside them half an hour of scripts/soak runs; test programs run
under valgrind ("valgrind: <program>"), and at last the fuzz targets ("fuzz")."""

import concurrent.futures
import functools
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree

LIMIT_SECONDS = 4 * 60 * 60
SCRIPTS = pathlib.Path(__file__).resolve().parents[1]
SOAK = SCRIPTS / "soak"
UNDER_VALGRIND = SCRIPTS / "test.d/under_valgrind.py"
FUZZ_RUNS = 11_200_000  # a target: a hundred million in all


@functools.cache
def repeats_faults(program):
    return b"KAVREL_TEST_LONG" in pathlib.Path(program).read_bytes()


def environment_of(test):
    """What CTest sets for it: options of the sanitizers."""
    properties = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
    changes = [change.replace("=set:", "=") for change in properties.get("ENVIRONMENT_MODIFICATION", [])]
    return dict(change.split("=", 1) for change in properties.get("ENVIRONMENT", []) + changes)


def long_tests(build, wanted):
    """(name, command, environment) of each case of CTest's list whose program repeats faults."""
    listing = subprocess.run(
        ["ctest", "--test-dir", build, "--show-only=json-v1"], capture_output=True, check=True
    )
    for test in json.loads(listing.stdout)["tests"]:
        command = test.get("command", [])
        is_case = any(word.startswith("--gtest_filter=") for word in command)
        if is_case and wanted.search(test["name"]) and repeats_faults(command[0]):
            yield test["name"].partition("  #")[0], command, environment_of(test)


class Row:
    """One fault: `injected` is nothing where the test does not say how often it provoked it."""

    def __init__(self, name):
        self.name, self.injected, self.figures = name, None, ""
        self.failed, self.seconds = False, 0.0

    def run(self, command, environment):
        begun = time.monotonic()
        try:
            done = subprocess.run(
                command, env=environment, timeout=LIMIT_SECONDS,
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            )
            self.failed, output = done.returncode != 0, done.stdout
        except subprocess.TimeoutExpired as late:
            self.failed, output = True, late.stdout or b""
        self.seconds = time.monotonic() - begun
        if self.failed:
            sys.stderr.buffer.write(b"--- " + self.name.encode() + b"\n" + output)
        return output.decode(errors="replace")

    def __str__(self):
        injected = "" if self.injected is None else self.injected
        line = f"{self.name:<84} {injected:>9} {int(self.failed):>8} {self.seconds:>8.1f}  {self.figures}"
        return line.rstrip()


def noted(report):
    """What the test's XML output notes: {name: value}."""
    try:
        tree = xml.etree.ElementTree.parse(report)
    except (OSError, xml.etree.ElementTree.ParseError):
        return {}
    notes = {}
    for case in tree.iter("testcase"):
        notes.update(case.attrib)
    notes.update((found.get("name"), found.get("value")) for found in tree.iter("property"))
    return notes


def run_test(test):
    name, command, changes = test
    row = Row(name)
    with tempfile.TemporaryDirectory() as directory:
        report = os.path.join(directory, "report.xml")
        row.run([*command, f"--gtest_output=xml:{report}"],
                {**os.environ, **changes, "KAVREL_TEST_LONG": "1"})
        notes = noted(report)
    row.injected = int(notes["injected"]) if "injected" in notes else None
    row.figures = notes.get("figures", "")
    return row


def run_under_valgrind(build, program):
    row = Row(f"valgrind: {program}")
    tests = re.match(r"(\d+) tests", row.run([UNDER_VALGRIND, build, program], os.environ))
    row.injected = int(tests.group(1)) if tests else None
    return row


def run_fuzz():
    """Every target; the table's second column says how many inputs each has read."""
    row = Row("fuzz")
    table = row.run([SCRIPTS / "fuzz", "--runs", str(FUZZ_RUNS)], os.environ)
    row.injected = sum(map(int, re.findall(r"^\w+ +(\d+) ", table, flags=re.MULTILINE)))
    return row


def run_soak(build):
    row = Row("soak")
    with tempfile.TemporaryDirectory() as directory:
        report = pathlib.Path(directory, "report.json")
        row.run([SOAK, "--built", os.path.join(build, "bin"), "--report", report], os.environ)
        if report.exists():
            notes = json.loads(report.read_text())
            row.injected, row.figures = sum(notes["done"].values()), notes["figures"]
    return row


def main():
    build = sys.argv[1]
    wanted = re.compile(sys.argv[2] if len(sys.argv) > 2 else "")
    tests = list(long_tests(build, wanted))
    checks = [functools.partial(run_under_valgrind, build, program)
              for program in subprocess.check_output([UNDER_VALGRIND], text=True).split()
              if wanted.search(f"valgrind: {program}")]
    soaks = bool(wanted.search("soak"))
    fuzzes = bool(wanted.search("fuzz"))
    if not (tests or checks or soaks or fuzzes):
        sys.exit(f"{build}: no such test repeats a fault")
    # A soak mostly waits, beside the others.
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() + soaks) as pool:
        soak = [pool.submit(run_soak, build)] if soaks else []
        rows = list(pool.map(run_test, tests))
        rows += [each.result() for each in [pool.submit(check) for check in checks] + soak]
    if fuzzes:
        rows.append(run_fuzz())  # last: it has a process for each processor itself
    print(f"{'fault':<84} {'injected':>9} {'failures':>8} {'seconds':>8}  figures")
    for row in rows:
        if row.injected is not None or row.failed:
            print(row)
    others = sum(row.injected is None and not row.failed for row in rows)
    print(f"{others} tests of the same programs provoke their fault once")
    return any(row.failed for row in rows)


if __name__ == "__main__":
    sys.exit(main())
