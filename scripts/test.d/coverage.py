#!/usr/bin/env python3
"""Prints how much of each room, and of each decoder of bytes from another process, the tests run.

    coverage.py [--missing] BUILD_DIRECTORY

It adds up what gcov says of every object there. With --missing, also the lines of the library and the
branches of the decoders that no test runs. Ends with 1 when the library or a decoder is below its limit.

A source is compiled into several programs, a template several times in one: a line or branch counts as
run when one of them has run it."""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

LIBRARY_LINES = 90  # percent
DECODER_BRANCHES = 100

LIBRARY = ("src", "include/kavrel")
ROOMS = ("src/common", "src/app_api", "src/app_api/tidl", "src/legacy", "include/kavrel",
         "platform/common", "platform/dlog", "platform/lwipc", "platform/pepper-efl",
         "platform/rpc-port", "platform/vconf", "apps", "tools")

# The decoders, as fuzz/README.md names them: their sources and, where a source also does other things,
# the functions that decode.
_RPC, _VCONF, _LWIPC, _TOOL = "platform/rpc-port/src", "platform/vconf/src", "platform/lwipc/src", "tools/kavrelctl"
_ITEMS = {"src/app_api/tidl/Parcel.h": "ReadItem|HasMoreItems"}
DECODERS = {
    "parcel": {f"{_RPC}/frame.cpp": "", f"{_RPC}/intake.cpp": "", f"{_RPC}/greeting.cpp": "Get|IsValid",
               f"{_RPC}/parcel.cpp": "FromFrame|CheckNext|Read\\w+|Copy\\w+"},
    "request": {"src/app_api/tidl/RequestDispatch.cpp": "Run|ServeMethod|Serve|ServeAs|Read\\w+", **_ITEMS},
    "reply": {"src/app_api/tidl/KavrelAppApiProxy.cpp":
              "OnReceivedCB|Process\\w+|ReadCallbackHeader|ConsumeCommand|Answers|AwaitResult|ReadFrom|TagOf", **_ITEMS},
    "control": {"apps/common/control_protocol.cpp": "Decode\\w+|Read\\w+|HasMore|KeyMistake|Take|Sequence"},
    "message": {"src/legacy/MessageCodec.cpp": "Decode"},
    "record": {f"{_VCONF}/key.cpp": "", f"{_VCONF}/record.cpp": "DecodeRecord|Read\\w+"},
    "store": {f"{_VCONF}/file_check.cpp": "", f"{_VCONF}/damage.cpp": "CheckFile|IsShortage|ReadSoundRecords"},
    "event": {f"{_LWIPC}/event_place.cpp": "",
              f"{_LWIPC}/event_file.cpp": "TestEventFile|Is\\w+|HoldsContent|NotRaisedUnlessShort"},
    "scenario": {f"{_TOOL}/scenario_{part}.cpp": "" for part in ("conditions", "fields", "file", "reader")}
                | {f"{_TOOL}/yaml_tree.cpp": ""},
}


class Counts:
    """Of one source: how often each line, and each branch, was run."""

    def __init__(self):
        self.lines = collections.Counter()
        self.branches = collections.Counter()  # by (line, place, number); places are those of functions
        self.functions = {}  # names by place: (line, column) where it begins

    def add(self, file):
        begins = {f["name"]: (f["start_line"], f["start_column"]) for f in file["functions"]}
        self.functions.update((begins[f["name"]], f["demangled_name"]) for f in file["functions"])
        for line in file["lines"]:
            number = line["line_number"]
            self.lines[number] += line["count"]
            for index, branch in enumerate(decisions(line["branches"])):
                self.branches[number, begins.get(line.get("function_name")), index] += branch["count"]

    def add_all(self, other):
        self.lines.update(other.lines)
        self.branches.update(other.branches)
        self.functions.update(other.functions)

    def only(self, functions):
        """What is in the functions that the expression names; in all of them when it is empty."""
        if not functions:
            return self
        part = Counts()
        named = re.compile(rf"(?:^|[\s:])(?:{functions})(?:<.*>)?\(")
        part.functions = {place: name for place, name in self.functions.items() if named.search(name)}
        part.branches.update({key: n for key, n in self.branches.items() if key[1] in part.functions})
        return part


def decisions(branches):
    """Without the edge that an exception takes out of a call, and the one that stands for its return."""
    kept = []
    for branch in branches:
        if branch["throw"]:
            kept.pop()
        else:
            kept.append(branch)
    return kept


def room_of(name):
    inside = [room for room in ROOMS if name.startswith(f"{room}/") and "/tests/" not in name]
    return max(inside, key=len, default=None)


def counts_of(objects):
    """{source: Counts} of some objects, which gcov knows by their notes."""
    said = subprocess.run(
        ["gcov", "--json-format", "--stdout", "--branch-probabilities", *objects],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True,
    )
    found = collections.defaultdict(Counts)
    for report in said.stdout.splitlines():
        for file in json.loads(report)["files"]:
            name = os.path.normpath(file["file"])
            if room_of(name) and (ROOT / name).exists():
                found[name].add(file)
    return found


def all_counts(build):
    notes = sorted(str(path) for path in build.rglob("*.gcno") if path.with_suffix(".o").exists())
    if not any(build.rglob("*.gcda")):
        sys.exit(f"coverage: nothing in {build} has been run yet")
    batches = [notes[start : start + 10] for start in range(0, len(notes), 10)]
    found = collections.defaultdict(Counts)
    with concurrent.futures.ProcessPoolExecutor() as pool:
        for part in pool.map(counts_of, batches):
            for name, counts in part.items():
                found[name].add_all(counts)
    return found


class Coverage:
    """Of some sources: how many lines and branches there are, and where those are that are not run."""

    def __init__(self, counts):
        self.lines, self.branches, self.missing_lines, self.missing_branches = 0, 0, [], []
        for name, part in sorted(counts.items()):
            self.lines += len(part.lines)
            self.branches += len(part.branches)
            self.missing_lines += [(name, line) for line, count in part.lines.items() if count == 0]
            self.missing_branches += [(name, key[0]) for key, count in part.branches.items() if count == 0]

    def line_percent(self):
        return percent(self.lines, len(self.missing_lines))

    def branch_percent(self):
        return percent(self.branches, len(self.missing_branches))


def percent(number, missing):
    """Rounded down to a tenth: what is not complete never reads as 100."""
    return 100.0 if number == 0 else (number - missing) * 1000 // number / 10


def show_rooms(rooms):
    print(f"{'room':<22} {'lines':>7} {'% run':>7} {'branches':>9} {'% run':>7}")
    for name, part in rooms.items():
        print(f"{name:<22} {part.lines:>7} {part.line_percent():>7.1f} {part.branches:>9} {part.branch_percent():>7.1f}")
    print()


def show_decoders(decoders):
    print(f"{'decoder':<38} {'branches':>9} {'% run':>7}")
    for name, part in decoders.items():
        print(f"{name:<38} {part.branches:>9} {part.branch_percent():>7.1f}")
    print()


def show_missing(what, places):
    print(f"{what}: {'none' if not places else ''}")
    for (name, line), count in sorted(collections.Counter(places).items()):
        source = (ROOT / name).read_text(encoding="utf-8").splitlines()[line - 1].strip()
        print(f"  {name}:{line}{f' ({count})' if count > 1 else ''}: {source}")
    print()


def faults_of(library, decoders, never_run):
    faults = [f"no object holds {name}" for name in never_run]
    if library.line_percent() < LIBRARY_LINES:
        faults.append(f"{library.line_percent()} % of the library's lines are run, not {LIBRARY_LINES} %")
    if decoders.branch_percent() < DECODER_BRANCHES:
        faults.append(f"{decoders.branch_percent()} % of the decoders' branches are taken, not {DECODER_BRANCHES} %")
    return faults


def measure(counts):
    """The rooms with the library last, and the decoders with all of them last."""
    def of(names):
        return Coverage({name: counts[name] for name in names})

    def decoding(sources):
        return {name: counts[name].only(functions) for name, functions in sources.items()}

    rooms = {room: of(name for name in counts if room_of(name) == room) for room in ROOMS}
    library = of(name for name in counts if name.startswith(tuple(f"{part}/" for part in LIBRARY)))
    decoders = {decoder: decoding(sources) for decoder, sources in DECODERS.items()}
    # What two decoders share is counted once: of each source, all functions that one of them names.
    every = collections.defaultdict(set)
    for sources in DECODERS.values():
        for name, functions in sources.items():
            every[name].add(functions)
    shared = {name: "|".join(functions) for name, functions in every.items()}
    return ({**rooms, "the library": library},
            {**{decoder: Coverage(parts) for decoder, parts in decoders.items()},
             "the decoders": Coverage(decoding(shared))})


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--missing", action="store_true")
    arguments.add_argument("build", type=pathlib.Path)
    options = arguments.parse_args()
    counts = all_counts(options.build)

    rooms, decoders = measure(counts)
    library, every_decoder = rooms["the library"], decoders["the decoders"]
    show_rooms(rooms)
    show_decoders(decoders)
    if options.missing:
        show_missing("lines of the library that no test runs", library.missing_lines)
        show_missing("branches of the decoders that no test takes", every_decoder.missing_branches)
    never_run = [name for sources in DECODERS.values() for name in sources if not counts[name].lines]
    faults = faults_of(library, every_decoder, never_run)
    for fault in faults:
        print(f"coverage: {fault}", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
