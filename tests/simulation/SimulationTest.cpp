#include "tools/simulation/Simulation.h"

#include <gmock/gmock.h>

#include "scheduler/FieldReaders.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tools/kvbackup/LocalCalendar.h"

namespace kv::test {
namespace {

using testing::ElementsAre;

/// Keeps what happens, as "09:30 Docs" for runs and with seconds for ticks.
struct Recorder final : SimulationObserver {
  void tickBegan(Date now, const TaskList&) override { ticks.push_back(now); }
  void runBegan(const SimulatedRun& run) override {
    begun.push_back(localStamp(run.startedAt) + " " + run.set);
  }
  void runEnded(const SimulatedRun& run) override {
    ended.push_back(localStamp(run.endedAt) + (run.isRecorded ? " recorded" : " lost"));
  }
  std::vector<Date> ticks;
  std::vector<std::string> begun;
  std::vector<std::string> ended;
};

struct SimulationTest : testing::Test {
  Simulation::Plan plan(TaskList sets) {
    return {.sets = std::move(sets),
            .begin = localDate("2024-03-05 08:00"),
            .locale = DateLocale::fromName("en_US"),
            .observer = recorder};
  }
  /// When the ticks came, in seconds since the beginning.
  std::vector<int> tickSeconds() const {
    std::vector<int> seconds;
    for (const Date& tick : recorder->ticks) {
      seconds.push_back(static_cast<int>((tick - localDate("2024-03-05 08:00")).count()));
    }
    return seconds;
  }

  ScopedEnvironment zone{"TZ", kBerlin};
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
};

TEST_F(SimulationTest, TicksKeepTheirGridThroughSleepAndASetClock) {
  const Date begin = localDate("2024-03-05 08:00");
  const struct {
    const char* why;
    std::function<void(Simulation&)> happening;
    VirtualRunLoop::Sleep sleep;
    std::vector<int> ticks;  // of five minutes
  } kCases[] = {
      {"undisturbed", [](Simulation&) {}, VirtualRunLoop::Sleep::kCounts, {57, 114, 171, 228, 285}},
      {"late once, then the old grid",
       [&](Simulation& it) { it.sleep(begin + Seconds(100), begin + Seconds(200)); },
       VirtualRunLoop::Sleep::kCounts,
       {57, 200, 228, 285}},
      {"timers that stand still go on where they were",
       [&](Simulation& it) { it.sleep(begin + Seconds(100), begin + Seconds(200)); },
       VirtualRunLoop::Sleep::kStandsStill,
       {57, 214, 271}},
      {"the clock set back moves no tick",
       [&](Simulation& it) { it.setClock(begin + Seconds(60), Seconds(-1000)); },
       VirtualRunLoop::Sleep::kCounts,
       {57, -886, -829, -772, -715}},
      {"an event is seen by the tick of the same moment",
       [&](Simulation& it) { it.setClock(begin + Seconds(57), Seconds(3)); },
       VirtualRunLoop::Sleep::kCounts,
       {60, 117, 174, 231, 288}},
  };
  for (const auto& one : kCases) {
    recorder->ticks.clear();
    auto itsPlan = plan({});
    itsPlan.timersAsleep = one.sleep;
    Simulation simulation(std::move(itsPlan));
    one.happening(simulation);
    simulation.runUntil(begin + Seconds(300));
    EXPECT_EQ(tickSeconds(), one.ticks) << one.why;
  }
}

TEST_F(SimulationTest, ARunIsRecordedAtItsEndAndAsTheDayOnWhichItBegan) {
  auto itsPlan = plan({Task("Late").daily("23:50").lastRun("5"), Task("Early").daily("08:00")});
  itsPlan.application.duration = Seconds(3600);
  Simulation simulation(std::move(itsPlan));
  const auto before = simulation.application().sets();
  simulation.runUntil(localDate("2024-03-07 01:00"));
  EXPECT_THAT(recorder->begun, ElementsAre("2024-03-05 08:00 Early", "2024-03-06 08:00 Early",
                                           "2024-03-06 23:50 Late"));
  EXPECT_THAT(recorder->ended, ElementsAre("2024-03-05 09:00 recorded", "2024-03-06 09:00 recorded",
                                           "2024-03-07 00:50 recorded"));
  const auto day = [](const TaskList& list) {
    return storedDay(TaskRecord(list.front()).option("dayOfMonth"));
  };
  EXPECT_EQ(day(*simulation.application().sets()), "6");
  EXPECT_EQ(day(*before), "5") << "a list that somebody keeps was changed";
}

TEST_F(SimulationTest, SleepProlongsARunAndAnAbsentVolumePutsItOff) {
  auto itsPlan = plan({Task("Docs").daily("09:00").lastRun("4")});
  itsPlan.application.absences = {{"/disk/Docs", *DailyWindow::parse("22:00-09:30")}};
  itsPlan.asleep = DailyWindow::parse("09:40-10:10");
  Simulation simulation(std::move(itsPlan));
  simulation.runUntil(localDate("2024-03-05 12:00"));
  EXPECT_THAT(recorder->begun, ElementsAre("2024-03-05 09:30 Docs"));
  EXPECT_THAT(recorder->ended, ElementsAre("2024-03-05 10:20 recorded"));
}

TEST_F(SimulationTest, WhatIsNotRecordedIsLaunchedAgain) {
  auto itsPlan = plan({Task("Docs").daily("08:00").lastRun("4")});
  itsPlan.application.durationOf = [](const std::string&) { return Seconds(10); };
  int failures = 0;
  itsPlan.application.fails = [&failures](const std::string&) { return ++failures < 3; };
  Simulation simulation(std::move(itsPlan));
  simulation.runUntil(localDate("2024-03-05 12:00"));
  EXPECT_THAT(recorder->ended, ElementsAre("2024-03-05 08:01 lost", "2024-03-05 08:02 lost",
                                           "2024-03-05 08:03 recorded"));
  EXPECT_EQ(simulation.application().collisions(), 0u);
}

TEST_F(SimulationTest, WindowsFollowTheLocalClock) {
  const struct {
    const char* window;
    const char* at;
    bool contains;
    const char* begin;
    const char* end;
  } kCases[] = {
      {"22:00-07:00", "2024-03-05 06:59", true, "2024-03-05 22:00", "2024-03-05 07:00"},
      {"22:00-07:00", "2024-03-05 07:00", false, "2024-03-05 22:00", "2024-03-06 07:00"},
      {"9:00-17:30", "2024-03-05 09:00", true, "2024-03-06 09:00", "2024-03-05 17:30"},
      // The clocks skip from 02:00 to 03:00 on the 31st.
      {"02:15-03:15", "2024-03-30 12:00", false, "2024-04-01 02:15", "2024-03-31 03:15"},
  };
  for (const auto& one : kCases) {
    const auto window = DailyWindow::parse(one.window);
    ASSERT_TRUE(window) << one.window;
    const Date at = localDate(one.at);
    EXPECT_EQ(window->contains(at), one.contains) << one.window << " " << one.at;
    EXPECT_EQ(localStamp(window->nextBegin(at)), one.begin) << one.window << " " << one.at;
    EXPECT_EQ(localStamp(window->nextEnd(at)), one.end) << one.window << " " << one.at;
  }
  for (const char* wrong : {"", "22:00", "22:00-", "-07:00", "24:00-07:00", "07:00-07:00",
                            "22:00-07:00-08:00", "22-7"}) {
    EXPECT_FALSE(DailyWindow::parse(wrong)) << wrong;
  }
}

}  // namespace
}  // namespace kv::test
