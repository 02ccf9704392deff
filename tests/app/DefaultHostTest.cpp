#include <gmock/gmock.h>

#include "tests/app/HostWorld.h"

namespace kv::test {
namespace {

using testing::HasSubstr;

const std::string kStartA = "/p/kvbackup Qm3x7P A";
const std::string kStartB = "/p/kvbackup Qm3x7P B";

Task dueDaily(const char* set) {
  return Task(set).daily("00:00").lastRun("4");
}

TEST(DefaultHost, StartsOneSetAfterTheOther) {
  ScopedEnvironment zone("TZ", "UTC0");
  HostWorld world({dueDaily("A"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), kStartA);
  // Not to be seen yet, then running.
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:30"), "");
  EXPECT_EQ(world.tickAt("2024-03-05 09:02:00", "fake.processes = ['kvbackup Qm3x7P A']"), "");
  // Ended so shortly before the tick that its documents may not know of it.
  world.writeDocument({dueDaily("A"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:03:00",
                         "fake.processes = []; ran('A', 'ok', " + world.at("09:02:57") + ")"),
            "");
  world.writeDocument({dueDaily("A").lastRun("5"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:04:00", "fake.processes = ['kvbackup list --json']"),
            kStartB);
  EXPECT_THAT(world.events(), HasSubstr(" > A: backup done\n"));
  // A run that somebody else began counts too.
  EXPECT_EQ(world.tickAt("2024-03-05 09:05:00", "fake.processes = ['kvbackup run A']"), "");
}

TEST(DefaultHost, LetsASetRestAfterFailedRuns) {
  struct {
    int failures;
    const char* stillResting;  ///< the last failure ended at 10:00:00
    const char* rested;
  } const kCases[] = {{1, "10:04:59", "10:05:01"}, {2, "10:09:59", "10:10:01"},
                      {3, "10:19:59", "10:20:01"}, {6, "12:39:59", "12:40:01"},
                      {7, "13:59:59", "14:00:01"}, {20, "13:59:59", "14:00:01"}};
  ScopedEnvironment zone("TZ", "UTC0");
  for (const auto& c : kCases) {
    HostWorld world({dueDaily("A")});
    world.value("ran('A', 'failed', " + world.at("07:00:00") + ")");
    world.value("ran('A', 'ok', " + world.at("08:00:00") + ")");
    for (int i = 0; i < c.failures; ++i) {
      world.value("ran('A', 'interrupted', " + world.at("10:00:00") + ")");
    }
    world.value("fake.history.push('{\"set\": \"A\", cut short')");
    const std::string day = "2024-03-05 ";
    EXPECT_EQ(world.tickAt(day + c.stillResting), "") << c.failures;
    EXPECT_EQ(world.tickAt(day + c.rested), kStartA) << c.failures;
  }
}

TEST(DefaultHost, HoldsNobodyElseUpWithARestingSet) {
  ScopedEnvironment zone("TZ", "UTC0");
  const auto overdue = [](const char* set, const char* due) {
    return Task(set).minutes(due).field("destinationPath", "/disk/Shared");
  };
  // The more overdue one stands first in the interval pass, and rests.
  HostWorld world({overdue("B", "2024-03-05 08:00"), overdue("A", "2024-03-05 07:00")},
                  "ran('A', 'failed', Date.UTC(2024, 2, 5, 9, 0, 30))");
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), kStartB);
  EXPECT_THAT(world.events(), HasSubstr("A: failed, next try at 09:05\n"));
}

TEST(DefaultHost, GivesUpOnAProgramThatNeverAppears) {
  ScopedEnvironment zone("TZ", "UTC0");
  HostWorld world({dueDaily("A"), dueDaily("Gone"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), kStartA);
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:57"), kStartB);  // A rests, Gone has no volume
  EXPECT_THAT(world.events(), HasSubstr("A: kvbackup did not start\n"));
}

TEST(DefaultHost, AsksKelvaraWhereItIsInstalled) {
  ScopedEnvironment zone("TZ", "UTC0");
  HostWorld world({dueDaily("A"), dueDaily("B")}, "fake.installed.push('/usr/bin/Kelvara+')");
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), "/usr/bin/Kelvara+ Qm3x7P A");
  // It stays open, so only the moved record tells that the run has ended.
  EXPECT_EQ(world.tickAt("2024-03-05 09:02:00", "fake.processes = ['Kelvara+']"), "");
  world.writeDocument({dueDaily("A").lastRun("5"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:03:00"), "/usr/bin/Kelvara+ 4R82T6 B");
}

TEST(DefaultHost, TracesFromTheStartWhenAsked) {
  ScopedEnvironment zone("TZ", "UTC0");
  HostWorld quiet({});
  quiet.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(readFile(quiet.home / "trace.txt"), "");
  HostWorld tracing({}, "fake.debug = '1'");
  tracing.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(readFile(tracing.home / "trace.txt"), "09:01:00 [Timer] sorted array count: 0\n");
}

}  // namespace
}  // namespace kv::test
