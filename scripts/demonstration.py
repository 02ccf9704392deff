#!/usr/bin/env python3
"""Runs the agent in the foreground on a home of its own and shows each decision as it happens.

The home lies under build/demonstration and is made anew each time: two documents, one in each
encoding, with a daily set that is due now, a weekly set and two interval sets; files to copy; and
folders to copy them to. With --until-backup it ends with status 0 as soon as the first backup has
been copied and recorded, and with status 1 when that takes longer than three minutes.
"""

import argparse
import datetime
import json
import os
import pathlib
import plistlib
import shutil
import signal
import subprocess
import sys
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
PROGRAMS = pathlib.Path(os.environ.get("KV_PROGRAMS", PROJECT / "build/release/bin"))
TRACE = pathlib.Path("/tmp/KVScheduler.txt")
PATIENCE_SECONDS = 180
LOOK_EVERY_SECONDS = 0.2


def schedule_options(schedule_type, last_run, **more):
    return {"scheduleIt": 1, "runState": True, "dayWeekOrHour": schedule_type,
            "dayOfMonth": str(last_run.day), **more}


def backup_set(home, name, options):
    return {"backupset": name,
            "sourcePaths": [str(home / "Files" / name)],
            "destinationPath": str(home / "Backups"),
            "schopts": options}


def utc(moment):
    """The local time as the naive UTC time that plistlib writes."""
    return moment.astimezone(datetime.timezone.utc).replace(tzinfo=None, microsecond=0)


def make_home(home):
    """Fills the home; returns the documents and the name of the set that is due first."""
    now = datetime.datetime.now()
    yesterday = now - datetime.timedelta(days=1)
    midnight = now.replace(hour=0, minute=0)
    tomorrow = (now.isoweekday() + 1) % 7 + 1  # as in day1 (Sunday) to day7
    first = [
        backup_set(home, "Letters", schedule_options(0, yesterday, datePick=utc(midnight))),
        backup_set(home, "Pictures", schedule_options(
            1, yesterday, datePick=utc(midnight), **{f"day{tomorrow}": 1})),
    ]
    second = [
        backup_set(home, "Mail", schedule_options(
            3, yesterday, setmins=15, minhourdate=utc(now - datetime.timedelta(minutes=5)))),
        backup_set(home, "Music", schedule_options(
            2, yesterday, sethours=2, minhourdate=utc(now + datetime.timedelta(hours=1)))),
    ]
    documents = home / "Library/Application Support/Kelvara"
    documents.mkdir(parents=True)
    (documents / "kelvara.plist").write_bytes(plistlib.dumps(first, fmt=plistlib.FMT_BINARY))
    (documents / "kvsets.plist").write_bytes(plistlib.dumps(second, fmt=plistlib.FMT_XML))
    (home / "Backups").mkdir()
    for record in first + second:
        folder = pathlib.Path(record["sourcePaths"][0])
        folder.mkdir(parents=True)
        for number in range(1, 4):
            (folder / f"file {number}.txt").write_text(f"{record['backupset']} {number}\n" * 1000)
    return documents / "kelvara.plist", "Letters"


class Follower:
    """Prints what is added to a file, whether or not it is there yet."""

    def __init__(self, path, start_at_end):
        self.path = path
        self.offset = path.stat().st_size if start_at_end and path.exists() else 0

    def new_lines(self):
        try:
            with open(self.path, "rb") as file:
                file.seek(self.offset)
                text = file.read()
        except OSError:
            return []
        whole = text[: text.rfind(b"\n") + 1]
        self.offset += len(whole)
        return whole.decode("utf-8", "replace").splitlines()


def is_recorded(document, name):
    records = plistlib.loads(document.read_bytes())
    today = datetime.date.today().day
    return any(record["backupset"] == name and int(record["schopts"]["dayOfMonth"]) == today
               for record in records)


def show_run(line, home):
    run = json.loads(line)
    print(f"==> backup of {run['set']}: {run['result']}, {run['bytes']} bytes", flush=True)
    copied = sorted((home / "Backups" / run["set"]).rglob("*.txt"))
    for path in copied:
        print(f"    {path.relative_to(PROJECT)}", flush=True)
    return run["result"] == "ok" and bool(copied)


def follow(agent, home, document, first_set, until_backup):
    """Shows what the agent writes. Returns the exit status."""
    trace = Follower(TRACE, start_at_end=True)
    # On a terminal the agent shows its events itself.
    events = None if sys.stderr.isatty() else Follower(
        home / "Library/Logs/KVScheduler/KVScheduler.txt", start_at_end=False)
    history = Follower(home / ".local/state/KVScheduler/history.jsonl", start_at_end=False)
    deadline = time.monotonic() + PATIENCE_SECONDS
    while agent.poll() is None:
        for line in trace.new_lines() + (events.new_lines() if events else []):
            print(line, flush=True)
        good = [show_run(line, home) for line in history.new_lines()]
        if until_backup and any(good) and is_recorded(document, first_set):
            print(f"==> {first_set} is recorded in {document.name}: done.", flush=True)
            return 0
        if until_backup and time.monotonic() > deadline:
            print(f"==> no backup within {PATIENCE_SECONDS} s", file=sys.stderr)
            return 1
        time.sleep(LOOK_EVERY_SECONDS)
    print(f"==> the agent ended with status {agent.returncode}", file=sys.stderr)
    return agent.returncode or 1


def desktop():
    """What leads to the user's display and bus from another home and runtime folder."""
    found = {}
    runtime = pathlib.Path(os.environ.get("XDG_RUNTIME_DIR", "/nowhere"))
    if (runtime / "bus").exists():
        found["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={runtime}/bus"
    if os.environ.get("WAYLAND_DISPLAY"):
        found["WAYLAND_DISPLAY"] = str(runtime / os.environ["WAYLAND_DISPLAY"])
    if os.environ.get("DISPLAY"):
        found["XAUTHORITY"] = str(pathlib.Path.home() / ".Xauthority")
    return {**found, **{key: os.environ[key] for key in found.keys() & os.environ.keys()
                        if key != "WAYLAND_DISPLAY"}}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--until-backup", action="store_true",
                        help="end with status 0 once the first backup is recorded")
    options = parser.parse_args()

    home = PROJECT / "build/demonstration/home"
    shutil.rmtree(home, ignore_errors=True)
    document, first_set = make_home(home)
    runtime = home / ".runtime"
    runtime.mkdir(mode=0o700)
    environment = {key: value for key, value in os.environ.items() if not key.startswith("XDG_")}
    environment.update(desktop())
    environment.update(HOME=str(home), XDG_RUNTIME_DIR=str(runtime), KVSCHEDULER_DEBUG="1")

    print(f"Home of the demonstration: {home.relative_to(PROJECT)}")
    print(f"The first tick comes 57 s after the start; its decisions go to {TRACE} and are shown "
          "here. Ctrl-C ends it.", flush=True)
    agent = subprocess.Popen([PROGRAMS / "KVScheduler"], env=environment,
                             stdin=subprocess.DEVNULL)
    try:
        return follow(agent, home, document, first_set, options.until_backup)
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
    finally:
        agent.terminate()
        agent.wait()


if __name__ == "__main__":
    sys.exit(main())
