#include "platform/linux/QuickClock.h"

#include <time.h>

#include <fstream>
#include <string>

namespace kv {
namespace {

constexpr double kNanosecondsBetweenLooks = 1e6;
constexpr double kSlower = 0.999;

/// Processors count one to five ticks in a nanosecond.
constexpr double kShortestTick = 0.1;
constexpr double kLongestTick = 2;

/// Two looks tell the length of a tick when they lie at least ten milliseconds apart, beside which
/// the time that a look takes is nothing, and not more than some seconds, in which no machine is
/// put to sleep and woken.
constexpr std::uint64_t kLeastTicks = 50'000'000;
constexpr std::uint64_t kMostTicks = 5'000'000'000;

/// A look that takes longer, some microseconds, was interrupted: its figures do not belong
/// together.
constexpr std::uint64_t kTicksOfALook = 5'000;
constexpr int kLooksTried = 5;

Seconds systemSteady() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

#if defined(__x86_64__)
std::uint64_t processorTicks() {
  return __builtin_ia32_rdtsc();
}

/// The kernel counts its own time by it, after it has seen that all processors agree.
bool isCountReliable() {
  std::string name;
  std::getline(std::ifstream("/sys/devices/system/clocksource/clocksource0/current_clocksource"),
               name);
  return name == "tsc";
}
#endif

std::atomic<std::uint64_t> gClocks{0};

}  // namespace

constinit thread_local QuickClock::Base QuickClock::tBase;

QuickClock::Source QuickClock::systemSource() {
  Source source{.ticks = nullptr, .now = currentSystemTime, .steady = systemSteady};
#if defined(__x86_64__)
  if (isCountReliable()) source.ticks = processorTicks;
#endif
  return source;
}

QuickClock::QuickClock(const Source& source) : source_(source), number_(++gClocks) {
  if (source_.ticks == nullptr) return;
  // Where the processor is not asked directly, as within an emulator, no look is ever quick enough.
  int left = kLooksTried;
  while (left > 0 && !look()) --left;
  if (left == 0) source_.ticks = nullptr;
}

Date QuickClock::now() const {
  if (source_.ticks == nullptr) return dateFrom(source_.now());
  const Base& base = tBase;
  // Below nothing when the count began anew.
  const auto passed = static_cast<std::int64_t>(source_.ticks() - base.look.ticks);
  if (passed < 0 || passed >= base.lastingTicks || base.clock != number_) return lookAgain();
  const SystemTime& seen = base.look.time;
  return dateFrom({seen.seconds, seen.nanoseconds + static_cast<double>(passed) * base.tick});
}

Date QuickClock::lookAgain() const {
  Base& base = tBase;
  const bool isOurs = base.clock == number_;
  double tick = tick_.load(std::memory_order_relaxed);
  if (tick == 0 && isOurs && source_.ticks() - base.look.ticks < kLeastTicks) {
    return dateFrom(source_.now());
  }

  const std::optional<Look> seen = look();
  if (!seen) return dateFrom(source_.now());
  if (isOurs) {
    tick = tickBetween(base.look, *seen).value_or(tick);
    tick_.store(tick, std::memory_order_relaxed);
  }
  const auto lasting =
      tick > 0 ? static_cast<std::int64_t>(kNanosecondsBetweenLooks / tick) : std::int64_t{0};
  base = {.clock = number_, .look = *seen, .lastingTicks = lasting, .tick = tick};
  return dateFrom(seen->time);
}

std::optional<QuickClock::Look> QuickClock::look() const {
  const std::uint64_t begin = source_.ticks();
  Look look{.ticks = 0, .time = source_.now(), .steady = source_.steady()};
  // The later count: what is added to the time is too little then, not too much.
  look.ticks = source_.ticks();
  if (look.ticks - begin > kTicksOfALook) return std::nullopt;
  return look;
}

std::optional<double> QuickClock::tickBetween(const Look& earlier, const Look& later) {
  const std::uint64_t passed = later.ticks - earlier.ticks;
  if (passed < kLeastTicks || passed > kMostTicks) return std::nullopt;
  const std::chrono::duration<double, std::nano> steady = later.steady - earlier.steady;
  const double tick = steady.count() / static_cast<double>(passed);
  if (tick < kShortestTick || tick > kLongestTick) return std::nullopt;
  return kSlower * tick;
}

}  // namespace kv
