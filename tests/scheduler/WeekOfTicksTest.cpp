#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

#include "scheduler/FieldReaders.h"
#include "tests/support/World.h"

namespace kv::test {
namespace {

/// A backup application that takes some time for a backup and then records it.
class SimulatedApplication {
 public:
  SimulatedApplication(World& world, PropertyList::Array sets)
      : world_(world), sets_(std::move(sets)) {
    world_.setFirst(sets_);
  }

  void start(const std::string& set, Date now, Seconds duration) {
    running_ = set;
    ends_ = now + duration;
    startDay_ = DateFormatter("d", world_.locale).string(now).value();
    world_.host->running = PropertyList(1);
  }

  void passTime(Date now) {
    if (running_.empty() || now < ends_) return;
    for (auto& entry : sets_) {
      const TaskRecord record(entry);
      if (record.shownSet() != running_) continue;
      auto& options =
          *entry.as<PropertyList::Dictionary>()->find("schopts")->as<PropertyList::Dictionary>();
      options.set("dayOfMonth", startDay_);
      if (record.type() == kMinutes) options.set("minhourdate", now + Seconds(30 * 60));
    }
    world_.setFirst(sets_);
    running_.clear();
    world_.host->running = PropertyList(0);
  }

  bool isRunning() const { return !running_.empty(); }

 private:
  World& world_;
  PropertyList::Array sets_;
  std::string running_;
  std::string startDay_;
  Date ends_;
};

/// What must hold over any week: a tick launches at most one set, never while another runs, each
/// daily set once on each day, and no overdue interval set waits longer than all others take.
TEST(WeekOfTicks, StartsEveryDailySetOnceADay) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  World world;
  PropertyList::Array sets;
  for (int i = 0; i < 5; ++i) {
    const auto hour = std::to_string(random() % 10 + 10);
    const auto time = hour + ":" + std::to_string(random() % 50 + 10);
    sets.push_back(Task(("Daily" + std::to_string(i)).c_str()).daily(time.c_str()).lastRun("29"));
  }
  sets.push_back(Task("Often").minutes("2024-03-01 08:00"));
  SimulatedApplication application(world, sets);
  world.clock->present = localDate("2024-03-01 00:00");
  const auto end = localDate("2024-03-08 00:00");
  world.start(false);

  const DateFormatter dayFormat("MM/dd", world.locale);
  std::map<std::string, std::multiset<std::string>> launchedOn;
  while (world.clock->present < end) {
    application.passTime(world.clock->present);
    const bool wasRunning = application.isRunning();
    const auto before = world.host->launched.size();
    world.timer->ScheduleTimer();
    const auto launches = world.host->launched.size() - before;
    ASSERT_LE(launches, wasRunning ? 0u : 1u);
    if (launches == 1) {
      const auto& set = world.host->launched.back();
      launchedOn[set].insert(*dayFormat.string(world.clock->present));
      application.start(set, world.clock->present, Seconds(double(random() % 900 + 10)));
    }
    world.clock->present = world.clock->present + KVTimer::kTickInterval;
  }
  const std::multiset<std::string> everyDay = {"03/01", "03/02", "03/03", "03/04",
                                               "03/05", "03/06", "03/07"};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(launchedOn["Daily" + std::to_string(i)], everyDay) << i;
  EXPECT_GT(launchedOn["Often"].size(), 7u * 20u);
}

}  // namespace
}  // namespace kv::test
