#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/PropertyListWriter.h"
#include "platform/linux/PosixFiles.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/kvctl/Explanation.h"
#include "tools/kvctl/QtApplication.h"

namespace kv::kvctl {
namespace {

/// A host whose answers are in the paths and in one file each.
constexpr const char* kHost = R"(
  application.delegate = {
    applicationDidFinishLaunching() {
      this.timer = new KVTimer();
      system.writeText(system.stateFolder + "/written", "by a rehearsal");
      const log = new DDFileLogger();
      DDLog.addLogger(log);
      DDLog.error("in " + log.logFileManager().logsDirectory());
    },
    checkIfDiskExists_fromSchedule(path, one) { return path !== "/gone"; },
    checkRunningBackupStatus() { return system.exists(system.homeFolder + "/running") ? 1 : 0; },
    checkBackupStatus() { return 0; },
    backupNow(set) { system.writeText(system.homeFolder + "/launched", set); },
    describeState: () => ({pause: {until: new Date(Date.now() + 3600000)}, run: null, sets: [
        {index: 0, lastGood: new Date(Date.now() - 31 * 86400000), state: "words"}]}),
  };)";

class Why : public testing::Test {
 protected:
  Why() {
    std::filesystem::create_directories(home / "bundle/Scripts");
    test::writeFile(home / "bundle/Scripts/host.js", kHost);
    context.files = std::make_shared<PosixFiles>();
    context.locale = DateLocale::fromName("en_US");
    context.homeFolder = home.path().string();
    context.stateFolder = home / "state";
    context.bundle = home / "bundle";
    context.traceFile = home / "trace.txt";
  }

  /// The sentences about all sets, with those that are started before it where there are any.
  std::vector<std::string> sentences(const PropertyList::Array& records, const char* at) {
    test::writeFile(home / ScheduleDocuments::kFirst,
                    writePropertyList(records, PropertyListEncoding::kXml));
    const auto now = parseTime(at, Date());
    context.clock = std::make_shared<StandingClock>(now.value());
    Explainer explainer(context);
    std::vector<std::string> found;
    for (const SetEntry& set : explainer.sets().all()) {
      const Explanation one = explainer.explain(set);
      found.push_back(one.sentence);
      if (!one.before.empty()) found.back() += fmt::format(" << {}", fmt::join(one.before, ", "));
    }
    return found;
  }

  struct Case {
    const char* what;
    PropertyList::Array records;
    std::vector<std::string> expected;
    const char* locale = "en_US";
  };
  /// On a Tuesday, the 24th.
  void expectSentences(const std::vector<Case>& cases) {
    for (const Case& one : cases) {
      context.locale = DateLocale::fromName(one.locale);
      EXPECT_EQ(sentences(one.records, kTuesday), one.expected) << one.what;
    }
  }

  static constexpr const char* kTuesday = "2026-11-24 10:00";
  test::ScopedEnvironment zone{"TZ", "Europe/Berlin"};
  test::TemporaryFolder home;
  Context context;
  std::unique_ptr<QCoreApplication> application = makeQtApplication();
};

TEST_F(Why, EachSetHasItsReason) {
  using test::Task;
  expectSentences({
      {"gates",
       {Task("A").daily("09:30").off(), Task("B").daily("09:30").option("runState", 0),
        Task("C").option("dayWeekOrHour", 9)},
       {"A is switched off: it has no active schedule.",
        "B is held: it is not started until it is released (\"kvbackup release\").",
        "C is never started: the scheduler knows no schedule of its type."}},
      {"before and after the run of a day",
       {Task("A").daily("10:01").lastRun(23), Task("B").daily("09:30").lastRun("24"),
        Task("C").daily("09:30").onceADay().lastRun(24)},
       {"A is not due yet: it is due today at 10:01.",
        "B is not due: it ran today (stored day 24), next chance tomorrow at 09:30.",
        "C is not due: it ran today (stored day 24), next chance tomorrow at 00:00."}},
      {"a value that is unequal to itself",
       {Task("A").daily("10:01").lastRun(23).field("note", std::nan(""))},
       {"A is not due yet: it is due today at 10:01."}},
      {"weekdays",
       {Task("A").weekly("09:30").on(2).on(5), Task("B").weekly("09:30"),
        Task("C").weekly("10:30").on(3)},
       {"A is not due: today is Tuesday, and it is set for mon, thu; next chance on Thu 2026-11-26 "
        "at 09:30.",
        "B is never due: no weekday is chosen.", "C is not due yet: it is due today at 10:30."}},
      {"a weekday that never matches",
       {Task("A").weekly("09:30").on(3)},
       {"A is chosen for Tuesdays, but where the week starts on Monday, as in de_DE, no Tuesday "
        "ever "
        "matches (\"kvctl check\" says what to do)."},
       "de_DE"},
  });
}

TEST_F(Why, SetsThatAreDueTakeTheirTurns) {
  using test::Task;
  expectSentences({
      {"who comes first",
       {Task("A").daily("09:30").field("destinationPath", "/gone"), Task("B").daily("09:30"),
        Task("C").daily("09:30"), Task("D").daily("09:30").off(),
        Task("E").minutes("2026-11-24 09:00"), Task("F").hourly("2026-11-24 09:00")},
       {"A is due, but the host says that its destination /gone is not there to be used "
        "(\"words\").",
        "B is due, and the next tick starts it.",
        "C is due, but B comes first, and one backup runs at a time. << B",
        "D is switched off: it has no active schedule.",
        "E is due, but B comes first, and one backup runs at a time. << B, C",
        "F is due since today at 09:00, but intervals of hours wait while one of minutes is "
        "overdue: E. << B, C, E"}},
      {"one that cannot start holds up whom the order leaves out, and nobody else",
       {Task("A").minutes("2026-11-24 09:30"),
        Task("B").minutes("2026-11-24 09:00").field("destinationPath", "/gone"),
        Task("C").minutes("2026-11-24 09:15")},
       {"A is due, and the next tick starts it.",
        "B is due, but the host says that its destination /gone is not there to be used.",
        "C is due since today at 09:15, but is passed over: B stands before it in the list and has "
        "been due for longer. << B, A"}},
      {"the order of intervals",
       {Task("A").hourly("2026-11-24 08:00"), Task("B").minutes("2026-11-24 09:30"),
        Task("C").minutes("2026-11-24 09:45"), Task("D").minutes("2026-11-24 10:20"),
        Task("E").minutes("2026-11-24 09:00"),
        Task("F").minutes("2026-11-24 09:00").without("minhourdate")},
       {"A is due since today at 08:00, but intervals of hours wait while one of minutes is "
        "overdue: E, B. << E, B",
        "B is due, but E comes first, and one backup runs at a time. << E",
        "C is due since today at 09:45, but is passed over: B stands before it in the list and has "
        "been due for longer. << E, B",
        "D is not due: its next-due date is today at 10:20, in 20 min.",
        "E is due, and the next tick starts it.",
        "F is never due: it has no next-due date (\"minhourdate\"), which a run writes; \"kvbackup "
        "release\" makes it due now."}},
  });
}

TEST_F(Why, TheNumberOfADayRepeats) {
  // The host knows of a good run on 24 October.
  EXPECT_EQ(sentences({test::Task("A").daily("09:30").lastRun(24)}, kTuesday),
            std::vector<std::string>{
                "A counts as done today: days are compared by their number alone, the stored day "
                "is 24, and the last run was on Sat 2026-10-24 at 11:00; next chance tomorrow at "
                "09:30."});
}

TEST_F(Why, APauseOfTheHostIsToldAsOne) {
  test::writeFile(home / "running", "");
  EXPECT_EQ(sentences({test::Task("A").daily("09:30")}, kTuesday),
            std::vector<std::string>{"A is due, but scheduling is paused until today at 11:00."});
}

TEST_F(Why, NothingIsLeftBehind) {
  sentences({test::Task("A").daily("09:30")}, kTuesday);
  for (const char* path : {"state", "launched", "trace.txt", "Library/Logs"}) {
    EXPECT_FALSE(std::filesystem::exists(home / path)) << path;
  }
}

}  // namespace
}  // namespace kv::kvctl
