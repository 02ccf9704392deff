#include <fmt/format.h>
#include <gmock/gmock.h>

#include "platform/LocalTime.h"
#include "tests/support/World.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/DocumentStore.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/RunRecorder.h"
#include "tools/kvbackup/Schedule.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct RequestCase {
  ScheduleRequest request;
  /// How `list` shows the set; empty when the request makes no sense.
  const char* shown;
};

const RequestCase kRequests[] = {
    {{.daily = "09:30"}, "daily 09:30"},
    {{.daily = "9:05", .onceADay = true}, "once a day"},
    {{.onceADay = true}, "once a day"},
    {{.weekly = {"Mon,thursday", "18:00"}}, "mon,thu 18:00"},
    {{.weekly = {"sat", "00:00"}, .onceADay = true}, "sat once a day"},
    {{.every = "15m"}, "every 15 min, next 2024-03-05 10:00"},
    {{.every = "2h"}, "every 2 h, next 2024-03-05 10:00"},
    {{.daily = "24:00"}, ""},
    {{.daily = "9:5"}, ""},
    {{.daily = "-9:30"}, ""},
    {{.daily = "09:30 "}, ""},
    {{.weekly = {"mon,", "18:00"}}, ""},
    {{.weekly = {"someday", "18:00"}}, ""},
    {{.weekly = {"mon", "18:00", "tue", "18:00"}}, ""},
    {{.every = ""}, ""},
    {{.every = "h"}, ""},
    {{.every = "0m"}, ""},
    {{.every = "-5m"}, ""},
    {{.every = "15"}, ""},
    {{.every = "99999999999999999999h"}, ""},
    {{.every = "9000h"}, ""},
    {{.every = "15m", .onceADay = true}, ""},
    {{.daily = "09:30", .every = "15m"}, ""},
};

TEST(Schedule, IsReadFromTheOptionsAndShownAgain) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const Date now = localDate("2024-03-05 10:00:42");
  for (const RequestCase& test : kRequests) {
    std::string shown;
    try {
      const auto schedule = Schedule::from(test.request);
      const PropertyList record = BackupSet::fresh("Docs", {"/a"}, "/b", schedule.value(), now);
      shown = BackupSet(record).scheduleText();
    } catch (const Refusal& refusal) {
      EXPECT_EQ(refusal.status(), ExitStatus::kUsage) << test.shown;
    }
    EXPECT_EQ(shown, test.shown);
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

struct LifeCase {
  const char* why;
  ScheduleRequest request;
  /// When the agent starts the set, if it looks every 20 minutes and each run takes ten.
  std::vector<std::string> starts;
};

// The set is added on Tuesday the 5th at 10:05.
const LifeCase kLives[] = {
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
  for (const LifeCase& test : kLives) {
    EXPECT_EQ(startsWithinTwoDays(test.request), test.starts) << test.why;
  }
}

}  // namespace
}  // namespace kv::test
