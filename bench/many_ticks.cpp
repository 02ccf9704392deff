// Does the agent grow? Two times 10,000 ticks in one process, 200 sets, the default host script
// answering.
//
// Budget     no growth: the second 10,000 need no more memory and descriptors than the first. What
//            is free lies scattered now here, now there, so the highest figure of each is
//            compared; the first thousand ticks, which warm up, do not count.
// Prints     resident kB and open descriptors of both.

#include <fmt/format.h>

#include <algorithm>
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
  constexpr int kSets = 200;
  constexpr int kWarmUp = 1000;
  constexpr int kMany = 10'000;
  const QCoreApplication application(argc, argv);
  kv::bench::BenchWorld world(kSets);
  kv::bench::ScriptWorld script(world);
  const auto highestOf = [&script](int ticks) {
    Usage highest{};
    for (int i = 0; i < ticks; ++i) {
      script.tick();
      const auto present = usage();
      highest.residentKilobytes = std::max(highest.residentKilobytes, present.residentKilobytes);
      highest.descriptors = std::max(highest.descriptors, present.descriptors);
    }
    return highest;
  };
  highestOf(kWarmUp);
  const auto first = highestOf(kMany - kWarmUp);
  const auto second = highestOf(kMany);
  fmt::print("{} {} {} {}\n", first.residentKilobytes, first.descriptors, second.residentKilobytes,
             second.descriptors);
}
