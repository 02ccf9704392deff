#include <fmt/format.h>
#include <gtest/gtest.h>

#include <initializer_list>

#include "platform/LocalTime.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/simulation/Simulation.h"

namespace kv::test {
namespace {

using Happening = std::function<void(Simulation&)>;
using Set = std::function<Task()>;  // made when the zone is set

Set daily(const char* time, int lastRun) {
  return [=] { return Task("Docs").daily(time).lastRun(lastRun); };
}
Set onceADay(int lastRun) {
  return [=] { return Task("Docs").daily("12:00").onceADay().lastRun(lastRun); };
}
/// Selected days by number: 1 is Sunday.
Set weekly(std::initializer_list<int> days, const char* time, int lastRun) {
  Task task("Docs");
  for (const int day : days) task.on(day);
  return [=] { return Task(task).weekly(time).lastRun(lastRun); };
}
Set every(int hours, const char* firstDue) {
  return [=] { return Task("Docs").hourly(firstDue).option("sethours", hours); };
}

Happening asleep(const char* from, const char* until) {
  return [=](Simulation& it) { it.sleep(localDate(from), localDate(until)); };
}
Happening clockSet(const char* moment, double minutes) {
  return [=](Simulation& it) { it.setClock(localDate(moment), Seconds(60 * minutes)); };
}
Happening flight(const char* moment, const char* zone) {
  return [=](Simulation& it) { it.at(localDate(moment), [=] { ::setenv("TZ", zone, 1); }); };
}
Happening both(const Happening& one, const Happening& other) {
  return [=](Simulation& it) { one(it), other(it); };
}

/// Shows each run as "03-05 09:30", behind it how far the clocks of the zone have gone forth (or
/// back) since the beginning.
struct Runs final : SimulationObserver {
  explicit Runs(Date begin) : offset(*localOffsetFromUtc(begin)) {}
  void runBegan(const SimulatedRun& run) override {
    const double changed = (*localOffsetFromUtc(run.startedAt) - offset).count() / 3600;
    shown += (shown.empty() ? "" : ", ") + localStamp(run.startedAt).substr(5);
    if (changed != 0) shown += fmt::format(" {:+}h", changed);
    sets += run.set + " ";
  }
  Seconds offset;
  std::string shown;
  std::string sets;
};

struct TimeCase {
  const char* why;
  const char* zone;
  Set set;
  const char* from;  ///< as a clock of that zone shows it that nobody sets; so is `to`
  const char* to;
  const char* runs;
  Happening happening = nullptr;
  const char* locale = "en_US";
  VirtualRunLoop::Sleep timersAsleep = VirtualRunLoop::Sleep::kStandsStill;
};

/// Twenty ticks to the second: the tick at which a run ends can begin the next one.
constexpr Seconds kRunLasts = 20 * KVTimer::kTickInterval;

void expectRuns(std::initializer_list<TimeCase> cases) {
  for (const TimeCase& one : cases) {
    const ScopedEnvironment zone("TZ", one.zone);
    const Date begin = localDate(one.from), end = localDate(one.to);
    const auto runs = std::make_shared<Runs>(begin);
    Simulation simulation({.sets = {one.set()},
                           .begin = begin,
                           .locale = DateLocale::fromName(one.locale),
                           .application = {.duration = kRunLasts},
                           .observer = runs,
                           .timersAsleep = one.timersAsleep});
    if (one.happening) one.happening(simulation);
    simulation.runUntil(end);
    EXPECT_EQ(runs->shown, one.runs) << one.zone << " from " << one.from << ": " << one.why;
  }
}

constexpr const char* kNewYork = "America/New_York";
constexpr const char* kStJohns = "America/St_Johns";
constexpr const char* kAuckland = "Pacific/Auckland";
constexpr const char* kHonolulu = "Pacific/Honolulu";

TEST(TimeCases, ATimeThatIsSkippedIsReachedWhenTheClocksHaveGoneForth) {
  expectRuns({
      {"02:00 to 03:00", kNewYork, daily("02:30", 8), "2024-03-09 00:00", "2024-03-12 00:00",
       "03-09 02:30, 03-10 03:00 +1h, 03-11 02:30 +1h"},
      {"weekly", kNewYork, weekly({1}, "02:30", 3), "2024-03-09 00:00", "2024-03-12 00:00",
       "03-10 03:00 +1h"},
      {"02:00 to 03:00", "Europe/Berlin", daily("02:30", 29), "2024-03-30 00:00",
       "2024-04-02 00:00", "03-30 02:30, 03-31 03:00 +1h, 04-01 02:30 +1h"},
      {"half an hour", "Australia/Lord_Howe", daily("02:15", 4), "2024-10-05 00:00",
       "2024-10-08 00:00", "10-05 02:15, 10-06 02:30 +0.5h, 10-07 02:15 +0.5h"},
      {"two hours", "Antarctica/Troll", daily("01:30", 30), "2024-03-30 12:00", "2024-04-01 12:00",
       "03-31 03:00 +2h, 04-01 01:30 +2h"},
      {"00:01 to 01:01", kStJohns, daily("00:30", 31), "2006-04-01 00:00", "2006-04-04 00:00",
       "04-01 00:30, 04-02 01:01 +1h, 04-03 00:30 +1h"},
      {"no midnight", "Africa/Cairo", daily("00:00", 25), "2024-04-25 12:00", "2024-04-27 12:00",
       "04-26 01:00 +1h, 04-27 00:00 +1h"},
      {"no midnight, once a day", "Asia/Beirut", onceADay(26), "2022-03-26 12:00",
       "2022-03-28 12:00", "03-27 01:00 +1h, 03-28 00:00 +1h"},
      {"no midnight, weekly", "America/Santiago", weekly({1}, "00:30", 4), "2022-09-10 12:00",
       "2022-09-12 00:00", "09-11 01:00 +1h"},
      {"the end of the fast", "Africa/Casablanca", daily("02:30", 12), "2024-04-13 00:00",
       "2024-04-16 00:00", "04-13 02:30, 04-14 03:00 +1h, 04-15 02:30 +1h"},
      {"the day ends at 23:30: its run is lost", "Asia/Pyongyang", daily("23:45", 3),
       "2018-05-04 12:00", "2018-05-06 12:00", "05-05 23:45 +0.5h"},
      {"hours are real hours", kNewYork, every(2, "2024-03-10 00:00"), "2024-03-10 00:00",
       "2024-03-10 06:30", "03-10 00:00, 03-10 03:00 +1h, 03-10 05:00 +1h"},
  });
}

TEST(TimeCases, ATimeThatComesTwiceBringsOneRun) {
  expectRuns({
      {"02:00 to 01:00", kNewYork, daily("01:30", 1), "2024-11-02 00:00", "2024-11-05 00:00",
       "11-02 01:30, 11-03 01:30, 11-04 01:30 -1h"},
      {"weekly", kNewYork, weekly({1}, "01:30", 27), "2024-11-02 00:00", "2024-11-05 00:00",
       "11-03 01:30"},
      {"the first of the two slept through", kNewYork, daily("01:30", 2), "2024-11-03 00:00",
       "2024-11-04 00:00", "11-03 01:30 -1h",
       [](Simulation& it) {
         const Date half = localDate("2024-11-03 00:30");
         it.sleep(half, half + Seconds(100 * 60));
       }},
      {"03:00 to 02:00", "Europe/Berlin", daily("02:30", 25), "2024-10-26 00:00",
       "2024-10-29 00:00", "10-26 02:30, 10-27 02:30, 10-28 02:30 -1h"},
      {"half an hour", "Australia/Lord_Howe", daily("01:45", 5), "2024-04-06 00:00",
       "2024-04-09 00:00", "04-06 01:45, 04-07 01:45, 04-08 01:45 -0.5h"},
      {"midnight twice on one day", "America/Havana", daily("00:00", 2), "2024-11-02 12:00",
       "2024-11-04 12:00", "11-03 00:00, 11-04 00:00 -1h"},
      {"the last hour of the day", "Africa/Cairo", daily("23:30", 30), "2024-10-31 12:00",
       "2024-11-02 00:00", "10-31 23:30, 11-01 23:30 -1h"},
      {"midnight is put off", "America/Santiago", onceADay(2), "2022-04-02 12:00",
       "2022-04-03 12:00", "04-03 00:00 -1h"},
      {"the beginning of the fast", "Africa/Casablanca", daily("02:30", 8), "2024-03-09 00:00",
       "2024-03-12 00:00", "03-09 02:30, 03-10 02:30, 03-11 02:30 -1h"},
      {"00:01 to 23:01 of the day before", kStJohns, daily("09:30", 27), "2006-10-28 00:00",
       "2006-10-30 00:00", "10-28 09:30, 10-29 09:30 -1h"},
      {"00:01 to 23:01 of the day before", kStJohns, daily("23:30", 27), "2006-10-28 00:00",
       "2006-10-30 00:00", "10-28 23:30, 10-29 23:30 -1h"},
      {"the minute after midnight counts as a day, and so does what follows", kStJohns,
       onceADay(27), "2006-10-28 00:00", "2006-10-30 00:00",
       "10-28 00:00, 10-29 00:00, 10-28 23:19 -1h, 10-29 00:00 -1h"},
      {"hours are real hours", kNewYork, every(1, "2024-11-03 00:00"), "2024-11-03 00:00",
       "2024-11-03 02:30", "11-03 00:00, 11-03 01:00, 11-03 01:00 -1h, 11-03 02:00 -1h"},
  });
}

TEST(TimeCases, DaysThatDoNotExistBringNoRun) {
  expectRuns({
      {"30 December", "Pacific/Apia", daily("09:30", 28), "2011-12-29 00:00", "2012-01-01 00:00",
       "12-29 09:30, 12-31 09:30 +24h"},
      {"30 December", "Pacific/Apia", onceADay(28), "2011-12-29 00:00", "2012-01-01 00:00",
       "12-29 00:00, 12-31 00:00 +24h"},
      {"there was no Friday", "Pacific/Apia", weekly({6}, "09:30", 16), "2011-12-23 00:00",
       "2012-01-07 00:00", "12-23 09:30, 01-06 09:30 +24h"},
      {"21 August", "Pacific/Kwajalein", daily("09:30", 19), "1993-08-20 00:00", "1993-08-24 00:00",
       "08-20 09:30, 08-22 09:30 +24h, 08-23 09:30 +24h"},
      {"29 February", "UTC", daily("09:30", 27), "2100-02-28 00:00", "2100-03-02 00:00",
       "02-28 09:30, 03-01 09:30"},
      {"29 February does", "UTC", daily("09:30", 27), "2000-02-28 00:00", "2000-03-02 00:00",
       "02-28 09:30, 02-29 09:30, 03-01 09:30"},
      {"29 February does", "UTC", weekly({5}, "09:30", 22), "2024-02-28 00:00", "2024-03-02 00:00",
       "02-29 09:30"},
      {"32 bits of seconds end", "UTC", daily("09:30", 17), "2038-01-18 00:00", "2038-01-21 00:00",
       "01-18 09:30, 01-19 09:30, 01-20 09:30"},
  });
}

/// "Ran today" is the number of the day and no more.
TEST(TimeCases, ADayOfTheSameNumberCountsAsTheSameDay) {
  expectRuns({
      {"off for a month", "UTC", daily("09:30", 4), "2024-03-05 00:00", "2024-04-07 00:00",
       "03-05 09:30, 04-06 09:30", asleep("2024-03-05 12:00", "2024-04-05 08:00")},
      {"off for a month and a day", "UTC", daily("09:30", 4), "2024-03-05 00:00",
       "2024-04-07 00:00", "03-05 09:30, 04-06 09:30",
       asleep("2024-03-05 12:00", "2024-04-06 08:00")},
      {"no 31st between", "UTC", daily("09:30", 30), "2023-01-31 00:00", "2023-04-02 00:00",
       "01-31 09:30, 04-01 09:30", asleep("2023-01-31 12:00", "2023-03-31 08:00")},
      {"off for a month, once a day", "UTC", onceADay(28), "2024-02-29 00:00", "2024-03-31 00:00",
       "02-29 00:00, 03-30 00:00", asleep("2024-02-29 12:00", "2024-03-29 08:00")},
      {"four weeks of February", "UTC", weekly({2}, "09:30", 30), "2023-02-06 00:00",
       "2023-03-14 00:00", "02-06 09:30, 03-13 09:30",
       asleep("2023-02-06 12:00", "2023-03-06 08:00")},
      {"four weeks of a longer February", "UTC", weekly({2}, "09:30", 29), "2024-02-05 00:00",
       "2024-03-05 00:00", "02-05 09:30, 03-04 09:30",
       asleep("2024-02-05 12:00", "2024-03-04 08:00")},
  });
}

TEST(TimeCases, WeekdaysFollowTheLocalesWeek) {
  const auto week = [](const char* locale, std::initializer_list<int> days,
                       const char* runs) {  // from Sunday to Saturday
    return TimeCase{
        locale,  "UTC", weekly(days, "09:30", 2), "2024-03-03 00:00", "2024-03-10 00:00", runs,
        nullptr, locale};
  };
  expectRuns({
      week("en_US", {3}, "03-05 09:30"),
      week("en_US", {1, 7}, "03-03 09:30, 03-09 09:30"),
      week("de_DE", {1, 2, 3, 4, 5, 6, 7},
           "03-03 09:30, 03-04 09:30, 03-06 09:30, 03-07 09:30, 03-08 09:30, 03-09 09:30"),
      week("de_DE", {3}, ""),
      week("ar_EG", {3}, "03-04 09:30"),
      week("ar_EG", {1}, "03-09 09:30"),
      week("dv_MV", {3}, "03-03 09:30"),
  });
  // Around the new year the year of the week is not that of the day.
  expectRuns({
      {"Monday and Wednesday", "UTC", weekly({2, 4}, "09:30", 25), "2024-12-29 00:00",
       "2025-01-07 00:00", "12-30 09:30, 01-01 09:30, 01-06 09:30", nullptr, "de_DE"},
      {"the Sunday of week 53", "UTC", weekly({1}, "09:30", 20), "2020-12-27 00:00",
       "2021-01-05 00:00", "12-27 09:30, 01-03 09:30", nullptr, "de_DE"},
      {"daily", "UTC", daily("09:30", 28), "2025-12-29 00:00", "2026-01-02 00:00",
       "12-29 09:30, 12-30 09:30, 12-31 09:30, 01-01 09:30", nullptr, "de_DE"},
  });
}

TEST(TimeCases, TheEdgesOfTheDayAndSleep) {
  constexpr const char* kFrom = "2024-03-05 00:00";  // a Tuesday
  constexpr const char* kTo = "2024-03-07 00:00";
  expectRuns({
      {"the first minute", "UTC", daily("00:00", 4), kFrom, kTo, "03-05 00:00, 03-06 00:00"},
      {"the last minute, recorded for the day before", "UTC", daily("23:59", 4), kFrom, kTo,
       "03-05 23:59, 03-06 23:59"},
      {"asleep in the last minute: that day is lost", "UTC", daily("23:59", 4), kFrom, kTo,
       "03-06 23:59", asleep("2024-03-05 23:58", "2024-03-06 00:05")},
      {"awake for its last seconds: the tick comes after them", "UTC", daily("23:59", 4), kFrom,
       kTo, "03-06 23:59", asleep("2024-03-05 12:00:07", "2024-03-05 23:59:50")},
      {"awake for its last seconds: the late tick comes within them", "UTC", daily("23:59", 4),
       kFrom, kTo, "03-05 23:59, 03-06 23:59", asleep("2024-03-05 12:00:07", "2024-03-05 23:59:50"),
       "en_US", VirtualRunLoop::Sleep::kCounts},
      {"wakes after the time", "UTC", daily("09:30", 4), kFrom, kTo, "03-05 11:00, 03-06 09:30",
       asleep("2024-03-05 09:00", "2024-03-05 11:00")},
      {"wakes on the next day, before the time", "UTC", daily("09:30", 4), kFrom, kTo,
       "03-06 09:30", asleep("2024-03-05 09:00", "2024-03-06 08:00")},
      {"wakes on the next day, after the time", "UTC", daily("09:30", 4), kFrom, kTo, "03-06 10:00",
       asleep("2024-03-05 09:00", "2024-03-06 10:00")},
      {"once a day: when it wakes", "UTC", onceADay(4), kFrom, "2024-03-06 22:00",
       "03-05 00:00, 03-06 08:00", asleep("2024-03-05 22:00", "2024-03-06 08:00")},
      {"its weekday slept through", "UTC", weekly({3}, "09:30", 27), "2024-03-04 12:00",
       "2024-03-13 00:00", "03-12 09:30", asleep("2024-03-04 23:00", "2024-03-06 07:00")},
      {"asleep while it runs, over midnight", "UTC", daily("23:50", 4), kFrom, kTo,
       "03-05 23:50, 03-06 23:50", asleep("2024-03-05 23:55", "2024-03-06 08:00")},
      {"hours slept through are not made up for", "UTC", every(2, "2024-03-05 10:00"), kFrom,
       "2024-03-05 17:00", "03-05 10:00, 03-05 15:00, 03-05 16:00",
       asleep("2024-03-05 11:00", "2024-03-05 15:00")},
  });
}

TEST(TimeCases, AClockThatIsSet) {
  constexpr const char* kFrom = "2024-03-05 00:00";
  constexpr const char* kTo = "2024-03-07 00:00";
  constexpr double kDay = 24 * 60;
  expectRuns({
      {"forth, past the time", "UTC", daily("09:30", 4), kFrom, kTo, "03-05 09:45, 03-06 09:30",
       clockSet("2024-03-05 09:00", 45)},
      {"back, before the time again", "UTC", daily("09:30", 4), kFrom, kTo,
       "03-05 09:30, 03-06 09:30", clockSet("2024-03-05 10:00", -45)},
      {"back while it runs", "UTC", daily("09:30", 4), kFrom, kTo, "03-05 09:30, 03-06 09:30",
       clockSet("2024-03-05 09:40", -20)},
      {"forth over midnight while it runs", "UTC", daily("23:50", 4), kFrom, kTo,
       "03-05 23:50, 03-06 23:50", clockSet("2024-03-05 23:55", 6)},
      {"back over midnight", "UTC", daily("09:30", 4), kFrom, kTo, "03-05 09:30, 03-06 09:30",
       clockSet("2024-03-06 00:30", -60)},
      {"back over midnight after a run: both days again", "UTC", onceADay(5), "2024-03-05 12:00",
       kTo, "03-06 00:00, 03-05 23:30, 03-06 00:00", clockSet("2024-03-06 00:30", -60)},
      {"forth by a day", "UTC", daily("09:30", 4), kFrom, "2024-03-06 12:00",
       "03-05 09:30, 03-06 12:00, 03-07 09:30", clockSet("2024-03-05 12:00", kDay)},
      {"back by a day", "UTC", daily("09:30", 4), kFrom, "2024-03-07 12:00",
       "03-05 09:30, 03-06 09:30, 03-05 12:00, 03-06 09:30", clockSet("2024-03-06 12:00", -kDay)},
      {"forth by a day and back", "UTC", daily("09:30", 4), kFrom, kTo,
       "03-05 09:30, 03-06 12:00, 03-05 12:30, 03-06 09:30",
       both(clockSet("2024-03-05 12:00", kDay), clockSet("2024-03-05 12:30", -kDay))},
      {"forth by a month", "UTC", daily("09:30", 4), kFrom, kTo, "03-05 09:30, 04-06 09:30",
       clockSet("2024-03-05 12:00", 31 * kDay)},
      {"back by a month", "UTC", daily("09:30", 4), kFrom, kTo, "03-05 09:30, 02-06 09:30",
       clockSet("2024-03-05 12:00", -29 * kDay)},
      {"a computer without a clock of its own asks for the time", "UTC", daily("09:30", 4),
       "1970-01-01 00:10", "1970-01-01 02:00", "03-05 09:30",
       [](Simulation& it) {
         const Date asked = localDate("1970-01-01 00:15");
         it.setClock(asked, localDate("2024-03-05 08:00") - asked);
       }},
      {"a leap second: the last of the day again", "UTC", daily("00:00", 31), "2016-12-31 23:59:03",
       "2017-01-01 12:00", "01-01 00:00", clockSet("2017-01-01 00:00", -1 / 60.0)},
      {"hours, forth by a day: one run at once", "UTC", every(2, "2024-03-05 10:00"), kFrom,
       "2024-03-05 15:00", "03-05 10:00, 03-05 12:00, 03-06 13:00, 03-06 14:00",
       clockSet("2024-03-05 13:00", kDay)},
      {"hours, back by a day: none until the clock is where it was", "UTC",
       every(2, "2024-03-05 10:00"), kFrom, "2024-03-06 14:30",
       "03-05 10:00, 03-05 12:00, 03-05 14:00", clockSet("2024-03-05 13:00", -kDay)},
      {"hours, back by a day while it runs: that run again", "UTC", every(2, "2024-03-05 10:00"),
       kFrom, "2024-03-06 12:30", "03-05 10:00, 03-05 12:00, 03-05 12:00",
       clockSet("2024-03-05 12:05", -kDay)},
  });
}

/// A time of day is stored as an instant, so it moves with the zone: 09:30 of Berlin is 03:30 of
/// New York.
TEST(TimeCases, AZoneThatChanges) {
  const Set chosenInSummer = [] {
    const Date picked = localDate("2019-07-15 09:30");
    return Task("Docs").daily("00:00").lastRun(29).option("datePick", picked);
  };
  expectRuns({
      {"not with the season, though", "Europe/Berlin", chosenInSummer, "2024-03-30 00:00",
       "2024-04-01 00:00", "03-30 09:30, 03-31 09:30 +1h"},
      {"west", "Europe/Berlin", daily("09:30", 4), "2024-03-05 00:00", "2024-03-07 00:00",
       "03-05 09:30, 03-06 03:30 -6h", flight("2024-03-05 12:00", kNewYork)},
      {"east over the date line: the same day again, which has had its run", kAuckland,
       daily("09:30", 4), "2024-03-05 00:00", "2024-03-07 22:00", "03-05 09:30, 03-06 10:30 -23h",
       flight("2024-03-06 01:00", kHonolulu)},
      {"east over the date line: to the day before, which has had none by number", kAuckland,
       daily("09:30", 4), "2024-03-05 00:00", "2024-03-06 14:00",
       "03-05 09:30, 03-04 15:00 -23h, 03-05 10:30 -23h", flight("2024-03-05 14:00", kHonolulu)},
      {"west over the date line: due on arrival", kHonolulu, daily("09:30", 5), "2024-03-06 00:00",
       "2024-03-07 00:00", "03-06 09:30, 03-07 19:00 +23h", flight("2024-03-06 20:00", kAuckland)},
      {"west over the date line, asleep: a day that never was", kHonolulu, daily("09:30", 5),
       "2024-03-06 00:00", "2024-03-07 12:00", "03-06 09:30, 03-08 08:30 +23h",
       both(asleep("2024-03-06 14:00", "2024-03-07 02:00"), flight("2024-03-06 20:00", kAuckland))},
      {"hours are real hours", kAuckland, every(6, "2024-03-05 00:00"), "2024-03-05 00:00",
       "2024-03-05 20:00", "03-05 00:00, 03-05 06:00, 03-05 12:00, 03-04 19:00 -23h",
       flight("2024-03-05 14:00", kHonolulu)},
  });
}

TEST(TimeCases, ARunOverMidnightTakesTheDayOfWhoIsDueMeanwhile) {
  const ScopedEnvironment zone("TZ", "UTC");
  const auto runs = std::make_shared<Runs>(localDate("2024-03-05 12:00"));
  Simulation simulation(
      {.sets = {Task("Late").daily("23:50").lastRun(4), Task("Later").daily("23:55").lastRun(4)},
       .begin = localDate("2024-03-05 12:00"),
       .locale = DateLocale::fromName("en_US"),
       .application = {.duration = kRunLasts},
       .observer = runs});
  simulation.at(localDate("2024-03-07 12:00"),
                [&] { simulation.application().behaviour.duration = Seconds(120); });
  simulation.runUntil(localDate("2024-03-08 00:00"));
  EXPECT_EQ(runs->sets, "Late Late Late Later ");
}

}  // namespace
}  // namespace kv::test
