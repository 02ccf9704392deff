#!/usr/bin/env python3
# Question: how much faster than Python's plistlib do we read a document of 1,000 task records?
# Budget: at least 8 times, in either encoding; exit status 1 below it.
"""Usage: bench/parse_documents.py PROGRAM, the program being parse_documents of a release build.

Both readers take turns in one run, so that a change of the machine's speed meets both.
"""

import datetime
import os
import plistlib
import statistics
import subprocess
import sys
import tempfile
import time

RECORDS = 1000
ROUNDS = 7
REPETITIONS = 5
BUDGET = 8.0


def record(number):
    begin = datetime.datetime(2024, 3, 5, 9, 30) + datetime.timedelta(minutes=number)
    options = {
        "scheduleIt": 1,
        "runState": number % 7 != 0,
        "dayWeekOrHour": number % 4,
        "datePick": begin,
        "afterSleep": number % 2,
        "dayOfMonth": str(number % 28 + 1),
    }
    options.update({"day%d" % day: int((number + day) % 3 == 0) for day in range(1, 8)})
    options.update({"sethours": number % 24, "setmins": number % 60, "minhourdate": begin})
    return {
        "backupset": "Backup of folder %d" % number,
        "destinationPath": "/Volumes/Backup disk %d/sets/folder %d" % (number % 5, number),
        "sourcePaths": ["/home/user/folder %d/part %d" % (number, part) for part in range(3)],
        "schopts": options,
    }


def plistlib_seconds(document):
    times = []
    for _ in range(REPETITIONS):
        begin = time.perf_counter()
        plistlib.loads(document)
        times.append(time.perf_counter() - begin)
    return statistics.median(times)


def our_seconds(program, path):
    output = subprocess.run([program, path, str(REPETITIONS * 8)], check=True,
                            stdout=subprocess.PIPE, text=True).stdout
    return float(output)


def main():
    program = sys.argv[1]
    records = [record(number) for number in range(RECORDS)]
    within_budget = True
    with tempfile.TemporaryDirectory() as folder:
        for name, form in (("XML", plistlib.FMT_XML), ("binary", plistlib.FMT_BINARY)):
            document = plistlib.dumps(records, fmt=form)
            path = os.path.join(folder, name)
            with open(path, "wb") as file:
                file.write(document)
            theirs, ours = [], []
            for _ in range(ROUNDS):
                theirs.append(plistlib_seconds(document))
                ours.append(our_seconds(program, path))
            theirs, ours = statistics.median(theirs), statistics.median(ours)
            within_budget &= theirs >= BUDGET * ours
            print("%-6s %7d bytes  plistlib %7.2f ms  ours %6.2f ms  %5.1f times (budget %.0f)"
                  % (name, len(document), theirs * 1e3, ours * 1e3, theirs / ours, BUDGET))
    sys.exit(0 if within_budget else 1)


if __name__ == "__main__":
    main()
