#!/usr/bin/env python3
"""Runs the tests that provoke a fault over and over, as often as a night allows, and tells in a table
how often each was provoked, how many failures there were and how long it took.

    long.py BUILD_DIRECTORY [REGULAR_EXPRESSION]

Which tests these are they say themselves: their programs look at KAVREL_TEST_LONG, and each notes in
its XML output how often it provoked its fault."""

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


def times_injected(report):
    """How often the test says that it provoked its fault; nothing when it says nothing."""
    try:
        tree = xml.etree.ElementTree.parse(report)
    except (OSError, xml.etree.ElementTree.ParseError):
        return None
    for found in tree.iter("property"):
        if found.get("name") == "injected":
            return int(found.get("value"))
    return next((int(c.get("injected")) for c in tree.iter("testcase") if c.get("injected")), None)


def run(test):
    name, command, changes = test
    with tempfile.TemporaryDirectory() as directory:
        report = os.path.join(directory, "report.xml")
        environment = {**os.environ, **changes, "KAVREL_TEST_LONG": "1"}
        begun = time.monotonic()
        try:
            done = subprocess.run(
                [*command, f"--gtest_output=xml:{report}"], env=environment, timeout=LIMIT_SECONDS,
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            )
            failed, output = done.returncode != 0, done.stdout
        except subprocess.TimeoutExpired as late:
            failed, output = True, late.stdout or b""
        seconds = time.monotonic() - begun
        if failed:
            sys.stderr.buffer.write(b"--- " + name.encode() + b"\n" + output)
        return name, times_injected(report), failed, seconds


def main():
    build = sys.argv[1]
    wanted = re.compile(sys.argv[2] if len(sys.argv) > 2 else "")
    tests = list(long_tests(build, wanted))
    if not tests:
        sys.exit(f"{build}: no such test repeats a fault")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(run, tests))
    print(f"{'fault':<84} {'injected':>9} {'failures':>8} {'seconds':>8}")
    for name, injected, failed, seconds in results:
        if injected is not None or failed:
            print(f"{name:<84} {injected or '':>9} {int(failed):>8} {seconds:>8.1f}")
    others = sum(injected is None and not failed for _, injected, failed, _ in results)
    print(f"{others} tests of the same programs provoke their fault once")
    return any(failed for _, _, failed, _ in results)


if __name__ == "__main__":
    sys.exit(main())
