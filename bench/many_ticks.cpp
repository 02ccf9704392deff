// Does the agent grow? 10,000 ticks in one process, 200 sets, the default host script answering.
//
// Budget     no growth of memory or descriptors from the second thousand ticks to the last. The
//            script engine collects now and then, so the highest figures of each are compared.
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
  constexpr int kThousand = 1000;
  const QCoreApplication application(argc, argv);
  kv::bench::BenchWorld world(kSets);
  kv::bench::ScriptWorld script(world);
  const auto highestOfThousandTicks = [&script] {
    Usage highest{};
    for (int i = 0; i < kThousand; ++i) {
      script.tick();
      const auto present = usage();
      highest.residentKilobytes = std::max(highest.residentKilobytes, present.residentKilobytes);
      highest.descriptors = std::max(highest.descriptors, present.descriptors);
    }
    return highest;
  };
  highestOfThousandTicks();
  const auto warm = highestOfThousandTicks();
  for (int i = 0; i < 7; ++i) highestOfThousandTicks();
  const auto end = highestOfThousandTicks();
  fmt::print("{} {} {} {}\n", warm.residentKilobytes, warm.descriptors, end.residentKilobytes,
             end.descriptors);
}
