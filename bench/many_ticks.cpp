// Does the agent grow? Ticks by the thousand in one process, 200 sets, the default host script
// answering.
//
// Budget     no growth of memory or descriptors from the second thousand ticks to the tenth. What
// is
//            free lies scattered now here, now there, so the highest figures of each are compared.
//            10,000 further ticks show whether what is left of growth goes on.
// Prints     resident kB and open descriptors of the second thousand, of the tenth, and of the
//            thousand after 20,000 ticks.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "bench/BenchWorld.h"
#include "platform/linux/CompactHeap.h"

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
  kv::restartWithCompactHeap(argv);  // as the agent does
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
  for (int i = 0; i < 10; ++i) highestOfThousandTicks();
  const auto later = highestOfThousandTicks();
  for (const Usage& one : {warm, end, later}) {
    fmt::print("{} {} ", one.residentKilobytes, one.descriptors);
  }
  fmt::print("\n");
}
