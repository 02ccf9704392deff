#include <gmock/gmock.h>

#include <filesystem>

#include "tests/support/World.h"

namespace kv::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

const std::string kStars(65, '*');

TEST(Tick, WritesTheWholeRoadOfALaunch) {
  World world;
  world.setFirst(PropertyList::Array{Task("Docs").daily("09:30").lastRun("4"),
                                     Task("Held").daily("09:30").option("runState", 0)});
  world.setSecond(PropertyList::Array{Task("Often").minutes("2024-03-05 09:00"),
                                      Task("Seldom").hourly("2024-03-06 09:00")});
  world.start();
  const auto lines = world.tickAt("2024-03-05 09:31:07");
  EXPECT_THAT(
      lines,
      ElementsAre("plist list:Docs type:Daily 0930", "plist list:Often type:Minute 15",
                  "plist list:Seldom type:Hour ", "Checking ************** : Docs",
                  "runState == 1 : Docs", "YES it's a GO >> Docs",
                  "Task is on and now checking timestamp...", "Processing 0 task:Docs type:Daily",
                  "Daily normal", "today's time = 0931", "stored  time = 0930", "today's day = 5",
                  "stored  day = 4", "Time compare is a go >>> ", "post checkIfDiskExists  ",
                  "post checkIfDiskExists  ", "It is a volume",
                  "launch via proc -  Kelvara+ is not open ...", "Launching now set: Docs"));
  EXPECT_THAT(world.host->calls,
              ElementsAre("reload 4", "reload 4", "disk /disk/Docs 1", "disk /disk/Docs 1",
                          "running?", "open?", "backup Docs"));
  EXPECT_EQ(world.timer->indexNum(), "0");
  EXPECT_EQ(readFile(world.traceFile).substr(0, 44),
            "09:31:07 [Timer] plist list:Docs type:Daily ");
}

TEST(Tick, AsksForEveryDiskAndGoesOnAfterASkip) {
  World world;
  world.setFirst(PropertyList::Array{
      Task("Off").daily("00:00").off(), Task("Gone").daily("00:00"),
      Task("Odd").option("dayWeekOrHour", 7).without("runState"), Task("Weekly").weekly("00:00"),
      Task("Often").minutes("2024-03-05 09:00"), "no record", Task("Last").daily("00:00")});
  world.host->missing = {"/disk/Gone"};
  world.host->open = PropertyList(1);
  world.start();
  const auto lines = world.tickAt("2024-03-05 09:31");
  EXPECT_THAT(world.host->calls,
              ElementsAre("reload 7", "reload 7", "disk /disk/Off 1", "disk /disk/Gone 1",
                          "disk /disk/Gone 1", "disk /disk/Odd 1", "disk /disk/Weekly 1",
                          "disk /disk/Often 1", "disk nil 1", "disk /disk/Last 1",
                          "disk /disk/Last 1", "running?", "open?", "script Last"));
  EXPECT_THAT(lines,
              AllOf(Contains("NO go: Off"), Contains("No volume present for backup set Gone"),
                    Contains("Processing 2 task:Odd type:Daily?"), Contains("NO go: (null)"),
                    Not(Contains("plist list:Odd type:Daily? "))));
  EXPECT_EQ(lines.back(), "Launching now via applescript set: Last");
  EXPECT_EQ(world.timer->indexNum(), "6");
}

struct RunStateCase {
  std::optional<PropertyList> runState;
  std::vector<std::string> lines;
};

TEST(Tick, GatesByRunState) {
  const RunStateCase cases[] = {
      {std::nullopt, {"runState == 0 : D", "runState = nil : D", "YES it's a GO >> D"}},
      {PropertyList(1), {"runState == 1 : D", "YES it's a GO >> D"}},
      {PropertyList(true), {"runState == 1 : D", "YES it's a GO >> D"}},
      {PropertyList(0), {"runState == 0 : D", "NO go: D"}},
      {PropertyList("NO"), {"runState == 0 : D", "NO go: D"}},
      {PropertyList("YES"), {"runState == 0 : D", "YES it's a GO >> D"}},
      {PropertyList(2), {"YES it's a GO >> D"}},
      {PropertyList(PropertyList::Array{}), {"runState == 0 : D", "NO go: D"}},
  };
  for (const auto& [runState, expected] : cases) {
    World world;
    Task task("D");
    task.option("dayWeekOrHour", 2).without("runState");
    if (runState) task.option("runState", *runState);
    world.setFirst(PropertyList::Array{task});
    world.start();
    auto lines = world.tickAt("2024-03-05 09:31");
    const auto checking = std::find(lines.begin(), lines.end(), "Checking ************** : D") + 1;
    ASSERT_GE(lines.end() - checking, static_cast<std::ptrdiff_t>(expected.size()));
    EXPECT_THAT(std::vector(checking, checking + static_cast<std::ptrdiff_t>(expected.size())),
                ElementsAreArray(expected));
  }
}

TEST(Tick, SwitchesTracingInItsExactOrder) {
  World world;
  world.start(false);
  const auto item = std::make_shared<FakeMenuItem>(0);
  EXPECT_THAT(world.tickAt("2024-03-05 09:00:00"), IsEmpty());  // no item at all
  world.timer->dbugMenu = item;
  EXPECT_THAT(world.tickAt("2024-03-05 09:00:57"), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(world.traceFile));

  item->setState(1);
  EXPECT_THAT(world.tickAt("2024-03-05 10:00:00"), ElementsAre("sorted array count: 0"));
  EXPECT_THAT(world.tickAt("2024-03-05 10:00:57"),
              ElementsAre(kStars, "Timer fired: 2024/03/05 10:00:57", "Debug state = 1",
                          "debugStarted = YES", "debug time = 57.000000", "sorted array count: 0"));
  EXPECT_THAT(world.tickAt("2024-03-05 12:46:40"),  // 10000 s exactly: not yet
              Contains("debug time = 10000.000000"));
  EXPECT_THAT(world.tickAt("2024-03-05 12:46:41"),
              ElementsAre(kStars, "Timer fired: 2024/03/05 12:46:41", "Debug state = 1",
                          "debugStarted = YES", "debug time = 10001.000000",
                          "debug interval past > now cancelling"));
  EXPECT_EQ(item->state(), 0);
  EXPECT_EQ(world.timer->ndt(), localDate("2024-03-05 12:46:41"));
  EXPECT_THAT(world.tickAt("2024-03-05 12:47:38"), IsEmpty());

  item->setState(1);
  world.tickAt("2024-03-05 13:00:00");
  item->setState(0);
  EXPECT_THAT(world.tickAt("2024-03-05 13:00:57"),
              ElementsAre(kStars, "Timer fired: 2024/03/05 13:00:57", "Debug state = 0"));
}

TEST(Tick, ShowsTheWeekBasedYear) {
  World world("de_DE");
  world.start();
  world.tickAt("2024-12-30 11:00");
  EXPECT_THAT(world.tickAt("2024-12-30 12:00"), Contains("Timer fired: 2025/12/30 12:00:00"));
}

TEST(Tick, DecidesTheSameWithoutTracing) {
  World world;
  world.setFirst(PropertyList::Array{Task("Docs").daily("09:30").lastRun("4")});
  world.start(false);
  EXPECT_THAT(world.tickAt("2024-03-05 09:31"), IsEmpty());
  EXPECT_THAT(world.host->launched, ElementsAre("Docs"));
}

TEST(Tick, RereadsTheDocumentsAndFollowsTheZone) {
  World world;
  world.start();
  world.tickAt("2024-03-05 09:31");
  EXPECT_THAT(world.host->launched, IsEmpty());
  world.setSecond(PropertyList::Array{Task("New").daily("09:30").lastRun("4")});
  world.tickAt("2024-03-05 09:29");
  EXPECT_THAT(world.host->launched, IsEmpty());

  // The same instant in another zone: the picked time is 10:30 there, and so is now later.
  world.zone.set("EST5");
  const auto lines = world.tickAt("2024-03-05 03:29");
  EXPECT_THAT(lines, Contains("today's time = 0329"));
  EXPECT_THAT(lines, Contains("stored  time = 0330"));
  EXPECT_THAT(world.host->launched, IsEmpty());
}

TEST(Tick, FetchesTheHostAnewForEachOfItsOperations) {
  World world;
  world.setFirst(PropertyList::Array{Task("Docs").daily("00:00").lastRun("4")});
  world.start();
  EXPECT_EQ(world.hostsFetched, 1);
  const auto first = world.host;
  const auto second = std::make_shared<RecordingHost>();
  first->onReload = [&world, second] { world.host = second; };
  world.tickAt("2024-03-05 09:31");
  EXPECT_EQ(world.hostsFetched, 3);  // the tick, and the launch
  EXPECT_EQ(first->calls.back(), "open?");
  EXPECT_THAT(second->calls, ElementsAre("backup Docs"));
}

TEST(Tick, EndsEachDueTaskAtItsFirstCheckWithoutAHost) {
  World world;
  world.setFirst(PropertyList::Array{Task("Docs").daily("00:00").lastRun("4")});
  world.start();
  world.host = nullptr;
  EXPECT_THAT(world.tickAt("2024-03-05 09:31"), Contains("No volume present for backup set Docs"));
}

TEST(Tick, NeverOverlapsWithItself) {
  World world;
  world.setFirst(PropertyList::Array{Task("Docs").daily("00:00").lastRun("4")});
  world.start();
  world.host->onReload = [&world] { world.timer->ScheduleTimer(); };
  world.tickAt("2024-03-05 09:31");
  EXPECT_THAT(world.host->launched, ElementsAre("Docs"));
}

TEST(Tick, ShowsSetNamesOfAnyKind) {
  World world;
  world.setSecond(PropertyList::Array{
      Task("x").option("dayWeekOrHour", 3).option("setmins", 1.5).field("backupset", 7),
      Task("x").minutes("2024-03-06 10:00").without("setmins").withoutField("backupset"),
      Task("Ünïcode ☃").daily("09:30").without("datePick").lastRun("5")});
  world.start();
  EXPECT_THAT(world.tickAt("2024-03-05 09:31"),
              AllOf(Contains("plist list:7 type:Minute 1.5"),
                    Contains("plist list:(null) type:Minute (null)"),
                    Contains("plist list:Ünïcode ☃ type:Daily (null)")));
}

}  // namespace
}  // namespace kv::test
