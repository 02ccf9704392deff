// What does one tick cost, from the documents on the disk to the last judged set?
//
// Budgets    20 / 1,000 sets with the script host 1 ms / 25 ms, with a C++ host 0.5 ms / 12 ms;
//            from 1,000 to 100,000 sets at most 1.3 times the time for each set.
// Documents  half of the sets in each, the first in XML, the second in the compact encoding.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/BenchWorld.h"

namespace kv::bench {
namespace {

/// A host that has every destination and never runs a backup.
class IdleHost final : public Host {
 public:
  void reloadMenuNow(const TaskList&) override {}
  std::optional<PropertyList> checkRunningBackupStatus() override { return PropertyList(0); }
  std::optional<PropertyList> checkBackupStatus() override { return PropertyList(0); }
  bool checkIfDiskExists_fromSchedule(const PropertyList*, int) override { return true; }
  void backupNow(const PropertyList*) override { throw std::logic_error("nothing is due"); }
  void backupNowViaScript(const PropertyList*) override {
    throw std::logic_error("nothing is due");
  }
};

void tickWithCxxHost(benchmark::State& state) {
  BenchWorld world(static_cast<int>(state.range(0)), state.range(1) != 0);
  const auto host = std::make_shared<IdleHost>();
  const auto timer = KVTimer::create(world.scheduler([host] { return host; }));
  for (auto _ : state) timer->ScheduleTimer();
  timer->stopTimer();
}
BENCHMARK(tickWithCxxHost)
    ->ArgNames({"sets", "lean"})
    ->Args({20, 0})
    ->Args({1000, 0})
    ->Args({1000, 1})
    ->Args({100000, 1})
    ->Unit(benchmark::kMillisecond);

void tickWithScriptHost(benchmark::State& state) {
  BenchWorld world(static_cast<int>(state.range(0)));
  ScriptWorld script(world);
  for (auto _ : state) script.tick();
}
BENCHMARK(tickWithScriptHost)->ArgName("sets")->Arg(20)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kv::bench

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
