#include <gmock/gmock.h>

#include "tests/support/World.h"

namespace kv::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;

TEST(Timer, ReadsHandsOverAndWaitsOneInterval) {
  World world;
  world.setFirst(PropertyList::Array{Task("A").off(), Task("B").off()},
                 PropertyListEncoding::kBinary);
  world.setSecond(PropertyList::Array{Task("C").off(), 5}, PropertyListEncoding::kXml);
  world.clock->present = localDate("2024-03-05 09:00");
  world.start(false);
  EXPECT_THAT(world.host->calls, ElementsAre("reload 4"));
  EXPECT_EQ(world.host->lastList[2], PropertyList(Task("C").off()));
  EXPECT_EQ(world.host->lastList[3], PropertyList(5));
  EXPECT_EQ(world.timer->ndt(), world.clock->present);
  EXPECT_EQ(world.timer->indexNum(), std::nullopt);
  EXPECT_FALSE(world.timer->debugStarted());

  world.runLoop->advance(Seconds(56.9));
  EXPECT_EQ(world.host->calls.size(), 1u);
  world.runLoop->advance(Seconds(0.1));
  EXPECT_EQ(world.host->calls.back(), "disk nil 1");
  world.host->calls.clear();
  world.runLoop->advance(Seconds(570));
  EXPECT_EQ(std::count(world.host->calls.begin(), world.host->calls.end(), "reload 4"), 10);
}

struct DocumentCase {
  const char* why;
  std::string first;
  std::size_t records;
};

TEST(Timer, ReadsNothingFromWhatIsNoDocument) {
  const PropertyList::Array two{Task("A"), Task("B")};
  const auto whole = writePropertyList(two, PropertyListEncoding::kXml);
  const DocumentCase cases[] = {
      {"whole", whole, 3},
      {"truncated", whole.substr(0, whole.size() / 2), 1},
      {"empty", "", 1},
      {"a dictionary", writePropertyList(Task("A"), PropertyListEncoding::kXml), 1},
      {"an empty array", writePropertyList(PropertyList::Array{}, PropertyListEncoding::kXml), 1},
      {"text", "backupset = Docs", 1},
  };
  for (const auto& c : cases) {
    World world;
    writeFile(world.home / ScheduleDocuments::kFirst, c.first);
    world.setSecond(PropertyList::Array{Task("C")});
    world.start();
    EXPECT_EQ(world.host->lastList.size(), c.records) << c.why;
  }
}

TEST(Timer, StopsTheLatestOnly) {
  World world;
  world.start();
  EXPECT_EQ(world.runLoop->validTimers(), 1u);
  world.timer->stopTimer();
  world.timer->stopTimer();
  EXPECT_EQ(world.runLoop->validTimers(), 0u);
  ASSERT_NE(world.timer->timer(), nullptr);
  EXPECT_FALSE(world.timer->timer()->isValid());

  world.timer->runTimer();
  world.timer->runTimer();
  EXPECT_EQ(world.runLoop->validTimers(), 2u);
  world.timer->stopTimer();
  EXPECT_EQ(world.runLoop->validTimers(), 1u);
  world.host->calls.clear();
  world.runLoop->advance(Seconds(57));
  EXPECT_THAT(world.host->calls, ElementsAre("reload 0"));
}

TEST(Timer, TracesStartsAndStopsOnlyWhileTracing) {
  World world;
  world.start();
  world.timer->stopTimer();
  world.tickAt("2024-03-05 09:00");
  const auto before = world.trace().size();
  world.timer->runTimer();
  world.timer->stopTimer();
  auto lines = world.trace();
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
  EXPECT_THAT(lines, ElementsAre("Run Timer now pre", "Run Timer now arrays done pre",
                                 "Run Timer now final", "Stopping Scheduling Timer"));
}

TEST(Timer, LivesWhileItsTimerRuns) {
  World world;
  world.start();
  const std::weak_ptr<KVTimer> scheduler = world.timer;
  world.timer.reset();
  EXPECT_FALSE(scheduler.expired());
  world.host->calls.clear();
  // Let go of by its own tick: it must survive until that tick has ended.
  world.host->onReload = [&scheduler] { scheduler.lock()->stopTimer(); };
  world.runLoop->advance(Seconds(57));
  EXPECT_TRUE(scheduler.expired());
  EXPECT_THAT(world.host->calls, ElementsAre("reload 0"));
}

TEST(Timer, FindsDestinations) {
  const TaskList list{5, Task("Docs"), Task("Docs").field("destinationPath", "/other"),
                      Task("Bare").withoutField("destinationPath"),
                      Task("x").field("backupset", 7)};
  const std::string docs = "Docs";
  const std::string bare = "Bare";
  const std::string seven = "7";
  EXPECT_EQ(KVTimer::getDestPathFromArray_Set(list, &docs), PropertyList("/disk/Docs"));
  EXPECT_EQ(KVTimer::getDestPathFromArray_Set(list, &bare), std::nullopt);
  EXPECT_EQ(KVTimer::getDestPathFromArray_Set(list, &seven), PropertyList("none"));
  EXPECT_EQ(KVTimer::getDestPathFromArray_Set(list, nullptr), PropertyList("none"));
  EXPECT_EQ(KVTimer::getDestPathFromArray_Set({}, &docs), PropertyList("none"));
}

TEST(Timer, KeepsItsFixedPaths) {
  EXPECT_EQ(KVTimer::Environment{}.traceFile, "/tmp/KVScheduler.txt");
  EXPECT_STREQ(ScheduleDocuments::kFirst, "Library/Application Support/Kelvara/kelvara.plist");
  EXPECT_STREQ(ScheduleDocuments::kSecond, "Library/Application Support/Kelvara/kvsets.plist");
}

}  // namespace
}  // namespace kv::test
