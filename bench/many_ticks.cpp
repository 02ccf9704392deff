// Does the agent grow? 10,000 ticks in one process, 200 sets, the default host script answering.
//
// Budget     no growth of memory or descriptors from the 1,000th tick to the 10,000th.
// Prints     resident kB and open descriptors at both.

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "bench/BenchWorld.h"

namespace {

struct Usage {
  long residentKilobytes;
  long descriptors;
};

Usage usage() {
  constexpr long kKilobytesPerPage = 4;
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  const std::filesystem::directory_iterator open("/proc/self/fd");
  return {resident * kKilobytesPerPage, std::distance(begin(open), end(open)) - 1};
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kWarmTicks = 1000;
  constexpr int kTicks = 10000;
  constexpr int kSets = 200;
  const QCoreApplication application(argc, argv);
  kv::bench::BenchWorld world(kSets);
  kv::bench::ScriptWorld script(world);
  for (int i = 0; i < kWarmTicks; ++i) script.tick();
  const auto warm = usage();
  for (int i = kWarmTicks; i < kTicks; ++i) script.tick();
  const auto end = usage();
  fmt::print("{} {} {} {}\n", warm.residentKilobytes, warm.descriptors, end.residentKilobytes,
             end.descriptors);
}
