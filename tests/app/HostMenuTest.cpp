#include <gmock/gmock.h>

#include "tests/app/HostWorld.h"

namespace kv::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// Reads and picks lines of the menu, and counts what is done to menus.
constexpr const char* kMenuReader = R"(
  var writes = 0;
  for (const name of ['title', 'enabled', 'submenu', 'state', 'action']) {
    const field = Object.getOwnPropertyDescriptor(NSMenuItem.prototype, name);
    Object.defineProperty(NSMenuItem.prototype, name, {
      get: field.get,
      set(value) { if (value !== field.get.call(this)) ++writes; field.set.call(this, value); }
    });
  }
  for (const name of ['insertItem', 'removeItem']) {
    const operation = NSMenu.prototype[name];
    NSMenu.prototype[name] = function (item, index) {
      ++writes;
      return operation.call(this, item, index);
    };
  }
  function titles(menu) {
    return menu.items.map(item => item.separator ? '-' : item.title + (item.enabled ? '' : '!')
        + (item.state ? '+' : '') + (item.submenu ? ' >' : ''));
  }
  function pick() {
    let menu = fake.menu, item = null;
    for (const begin of arguments) {
      item = menu.items.find(one => one.title.indexOf(begin) === 0);
      menu = item.submenu;
    }
    if (item.enabled) item.action(item);
  }
)";

struct MenuWorld : HostWorld {
  explicit MenuWorld(const TaskList& sets, const std::string& before = "")
      : HostWorld(sets, kMenuReader + before) {}
  std::string line(int index) {
    return show("fake.menu.items[" + std::to_string(index) + "].title");
  }
  std::string notices() { return show("fake.notices.splice(0).join('; ')"); }
  std::string icon() { return show("fake.icon.splice(0).join()"); }
};

const std::string kStartDocs = "/p/kvbackup Qm3x7P Docs";

/// Ran today, and is due tomorrow.
Task docs() {
  return Task("Docs").daily("09:30").lastRun("5");
}

TEST(HostMenu, ShowsNamesHarmlessly) {
  const std::pair<const char*, const char*> kCases[] = {
      {"'Größe 🙂'", "Größe 🙂"},
      {"'a\\nb\\t\\u0007 c'", "a b c"},
      {"'\\u202egpj.exe\\u2069\\ufeff'", "gpj.exe"},
      {"'\\ud83d!'", "\uFFFD!"},
      {"7", "7"},
      {"undefined", "(no name)"},
      {"' \\n'", "(no name)"},
      {"['x']", "(no name)"},
      {"'x'.repeat(40)", "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"},
      {"'🙂'.repeat(20) + 'x'.repeat(21)",
       "🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂🙂…xxxxxxxx"
       "x"
       "x"
       "xxxxxxxxx"},
  };
  MenuWorld world({});
  for (const auto& [name, shown] : kCases) {
    EXPECT_EQ(world.show("host.texts.name(" + std::string(name) + ")"), shown);
  }
}

TEST(HostMenu, TellsDaysAsPeopleDo) {
  const std::tuple<const char*, const char*, const char*> kCases[] = {
      {"2024-03-30 23:59", "2024-03-30 00:00", "today 00:00"},
      {"2024-03-31 00:10", "2024-03-30 23:50", "yesterday 23:50"},
      {"2024-03-30 12:00", "2024-03-31 23:59", "tomorrow 23:59"},  // a day of 23 hours
      {"2024-03-31 12:00", "2024-04-06 01:00", "Saturday 01:00"},
      {"2024-03-31 12:00", "2024-04-07 01:00", "7 Apr 01:00"},
      {"2024-01-02 12:00", "2023-12-20 08:05", "20 Dec 2023 08:05"},
  };
  MenuWorld world({});
  const ScopedEnvironment zone("TZ", "Europe/Berlin");
  for (const auto& [now, then, words] : kCases) {
    const auto instant = [](const char* text) {
      return std::to_string(localDate(text).unixSeconds() * 1000);
    };
    EXPECT_EQ(world.show("host.texts.moment(" + instant(then) + "," + instant(now) + ")"), words);
  }
}

TEST(HostMenu, TellsTheStateOfEachSet) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const std::string ok = "ran('Docs', 'ok', Date.UTC(2024, 2, 4, 9, 31))";
  const std::string failed = "ran('Docs', 'failed', Date.UTC(2024, 2, 5, 8, 59))";
  const auto gone = [](Task task) { return task.field("destinationPath", "/disk/Gone"); };
  const std::tuple<PropertyList, std::string, const char*> kCases[] = {
      {docs(), ok, "Docs: daily 09:30, last run yesterday 09:31, next tomorrow 09:30"},
      {docs().lastRun("0"), "", "Docs: daily 09:30, never run, next today 09:30"},
      {docs().lastRun("4").onceADay(), "fake.processes = ['kvbackup run -- Other']",
       "Docs: once a day, due now"},
      {Task("Docs").weekly("09:30").on(2).on(5).lastRun("4"), "",
       "Docs: weekly Mon, Thu 09:30, next Thursday 09:30"},
      {Task("Docs").weekly("09:30").on(2).onceADay().lastRun("4"), "",
       "Docs: weekly Mon, once a day, next Monday 00:00"},
      {Task("Docs").weekly("09:30").lastRun("4"), "", "Docs: weekly on no day, never due"},
      {Task("Docs").minutes("2024-03-05 09:10").lastRun("4"), ok,
       "Docs: every 15 minutes, last run yesterday 09:31, next today 09:10"},
      {Task("Docs").hourly("2024-03-05 09:10").option("sethours", 1).lastRun("4"), ok,
       "Docs: every hour, last run yesterday 09:31, next today 09:10"},
      {docs().option("dayWeekOrHour", 9).option("runState", "NO"), "",
       "Docs: unknown schedule, held"},
      {docs().option("runState", false), ok, "Docs: daily 09:30, held"},
      {docs().off(), ok, "Docs: not scheduled"},
      {docs().withoutField("schopts"), "", "Docs: not scheduled"},
      {gone(Task("Docs").daily("00:00")), ok, "Docs: daily 00:00, waiting for its volume"},
      {docs().lastRun("4"), ok + ";" + failed, "Docs: daily 09:30, failed, next try 09:04"},
      {docs(), "ran('Docs', 'interrupted', Date.UTC(2024, 2, 4, 8))",
       "Docs: daily 09:30, failed yesterday 08:00, next tomorrow 09:30"},
      {docs(), "fake.processes = ['kvbackup run Docs']", "Docs: daily 09:30, running"},
      {Task("Docs").daily("00:00").lastRun("4"), "", "Docs: daily 00:00, running since 09:01"},
      {docs().withoutField("backupset").lastRun("4"), "",
       "(no name): daily 09:30, next today 09:30"},
  };
  for (const auto& [set, before, shown] : kCases) {
    MenuWorld world({set}, before);
    world.tickAt("2024-03-05 09:01:00");
    EXPECT_EQ(world.line(1), shown);
  }
  MenuWorld world({Task("Docs").weekly("09:30").on(5).onceADay()});
  world.tickAt("2024-02-27 09:01:00");  // the clock was set back
  EXPECT_EQ(world.line(1), "Docs: weekly Thu, once a day, never run, next Thursday 00:00");
  const ScopedEnvironment elsewhere("TZ", "Asia/Tokyo");
  world.tickAt("2024-02-28 00:02:00");
  EXPECT_EQ(world.line(1), "Docs: weekly Thu, once a day, never run, next tomorrow 00:00");
}

TEST(HostMenu, BeginsWithWhatIsGoingOn) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const Task due = Task("Docs").daily("00:00").lastRun("4");
  const std::tuple<TaskList, std::string, const char*> kCases[] = {
      {{}, "", "No backup sets yet"},
      {{docs().off()}, "", "Nothing is scheduled"},
      {{docs(), Task("Mail").daily("09:31").lastRun("4")}, "", "Next: Mail today 09:31"},
      {{due}, "", "Backing up Docs since 09:01"},
      {{docs()}, "fake.processes = ['kvbackup run -- A']", "Backing up A"},
      {{due}, "ran('Docs', 'failed', Date.UTC(2024, 2, 5, 8, 59))", "Next: Docs today 09:04"},
      {{Task("Gone").daily("00:00")}, "", "Waiting for a volume"},
      {{due}, "fake.installed = []", "No backup program is installed"},
  };
  for (const auto& [sets, before, shown] : kCases) {
    MenuWorld world(sets, before);
    world.tickAt("2024-03-05 09:01:00");
    EXPECT_EQ(world.line(0), shown);
  }
}

TEST(HostMenu, NamesTheSetThatTheSchedulerTakesFirst) {
  const ScopedEnvironment zone("TZ", "UTC0");
  TaskList sets = {Task("Hours").hourly("2024-03-05 07:00"),
                   Task("Minutes").minutes("2024-03-05 08:00")};
  EXPECT_EQ(MenuWorld(sets).line(0), "Next: Minutes now");
  sets.push_back(Task("Docs").daily("00:00").lastRun("4"));
  EXPECT_EQ(MenuWorld(sets).line(0), "Next: Docs now");
}

TEST(HostMenu, TouchesNothingThatHasNotChanged) {
  const ScopedEnvironment zone("TZ", "UTC0");
  TaskList sets;
  for (int i = 0; i < 100; ++i) sets.push_back(docs().field("backupset", std::to_string(i)));
  sets.push_back(Task("Gone").daily("00:00").lastRun("4"));  // asked for its volume all the time
  MenuWorld world(sets, "ran('99', 'ok', Date.UTC(2024, 2, 4))");
  world.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(world.show("titles(fake.menu).slice(19, 24).join('|')"),
            "18: daily 09:30, next tomorrow 09:30 >|19: daily 09:30, next tomorrow 09:30 >|"
            "More sets >|-|Pause scheduling >");
  EXPECT_EQ(world.show("titles(fake.menu.items[21].submenu).length"), "81");
  world.script(
      "writes = 0; var judged = 0, next = KVTimer.prototype.nextDue;"
      "KVTimer.prototype.nextDue = function (r) { ++judged; return next.call(this, r); };"
      "var worded = 0, set = host.texts.set;"
      "host.texts.set = (state, now) => { ++worded; return set(state, now); };");
  world.tickAt("2024-03-05 09:02:00");
  EXPECT_EQ(world.show("[writes, judged, worded].join()"), "0,0,0");
  sets[99] = docs().field("backupset", "99").lastRun("4");
  world.writeDocument(sets);
  world.tickAt("2024-03-05 09:03:00");
  EXPECT_EQ(world.show("[writes, judged, worded].join()"), "2,1,1");  // and the status
  EXPECT_EQ(world.line(0), "Next: 99 today 09:30");
  // The end of the more distant sets, and a menu of another size.
  sets.resize(3);
  world.writeDocument(sets);
  world.tickAt("2024-03-05 09:04:00", "fake.files['/c/settings.json'] = '{\"menuSets\": 2}'");
  EXPECT_EQ(world.show("titles(fake.menu).slice(3, 5).join('|')"), "More sets >|-");
  sets.resize(1);
  world.writeDocument(sets);
  world.tickAt("2024-03-05 09:05:00");
  EXPECT_EQ(world.show("titles(fake.menu).slice(1).join('|')"),
            "0: daily 09:30, next tomorrow 09:30 >|-|Pause scheduling >|Debug Tracing|Open trace|"
            "Open log|-|About KVScheduler|Quit");
}

TEST(HostMenu, BacksUpNowButNeverTwoAtOnce) {
  const ScopedEnvironment zone("TZ", "UTC0");
  MenuWorld world({docs(), docs().field("backupset", "Mail"), docs().withoutField("backupset")});
  world.script("pick('Pause', 'Until resumed')");
  EXPECT_EQ(world.line(0) + "; " + world.line(2),
            "Paused until resumed; Mail: daily 09:30, next after the pause");
  world.script("pick('Docs', 'Back up now')");
  EXPECT_EQ(world.show("fake.started.join()"), kStartDocs);
  EXPECT_EQ(world.line(0), "Backing up Docs since 09:00");
  world.script("pick('Mail', 'Back up now'); pick('Docs', 'Back up now')");
  EXPECT_EQ(world.show("fake.started.join()"), kStartDocs);
  EXPECT_EQ(world.notices(),
            "Mail is not started now | The backup of Docs is running.; "
            "Docs is not started now | The backup of Docs is running.");
  world.setTime("2024-03-05 09:00:30");
  world.script(
      "ran('Docs', 'ok', fake.now); pick('Docs', 'Show last log');"
      "fake.files['/s/logs/Docs.log'] = ''; poll(); pick('Docs', 'Show last log');"
      "pick('Mail', 'Back up now')");
  EXPECT_EQ(world.show("fake.opened + ' ' + fake.started[1]"),
            "/s/logs/Docs.log /p/kvbackup Qm3x7P Mail");
  EXPECT_EQ(world.show("titles(fake.menu.items[1].submenu) + titles(fake.menu.items[2].submenu)"),
            "Back up now,Show last logBack up now,Show last log!");
  EXPECT_EQ(world.show("titles(fake.menu.items[3].submenu)"), "Back up now!,Show last log!");
  EXPECT_EQ(world.line(1), "Docs: daily 09:30, last run today 09:00");
  world.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(world.line(1), "Docs: daily 09:30, last run today 09:00, next after the pause");
  MenuWorld kelvara({docs()}, "fake.installed.push('/usr/bin/Kelvara+')");
  kelvara.script("fake.processes = ['Kelvara+']; fake.now += 5000; pick('Docs', 'Back up now')");
  EXPECT_EQ(kelvara.show("fake.started.join()"), "/usr/bin/Kelvara+ 4R82T6 Docs");
}

TEST(HostMenu, AnimatesTheIconWhileABackupRunsAndPollsNoLonger) {
  const ScopedEnvironment zone("TZ", "UTC0");
  MenuWorld world({Task("Docs").daily("00:00").lastRun("4")});
  EXPECT_EQ(world.icon() + world.show("fake.polls.length"), "shown0");
  world.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(world.icon(), "2");
  world.tickAt("2024-03-05 09:01:57", "fake.processes = ['kvbackup Qm3x7P Docs']; poll()");
  EXPECT_EQ(world.icon(), "");
  world.setTime("2024-03-05 09:02:10");
  world.script("fake.processes = []; ran('Docs', 'ok', fake.now); poll()");
  EXPECT_EQ(world.icon() + world.show("fake.polls.length"), "10");
  // The documents that say so have not been read yet.
  EXPECT_EQ(world.line(0) + "; " + world.line(1),
            "Done: Docs 09:02; Docs: daily 00:00, last run today 09:02");
  // Begun by hand.
  world.tickAt("2024-03-05 09:03:00", "fake.processes = ['kvbackup run Docs']");
  world.setTime("2024-03-05 09:03:05");
  world.script("poll()");
  EXPECT_EQ(world.icon() + world.show("fake.polls.length"), "21");
  world.setTime("2024-03-05 09:03:10");
  world.script("fake.processes = []; poll()");
  EXPECT_EQ(world.icon() + world.show("fake.polls.length"), "10");
  world.application->willTerminate();
  EXPECT_EQ(world.icon(), "gone");
}

TEST(HostMenu, StartsNothingWhilePausedAndSaysSo) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const TaskList sets = {Task("Docs").daily("00:00").lastRun("4")};
  std::string kept;
  {
    MenuWorld world(sets, "fake.debug = '1'");
    world.script("pick('Pause', 'For 1 hour')");
    EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), "");
    EXPECT_EQ(world.line(0) + "; " + world.line(1),
              "Paused until 10:00; Docs: daily 00:00, next after the pause");
    EXPECT_THAT(readFile(world.home / "trace.txt"),
                HasSubstr("Paused until 10:00: nothing is started\n09:01:00 [Timer] "
                          "Skip backup > one is currently running: Docs\n"));
    kept = world.show("fake.files['/s/paused.json']");
  }
  MenuWorld world(sets, "fake.files['/s/paused.json'] = '" + kept.substr(0, kept.size() - 1) + "'");
  EXPECT_EQ(world.tickAt("2024-03-05 09:59:59"), "");
  EXPECT_EQ(world.show("titles(fake.menu)[3]"), "Resume scheduling");
  EXPECT_EQ(world.tickAt("2024-03-05 10:00:00"), kStartDocs);
  EXPECT_EQ(world.show("titles(fake.menu)[3]"), "Pause scheduling >");
  world.script("pick('Pause', 'Until tomorrow'); fake.isDiskFull = true");
  EXPECT_THAT(world.show("fake.files['/s/paused.json']"),
              HasSubstr(R"("until":"2024-03-06T00:00:00.000Z")"));
  world.script("pick('Resume')");
  EXPECT_THAT(world.events(),
              AllOf(HasSubstr("Paused until tomorrow 00:00\n"),
                    HasSubstr("paused.json cannot be written"), HasSubstr("is resumed\n")));
}

TEST(HostMenu, IsNotPausedByADamagedFileOrAClockThatWasSetBack) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const std::tuple<const char*, bool, const char*> kCases[] = {
      {R"({"until": null})", true, "Paused until resumed, as before the restart\n"},
      {R"({"until": "2024-03-05T20:00:00Z"})", true, "Paused until 20:00"},
      {R"({"until": "2024-03-05T08:00:00Z"})", false, ""},
      {R"({"until": "2024-03-05T20:00:00Z", "since": "2024-03-05T19:00:00Z"})", false, "longer"},
      {R"({"until": "2099-01-01T00:00:00Z", "since": "2024-03-05T08:00:00Z"})", false, "longer"},
      {R"({"until": 5})", false, "cannot be understood"},
      {R"({})", false, "cannot be understood"},
      {"null", false, "cannot be understood"},
      {"{\"unt", false, "cannot be understood"},
  };
  for (const auto& [text, isPaused, logged] : kCases) {
    MenuWorld world({Task("Docs").daily("00:00").lastRun("4")},
                    "fake.files['/s/paused.json'] = '" + std::string(text) + "'");
    EXPECT_EQ(world.tickAt("2024-03-05 09:01:00").empty(), isPaused) << text;
    EXPECT_THAT(world.events(), HasSubstr(logged)) << text;
  }
  MenuWorld world({Task("Docs").daily("00:00").lastRun("4")});
  world.script("pick('Pause', 'For 1 hour')");
  EXPECT_EQ(world.tickAt("2024-03-05 08:54:00"), kStartDocs);
}

TEST(HostMenu, TellsOfFailuresOnceADayEvenAfterARestart) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const std::string failed = "ran('Docs', 'failed', Date.UTC(2024, 2, 5, 9), 'rsync is gone')";
  std::string kept;
  {
    MenuWorld world({docs()}, failed);
    world.tickAt("2024-03-05 09:01:00");
    world.tickAt("2024-03-05 09:02:00", "ran('Docs', 'failed', fake.now)");
    EXPECT_EQ(world.notices(),
              "The backup of Docs failed | Rsync is gone. It is tried again at 09:05.");
    kept = world.show("JSON.stringify(fake.files['/s/notified.json'])");
  }
  MenuWorld world({docs()}, failed + "; fake.files['/s/notified.json'] = " + kept);
  world.tickAt("2024-03-05 09:03:00");
  EXPECT_EQ(world.notices(), "");
  world.tickAt("2024-03-06 09:02:00", "ran('Docs', 'interrupted', fake.now)");
  EXPECT_EQ(world.notices(), "");
  world.tickAt("2024-03-06 09:03:00", "ran('Docs', 'failed', fake.now)");
  EXPECT_EQ(world.notices(), "The backup of Docs failed | It is tried again at 09:23.");
  world.tickAt("2024-03-09 00:00:01");
  world.tickAt("2024-03-09 09:03:00", "ran('Docs', 'failed', fake.now)");
  EXPECT_EQ(world.show("JSON.parse(fake.files['/s/notified.json']).told.length"), "1");

  TaskList sets;
  for (int i = 0; i < 1001; ++i) sets.push_back(docs().field("backupset", std::to_string(i)));
  MenuWorld many(sets,
                 "fake.files['/c/settings.json'] = '{\"notifications\": false}';"
                 "for (let i = 0; i < 1001; ++i) ran(String(i), 'failed', fake.now)");
  many.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(many.notices(), "");
  many.tickAt("2024-03-05 09:02:00", "delete fake.files['/c/settings.json']");
  EXPECT_EQ(many.notices(), "1000 backups failed | 0, 1, 2, 3, 4 and 995 more");
  many.tickAt("2024-03-05 09:03:00");
  EXPECT_EQ(many.notices(), "") << "rather told never than again and again";
}

TEST(HostMenu, TellsOfOverdueSetsWhenNothingStartsThem) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const auto daysAgo = [](int days) {
    return "ran('Docs', 'ok', Date.UTC(2024, 2, " + std::to_string(5 - days) + ", 9, 1))";
  };
  const auto interval = Task("Docs").minutes("2024-03-05 08:31:00").lastRun("4");
  const std::tuple<PropertyList, std::string, const char*> kCases[] = {
      {docs(), daysAgo(2), ""},
      {docs(), daysAgo(3), "The backup of Docs is overdue | Its last good run was Saturday 09:01."},
      {docs().off(), daysAgo(3), ""},
      {Task("Docs").daily("00:00").field("destinationPath", "/disk/Gone"), daysAgo(4), ""},
      {Task("Docs").weekly("09:30").on(4).lastRun("5"), daysAgo(20), ""},
      {Task("Docs").weekly("09:30").on(4).lastRun("5"), daysAgo(21),
       "The backup of Docs is overdue | Its last good run was 13 Feb 09:01."},
      {interval, "", "The backup of Docs is overdue | It has been due since today 08:31."},
      {interval, "ran('Docs', 'ok', Date.UTC(2024, 2, 5, 8, 30))", ""},
  };
  for (const auto& [set, before, told] : kCases) {
    MenuWorld world({set}, before);
    // Other runs that end just before each tick keep the set from being started.
    for (int tick = 0; tick < 5; ++tick) {
      world.tickAt("2024-03-05 09:01:1" + std::to_string(tick),
                   "ran('Busy', 'ok', fake.now - 1000)");
    }
    EXPECT_EQ(world.notices(), told) << before;
    world.tickAt("2024-03-05 09:01:16", "ran('Busy', 'ok', fake.now - 1000)");
    EXPECT_EQ(world.notices(), "");
  }
  MenuWorld busy({docs()}, daysAgo(4) + "; fake.processes = ['kvbackup run Other']");
  MenuWorld paused({docs()}, daysAgo(4));
  paused.script("pick('Pause', 'Until resumed')");
  MenuWorld taken({docs(), Task("Other").daily("00:00").lastRun("4")}, daysAgo(4));
  for (int tick = 1; tick < 9; ++tick) {
    const std::string time = "2024-03-05 09:0" + std::to_string(tick);
    busy.tickAt(time + ":00");
    paused.tickAt(time + ":00");
    EXPECT_EQ(taken.tickAt(time + ":00"), "/p/kvbackup Qm3x7P Other");
    taken.setTime(time + ":20");
    taken.script("ran('Other', 'ok', fake.now); poll()");
  }
  EXPECT_THAT(busy.notices() + paused.notices() + taken.notices(), Not(HasSubstr("overdue")));
}

TEST(HostMenu, TellsOfAVolumeThatIsMissingForADay) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const TaskList sets = {Task("Docs").daily("09:00").field("destinationPath", "/disk/Gone")};
  std::string kept;
  {
    MenuWorld world(sets);
    world.tickAt("2024-03-05 09:01:00");
    world.tickAt("2024-03-06 08:59:00");  // not due, so nobody knows
    kept = world.show("JSON.stringify(fake.files['/s/notified.json'])");
  }
  MenuWorld world(sets, "fake.files['/s/notified.json'] = " + kept);
  world.tickAt("2024-03-06 09:00:30");
  EXPECT_EQ(world.notices(), "");
  world.tickAt("2024-03-06 09:01:00");
  world.tickAt("2024-03-06 09:02:00");
  EXPECT_EQ(world.notices(),
            "The backup of Docs waits for its volume | /disk/Gone has been "
            "missing since yesterday 09:01.");
  world.tickAt("2024-03-07 08:00:00", "fake.present['/disk/Gone'] = true");
  world.tickAt("2024-03-07 09:02:00", "fake.present = {}");
  EXPECT_EQ(world.notices(), "");
  // A clock that was set back, and a set that was removed.
  world.tickAt("2024-03-05 09:02:00");
  world.tickAt("2024-03-06 09:02:00");
  EXPECT_THAT(world.notices(), HasSubstr("missing since yesterday 09:02"));
  world.writeDocument({});
  world.tickAt("2024-03-06 09:03:00");
  EXPECT_EQ(world.show("JSON.parse(fake.files['/s/notified.json']).missing.length"), "0");
}

TEST(HostMenu, WarnsOfASetThatIsStartedAgainAndAgainAndNeverRecorded) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const auto due = Task("Docs").daily("00:00").lastRun("4");
  const char* const kEndsSilently =
      "fake.processes = ['kvbackup Qm3x7P Docs']; poll();"
      "fake.now += 5000; fake.processes = []; poll()";
  MenuWorld world({due});
  const auto launchAt = [&](const std::string& time, const char* end) {
    EXPECT_EQ(world.tickAt("2024-03-05 " + time + ":00"), kStartDocs) << time;
    world.setTime("2024-03-05 " + time + ":05");
    world.script(end);
  };
  const auto hasWarned = [&] {
    return world.events().find("Docs: started 5 times, and no run") != std::string::npos;
  };
  for (const char* time : {"09:01", "09:02", "09:03", "09:04"}) launchAt(time, kEndsSilently);
  EXPECT_FALSE(hasWarned());
  // A run is recorded, and the count begins anew.
  world.writeDocument({Task("Docs").daily("00:00").lastRun("5")});
  world.tickAt("2024-03-05 09:05:00");
  world.writeDocument({due});
  world.tickAt("2024-03-05 09:05:57", "fake.processes = ['kvbackup run Other']");
  world.script("fake.processes = []");
  for (const char* time : {"09:06", "09:08", "09:09", "09:10"}) launchAt(time, kEndsSilently);
  EXPECT_FALSE(hasWarned()) << world.events();
  launchAt("09:11", kEndsSilently);
  EXPECT_TRUE(hasWarned());
  EXPECT_EQ(world.line(1),
            "Docs: daily 00:00, running since 09:11; started 5 times, never recorded");
  EXPECT_EQ(world.notices(), "");
  launchAt("09:12", kEndsSilently);
  launchAt("09:13", kEndsSilently);
  EXPECT_EQ(world.notices(),
            "The backup of Docs is started but never recorded | It was started 5 times. As long as "
            "no run is recorded, it is due, and may keep other backups from being started.");
  world.writeDocument({Task("Docs").daily("00:00").lastRun("5")});
  world.tickAt("2024-03-05 09:14:00");
  EXPECT_EQ(world.line(1), "Docs: daily 00:00, next tomorrow 00:00");

  // Failures spread the starts out, and are told of as failures.
  MenuWorld failing({due});
  for (const char* time : {"09:01", "09:07", "09:18", "09:39", "10:20"}) {
    EXPECT_EQ(failing.tickAt(std::string("2024-03-05 ") + time), kStartDocs) << time;
    failing.script("ran('Docs', 'failed', fake.now + 1000); fake.now += 5000; poll()");
  }
  failing.tickAt("2024-03-05 10:21:00");
  EXPECT_THAT(failing.events(), HasSubstr("Docs: started 5 times, and no run"));
  EXPECT_EQ(failing.line(1),
            "Docs: daily 00:00, failed, next try 11:40; started 5 times, never recorded");
  EXPECT_THAT(failing.notices(), Not(HasSubstr("never recorded")));
}

TEST(HostMenu, DescribesItselfToOtherPrograms) {
  const ScopedEnvironment zone("TZ", "UTC0");
  MenuWorld world({docs(), Task("Mail").daily("00:00").lastRun("4")},
                  "ran('Docs', 'ok', Date.UTC(2024, 2, 4, 9))");
  world.tickAt("2024-03-05 09:01:00");
  world.script("pick('Pause', 'For 1 hour')");
  EXPECT_EQ(
      world.show("host.log.path = () => '/log'; JSON.stringify(application.delegate"
                 ".describeState())"),
      R"({"application":"kvbackup","log":"/log","status":"Backing up Mail since 09:01",)"
      R"("pause":{"until":"2024-03-05T10:01:00.000Z"},)"
      R"("run":{"set":"Mail","since":"2024-03-05T09:01:00.000Z"},"sets":[)"
      R"({"index":0,"name":"Docs","state":"daily 09:30, last run yesterday 09:00, next tomorrow )"
      R"(09:30","takesPart":true,"next":"2024-03-06T09:30:00.000Z","lastGood":)"
      R"("2024-03-04T09:00:00.000Z","lastFailed":null,"futileStarts":0},)"
      R"({"index":1,"name":"Mail","state":"daily 00:00, running since 09:01","takesPart":true,)"
      R"("next":"2024-03-05T09:00:00.000Z","lastGood":null,"lastFailed":null,)"
      R"("futileStarts":0}]})");
}

TEST(HostMenu, UnderstandsTheSettingsAndSaysWhatIsWrong) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const std::tuple<const char*, const char*, const char*> kCases[] = {
      {R"({"notifications": false, "statusIcon": false, "menuSets": 100})",
       R"({"notifications":false,"statusIcon":false,"menuSets":100})", ""},
      {R"({"menuSets": 0})", "", R"("menuSets" is 0; allowed is a whole number from 1 to 100; 20)"},
      {R"({"menuSets": 101})", "", R"("menuSets" is 101; allowed)"},
      {R"({"menuSets": "5"})", "", R"("menuSets" is "5"; allowed)"},
      {R"({"statusIcon": 1})", "", R"("statusIcon" is 1; allowed is true or false; true is used)"},
      {R"({"constructor": 1})", "", R"("constructor" (found: 1) is no setting; allowed are notif)"},
      {"[]", "", "/c/settings.json: holds no JSON object"},
      {"", "", "holds no JSON object; the default settings are used"},
  };
  for (const auto& [text, values, logged] : kCases) {
    MenuWorld world({}, "fake.files['/c/settings.json'] = '" + std::string(text) + "'");
    world.tickAt("2024-03-05 09:01:00");
    const std::string standard = R"({"notifications":true,"statusIcon":true,"menuSets":20})";
    EXPECT_EQ(world.show("JSON.stringify(host.settings.values)"), *values ? values : standard);
    const std::string events = world.events();
    const auto first = events.find("settings.json");
    EXPECT_EQ(first != std::string::npos, *logged != '\0') << text;
    EXPECT_EQ(events.rfind("settings.json"), first) << events;
    EXPECT_THAT(events, HasSubstr(logged));
  }
  MenuWorld world({});
  world.tickAt("2024-03-05 09:01:00", "fake.files['/c/settings.json'] = '{\"statusIcon\":false}'");
  world.tickAt("2024-03-05 09:02:00", "delete fake.files['/c/settings.json']");
  EXPECT_EQ(world.icon(), "shown,gone,shown");
}

TEST(HostMenu, ItsOtherLinesDoWhatTheySay) {
  MenuWorld world({docs()});
  world.script(
      "pick('Debug'); pick('Open trace'); fake.files['/tmp/KVScheduler.txt'] = '';"
      "pick('Open trace')");
  world.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(world.show("host.timer.debugStarted + ' ' + titles(fake.menu)[4] + ' ' + fake.opened"),
            "true Debug Tracing+ /tmp/KVScheduler.txt");
  EXPECT_EQ(world.notices(), "There is no trace; Debug Tracing writes one | ");
  world.setTime("2024-03-05 12:00:00");
  world.tickAt("2024-03-05 12:00:00");
  EXPECT_EQ(world.show("titles(fake.menu)[4]"), "Debug Tracing");  // the scheduler's own doing
  world.script("fake.installed.push(host.log.path()); pick('Open log'); pick('About')");
  EXPECT_EQ(world.show("fake.opened[1] === host.log.path()"), "true");
  EXPECT_THAT(world.notices(), AllOf(HasSubstr("KVScheduler " KV_VERSION " | "),
                                     HasSubstr("/home/ann/Library/Application Support/Kelvara"),
                                     Not(HasSubstr("undefined"))));
  world.script("application.terminate = code => { fake.exit = code; }; pick('Quit')");
  EXPECT_EQ(world.show("fake.exit"), "0");
}

}  // namespace
}  // namespace kv::test
