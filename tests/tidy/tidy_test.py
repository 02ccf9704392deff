#!/usr/bin/env python3
"""Keeps the rules of the tree that no compiler knows; see docs/design.md.

Each rule is a function that yields (file, line, fault). The rules are tried on bad samples first,
so that a rule that has stopped noticing anything fails the test.
"""

import pathlib
import re
import sys

LONGEST_LINE = 100
LONGEST_FUNCTION = 60

# What each folder may include of the others. Tests, benches and fuzz targets may include anything.
MAY_INCLUDE = {
    "platform": set(),
    "platform/linux": {"platform"},
    "platform/qt": {"platform"},
    "platform/sdbus": {"platform"},
    "platform/qt/desktop": {"platform", "platform/qt"},
    "scheduler": {"platform", "app/Host.h"},
    "launcher": {"platform"},
    "statusitem": {"platform"},
    "logging": {"platform"},
    "app": {"platform", "platform/linux", "platform/qt", "platform/sdbus", "scheduler", "launcher",
            "logging", "statusitem"},
    "tools/kvbackup": {"platform", "platform/linux", "scheduler", "app/Host.h"},
    "tools/simulation": {"platform", "scheduler", "app/Host.h", "tools/kvbackup"},
    "tools/kvctl": {"platform", "platform/linux", "platform/sdbus", "scheduler", "app", "logging",
                    "launcher", "statusitem", "tools/kvbackup", "tools/simulation"},
}
QT_FOLDERS = {"app", "platform/qt", "platform/qt/desktop", "tools/kvctl"}
CLOCK_CALL = re.compile(
    r"\b(clock_gettime|gettimeofday|system_clock::now|steady_clock::now|currentDateTime\w*|"
    r"(?<![\w.>:])time)\s*\(")
SLEEP_CALL = re.compile(r"\b(sleep_for|sleep_until|usleep|nanosleep|(?<![\w.])sleep)\s*\(")
SYSTEM_SWITCH = re.compile(r"^\s*#\s*(if|ifdef|elif)\b.*\b(__linux__|__APPLE__|_WIN32)\b")


def folder_of(path):
    return str(pathlib.PurePosixPath(path).parent)


def includes(path, lines):
    folder = folder_of(path)
    for number, line in enumerate(lines, 1):
        match = re.match(r'\s*#include\s+(["<])([^">]+)[">]', line)
        if not match:
            continue
        name = match.group(2)
        if ".." in name:
            yield path, number, "an include that climbs"
        if re.match(r"Q[A-Z]\w*$", name) and folder in MAY_INCLUDE and folder not in QT_FOLDERS:
            yield path, number, f"Qt in {folder}"
        if match.group(1) == '"' and folder in MAY_INCLUDE:
            target = folder_of(name)
            allowed = MAY_INCLUDE[folder] | {folder}
            if target not in allowed and name not in allowed:
                yield path, number, f"{folder} may not include {name}"


def line_lengths(path, lines):
    for number, line in enumerate(lines, 1):
        if len(line) > LONGEST_LINE:
            yield path, number, f"{len(line)} columns"


def function_lengths(path, lines):
    """A function begins on an unindented line that ends in ") … {" and ends at the next "}" there.

    A namespace and a class end in "{" too, but have no parenthesis before it.
    """
    begin = None
    for number, line in enumerate(lines, 1):
        if begin is None and re.match(r"(?!namespace|class|struct|enum|constexpr|const )\S.*\{$",
                                      line) and ")" in line:
            begin = number
        elif line.startswith("}") and begin is not None:
            if number - begin + 1 > LONGEST_FUNCTION:
                yield path, begin, f"a function of {number - begin + 1} lines"
            begin = None


def clock_calls(path, lines):
    if path.startswith("platform/") or path.startswith("bench/"):
        return
    for number, line in enumerate(lines, 1):
        if CLOCK_CALL.search(line.split("//")[0]):
            yield path, number, "a clock call outside platform/"


def sleeps_in_tests(path, lines):
    if not path.startswith("tests/"):
        return
    for number, line in enumerate(lines, 1):
        if SLEEP_CALL.search(line.split("//")[0]):
            yield path, number, "a sleep in a test"


def system_switches(path, lines):
    if path.startswith("platform/") and folder_of(path) != "platform":
        return
    for number, line in enumerate(lines, 1):
        if SYSTEM_SWITCH.match(line):
            yield path, number, "an #ifdef for a system outside its folder"


RULES = [includes, line_lengths, function_lengths, clock_calls, sleeps_in_tests, system_switches]

BAD_SAMPLES = {
    includes: ("scheduler/X.cpp", ['#include "launcher/UtilsSch.h"']),
    line_lengths: ("app/X.cpp", ["x" * 101]),
    function_lengths: ("app/X.cpp", ["void f() {"] + ["  g();"] * 60 + ["}"]),
    clock_calls: ("scheduler/X.cpp", ["const auto now = time(nullptr);"]),
    sleeps_in_tests: ("tests/X.cpp", ["std::this_thread::sleep_for(1s);"]),
    system_switches: ("platform/X.h", ["#ifdef __linux__"]),
}


def sources(root):
    for folder in ["app", "bench", "fuzz", "launcher", "logging", "platform", "scheduler", "statusitem",
                   "tests", "tools"]:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in {".h", ".cpp"}:
                yield path


def main():
    root = pathlib.Path(sys.argv[1])
    faults = []
    for rule, (path, lines) in BAD_SAMPLES.items():
        if not list(rule(path, lines)):
            faults.append(("tidy_test.py", 0, f"{rule.__name__} notices nothing"))
    checked = 0
    for path in sources(root):
        checked += 1
        lines = path.read_text(encoding="utf-8").splitlines()
        name = path.relative_to(root).as_posix()
        for rule in RULES:
            faults.extend(rule(name, lines))
    for name, number, fault in faults:
        print(f"{name}:{number}: {fault}")
    print(f"{checked} files, {len(faults)} faults")
    return 1 if faults or checked == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
