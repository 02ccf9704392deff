#include <fmt/format.h>
#include <gmock/gmock.h>

#include <limits>

#include "platform/LocalTime.h"
#include "tests/support/World.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/DocumentStore.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/RunRecorder.h"
#include "tools/kvbackup/Schedule.h"

namespace kv::test {
namespace {

PropertyList recorded(const PropertyList& task, const std::string& start, const std::string& end) {
  PropertyList::Dictionary record = *task.as<PropertyList::Dictionary>();
  recordRun(record, localDate(start), localDate(end));
  return record;
}

const PropertyList* option(const PropertyList& record, const char* key) {
  const auto* options = record.as<PropertyList::Dictionary>()->find("schopts");
  return options->as<PropertyList::Dictionary>()->find(key);
}

/// What is asked for and how `list` shows the set; empty when the request makes no sense.
const std::pair<ScheduleRequest, const char*> kRequests[] = {
    {{.daily = "09:30"}, "daily 09:30"},
    {{.daily = "9:05", .onceADay = true}, "once a day"},
    {{.weekly = {"Mon,thursday", "18:00"}}, "mon,thu 18:00"},
    {{.weekly = {"sat", "00:00"}, .onceADay = true}, "sat once a day"},
    {{.every = "15m"}, "every 15 min, due 2024-03-05 10:00"},
    {{.every = "2h"}, "every 2 h, due 2024-03-05 10:00"},
    {{.daily = "24:00"}, ""},
    {{.weekly = {"mon,", "18:00"}}, ""},
    {{.every = "0m"}, ""},
    {{.every = "99999999999999999999h"}, ""},
    {{.every = "15m", .onceADay = true}, ""},
    {{.daily = "09:30", .every = "15m"}, ""},
};

TEST(Schedule, IsReadFromTheOptionsAndShownAgain) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const Date now = localDate("2024-03-05 10:00:42");
  for (const auto& [request, expected] : kRequests) {
    std::string shown;
    try {
      const auto schedule = Schedule::from(request);
      const PropertyList record = BackupSet::fresh("Docs", {"/a"}, "/b", schedule.value(), now);
      shown = BackupSet(record).scheduleText();
    } catch (const Refusal& refusal) {
      EXPECT_EQ(refusal.status(), ExitStatus::kUsage) << expected;
    }
    EXPECT_EQ(shown, expected);
  }
}

TEST(Schedule, KeepsItsTimeOfDayWhenClocksSkipItToday) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const auto schedule = Schedule::from({.daily = "02:30"});
  for (const char* now : {"2024-03-30 23:59", "2024-03-31 00:10", "2024-10-27 12:00"}) {
    PropertyList::Dictionary options;
    schedule->writeTo(options, localDate(now));
    const auto* date = options.find("datePick")->as<Date>();
    ASSERT_NE(date, nullptr);
    EXPECT_EQ(localTimeOfDay(*date), "02:30:00") << now;
  }
}

/// What it is about, a set that is added on Tuesday the 5th at 10:05, and when the agent starts it
/// if it looks every 20 minutes and each run takes ten.
const std::tuple<const char*, ScheduleRequest, std::vector<std::string>> kLives[] = {
    {"a time still to come", {.daily = "11:00"}, {"05 11:00", "06 11:00"}},
    {"a time that is past counts today", {.daily = "09:30"}, {"05 10:20", "06 09:40"}},
    {"near midnight the day of the start counts", {.daily = "23:55"}, {"05 23:55", "06 23:55"}},
    {"once a day", {.onceADay = true}, {"05 10:20", "06 00:00"}},
    {"other weekdays only", {.weekly = {"wed,fri", "10:00"}}, {"06 10:00"}},
    {"an interval is due at once and keeps its grid",
     {.every = "9h"},
     {"05 10:20", "05 19:20", "06 04:20", "06 13:20", "06 22:20"}},
};

std::vector<std::string> startsWithinTwoDays(const ScheduleRequest& request) {
  World world;
  DocumentStore store(*world.files, world.home.path().string());
  const auto schedule = Schedule::from(request);
  store.add("Docs", BackupSet::fresh("Docs", {"/a"}, "/b", schedule.value(),
                                     localDate("2024-03-05 10:05")));
  KVTimer& timer = world.start(false);
  std::vector<std::string> starts;
  // A tick at each whole 20 minutes, and one more for the set that is due shortly before midnight.
  for (const char* day : {"05", "06"}) {
    for (int minute = std::string(day) == "05" ? 620 : 0; minute < 1440; minute += 5) {
      if (minute % 20 != 0 && minute != 1435) continue;
      const std::string time = fmt::format("{} {:02}:{:02}", day, minute / 60, minute % 60);
      world.clock->present = localDate("2024-03-" + time);
      timer.ScheduleTimer();
      if (world.host->launched.empty()) continue;
      world.host->launched.clear();
      starts.push_back(time);
      store.edit("Docs", [&](PropertyList::Dictionary& record) {
        recordRun(record, world.clock->present, world.clock->present + Seconds(600));
      });
    }
  }
  return starts;
}

TEST(Schedule, HasTheAgentStartASetWhenAUserExpectsIt) {
  for (const auto& [why, request, starts] : kLives) {
    EXPECT_EQ(startsWithinTwoDays(request), starts) << why;
  }
}

TEST(BackupSet, HoldsAnIntervalSetWithoutHoldingUpThoseBehindIt) {
  World world;
  PropertyList held(Task("Held").hourly("2024-03-01 10:00"));
  const Task behind = Task("Behind").hourly("2024-03-05 09:00");
  auto& record = *held.as<PropertyList::Dictionary>();
  BackupSet::hold(record);
  EXPECT_EQ(BackupSet(held).stateText(), "held");
  EXPECT_EQ(option(recorded(held, "2024-03-05 10:00", "2024-03-05 10:01"), "minhourdate"), nullptr)
      << "a run by hand ends no hold";
  world.setFirst(PropertyList::Array{held, behind});
  world.start(false);
  world.tickAt("2024-03-05 10:00");
  BackupSet::release(record, localDate("2024-03-05 10:05:30"));
  world.setFirst(PropertyList::Array{held});
  world.tickAt("2024-03-05 10:06");
  EXPECT_THAT(world.host->launched, testing::ElementsAre("Behind", "Held"));
}

TEST(RunRecorder, MovesAnIntervalSetOnAlongItsGrid) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const auto minutes = [](const char* due, PropertyList interval) {
    return Task("Docs").minutes(due).option("setmins", std::move(interval));
  };
  const auto hours = [](const char* due, PropertyList interval) {
    return Task("Docs").hourly(due).option("sethours", std::move(interval));
  };
  const Task atTen = Task("Docs").minutes("2024-03-05 10:00");
  const Date endless{Seconds(std::numeric_limits<double>::infinity())};
  // What it is about, the set, when a run of 10:00:30 ends, and the next date.
  const std::tuple<const char*, PropertyList, const char*, const char*> cases[] = {
      {"one step", atTen, "10:01", "10:15"},
      {"a long run skips what it missed", atTen, "10:50:01", "11:00"},
      {"odd seconds stay", minutes("2024-03-05 09:59:17", 1), "10:05:20", "10:06:17"},
      {"hours", hours("2024-03-05 07:10", "2"), "10:01", "11:10"},
      {"a run by hand puts nothing off", hours("2024-03-05 12:00", 2), "10:01", "12:00"},
      {"years behind, minutes to step", minutes("1970-01-01 00:00", 1), "10:01:59", "10:02"},
      {"a senseless interval is an hour", hours("2024-03-05 10:00", "x"), "10:01", "11:00"},
      {"no date: from the start of the run", Task(atTen).without("minhourdate"), "10:01", "10:15"},
      {"no real date", Task(atTen).option("minhourdate", endless), "10:01", "10:15"},
  };
  const std::string day = "2024-03-05 ";
  for (const auto& [why, task, end, next] : cases) {
    const PropertyList record = recorded(task, "2024-03-05 10:00:30", day + end);
    EXPECT_EQ(*option(record, "minhourdate"), PropertyList(localDate(day + next))) << why;
  }
}

TEST(RunRecorder, WritesTheDayOfTheStartInTheTypeThatIsThere) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const auto day = [](const PropertyList& task) {
    return *option(recorded(task, "2024-03-05 23:59:50", "2024-03-06 00:20"), "dayOfMonth");
  };
  EXPECT_EQ(day(Task("Docs").daily("09:30").lastRun("4")), PropertyList("5"));
  EXPECT_EQ(day(Task("Docs").daily("09:30").lastRun(4)), PropertyList(5));
  EXPECT_EQ(day(Task("Docs").daily("09:30")), PropertyList("5"));
}

}  // namespace
}  // namespace kv::test
