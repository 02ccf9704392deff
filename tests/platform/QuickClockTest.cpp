#include "platform/linux/QuickClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "platform/linux/SystemClock.h"

namespace kv::test {
namespace {

/// A machine whose time goes by only as it is told to.
struct Machine {
  std::uint64_t ticks = 1'000'000;
  Seconds steady{0};
  std::int64_t unixNanoseconds = 1'800'000'000'000'000'000;
  double ticksPerSecond = 3e9;
  /// Ticks that the system needs to tell the time.
  std::uint64_t lookTicks = 50;
  int looks = 0;

  SystemTime wallTime() const {
    constexpr std::int64_t kSecond = 1'000'000'000;
    return {unixNanoseconds / kSecond, static_cast<double>(unixNanoseconds % kSecond)};
  }
  Date date() const { return dateFrom(wallTime()); }
  void set(double secondsLater) {
    unixNanoseconds += static_cast<std::int64_t>(secondsLater * 1e9);
  }
  void pass(double seconds) {
    ticks += static_cast<std::uint64_t>(seconds * ticksPerSecond);
    steady += Seconds(seconds);
    set(seconds);
  }
};
Machine gMachine;

constexpr QuickClock::Source kSource{.ticks = [] { return gMachine.ticks; },
                                     .now =
                                         [] {
                                           ++gMachine.looks;
                                           gMachine.ticks += gMachine.lookTicks;
                                           return gMachine.wallTime();
                                         },
                                     .steady = [] { return gMachine.steady; }};

constexpr double kMicrosecond = 1e-6;

class QuickClockTest : public ::testing::Test {
 protected:
  QuickClockTest() { gMachine = {}; }

  /// Asks often until the clock has measured the machine's ticks.
  static void warmUp(const QuickClock& clock) {
    for (int time = 0; time < 1000; ++time) {
      gMachine.pass(100 * kMicrosecond);
      clock.now();
    }
    gMachine.looks = 0;
  }

  /// How far the clock is behind the machine's, in microseconds.
  static double lag(const QuickClock& clock) {
    const Date date = clock.now();
    return (gMachine.date() - date).count() / kMicrosecond;
  }
};

TEST_F(QuickClockTest, AsksTheSystemUntilItKnowsTheTicksAndSeldomThen) {
  const QuickClock clock(kSource);
  for (int time = 0; time < 90; ++time) {
    EXPECT_EQ(clock.now(), gMachine.date());
    gMachine.pass(100 * kMicrosecond);
  }
  EXPECT_GE(gMachine.looks, 90);
  warmUp(clock);
  for (int time = 0; time < 1000; ++time) {
    gMachine.pass(10 * kMicrosecond);
    clock.now();
  }
  EXPECT_LE(gMachine.looks, 11) << "ten milliseconds, and one look in each";
  EXPECT_GE(gMachine.looks, 9);
}

TEST_F(QuickClockTest, IsALittleBehindAndNeverAheadAtAnyRate) {
  for (const double ticksPerSecond : {0.8e9, 1e9, 2.6e9, 5.5e9}) {
    SCOPED_TRACE(ticksPerSecond);
    gMachine.ticksPerSecond = ticksPerSecond;
    const QuickClock clock(kSource);
    warmUp(clock);
    // A time server makes the system's clock run half a thousandth faster or slower.
    for (const double slew : {0.0, 0.0005, -0.0005}) {
      Date before = clock.now();
      for (int time = 0; time < 20'000; ++time) {
        const double step = (time % 7) * 40 * kMicrosecond;
        gMachine.pass(step);
        gMachine.set(step * slew);
        const Date date = clock.now();
        ASSERT_LE(before, date);
        ASSERT_LE(date, gMachine.date());
        ASSERT_LT((gMachine.date() - date).count(), 4 * kMicrosecond);
        before = date;
      }
    }
  }
}

TEST_F(QuickClockTest, SeesWithinAMillisecondThatTheClockWasSet) {
  const QuickClock clock(kSource);
  for (const double step : {-3600.0, 3600.0, -0.5}) {
    warmUp(clock);
    gMachine.set(step);
    gMachine.pass(0.001 + 2 * kMicrosecond);
    EXPECT_LT(lag(clock), 1) << step;
    EXPECT_GE(lag(clock), 0) << step;
  }
}

TEST_F(QuickClockTest, LooksAgainAfterALongTimeOrAJumpOfTheCount) {
  const auto afterwards = [](auto&& happens) {
    const QuickClock clock(kSource);
    warmUp(clock);
    happens();
    const double first = lag(clock);
    warmUp(clock);
    return std::max(first, lag(clock));
  };
  EXPECT_LT(afterwards([] { gMachine.ticks = 17; }), 2) << "asleep, and the count with it";
  EXPECT_LT(afterwards([] { gMachine.ticks += 1ull << 60; }), 2);
  EXPECT_LT(afterwards([] { gMachine.pass(8 * 3600); }), 2);
}

TEST_F(QuickClockTest, MeasuresNothingAcrossASleep) {
  struct Case {
    const char* what;
    double steady;
    std::uint64_t ticks;
  };
  // From the first look to the second, after which it would know.
  for (const auto& [what, steady, ticks] :
       {Case{"the count went on, the steady clock stood still", 0.02, 3'000'000'000},
        Case{"the count stood still", 30, 60'000'000},
        Case{"hours later", 4 * 3600, 43'200'000'000'000}}) {
    gMachine.looks = 0;
    const QuickClock clock(kSource);
    clock.now();
    gMachine.ticks += ticks;
    gMachine.steady += Seconds(steady);
    gMachine.set(steady);
    clock.now();
    for (int time = 0; time < 90; ++time) {
      gMachine.pass(time % 2 == 0 ? 100 * kMicrosecond : kMicrosecond / 4);
      EXPECT_EQ(clock.now(), gMachine.date()) << what;
    }
  }
}

TEST_F(QuickClockTest, GoesOnFromNoLookThatWasInterrupted) {
  const QuickClock clock(kSource);
  warmUp(clock);
  gMachine.pass(0.002);
  gMachine.lookTicks = 6'000'000;  // two milliseconds
  EXPECT_EQ(clock.now(), gMachine.date());
  gMachine.lookTicks = 50;
  gMachine.pass(100 * kMicrosecond);
  EXPECT_EQ(clock.now(), gMachine.date()) << "it looks again, as it has nothing to go on from";
}

TEST_F(QuickClockTest, DoesWithoutACountWhereThereIsNoneOrAskingForItIsSlow) {
  auto source = kSource;
  source.ticks = nullptr;
  const QuickClock none(source);
  gMachine.lookTicks = 100'000;
  const QuickClock slow(kSource);
  gMachine.lookTicks = 50;
  for (const QuickClock* clock : {&none, &slow}) {
    for (int time = 0; time < 1000; ++time) {
      gMachine.pass(100 * kMicrosecond);
      ASSERT_EQ(clock->now(), gMachine.date());
    }
  }
}

TEST_F(QuickClockTest, ServesSeveralClocksAndThreads) {
  const QuickClock one(kSource);
  warmUp(one);
  gMachine.set(5);
  const QuickClock other(kSource);
  EXPECT_EQ(other.now(), gMachine.date()) << "what one saw is not the other's";
  EXPECT_LT(lag(one), 2);
  std::thread([&one] { EXPECT_EQ(one.now(), gMachine.date()); }).join();
}

/// On this machine, whatever count it has.
TEST(QuickClock, AgreesWithTheSystemsClock) {
  const QuickClock quick;
  const SystemClock system;
  constexpr Seconds kMeasured(0.1);
  constexpr Seconds kLate(0.001);
  const Date begin = system.now();
  Date before = begin;
  while (before - begin < kMeasured) {
    const Date now = quick.now();
    const Date after = system.now();
    ASSERT_LE(now, after);
    ASSERT_GE(now, before + -1 * kLate);
    before = after;
  }
}

}  // namespace
}  // namespace kv::test
