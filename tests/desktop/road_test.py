"""From a set that was just added to its copy, with the default host in a real panel."""

import datetime
import json
import pathlib
import plistlib
import subprocess
import unittest

import pictures
from panel import Panel, Screen
from session import PROGRAMS, RESOURCES, SessionTest, wait_for

TICK_SECONDS = 57  # after its start the agent judges for the first time


class RoadTest(SessionTest):
    def add_set(self, session):
        (session.root / "Letters").mkdir()
        (session.root / "Copies").mkdir()
        (session.root / "Letters/one.txt").write_text("Dear reader")
        subprocess.run([PROGRAMS / "kvbackup", "add", "Mail_1 & more",
                        "--source", session.root / "Letters", "--dest", session.root / "Copies",
                        "--daily", "00:00"], env=session.environment, check=True)

    def test_scheduled_backup_is_seen_from_start_to_end(self):
        session, began = self.new_session(), datetime.date.today()
        self.add_set(session)
        screen, panel = Screen(session), Panel(session, is_dark=True)
        panel.start()
        agent = session.start_agent(RESOURCES)
        screen.wait_for_picture(pictures.STILL)
        item = panel.item()
        self.assertEqual(item.menu().outline()[0], "(Next: Mail_1 & more now)")
        self.assertIn("never run", item.menu().lines[1].text)

        wait_for("the start of the backup", lambda: item.signals_named("NewIcon"),
                 TICK_SECONDS + 30)
        wait_for("an animated picture", lambda: screen.picture() in pictures.FRAMES)
        self.assertIn("(Backing up Mail_1 & more since", item.menu().outline()[0])
        screen.keep("road-running")
        screen.wait_for_picture(pictures.STILL)
        self.assertIn("last run today", item.menu().lines[1].text)

        ended = datetime.date.today()
        self.assertEqual((session.root / "Copies/Mail_1 & more/Letters/one.txt").read_text(),
                         "Dear reader")
        history = pathlib.Path(session.environment["XDG_STATE_HOME"],
                               "KVScheduler/history.jsonl").read_text().splitlines()
        self.assertEqual([(run["set"], run["result"]) for run in map(json.loads, history)],
                         [("Mail_1 & more", "ok")])
        documents = session.root / "home/Library/Application Support/Kelvara"
        one, = plistlib.loads((documents / "kvsets.plist").read_bytes())
        self.assertIn(int(one["schopts"]["dayOfMonth"]), [began.day, ended.day])

        log = session.root / "home/Library/Logs/KVScheduler/KVScheduler.txt"
        item.pick("About KVScheduler")
        wait_for("where the log is", lambda: f"Log: {log};" in log.read_text())

        screen.click(3)
        screen.wait_for_menu(True)
        screen.keep("road-menu")
        screen.tool("key", "Escape")
        self.assertEqual(agent.end(), 0)


if __name__ == "__main__":
    unittest.main()
