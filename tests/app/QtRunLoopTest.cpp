#include "platform/qt/QtRunLoop.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "tests/support/RunUntil.h"

namespace kv::test {
namespace {

TEST(QtRunLoop, KeepsItsGridAndMakesUpForNothing) {
  QtRunLoop loop;
  QElapsedTimer elapsed;
  elapsed.start();
  const auto intervals = [&] { return static_cast<double>(elapsed.nsecsElapsed()) / 4e7; };
  std::vector<double> firings;  // in intervals since the start
  loop.scheduleRepeatingTimer(Seconds(0.04), [&] {
    firings.push_back(intervals());
    while (firings.size() == 2 && intervals() < firings[1] + 2.5) {  // a long action
    }
  });
  ASSERT_TRUE(runUntil([&] { return firings.size() >= 10; }));
  double leastLateness = 1.0;
  for (std::size_t index = 3; index < firings.size(); ++index) {
    const double point = std::floor(firings[index] + 0.01);
    EXPECT_GT(point, std::floor(firings[index - 1] + 0.01)) << "burst at " << index;
    leastLateness = std::min(leastLateness, firings[index] - point);
  }
  EXPECT_LT(leastLateness, 0.3) << "the long action has moved the later firings";
}

TEST(QtRunLoop, AFiringWakesTheProcessOnce) {
  constexpr int kFirings = 40;
  rusage before{}, after{};
  QtRunLoop loop;
  int firings = 0;
  loop.scheduleRepeatingTimer(Seconds(0.0105), [&] { ++firings; });  // the loop alone holds it
  ASSERT_TRUE(runUntil([&] { return firings == 1; }));
  getrusage(RUSAGE_THREAD, &before);
  ASSERT_TRUE(runUntil([&] { return firings > kFirings; }));
  getrusage(RUSAGE_THREAD, &after);
  EXPECT_LE(after.ru_nvcsw - before.ru_nvcsw, kFirings + kFirings / 10);
}

TEST(QtRunLoop, AnActionNeverRunsInsideAnother) {
  QtRunLoop loop;
  bool inAction = false;
  int runs[] = {0, 0};
  for (int& count : runs) {
    loop.scheduleRepeatingTimer(Seconds(0.01), [&] {
      EXPECT_FALSE(std::exchange(inAction, true));
      QEventLoop nested;
      QTimer::singleShot(25, &nested, &QEventLoop::quit);
      nested.exec();
      inAction = false;
      ++count;
    });
  }
  EXPECT_TRUE(runUntil([&] { return runs[0] >= 3 && runs[1] >= 3; }));
}

TEST(QtRunLoop, ATimerEndsByItsOwnActionOrWithTheLoopAndDropsWhatItHeld) {
  std::optional<QtRunLoop> loop(std::in_place);
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> watched = held;
  std::shared_ptr<RepeatingTimer> timer;
  timer = loop->scheduleRepeatingTimer(Seconds(0.001), [&watched, &timer, held] {
    ++*held;
    timer->invalidate();
    EXPECT_FALSE(watched.expired()) << "an action must outlive its own run";
  });
  int others = 0;
  const auto other = loop->scheduleRepeatingTimer(Seconds(0.005), [&others, held] { ++others; });
  ASSERT_TRUE(runUntil([&] { return others >= 3; }));
  EXPECT_EQ(*held, 1);
  EXPECT_FALSE(timer->isValid());
  held.reset();
  loop.reset();
  EXPECT_FALSE(other->isValid());
  EXPECT_TRUE(watched.expired());
  other->invalidate();
}

}  // namespace
}  // namespace kv::test
