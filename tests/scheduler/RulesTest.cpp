#include "scheduler/Rules.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/support/RecordingTrace.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using Judge = std::optional<CallSite> (*)(const TaskRecord&, LocalMoment&, Trace&);

struct Judgement {
  std::optional<CallSite> site;
  std::vector<std::string> lines;
};

Judgement judge(Judge rule, const PropertyList& entry, const std::string& now,
                const char* locale = "en_US") {
  const DatePatterns patterns(DateLocale::fromName(locale));
  LocalMoment moment(localDate(now), patterns);
  RecordingTrace trace;
  const auto site = rule(TaskRecord(entry), moment, trace);
  return {site, trace.lines};
}

class Rules : public testing::Test {
 protected:
  ScopedEnvironment zone{"TZ", kBerlin};
};

struct DailyCase {
  const char* why;
  bool onceADay;
  const char* datePick;
  const char* storedDay;
  const char* now;
  bool due;
};

const DailyCase kDailyCases[] = {
    // why                          once   datePick storedDay now                 due
    {"a minute early", false, "09:30", "4", "2024-03-05 09:29", false},
    {"in its minute", false, "09:30", "4", "2024-03-05 09:30", true},
    {"until midnight", false, "09:30", "4", "2024-03-05 23:59", true},
    {"not after midnight", false, "09:30", "5", "2024-03-06 00:00", false},
    {"ran today", false, "09:30", "5", "2024-03-05 10:00", false},
    {"same day number last month", false, "09:30", "5", "2024-04-05 10:00", false},
    {"stored with a zero", false, "09:30", "05", "2024-03-05 10:00", false},
    {"leading zeros of the hour", false, "00:05", "4", "2024-03-05 00:04", false},
    {"midnight itself", false, "00:00", "4", "2024-03-05 00:00", true},
    {"never ran", false, "09:30", "x", "2024-03-05 09:30", true},
    {"picked in winter, now summer", false, "09:30", "4", "2024-07-05 09:29", false},
    {"once a day ignores the hour", true, "09:30", "4", "2024-03-05 00:01", true},
    {"once a day, ran today", true, "09:30", "5", "2024-03-05 23:00", false},
    {"leap day after the 28th", true, "09:30", "28", "2024-02-29 00:00", true},
};

TEST_F(Rules, JudgeDailyTasks) {
  for (const auto& c : kDailyCases) {
    Task task("Docs");
    task.daily(c.datePick).lastRun(c.storedDay);
    if (c.onceADay) task.onceADay();
    const auto expected = c.onceADay ? CallSite::kDailyOnceADay : CallSite::kDailyNormal;
    EXPECT_EQ(judge(judgeDaily, task, c.now).site, c.due ? std::optional(expected) : std::nullopt)
        << c.why;
  }
}

TEST_F(Rules, ReadAMissingOrWrongTimeOfDayAsMidnight) {
  for (const PropertyList& pick : {PropertyList(1), PropertyList("23:00"), PropertyList(true)}) {
    const auto judgement =
        judge(judgeDaily, Task("Docs").daily("09:30").option("datePick", pick).lastRun(4),
              "2024-03-05 00:00");
    EXPECT_EQ(judgement.site, CallSite::kDailyNormal) << pick.description();
    EXPECT_THAT(judgement.lines, Contains("stored  time = (null)"));
  }
}

TEST_F(Rules, TraceDailyDecisions) {
  EXPECT_THAT(judge(judgeDaily, Task("Docs").daily("09:30").lastRun(4), "2024-03-05 09:05").lines,
              ElementsAre("Daily normal", "today's time = 0905", "stored  time = 0930",
                          "today's day = 5", "stored  day = 4"));
  EXPECT_THAT(judge(judgeDaily, Task("Docs").daily("09:00").lastRun(4), "2024-03-05 09:05").lines,
              Contains("Time compare is a go >>> "));
  EXPECT_THAT(
      judge(judgeDaily, Task("Docs").daily("09:30").onceADay().lastRun("05"), "2024-03-05 09:05")
          .lines,
      ElementsAre("Daily = once-a-day", "today's day = 5", "stored  day = 5"));
  EXPECT_THAT(judge(judgeDaily, Task("Docs").daily("09:30").onceADay(), "2024-03-05 09:05").lines,
              ElementsAre("Daily = once-a-day", "today's day = 5", "stored  day = 0",
                          "Once-a-day proceeding"));
}

TEST_F(Rules, TraceWeeklyDecisions) {
  // 2024-03-05 is a Tuesday.
  auto lines =
      judge(judgeWeekly, Task("Docs").weekly("09:30").on(3).on(7).lastRun(4), "2024-03-05 09:30")
          .lines;
  EXPECT_THAT(lines,
              ElementsAre("  Weekly schedule", "dayNumberString= 1", "today = day# 3",
                          "weekdays list = 3, 7", "Weekday is selected", "today's time = 0930",
                          "stored  time = 0930", "today's day = 5", "stored  day = 4"));
  lines = judge(judgeWeekly, Task("Docs").weekly("09:30").on(3).onceADay().lastRun(4),
                "2024-03-05 00:00")
              .lines;
  EXPECT_THAT(lines, ElementsAre("  Weekly schedule", "dayNumberString= 1", "today = day# 3",
                                 "weekdays list = 3", "Weekday is selected", "Weekly = once-a-day",
                                 "stored day: 4", "now day = 5"));
  lines = judge(judgeWeekly, Task("Docs").weekly("09:30").on(3).onceADay().lastRun(5),
                "2024-03-05 00:00")
              .lines;
  EXPECT_THAT(lines, ElementsAre("  Weekly schedule", "dayNumberString= 1", "today = day# 3",
                                 "weekdays list = 3", "Weekday is selected"));
  lines = judge(judgeWeekly, Task("Docs").weekly("09:30"), "2024-03-05 09:30", "de_DE").lines;
  EXPECT_THAT(lines, ElementsAre("  Weekly schedule", "dayNumberString= 7", "today = day# 2",
                                 "weekdays list = "));
}

struct WeekStartCase {
  const char* locale;
  const char* sunday;
  std::vector<bool> runsOn;  // Sunday first
};

TEST_F(Rules, RunOnTheWeekdaysThatTheLocaleCanMatch) {
  const std::vector<bool> all(7, true);
  const WeekStartCase cases[] = {
      {"en_US", "1", all},
      {"C", "1", all},
      {"de_DE", "7", {true, true, false, true, true, true, true}},  // Tuesday is "12"
      // The week starts on Saturday: numbers are one ahead of what the list holds, and Saturday
      // itself is "1".
      {"ar_EG", "2", {false, false, false, false, false, false, false}},
  };
  for (const auto& c : cases) {
    for (int day = 1; day <= 7; ++day) {
      const std::string now = "2024-03-0" + std::to_string(2 + day) + " 12:00";  // 3rd: Sunday
      const auto judgement =
          judge(judgeWeekly, Task("Docs").weekly("09:30").on(day).lastRun(1), now, c.locale);
      EXPECT_EQ(judgement.site.has_value(), c.runsOn.at(static_cast<std::size_t>(day - 1)))
          << c.locale << " day" << day;
      EXPECT_THAT(judgement.lines, Contains("dayNumberString= " + std::string(c.sunday)));
    }
  }
}

}  // namespace
}  // namespace kv::test
