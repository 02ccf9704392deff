#!/usr/bin/env python3
"""Compares our reader and writer with plistlib.

Usage: compare_with_python.py PROGRAM [FOLDER]. Without a folder, plistlib writes random trees,
PROGRAM recodes them and plistlib reads them back; KV_SEED in the environment repeats a run. With
one, the real files in it are compared with its index.
"""

import base64
import datetime
import functools
import json
import os
import plistlib
import random
import struct
import subprocess
import sys

FORMATS = {"xml": plistlib.FMT_XML, "binary": plistlib.FMT_BINARY}
# Where we answer otherwise than the index, on purpose.
DIFFERENCES = {
    "plist--array-null-binary.plist": "error",  # null is no type of a property list
    "plist--binary-edge-fill.plist": "error",  # a fill byte is no object
    "rust-plist--data-xml_entity_error.plist": "error",  # there is text but no value
    "biplist--data-small_date.plist": "read",  # dates outside of the years 1 to 9999 are dates
    "plist--date-edge-binary.plist": "read",
}


def recode(target, document):
    """The document in the target's encoding, or None when it is refused."""
    result = subprocess.run([sys.argv[1], target], input=document, stdout=subprocess.PIPE)
    assert result.returncode in (0, 1), document
    return result.stdout if result.returncode == 0 else None


def string(rng, is_binary):
    special = "<>&\"'\t\n\u00e9\u20ac\ufffd\U0001d562\U0010ffff" + "\r\x01\x1f\ufffe" * is_binary
    return "".join(rng.choice([rng.choice(special), chr(rng.randrange(0x20, 0xd800))])
                   for _ in range(rng.randrange(20)))


def tree(rng, is_binary, depth=0):
    """What both encodings hold without loss or, if `is_binary`, what the compact one does."""
    kinds = [lambda: rng.uniform(-1, 1) * 10.0 ** rng.randrange(-320, 309),
             lambda: string(rng, is_binary), lambda: rng.random() < 0.5,
             lambda: rng.randrange(-2**63, 2**64) >> rng.randrange(64),
             lambda: rng.randbytes(rng.randrange(70)),
             lambda: datetime.datetime(1, 1, 1) + datetime.timedelta(
                 seconds=rng.randrange(3 * 10**11) + 0.5 * is_binary)]
    kinds += [lambda: plistlib.UID(rng.randrange(2**64) >> rng.randrange(64))] * is_binary
    if depth < 4:
        member = functools.partial(tree, rng, is_binary, depth + 1)
        kinds.append(lambda: [member() for _ in range(rng.randrange(30))])
        kinds += [lambda: {string(rng, is_binary): member() for _ in range(rng.randrange(8))}] * 2
    return rng.choice(kinds)()


def compare_random_trees():
    seed = int(os.environ.get("KV_SEED") or random.SystemRandom().randrange(2**32))
    rng = random.Random(seed)
    for source, target in [(a, b) for a in FORMATS for b in FORMATS] * 40:
        value = [tree(rng, source == target == "binary") for _ in range(10)]
        recoded = recode(target, plistlib.dumps(value, fmt=FORMATS[source], sort_keys=False))
        # repr() tells true from 1, 0.0 from -0.0, and one order of keys from another.
        if recoded is None or repr(plistlib.loads(recoded)) != repr(value):
            sys.exit("KV_SEED=%d: %r differs after %s to %s" % (seed, value, source, target))


NOTATIONS = [
    (bool, "boolean", bool),
    (int, "integer", str),
    (float, "real", lambda value: struct.pack(">d", value).hex() if value == value else "nan"),
    (bytes, "data", lambda value: base64.b64encode(value).decode()),
    (plistlib.UID, "uid", lambda value: str(value.data)),
    (datetime.datetime, "date", lambda value: value.isoformat(timespec="microseconds") + "Z"),
    (str, "string", str),
    (list, "array", lambda value: [notation(element) for element in value]),
    (dict, "dict", lambda value: {key: notation(member) for key, member in value.items()}),
]


def notation(value):
    """The value as the index writes it."""
    return next([name, show(value)] for kind, name, show in NOTATIONS if isinstance(value, kind))


def compare_real_files(folder):
    index = os.path.join(folder, "index.jsonl")
    if not os.path.exists(index):
        print("no real files at %s; KV_PLISTS may name their folder" % folder)
        sys.exit(77)  # counts as skipped
    entries = [json.loads(line) for line in open(index, encoding="utf-8")]
    faults = [] if entries else ["an empty index"]
    for entry in entries:
        name, expected = entry["file"], DIFFERENCES.get(entry["file"], entry["expected"])
        document = open(os.path.join(folder, "files", name), "rb").read()
        recoded = recode("binary", document)
        answer = "error"
        if recoded is not None:
            answer = "read" if expected == "read" else notation(plistlib.loads(recoded))
        # As text, since the order of keys counts and true is not 1.
        if json.dumps(answer) != json.dumps(expected):
            faults.append("%s: %s instead of %s" % (name, answer, expected))
    sys.exit("\n".join(faults) or None)


if len(sys.argv) > 2:
    compare_real_files(os.environ.get("KV_PLISTS") or sys.argv[2])
compare_random_trees()
