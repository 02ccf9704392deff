#!/usr/bin/env python3
"""Every line of the tables of docs/security.md names tests, and every test that it names exists."""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
tests = {path: path.read_text() for path in (root / "tests").rglob("*")
         if path.suffix == ".cpp" or path.name == "CMakeLists.txt"}
everything = "\n".join(tests.values())


def exists(name):
    suite, _, case = name.partition(".")
    if re.search(rf"\bTEST(_F|_P)?\({suite}, {case}\)", everything):
        return True
    # A test that is a program of its own; some are named by a variable.
    return any(f"NAME {name}\n" in text or
               (f"NAME {suite}.${{" in text and re.search(rf"\b{case}\b", text))
               for path, text in tests.items() if path.name == "CMakeLists.txt")


faults = [name for name in ("Nothing.Like", "packaging.nothing") if exists(name)]
rows = [line.split("|")[1:-1] for line in (root / "docs/security.md").read_text().splitlines()
        if line.startswith("|") and not re.match(r"\| *(threat|---)", line)]
for row in rows:
    names = re.findall(r"`([^`]+)`", row[-1])
    faults += [name for name in names if not exists(name)]
    faults += [f"no test: {row[0].strip()}"] if len(row) != 3 or not names else []
print("\n".join(faults), end="\n" if faults else "")
sys.exit(bool(faults) or len(rows) < 20)
