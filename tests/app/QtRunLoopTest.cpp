#include "platform/qt/QtRunLoop.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <vector>

namespace kv::test {
namespace {

/// Runs the event loop until `done`; false when that takes half a minute.
bool runUntil(const std::function<bool()>& done) {
  QTimer limit;
  limit.setSingleShot(true);
  limit.start(30'000);
  while (!done() && limit.isActive()) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
  return done();
}

void stayBusy(Seconds length) {
  QElapsedTimer elapsed;
  elapsed.start();
  while (static_cast<double>(elapsed.nsecsElapsed()) < length.count() * 1e9) {
  }
}

long voluntarySwitches() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

TEST(QtRunLoop, KeepsItsGridAndMakesUpForNothing) {
  constexpr Seconds kInterval{0.04};
  QtRunLoop loop;
  QElapsedTimer elapsed;
  elapsed.start();
  std::vector<double> firings;  // in intervals since the start
  const auto timer = loop.scheduleRepeatingTimer(kInterval, [&] {
    firings.push_back(static_cast<double>(elapsed.nsecsElapsed()) / 1e9 / kInterval.count());
    if (firings.size() == 2) stayBusy(2.5 * kInterval);
  });
  ASSERT_TRUE(runUntil([&] { return firings.size() >= 10; }));
  timer->invalidate();
  double leastLateness = 1.0;
  for (std::size_t index = 0; index < firings.size(); ++index) {
    const double point = std::floor(firings[index] + 0.01);
    const double before = index > 0 ? std::floor(firings[index - 1] + 0.01) : 0.0;
    EXPECT_GT(point, before) << "burst at " << index;
    if (index > 2) leastLateness = std::min(leastLateness, firings[index] - point);
  }
  EXPECT_LT(leastLateness, 0.3) << "the long action has moved the later firings";
}

TEST(QtRunLoop, AFiringWakesTheProcessOnce) {
  constexpr int kFirings = 40;
  QtRunLoop loop;
  int firings = 0;
  const auto timer = loop.scheduleRepeatingTimer(Seconds(0.0105), [&] { ++firings; });
  ASSERT_TRUE(runUntil([&] { return firings == 1; }));
  const long before = voluntarySwitches();
  ASSERT_TRUE(runUntil([&] { return firings > kFirings; }));
  EXPECT_LE(voluntarySwitches() - before, kFirings + kFirings / 10);
}

TEST(QtRunLoop, AnActionNeverRunsInsideAnother) {
  QtRunLoop loop;
  bool inAction = false;
  int outer = 0;
  int inner = 0;
  const auto slow = loop.scheduleRepeatingTimer(Seconds(0.01), [&] {
    EXPECT_FALSE(inAction);
    inAction = true;
    QEventLoop nested;
    QTimer::singleShot(50, &nested, &QEventLoop::quit);
    nested.exec();
    inAction = false;
    ++outer;
  });
  const auto quick = loop.scheduleRepeatingTimer(Seconds(0.01), [&] {
    EXPECT_FALSE(inAction);
    ++inner;
  });
  EXPECT_TRUE(runUntil([&] { return outer >= 3 && inner >= 3; }));
}

TEST(QtRunLoop, InvalidatingDropsTheActionOnceItHasReturned) {
  QtRunLoop loop;
  int firings = 0;
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> watched = held;
  std::weak_ptr<RepeatingTimer> self;
  const auto keeper = loop.scheduleRepeatingTimer(
      Seconds(0.001), [&firings, &self, held = std::move(held), &watched] {
        ++firings;
        self.lock()->invalidate();
        EXPECT_FALSE(watched.expired());
      });
  self = keeper;
  EXPECT_TRUE(keeper->isValid());
  ASSERT_TRUE(runUntil([&] { return firings > 0; }));
  EXPECT_TRUE(watched.expired());
  EXPECT_FALSE(keeper->isValid());
  keeper->invalidate();

  int others = 0;
  const auto other = loop.scheduleRepeatingTimer(Seconds(0.005), [&] { ++others; });
  ASSERT_TRUE(runUntil([&] { return others >= 3; }));
  EXPECT_EQ(firings, 1);
}

TEST(QtRunLoop, HoldsATimerThatNobodyElseHolds) {
  QtRunLoop loop;
  int firings = 0;
  loop.scheduleRepeatingTimer(Seconds(0.001), [&] { ++firings; });
  EXPECT_TRUE(runUntil([&] { return firings >= 3; }));
}

TEST(QtRunLoop, TimersEndWithTheRunLoop) {
  std::optional<QtRunLoop> loop(std::in_place);
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> watched = held;
  const auto timer =
      loop->scheduleRepeatingTimer(Seconds(0.001), [held = std::move(held)] { FAIL(); });
  loop.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_FALSE(timer->isValid());
  timer->invalidate();
}

}  // namespace
}  // namespace kv::test
