#!/usr/bin/env python3
"""Lets plistlib write random trees, recodes them with our reader and writer, and reads them back.

Usage: compare_with_python.py PROGRAM, where PROGRAM is recode_property_list.
"""

import datetime
import os
import plistlib
import random
import struct
import subprocess
import sys

TREES = 60
CHARACTERS = "ab <>&\"'\t\n\u00e9\u20ac\ufffd\U0001d562"
FORMATS = {"xml": plistlib.FMT_XML, "binary": plistlib.FMT_BINARY}


def string(rng):
    return "".join(rng.choice(CHARACTERS) for _ in range(rng.randrange(20)))


def tree(rng, depth=0):
    """Only what both encodings hold without loss."""
    kind = rng.randrange(9 if depth < 4 else 6)
    if kind == 0:
        return rng.random() < 0.5
    if kind == 1:
        return rng.randrange(-2**63, 2**64) >> rng.randrange(64)
    if kind == 2:
        value = struct.unpack("<d", rng.randbytes(8))[0]
        return value if value == value else 0.1
    if kind == 3:
        return datetime.datetime(1, 1, 1) + datetime.timedelta(seconds=rng.randrange(3 * 10**11))
    if kind == 4:
        return rng.randbytes(rng.randrange(70))
    if kind == 5:
        return string(rng)
    if kind == 6:
        return [tree(rng, depth + 1) for _ in range(rng.randrange(8))]
    return {string(rng): tree(rng, depth + 1) for _ in range(rng.randrange(8))}


def main():
    program = sys.argv[1]
    seed = int(os.environ.get("KV_SEED") or random.SystemRandom().randrange(2**32))
    print("KV_SEED=%d" % seed)
    rng = random.Random(seed)
    for index in range(TREES):
        value = [tree(rng) for _ in range(10)]
        for source in FORMATS:
            document = plistlib.dumps(value, fmt=FORMATS[source], sort_keys=False)
            for target in FORMATS:
                recoded = subprocess.run([program, target], input=document, check=True,
                                         stdout=subprocess.PIPE).stdout
                # repr() tells true from 1, 0.0 from -0.0, and one order of keys from another.
                if repr(plistlib.loads(recoded)) != repr(value):
                    sys.exit("tree %d differs after %s to %s: %r" % (index, source, target, value))
    print("%d trees agree" % TREES)


if __name__ == "__main__":
    main()
