#include "tools/kvctl/Check.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <set>

#include "platform/PropertyListWriter.h"
#include "platform/linux/PosixFiles.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/RunRecorder.h"
#include "tools/simulation/Simulation.h"

namespace kv::kvctl {
namespace {

namespace fs = std::filesystem;
using test::kBerlin;
using test::localDate;
using test::ScopedEnvironment;
using test::Task;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Strings = std::vector<std::string>;

/// A home in which everything stands that `check` looks at.
class Home {
 public:
  explicit Home(const char* now = "2024-03-05 10:00", const char* locale = "en_US") {
    context.files = std::make_shared<PosixFiles>();
    context.homeFolder = folder_.path();
    context.historyFile = folder_ / "history.jsonl";
    context.traceFile = folder_ / "trace.txt";
    context.locale = DateLocale::fromName(locale);
    context.clock = std::make_shared<StandingClock>(localDate(now));
  }

  std::string document(const char* name) const { return folder_ / name; }
  void write(const char* name, const TaskList& sets) const {
    test::writeFile(document(name), writePropertyList(sets, PropertyListEncoding::kXml));
  }
  /// A line of the history; kvbackup writes the document first.
  void addRun(const std::string& set, Date start, Seconds duration, const char* result = "ok",
              const char* message = "") {
    History(context.historyFile)
        .append({.set = set,
                 .start = start,
                 .end = start + duration,
                 .result = std::string(result) == "ok" ? RunReport::Result::kOk
                                                       : RunReport::Result::kFailed,
                 .message = message});
  }

  /// The problems as "code set", in their order.
  Strings problems(const std::set<std::string>& absent = {}, const char* application = "kvbackup") {
    const Sets sets(context);
    CheckSubject::HostFacts host{.application = application, .futileStarts = futileStarts};
    for (const SetEntry& set : sets.all()) {
      const bool hasDestination = !BackupSet(*set.record).destination().value_or("").empty();
      host.mayStart.push_back(hasDestination && !absent.contains(set.name));
    }
    found = problemsOf(CheckSubject(context, sets, host));
    Strings codes;
    for (const Problem& problem : found) {
      codes.push_back(problem.code + (problem.set ? " " + problem.set->name : ""));
    }
    return codes;
  }

  Context context;
  std::map<std::string, std::int64_t> futileStarts;
  Problems found;

 private:
  const test::TemporaryFolder folder_;
};

/// A set that kvbackup can run.
Task sourced(const char* name) {
  return Task(name).field("sourcePaths", PropertyList::Array{"/home/ann"});
}

struct SetCase {
  const char* why;
  PropertyList set;
  Strings problems;
  const char* locale = "en_US";
  const char* application = "kvbackup";
};

Task daily() {
  return sourced("S").daily("09:30");
}
Task weekly() {
  return sourced("S").weekly("09:30");
}
Task minutes() {
  return sourced("S").minutes("2024-03-05 10:05");
}

std::vector<SetCase> recordCases() {
  return {
      {"a healthy one", daily(), {}},
      {"no record", PropertyList("Docs"), {"no-record "}},
      {"options that are none",
       PropertyList::Dictionary{{"backupset", "S"}, {"schopts", "daily"}},
       {"bad-options S"}},
      {"no destination", daily().withoutField("destinationPath"), {"missing-destination S"}},
      {"an empty one", daily().field("destinationPath", ""), {"missing-destination S"}},
      {"but it is switched off", daily().withoutField("destinationPath").off(), {}},
      {"no name", daily().withoutField("backupset"), {"missing-name "}},
      {"a number for a name", daily().field("backupset", 5), {"missing-name "}},
      {"no sources", Task("S").daily("09:30"), {"missing-sources S"}},
      {"which Kelvara+ keeps elsewhere", Task("S").daily("09:30"), {}, "en_US", "Kelvara+"},
      {"an unknown type", daily().option("dayWeekOrHour", 4), {"unknown-type S"}},
      {"a word for a type",
       daily().option("dayWeekOrHour", "weekly"),
       {"wrong-type S"}},  // and it runs daily
      {"a number as text", weekly().option("day2", " 1").option("dayWeekOrHour", "1"), {}},
      {"a word that switches it off", daily().option("scheduleIt", "yes"), {"wrong-type S"}},
      {"a word that holds it", daily().option("runState", "on"), {"wrong-type S"}},
      {"a word that holds it as meant", daily().option("runState", "false"), {}},
  };
}

std::vector<SetCase> scheduleCases() {
  return {
      {"no weekday", weekly(), {"no-weekday S"}},
      {"a Sunday", weekly().on(1), {}},
      {"a Tuesday", weekly().on(3), {}},
      {"a Tuesday, weeks from Monday on", weekly().on(3), {"weekday-never-matches S"}, "de_DE"},
      {"not only a Tuesday", weekly().on(3).on(4), {"weekday-never-matches S"}, "de_DE"},
      {"a Sunday, weeks from Monday on", weekly().on(1), {}, "de_DE"},
      {"weeks from Saturday on", weekly().on(6), {"weekday-shifted S"}, "ar_EG"},
      {"held, so it matters to nobody", weekly().option("runState", 0), {}},
      {"no time of day", daily().without("datePick"), {"missing-time S"}},
      {"a text for a time", daily().option("datePick", "09:30"), {"missing-time S"}},
      {"none is needed once a day", daily().without("datePick").onceADay(), {}},
      {"no next-due date", minutes().without("minhourdate"), {"missing-next-due S"}},
      {"an interval of nothing", minutes().option("setmins", 0), {"bad-interval S"}},
      {"a word for an interval", minutes().option("setmins", "often"), {"bad-interval S"}},
      {"a next-due date in 16 min", sourced("S").minutes("2024-03-05 10:16"), {}},
      {"one in 17 min",
       sourced("S").minutes("2024-03-05 10:17"),
       {"next-due-far-off S"}},  // of an interval of 15
      {"one in 2 h", sourced("S").hourly("2024-03-05 12:00"), {}},
      {"an interval set held in vain", minutes().option("runState", 0), {"hold-without-effect S"}},
      {"next chance tomorrow, the 6.", daily().lastRun(6), {}},
      {"which is today, as it is before the time", sourced("S").daily("10:30").lastRun(6), {}},
      {"ran on a 5.: today, as far as is known", daily().lastRun(5), {}},
      {"next chance on Friday, the 8.", weekly().on(6).lastRun("08"), {"stored-day S"}},
      {"next chance on Thursday", weekly().on(5).on(6).lastRun(8), {}},
  };
}

TEST(Check, EachProblemOfASetIsFoundAndItsNeighbourIsNone) {
  const ScopedEnvironment zone("TZ", kBerlin);
  for (const auto& cases : {recordCases(), scheduleCases()}) {
    for (const SetCase& one : cases) {
      Home home("2024-03-05 10:00", one.locale);  // a Tuesday
      home.write(ScheduleDocuments::kFirst, {one.set});
      EXPECT_THAT(home.problems({}, one.application), ElementsAreArray(one.problems)) << one.why;
      for (const Problem& problem : home.found) {
        EXPECT_FALSE(problem.what.empty() || problem.meaning.empty() || problem.remedy.empty())
            << one.why;
      }
    }
  }
}

TEST(Check, TheNamesOfTwoSetsDifferOverBothDocuments) {
  const ScopedEnvironment zone("TZ", kBerlin);
  Home home;
  home.write(ScheduleDocuments::kFirst, {sourced("A").daily("09:30"), sourced("a").daily("09:30")});
  home.write(ScheduleDocuments::kSecond, {sourced("B").daily("09:30"), sourced("A").off()});
  EXPECT_THAT(home.problems(), ElementsAreArray({"duplicate-name A"}));
  ASSERT_EQ(home.found.size(), 1u);
  EXPECT_EQ(home.found[0].set->index, 3u);
  EXPECT_EQ(home.found[0].severity, Problem::Severity::kWarning);
  EXPECT_EQ(home.found[0].file, home.document(ScheduleDocuments::kSecond));
}

TEST(Check, SetsOfKvbackupHaveNoProblems) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const Date monday = localDate("2024-03-04 17:00");
  const std::vector<ScheduleRequest> kRequests = {
      {.daily = "09:30"},
      {.daily = "23:59", .onceADay = true},
      {.onceADay = true},
      {.weekly = {"sun,mon,wed,thu,fri,sat", "00:00"}},
      {.weekly = {"mon", "09:30"}, .onceADay = true},
      {.every = "1m"},
      {.every = "8784h"},
  };
  for (const char* locale : {"en_US", "de_DE", "ar_EG"}) {
    TaskList sets;
    for (const ScheduleRequest& request : kRequests) {
      const bool isShifted = !request.weekly.empty() && std::string(locale) == "ar_EG";
      ScheduleRequest adapted = request;
      if (isShifted) adapted.weekly[0] = "sun,mon,tue,wed,thu,fri,sat";
      const std::string name = "set" + std::to_string(sets.size());
      auto fresh = BackupSet::fresh(name, {"/home/ann"}, "/disk", *Schedule::from(adapted), monday);
      sets.emplace_back(fresh);
      recordRun(fresh, monday, monday + Seconds(60));
      fresh.set("backupset", name + " after a run");
      sets.emplace_back(fresh);
      BackupSet::hold(fresh);
      fresh.set("backupset", name + " held");
      sets.emplace_back(fresh);
      BackupSet::release(fresh, monday);
      fresh.set("backupset", name + " released");
      sets.emplace_back(fresh);
    }
    for (const char* now : {"2024-03-04 17:01", "2024-03-05 10:00", "2024-03-11 00:00"}) {
      Home home(now, locale);
      home.write(ScheduleDocuments::kSecond, sets);
      EXPECT_THAT(home.problems(), IsEmpty()) << locale << " " << now;
    }
  }
}

TEST(Check, TheHistoryTellsWhatTheRecordDoesNot) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const Date lastMonth = localDate("2024-02-05 09:30");
  const Date soon = Date{Seconds(1e9)};  // later than any time at which this document is written
  const struct {
    const char* why;
    PropertyList set;
    Date start;
    const char* message;
    Strings problems;
  } kCases[] = {
      {"ran a month ago", sourced("S").daily("09:30").lastRun(5), lastMonth, "", {"stored-day S"}},
      {"today", sourced("S").daily("09:30").lastRun(5), localDate("2024-03-05 09:31"), "", {}},
      {"the document could not be written",
       sourced("S").daily("09:30").lastRun(3),
       lastMonth,
       kRunNotRecorded,
       {"run-not-recorded S"}},
      {"it was written later", sourced("S").daily("09:30").lastRun(3), lastMonth, "", {}},
      {"an older document took its place",
       sourced("S").daily("09:30").lastRun(3),
       soon,
       "",
       {"run-not-recorded S"}},
      {"with the same day",
       sourced("S").daily("09:30").lastRun(localDayOfMonth(soon)),
       soon,
       "",
       {}},
  };
  for (const auto& one : kCases) {
    Home home;
    if (one.start == soon) {
      home.context.clock = std::make_shared<StandingClock>(soon + Seconds(3600));
    }
    home.write(ScheduleDocuments::kFirst, {one.set});
    home.addRun("S", one.start, Seconds(60), *one.message == '\0' ? "ok" : "failed", one.message);
    EXPECT_THAT(home.problems(), ElementsAreArray(one.problems)) << one.why;
  }
}

TEST(Check, TheRunningAgentTellsOfStartsInVain) {
  const ScopedEnvironment zone("TZ", kBerlin);
  Home home;
  home.write(ScheduleDocuments::kFirst,
             {sourced("S").daily("09:30"), sourced("late").minutes("2024-03-05 09:50")});
  home.futileStarts = {{"S", 7}};
  EXPECT_THAT(home.problems(), ElementsAreArray({"run-not-recorded S", "starved late"}));
}

TEST(Check, DocumentsThatCannotBeReadAreTold) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const struct {
    const char* text;  // null: a folder
    const char* what;
  } kCases[] = {
      {"<plist><dict/></plist>", "is a property list, but no list of backup sets."},
      {"<plist><array>", "is no property list, or a damaged one."},
      {"", "is empty."},
      {nullptr, "is a folder."},
  };
  for (const auto& one : kCases) {
    Home home;
    const std::string path = home.document(ScheduleDocuments::kSecond);
    home.write(ScheduleDocuments::kFirst, {});
    if (one.text != nullptr) {
      test::writeFile(path, one.text);
    } else {
      fs::create_directory(path);
    }
    EXPECT_THAT(home.problems(), ElementsAreArray({"unreadable-document"}));
    ASSERT_FALSE(home.found.empty());
    EXPECT_EQ(home.found[0].what, path + " " + one.what);
  }
  Home none;
  EXPECT_THAT(none.problems(), IsEmpty());
}

TEST(Check, TheTraceFileIsOneThatTracingWritesTo) {
  Home home;
  const std::string path = home.context.traceFile;
  test::writeFile(path, "10:00:00 [Timer] Timer fired");
  EXPECT_THAT(home.problems(), IsEmpty());
  fs::resize_file(path, 30u << 20);
  EXPECT_THAT(home.problems(), ElementsAreArray({"trace-file-large"}));
  fs::rename(path, path + ".old");
  fs::create_symlink(path + ".old", path);
  EXPECT_THAT(home.problems(), ElementsAreArray({"trace-file-unusable"}));
}

// ---- Starvation: what `check` says, and what the scheduler then does -------------------------

/// Which sets begin a run.
class Runs final : public SimulationObserver {
 public:
  void judged(const PropertyList& entry, Outcome outcome) override {
    if (isLaunch(outcome)) launched.insert(static_cast<std::size_t>(&entry - first_));
  }
  void tickBegan(Date, const TaskList& list) override { first_ = list.data(); }

  std::set<std::size_t> launched;

 private:
  const PropertyList* first_ = nullptr;
};

using Durations = std::map<std::string, Seconds>;

/// The places of the sets that are launched from 12 hours after `begin` to the end of the second
/// day, and, of those that are due already, before that.
std::set<std::size_t> simulatedLaunches(const TaskList& sets, Date begin,
                                        const std::set<std::string>& absent,
                                        const Durations& durations) {
  const auto observer = std::make_shared<Runs>();
  Simulation simulation({.sets = sets,
                         .begin = begin,
                         .locale = DateLocale::fromName("en_US"),
                         .application = {.durationOf =
                                             [&durations](const std::string& set) {
                                               const auto found = durations.find(set);
                                               return found == durations.end() ? Seconds(30)
                                                                               : found->second;
                                             }},
                         .observer = observer});
  for (const std::string& set : absent) simulation.application().detach("/disk/" + set);
  simulation.runUntil(begin + Seconds(12.0 * 3600));
  if (!durations.empty()) observer->launched.clear();
  simulation.runUntil(begin + Seconds(36.0 * 3600));
  return observer->launched;
}

/// The places of the sets that are starved.
std::set<std::size_t> starvedSets(Home& home, const std::set<std::string>& absent) {
  home.problems(absent);
  std::set<std::size_t> starved;
  for (const Problem& problem : home.found) {
    if (problem.code == "starved") starved.insert(problem.set->index);
  }
  return starved;
}

struct StarvationCase {
  const char* why;
  TaskList sets;
  std::set<std::string> absent;
  std::set<std::size_t> starved;
  Durations durations = {};
};

TEST(Check, StarvedSetsAreThoseThatTheSchedulerNeverStarts) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const Task early = sourced("early").minutes("2024-03-05 08:00");
  const Task late = sourced("late").minutes("2024-03-05 09:00");
  const Task hours = sourced("hours").hourly("2024-03-05 07:00");
  const Task day = sourced("day").daily("00:00");
  const Task fast = sourced("fast").minutes("2024-03-05 09:00");
  const Task slow = sourced("slow").minutes("2024-03-05 09:00");
  const Durations both = {{"fast", Seconds(960)}, {"slow", Seconds(960)}, {"hours", Seconds(5)}};
  const Durations one = {{"fast", Seconds(300)}, {"slow", Seconds(960)}, {"hours", Seconds(5)}};
  const StarvationCase kCases[] = {
      {"behind one that starts", {early, late, hours}, {}, {}},
      {"behind one that cannot", {early, late}, {"early"}, {1}},
      {"before it", {late, early}, {"early"}, {}},
      {"hour sets wait for any minute set", {hours, late}, {"late"}, {0}},
      {"which has no destination",
       {hours, late, sourced("x").field("destinationPath", "")},
       {},
       {}},
      {"a minute set for no hour set", {hours, late}, {"hours"}, {}},
      {"one that is switched off hides hour sets",
       {sourced("off").hourly("2024-03-05 06:00").off(), hours},
       {},
       {1}},
      {"but no minute sets", {sourced("off").minutes("2024-03-05 06:00").off(), late}, {}, {}},
      {"the second of a name starts the first, again and again",
       {early, sourced("early").minutes("2024-03-05 07:00"), late, hours},
       {},
       {2, 3}},
      {"a day set without a name",
       {Task("x").withoutField("backupset").daily("00:00"), day, late},
       {},
       {1, 2}},
      {"what stands before it", {day, Task("x").withoutField("backupset").daily("00:00")}, {}, {}},
      {"minute sets that are always busy", {hours, fast, slow}, {}, {0}, both},
      {"one that leaves a gap", {hours, fast, slow}, {}, {}, one},
  };
  for (const StarvationCase& row : kCases) {
    Home home;
    home.write(ScheduleDocuments::kFirst, row.sets);
    for (const auto& [set, duration] : row.durations) {
      home.addRun(set, localDate("2024-03-05 08:00"), duration);
    }
    EXPECT_EQ(starvedSets(home, row.absent), row.starved) << row.why;
    const auto launched =
        simulatedLaunches(row.sets, home.context.clock->now(), row.absent, row.durations);
    const Sets read(home.context);
    for (const SetEntry& set : read.all()) {
      if (!row.starved.contains(set.index)) continue;
      EXPECT_FALSE(launched.contains(set.index)) << row.why << ": " << set.name;
    }
  }
}

TEST(Check, NoIntervalSetWaitsForEverUnlessItIsSaid) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const auto seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto below = [&random](unsigned count) { return random() % count; };
  for (int round = 0; round < 40; ++round) {
    Home home;
    TaskList sets;
    std::set<std::string> absent;
    std::multiset<std::string> names;
    for (unsigned number = 0; number < 6; ++number) {
      const std::string name = "S" + std::to_string(below(12) == 0 ? 0 : number);
      const std::string due = fmt::format("2024-03-05 {:02}:{:02}", 6 + below(4), below(60));
      names.insert(name);
      Task task = sourced(name.c_str());
      if (below(2) == 0) {
        task.hourly(due.c_str());
      } else {
        task.minutes(due.c_str()).option("setmins", 45);
      }
      if (below(8) == 0) task.off();
      if (below(4) == 0) absent.insert(name);
      sets.push_back(task);
    }
    home.write(ScheduleDocuments::kFirst, sets);
    const auto starved = starvedSets(home, absent);
    const auto launched = simulatedLaunches(sets, home.context.clock->now(), absent, {});
    const Sets read(home.context);
    for (const SetEntry& set : read.all()) {
      const TaskRecord task(*set.record);
      const bool isDue = *task.nextDue() < home.context.clock->now();
      if (!isDue || !task.isScheduled() || absent.contains(set.name)) continue;
      if (names.count(set.name) > 1) continue;  // one may be backed up for another
      EXPECT_EQ(launched.contains(set.index), !starved.contains(set.index))
          << round << ": " << PropertyList(sets).description() << " " << set.index;
    }
  }
}

TEST(Check, CommandsCanBeTypedAsTheyStand) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const struct {
    const char* name;
    const char* command;
  } kCases[] = {
      {"Docs", "kvbackup edit Docs --weekly mon,thu 09:30"},
      {"-x it's", "kvbackup edit --weekly mon,thu 09:30 -- '-x it'\\''s'"},
      {"a\u202e", ""},  // nobody can type this
  };
  for (const auto& one : kCases) {
    Home home;
    home.write(ScheduleDocuments::kFirst, {sourced(one.name).weekly("09:30")});
    home.problems();
    ASSERT_EQ(home.found.size(), 1u);
    EXPECT_EQ(home.found[0].command, one.command);
  }
}

}  // namespace
}  // namespace kv::kvctl
