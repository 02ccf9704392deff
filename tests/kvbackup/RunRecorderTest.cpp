#include <gmock/gmock.h>

#include <limits>

#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/RunRecorder.h"

namespace kv::test {
namespace {

PropertyList recorded(const PropertyList& task, const char* start, const char* end) {
  PropertyList::Dictionary record = *task.as<PropertyList::Dictionary>();
  recordRun(record, localDate(start), localDate(end));
  return record;
}

const PropertyList* option(const PropertyList& record, const char* key) {
  const auto* options = record.as<PropertyList::Dictionary>()->find("schopts");
  return options->as<PropertyList::Dictionary>()->find(key);
}

struct GridCase {
  const char* why;
  PropertyList task;
  const char* end;
  const char* next;
};

TEST(RunRecorder, MovesAnIntervalSetOnAlongItsGrid) {
  const ScopedEnvironment zone("TZ", kBerlin);
  const char* const start = "2024-03-05 10:00:30";
  const auto minutes = [](const char* due, PropertyList interval) {
    return Task("Docs").minutes(due).option("setmins", std::move(interval));
  };
  const auto hours = [](const char* due, PropertyList interval) {
    return Task("Docs").hourly(due).option("sethours", std::move(interval));
  };
  const GridCase cases[] = {
      {"one step", minutes("2024-03-05 10:00", 15), "2024-03-05 10:01", "2024-03-05 10:15"},
      {"a long run skips what it missed", minutes("2024-03-05 10:00", 15), "2024-03-05 10:50:01",
       "2024-03-05 11:00"},
      {"a moment reached now is over", minutes("2024-03-05 10:00", 15), "2024-03-05 10:30",
       "2024-03-05 10:45"},
      {"odd seconds stay", minutes("2024-03-05 09:59:17", 1), "2024-03-05 10:05:20",
       "2024-03-05 10:06:17"},
      {"hours", hours("2024-03-05 07:10", 2), "2024-03-05 10:01", "2024-03-05 11:10"},
      {"hours of real time, not of the clock", hours("2024-03-31 01:00", 2), "2024-03-31 01:30",
       "2024-03-31 04:00"},
      {"an interval kept as text", hours("2024-03-05 07:10", "2"), "2024-03-05 10:01",
       "2024-03-05 11:10"},
      {"a run by hand puts nothing off", minutes("2024-03-05 12:00", 15), "2024-03-05 10:01",
       "2024-03-05 12:00"},
      {"years behind, minutes to step", minutes("1970-01-01 00:00", 1), "2024-03-05 10:01:59",
       "2024-03-05 10:02"},
      {"no interval is an hour", minutes("2024-03-05 10:00", 0), "2024-03-05 10:01",
       "2024-03-05 11:00"},
      {"a senseless interval is an hour", hours("2024-03-05 10:00", "x"), "2024-03-05 10:01",
       "2024-03-05 11:00"},
      {"more than a year is a year", hours("2024-03-05 10:00", std::int64_t{1} << 62),
       "2024-03-05 10:01", "2025-03-06 10:00"},
      {"no date: from the start of the run",
       Task("Docs").minutes("2024-03-05 10:00").without("minhourdate"), "2024-03-05 10:01",
       "2024-03-05 10:15"},
      {"text is no date", minutes("2024-03-05 10:00", 15).option("minhourdate", "today"),
       "2024-03-05 10:01", "2024-03-05 10:15"},
      {"a date without end is none",
       minutes("2024-03-05 10:00", 15)
           .option("minhourdate", Date{Seconds(std::numeric_limits<double>::infinity())}),
       "2024-03-05 10:01", "2024-03-05 10:15"},
      {"a date beyond all calendars is none",
       minutes("2024-03-05 10:00", 15).option("minhourdate", Date{Seconds(-1e300)}),
       "2024-03-05 10:01", "2024-03-05 10:15"},
  };
  for (const GridCase& test : cases) {
    const PropertyList record = recorded(test.task, start, test.end);
    EXPECT_EQ(*option(record, "minhourdate"), PropertyList(localDate(test.next))) << test.why;
    EXPECT_EQ(*option(record, "dayOfMonth"), PropertyList("5")) << test.why;
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
  const PropertyList daily =
      recorded(Task("Docs").daily("09:30"), "2024-03-05 09:30", "2024-03-05 09:31");
  EXPECT_EQ(option(daily, "minhourdate"), nullptr);
}

TEST(RunRecorder, DestroysNothingThatStandsForTheOptions) {
  PropertyList::Dictionary record{{"backupset", "Docs"}, {"schopts", "mine"}};
  EXPECT_THROW(recordRun(record, Date(), Date()), Refusal);
  EXPECT_EQ(*record.find("schopts"), PropertyList("mine"));
}

}  // namespace
}  // namespace kv::test
