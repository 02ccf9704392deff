// What does a year of ticks cost on the virtual clock? 50 sets in everyday use, each tick run by
// the production scheduler, each run recorded.
//
// Budget     60 s on one core for 365 days; no growth of memory from the first month on.
// Prints     seconds of processor time, ticks, runs, and the resident kB after a month and at the
//            end. Takes the number of days (365) and of sets (50).

#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "bench/Documents.h"
#include "tools/simulation/Simulation.h"

namespace {

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

long residentKilobytes() {
  constexpr long kKilobytesPerPage = 4;
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * kKilobytesPerPage;
}

/// Rules of Central Europe, so that the year has both changes of the clocks.
constexpr const char* kZone = ":Europe/Berlin";

}  // namespace

int main(int argc, char** argv) {
  const int days = argc > 1 ? std::atoi(argv[1]) : 365;
  const int sets = argc > 2 ? std::atoi(argv[2]) : 50;
  constexpr int kMonth = 30;
  constexpr kv::Seconds kDay{86400};
  setenv("TZ", kZone, 1);
  const kv::Date begin = kv::Date::fromUnixSeconds(1767222000);  // 2026-01-01 00:00 there
  kv::Simulation::Plan plan{.sets = kv::bench::EverydaySets{begin, 31}.sets(sets),
                            .begin = begin,
                            .locale = kv::DateLocale::fromName("en_US")};
  plan.application.duration = kv::Seconds(45);
  const double started = processorSeconds();
  kv::Simulation simulation(std::move(plan));
  simulation.runUntil(begin + std::min(days, kMonth) * kDay);
  const long afterMonth = residentKilobytes();
  simulation.runUntil(begin + days * kDay);
  fmt::print("{:.1f} {} {} {} {}\n", processorSeconds() - started, simulation.ticks(),
             simulation.application().runs(), afterMonth, residentKilobytes());
}
