#include "scheduler/NextRun.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "scheduler/Rules.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

constexpr const char* kNever = "never";

std::string shown(std::optional<Date> date) {
  if (!date) return kNever;
  return *DateFormatter("yyyy-MM-dd HH:mm:ss", DateLocale::fromName("C")).string(*date);
}

std::string shownNextDue(const PropertyList& entry, Date now, const char* locale = "en_US") {
  return shown(nextDue(entry, now, DatePatterns(DateLocale::fromName(locale))));
}

struct NextCase {
  const char* why;
  PropertyList entry;
  const char* now;
  const char* next;
  const char* locale = "en_US";
};

TEST(NextRun, IsWhenTheRulesWillSaySo) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const Task daily = Task("D").daily("09:30").lastRun(4);
  const Task often = Task("M").minutes("2024-03-05 10:00");
  const NextCase cases[] = {
      {"later today", daily, "2024-03-05 09:29:58", "2024-03-05 09:30:00"},
      {"due since this morning", daily, "2024-03-05 22:00:01", "2024-03-05 22:00:01"},
      {"ran today", Task(daily).lastRun(5), "2024-03-05 10:00", "2024-03-06 09:30:00"},
      {"ran on this day of last month", Task(daily).lastRun(5), "2024-04-05 00:00",
       "2024-04-06 09:30:00"},
      {"tomorrow bears the stored number", Task(daily).lastRun(6), "2024-03-05 09:00",
       "2024-03-05 09:30:00"},
      {"once a day", Task(daily).lastRun(5).onceADay(), "2024-03-05 10:00", "2024-03-06 00:00:00"},
      {"no time of day", Task(daily).lastRun(5).without("datePick"), "2024-03-05 10:00",
       "2024-03-06 00:00:00"},
      {"next year", Task(daily).lastRun(31), "2023-12-31 09:31", "2024-01-01 09:30:00"},
      // 2024-03-05 is a Tuesday.
      {"weekly", Task("W").weekly("09:30").on(2).lastRun(4), "2024-03-05 10:00",
       "2024-03-11 09:30:00"},
      {"weekly, the other day first", Task("W").weekly("09:30").on(2).on(7).lastRun(4),
       "2024-03-05 10:00", "2024-03-09 09:30:00"},
      {"weekly, skipped by number", Task("W").weekly("09:30").on(2).lastRun(6), "2023-02-28 10:00",
       "2023-03-13 09:30:00"},
      {"no weekday", Task("W").weekly("09:30"), "2024-03-05 10:00", kNever},
      {"Tuesday where weeks start on Sunday", Task("W").weekly("09:30").on(3).lastRun(5),
       "2024-03-05 10:00", "2024-03-12 09:30:00"},
      {"Tuesday where weeks start on Monday", Task("W").weekly("09:30").on(3).lastRun(5),
       "2024-03-05 10:00", kNever, "de_DE"},
      {"interval", often, "2024-03-05 09:00", "2024-03-05 10:00:00"},
      {"interval, overdue", often, "2024-03-05 10:30", "2024-03-05 10:30:00"},
      {"interval, held by runState alone", Task(often).option("runState", false),
       "2024-03-05 09:00", "2024-03-05 10:00:00"},
      {"interval without a date", Task(often).without("minhourdate"), "2024-03-05 09:00", kNever},
      {"interval, off", Task(often).off(), "2024-03-05 09:00", kNever},
      {"off", Task(daily).off(), "2024-03-05 10:00", kNever},
      {"held", Task(daily).option("runState", 0), "2024-03-05 10:00", kNever},
      {"no runState", Task(daily).without("runState"), "2024-03-05 09:00", "2024-03-05 09:30:00"},
      {"unknown type", Task(daily).option("dayWeekOrHour", 4), "2024-03-05 10:00", kNever},
      {"no record", "text", "2024-03-05 10:00", kNever},
      // The clocks of Berlin go from 02:00 to 03:00 on 31 March and from 03:00 to 02:00 on
      // 27 October.
      {"a time that is skipped", Task("D").daily("02:30").lastRun(30), "2024-03-30 03:00",
       "2024-03-31 03:00:00"},
      {"after the change", daily, "2024-03-30 10:00", "2024-03-30 10:00:00"},
      {"across the change", Task(daily).lastRun(30), "2024-03-30 10:00", "2024-03-31 09:30:00"},
      {"across the change back", Task(daily).lastRun(26), "2024-10-26 10:00",
       "2024-10-27 09:30:00"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(shownNextDue(c.entry, localDate(c.now), c.locale), c.next) << c.why;
  }
}

TEST(NextRun, BeginsADayWithoutMidnightLater) {
  const ScopedEnvironment zone("TZ", "CST5CDT,M3.2.0/0,M11.1.0/1");
  const PropertyList entry = Task("D").daily("00:00").lastRun(9);
  for (const char* now : {"2024-03-09 00:00", "2024-03-09 12:00"}) {
    EXPECT_EQ(shownNextDue(entry, localDate(now)), "2024-03-10 01:00:00") << now;
  }
}

TEST(NextRun, KnowsWhoTakesPart) {
  const Task daily = Task("D").daily("09:30"), often = Task("M").minutes("2024-03-05 10:00");
  const std::pair<PropertyList, bool> cases[] = {
      {daily, true},
      {Task(daily).without("runState"), true},
      {Task(daily).option("runState", 0), false},
      {Task(daily).off(), false},
      {Task("W").weekly("09:30"), true},  // though no day is selected
      {Task(often).option("runState", 0), true},
      {Task(often).off(), false},
      {Task(daily).option("dayWeekOrHour", 4), false},
      {"text", false},
  };
  for (const auto& [entry, takesPart] : cases) {
    EXPECT_EQ(isTakingPart(entry), takesPart) << entry.description();
  }
}

/// Random sets around changes of the clocks, against asking the rules every ten minutes.
TEST(NextRun, AgreesWithAskingAllTheTime) {
  const char* const zones[] = {
      kBerlin,
      "CST5CDT,M3.2.0/0,M11.1.0/1",            // midnight is skipped, and comes twice
      "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",  // half an hour
      "AAA0BBB,M3.5.0/0:30,M10.5.0/0:30",      // at half past midnight, back to yesterday
      "AAA-12BBB12,M3.5.0/12,M10.5.0/12",      // a day that comes twice, and one that does not
  };
  const char* const changes[] = {"2024-03-10", "2024-03-31", "2024-04-07",
                                 "2024-10-06", "2024-10-27", "2024-11-03"};
  const char* const times[] = {"00:00", "00:20", "01:30", "02:10", "02:50", "12:00", "23:40"};
  constexpr double kStepsPerDay = 144;
  const DatePatterns patterns(DateLocale::fromName("en_US"));
  RecordingTrace trace;
  const auto seed = std::random_device{}();
  std::mt19937 random(seed);
  const auto pick = [&random](const auto& all) { return all[random() % std::size(all)]; };
  for (int round = 0; round < 300; ++round) {
    const char* const zoneName = pick(zones);
    const char* const change = pick(changes);
    ScopedEnvironment zone("TZ", "UTC0");  // where each of the dates has a noon
    const Date now = localDate(std::string(change) + " 12:00") +
                     Seconds(-600.0 * static_cast<double>(random() % 200));
    zone.set(zoneName);
    const char* const time = pick(times);
    Task task("Docs");
    task.option("datePick", localDate(std::string("2019-01-15 ") + time));
    task.option("dayWeekOrHour", static_cast<int>(random() % 2));
    for (int day = 1; day <= 7; ++day) {
      if (random() % 2 == 0) task.on(day);
    }
    if (random() % 4 == 0) task.onceADay();
    task.lastRun(std::stoi(std::string(change).substr(8)) + static_cast<int>(random() % 3) - 1);
    const PropertyList entry(task);
    std::optional<Date> expected;
    for (int step = 0; step < 22 * kStepsPerDay && !expected; ++step) {
      LocalMoment moment(now + Seconds(600.0 * step), patterns);
      if (judgeByType(TaskRecord(entry), moment, trace)) expected = moment.now();
    }
    trace.lines.clear();
    EXPECT_EQ(shown(nextDue(entry, now, patterns)), shown(expected))
        << "seed " << seed << " " << zoneName << " from " << shown(now) << entry.description();
  }
}

}  // namespace
}  // namespace kv::test
